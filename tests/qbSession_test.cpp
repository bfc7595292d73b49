// Opening and closing the QuickBooks session, the qbXML version choice, and the start-up loading
// of the lists.
#include <gtest/gtest.h>

#include <algorithm>

#include "app/logs.h"
#include "app/text.h"
#include "fakes/qbFakes.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {
namespace {

using test::OkRs;
using test::QbTestApp;

const char* const kNoInvoiceMods =
    "This version of QuickBooks does not support Invoice modifications.";

// tests/data/qb-versions.txt: versions|request version|message|from 3.0.
TEST(QbSession, RequestVersionIsTheHostsHighestCappedAt130) {
    for (const auto& row : test::DataRows("qb-versions.txt")) {
        const std::string version = row.at(1);
        const bool message = row.at(2) == "yes", from30 = row.at(3) == "yes";
        QbTestApp t;
        t.company().versions = Split(row.at(0), ' ');
        ASSERT_TRUE(QBOpen(t.app));
        const std::string header = "<?qbxml version=\"" + version + "\"?>";
        // The host query always goes as 1.0; everything after it at the chosen version.
        const auto& sent = t.transport().requests;
        ASSERT_GE(sent.size(), 2u);
        EXPECT_NE(sent[0].find("<?qbxml version=\"1.0\"?>"), std::string::npos);
        for (std::size_t i = 1; i < sent.size(); ++i)
            EXPECT_NE(sent[i].find(header), std::string::npos) << version << "\n" << sent[i];
        EXPECT_EQ(RequestSet(t.app, kRsDataExt)->Version(), version);
        EXPECT_EQ(t.Prompts().find(kNoInvoiceMods) != std::string::npos, message) << version;
        EXPECT_TRUE(t.Logged(std::string("QB Opening as ") + version + "OE="));
        EXPECT_EQ(t.app.qb.lineCustomFieldsSupported, from30) << version;
        // The line-field probe is built, never sent, and leaves the default request set empty.
        for (const std::string& rq : sent) EXPECT_EQ(rq.find("000ItemTest"), std::string::npos);
        EXPECT_EQ(RequestSet(t.app)->Count(), 0u);
        const std::size_t before = sent.size();
        EXPECT_TRUE(TemplateQuerySub(t.app)) << "before 3.0 there is nothing to ask";
        EXPECT_EQ(sent.size() > before, from30) << version;
    }
    EXPECT_EQ(ChooseRequestVersion("8"), (std::pair<std::string, std::string>{"8", "0"}));
}

TEST(QbSession, OpensOnceUnderTheCompanysNameAndClosesCleanly) {
    QbTestApp t;
    ASSERT_TRUE(QBOpen(t.app));
    auto& tr = t.transport();
    EXPECT_EQ(tr.appName + "|" + t.app.qb.companyFileName + "|" + t.app.qb.company.name,
              "Corvalt's Pelmark|" + tr.companyFile + "|Sample Co");
    EXPECT_EQ(tr.openMode, kOpenDoNotCare);
    EXPECT_TRUE(t.Logged("QB Open Host Product Name is QuickBooks Pro 2014 V24.0"));

    const std::size_t calls = tr.calls.size();
    EXPECT_TRUE(QBOpen(t.app));
    EXPECT_EQ(tr.calls.size(), calls) << "a second QBOpen reaches QuickBooks";

    ASSERT_EQ(t.app.closeSteps.size(), 1u);
    QBClose(t.app);
    EXPECT_FALSE(t.app.qb.sessionOpen);
    EXPECT_FALSE(tr.inSession);
    EXPECT_FALSE(tr.connected);
    EXPECT_EQ(RequestSet(t.app), nullptr);

    ASSERT_TRUE(QBOpen(t.app));  // opens again from the connection
    EXPECT_EQ(std::count(tr.calls.begin(), tr.calls.end(), "OpenConnection"), 2);
    EXPECT_EQ(t.app.closeSteps.size(), 1u) << "QBClose is registered once";
    CloseAll(t.app);
    EXPECT_FALSE(tr.connected);
}

// A failed call, or a host answer that cannot be read (0x80040202), is reported once and leaves
// the session closed; the next use tries again.
TEST(QbSession, AFailedOpenIsReportedAndLeavesTheSessionClosed) {
    struct Case {
        const char* method;
        uint32_t hresult;
        const char* answer;  // the host query's answer in place of a failed call
    } cases[] = {
        {"OpenConnection", 0x80040408, nullptr},
        {"BeginSession", 0x80040416, nullptr},
        {"ProcessRequest", 0x800706BA, nullptr},     // the host query
        {"DataExtDefQueryRq", 0x800706BE, nullptr},  // the third request
        {"ProcessRequest", 0x80040202, "this is not XML"},
        {"ProcessRequest", 0x80040202,
         "<?xml version=\"1.0\" ?><QBXML><QBXMLMsgsRs><HostQueryRs statusCode=\"0\""},
        {"ProcessRequest", 0x80040202, "<QBXML><QBXMLMsgsRs></QBXMLMsgsRs></QBXML>"},
        {"ProcessRequest", 0x80040202,
         "<QBXML><QBXMLMsgsRs><HostQueryRs statusCode=\"0\" statusSeverity=\"Info\">"
         "<HostRet><ProductName>QB</ProductName></HostRet></HostQueryRs></QBXMLMsgsRs></QBXML>"},
    };
    for (const Case& c : cases) {
        QbTestApp t;
        auto& tr = t.transport();
        const bool third = std::string(c.method) == "DataExtDefQueryRq";
        const std::string method = third ? "ProcessRequest" : c.method;
        if (c.answer) {
            tr.Queue(c.answer);
        } else {
            tr.FailNext(method, c.hresult, third ? 2 : 0);
        }
        // QBInit stops at the failed open: one prompt, not one per list.
        EXPECT_FALSE(std::string(c.method) == "OpenConnection" ? QBInit(t.app) : QBOpen(t.app));
        EXPECT_EQ(t.prompter.shown.size(), 1u) << c.method;
        EXPECT_FALSE(t.app.qb.sessionOpen || tr.connected || tr.inSession) << c.method;
        const std::string prompts = t.Prompts();
        EXPECT_NE(prompts.find("QB Open Err=" + ErrNumberText(c.hresult) +
                               (c.answer ? " " : " " + method + " failed: ")),
                  std::string::npos)
            << prompts;
        EXPECT_NE(prompts.find(kContinueOrTerminate), std::string::npos);
        EXPECT_TRUE(t.app.closeSteps.empty());
        EXPECT_TRUE(QBOpen(t.app)) << "the next use tries again";
    }
    // Answering No ends the program with the session closed.
    QbTestApp t;
    t.transport().FailNext("BeginSession", 0x80040418);
    t.prompter.Answer(kAnsNo);
    EXPECT_THROW(QBOpen(t.app), ProgramEnd);
    EXPECT_FALSE(t.transport().connected || t.app.qb.sessionOpen);
    // The words for each failure code (tests/data/hresult-words.txt: HRESULT|words).
    for (const auto& row : test::DataRows("hresult-words.txt")) {
        const std::string text =
            DescribeHresult("BeginSession", std::stoul(row[0], nullptr, 16), "from the SDK");
        EXPECT_EQ(text.rfind("BeginSession failed: ", 0), 0u) << text;
        EXPECT_NE(text.find(row[1]), std::string::npos) << text;
        EXPECT_NE(text.find("(HRESULT 0x" + row[0] + ") from the SDK"), std::string::npos) << text;
    }
}

TEST(QbSession, ReadsTheCustomFieldDefinitionsAndOpensWithoutThem) {
    QbTestApp t;
    t.company().dataExtDefs =
        "<DataExtDefRet><OwnerID>0</OwnerID><DataExtName>Colour</DataExtName>"
        "<DataExtType>STR255TYPE</DataExtType><AssignToObject>Invoice</AssignToObject>"
        "<AssignToObject>Item</AssignToObject></DataExtDefRet>"
        "<DataExtDefRet><OwnerID>0</OwnerID><DataExtName>Net Weight</DataExtName>"
        "<DataExtType>QUANTYPE</DataExtType><AssignToObject>Item</AssignToObject>"
        "</DataExtDefRet>";
    ASSERT_TRUE(QBOpen(t.app));
    const auto& defs = t.app.qb.dataExtDefs;
    ASSERT_EQ(defs.size(), 2u);
    EXPECT_EQ(defs[0].name + defs[1].type, "ColourQUANTYPE");
    EXPECT_EQ(defs[0].assignToObject, (std::vector<std::string>{"Invoice", "Item"}));

    // A failed definition query is traced, and the session opens all the same.
    QbTestApp failed;
    failed.company().Script("DataExtDefQueryRq",
                            test::Rs("DataExtDefQueryRs", 3250, "Error", "Feature not enabled"));
    ASSERT_TRUE(QBOpen(failed.app));
    EXPECT_TRUE(failed.app.qb.dataExtDefs.empty());
    EXPECT_TRUE(failed.Logged("FillDataExts unexpexcted Error - 3250 Feature not enabled"));
    EXPECT_TRUE(failed.prompter.shown.empty());
}

// For each check box (none, then each that bypasses a list): the progress shown, the requests
// answered and the items loaded (tests/data/qb/init.txt).
TEST(QbSession, InitLoadsCustomersTemplatesAndItemsWithProgress) {
    std::string transcript;
    for (const char* box :
         {"", "chkBypassCustomerQuery", "chkUseItemsIIF", "chkBypassItemsQuery"}) {
        QbTestApp t;
        if (*box) t.app.frmMain.Find(box)->value = 1;
        t.dir.Write("Items.iif",
                    "!INVITEM\tNAME\tINVITEMTYPE\tDESC\tPRICE\r\n"
                    "INVITEM\tFrom IIF\tSERV\tfrom the file\t1.00\r\n");
        t.company().Script("ItemQueryRq",
                           OkRs("ItemQueryRs",
                                "<ItemServiceRet><ListID>I-1</ListID><Name>Labor</Name>"
                                "<FullName>Labor</FullName></ItemServiceRet>"));
        transcript += std::string("=== ") + box + "\n";
        t.app.statusHook = [&](const std::string& s) { transcript += s + "\n"; };
        ASSERT_TRUE(QBInit(t.app)) << box;
        for (const std::string& rq : t.company().answered) transcript += rq + " ";
        for (const ItemRec& item : t.app.items.items) transcript += "\n" + test::ShowItem(item);
        transcript += "\n";
        EXPECT_TRUE(t.Logged(std::string(box) == "chkBypassCustomerQuery"
                                 ? "QB Init Bypassed Query Customers "
                                 : "QB Init Getting All Customers "))
            << box;
        EXPECT_TRUE(t.Logged("QB Init Complete "));
    }
    test::ExpectRecorded("init", transcript);
}

}  // namespace
}  // namespace pelmark::qb
