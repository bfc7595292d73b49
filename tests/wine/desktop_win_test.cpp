// The Win32 desktop against a running fake QuickBooks: window tree, keystrokes, clipboard.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "screen/desktop.h"
#include "wine/fakeqb_win.h"
#include "wine/screenshot_win.h"

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
// The header of kInvoice in tab order (the last two fields are empty).
const std::vector<std::string> kInvoiceHeader = {"Abercrombie, Kristy:Family Room",
                                                 "Remodel",
                                                 "Intuit Product Invoice",
                                                 "12/15/2014",
                                                 "1098",
                                                 "",
                                                 ""};

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
    std::vector<std::string> ReadHeaderByKeys(const std::string& company, const char* fieldKey,
                                              int count) {
        std::vector<std::string> fields;
        if (!desktop->AppActivate(company)) return fields;
        EXPECT_TRUE(desktop->SendKeys(fieldKey, true));
        for (int i = 0; i < count; ++i) {
            fields.push_back(CopyField());
            EXPECT_TRUE(desktop->SendKeys("{TAB}", true));
        }
        return fields;
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
    bool WaitGone(Hwnd wnd, int ms) {
        for (int waited = 0; waited < ms; waited += 50) {
            if (!desktop->IsWindow(wnd)) return true;
            Sleep(50);
        }
        return !desktop->IsWindow(wnd);
    }

    std::unique_ptr<Desktop> desktop = MakeWin32Desktop();
};

// One invoice window read every way the program reads it, typed into, and closed by Alt+A.
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
    // The first Edit child is the form's editor; the header fields follow with their ids.
    EXPECT_EQ(desktop->GetControlId(desktop->FindChild(invoice, 0, "Edit", "")), 999);
    EXPECT_EQ(desktop->GetControlId(HeaderField(invoice, 0)), 1000);

    // WM_GETTEXT reaches the current text of another program's Edit controls, which
    // WindowText does not.
    std::vector<std::string> header;
    for (size_t i = 0; i < kInvoiceHeader.size(); ++i) {
        Hwnd edit = HeaderField(invoice, static_cast<int>(i));
        header.push_back(desktop->GetTextByMessage(edit, desktop->GetTextLength(edit) + 1));
    }
    EXPECT_EQ(header, kInvoiceHeader);
    EXPECT_EQ(desktop->GetTextByMessage(HeaderField(invoice, 0), 11), "Abercrombi");
    EXPECT_EQ(desktop->GetTextByMessage(0, 50), "");

    // By keys: leave the customer field first, so that only Alt+J can bring the focus back.
    ASSERT_TRUE(desktop->AppActivate(kCompany));
    ASSERT_TRUE(desktop->SendKeys("{TAB 3}", true));
    EXPECT_EQ(ReadHeaderByKeys(kCompany, "%j", 7), kInvoiceHeader);
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
    EXPECT_TRUE(WaitGone(invoice, 3000));
    EXPECT_EQ(qb.SaveCount(), 1);
}

TEST_F(WinDesktopTest, OldVersionsTakeAltCForTheCustomerAndTextsKeepTheirAccents) {
    // A title without a version is the oldest QuickBooks, whose customer field is Alt+C.
    const std::string company = "Caf\u00e9 L\u00fcbeck";
    FakeQbProgram qb({"--company", company, "--version", "old", "--window",
                      "estimate;customer=Cr\u00e8me Br\u00fbl\u00e9e Co.;class=;"
                      "template=Custom Estimate;date=01/02/1999;number=E-17"});
    ASSERT_NE(qb.main(), nullptr);
    EXPECT_EQ(desktop->WindowText(H(qb.main())), company + " - QuickBooks Pro");
    ASSERT_TRUE(desktop->AppActivate(company));
    ASSERT_TRUE(desktop->SendKeys("{TAB 2}", true));
    std::vector<std::string> header = ReadHeaderByKeys(company, "%c", 5);
    const std::string customer = "Cr\u00e8me Br\u00fbl\u00e9e Co.";
    std::vector<std::string> expected = {customer, "", "Custom Estimate", "01/02/1999", "E-17"};
    EXPECT_EQ(header, expected);

    // Lengths and buffers count the bytes of the UTF-8 text, so that the length plus one holds
    // the whole text; a short buffer does not split a letter.
    Hwnd field = HeaderField(TransactionWindow(qb.main(), "Create Estimates"), 0);
    int len = desktop->GetTextLength(field);
    EXPECT_EQ(len, static_cast<int>(customer.size()));
    EXPECT_EQ(desktop->GetTextByMessage(field, len + 1), customer);
    EXPECT_EQ(desktop->GetTextByMessage(field, 4), "Cr");
    EXPECT_EQ(desktop->WindowText(H(qb.main()), 5), "Caf");
}

// Alt+A into a form that does not close, and into one that shows a QuickBooks dialog: the
// dialog is a visible top-level window owned by the main window, which it disables until it is
// answered; Alt+A meanwhile goes nowhere.
TEST_F(WinDesktopTest, AltAIntoAStubbornFormOrADialog) {
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{"--window", std::string(kInvoice) + ";stubborn"},
          std::vector<std::string>{"--window", kInvoice, "--dialog", "Recording Transaction"}}) {
        std::vector<std::string> args{"--company", kCompany};
        args.insert(args.end(), more.begin(), more.end());
        FakeQbProgram qb(args);
        ASSERT_NE(qb.main(), nullptr);
        Hwnd invoice = TransactionWindow(qb.main(), kInvoiceTitle);
        ASSERT_TRUE(desktop->AppActivate(kCompany));
        ASSERT_TRUE(desktop->SendKeys("%a", true));
        ASSERT_TRUE(desktop->SendKeys("%a", true));
        EXPECT_FALSE(WaitGone(invoice, 600));
        const bool dialog = more.size() > 2;
        EXPECT_EQ(qb.SaveCount(), dialog ? 1 : 2);
        if (!dialog) continue;
        HWND shown = FindWindowW(nullptr, L"Recording Transaction");
        ASSERT_NE(shown, nullptr);
        EXPECT_EQ(desktop->GetWindow(H(shown), kGwOwner), H(qb.main()));
        EXPECT_TRUE(desktop->IsVisible(H(shown)));
        EXPECT_FALSE(IsWindowEnabled(qb.main()));
        test::TakeScreenshot("fakeqb-recording-transaction");
        PostMessageW(shown, WM_CLOSE, 0, 0);
        EXPECT_TRUE(test::WaitUntil([&] { return IsWindowEnabled(qb.main()) != 0; }, 3000));
    }
}

TEST_F(WinDesktopTest, TwoKindsOpenAndAMaximizedWindowShowInTheMainTitle) {
    FakeQbProgram qb({"--company", "Company", "--version", "enterprise18", "--window", kInvoice,
                      "--window",
                      "salesorder;customer=Cook, Brian:Kitchen;template=Custom S.O.;"
                      "date=12/20/2018;number=7"});
    ASSERT_NE(qb.main(), nullptr);
    Hwnd client = desktop->FindChild(H(qb.main()), 0, "MDIClient", "");
    Hwnd invoice = TransactionWindow(qb.main(), kInvoiceTitle);
    Hwnd order = TransactionWindow(qb.main(), "Create Sales Orders");
    ASSERT_NE(invoice, 0u);
    ASSERT_NE(order, 0u);
    // The window opened last is the active one.
    EXPECT_EQ(desktop->GetMdiActiveChild(client), order);
    test::TakeScreenshot("fakeqb-two-kinds");

    FakeQbProgram full({"--company", kCompany, "--window", std::string(kInvoice) + ";maximized"});
    ASSERT_NE(full.main(), nullptr);
    EXPECT_EQ(desktop->WindowText(H(full.main())),
              std::string(kTitle2014) + " - [" + kInvoiceTitle + "]");
}

TEST_F(WinDesktopTest, TopMostIsSetAndTakenOff) {
    FakeQbProgram qb({"--company", kCompany});
    ASSERT_NE(qb.main(), nullptr);
    auto topMost = [&] { return (GetWindowLongW(qb.main(), GWL_EXSTYLE) & WS_EX_TOPMOST) != 0; };
    ASSERT_TRUE(desktop->SetTopMost(H(qb.main()), true, 30, 40, 900, 600));
    EXPECT_TRUE(topMost());
    RECT r;
    GetWindowRect(qb.main(), &r);
    EXPECT_EQ(r.left, 30);
    EXPECT_EQ(r.top, 40);
    ASSERT_TRUE(desktop->SetTopMost(H(qb.main()), false, 30, 40, 900, 600));
    EXPECT_FALSE(topMost());
}

TEST_F(WinDesktopTest, AppActivateFindsTheTitleByItsBeginningAndRestoresIt) {
    FakeQbProgram qb({"--company", kCompany, "--window", kInvoice});
    ASSERT_NE(qb.main(), nullptr);
    ShowWindow(qb.main(), SW_MINIMIZE);
    for (int i = 0; i < 40 && !IsIconic(qb.main()); ++i) Sleep(50);
    ASSERT_TRUE(IsIconic(qb.main()));
    // The shell's AppActivate ignores case.
    EXPECT_TRUE(desktop->AppActivate("holy ghost"));
    EXPECT_FALSE(IsIconic(qb.main()));
    EXPECT_EQ(GetForegroundWindow(), qb.main());
    EXPECT_FALSE(desktop->AppActivate("QuickBooks Pro 2014"));
    EXPECT_FALSE(desktop->AppActivate(""));
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

}  // namespace
}  // namespace pelmark::screen
