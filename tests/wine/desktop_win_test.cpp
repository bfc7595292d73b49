// The Win32 desktop against a running fake QuickBooks: window tree, keystrokes, clipboard; and
// on it, `pelmark-cli screen`.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "fakes/fakes.h"
#include "screen/desktop.h"
#include "wine/fakeqb_win.h"
#include "wine/screenshot_win.h"
#include "wine/sortRig_win.h"

namespace pelmark::screen {
namespace {

using test::FakeQbProgram;

const char* const kCompany = "HOLY GHOST ASSOC. INC.";
const char* const kTitle2014 = "HOLY GHOST ASSOC. INC.  - QuickBooks Pro 2014";
const char* const kInvoiceTitle = "Create Invoices - Accounts Receivable";
const char* const kInvoice =
    "invoice;customer=Abercrombie, Kristy:Family Room;class=Remodel;"
    "template=Intuit Product Invoice;date=12/15/2014;number=1098;"
    "line=Cabinets|Cabinet pulls|10|2.50|25.00;line=Installation|Install pulls|2|35.00|70.00";
Hwnd H(HWND w) {
    return reinterpret_cast<Hwnd>(w);
}

class WinDesktopTest : public ::testing::Test {
  protected:
    // Reads the field that has the focus as the program does: select it all, copy, read the
    // clipboard.
    std::string CopyField() {
        EXPECT_TRUE(desktop->ClearClipboard());
        EXPECT_TRUE(desktop->SendKeys("(^{HOME})", true));
        EXPECT_TRUE(desktop->SendKeys("(^(+{END}))", true));
        EXPECT_TRUE(desktop->SendKeys("^c", true));
        return desktop->GetClipboardText().value_or("<clipboard not opened>");
    }
    // The transaction window titled `title` under the main window, by the window tree.
    Hwnd TransactionWindow(HWND main, const std::string& title) {
        Hwnd client = desktop->FindChild(H(main), 0, "MDIClient", "");
        return client ? desktop->FindChild(client, 0, "", title) : 0;
    }
    // Header field i of a transaction window: the Edit controls in tab order, after the one
    // edit control that holds the focused field's text.
    Hwnd HeaderField(Hwnd trns, int i) {
        Hwnd edit = desktop->FindChild(trns, 0, "Edit", "");
        for (int k = 0; k <= i && edit; ++k) edit = desktop->FindChild(trns, edit, "Edit", "");
        return edit;
    }
    std::unique_ptr<Desktop> desktop = MakeWin32Desktop();
};

// One invoice window: its tree, texts read by messages and by the clipboard, typed into, and
// closed by Alt+A; minimized and brought back. (Alt+A into a form that will not close, or one that
// shows a dialog, is in the end-to-end refusals.)
TEST_F(WinDesktopTest, OneInvoiceReadByMessagesAndKeysTypedIntoAndClosed) {
    FakeQbProgram qb({"--company", kCompany, "--version", "pro2014", "--window", kInvoice});
    ASSERT_NE(qb.main(), nullptr);
    test::TakeScreenshot("fakeqb-invoice");
    Hwnd main = H(qb.main());
    // A 255-character buffer holds 254 characters; a short one cuts the title.
    EXPECT_EQ(desktop->WindowText(main), kTitle2014);
    EXPECT_EQ(desktop->WindowText(main, 11), "HOLY GHOST");
    EXPECT_EQ(desktop->WindowClass(main, 5), "Maui");
    Hwnd client = desktop->FindChild(main, 0, "MDIClient", "");
    EXPECT_EQ(desktop->GetParent(client), main);
    Hwnd invoice = TransactionWindow(qb.main(), kInvoiceTitle);
    ASSERT_NE(invoice, 0u);
    EXPECT_EQ(desktop->GetMdiActiveChild(client), invoice);
    EXPECT_FALSE(desktop->IsWindow(0));

    // WM_GETTEXT reaches the current text of another program's Edit controls, which
    // WindowText does not; GetTrnsNo's tests under Wine read whole headers both ways.
    EXPECT_EQ(desktop->GetTextByMessage(HeaderField(invoice, 0), 11), "Abercrombi");
    EXPECT_EQ(desktop->GetTextByMessage(0, 50), "");
    ASSERT_TRUE(desktop->Activate(main));
    ASSERT_TRUE(desktop->SetFocus(HeaderField(invoice, 4)));
    EXPECT_EQ(CopyField(), "1098");
    EXPECT_FALSE(desktop->SetFocus(0));

    // Plain text goes one character at a time with "(", "%" and ")" escaped; "+" in braces;
    // a character beyond ASCII arrives whole although the parse gives it byte by byte.
    Hwnd customer = HeaderField(invoice, 0);
    ASSERT_TRUE(desktop->SendKeys("%j", true));
    ASSERT_TRUE(desktop->SendKeys("(^{HOME})", true));
    ASSERT_TRUE(desktop->SendKeys("(^(+{END}))", true));
    ASSERT_TRUE(desktop->SendKeys("{DEL}", true));
    for (const char* key : {"{(}", "a", "{%}", "{)}", "{+}", "\u00e9", "~"})
        ASSERT_TRUE(desktop->SendKeys(key, true)) << key;
    EXPECT_EQ(desktop->GetTextByMessage(customer, 255), "(a%)+\u00e9");
    // Notation that does not parse sends nothing.
    EXPECT_FALSE(desktop->SendKeys("ab{NOSUCHKEY}", true));
    EXPECT_EQ(desktop->GetTextByMessage(customer, 255), "(a%)+\u00e9");

    ASSERT_TRUE(desktop->SendKeys("%a", true));
    EXPECT_TRUE(test::WaitUntil([&] { return !desktop->IsWindow(invoice); }, 3000));
    EXPECT_EQ(qb.SaveCount(), 1);

    // Activate restores a minimized window.
    ShowWindow(qb.main(), SW_MINIMIZE);
    ASSERT_TRUE(test::WaitUntil([&] { return IsIconic(qb.main()) != FALSE; }, 2000));
    EXPECT_TRUE(desktop->Activate(main));
    EXPECT_FALSE(IsIconic(qb.main()));
    EXPECT_EQ(GetForegroundWindow(), qb.main());
    EXPECT_FALSE(desktop->Activate(0));
}

TEST_F(WinDesktopTest, LengthsAndBuffersCountTheBytesOfTheUtf8Text) {
    const std::string company = "Caf\u00e9 L\u00fcbeck";
    const std::string customer = "Cr\u00e8me Br\u00fbl\u00e9e Co.";
    FakeQbProgram qb({"--company", company, "--version", "old", "--window",
                      "estimate;customer=" + customer + ";template=Custom Estimate;number=E-17"});
    ASSERT_NE(qb.main(), nullptr);
    EXPECT_EQ(desktop->WindowText(H(qb.main())), company + " - QuickBooks Pro");
    // The length plus one holds the whole text; a short buffer does not split a letter.
    Hwnd field = HeaderField(TransactionWindow(qb.main(), "Create Estimates"), 0);
    int len = desktop->GetTextLength(field);
    EXPECT_EQ(len, static_cast<int>(customer.size()));
    EXPECT_EQ(desktop->GetTextByMessage(field, len + 1), customer);
    EXPECT_EQ(desktop->GetTextByMessage(field, 4), "Cr");
    EXPECT_EQ(desktop->WindowText(H(qb.main()), 5), "Caf");
}

// Holds the clipboard open on another thread for `ms`, as a clipboard viewer might.
void HoldClipboard(int ms, std::atomic<bool>* held) {
    for (int i = 0; i < 100 && !OpenClipboard(nullptr); ++i) Sleep(10);
    held->store(true);
    Sleep(ms);
    CloseClipboard();
}

TEST_F(WinDesktopTest, ClipboardTextIsReadAsUtf8AndWaitsForAnotherHolder) {
    ASSERT_TRUE(desktop->ClearClipboard());
    EXPECT_EQ(desktop->GetClipboardText(), "");

    const wchar_t text[] = L"Caf\u00e9 \u00ae 12/15/2014";
    HGLOBAL mem = GlobalAlloc(GMEM_MOVEABLE, sizeof text);
    memcpy(GlobalLock(mem), text, sizeof text);
    GlobalUnlock(mem);
    ASSERT_TRUE(OpenClipboard(nullptr));
    EmptyClipboard();
    SetClipboardData(CF_UNICODETEXT, mem);
    CloseClipboard();

    std::atomic<bool> held{false};
    std::thread holder(HoldClipboard, 300, &held);
    while (!held.load()) Sleep(5);
    std::optional<std::string> got = desktop->GetClipboardText();
    holder.join();
    EXPECT_EQ(got, "Caf\u00e9 \u00ae 12/15/2014");
}

// What pelmark-cli.exe screen prints of a fake QuickBooks with an invoice open, behind a browser
// window titled like QuickBooks (the native screen tests take every title format).
TEST_F(WinDesktopTest, ScreenCommandPrintsWhatPelmarkSees) {
    FakeQbProgram qb({"--company", kCompany, "--version", "pro2019", "--window", kInvoice});
    ASSERT_NE(qb.main(), nullptr);
    FakeQbProgram browser(
        {"--class", "Chrome_WidgetWin_1", "--title", std::string(kTitle2014) + " - Google Chrome"});
    ASSERT_NE(browser.main(), nullptr);
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

}  // namespace
}  // namespace pelmark::screen
