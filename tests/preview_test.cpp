// The new order shown before it is written (the window's preview, `sort --dry-run`): declined,
// nothing is sent and QuickBooks shows the transaction again as it was; accepted, what was
// shown is what is written. And the batch, which sorts a date range through the same path.
#include <gtest/gtest.h>

#include "app/batch.h"
#include "fakes/sortRig.h"
#include "sort/preview.h"
#include "ui/frmMain.h"

namespace pelmark::test {
namespace {

TEST(SortRun, PreviewShowsTheNewOrderAndWritesOnlyWhenAccepted) {
    const std::string expected =
        FileBytes(std::string(PELMARK_SOURCE_DIR) + "/tests/data/preview-3001.txt");
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
            // tests/data/preview-3001.txt: the table the preview shows.
            EXPECT_EQ(sort::PreviewTable(rows), expected);
            return accept;
        };
        EXPECT_EQ(rig.Go(), accept) << rig.app.run.status;
        EXPECT_EQ(rig.Items(), accept ? shown : before);
        EXPECT_EQ(rig.InDebugLog("The new order was not written"), !accept);
        int writes = 0;
        for (const std::string& request : rig.transport->requests)
            writes += request.find("ModRq") != std::string::npos &&
                      request.find("TxnDisplayModRq") == std::string::npos;
        EXPECT_EQ(writes > 0, accept);
        EXPECT_EQ(rig.DisplayRequests(), 1);
    }
}

// The Batch page's Start: the same batch as the command line's, its message in the page.
TEST(SortRun, BatchSortsADateRangeOnceAndSaysWhy) {
    SortRig rig("3001");
    rig.Levels({"Item Full Name"});
    auto batch = [&](std::size_t stopAfter = 99) {
        std::string out;
        const std::string message =
            ui::CmdBatch(rig.app, [&](std::size_t done, std::size_t, const BatchItem& i) {
                out += i.refNumber + " " + i.result + (i.failed ? "!" : "") + "; ";
                return done < stopAfter;
            });
        EXPECT_EQ(rig.app.frmMain.Caption("lblBatchMessage"), message);
        return out + message;
    };
    rig.Set("txtBatchFrom", " 2024-03-01");
    rig.Set("txtBatchTo", "2024-03-31");
    rig.Check("chkBatchDryRun", true);
    const std::string before = rig.Table();
    EXPECT_EQ(batch(),
              "3001 would be sorted; 3002 would be sorted; 3003 would be sorted; "
              "3004 would be sorted; 4 of 4 transactions done: 4 would be sorted");
    EXPECT_EQ(rig.Table(), before);
    rig.Check("chkBatchDryRun", false);
    EXPECT_EQ(batch(1), "3001 sorted; 1 of 4 transactions done: 1 sorted (stopped)");
    EXPECT_EQ(batch(),
              "3001 already in order; 3002 sorted; 3003 sorted; 3004 sorted; "
              "4 of 4 transactions done: 1 already in order, 3 sorted");
    EXPECT_EQ(rig.Items(), (std::vector<std::string>{"Bracket 2in", "Freight", "Labor", "Widget"}));
    EXPECT_EQ(rig.DisplayRequests(), 0);

    // Choices the batch cannot take: the page says why and nothing is sent.
    const struct {
        const char *field, *text, *message;
    } refused[] = {
        {"txtBatchTo", "2024-02-30", "The date range ends (2024-02-30) before it starts"},
        {"txtBatchFrom", "1/3/2024", "The date \"1/3/2024\" is not a date written as YYYY-MM-DD"},
        {"txtBatchCustomer", "Nobody Ltd", "(is \"Nobody Ltd\" a customer?)"},
        {"cboBatchKind", "Purchase Order", "Choose the kind of transaction to sort"},
    };
    for (const auto& r : refused) {
        ui::Control& c = *rig.app.frmMain.Find(r.field);
        const ui::Control kept = c;
        rig.Set(r.field, r.text);
        const std::size_t sent = rig.transport->requests.size();
        EXPECT_NE(batch().find(r.message), std::string::npos) << r.field;
        EXPECT_LE(rig.transport->requests.size(), sent + 1) << r.field;  // at most the list
        c = kept;
    }
    EXPECT_EQ(rig.Items(), (std::vector<std::string>{"Bracket 2in", "Freight", "Labor", "Widget"}));
}

}  // namespace
}  // namespace pelmark::test
