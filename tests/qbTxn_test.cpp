// The transaction queries, the modify with its re-listed lines and the display request, against
// a scripted QuickBooks, and their conformance to Intuit's qbXML reference.
#include <gtest/gtest.h>

#include <tuple>

#include "app/logs.h"
#include "app/text.h"
#include "fakes/qbFakes.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {
namespace {

// A returned transaction of the kind holding `lines` (LINE and GROUP replaced).
std::string Ret(TxnKind kind, const std::string& lines, const std::string& id = "T1") {
    const TxnKindInfo& k = KindInfo(kind);
    const std::string body = ReplaceAll(ReplaceAll(lines, "GROUP", k.groupRet), "LINE", k.lineRet);
    return std::string("<") + k.retName + "><TxnID>" + id + "</TxnID><EditSequence>E" + id +
           "</EditSequence><RefNumber>1001</RefNumber>" + body + "</" + k.retName + ">";
}

std::string QueryRs(TxnKind kind) {
    std::string name = KindInfo(kind).queryRq;
    return name.replace(name.size() - 2, 2, "Rs");
}

struct QbTxnTest : test::OpenQbTest {
    void SetUp() override {
        OpenQbTest::SetUp();
        t.TakeTranscript();
    }
    void Answer(TxnKind kind, const std::string& rets) {
        t.company().Script(KindInfo(kind).queryRq, test::OkRs(QueryRs(kind), rets));
    }
    const TxnState& Txn() const { return t.app.qb.txn; }
    // Sends the modify being built, as the write-back does.
    bool SendMod() {
        DoRequestOptions send;
        send.callerLabel = "MOD";
        return DoRequest(t.app, send).ok;
    }
    void ExpectValid(const std::string& scenario) {
        test::ExpectValidRequests(scenario, t.transport().requests);
    }
};

// Each filter as sent: tests/data/qb/txn-filters.txt.
TEST_F(QbTxnTest, TheFilterFollowsWhatTheCallerKnows) {
    const TxnQueryOptions cases[] = {
        // A TxnID is the only filter.
        {.refNumber = "1001", .customer = "Acme", .txnID = "T9", .modifiedFrom = "2024-01-01"},
        // The number alone, without MaxReturned; then a TxnID found for the number.
        {.refNumber = "1001", .maxReturned = 3},
        {.refNumber = "1001", .numberTxnID = "T8"},
        // The number of one customer: a number range of one.
        {.refNumber = "1001", .customer = "Acme:Job 1", .maxReturned = 2},
        // Modified dates in the US form; transaction dates of a customer.
        {.modifiedFrom = "5/1/2024", .modifiedTo = "05/31/24"},
        {.customer = "Acme", .txnDateFrom = "2024-01-01", .maxReturned = 5},
        // Both ranges: the transaction dates are sent. Then no lines asked for.
        {.modifiedFrom = "2024-01-01", .txnDateTo = "2024-02-01"},
        {.refNumber = "7", .includeLineItems = false},
    };
    t.TakeTranscript();
    for (const TxnQueryOptions& o : cases) {
        EXPECT_FALSE(TxnQuerySub(t.app, TxnKind::Invoice, o)) << "nothing is found";
        EXPECT_EQ(RequestSet(t.app)->attributes.onError, OnError::stopOnError) << "restored";
    }
    test::ExpectRecorded("txn-filters", t.TakeTranscript());
    ExpectValid("filters");
}

// The question, with Yes and No: No ends the program before the query is sent, Yes sends the
// from-date alone (tests/data/qb/txn-reversed-range.txt).
TEST_F(QbTxnTest, AReversedRangeIsAskedAboutBeforeAnythingIsSent) {
    const TxnQueryOptions cases[] = {
        {.modifiedFrom = "2024-05-01", .modifiedTo = "2024-04-01"},
        {.txnDateFrom = "5/1/2024", .txnDateTo = "4/1/2024"},
    };
    std::string transcript;
    for (const TxnQueryOptions& o : cases) {
        t.prompter.Answer(kAnsNo);
        EXPECT_THROW(TxnQuerySub(t.app, TxnKind::Estimate, o), ProgramEnd);
        transcript += "=== No\n" + t.TakeTranscript();
        ASSERT_TRUE(QBOpen(t.app));
        t.TakeTranscript();
        t.prompter.Answer(kAnsYes);
        TxnQuerySub(t.app, TxnKind::Estimate, o);
        transcript += "=== Yes\n" + t.TakeTranscript();
    }
    test::ExpectRecorded("txn-reversed-range", transcript);
    // The dates as typed and as sent (tests/data/qb-dates.txt: typed|sent).
    for (const auto& row : test::DataRows("qb-dates.txt"))
        EXPECT_EQ(QbxmlDate(row.at(0)), row.at(1)) << row[0];
}

TEST_F(QbTxnTest, TwoMatchesAreBothKeptWithTheirOwnLines) {
    Answer(TxnKind::Invoice, Ret(TxnKind::Invoice, "<LINE><TxnLineID>A</TxnLineID></LINE>", "T1") +
                                 Ret(TxnKind::Invoice, "<LINE><Desc>B</Desc></LINE>", "T2"));
    ASSERT_TRUE(TxnQuerySub(t.app, TxnKind::Invoice, {.refNumber = "1001"}));
    ASSERT_EQ(Txn().txns.size(), 2u);
    EXPECT_EQ(Txn().txns[1].firstLine, 1u);
    EXPECT_EQ(Txn().lines.at(1).txnIndex, 1u);
    EXPECT_EQ(t.app.qb.invoiceRet.GetValue("TxnID"), "T2");
}

// The line table as text: each row's type, group and every field of the table that holds a value.
std::string LineTable(const TxnState& txn) {
    std::string out;
    for (const TxnLine& row : txn.lines) {
        out += row.lineType + (row.group == kNoGroup ? "" : " in " + std::to_string(row.group));
        for (const TxnLineField& f : TxnLineFields()) {
            const char* path = f.linePath ? f.linePath : f.groupPath;
            if (!(row.*f.member).empty()) out += std::string(" ") + path + "=" + row.*f.member;
        }
        for (const TxnCustomField& f : row.customFields) out += " [" + f.name + "=" + f.value + "]";
        out += "\n";
    }
    return out;
}

// Status 1 is "not found", stored and not shown; other codes are shown with their words
// (tests/data/qb/txn-statuses.txt).
TEST_F(QbTxnTest, StatusOneIsNotFoundAndOtherStatusesAreShown) {
    const std::tuple<TxnKind, int, const char*> cases[] = {
        {TxnKind::Invoice, 1, "Info"},    {TxnKind::Estimate, 1, "Info"},
        {TxnKind::SalesOrder, 1, "Info"}, {TxnKind::SalesReceipt, 1, "Info"},
        {TxnKind::Invoice, 500, "Warn"},  {TxnKind::SalesOrder, 3000, "Error"},
        {TxnKind::Estimate, 510, "warn"},  // an unknown severity: nothing shown
        {TxnKind::SalesOrder, 0, "Info"},  // found, but without lines
    };
    std::string transcript;
    for (const auto& [kind, code, severity] : cases) {
        t.company().Script(KindInfo(kind).queryRq,
                           test::Rs(QueryRs(kind), code, severity, "m", Ret(kind, "")));
        EXPECT_EQ(TxnQuerySub(t.app, kind, {.refNumber = "1001"}), code == 0) << code;
        EXPECT_EQ(Txn().txns.size(), code == 0 ? 1u : 0u) << code;
        EXPECT_EQ(Txn().statusCode, code);
        if (code == 1) {
            EXPECT_TRUE(t.Logged(std::string(KindInfo(kind).queryLabel) + "No "));
        }
        transcript += t.TakeTranscript();
    }
    test::ExpectRecorded("txn-statuses", transcript);
}

TEST_F(QbTxnTest, TheLineWalkStopsAfterItsRoundLimit) {
    std::string lines;
    for (int i = 0; i <= kLineWalkLimit; ++i)
        lines += "<SalesReceiptLineRet><TxnLineID>" + std::to_string(i) + "</TxnLineID>" +
                 "</SalesReceiptLineRet>";
    Answer(TxnKind::SalesReceipt,
           "<SalesReceiptRet><TxnID>T1</TxnID>" + lines + "</SalesReceiptRet>");
    EXPECT_FALSE(TxnQuerySub(t.app, TxnKind::SalesReceipt, {.refNumber = "1001"}));
    EXPECT_EQ(Txn().lines.size(), static_cast<std::size_t>(kLineWalkLimit));
    const std::string loop = "SalesReceipt Query Sub Next Line Loop encountered";
    EXPECT_EQ(t.app.qb.storedErrorText, loop);
    EXPECT_TRUE(t.Prompts().starts_with(loop) &&
                t.Prompts().ends_with(kContinueOrTerminate + std::string("\n----\n")))
        << t.Prompts();
}

// Each kind's lines are read into the line table, then written back in another order: the group
// first, the item line last, then a blank line. Each re-listed line holds TxnLineID -1 and every
// field of its row that the kind's line modify accepts, cut to its length (Other1: 29). Last, a
// real estimate, read with every field and custom field, and written back reversed with its line
// feeds sent as "\l" (the others keep theirs): the blank lines blank (tests/data/qb/txn-relist.txt,
// checked against Intuit's reference by ExpectValid).
TEST_F(QbTxnTest, LinesAreTypedAndReListedAsNewLinesWithTheirFields) {
    const std::string mixed = test::SourceFile("tests/data/qb/mixed-lines.xml");
    const std::tuple<TxnKind, std::string, const char*, bool> cases[] = {
        {TxnKind::Invoice, Ret(TxnKind::Invoice, mixed), "36210", false},
        {TxnKind::Estimate, Ret(TxnKind::Estimate, mixed), "36210", false},
        {TxnKind::SalesOrder, Ret(TxnKind::SalesOrder, mixed), "36210", false},
        {TxnKind::SalesReceipt, Ret(TxnKind::SalesReceipt, mixed), "36210", false},
        {TxnKind::Estimate,
         test::SourceFile(
             "../shared/qbxml/real/"
             "EstimateRet_subtotal_pctdiscount_blank_lines_line_and_header_dataext.xml"),
         "9876543210", true}};
    std::string transcript;
    for (const auto& [kind, answer, rows, convert] : cases) {
        const TxnKindInfo& k = KindInfo(kind);
        Answer(kind, answer);
        ASSERT_TRUE(TxnQuerySub(t.app, kind, {.refNumber = "1001"})) << k.name;
        const TxnHeader& h = Txn().txns.at(0);
        transcript += std::string("=== ") + k.name + "\n" + h.txnID + "|" + h.editSequence + "|" +
                      h.customerFullName + "|" + h.templateFullName + "|" + h.txnDate + "|" +
                      h.subtotal + "|" + h.salesTaxTotal + "|" + h.totalAmount + "|" +
                      Txn().currentLineID + "|" + std::to_string(h.lineCount);
        for (const TxnCustomField& f : h.customFields)
            transcript += " [" + f.name + "=" + f.value + "]";
        EXPECT_EQ((t.app.qb.*k.ret).GetValue("TxnID"), h.txnID);
        ASSERT_TRUE(TxnModSub(t.app, kind, {h.txnID, h.editSequence, "UPS", h.templateFullName}));
        for (const char* row = rows; *row; ++row)
            ASSERT_TRUE(AppendQueriedLine(t.app, kind, Txn().lines, *row - '0',
                                          {.convertLineFeeds = convert}))
                << k.name << *row;
        ASSERT_TRUE(AppendBlankLine(t.app, kind));
        ASSERT_TRUE(SendMod()) << t.Prompts();
        transcript += "\n" + LineTable(Txn()) + t.TakeTranscript();
    }
    test::ExpectRecorded("txn-relist", transcript);
    ExpectValid("mod");
}

TEST_F(QbTxnTest, LinesGoOnlyToAModifyThatIsBeingBuilt) {
    EXPECT_FALSE(TxnModSub(t.app, TxnKind::PurchaseOrder, {"P1", "E1"}));
    EXPECT_EQ(AppendLineObjects(t.app, TxnKind::PurchaseOrder), nullptr);
    EXPECT_FALSE(AppendQueriedLine(t.app, TxnKind::Invoice, {TxnLine{}}, 0)) << "none started";
    ASSERT_TRUE(TxnModSub(t.app, TxnKind::Estimate, {"T1", "E1"}));
    EXPECT_EQ(AppendLineObjects(t.app, TxnKind::Invoice), nullptr) << "another kind's";
    EXPECT_NE(AppendLineObjects(t.app, TxnKind::Estimate), nullptr);
    EXPECT_FALSE(
        TxnQuerySub(t.app, TxnKind::Invoice, {.refNumber = "1"}));  // clears the request set
    EXPECT_EQ(AppendLineObjects(t.app, TxnKind::Estimate), nullptr) << "its set was cleared";
    const std::string refused = "Order Mod not supported  Purchase Orders\n----\n";
    EXPECT_EQ(t.Prompts(),
              refused + refused + "Mod failed\n----\nMod failed\n----\nMod failed\n----\n");
    for (const std::string& rq : Sent()) EXPECT_EQ(rq.find("ModRq"), std::string::npos);
}

// Nothing is sent without a sales or purchase kind and a TxnID; a refusal is shown
// (tests/data/qb/txn-display.txt).
TEST_F(QbTxnTest, TheDisplayRequestNamesTheKindAndTransaction) {
    const std::tuple<TxnKind, const char*, bool> cases[] = {
        {TxnKind::Invoice, "T1", true},       {TxnKind::SalesReceipt, "T2", true},
        {TxnKind::PurchaseOrder, "P1", true}, {TxnKind::None, "T1", false},
        {TxnKind::Estimate, "", false},
    };
    for (const auto& [kind, txnID, sent] : cases) {
        const std::size_t before = t.transport().requests.size();
        TxnDisplayModSub(t.app, kind, txnID);
        EXPECT_EQ(t.transport().requests.size() > before, sent) << txnID;
    }
    EXPECT_TRUE(t.prompter.shown.empty());
    ExpectValid("display");
    t.company().Script("TxnDisplayModRq", test::Rs("TxnDisplayModRs", 3000, "Error",
                                                   "The given object ID is invalid"));
    TxnDisplayModSub(t.app, TxnKind::Invoice, "T9");
    test::ExpectRecorded("txn-display", t.TakeTranscript());
}

}  // namespace
}  // namespace pelmark::qb
