// Identifying the open transaction on the simulated QuickBooks screen, and the keystroke and
// clipboard routines it rests on.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "app/context.h"
#include "app/text.h"
#include "fakes/fakes.h"
#include "screen/WindowsStuff.h"
#include "sim/company.h"
#include "sim/simDesktop.h"

namespace pelmark::screen {
namespace {

using sim::HeaderValues;
using sim::MakeTrnsWindow;
using sim::QbTitleFormat;
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

// Fails AppActivate from its Nth call on, as when QuickBooks closes during the read.
class FlakyDesktop : public SimDesktop {
  public:
    using SimDesktop::SimDesktop;
    bool AppActivate(const std::string& title) override {
        return ++calls < failFrom && SimDesktop::AppActivate(title);
    }
    int calls = 0;
    int failFrom = 1 << 30;
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
    SimDesktop& Open(std::vector<SimTrnsWindow> windows,
                     QbTitleFormat format = QbTitleFormat::ProEdition2004) {
        SimScenario s;
        s.titleFormat = format;
        s.windows = std::move(windows);
        s.otherWindows = {"Pelmark"};
        return Open(s);
    }
    std::vector<std::string> Prompts() const {
        std::vector<std::string> r;
        for (const auto& p : t.prompter.shown) r.push_back(p.text);
        return r;
    }
    int Count(const std::string& keys) const {
        int n = 0;
        for (const std::string& k : desktop->keysSent) n += k == keys;
        return n;
    }

    test::TestApp t;
    std::unique_ptr<FlakyDesktop> desktop;
};

TEST(ScreenTitleTest, ParsesCompanyAndYearOfEachVersion) {
    struct Case {
        const char* title;
        const char* company;  // nullptr: the title tells no company
        const char* year;
    } cases[] = {
        {"Rock Castle Construction - QuickBooks Pro Edition 2004", "Rock Castle Construction",
         "2004"},
        {"Rock Castle - QuickBooks Premier Edition 2006 (Multi-User)", "Rock Castle", "2006"},
        {"Rock Castle - QuickBooks Enterprise Solutions 5.0", "Rock Castle", "2005"},
        {"HOLY GHOST ASSOC. INC.  - QuickBooks Pro 2014", "HOLY GHOST ASSOC. INC.", "2014"},
        {"Company  - Intuit QuickBooks Enterprise Solutions: Accountant 18.0", "Company", "2018"},
        {"Smith - Jones Ltd - QuickBooks Pro Edition 2004", "Smith - Jones Ltd", "2004"},
        {"Rock Castle - QuickBooks Pro Edition 2004 - [Create Invoices - Accounts Receivable]",
         "Rock Castle", "2004"},
        {"Rock Castle - QuickBooks: Pro Edition", "Rock Castle - QuickBooks: Pro", "1999"},
        {"QuickBooks Pro 2014", nullptr, "2014"},
        {"Rock Castle - QuickBooks Pro", "Rock Castle", "1999"},
    };
    for (const Case& c : cases) {
        QbTitle p = ParseQbTitle(c.title);
        EXPECT_EQ(p.year, c.year) << c.title;
        if (c.company)
            EXPECT_EQ(p.company.value_or("<none>"), c.company) << c.title;
        else
            EXPECT_FALSE(p.company) << c.title << ": " << *p.company;
    }
    EXPECT_TRUE(IsQbMainTitle("Co - quickbooks premier edition 2006"));
    EXPECT_TRUE(IsQbMainTitle("Co - QuickBooks: Enterprise"));
    EXPECT_FALSE(IsQbMainTitle("Co - QuickBooks Simple Start Edition 2008"));
    EXPECT_FALSE(IsQbMainTitle("QuickBooks Pro 2014")) << "the word needs a blank before it";
}

TEST(ScreenTitleTest, TellsDatesAsTheScreenShowsThem) {
    for (const char* date : {"12/15/2024", "15/12/2024", "2024-12-15", "15.12.2024", "1/2/24",
                             "Dec 15, 2024", "15-Dec-24", "02/29/2024"})
        EXPECT_TRUE(IsScreenDate(date)) << date;
    for (const char* text : {"", "1001", "2024", "12/15", "13/13/2024", "02/30/2024", "02/29/2023",
                             "Net 30", "Kristy Abercrombie", "1/2/345"})
        EXPECT_FALSE(IsScreenDate(text)) << text;
}

TEST_F(ScreenTrnsTest, ReadsTheHeaderOfEachKindUnderEachQuickBooksTitle) {
    struct Case {
        TrnsKind kind;
        HeaderValues values;
        const char* title;
        QbTitleFormat format;
        const char* year;
        const char* fieldKeys;  // the keys that go to the first field
    } cases[] = {
        {TrnsKind::Invoice, kInvoice, "Create Invoices", QbTitleFormat::ProEdition2004, "2004",
         "%j"},
        {TrnsKind::Invoice, kInvoice, "Create Invoices", QbTitleFormat::PremierEdition2006, "2006",
         "%j"},
        {TrnsKind::Invoice, kInvoice, "Create Invoices", QbTitleFormat::EnterpriseSolutions5,
         "2005", "%j"},
        {TrnsKind::Invoice, kInvoice, "Create Invoices", QbTitleFormat::Pro2014, "2014", "%j"},
        {TrnsKind::Invoice, kInvoice, "Create Invoices", QbTitleFormat::EnterpriseAccountant18,
         "2018", "%j"},
        {TrnsKind::Invoice, kInvoice, "Create Invoices", QbTitleFormat::Pro1999, "1999", "%c"},
        {TrnsKind::Estimate, kEstimate, "Create Estimates", QbTitleFormat::Pro2014, "2014", "%j"},
        {TrnsKind::SalesOrder, kSalesOrder, "Create Sales Orders", QbTitleFormat::Pro2014, "2014",
         "%j"},
        {TrnsKind::SalesReceipt, kSalesReceipt, "Enter Sales Receipts", QbTitleFormat::Pro2014,
         "2014", "%j"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.title) + " " + c.year);
        t.app.screen = {};
        SimDesktop& d = Open({MakeTrnsWindow(c.kind, c.values)}, c.format);
        EXPECT_EQ(GetTrnsNo(t.app), c.values.number);
        const ScreenState& s = t.app.screen;
        EXPECT_EQ(s.qbYear, c.year);
        EXPECT_EQ(s.qbAppTitle,
                  std::string("Rock Castle Construction") +
                      (c.format == QbTitleFormat::Pro1999 ? " - QuickBooks: Pro" : ""));
        EXPECT_EQ(s.qbWindowKey, "Rock Castle Construction");
        EXPECT_EQ(s.chosenKind, c.kind);
        EXPECT_EQ(s.trnsTitle, c.title);
        EXPECT_EQ(s.chosenTrnsWnd, d.TrnsWindow(c.kind));
        EXPECT_EQ(s.customerName, c.values.customer);
        EXPECT_EQ(s.templateName, c.values.templateName);
        EXPECT_EQ(s.trnsDate, c.values.date);
        EXPECT_TRUE(s.qbFoundFlag);
        EXPECT_EQ(Count(c.fieldKeys), 1);
        EXPECT_EQ(Count("^c"), 7);
        EXPECT_TRUE(d.lostKeys.empty());
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
    EXPECT_EQ(Prompts(), std::vector<std::string>{"Multiple transaction screens are up"});
    EXPECT_EQ(OpenTrnsKinds(s), 2);
    EXPECT_TRUE(desktop->keysSent.empty());
    // A purchase order takes no part in that count, and is no sortable kind.
    EXPECT_EQ(read({inv, po}), "1001");
    EXPECT_NE(s.purchaseOrderWnd, 0u);
    EXPECT_EQ(s.chosenKind, TrnsKind::Invoice);
    for (auto windows : {std::vector<SimTrnsWindow>{po}, std::vector<SimTrnsWindow>{}}) {
        EXPECT_EQ(read(windows), "");
        EXPECT_EQ(s.purchaseOrderWnd != 0, !windows.empty());
        EXPECT_TRUE(Prompts().empty());
        EXPECT_TRUE(desktop->keysSent.empty());
    }

    SimTrnsWindow w = inv;
    w.header[4].text = "";
    EXPECT_EQ(read({w}), kTrnsNoNumber);
    EXPECT_EQ(s.trnsNo, kTrnsNoNumber);
    EXPECT_EQ(s.customerName, "Kristy Abercrombie");
    EXPECT_TRUE(Prompts().empty());
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
    EXPECT_EQ(Prompts(),
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
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_EQ(t.prompter.shown[0].text, "Program does not support full screen transaction mode");
    EXPECT_EQ(t.prompter.shown[0].title, "Pelmark");
    EXPECT_FALSE(t.app.screen.qbFoundFlag);
    EXPECT_TRUE(desktop->keysSent.empty());

    t.app.frmMain.Find("lstOptionsInternal")->selected[kOptFullScreenMode] = true;
    EXPECT_EQ(GetTrnsNo(t.app), "1001");
    EXPECT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_EQ(desktop->WindowText(desktop->MainWindow(), 255),
              "Rock Castle Construction - QuickBooks Pro Edition 2004 - "
              "[Create Invoices - Accounts Receivable]");
}

TEST_F(ScreenTrnsTest, TitleWithoutCompanyInfo) {
    // QuickBooks not running, and a title of none of the served versions: no company.
    for (bool running : {false, true}) {
        t.app.screen = {};
        t.prompter.shown.clear();
        SimScenario s;
        s.qbRunning = running;
        s.titleFormat = QbTitleFormat::SimpleStart2008;
        s.windows = {MakeTrnsWindow(TrnsKind::Invoice, kInvoice)};
        s.otherWindows = {"QuickBooks Help"};
        Open(s);
        EXPECT_EQ(GetTrnsNo(t.app), "");
        EXPECT_EQ(Prompts(), std::vector<std::string>{"Unable to find Ap Company info"});
        EXPECT_FALSE(t.app.screen.qbFoundFlag) << "the next run looks for the title again";
    }
    std::string log;
    for (const std::string& l : t.DebugLines()) log += l + "\n";
    EXPECT_NE(log.find("Get Trns QB AP Windows=QuickBooks Help"), std::string::npos);

    // A company known from an earlier run still serves such a title.
    t.app.screen = {};
    t.app.screen.qbAppTitle = "Rock Castle Construction";
    t.app.screen.qbYear = "2008";
    EXPECT_EQ(GetTrnsNo(t.app), "1001");
    EXPECT_EQ(t.app.screen.qbYear, "2008");
}

TEST_F(ScreenTrnsTest, WindowThatCannotBeBroughtUpIsReported) {
    // The title the program knows matches the main window inside, but not at its beginning.
    SimScenario s;
    s.company = "The Rock Castle";
    s.windows = {MakeTrnsWindow(TrnsKind::Invoice, kInvoice)};
    Open(s);
    t.app.screen.qbFoundFlag = true;
    t.app.screen.qbAppTitle = t.app.screen.qbWindowKey = "Rock Castle";
    EXPECT_EQ(GetTrnsNo(t.app), "");
    EXPECT_EQ(Prompts(), std::vector<std::string>{"\r\nCannot find the screen Rock Castle"});
    EXPECT_FALSE(t.app.screen.qbFoundFlag);
}

TEST_F(ScreenTrnsTest, GetTrnsWindowsFindsTheMdiChildAndItsEditChain) {
    SimDesktop& d = Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice),
                          MakeTrnsWindow(TrnsKind::PurchaseOrder, kPurchaseOrder)});
    t.app.screen.qbWindowKey = "Rock Castle Construction";
    GetTrnsWindows(t.app);
    const ScreenState& s = t.app.screen;
    Hwnd invoice = d.TrnsWindow(TrnsKind::Invoice);
    EXPECT_EQ(s.qbMainWnd, d.MainWindow());
    EXPECT_EQ(s.mdiClientWnd, d.MdiClient());
    EXPECT_EQ(s.activeMDIChild, invoice);
    EXPECT_EQ(s.invoiceWnd, invoice);
    EXPECT_EQ(s.purchaseOrderWnd, d.TrnsWindow(TrnsKind::PurchaseOrder));
    EXPECT_EQ(s.editWnds[0], d.EditorOf(invoice));
    for (int i = 1; i < 5; ++i) {
        EXPECT_EQ(d.GetControlId(s.editWnds[i]), 1000 + i - 1) << i;
        EXPECT_EQ(d.GetParent(s.editWnds[i]), invoice);
    }
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
}

TEST_F(ScreenTrnsTest, CancelAfterAFailedCopyStopsTheRead) {
    Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    desktop->failFrom = 3;  // the field keys and the first copy get through
    t.prompter.Answer(kAnsCancel);
    EXPECT_EQ(GetTrnsNo(t.app), "");
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_EQ(t.prompter.shown[0].style, kMbOKCancel);
    EXPECT_EQ(Count("^c"), 1);
    EXPECT_EQ(Count("{TAB}"), 1);
}

TEST_F(ScreenTrnsTest, SendKeysEscapedByMode) {
    Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    struct Case {
        const char* keys;
        bool sentInMessageMode;
    } cases[] = {{"{TAB}", true},   {"+{TAB}", true}, {"{DOWN}", true},     {"{UP}", true},
                 {"%a", true},      {"^c", false},    {"(^{HOME})", false}, {"{END}", false},
                 {"+{END}", false}, {"^v", false}};
    for (bool messageMode : {false, true}) {
        t.app.screen.messageMode = messageMode;
        for (const Case& c : cases) {
            desktop->keysSent.clear();
            EXPECT_TRUE(SendKeysEscaped(t.app, c.keys, false));
            bool sent = desktop->keysSent == std::vector<std::string>{c.keys};
            EXPECT_EQ(sent, !messageMode || c.sentInMessageMode)
                << c.keys << (messageMode ? " in message mode" : "");
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

TEST_F(ScreenTrnsTest, BringUpAndTheClipboard) {
    SimDesktop& d = Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    EXPECT_TRUE(BringUpAndSendKeys(t.app, "Rock Castle", ""));  // no keys: still activates
    EXPECT_EQ(d.Foreground(), d.MainWindow());
    EXPECT_FALSE(BringUpAndSendKeys(t.app, "No Such Window", "%a"));
    EXPECT_TRUE(d.keysSent.empty());

    d.SetClipboardText("  copied  ");
    EXPECT_EQ(ClipBoardGetText(t.app, true), "copied");
    EXPECT_EQ(ClipBoardGetText(t.app, true, true), "") << "directly needs the edit window";
    t.app.screen.trnsEditWnd = d.EditorOf(d.TrnsWindow(TrnsKind::Invoice));
    ASSERT_TRUE(BringUpAndSendKeys(t.app, "Rock Castle", "%j{TAB 4}"));
    EXPECT_EQ(ClipBoardGetText(t.app, false, true), "1001");
}

// ---- The simulated desktop itself -----------------------------------------------------------

using SimDesktopTest = ScreenTrnsTest;

TEST_F(SimDesktopTest, FieldsAnswerSelectCopyTypeAndSave) {
    SimDesktop& d = Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    Hwnd invoice = d.TrnsWindow(TrnsKind::Invoice);
    d.SendKeys("%j", true);
    EXPECT_EQ(d.lostKeys, std::vector<std::string>{"%j"}) << "QuickBooks is not in front yet";
    ASSERT_TRUE(d.AppActivate("Rock Castle"));
    d.SendKeys("%j{TAB 4}", true);
    EXPECT_EQ(d.FocusedField(invoice), 4);
    d.SendKeys("(^{HOME})+{END}^c", true);
    EXPECT_EQ(d.GetClipboardText(), "1001");
    d.SendKeys("{END}{BS}2", true);
    EXPECT_EQ(d.FieldText(invoice, 4), "1002");
    d.SendKeys("{HOME}^c", true);  // nothing selected: the clipboard keeps what it had
    EXPECT_EQ(d.GetClipboardText(), "1001");

    d.SetRefuseClose(invoice, true);
    d.SendKeys("%a", true);
    EXPECT_TRUE(d.IsWindow(invoice));
    d.SetRefuseClose(invoice, false);
    d.SendKeys("%a", true);
    EXPECT_FALSE(d.IsWindow(invoice));
    EXPECT_EQ(d.altACount, 2);
    ASSERT_EQ(d.saves.size(), 1u);
    EXPECT_EQ(d.saves[0].header.at(4), "1002");
    EXPECT_EQ(d.GetMdiActiveChild(d.MdiClient()), 0u);

    d.SendKeys("%a", true);
    EXPECT_EQ(d.lostKeys.back(), "%a") << "no transaction window is left to take it";
    EXPECT_FALSE(d.SendKeys("{BAD}", true));

    // A display request opens the window again, as the active one.
    Hwnd again = d.OpenTransactionWindow(MakeTrnsWindow(TrnsKind::Invoice, kInvoice));
    EXPECT_EQ(d.GetMdiActiveChild(d.MdiClient()), again);
}

TEST_F(SimDesktopTest, FromACompanyFileShowsItsTransaction) {
    sim::Company company;
    ASSERT_TRUE(company.LoadFile(PELMARK_SOURCE_DIR "/samples/company.xml").ok());
    EXPECT_FALSE(sim::ScenarioFromCompany(company, "Invoice", "no-such-id"));
    auto scenario = sim::ScenarioFromCompany(company, "Invoice", "1F0-1709557200");
    ASSERT_TRUE(scenario);
    Open(*scenario);
    EXPECT_EQ(GetTrnsNo(t.app), "3001");
    EXPECT_EQ(t.app.screen.qbAppTitle, "Pelmark Sample Supply Co.");
    EXPECT_EQ(t.app.screen.qbYear, "2014");
    EXPECT_EQ(t.app.screen.customerName, "Baker Hardware:Store 12");
    EXPECT_EQ(t.app.screen.trnsDate, "03/04/2024");
}

TEST(SimScreenLinesTest, TheLineGridShowsStoredLinesGroupsAndPercentRatesInOrder) {
    sim::Company company;
    ASSERT_TRUE(company.LoadFile(PELMARK_SOURCE_DIR "/samples/company.xml").ok());
    EXPECT_EQ(sim::TxnIDByRefNumber(company, "Invoice", "3003"), "2D0-1710766800");
    EXPECT_EQ(sim::TxnIDByRefNumber(company, "Estimate", "3003"), "");
    auto txn = sim::ReadTxnForScreen(company, "Invoice", "2D0-1710766800");
    ASSERT_TRUE(txn);
    EXPECT_EQ(txn->header.customer, "Grant Builders:Lakeview Remodel");
    EXPECT_EQ(txn->header.number, "3003");
    std::vector<std::string> items;
    for (const sim::ScreenLine& l : txn->lines) items.push_back(l.item);
    // A group's own row, then its lines; blank and description-only lines keep their rows.
    const std::vector<std::string> expected{"Design Review",
                                            "",
                                            "",
                                            "Starter Kit",
                                            "Widget",
                                            "Bracket 2in",
                                            "Bolt M6",
                                            "Service Bundle",
                                            "Installation",
                                            "Labor",
                                            "",
                                            "Subtotal",
                                            "10% Discount",
                                            "",
                                            "Cabinet Pull"};
    EXPECT_EQ(items, expected);
    const sim::ScreenLine& group = txn->lines[3];
    EXPECT_EQ(group.desc, "Starter kit: widget, brackets and bolts");
    EXPECT_EQ(group.quantity, "2");
    EXPECT_EQ(group.amount, "40.60");
    EXPECT_EQ(txn->lines[4].rate, "12.50");
    EXPECT_EQ(txn->lines[12].rate, "-10.00%");
    EXPECT_EQ(txn->lines[12].amount, "-65.56");
}

}  // namespace
}  // namespace pelmark::screen
