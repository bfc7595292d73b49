// Custom-field writes and their one-step fallbacks, and the conformance of every request the
// SDK layer sends.
#include <gtest/gtest.h>

#include "fakes/qbFakes.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {
namespace {

using test::OkRs;
using test::Rs;

std::string NoValue() {
    return Rs("DataExtModRs", 3120, "Error",
              "Object \"Colour\" specified in the request cannot be found.  "
              "Attribute with specified name cannot be found.");
}

std::string Refused(const std::string& rs) {
    return Rs(rs, 3100, "Error", "The name \"Colour\" of the list element is already in use.");
}

DataExtOptions Red(const std::string& kind = "Invoice") {
    DataExtOptions o;
    o.value = "Red";
    o.fieldName = "Colour";
    o.txnID = "1A2B-1234567890";
    o.kind = kind;
    return o;
}

struct QbDataExtTest : test::OpenQbTest {
    // The custom-field requests sent since SetUp, in order: "Mod Add".
    std::string SentOps() const {
        std::string names;
        for (const std::string& rq : t.RequestsFrom(sentBefore)) {
            for (const char* op : {"Add", "Mod", "Del"})
                if (rq.find(std::string("<DataExt") + op + "Rq") != std::string::npos)
                    names += (names.empty() ? "" : " ") + std::string(op);
        }
        return names;
    }
};

// Each case: whether the add may fall back to a modify; QuickBooks' answers in the order the
// requests go (N: no value yet, 3120; R: refused, 3100; O: OK; X: no answer); the requests
// sent; the result. The modify the add falls back on carries the value, and is tried once.
TEST_F(QbDataExtTest, TheFallbackTakesOneStepAtMost) {
    const struct {
        bool fallBack;
        const char *answers, *sent;
        bool ok;
    } cases[] = {
        {false, "R", "Add", false},     {true, "RO", "Add Mod", true},
        {true, "RN", "Add Mod", false}, {true, "RR", "Add Mod", false},
        {true, "X", "Add", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answers);
        t.prompter.shown.clear();
        sentBefore = t.transport().requests.size();
        for (const char* a = c.answers; *a; ++a) {  // each answer names its request
            if (*a == 'X') t.transport().FailNext("ProcessRequest", 0x80040408);
            const std::string rs = a == c.answers ? "DataExtAddRs" : "DataExtModRs";
            t.transport().Queue(test::QbxmlAnswer({*a == 'N'   ? NoValue()
                                                   : *a == 'R' ? Refused(rs)
                                                               : OkRs(rs)}));
        }
        DataExtOptions o = Red();
        o.fallBackToMod = c.fallBack;
        EXPECT_EQ(DataExtAddTxn(t.app, o), c.ok);
        EXPECT_EQ(SentOps(), c.sent);
        EXPECT_EQ(t.prompter.shown.empty(), c.ok) << t.Prompts();
        EXPECT_NE(t.transport().requests.back().find("<DataExtValue>Red</DataExtValue>"),
                  std::string::npos);
    }
    // Both steps of the fallback are traced.
    EXPECT_TRUE(t.Logged("Data Ext Mod Txn Sub 0,Red,Colour,1A2B-1234567890,Invoice,,"));
    EXPECT_TRUE(t.Logged("Data Ext Add Txn Sub 0,Red,Colour,1A2B-1234567890,Invoice,,False"));
}

TEST_F(QbDataExtTest, AnEmptyValueWithDeleteWhenEmptySendsOneDelete) {
    DataExtOptions o = Red();
    o.value.clear();
    o.deleteWhenEmpty = true;
    o.lineID = "1A2D-1234567890";
    EXPECT_TRUE(DataExtAddTxn(t.app, o));
    EXPECT_EQ(SentOps(), "Del");
    const std::string del = t.transport().requests.back();
    EXPECT_EQ(del.find("DataExtValue"), std::string::npos);
    EXPECT_NE(del.find("<TxnLineID>1A2D-1234567890</TxnLineID>"), std::string::npos);
    EXPECT_TRUE(t.Logged("Data Ext Del Txn Sub 0,Colour,1A2B-1234567890,Invoice,1A2D-1234567890"));
}

TEST_F(QbDataExtTest, LineFieldsNameTheLineOnlyWhereTheVersionAllows) {
    DataExtOptions o = Red();
    o.lineID = "1A2D-1234567890";
    EXPECT_TRUE(DataExtAddTxn(t.app, o));
    EXPECT_NE(t.transport().requests.back().find("<TxnLineID>1A2D-1234567890</TxnLineID>"),
              std::string::npos);

    test::QbTestApp old;
    old.company().versions = {"1.0", "2.0", "2.1"};
    ASSERT_TRUE(QBOpen(old.app));
    const std::size_t sent = old.transport().requests.size();
    EXPECT_FALSE(DataExtAddTxn(old.app, o));
    EXPECT_FALSE(DataExtDelTxn(old.app, o));
    EXPECT_EQ(old.transport().requests.size(), sent);
    o.lineID.clear();
    EXPECT_TRUE(DataExtAddTxn(old.app, o)) << "a field of the transaction works in 2.0";
}

TEST_F(QbDataExtTest, ARequestThatCannotBeWrittenIsReportedNotSent) {
    DataExtOptions o = Red();
    o.kind = "Timesheet";  // no such TxnDataExtType: the request lacks a required element
    EXPECT_FALSE(DataExtAddTxn(t.app, o));
    EXPECT_TRUE(SentOps().empty());
    EXPECT_NE(t.Prompts().find("qb Do Request Err=0x80040203 "), std::string::npos);
    EXPECT_FALSE(DataExtAddTxns(t.app, {Red(), o}));
    EXPECT_TRUE(SentOps().empty());
}

// Combined writes: every value goes in one request set; the call is true only when QuickBooks
// took every one, and an answer that never came is a failure too.
TEST_F(QbDataExtTest, CombinedWritesAreTrueOnlyWhenEveryValueWasTaken) {
    EXPECT_TRUE(DataExtAddTxns(t.app, {}) && SentOps().empty());  // nothing to write
    DataExtOptions line = Red();
    line.lineID = "1A2D-1234567890";
    const std::vector<std::string> taken = {OkRs("DataExtAddRs"), OkRs("DataExtAddRs", "", "1")};
    t.transport().Queue(test::QbxmlAnswer(taken));
    EXPECT_TRUE(DataExtAddTxns(t.app, {Red(), line}));
    t.transport().Queue(test::QbxmlAnswer({taken[0], Refused("DataExtAddRs")}));
    EXPECT_FALSE(DataExtAddTxns(t.app, {Red(), line}));
    EXPECT_NE(t.Prompts().find("Status: Code = 3100"), std::string::npos);
    t.transport().FailNext("ProcessRequest", 0x80040408);
    EXPECT_FALSE(DataExtAddTxns(t.app, {Red(), line}));
    EXPECT_EQ(SentOps(), "Add Add Add");
}

// Every request the SDK layer sends in the scenarios above passes Intuit's reference.
TEST(QbConformance, EveryRequestSentPassesTheValidator) {
    for (const char* top : {"2.0", "6.0", "13.0"}) {
        test::QbTestApp t;
        t.company().versions = {"1.0", top};
        t.company().Script("ItemQueryRq", Rs("ItemQueryRs", 3260, "Error", "no"));
        ASSERT_TRUE(QBInit(t.app));
        CustomerQuerySub(t.app, "Acme:Job 1");
        ItemQuerySub(t.app, false, "Parts:Widget");
        for (const char* kind : {"Invoice", "Estimate", "SalesOrder", "SalesReceipt"}) {
            DataExtOptions o = Red(kind);
            o.fallBackToMod = true;  // refused, then sent as a modify
            t.company().Script("DataExtAddRq", Refused("DataExtAddRs"));
            DataExtAddTxn(t.app, o);
            o.lineID = "1A2D-1234567890";
            DataExtAddTxn(t.app, o);
            DataExtDelTxn(t.app, o);
        }
        MsgSetRequest& set = *RequestSet(t.app);
        if (set.Supports("InvoiceModRq")) {
            set.ClearRequests();
            Node& mod = set.Append("InvoiceModRq").Child("InvoiceMod");
            SalesCommonModSub(t.app, mod, {"1A2B-1234567890", "1234567890", "UPS"});
            DoRequestOptions send;
            send.request = &set;
            DoRequest(t.app, send);
        }
        EXPECT_GT(t.transport().requests.size(), 10u);
        test::ExpectValidRequests(std::string("v") + top, t.transport().requests);
    }
}

}  // namespace
}  // namespace pelmark::qb
