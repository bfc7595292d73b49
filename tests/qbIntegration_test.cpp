// The SDK layer against qbsim: the session, the lists and custom fields end to end, with the
// sample company standing in for QuickBooks.
#include <gtest/gtest.h>

#include <functional>
#include <pugixml.hpp>

#include "app/context.h"
#include "app/text.h"
#include "fakes/fakes.h"
#include "qb/qbCommon.h"
#include "sim/simTransport.h"

namespace pelmark::qb {
namespace {

// A copy of the sample company, changed by `edit`, behind a qbsim transport.
struct SimApp : test::TestApp {
    std::string companyPath = dir.File("company.xml");
    std::unique_ptr<sim::SimTransport> transport;

    explicit SimApp(const std::function<void(pugi::xml_node)>& edit = {}) {
        pugi::xml_document doc;
        EXPECT_TRUE(doc.load_file(PELMARK_SOURCE_DIR "/samples/company.xml"));
        if (edit) edit(doc.child("QBSimCompany"));
        EXPECT_TRUE(doc.save_file(companyPath.c_str()));
        transport = std::make_unique<sim::SimTransport>(companyPath);
        app.sys.qbTransport = transport.get();
        app.frmMain.SetOption(*app.frmMain.Find("optStopOnAll"), true);
    }
    std::string Prompt() const { return prompter.shown.empty() ? "" : prompter.shown[0].text; }
};

TEST(QbSimIntegration, OpensAtTheVersionTheHostAcceptsAndLoadsTheLists) {
    SimApp old([](pugi::xml_node root) {
        pugi::xml_node host = root.child("HostRet");
        while (host.remove_child("SupportedQBXMLVersion")) {
        }
        for (const char* v : {"1.0", "2.0"})
            host.append_child("SupportedQBXMLVersion").text().set(v);
    });
    ASSERT_TRUE(QBOpen(old.app)) << old.Prompt();
    EXPECT_EQ(old.app.qb.requestMajorVersion + "." + old.app.qb.requestMinorVersion, "2.0");
    EXPECT_FALSE(old.app.qb.dataExtDefs.empty()) << "definitions read at open";
    EXPECT_NE(old.Prompt().find("does not support Invoice modifications"), std::string::npos);
    QBClose(old.app);
    EXPECT_FALSE(old.app.qb.sessionOpen);

    SimApp s;
    ASSERT_TRUE(QBInit(s.app));
    EXPECT_EQ(s.app.qb.requestMajorVersion + "." + s.app.qb.requestMinorVersion, "7.0");
    EXPECT_GE(s.app.qb.customers.size(), 10u);
    EXPECT_GE(s.app.items.count(), 30u);
    EXPECT_FALSE(s.app.qb.templates.empty());
    bool weighed = false;
    for (const ItemRec& item : s.app.items.items) {
        ASSERT_EQ(FindItem(s.app, Upper(item.fullName)), &item) << item.fullName;
        for (const auto& [name, value] : item.customFields) weighed |= name == "Net Weight";
    }
    EXPECT_TRUE(weighed) << "item custom fields come back with OwnerID 0";
    EXPECT_TRUE(s.prompter.shown.empty()) << s.Prompt();
}

// The program tests qbsim's answer to a modify of a field without a value for the words
// QuickBooks uses, and adds the value instead.
TEST(QbSimIntegration, LineCustomFieldIsAddedModifiedAndDeletedThroughTheFallbacks) {
    SimApp s;
    DataExtOptions o;
    o.fieldName = "Color";
    o.txnID = "1F0-1709557200";  // invoice 3001, whose lines have no custom fields
    o.kind = "Invoice";
    o.lineID = "1F1-1709557200";
    o.deleteWhenEmpty = true;
    auto lineColor = [&] {
        pugi::xml_document d;
        EXPECT_TRUE(d.load_file(s.companyPath.c_str()));
        return std::string(d.select_node("//InvoiceLineRet[TxnLineID='1F1-1709557200']/DataExtRet"
                                         "[DataExtName='Color']/DataExtValue")
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
    EXPECT_TRUE(s.prompter.shown.empty()) << s.Prompt();
}

}  // namespace
}  // namespace pelmark::qb
