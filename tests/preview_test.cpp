// The new order shown before it is written (the window's preview, `sort --dry-run`): declined,
// nothing is sent and QuickBooks shows the transaction again as it was; accepted, what was
// shown is what is written.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace pelmark::test
