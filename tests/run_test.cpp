// The sort run end to end on qbsim and the simulated desktop: the order each kind gets, what the
// write-back keeps, blank lines, weights and custom fields, the check after the modify, and
// every way a run can end early.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/journal.h"
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
        ASSERT_TRUE(rig.Go()) << rig.app.run.status;
        EXPECT_EQ(rig.Items(), c.after) << rig.Table();
        EXPECT_TRUE(rig.app.run.checkProblems.empty());
        EXPECT_EQ(rig.DisplayRequests(), 1);
        EXPECT_EQ(sim::ShowDisplayedTransactions(rig.qb, rig.companyPath), 1);
        EXPECT_TRUE(rig.InDebugLog("Round trips to QuickBooks in this run: "));
        EXPECT_EQ(rig.t.prompter.Texts(), std::vector<std::string>{});  // nothing to tell
        // The journal holds the levels and every line's custom-field values.
        const std::string journal = *rig.t.files.ReadAll(rig.app.run.journalPath);
        EXPECT_NE(journal.find("level=Item Full Name\n"), std::string::npos) << journal;
        EXPECT_EQ(journal.find("level=\n"), std::string::npos) << journal;
        EXPECT_EQ(journal.find("|Color|Red") != std::string::npos, c.ref == std::string("E-102"));
    }
}

TEST(SortRun, SubtotalsDiscountsAndGroupsKeepTheirMeaning) {
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
}

TEST(SortRun, CustomFieldsAndWeightsCostAFixedNumberOfRoundTrips) {
    auto trips = [](const char* ref, bool combine) {
        SortRig rig(ref);
        rig.Levels({"Desc"});
        rig.Check("chkCombineCFs", combine);
        // The items' "Net Weight" times the quantities, written into each line's "Lot".
        rig.Set("cboCFNetWeight", "Net Weight");
        rig.Set("cboCFItemNetWeightTotal", "Lot");
        EXPECT_TRUE(rig.Go()) << rig.app.run.status;
        EXPECT_TRUE(rig.app.run.checkProblems.empty());
        return std::make_pair(rig.app.run.roundTrips, rig.Table());
    };
    // 3002 has 200 lines with custom fields; E-102 four.
    const auto [few, fewTable] = trips("E-102", true);
    EXPECT_NE(fewTable.find("Widget, red finish             12    13.25   159.00            Tax "
                            "Color=Red; Lot=5.52"),
              std::string::npos)
        << fewTable;
    EXPECT_EQ(few, 8);
    EXPECT_EQ(trips("3002", true).first, few);
    EXPECT_GT(trips("3002", false).first, few + 100);

    // Skipping the custom fields would drop the lines' values: asked first, No keeps them.
    for (int answer : {kAnsNo, kAnsYes}) {
        SortRig skip("E-102");
        skip.Check("chkSKIPCFs", true);
        skip.t.prompter.Answer(answer);
        EXPECT_EQ(skip.Go(), answer == kAnsYes);
        EXPECT_TRUE(skip.Shown("4 custom-field values on 3 lines will be removed"));
        EXPECT_EQ(skip.Table().find("Color=") == std::string::npos, answer == kAnsYes);
    }
}

// Every request of a sort failing each way QuickBooks fails (closed, answer lost, save error)
// and the program stopped there: the transaction is unchanged, sorted whole, or brought back
// whole by Undo. Never anything else.
TEST(SortRun, AFaultAtAnyRequestLeavesNothingDamaged) {
    // 3003 has line groups, a subtotal, a percentage discount and line custom-field values.
    auto rig = [](SortRig& r) {
        r.Levels({"-Item Full Name"});
        r.t.prompter.defaultAnswer = kAnsYes;
        r.transport->requests.clear();
    };
    SortRig clean("3003");
    rig(clean);
    const std::string original = clean.Content();
    ASSERT_TRUE(clean.Go()) << clean.app.run.status;
    const std::string sorted = clean.Content();
    ASSERT_NE(sorted, original);
    const int requests = static_cast<int>(clean.transport->requests.size());
    std::map<std::string, int> outcomes;
    for (const std::string kind : {"error", "lost", "status", "stopped"})
        for (int k = 1; k <= requests; ++k) {
            SCOPED_TRACE(kind + " at request " + std::to_string(k));
            SortRig r("3003");
            rig(r);
            if (kind == "stopped")
                r.transport->stopAt = k;
            else
                r.Fault(k, kind);
            try {
                r.Go();
            } catch (const Stopped&) {
            }
            r.transport->stopAt = 0;
            if (r.Content() == original) {
                ++outcomes["unchanged"];
            } else if (r.Content() == sorted) {
                ++outcomes["sorted whole"];
            } else {
                EXPECT_TRUE(CmdUndo(r.app)) << r.app.run.lastError;
                EXPECT_EQ(r.Content(), original);
                ++outcomes[r.Content() == original ? "undone" : "damaged"];
            }
        }
    EXPECT_EQ(outcomes["damaged"], 0);
    std::printf("fault table: %d requests x 4 faults:", requests);
    for (const auto& [what, n] : outcomes) std::printf(" %s %d;", what.c_str(), n);
    std::printf("\n");
}

TEST(SortRun, UndoRefusesWhatItCannotTrust) {
    SortRig rig("3001");
    rig.Levels({"Item Full Name"});
    const std::string original = rig.Content();
    ASSERT_TRUE(rig.Go());
    const std::string journal = rig.app.run.journalPath, text = *rig.t.files.ReadAll(journal);
    const std::string sorted = rig.Content();
    JournalRead other = ParseJournal(text);
    other.journal.company = "C:\\Other Company.QBW";
    const std::pair<std::string, const char*> cases[] = {
        {text.substr(0, text.size() / 2), "cut short or was edited"},
        {std::string(text).replace(text.find("<Amount>"), 9, "<Amount>9"),
         "cut short or was edited"},
        {JournalText(other.journal), "is of the company file"},
        {text, "was changed in QuickBooks after the sort; Undo was not confirmed"},
    };
    for (const auto& [content, words] : cases) {
        SCOPED_TRACE(words);
        rig.t.files.WriteAll(journal, content);
        if (content == text) {  // someone saved it since, and the user says No
            sim::Company company = rig.Company();
            company.Touch(company.FindTxn(rig.qb.txn.kind, rig.qb.txn.txnID));
            company.SaveFile(rig.companyPath);
            rig.t.prompter.Answer(kAnsNo);
        }
        EXPECT_FALSE(CmdUndo(rig.app, {journal}));
        EXPECT_TRUE(rig.Shown(words)) << rig.app.run.lastError;
        EXPECT_EQ(rig.Content(), sorted);
    }
    rig.t.prompter.Answer(kAnsYes);
    EXPECT_TRUE(CmdUndo(rig.app)) << rig.app.run.lastError;
    EXPECT_EQ(rig.Content(), original);
    // The journal says so, and the next Undo finds nothing left to undo.
    EXPECT_NE(rig.t.files.ReadAll(journal)->find("state=undone"), std::string::npos);
    EXPECT_FALSE(CmdUndo(rig.app));
    EXPECT_TRUE(rig.Shown("There is no sort to undo"));
}

// Something between Pelmark and QuickBooks changes the modify on its way: the check after it
// names the line and what differs, in full words.
TEST(SortRun, AModifyThatComesBackDifferentIsReportedLoudly) {
    const std::string longDesc = "Standard widget, now described at far greater length than sent";
    struct Case {
        const char *what, *from;  // the modify's text `from` becomes `to`
        std::string to, problem;
    };
    const Case cases[] = {
        {"a description", "<Desc>Standard widget</Desc>", "<Desc>" + longDesc + "</Desc>",
         "line 7: Desc \"Standard widget\" came back as \"" + longDesc.substr(0, 57) + "...\""},
        {"a blank line given an item", "<Desc></Desc>",
         "<ItemRef><FullName>Labor</FullName></ItemRef><Desc></Desc>",
         "line 2: a line came back where a blank line was sent"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SortRig rig("3001");
        rig.Levels({"Item Full Name"});
        rig.Check("optBlankLinesAfter", true);
        rig.transport->edit = [&](std::string request) {
            const auto at = request.find(c.from);
            if (request.find("InvoiceModRq") != std::string::npos && at != std::string::npos)
                request.replace(at, std::string_view(c.from).size(), c.to);
            return request;
        };
        EXPECT_FALSE(rig.Go());
        ASSERT_FALSE(rig.app.run.checkProblems.empty());
        EXPECT_EQ(rig.app.run.checkProblems[0], c.problem);
        EXPECT_TRUE(
            rig.Shown("The transaction in QuickBooks is not what Pelmark sent:\n" + c.problem));
        EXPECT_TRUE(rig.InDebugLog("Check after Mod failed"));
        EXPECT_EQ(rig.DisplayRequests(), 1);  // QuickBooks still shows it again
    }
}

TEST(SortRun, EveryEarlyEndLeavesTheCompanyUntouched) {
    struct Case {
        const char* name;
        std::function<void(SortRig&)> arrange;
        const char* words;     // in a message box, the status label or the debug log
        bool refused = false;  // stopped by the check of what the lines hold, before any write
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
        {"no journal can be written", [](SortRig& r) { r.t.files.failPathPart = "Journals"; },
         "could not write its journal"},
        {"a line already invoiced",
         [](SortRig& r) {
             r.Open("SO-501");
             sim::Company company = r.Company();
             company.FindTxn("SalesOrder", r.qb.txn.txnID)
                 .child("SalesOrderLineRet")
                 .child("Invoiced")
                 .text()
                 .set("2");
             company.SaveFile(r.companyPath);
         },
         "): Invoiced 2", true},
        {"an item QuickBooks no longer knows",
         [](SortRig& r) {
             sim::Company company = r.Company();
             pugi::xml_node item = company.FindByFullName({"ItemServiceRet"}, "Labor");
             item.parent().remove_child(item);
             company.SaveFile(r.companyPath);
         },
         "Line 3 holds the item Labor, which QuickBooks does not know", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SortRig rig("3001");
        c.arrange(rig);
        const std::string before = rig.Content();
        rig.t.prompter.defaultAnswer = kAnsYes;  // go on after every prompt
        EXPECT_FALSE(rig.Go());
        const bool said =
            rig.Shown(c.words) || rig.app.run.status.find(c.words) == 0 || rig.InDebugLog(c.words);
        EXPECT_TRUE(said) << rig.app.run.status;
        if (c.refused) {
            EXPECT_EQ(rig.app.run.status, "Not sorted: nothing was changed");
            EXPECT_NE(rig.app.run.lastError.find(c.words), std::string::npos);
        }
        EXPECT_TRUE(rig.Content() == before) << "the transaction changed";
        EXPECT_FALSE(rig.app.run.running);
        if (std::string(c.name) == "window will not close") {
            EXPECT_EQ(rig.qb.desktop->altACount, 61);
            const auto& sleeps = rig.t.clock.sleeps;
            EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), 300), 61);
        }
    }
}

TEST(SortRun, EndAsksFirst) {
    SortRig rig("3001");
    rig.t.prompter.Answer(kAnsNo);
    EXPECT_NO_THROW(CmdEnd(rig.app));
    rig.t.prompter.Answer(kAnsYes);
    EXPECT_THROW(CmdEnd(rig.app), ProgramEnd);
    EXPECT_TRUE(rig.Shown("Are you sure you want to exit?"));
}

}  // namespace
}  // namespace pelmark::test
