// The sort run end to end on qbsim and the simulated desktop: the order each kind gets, what the
// write-back keeps, blank lines, weights and custom fields, the check after the modify, and
// every way a run can end early.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "app/run.h"
#include "fakes/sortRig.h"

namespace pelmark::test {
namespace {

using Items = std::vector<std::string>;

TEST(SortRun, EachKindIsSortedWrittenBackCheckedAndShownAgain) {
    struct Case {
        const char* ref;
        Items after;
    };
    const Case cases[] = {
        {"3001", {"Bracket 2in", "Freight", "Labor", "Widget"}},
        // Custom fields travel to the new lines.
        {"E-102", {"Bolt M6", "Packaging", "Widget:Blue", "Widget:Red"}},
        {"SO-501",
         {"Freight", "Shipping Box", "Starter Kit", "  Widget", "  Bracket 2in", "  Bolt M6"}},
        {"R-9001", {"Gasket Kit", "Labor", "Widget"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.ref);
        SortRig rig(c.ref);
        rig.Levels({"Item Full Name"});
        const std::string before = rig.Table();
        ASSERT_TRUE(rig.Go()) << rig.app.run.status;
        EXPECT_EQ(rig.Items(), c.after) << rig.Table();
        EXPECT_TRUE(rig.app.run.checkProblems.empty());
        EXPECT_EQ(rig.DisplayRequests(), 1);
        EXPECT_EQ(sim::ShowDisplayedTransactions(rig.qb, rig.companyPath), 1);
        EXPECT_TRUE(rig.InDebugLog("Round trips to QuickBooks in this run: "));
        // Nothing but the order changed: the same rows, totals and custom fields.
        auto rows = [](const std::string& table) {
            std::vector<std::string> out;
            std::size_t start = table.find('\n', table.find('\n') + 1) + 1;
            for (std::size_t end; (end = table.find('\n', start)) != std::string::npos;
                 start = end + 1) {
                std::string line = table.substr(start, end - start);
                out.push_back(line.erase(0, line.find_first_not_of("0123456789. ")));
            }
            std::sort(out.begin(), out.end());
            return out;
        };
        EXPECT_EQ(rows(before), rows(rig.Table()));
    }
}

TEST(SortRun, SubtotalsDiscountsGroupsAndBlankLinesKeepTheirMeaning) {
    // Lines sort within the sections between subtotals; a discount stays under its line; a
    // group moves whole; descending reverses the order, ties keep theirs.
    SortRig rig("3003");
    rig.Levels({"-Item Full Name"});
    rig.Check("chkKeepBlankItems", true);
    ASSERT_TRUE(rig.Go()) << rig.Table();
    EXPECT_EQ(rig.Items(),
              (Items{"Starter Kit", "  Widget", "  Bracket 2in", "  Bolt M6", "Service Bundle",
                     "  Installation", "  Labor", "", "Design Review", "", "", "Subtotal",
                     "10% Discount", "", "Cabinet Pull"}))
        << rig.Table();
    EXPECT_TRUE(rig.app.run.checkProblems.empty());

    // Two blank lines after every line: the totals stay, the blank lines are there.
    SortRig blanks("R-9002");
    blanks.Levels({"Item Full Name"});
    blanks.Check("optBlankLinesAfter", true);
    blanks.Set("txtBlankLines", "2");
    ASSERT_TRUE(blanks.Go());
    EXPECT_EQ(blanks.Items(),
              (Items{"Cabinet Pull", "5% Discount", "", "", "Shipping Box", "", ""}))
        << blanks.Table();
    EXPECT_NE(blanks.Table().find("Subtotal 122.35  Tax 8.87  Total 131.22"), std::string::npos);
}

TEST(SortRun, CustomFieldsAndWeightsCostAFixedNumberOfRoundTrips) {
    auto trips = [](const char* ref, bool combine) {
        SortRig rig(ref);
        rig.Levels({"Desc"});
        rig.Check("chkCombineCFs", combine);
        rig.Set("cboCFNetWeight", "Weight");
        rig.Set("cboCFItemNetWeightTotal", "Lot");
        EXPECT_TRUE(rig.Go()) << rig.app.run.status;
        EXPECT_TRUE(rig.app.run.checkProblems.empty());
        return rig.app.run.roundTrips;
    };
    // 3002 has 200 lines with custom fields; E-102 four.
    EXPECT_EQ(trips("3002", true), trips("E-102", true));
    EXPECT_GT(trips("3002", false), trips("3002", true) + 100);

    SortRig skip("E-102");
    skip.Check("chkSKIPCFs", true);
    ASSERT_TRUE(skip.Go());
    EXPECT_EQ(skip.Table().find("Color="), std::string::npos);
    EXPECT_EQ(skip.DisplayRequests(), 1);
}

TEST(SortRun, AModifyThatComesBackDifferentIsReportedLoudly) {
    SortRig rig("3001");
    rig.Levels({"Item Full Name"});
    // Something between Pelmark and QuickBooks changes a description on its way.
    rig.transport->edit = [](std::string request) {
        const std::string from = "<Desc>Standard widget</Desc>";
        if (request.find("InvoiceModRq") != std::string::npos)
            if (auto at = request.find(from); at != std::string::npos)
                request.replace(at, from.size(), "<Desc>Standard widgeX</Desc>");
        return request;
    };
    EXPECT_FALSE(rig.Go());
    ASSERT_EQ(rig.app.run.checkProblems.size(), 1u);
    EXPECT_NE(rig.app.run.checkProblems[0].find("Standard widgeX"), std::string::npos);
    EXPECT_TRUE(rig.Shown("The transaction in QuickBooks is not what Pelmark sent:"));
    EXPECT_TRUE(rig.InDebugLog("Check after Mod"));
    EXPECT_EQ(rig.DisplayRequests(), 1);  // QuickBooks still shows it again
}

TEST(SortRun, EveryEarlyEndLeavesTheCompanyUntouched) {
    struct Case {
        const char* name;
        std::function<void(SortRig&)> arrange;
        const char* words;  // in a message box, the status label or the debug log
    };
    const Case cases[] = {
        {"stop asked while idle", [](SortRig& r) { CmdStop(r.app); }, "Stopped (1)"},
        {"no transaction window",
         [](SortRig& r) {
             r.qb.desktop = std::make_unique<sim::SimDesktop>(sim::SimScenario{});
             r.app.sys.desktop = r.qb.desktop.get();
         },
         "No customer or Transaction Window found or is not open or is hidden"},
        {"customer unknown",
         [](SortRig& r) {
             r.qb.desktop->SetClipboardText("");
             r.Check("chkSkipCustomerQueryEachTime", true);
             r.app.qb.customers.clear();
         },
         "Customer not found in QuickBooks\xC2\xAE"},
        {"maximized window",
         [](SortRig& r) {
             r.qb.desktop->SetMaximized(true);
             // The sample settings allow full screen mode; this user's don't.
             auto& internal = r.app.frmMain.Find("lstOptionsInternal")->selected;
             std::fill(internal.begin(), internal.end(), false);
         },
         "EstN < 0"},
        {"QuickBooks not on the screen",
         [](SortRig& r) {
             r.Set("txtRefNo", "3001");
             sim::SimScenario gone;
             gone.qbRunning = false;
             r.qb.desktop = std::make_unique<sim::SimDesktop>(gone);
             r.app.sys.desktop = r.qb.desktop.get();
         },
         "Can not find app screen51 "},
        {"two kinds open",
         [](SortRig& r) {
             r.Set("txtRefNo", "3001");
             sim::Company company = r.Company();
             r.qb.desktop->OpenTransactionWindow(
                 *sim::TrnsWindowFromCompany(company, "Estimate", "320-1709816400"));
         },
         "Only 1 order type of transaction is supported"},
        {"no kind open",
         [](SortRig& r) {
             r.Set("txtRefNo", "3001");
             sim::SimScenario empty;
             r.qb.desktop = std::make_unique<sim::SimDesktop>(empty);
             r.app.sys.desktop = r.qb.desktop.get();
         },
         "There is on order type of transaction opened"},
        {"window will not close",
         [](SortRig& r) {
             r.qb.desktop->SetRefuseClose(r.qb.desktop->TrnsWindow(screen::TrnsKind::Invoice),
                                          true);
         },
         "Cannot save transaction"},
        {"number not found", [](SortRig& r) { r.Set("txtRefNo", "99999"); },
         "No Invoice 99999 for cust none was not found"},
        {"number shared", [](SortRig& r) { r.Open("3004"); },
         "Invoices 3004 for cust Grant Builders has more than 1 transactions with the same #, "
         "count=2"},
        {"QuickBooks refuses the modify",
         [](SortRig& r) {
             r.transport->edit = [](std::string request) {
                 const auto at = request.find("<EditSequence>");
                 if (request.find("InvoiceModRq") != std::string::npos && at != std::string::npos)
                     request.insert(at + 14, "9");
                 return request;
             };
         },
         "MOD"},
        {"QuickBooks goes away during the modify",
         [](SortRig& r) {
             r.transport->fail = [](const std::string& request) {
                 return request.find("InvoiceModRq") != std::string::npos;
             };
         },
         "QuickBooks is not running"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SortRig rig("3001");
        const std::string before = rig.Company().ToXml();
        c.arrange(rig);
        rig.t.prompter.defaultAnswer = kAnsYes;  // go on after every prompt
        EXPECT_FALSE(rig.Go());
        const bool said =
            rig.Shown(c.words) || rig.app.run.status.find(c.words) == 0 || rig.InDebugLog(c.words);
        EXPECT_TRUE(said) << rig.app.run.status;
        EXPECT_TRUE(rig.Company().ToXml() == before) << "the company file changed";
        EXPECT_FALSE(rig.app.run.running);
        if (std::string(c.name) == "window will not close") {
            EXPECT_EQ(rig.qb.desktop->altACount, 61);
            const auto& sleeps = rig.t.clock.sleeps;
            EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), 300), 61);
        }
    }
}

TEST(SortRun, StopCancelsOneRunAndEndAsksFirst) {
    SortRig rig("3001");
    CmdStop(rig.app);
    EXPECT_FALSE(rig.Go());
    EXPECT_EQ(rig.app.run.status, "Stopped (1)");
    EXPECT_TRUE(rig.Go());

    rig.t.prompter.Answer(kAnsNo);
    EXPECT_NO_THROW(CmdEnd(rig.app));
    rig.t.prompter.Answer(kAnsYes);
    EXPECT_THROW(CmdEnd(rig.app), ProgramEnd);
    EXPECT_TRUE(rig.Shown("Are you sure you want to exit?"));
}

}  // namespace
}  // namespace pelmark::test
