// The sort run end to end under Wine: pelmark-cli.exe sort against the fake QuickBooks showing a
// transaction of a company file, with qbcom answering for QuickBooks from the same file.
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "wine/screenshot_win.h"
#include "wine/sortRig_win.h"

namespace pelmark::test {
namespace {

bool LessNoCase(const std::string& a, const std::string& b) {
    return _stricmp(a.c_str(), b.c_str()) < 0;
}

std::string Joined(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& i : items) text += i + " | ";
    return text;
}

TEST(SortEndToEndTest, EachKindIsSortedByItemWithNothingLostAndShownAgain) {
    const DesktopSortRig::Options cases[] = {
        {"invoice", "3001"},
        {"estimate", "E-102"},
        {"salesorder", "SO-503"},
        {"salesreceipt", "R-9001"},
    };
    for (const DesktopSortRig::Options& c : cases) {
        SCOPED_TRACE(c.kind + " " + c.refNumber);
        DesktopSortRig rig(c);
        ASSERT_NE(rig.quickBooks()->main(), nullptr);
        ASSERT_FALSE(
            std::is_sorted(rig.itemsBefore().begin(), rig.itemsBefore().end(), LessNoCase));
        if (c.kind == "invoice") TakeScreenshot("sort-invoice-before");

        CommandResult r = rig.RunCli("yes");
        ASSERT_FALSE(r.timedOut) << r.output;
        EXPECT_EQ(r.exitCode, 0u) << r.output;
        EXPECT_GE(rig.quickBooks()->SaveCount(), 1);

        const std::vector<std::string> items = rig.Items();
        EXPECT_TRUE(std::is_sorted(items.begin(), items.end(), LessNoCase)) << Joined(items);
        EXPECT_EQ(rig.LineTuples(), rig.tuplesBefore());
        EXPECT_TRUE(WaitUntil([&] { return rig.Displayed(); }, 5000)) << r.output;
        // QuickBooks shows it again, in the new order.
        auto shown = [&] {
            return FakeQbProgram::ShownItems(rig.quickBooks()->TrnsWindow(rig.windowTitle()));
        };
        EXPECT_TRUE(WaitUntil([&] { return shown() == items; }, 5000)) << Joined(shown());
        if (c.kind == "invoice") TakeScreenshot("sort-invoice-after");
    }
}

// Runs that must stop before the company file is touched, with the words they stop with and the
// Save & Close keystrokes QuickBooks received (-1: QuickBooks is not there to count them).
struct Refusal {
    const char* what;
    void (*arrange)(DesktopSortRig::Options&);
    const char* words;
    int saves;
};
const Refusal kRefusals[] = {
    {"no QuickBooks window", [](DesktopSortRig::Options& o) { o.quickBooksRunning = false; },
     "No customer or Transaction Window found or is not open or is hidden", -1},
    {"two kinds open",
     [](DesktopSortRig::Options& o) {
         o.moreArgs = {"--open", "estimate:E-102"};
     },
     "Multiple transaction screens are up", 0},
    // 61 rounds 300 ms apart: about 18 seconds.
    {"a window that will not close",
     [](DesktopSortRig::Options& o) { o.openSettings = ";stubborn"; }, "Cannot save transaction",
     61},
    {"QuickBooks not running", [](DesktopSortRig::Options& o) { o.registered = false; },
     "QBXMLRP2.RequestProcessor) is not installed", 0},
    // A QuickBooks dialog after Alt+A is named and never answered for the user.
    {"dialog after Save & Close",
     [](DesktopSortRig::Options& o) {
         o.moreArgs = {"--dialog", "Recording Transaction"};
     },
     "QuickBooks is showing 'Recording Transaction': answer it in QuickBooks, then press Sort "
     "again",
     1},
    {"password after Save & Close",
     [](DesktopSortRig::Options& o) {
         o.moreArgs = {"--dialog", "QuickBooks Closing Date Password"};
     },
     "QuickBooks is showing 'QuickBooks Closing Date Password'", 1},
};

TEST(SortEndToEndTest, RefusedRunsSayWhyAndLeaveTheCompanyAsItWas) {
    for (const Refusal& c : kRefusals) {
        SCOPED_TRACE(c.what);
        DesktopSortRig::Options o("invoice", "3001");
        c.arrange(o);
        DesktopSortRig rig(o);
        if (o.quickBooksRunning) {
            ASSERT_NE(rig.quickBooks()->main(), nullptr);
        }
        CommandResult r = rig.RunCli("no");
        ASSERT_FALSE(r.timedOut) << r.output;
        EXPECT_NE(r.exitCode, 0u) << r.output;
        EXPECT_NE(r.output.find(c.words), std::string::npos) << r.output;
        if (c.saves >= 0) {
            EXPECT_EQ(rig.quickBooks()->SaveCount(), c.saves);
        }
        if (c.words == kRefusals[4].words) TakeScreenshot("sort-stopped-at-quickbooks-dialog");
        EXPECT_TRUE(rig.CompanyUnchanged());
    }
}

}  // namespace
}  // namespace pelmark::test
