// Identifying the open transaction end to end: GetTrnsNo on the Win32 desktop against a
// running fake QuickBooks, by real keystrokes and clipboard, and by window messages.
#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "app/context.h"
#include "fakes/fakes.h"
#include "screen/WindowsStuff.h"
#include "screen/desktop.h"
#include "wine/fakeqb_win.h"
#include "wine/sortRig_win.h"

namespace pelmark::screen {
namespace {

using test::FakeQbProgram;

const char* const kCompany = "HOLY GHOST ASSOC. INC.";
const char* const kInvoice =
    "invoice;customer=Abercrombie, Kristy:Family Room;class=Remodel;"
    "template=Intuit Product Invoice;date=12/15/2014;number=1098";

struct WinTrnsNoTest : ::testing::Test {
    WinTrnsNoTest() {
        t.app.sys.desktop = desktop.get();
        for (const char* name : {"Intuit Product Invoice", "Custom Estimate", "Custom S.O.",
                                 "Custom Sales Receipt", "Custom Purchase Order"})
            t.app.qb.templates.push_back({name, "", "", true});
    }
    std::vector<std::string> Prompts() const {
        std::vector<std::string> r;
        for (const auto& p : t.prompter.shown) r.push_back(p.text);
        return r;
    }

    std::unique_ptr<Desktop> desktop = MakeWin32Desktop();
    test::TestApp t;
};

// Title formats of QuickBooks 2014 to 2024 (the native screen tests take every one of
// tests/data/qb-titles.txt) found on the real desktop behind a browser window named after the
// company; the first is read by real keystrokes and the clipboard.
TEST_F(WinTrnsNoTest, FindsQuickBooksInTitleFormatsBehindDecoys) {
    const std::string company = kCompany;
    FakeQbProgram browser({"--class", "Chrome_WidgetWin_1", "--title",
                           company + "  - QuickBooks Pro 2014 - Google Chrome"});
    ASSERT_NE(browser.main(), nullptr);
    EXPECT_EQ(GetTrnsNo(t.app), "") << "a decoy alone is no QuickBooks";
    EXPECT_EQ(Prompts(), std::vector<std::string>{kMsgNoApCompany});
    t.prompter.shown.clear();

    const struct {
        const char *version, *year, *edition;
    } rows[] = {{"pro2014", "2014", "Pro"},
                {"accountant2019", "2019", "Accountant"},
                {"enterprise24", "2024", "Enterprise Solutions: Manufacturing and Wholesale"}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.version);
        FakeQbProgram qb({"--company", kCompany, "--version", r.version, "--window", kInvoice});
        ASSERT_NE(qb.main(), nullptr);
        SetWindowPos(browser.main(), HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
        t.app.screen = {};
        std::string result;
        EXPECT_TRUE(IdentifyQuickBooks(t.app, result));
        const ScreenState& s = t.app.screen;
        EXPECT_EQ(s.qbMainWnd, reinterpret_cast<Hwnd>(qb.main()));
        EXPECT_EQ(s.qbYear, r.year);
        EXPECT_EQ(s.qbEdition, r.edition);
        EXPECT_EQ(s.qbAppTitle, kCompany);
        EXPECT_TRUE(Prompts().empty()) << Prompts()[0];
        // The header is read by keystrokes once: every row types the same keys into the same
        // fake window, and a loaded X server can drop the Alt of an Alt+J into the field.
        if (&r != &rows[0]) continue;
        EXPECT_EQ(GetTrnsNo(t.app), "1098");
        EXPECT_EQ(s.customerName, "Abercrombie, Kristy:Family Room");
        EXPECT_EQ(s.trnsDate, "12/15/2014");
        EXPECT_EQ(s.templateName, "Intuit Product Invoice");
    }
}

// What pelmark-cli.exe screen prints of a fake QuickBooks with an invoice open.
TEST_F(WinTrnsNoTest, ScreenCommandPrintsWhatPelmarkSees) {
    FakeQbProgram qb({"--company", kCompany, "--version", "pro2019", "--window", kInvoice});
    ASSERT_NE(qb.main(), nullptr);
    test::CommandResult r =
        test::RunCommand(test::QuoteArg(test::WindowsPath(PELMARK_CLI_EXE)) + L" screen", 60000);
    EXPECT_EQ(r.exitCode, 0u) << r.output;
    std::erase(r.output, '\r');
    for (const char* line :
         {"quickbooks: HOLY GHOST ASSOC. INC.  - QuickBooks Desktop Pro 2019(multi-user)(Admin)\n",
          "class: MauiFrame\n", "year: 2019\n", "edition: Pro\n",
          "company: HOLY GHOST ASSOC. INC.\n", "transaction: Create Invoices 1098\n",
          "windows: Create Invoices 1, ", "dialog: none\n"})
        EXPECT_NE(r.output.find(line), std::string::npos) << line << " in\n" << r.output;
}

TEST_F(WinTrnsNoTest, ReadsTheHeaderByMessagesWithoutTouchingTheClipboard) {
    // The keys go to the active window, the one opened last.
    FakeQbProgram qb({"--company", kCompany, "--version", "enterprise18", "--window",
                      "purchaseorder;customer=Perry Windows;number=6235", "--window",
                      "salesreceipt;customer=Cash Customer;template=Custom Sales Receipt;"
                      "date=09/10/2018;number=3003"});
    ASSERT_NE(qb.main(), nullptr);
    t.app.screen.messageMode = true;
    ASSERT_TRUE(desktop->ClearClipboard());
    // An open purchase order beside one sales receipt does not count as a second kind.
    EXPECT_EQ(GetTrnsNo(t.app), "3003");
    EXPECT_EQ(t.app.screen.customerName, "Cash Customer");
    EXPECT_EQ(t.app.screen.trnsDate, "09/10/2018");
    EXPECT_EQ(t.app.screen.qbYear, "2018");
    EXPECT_EQ(t.app.screen.chosenKind, TrnsKind::SalesReceipt);
    EXPECT_TRUE(Prompts().empty()) << Prompts()[0];
    // No copy keystroke went out in message mode.
    EXPECT_EQ(desktop->GetClipboardText(), "");
}

}  // namespace
}  // namespace pelmark::screen
