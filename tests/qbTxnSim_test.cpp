// The transaction query, the modify that re-lists every line and the display request against
// qbsim: the sample company's transactions of each kind written back in reversed order.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <numeric>

#include "app/context.h"
#include "fakes/fakes.h"
#include "qb/qbCommon.h"
#include "sim/simTransport.h"

namespace pelmark::qb {
namespace {

// A copy of the sample company behind a qbsim transport.
struct TxnSimApp : test::TestApp {
    std::string companyPath = dir.File("company.xml");
    std::unique_ptr<sim::SimTransport> transport;

    TxnSimApp() {
        std::filesystem::copy_file(PELMARK_SOURCE_DIR "/samples/company.xml", companyPath);
        transport = std::make_unique<sim::SimTransport>(companyPath);
        app.sys.qbTransport = transport.get();
        app.frmMain.SetOption(*app.frmMain.Find("optStopOnAll"), true);
    }
};

// A line's fields by path, its TxnLineID and custom fields left out: a line Mod carries neither,
// so every re-listed line has a new TxnLineID and its custom fields are written separately.
// Where a line's amount depends on the lines above it (a subtotal, a percentage), `positional`
// leaves the amount out too.
std::map<std::string, std::string> Fields(const TxnLine& row, bool positional) {
    std::map<std::string, std::string> out{{"type", row.lineType}};
    for (const TxnLineField& f : TxnLineFields()) {
        const char* path = row.IsGroup() ? f.groupPath : f.linePath;
        const std::string name = path ? path : "TxnLineID";
        if (name == "TxnLineID") continue;
        if (positional && (name == "Amount" || name == "TotalAmount")) continue;
        out[name] = row.*f.member;
    }
    return out;
}

bool DependsOnPosition(const TxnLine& row) {
    return !row.ratePercent.empty() || row.itemFullName.find("Subtotal") != std::string::npos;
}

// The rows of a line table in the order they take when its top-level entries (a line, or a
// group with its lines and closing row) are reversed.
std::vector<std::size_t> ReversedRows(const std::vector<TxnLine>& lines) {
    std::vector<std::vector<std::size_t>> units;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].group == kNoGroup) units.emplace_back();
        units.back().push_back(i);
    }
    std::vector<std::size_t> rows;
    for (auto unit = units.rbegin(); unit != units.rend(); ++unit)
        rows.insert(rows.end(), unit->begin(), unit->end());
    return rows;
}

struct Snapshot {
    TxnHeader header;
    std::vector<TxnLine> lines;
    std::string Totals() const {
        return header.subtotal + "|" + header.salesTaxTotal + "|" + header.totalAmount + "|" +
               header.balanceRemaining;
    }
};

Snapshot Query(TxnSimApp& s, TxnKind kind, const std::string& refNumber) {
    EXPECT_TRUE(TxnQuerySub(s.app, kind, {.refNumber = refNumber})) << refNumber;
    const TxnState& txn = s.app.qb.txn;
    EXPECT_EQ(txn.txns.size(), 1u) << refNumber;
    if (txn.txns.empty()) return {};
    return {txn.txns[0], txn.lines};
}

// Re-lists the lines of the queried transaction in reversed order, as new lines.
bool WriteReversed(TxnSimApp& s, TxnKind kind, const Snapshot& from,
                   const std::string& editSequence) {
    if (!TxnModSub(s.app, kind, {from.header.txnID, editSequence})) return false;
    for (std::size_t row : ReversedRows(from.lines)) {
        if (from.lines[row].group != kNoGroup) continue;  // appended with their group
        if (!AppendQueriedLine(s.app, kind, from.lines, row)) return false;
    }
    DoRequestOptions send;
    send.callerLabel = "MOD";
    return DoRequest(s.app, send).ok;
}

// Compares the lines after a write-back with the lines before, in the order `order` gives. When
// they stand where they stood, the amounts that depend on position must match too.
void ExpectSameLines(const std::vector<TxnLine>& before, const std::vector<std::size_t>& order,
                     const std::vector<TxnLine>& after, const std::string& what) {
    ASSERT_EQ(after.size(), order.size()) << what;
    std::vector<std::size_t> identity(order.size());
    std::iota(identity.begin(), identity.end(), 0);
    for (std::size_t i = 0; i < after.size(); ++i) {
        const TxnLine& old = before[order[i]];
        const bool positional = order != identity && DependsOnPosition(old);
        EXPECT_EQ(Fields(after[i], positional), Fields(old, positional)) << what << " row " << i;
        if (!old.IsGroupEnd()) {
            EXPECT_NE(after[i].txnLineID, old.txnLineID) << what << " row " << i << " is new";
        }
    }
}

TEST(QbTxnSim, EveryKindIsWrittenBackInReversedOrderAndBackAgain) {
    const struct {
        TxnKind kind;
        const char* refNumber;
    } cases[] = {
        {TxnKind::Invoice, "3003"},
        {TxnKind::Estimate, "E-101"},
        {TxnKind::SalesOrder, "SO-501"},
        {TxnKind::SalesReceipt, "R-9001"},
    };
    for (const auto& c : cases) {
        TxnSimApp s;
        const std::string what = std::string(KindInfo(c.kind).name) + " " + c.refNumber;
        const Snapshot original = Query(s, c.kind, c.refNumber);
        ASSERT_GE(original.lines.size(), 3u) << what;
        // The same transaction found by its customer and number.
        EXPECT_TRUE(
            TxnQuerySub(s.app, c.kind,
                        {.refNumber = c.refNumber, .customer = original.header.customerFullName}));
        ASSERT_EQ(s.app.qb.txn.txns.size(), 1u) << what;
        EXPECT_EQ(s.app.qb.txn.txns[0].txnID, original.header.txnID) << what;

        ASSERT_TRUE(WriteReversed(s, c.kind, original, original.header.editSequence))
            << what << "\n"
            << (s.prompter.shown.empty() ? "" : s.prompter.shown.back().text);
        const Snapshot reversed = Query(s, c.kind, c.refNumber);
        EXPECT_EQ(reversed.header.txnID, original.header.txnID) << what;
        EXPECT_NE(reversed.header.editSequence, original.header.editSequence) << what;
        ExpectSameLines(original.lines, ReversedRows(original.lines), reversed.lines, what);
        bool positional = false;
        for (const TxnLine& row : original.lines) positional |= DependsOnPosition(row);
        if (!positional) {
            EXPECT_EQ(reversed.Totals(), original.Totals()) << what;
        }

        // Reversed once more, the transaction is as it was, totals and all.
        ASSERT_TRUE(WriteReversed(s, c.kind, reversed, reversed.header.editSequence)) << what;
        const Snapshot again = Query(s, c.kind, c.refNumber);
        std::vector<std::size_t> sameOrder(original.lines.size());
        std::iota(sameOrder.begin(), sameOrder.end(), 0);
        ExpectSameLines(original.lines, sameOrder, again.lines, what + " back");
        EXPECT_EQ(again.Totals(), original.Totals()) << what << " back";

        // A modify under the EditSequence of before changes nothing.
        s.prompter.shown.clear();
        EXPECT_FALSE(WriteReversed(s, c.kind, again, original.header.editSequence)) << what;
        ASSERT_FALSE(s.prompter.shown.empty()) << what;
        EXPECT_NE(s.prompter.shown.back().text.find("out-of-date"), std::string::npos) << what;
        const Snapshot unchanged = Query(s, c.kind, c.refNumber);
        EXPECT_EQ(unchanged.header.editSequence, again.header.editSequence) << what;
        ASSERT_EQ(unchanged.lines.size(), again.lines.size()) << what;
        for (std::size_t i = 0; i < again.lines.size(); ++i)
            EXPECT_EQ(unchanged.lines[i].txnLineID, again.lines[i].txnLineID) << what << i;

        EXPECT_TRUE(TxnDisplayModSub(s.app, c.kind, original.header.txnID)) << what;
        const std::vector<sim::DisplayRequest> shown = s.transport->company().DisplayRequests();
        ASSERT_FALSE(shown.empty()) << what;
        EXPECT_EQ(shown.back().txnType, KindInfo(c.kind).name);
        EXPECT_EQ(shown.back().txnID, original.header.txnID);
    }
}

}  // namespace
}  // namespace pelmark::qb
