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

TEST_F(ScreenTrnsTest, ReadsTheHeaderUnderEachQuickBooksTitle) {
    struct Case {
        QbTitleFormat format;
        const char* year;
        const char* appTitle;
        const char* fieldKeys;
    } cases[] = {
        {QbTitleFormat::ProEdition2004, "2004", "Rock Castle Construction", "%j"},
        {QbTitleFormat::PremierEdition2006, "2006", "Rock Castle Construction", "%j"},
        {QbTitleFormat::EnterpriseSolutions5, "2005", "Rock Castle Construction", "%j"},
        {QbTitleFormat::Pro2014, "2014", "Rock Castle Construction", "%j"},
        {QbTitleFormat::EnterpriseAccountant18, "2018", "Rock Castle Construction", "%j"},
        {QbTitleFormat::Pro1999, "1999", "Rock Castle Construction - QuickBooks: Pro", "%c"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.year);
        t.app.screen = {};
        SimDesktop& d = Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)}, c.format);
        EXPECT_EQ(GetTrnsNo(t.app), "1001");
        const ScreenState& s = t.app.screen;
        EXPECT_EQ(s.qbYear, c.year);
        EXPECT_EQ(s.qbAppTitle, c.appTitle);
        EXPECT_EQ(s.qbWindowKey, "Rock Castle Construction");
        EXPECT_EQ(s.customerName, "Kristy Abercrombie");
        EXPECT_EQ(s.templateName, "Intuit Product Invoice");
        EXPECT_EQ(s.trnsDate, "12/15/2024");
        EXPECT_TRUE(s.qbFoundFlag);
        EXPECT_EQ(Count(c.fieldKeys), 1);
        EXPECT_EQ(Count("^c"), 7);
        EXPECT_TRUE(d.lostKeys.empty());
        EXPECT_TRUE(t.prompter.shown.empty());
    }
}

TEST_F(ScreenTrnsTest, ReadsEachKindAlone) {
    struct Case {
        TrnsKind kind;
        HeaderValues values;
        const char* title;
    } cases[] = {
        {TrnsKind::Invoice, kInvoice, "Create Invoices"},
        {TrnsKind::Estimate, kEstimate, "Create Estimates"},
        {TrnsKind::SalesOrder, kSalesOrder, "Create Sales Orders"},
        {TrnsKind::SalesReceipt, kSalesReceipt, "Enter Sales Receipts"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.title);
        t.app.screen = {};
        SimDesktop& d = Open({MakeTrnsWindow(c.kind, c.values)});
        EXPECT_EQ(GetTrnsNo(t.app), c.values.number);
        const ScreenState& s = t.app.screen;
        EXPECT_EQ(s.chosenKind, c.kind);
        EXPECT_EQ(s.trnsTitle, c.title);
        EXPECT_EQ(s.chosenTrnsWnd, d.TrnsWindow(c.kind));
        EXPECT_EQ(s.customerName, c.values.customer);
        EXPECT_EQ(s.trnsDate, c.values.date);
    }
}

TEST_F(ScreenTrnsTest, SeveralKindsOpenGive9779AndTheMessage) {
    Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice),
          MakeTrnsWindow(TrnsKind::Estimate, kEstimate)});
    EXPECT_EQ(GetTrnsNo(t.app), kTrnsSeveralKinds);
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_EQ(t.prompter.shown[0].text, "Multiple transaction screens are up");
    EXPECT_EQ(t.prompter.shown[0].title, "Pelmark");
    EXPECT_FALSE(t.app.screen.qbFoundFlag);
    EXPECT_EQ(OpenTrnsKinds(t.app.screen), 2);
    EXPECT_TRUE(desktop->keysSent.empty());
}

TEST_F(ScreenTrnsTest, PurchaseOrderBesideAnInvoiceIsNotAnotherKind) {
    Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice),
          MakeTrnsWindow(TrnsKind::PurchaseOrder, kPurchaseOrder)});
    EXPECT_EQ(GetTrnsNo(t.app), "1001");
    EXPECT_NE(t.app.screen.purchaseOrderWnd, 0u);
    EXPECT_EQ(t.app.screen.chosenKind, TrnsKind::Invoice);
    EXPECT_TRUE(t.prompter.shown.empty());
}

TEST_F(ScreenTrnsTest, NoSortableWindowGivesEmptyWithoutMessage) {
    for (auto windows :
         {std::vector<SimTrnsWindow>{MakeTrnsWindow(TrnsKind::PurchaseOrder, kPurchaseOrder)},
          std::vector<SimTrnsWindow>{}}) {
        t.app.screen = {};
        Open(windows);
        EXPECT_EQ(GetTrnsNo(t.app), "");
        EXPECT_EQ(t.app.screen.purchaseOrderWnd != 0, !windows.empty());
        EXPECT_TRUE(t.prompter.shown.empty());
        EXPECT_TRUE(desktop->keysSent.empty());
    }
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

TEST_F(ScreenTrnsTest, EmptyNumberFieldGivesNoTrns) {
    HeaderValues v = kInvoice;
    v.number = "";
    Open({MakeTrnsWindow(TrnsKind::Invoice, v)});
    EXPECT_EQ(GetTrnsNo(t.app), kTrnsNoNumber);
    EXPECT_EQ(t.app.screen.trnsNo, kTrnsNoNumber);
    EXPECT_EQ(t.app.screen.customerName, "Kristy Abercrombie");
    EXPECT_TRUE(t.prompter.shown.empty());
}

TEST_F(ScreenTrnsTest, DateMayStandTwoFieldsAfterTheTemplate) {
    SimTrnsWindow w = MakeTrnsWindow(TrnsKind::Invoice, kInvoice);
    w.header.insert(w.header.begin() + 3, {"Ship Via", "UPS"});
    Open({w});
    EXPECT_EQ(GetTrnsNo(t.app), "1001");
    EXPECT_EQ(t.app.screen.dateIndex, 4);
    EXPECT_EQ(t.app.screen.trnsNoIndex, 5);

    // Three fields after it is too far: there is no date, so no number either.
    w.header.insert(w.header.begin() + 3, {"Rep", "RG"});
    t.app.screen = {};
    Open({w});
    EXPECT_EQ(GetTrnsNo(t.app), kTrnsNoNumber);
    EXPECT_EQ(t.app.screen.dateIndex, -9);
}

TEST_F(ScreenTrnsTest, MissingTemplateFieldShowsTheFieldsRead) {
    Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice, false)});
    EXPECT_EQ(GetTrnsNo(t.app), "");
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_EQ(t.prompter.shown[0].text,
              "Kristy Abercrombie\r\n\r\n12/15/2024\r\n1001\r\nKristy Abercrombie\r\n"
              "Kristy Abercrombie\r\n\r\nCould not find Template in transaction ");
    EXPECT_TRUE(t.app.screen.customerName.empty());
    EXPECT_FALSE(t.app.screen.qbFoundFlag);
}

TEST_F(ScreenTrnsTest, TemplateTooLateForDateAndNumberShowsHeaderMessage) {
    SimTrnsWindow w = MakeTrnsWindow(TrnsKind::Invoice, kInvoice);
    w.header.insert(w.header.begin() + 2, 3, {"Other", "x"});  // template moves to field 5
    Open({w});
    EXPECT_EQ(GetTrnsNo(t.app), "");
    EXPECT_EQ(t.app.screen.templateIndex, 5);
    ASSERT_EQ(t.prompter.shown.size(), 1u);
    EXPECT_TRUE(EndsWith(t.prompter.shown[0].text,
                         "Intuit Product Invoice\r\n12/15/2024\r\n"
                         "Could get find header info in transaction"));
    EXPECT_FALSE(t.app.screen.qbFoundFlag);
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

TEST_F(ScreenTrnsTest, SlowDesktopWalkIsLoggedAndTheReadGoesOn) {
    struct SlowPump : EventPump {
        test::FakeClock* clock;
        void DoEvents() override { clock->Advance(0.5); }
    } pump;
    pump.clock = &t.clock;
    t.app.sys.events = &pump;
    SimScenario s;
    s.windows = {MakeTrnsWindow(TrnsKind::Invoice, kInvoice)};
    s.otherWindows.assign(30, "Other Window");
    Open(s);
    EXPECT_EQ(GetTrnsNo(t.app), "1001");
    EXPECT_GT(t.app.common.errCounters[0], 0) << "Looping lines in the error log";
}

TEST_F(ScreenTrnsTest, UnsavedSalesOrderIsNoted) {
    SimTrnsWindow so = MakeTrnsWindow(TrnsKind::SalesOrder, kSalesOrder);
    so.unsaved = true;
    Open({so});
    EXPECT_EQ(GetTrnsNo(t.app), "7");
    EXPECT_TRUE(t.app.screen.unsavedFlag);
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

TEST_F(ScreenTrnsTest, BringUpWithoutKeysStillActivates) {
    SimDesktop& d = Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    EXPECT_TRUE(BringUpAndSendKeys(t.app, "Rock Castle", ""));
    EXPECT_EQ(d.Foreground(), d.MainWindow());
    EXPECT_TRUE(d.keysSent.empty());
    EXPECT_FALSE(BringUpAndSendKeys(t.app, "No Such Window", "%a"));
    EXPECT_TRUE(d.keysSent.empty());
}

TEST_F(ScreenTrnsTest, ClipboardTextDirectNeedsTheEditWindow) {
    SimDesktop& d = Open({MakeTrnsWindow(TrnsKind::Invoice, kInvoice)});
    d.SetClipboardText("  copied  ");
    EXPECT_EQ(ClipBoardGetText(t.app, true), "copied");
    EXPECT_EQ(ClipBoardGetText(t.app, true, true), "") << "no edit window yet";
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

const char* const kCompany = R"(<?xml version="1.0"?>
<QBSimCompany>
  <HostRet><ProductName>QuickBooks Pro 2014</ProductName><MajorVersion>24</MajorVersion>
    <MinorVersion>0</MinorVersion><SupportedQBXMLVersion>7.0</SupportedQBXMLVersion></HostRet>
  <CompanyRet><IsSampleCompany>false</IsSampleCompany><CompanyName>HOLY GHOST ASSOC. INC.</CompanyName></CompanyRet>
  <InvoiceRet><TxnID>1A2B-1700000000</TxnID><TimeCreated>2023-11-14T17:13:20-05:00</TimeCreated>
    <TimeModified>2023-11-14T17:13:20-05:00</TimeModified><EditSequence>1700000000</EditSequence>
    <TxnNumber>7</TxnNumber>
    <CustomerRef><ListID>80000001-1700000000</ListID><FullName>Abercrombie, Kristy:Family Room</FullName></CustomerRef>
    <ClassRef><ListID>80000002-1700000000</ListID><FullName>Remodel</FullName></ClassRef>
    <TemplateRef><ListID>80000003-1700000000</ListID><FullName>Intuit Product Invoice</FullName></TemplateRef>
    <TxnDate>2023-11-14</TxnDate><RefNumber>71050</RefNumber>
  </InvoiceRet>
</QBSimCompany>
)";

TEST_F(SimDesktopTest, FromACompanyFileShowsItsTransaction) {
    sim::Company company;
    ASSERT_TRUE(company.LoadText(kCompany).ok());
    EXPECT_FALSE(sim::ScenarioFromCompany(company, "Invoice", "no-such-id"));
    auto scenario = sim::ScenarioFromCompany(company, "Invoice", "1A2B-1700000000");
    ASSERT_TRUE(scenario);
    Open(*scenario);
    EXPECT_EQ(GetTrnsNo(t.app), "71050");
    EXPECT_EQ(t.app.screen.qbAppTitle, "HOLY GHOST ASSOC. INC.");
    EXPECT_EQ(t.app.screen.qbYear, "2014");
    EXPECT_EQ(t.app.screen.customerName, "Abercrombie, Kristy:Family Room");
    EXPECT_EQ(t.app.screen.trnsDate, "11/14/2023");
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
