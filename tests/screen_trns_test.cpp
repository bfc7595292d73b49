// Identifying the open transaction on the simulated QuickBooks screen, and the keystroke and
// clipboard routines it rests on.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "app/text.h"
#include "fakes/fakes.h"
#include "fakes/sortRig.h"
#include "screen/WindowsStuff.h"
#include "sim/simDesktop.h"

namespace pelmark::screen {
namespace {

using sim::HeaderValues;
using sim::MakeTrnsWindow;
using sim::SimDesktop;
using sim::SimScenario;
using sim::SimTrnsWindow;

const HeaderValues kInvoice{"Kristy Abercrombie", "", "Intuit Product Invoice", "12/15/2024",
                            "1001"};
const HeaderValues kEstimate{"Baker's Professional", "Remodel", "Custom Estimate", "11/02/2024",
                             "612"};
const HeaderValues kSalesOrder{"Cook, Brian", "", "Custom Sales Order", "2024-10-07", "7"};
const HeaderValues kSalesReceipt{"Cash Customer", "", "Custom Sales Receipt", "09.10.2024", "3003"};
const HeaderValues kPurchaseOrder{"Perry Windows", "", "Custom Purchase Order", "12/01/2024",
                                  "6235"};

// Fails to activate a window from its Nth call on, as when QuickBooks closes during the read.
class FlakyDesktop : public SimDesktop {
  public:
    using SimDesktop::SimDesktop;
    bool Activate(Hwnd wnd) override { return ++calls < failFrom && SimDesktop::Activate(wnd); }
    // Window messages read nothing, as in a QuickBooks that keeps its fields out of their reach.
    std::string GetTextByMessage(Hwnd wnd, int maxChars) override {
        return deaf ? "" : SimDesktop::GetTextByMessage(wnd, maxChars);
    }
    int calls = 0;
    int failFrom = 1 << 30;
    bool deaf = false;
};

struct ScreenTrnsTest : ::testing::Test {
    ScreenTrnsTest() {
        t.app.frmMain.Find("txtDebugLevel")->text = "1";
        for (const char* name : {"Intuit Product Invoice", "Custom Estimate", "Custom Sales Order",
                                 "Custom Sales Receipt", "Custom Purchase Order"})
            t.app.qb.templates.push_back({name, "", "", true});
    }

    SimDesktop& Open(SimScenario scenario) {
        desktop = std::make_unique<FlakyDesktop>(scenario);
        t.app.sys.desktop = desktop.get();
        return *desktop;
    }
    SimDesktop& Open(std::vector<SimTrnsWindow> windows) {
        SimScenario s;
        s.windows = std::move(windows);
        s.otherWindows = {"Pelmark"};
        return Open(s);
    }
    int Count(const std::string& keys) const {
        int n = 0;
        for (const std::string& k : desktop->keysSent) n += k == keys;
        return n;
    }

    test::TestApp t;
    std::unique_ptr<FlakyDesktop> desktop;
};

// Every title format through the screen read, with a browser window named after the company in
// front of QuickBooks and a window of another class carrying a QuickBooks title: the MauiFrame
// window is the one found, its year picks the field key, and the keys go to it alone.
TEST_F(ScreenTrnsTest, FindsQuickBooksByClassAndTitleInEveryFormat) {
    // tests/data/qb-titles.txt: title|company|edition|year|served.
    const std::pair<TrnsKind, HeaderValues> kinds[] = {{TrnsKind::Invoice, kInvoice},
                                                       {TrnsKind::Estimate, kEstimate},
                                                       {TrnsKind::SalesOrder, kSalesOrder},
                                                       {TrnsKind::SalesReceipt, kSalesReceipt}};
    size_t i = 0;
    for (const auto& row : test::DataRows("qb-titles.txt")) {
        const std::string& title = row.at(0);
        const std::string expected = row.at(1) + "|" + row.at(2) + "|" + row.at(3);
        SCOPED_TRACE(title);
        const QbTitle parsed = ParseQbTitle(title);
        EXPECT_EQ(parsed.company.value_or("-") + "|" + parsed.edition + "|" + parsed.year,
                  expected);
        EXPECT_EQ(IsQbMainTitle(title), row.at(4) == "yes");
        if (title.find(" - [") != std::string::npos) continue;  // maximized: its own test

        const auto& [kind, values] = kinds[i++ % 4];
        t.app.screen = {};
        t.prompter.shown.clear();
        SimScenario sc;
        sc.mainTitle = title;
        sc.windows = {MakeTrnsWindow(kind, values)};
        sc.otherWindows = {row.at(1) + " - Home - Google Chrome"};
        SimDesktop& d = Open(sc);
        d.AddTopLevelWindow(title, "Chrome_WidgetWin_1", true);
        const std::string got = GetTrnsNo(t.app);
        const ScreenState& s = t.app.screen;
        if (row.at(4) != "yes") {
            EXPECT_EQ(got, "");
            EXPECT_EQ(t.prompter.Texts(), std::vector<std::string>{kMsgNoApCompany});
            EXPECT_TRUE(d.keysSent.empty());
            continue;
        }
        EXPECT_EQ(got, values.number);
        EXPECT_EQ(s.qbMainWnd, d.MainWindow());
        EXPECT_EQ(s.qbWindowKey + "|" + s.qbEdition + "|" + s.qbYear, expected);
        EXPECT_EQ(s.chosenKind, kind);
        EXPECT_EQ(s.templateName + "|" + s.trnsDate, values.templateName + "|" + values.date);
        EXPECT_EQ(Count(row.at(3) == "1999" ? "%c" : "%j"), 1);
        EXPECT_EQ(Count("^c"), 7);
        EXPECT_TRUE(d.lostKeys.empty());
        EXPECT_EQ(d.activated, std::vector<std::string>(8, title));
        EXPECT_TRUE(t.prompter.shown.empty());
    }
}

// Screens the read cannot use, or uses in part: what it gives and what it says. A failure with a
// message has the next read look for the main window afresh.
TEST_F(ScreenTrnsTest, ScreensItCannotFullyReadGiveTheirCodeAndMessage) {
    const ScreenState& s = t.app.screen;
    auto read = [&](std::vector<SimTrnsWindow> windows) {
        t.app.screen = {};
        t.prompter.shown.clear();
        Open(std::move(windows));
        std::string result = GetTrnsNo(t.app);
        EXPECT_EQ(s.qbFoundFlag, t.prompter.shown.empty()) << "read gave " << result;
        for (const auto& p : t.prompter.shown) EXPECT_EQ(p.title, "Pelmark");
        return result;
    };
    SimTrnsWindow inv = MakeTrnsWindow(TrnsKind::Invoice, kInvoice);
    SimTrnsWindow po = MakeTrnsWindow(TrnsKind::PurchaseOrder, kPurchaseOrder);
    EXPECT_EQ(read({inv, MakeTrnsWindow(TrnsKind::Estimate, kEstimate)}), kTrnsSeveralKinds);
    EXPECT_EQ(t.prompter.Texts(), std::vector<std::string>{"Multiple transaction screens are up"});
    EXPECT_EQ(OpenTrnsKinds(s), 2);
    EXPECT_TRUE(desktop->keysSent.empty());
    // A purchase order takes no part in that count, and is no sortable kind.
    EXPECT_EQ(read({inv, po}), "1001");
    EXPECT_NE(s.purchaseOrderWnd, 0u);
    EXPECT_EQ(s.chosenKind, TrnsKind::Invoice);
    for (auto windows : {std::vector<SimTrnsWindow>{po}, std::vector<SimTrnsWindow>{}}) {
        EXPECT_EQ(read(windows), "");
        EXPECT_EQ(s.purchaseOrderWnd != 0, !windows.empty());
        EXPECT_TRUE(t.prompter.Texts().empty());
        EXPECT_TRUE(desktop->keysSent.empty());
    }

    SimTrnsWindow w = inv;
    w.header[4].text = "";
    EXPECT_EQ(read({w}), kTrnsNoNumber);
    EXPECT_EQ(s.trnsNo, kTrnsNoNumber);
    EXPECT_EQ(s.customerName, "Kristy Abercrombie");
    EXPECT_TRUE(t.prompter.Texts().empty());
    // The date may stand two fields after the template; three is too far, and without a date
    // there is no number either.
    w = inv;
    w.header.insert(w.header.begin() + 3, {"Ship Via", "UPS"});
    EXPECT_EQ(read({w}), "1001");
    EXPECT_EQ(s.dateIndex, 4);
    EXPECT_EQ(s.trnsNoIndex, 5);
    w.header.insert(w.header.begin() + 3, {"Rep", "RG"});
    EXPECT_EQ(read({w}), kTrnsNoNumber);
    EXPECT_EQ(s.dateIndex, -9);

    EXPECT_EQ(read({MakeTrnsWindow(TrnsKind::Invoice, kInvoice, false)}), "");
    EXPECT_EQ(t.prompter.Texts(),
              std::vector<std::string>{
                  "Kristy Abercrombie\r\n\r\n12/15/2024\r\n1001\r\nKristy Abercrombie\r\n"
                  "Kristy Abercrombie\r\n\r\nCould not find Template in transaction "});
    EXPECT_TRUE(s.customerName.empty());
    w = inv;
    w.header.insert(w.header.begin() + 2, 3, {"Other", "x"});  // the template moves to field 5
    EXPECT_EQ(read({w}), "");
    EXPECT_EQ(s.templateIndex, 5);
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_TRUE(EndsWith(t.prompter.shown[0].text,
                         "Intuit Product Invoice\r\n12/15/2024\r\n"
                         "Could get find header info in transaction"));

    SimTrnsWindow unsaved = MakeTrnsWindow(TrnsKind::SalesOrder, kSalesOrder);
    unsaved.unsaved = true;
    EXPECT_EQ(read({unsaved}), "7");
    EXPECT_TRUE(s.unsavedFlag);
}

TEST_F(ScreenTrnsTest, MaximizedWindowNeedsTheFullScreenOption) {
    SimScenario s;
    s.maximized = true;
    s.windows = {MakeTrnsWindow(TrnsKind::Invoice, kInvoice)};
    Open(s);
    EXPECT_EQ(GetTrnsNo(t.app), kTrnsMaximized);
    EXPECT_EQ(t.prompter.Texts(),
              std::vector<std::string>{"Program does not support full screen transaction mode"});
    EXPECT_FALSE(t.app.screen.qbFoundFlag || !desktop->keysSent.empty());
    t.app.frmMain.Find("lstOptionsInternal")->selected[kOptFullScreenMode] = true;
    EXPECT_EQ(GetTrnsNo(t.app), "1001");
}

TEST_F(ScreenTrnsTest, MessageModeReadsTheFieldEditorAndSendsOnlyNavigation) {
    Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    t.app.frmMain.Find("chkDontUseSendMsg")->value = 0;
    SetMessageMode(t.app);
    ASSERT_TRUE(t.app.screen.messageMode);
    EXPECT_EQ(GetTrnsNo(t.app), "1001");
    EXPECT_EQ(t.app.screen.templateName, "Intuit Product Invoice");
    EXPECT_EQ(Count("%j"), 1);
    EXPECT_EQ(Count("{TAB}"), 7);
    EXPECT_EQ(desktop->keysSent.size(), 8u) << "no select or copy keys";
    EXPECT_EQ(t.app.screen.trnsEditWnd, desktop->EditorOf(desktop->TrnsWindow(TrnsKind::Invoice)));

    // A QuickBooks whose fields messages cannot reach: the clipboard mode is tried once.
    desktop->keysSent.clear();
    desktop->deaf = true;
    EXPECT_EQ(GetTrnsNo(t.app), "1001");
    EXPECT_EQ(Count("%j"), 2);
    EXPECT_EQ(Count("^c"), 7);
    EXPECT_TRUE(t.app.screen.messageMode);
    EXPECT_TRUE(t.Logged("Header read in clipboard mode"));
}

TEST_F(ScreenTrnsTest, SendKeysEscapedByMode) {
    Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    for (bool messageMode : {false, true}) {
        t.app.screen.messageMode = messageMode;
        // tests/data/sendkeys-modes.txt: keys|sent in message mode.
        for (const auto& row : test::DataRows("sendkeys-modes.txt")) {
            desktop->keysSent.clear();
            EXPECT_TRUE(SendKeysEscaped(t.app, row[0], false));
            EXPECT_EQ(desktop->keysSent == std::vector<std::string>{row[0]},
                      !messageMode || row[1] == "yes")
                << row[0] << (messageMode ? " in message mode" : "");
        }
        // Plain text goes one character at a time, notation characters escaped.
        desktop->keysSent.clear();
        SendKeysEscaped(t.app, "(a%)", false);
        EXPECT_EQ(desktop->keysSent, (std::vector<std::string>{"{(}", "a", "{%}", "{)}"}));
    }
    desktop->keysSent.clear();
    SendKeysEscaped(t.app, "", true);
    EXPECT_TRUE(desktop->keysSent.empty());

    t.app.frmMain.Find("lblMyKeysTime")->caption = "25";
    t.clock.sleeps.clear();
    SendKeysEscaped(t.app, "ab", true);
    EXPECT_EQ(t.clock.sleeps, (std::vector<int>{25, 25}));
}

// The clipboard is trimmed and read directly only from the edit window; Cancel after a failed
// copy stops the read.
TEST_F(ScreenTrnsTest, ClipboardReadsAndAFailedCopy) {
    SimDesktop& d = Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    d.SetClipboardText("  copied  ");
    EXPECT_EQ(ClipBoardGetText(t.app, true), "copied");
    EXPECT_EQ(ClipBoardGetText(t.app, true, true), "") << "directly needs the edit window";
    t.app.screen.trnsEditWnd = d.EditorOf(d.TrnsWindow(TrnsKind::Invoice));
    ASSERT_TRUE(d.Activate(d.MainWindow()));
    ASSERT_TRUE(SendKeysEscaped(t.app, "%j{TAB 4}", true));
    EXPECT_EQ(ClipBoardGetText(t.app, false, true), "1001");

    t.app.screen = {};
    Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    desktop->failFrom = 3;  // the field keys and the first copy get through
    t.prompter.Answer(kAnsCancel);
    EXPECT_EQ(GetTrnsNo(t.app), "");
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_EQ(t.prompter.shown[0].style, kMbOKCancel);
    EXPECT_EQ(Count("^c"), 1);
    EXPECT_EQ(Count("{TAB}"), 1);
}

// ---- QuickBooks changing under the run ------------------------------------------------------

// A QuickBooks dialog at the start of the run, or after Alt+A, is named and the run stops before
// anything is sent, without answering it; once the user has answered it, Sort goes through.
TEST(QuickBooksUnderTheRun, DialogsStopTheRunWithTheCompanyUnchanged) {
    const std::pair<const char*, bool> dialogs[] = {{"Recording Transaction", true},
                                                    {"Check Spelling on Form", true},
                                                    {"Available Credits", true},
                                                    {"Name Information Changed", true},
                                                    {"QuickBooks Closing Date Password", false}};
    for (const auto& [title, onSave] : dialogs) {
        SCOPED_TRACE(title);
        test::SortRig rig("3001");
        const std::string before = rig.Table();
        rig.qb.desktop->AddDialog(title, onSave);
        const std::size_t sent = rig.transport->requests.size();
        EXPECT_FALSE(rig.Go());
        EXPECT_TRUE(rig.Shown(std::string("QuickBooks is showing '") + title +
                              "': answer it in QuickBooks, then press Sort again"));
        EXPECT_EQ(rig.qb.desktop->altACount, onSave ? 1 : 0);
        for (std::size_t i = sent; i < rig.transport->requests.size(); ++i)
            EXPECT_EQ(rig.transport->requests[i].find("ModRq"), std::string::npos);
        EXPECT_EQ(rig.Table(), before);
        rig.qb.desktop->AnswerDialog();
        EXPECT_TRUE(rig.Go()) << rig.app.run.status;
    }
}

// QuickBooks started after Pelmark (nothing loaded), then another company opened in it: each run
// loads the lists again and says so, with no restart.
TEST(QuickBooksUnderTheRun, LateStartAndCompanySwitchReloadTheLists) {
    test::SortRig rig("3001");
    rig.app.run.listsLoaded = false;
    rig.app.qb.templates.clear();
    rig.app.screen.qbWindowKey = "Company that was open before";
    ASSERT_TRUE(rig.Go()) << rig.app.run.status;
    EXPECT_TRUE(rig.InDebugLog("QuickBooks found: Pelmark Sample Supply Co.  - QuickBooks Pro"));

    const std::string other = "Other Co  - QuickBooks Desktop Pro 2019(multi-user)(Ann)";
    rig.Open("3002");
    rig.qb.desktop->SetMainTitle(other);
    rig.app.qb.templates.clear();  // the first company's would not match the second's forms
    ASSERT_TRUE(rig.Go()) << rig.app.run.status;
    EXPECT_TRUE(rig.InDebugLog("QuickBooks or its company changed: " + other));
    EXPECT_EQ(rig.app.screen.qbWindowKey, "Other Co");
    EXPECT_EQ(rig.app.screen.qbYear, "2019");

    // The same QuickBooks and company: nothing is loaded again.
    auto reloads = [&] {
        const auto& msgs = rig.app.frmMain.Find("lstMsgs")->list;
        return std::count_if(msgs.begin(), msgs.end(), [](const std::string& m) {
            return m.starts_with("Loaded templates, items and custom fields");
        });
    };
    const auto before = reloads();
    rig.Open("3001");
    rig.qb.desktop->SetMainTitle(other);
    ASSERT_TRUE(rig.Go());
    EXPECT_EQ(reloads(), before);
}

// What `pelmark screen` prints.
TEST_F(ScreenTrnsTest, DescribesTheScreenForSupport) {
    SimScenario sc;
    sc.mainTitle = "Co  - QuickBooks Desktop Pro 2019(multi-user)(User)";
    sc.windows = {MakeTrnsWindow(TrnsKind::Invoice, kInvoice)};
    sc.otherWindows = {"Co - Google Chrome"};
    SimDesktop& d = Open(sc);
    bool found = false;
    EXPECT_EQ(DescribeScreen(t.app, found),
              (std::vector<std::string>{
                  "quickbooks: " + sc.mainTitle, "class: MauiFrame", "year: 2019", "edition: Pro",
                  "company: Co", "transaction: Create Invoices 1001",
                  "fields: Kristy Abercrombie | Intuit Product Invoice | 12/15/2024 | 1001 | "
                  "Kristy Abercrombie | Kristy Abercrombie | Net 30",
                  "windows: Create Invoices 1, Create Estimates 0, Create Sales Orders 0, "
                  "Enter Sales Receipts 0, Create Purchase Orders 0",
                  "dialog: none"}));
    EXPECT_TRUE(found);
    EXPECT_TRUE(d.keysSent.empty());
    d.AddDialog("Recording Transaction");
    d.OpenTransactionWindow(MakeTrnsWindow(TrnsKind::Estimate, kEstimate));
    std::vector<std::string> lines = DescribeScreen(t.app, found);
    EXPECT_EQ(lines[5], "transaction: none");
    EXPECT_EQ(lines.back(), "dialog: Recording Transaction");
    EXPECT_FALSE(found);
    sc.qbRunning = false;
    Open(sc);
    EXPECT_EQ(DescribeScreen(t.app, found), std::vector<std::string>{"quickbooks: none"});
}

}  // namespace
}  // namespace pelmark::screen
