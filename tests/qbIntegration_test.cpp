// The SDK layer against qbsim: the session, the lists and custom fields end to end, with the
// sample company standing in for QuickBooks.
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include "app/context.h"
#include "app/text.h"
#include "fakes/fakes.h"
#include "qb/qbCommon.h"
#include "sim/simTransport.h"

namespace pelmark::qb {
namespace {

// A copy of the sample company, changed by the test, behind a qbsim transport.
struct SimApp : test::TestApp {
    std::string companyPath = dir.File("company.xml");
    pugi::xml_document doc;
    std::unique_ptr<sim::SimTransport> transport;

    SimApp() {
        EXPECT_TRUE(doc.load_file(PELMARK_SOURCE_DIR "/samples/company.xml"));
        app.frmMain.SetOption(*app.frmMain.Find("optStopOnAll"), true);
    }
    pugi::xml_node Root() { return doc.child("QBSimCompany"); }
    void Start() {
        ASSERT_TRUE(doc.save_file(companyPath.c_str()));
        transport = std::make_unique<sim::SimTransport>(companyPath);
        app.sys.qbTransport = transport.get();
    }
    pugi::xml_document Saved() const {
        pugi::xml_document d;
        EXPECT_TRUE(d.load_file(companyPath.c_str()));
        return d;
    }
};

TEST(QbSimIntegration, VersionChoiceFollowsWhatTheHostAccepts) {
    struct Case {
        std::vector<const char*> accepted;
        const char* major;
        const char* minor;
        bool warned;
    } cases[] = {
        {{"1.0", "2.0", "2.1", "3.0", "13.0"}, "7", "0", false},
        {{"1.0", "2.0", "6.0", "7.0", "7.1"}, "7", "0", false},
        {{"1.0", "2.0", "3.0", "6.0"}, "6", "0", false},
        {{"1.0", "2.0"}, "2", "0", true},
    };
    for (const Case& c : cases) {
        SimApp s;
        pugi::xml_node host = s.Root().child("HostRet");
        while (host.remove_child("SupportedQBXMLVersion")) {
        }
        for (const char* v : c.accepted) host.append_child("SupportedQBXMLVersion").text().set(v);
        s.Start();
        ASSERT_TRUE(QBOpen(s.app))
            << c.accepted.back() << ": "
            << (s.prompter.shown.empty() ? "" : s.prompter.shown.back().text);
        EXPECT_EQ(s.app.qb.requestMajorVersion, c.major);
        EXPECT_EQ(s.app.qb.requestMinorVersion, c.minor);
        bool warned = !s.prompter.shown.empty() &&
                      s.prompter.shown[0].text.find("does not support Invoice modifications") !=
                          std::string::npos;
        EXPECT_EQ(warned, c.warned) << c.accepted.back();
        EXPECT_FALSE(s.app.qb.dataExtDefs.empty()) << "definitions read at open";
        // A second open asks nothing of QuickBooks, and the session ends cleanly.
        EXPECT_TRUE(QBOpen(s.app));
        QBClose(s.app);
        EXPECT_FALSE(s.app.qb.sessionOpen);
    }
}

TEST(QbSimIntegration, InitLoadsCustomersTemplatesAndItemsWithTheirCustomFields) {
    SimApp s;
    s.Start();
    ASSERT_TRUE(QBInit(s.app));
    EXPECT_GE(s.app.qb.customers.size(), 10u);
    EXPECT_GE(s.app.items.count(), 30u);
    EXPECT_FALSE(s.app.qb.templates.empty());
    bool weighed = false;
    for (const ItemRec& item : s.app.items.items) {
        ASSERT_EQ(FindItem(s.app, Upper(item.fullName)), &item) << item.fullName;
        for (const auto& [name, value] : item.customFields) weighed |= name == "Net Weight";
    }
    EXPECT_TRUE(weighed) << "item custom fields come back with OwnerID 0";
    EXPECT_TRUE(s.prompter.shown.empty()) << s.prompter.shown[0].text;
}

TEST(QbSimIntegration, LineCustomFieldIsAddedModifiedAndDeletedThroughTheFallbacks) {
    SimApp s;
    // One invoice with one line, pasted in as QuickBooks returns it.
    pugi::xml_document inv;
    ASSERT_TRUE(inv.load_string(R"(<InvoiceRet>
        <TxnID>1A2B-1714573800</TxnID><TimeCreated>2024-05-01T09:30:00-05:00</TimeCreated>
        <TimeModified>2024-05-01T09:30:00-05:00</TimeModified><EditSequence>1714573800</EditSequence>
        <TxnNumber>7</TxnNumber><CustomerRef><FullName>Baker Hardware</FullName></CustomerRef>
        <TxnDate>2024-05-01</TxnDate><RefNumber>1001</RefNumber>
        <InvoiceLineRet><TxnLineID>1A2C-1714573800</TxnLineID><Desc>Widget</Desc>
        <Quantity>2</Quantity><Rate>5.00</Rate><Amount>10.00</Amount></InvoiceLineRet>
        </InvoiceRet>)"));
    s.Root().append_copy(inv.first_child());
    s.Start();

    DataExtOptions o;
    o.fieldName = "Color";
    o.txnID = "1A2B-1714573800";
    o.kind = "Invoice";
    o.lineID = "1A2C-1714573800";
    o.deleteWhenEmpty = true;
    auto lineColor = [&] {
        pugi::xml_document d = s.Saved();
        return std::string(
            d.select_node("//InvoiceLineRet/DataExtRet[DataExtName='Color']/DataExtValue")
                .node()
                .text()
                .as_string());
    };
    o.value = "Red";  // no value yet: modify, 3120, then add
    EXPECT_TRUE(DataExtModTxn(s.app, o));
    EXPECT_EQ(lineColor(), "Red");
    o.value = "Blue";  // a value now: the modify alone
    EXPECT_TRUE(DataExtModTxn(s.app, o));
    EXPECT_EQ(lineColor(), "Blue");
    o.value.clear();  // empty: deleted
    EXPECT_TRUE(DataExtModTxn(s.app, o));
    EXPECT_EQ(lineColor(), "");
    EXPECT_TRUE(s.prompter.shown.empty()) << s.prompter.shown[0].text;
}

}  // namespace
}  // namespace pelmark::qb
