// DoRequest's status rules, traces and reports, answers it cannot use, and the field helpers.
#include <gtest/gtest.h>

#include "app/logs.h"
#include "fakes/qbFakes.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {
namespace {

using test::OkRs;
using test::QbxmlAnswer;
using test::Rs;

// An open session whose default request set holds `n` display requests; the answers are
// queued by each test.
struct QbRequestTest : test::OpenQbTest {
    MsgSetRequest& Requests(int n) {
        MsgSetRequest& set = *RequestSet(t.app);
        set.ClearRequests();
        for (int i = 0; i < n; ++i) {
            Node& rq = set.Append("TxnDisplayModRq");
            rq.Field("TxnDisplayModType").SetValue("Invoice");
            rq.Field("TxnID").SetValue("T" + std::to_string(i + 1));
        }
        return set;
    }
    DoRequestResult Send(const std::string& label = "Invoice Mod") {
        DoRequestOptions o;
        o.callerLabel = label;
        return DoRequest(t.app, o);
    }
};

std::string InvoiceRet(const std::string& txnID, const std::string& lines = {}) {
    return "<InvoiceRet><TxnID>" + txnID + "</TxnID><EditSequence>E" + txnID +
           "</EditSequence><CustomerRef><ListID>C-1</ListID><FullName>Acme</FullName>"
           "</CustomerRef>" +
           lines + "</InvoiceRet>";
}

TEST_F(QbRequestTest, OnlyANonZeroCodeWithASeverityOtherThanInfoFails) {
    const struct {
        int code;
        const char* severity;
        bool ok;
    } cases[] = {
        {0, "Info", true},      {0, "Warn", true},    {0, "Error", true},
        {1, "Info", true},      {530, "Warn", false}, {500, "Warn", false},
        {3200, "Error", false}, {1, "INFO", false},  // compared exactly
    };
    for (const auto& c : cases) {
        Requests(1);
        t.transport().Queue(QbxmlAnswer({Rs("TxnDisplayModRs", c.code, c.severity, "msg")}));
        DoRequestResult r = Send();
        EXPECT_EQ(r.ok, c.ok) << c.code << " " << c.severity;
        EXPECT_EQ(r.statusText, " Status: Code = " + std::to_string(c.code) +
                                    ", Message = msg, Severity = " + c.severity + "\r\n");
        EXPECT_EQ(t.app.qb.lastStatusCode, c.code);
    }
}

TEST_F(QbRequestTest, TheFirstFailureStopsTheWalkAndIsTracedAndReported) {
    Requests(3);
    t.transport().Queue(QbxmlAnswer({
        OkRs("InvoiceModRs", InvoiceRet("T1")),
        Rs("InvoiceModRs", 3200, "Error", "The provided edit sequence \"5\" is out-of-date. "),
        OkRs("InvoiceModRs", InvoiceRet("T3")),
    }));
    DoRequestResult r = Send();
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(t.app.qb.lastTxnID, "T1");
    EXPECT_EQ(t.app.qb.lastEditSequence, "ET1");
    EXPECT_EQ(t.app.qb.lastStatusCode, 3200);
    const std::string status =
        " Status: Code = 0, Message = Status OK, Severity = Info\r\n"
        " Status: Code = 3200, Message = The provided edit sequence \"5\" is out-of-date. , "
        "Severity = Error\r\n";
    EXPECT_EQ(r.statusText, status);

    // Three traces: the status text (as one line), the response, the request.
    EXPECT_TRUE(t.Logged(OneLine(status)));
    EXPECT_TRUE(t.Logged("ResponseXML <?xml"));
    EXPECT_TRUE(t.Logged("RequestXML <?xml"));
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    const auto& prompt = t.prompter.shown[0];
    EXPECT_EQ(prompt.text, "Invoice Mod\r\n" + status + "\r\n" + kContinueOrTerminate);
    EXPECT_EQ(prompt.title, "Pelmark INFO");
    EXPECT_EQ(prompt.style, kMbYesNo);
}

TEST_F(QbRequestTest, SuccessKeepsTheTransactionWithoutTraces) {
    for (TxnKind kind :
         {TxnKind::Invoice, TxnKind::Estimate, TxnKind::SalesOrder, TxnKind::SalesReceipt}) {
        const TxnKindInfo& k = KindInfo(kind);
        const std::string line =
            std::string("<") + k.lineRet + "><TxnLineID>L</TxnLineID></" + k.lineRet + ">";
        Requests(1);
        t.transport().Queue(QbxmlAnswer(
            {OkRs(std::string(k.name) + "ModRs",
                  std::string("<") + k.retName +
                      "><TxnID>X-1</TxnID><EditSequence>99</EditSequence><CustomerRef><ListID>C-7"
                      "</ListID></CustomerRef>" +
                      line + "<" + k.groupRet + "/>" + line + "</" + k.retName + ">")}));
        DoRequestResult r = Send("Mod");
        ASSERT_TRUE(r.ok) << k.name;
        EXPECT_EQ(r.editSequence + r.customerListID + t.app.qb.lastTxnID, "99C-7X-1");
        EXPECT_EQ((t.app.qb.*k.ret).Name(), k.retName);
    }
    Requests(1);  // a response of a type the program does not know is only traced
    t.transport().Queue(QbxmlAnswer({OkRs("SomethingNewRs", "<Thing/>")}));
    EXPECT_TRUE(Send().ok);
    EXPECT_TRUE(t.Logged("qb Do Request unknown response type SomethingNewRs"));
    EXPECT_FALSE(t.Logged("ResponseXML"));
    EXPECT_TRUE(t.prompter.shown.empty());
}

TEST_F(QbRequestTest, AnswersThatCannotBeUsedAreReportedWithoutACrash) {
    const std::string good = QbxmlAnswer({OkRs("TxnDisplayModRs"), OkRs("TxnDisplayModRs")});
    const struct {
        const char* name;
        std::string answer;
        const char* reported;  // in the prompt
    } cases[] = {
        {"not XML", "QuickBooks is busy", "qb Do Request Err=0x80040202 "},
        {"empty", "", "qb Do Request Err=0x80040202 "},
        {"cut off", good.substr(0, good.size() / 2), "is cut off"},
        {"not qbXML", "<html><body>500</body></html>", "not <QBXML>"},
        {"no status", QbxmlAnswer({OkRs("TxnDisplayModRs"), "<TxnDisplayModRs requestID=\"1\"/>"}),
         "<TxnDisplayModRs> came back without a status"},
        {"a code not a number",
         QbxmlAnswer({OkRs("TxnDisplayModRs"),
                      "<TxnDisplayModRs statusCode=\"x\" statusSeverity=\"Error\"/>"}),
         "<TxnDisplayModRs> came back without a status"},
        {"fewer answers", QbxmlAnswer({OkRs("TxnDisplayModRs")}),
         "QuickBooks answered 1 of the 2 requests sent"},
    };
    for (const auto& c : cases) {
        t.prompter.shown.clear();
        t.app.qb.lastStatusCode = kStatusNotFound;  // an earlier answer's code must not stay
        Requests(2);
        t.transport().Queue(c.answer);
        DoRequestResult r = Send();
        EXPECT_FALSE(r.ok) << c.name;
        EXPECT_NE(t.app.qb.lastStatusCode, kStatusNotFound) << c.name;
        EXPECT_NE(t.Prompts().find(c.reported), std::string::npos) << c.name << "\n" << t.Prompts();
        EXPECT_TRUE(t.app.qb.sessionOpen);
    }
    // The session still works.
    Requests(2);
    t.transport().Queue(good);
    EXPECT_TRUE(Send().ok);
}

TEST_F(QbRequestTest, ATransportFailureGoesToTheErrorHandler) {
    Requests(1);
    t.transport().FailNext("ProcessRequest", 0x800706BA);
    EXPECT_FALSE(Send().ok);
    EXPECT_NE(t.Prompts().find("qb Do Request Err=0x800706BA ProcessRequest failed: QuickBooks "
                               "is not running, or it closed"),
              std::string::npos)
        << t.Prompts();
    EXPECT_EQ(t.app.qb.lastStatusCode, kNoStatus);
    // The session is given up, so the next use connects again.
    EXPECT_FALSE(t.app.qb.sessionOpen);
    EXPECT_FALSE(t.transport().connected);
    const std::size_t calls = t.transport().calls.size();
    EXPECT_FALSE(Send().ok) << "without a session nothing is sent";
    EXPECT_EQ(t.transport().calls.size(), calls);
    EXPECT_NE(t.Prompts().find("Err=0x80040201 there is no open session with QuickBooks"),
              std::string::npos);
    ASSERT_TRUE(QBOpen(t.app));
    EXPECT_TRUE(t.transport().connected);
}

TEST(QbRequest, SetFieldValueCutsConvertsAndClears) {
    const std::string x40(40, 'x');
    std::string e45;
    for (int i = 0; i < 45; ++i) e45 += "\xC3\xA9";  // é, two bytes each
    const struct {
        const char* name;
        std::string value;
        SetFieldOptions options;
        bool set;
        std::string sent;     // the field's value
        std::string callers;  // the caller's variable afterwards
    } cases[] = {
        {"250 to 41", std::string(250, 'a'), {}, true, std::string(41, 'a'), std::string(41, 'a')},
        {"characters, not bytes", e45, {}, true, e45.substr(0, 82), e45.substr(0, 82)},
        {"line feed converted", "A\nB", {.convertLineFeeds = true}, true, "A\\lB", "A\nB"},
        {"line feed kept", "A\nB", {}, true, "A\nB", "A\nB"},
        {"past the maximum", x40 + "\nB", {.convertLineFeeds = true}, true, x40, x40 + "\n"},
        {"empty clears", "", {.allowEmpty = true}, true, "", ""},
        {"empty left unset", "", {}, false, "", ""},
    };
    for (const auto& c : cases) {
        MsgSetRequest set("US", 7, 0);
        Node& mod = set.Append("InvoiceModRq").Child("InvoiceMod");
        Field& addr1 = mod.Field("BillAddress/Addr1");
        ASSERT_EQ(addr1.GetMaxLength(), 41);
        std::string value = c.value;
        SetFieldValue(addr1, value, c.options);
        EXPECT_EQ(addr1.IsSet(), c.set) << c.name;
        EXPECT_EQ(addr1.GetValue(), c.sent) << c.name;
        EXPECT_EQ(value, c.callers) << c.name;
    }
    // Fields the request cannot take are left out.
    MsgSetRequest set("US", 7, 0);
    Node& mod = set.Append("EstimateModRq").Child("EstimateMod");
    std::string ship = "UPS", rate = "not a number";
    SetFieldValue(mod, "ShipMethodRef/FullName", ship);  // not in EstimateMod 7.0
    SetFieldValue(mod.Append("EstimateLineMod"), "Rate", rate);
    EXPECT_FALSE(mod.IsSet());
}

TEST_F(QbRequestTest, SalesCommonModSubFillsTheHead) {
    MsgSetRequest& set = *RequestSet(t.app);
    set.ClearRequests();
    Node& estimate = set.Append("EstimateModRq").Child("EstimateMod");
    EXPECT_TRUE(SalesCommonModSub(t.app, estimate, {"E-1", "17", "UPS"}));
    EXPECT_EQ(estimate.Field("TxnID").GetValue(), "E-1");
    EXPECT_EQ(estimate.Field("EditSequence").GetValue(), "17");
    Node& invoice = set.Append("InvoiceModRq").Child("InvoiceMod");
    EXPECT_TRUE(SalesCommonModSub(t.app, invoice, {"I-1", "18", "Federal Express Overnight"}));
    // ShipMethodRef/FullName holds at most 15 characters.
    EXPECT_NE(set.ToXMLString().find("<FullName>Federal Express</FullName>"), std::string::npos);
    Node& again = set.Append("InvoiceModRq").Child("InvoiceMod");
    EXPECT_FALSE(SalesCommonModSub(t.app, again, {"", "18", ""}));  // no ID: reported
    EXPECT_NE(t.Prompts().find("Sales Common Mod Sub Err="), std::string::npos);
    EXPECT_EQ(t.transport().requests.size(), sentBefore) << "the modify goes with its lines";
}

}  // namespace
}  // namespace pelmark::qb
