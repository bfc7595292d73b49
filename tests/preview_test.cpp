// The new order shown before it is written (the window's preview, `sort --dry-run`): declined,
// nothing is sent and QuickBooks shows the transaction again as it was; accepted, what was
// shown is what is written. And the batch, which sorts a date range through the same path.
#include <gtest/gtest.h>

#include "app/batch.h"
#include "fakes/sortRig.h"
#include "sort/preview.h"

namespace pelmark::test {
namespace {

TEST(SortRun, PreviewShowsTheNewOrderAndWritesOnlyWhenAccepted) {
    for (const bool accept : {false, true}) {
        SortRig rig("3001");
        rig.Levels({"Item Full Name"});
        const std::vector<std::string> before = rig.Items();
        std::vector<std::string> shown;
        rig.app.previewHook = [&](const std::vector<sort::PreviewRow>& rows) {
            for (const sort::PreviewRow& r : rows) {
                shown.push_back(r.item);
                EXPECT_EQ(before.at(r.oldPosition - 1), r.item);
            }
            EXPECT_NE(sort::PreviewTable(rows).find("1    2  Bracket 2in"), std::string::npos);
            return accept;
        };
        EXPECT_EQ(rig.Go(), accept) << rig.app.run.status;
        EXPECT_EQ(shown, (std::vector<std::string>{"Bracket 2in", "Freight", "Labor", "Widget"}));
        EXPECT_EQ(rig.Items(), accept ? shown : before);
        int writes = 0;
        for (const std::string& request : rig.transport->requests)
            writes += request.find("ModRq") != std::string::npos &&
                      request.find("TxnDisplayModRq") == std::string::npos;
        EXPECT_EQ(writes > 0, accept);
        EXPECT_EQ(rig.DisplayRequests(), 1);
    }
}

TEST(SortRun, BatchSortsADateRangeOnceAndSaysWhy) {
    SortRig rig("3001");
    rig.Levels({"Item Full Name"});
    BatchOptions o{qb::TxnKind::Invoice, "2024-03-01", "2024-03-31", "", true};
    auto results = [&](const BatchOptions& options, std::size_t stopAfter = 99) {
        std::string error, out;
        for (const BatchItem& i : RunBatch(
                 rig.app, options,
                 [&](std::size_t done, std::size_t, const BatchItem&) { return done < stopAfter; },
                 error))
            out += i.refNumber + " " + i.result + (i.failed ? "!" : "") + "; ";
        return error.empty() ? out : error;
    };
    const std::string before = rig.Table();
    EXPECT_EQ(results(o),
              "3001 would be sorted; 3002 would be sorted; 3003 would be sorted; "
              "3004 would be sorted; ");
    EXPECT_EQ(rig.Table(), before);
    o.dryRun = false;
    EXPECT_EQ(results(o, 1), "3001 sorted; ");  // Stop between transactions
    EXPECT_EQ(results(o), "3001 already in order; 3002 sorted; 3003 sorted; 3004 sorted; ");
    EXPECT_EQ(rig.Items(), (std::vector<std::string>{"Bracket 2in", "Freight", "Labor", "Widget"}));
    EXPECT_EQ(rig.DisplayRequests(), 0);
    o.to = "2024-02-30";
    EXPECT_EQ(results(o), "The date range ends (2024-02-30) before it starts (2024-03-01)");
}

}  // namespace
}  // namespace pelmark::test
