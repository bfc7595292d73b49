// QuickBooks screen discovery and keyboard automation (the WindowsStuff module): window searches,
// the open transaction and its header fields, keystrokes and the clipboard.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "screen/desktop.h"

namespace pelmark {
struct App;
}

namespace pelmark::screen {

// ---- Texts QuickBooks and the program use ----------------------------------------------

// Titles of the transaction windows, as QuickBooks shows them at the start of the title (the
// window may add " - Accounts Receivable" and the like).
inline constexpr const char* kTitleSalesOrders = "Create Sales Orders";
inline constexpr const char* kTitleInvoices = "Create Invoices";
inline constexpr const char* kTitleSalesReceipts = "Enter Sales Receipts";
inline constexpr const char* kTitleEstimates = "Create Estimates";
inline constexpr const char* kTitlePurchaseOrders = "Create Purchase Orders";

// Results of GetTrnsNo that are not a transaction number.
inline constexpr const char* kTrnsMaximized = "-9999";
inline constexpr const char* kTrnsSeveralKinds = "-9779";
inline constexpr const char* kTrnsNoNumber = "-NoTrns#";

// Messages of GetTrnsNo.
inline constexpr const char* kMsgNoApCompany = "Unable to find Ap Company info";
inline constexpr const char* kMsgFullScreen =
    "Program does not support full screen transaction mode";
inline constexpr const char* kMsgMultipleScreens = "Multiple transaction screens are up";
inline constexpr const char* kMsgCannotFindScreen = "Cannot find the screen ";
inline constexpr const char* kMsgNoHeaderInfo = "Could get find header info in transaction";
inline constexpr const char* kMsgNoTemplate = "Could not find Template in transaction ";

// Error-log texts of the 10-second guard of GetWindowsHandle4Text.
inline constexpr const char* kLooping1 = "Get Windows Handle 4 Text Looping 1";
inline constexpr const char* kLooping = "Get Windows Handle 4 Text Looping";

// Entry of the main form's lstOptionsInternal that allows a maximized transaction window.
inline constexpr int kOptFullScreenMode = 8;

enum class TrnsKind { None, SalesOrder, SalesReceipt, Invoice, Estimate, PurchaseOrder };

// The title a transaction window of that kind begins with ("" for None).
const char* TrnsKindTitle(TrnsKind kind);

// ---- The "Like" comparison -----------------------------------------------------------------

// The classic Like operator, case-sensitive: "*" any run of characters, "?" one character,
// "#" one digit, "[abc]" / "[A-Z]" one character of the list, "[!0-9]" one character not in
// it. A pattern with an unclosed "[" matches nothing.
bool Like(std::string_view text, std::string_view pattern);
// The text as a pattern that matches exactly it: "*", "?", "#" and "[" are bracketed.
std::string LikeEscape(std::string_view text);

// ---- Module state ------------------------------------------------------------------------

struct WindowMatches {
    std::vector<Hwnd> handles;
    std::vector<std::string> titles;
    std::vector<std::string> classes;
    int count() const { return static_cast<int>(handles.size()); }
};

inline constexpr int kButtonLabelSlots = 24;
inline constexpr int kHeaderFieldCount = 6;  // the last index of the header fields read

// Module state of the screen discovery: one per application (App::screen).
struct ScreenState {
    // GetWindowsHandle4Text: shared by its recursion.
    int h4tLevel = 0;
    double h4tStart = 0;  // Timer() at the start of the search
    Hwnd h4tFound = 0;
    int h4tFoundCount = 0;
    WindowMatches h4tMatches;
    // When set, a search that runs past 10 seconds is not reported.
    bool noTimeout = false;

    // FindWindowLike: shared by its recursion.
    int fwlLevel = 0;
    // Titles whose windows' child texts are collected (empty: none are), and those texts.
    std::string childTextTitle;
    std::vector<std::string> childTexts;

    // The QuickBooks button labels (FillButtonLabels).
    std::array<std::string, kButtonLabelSlots> buttonLabels;

    // Keystrokes: set when window messages may be used (chkDontUseSendMsg not checked).
    bool messageMode = false;

    // The QuickBooks main window and its title.
    Hwnd qbMainWnd = 0;
    std::string qbMainTitle;  // as last seen: the exact title to bring QuickBooks up by
    std::string qbEdition;
    std::string apCompany;
    std::string qbAppTitle;
    std::string qbWindowKey;
    std::string qbYear;
    std::string custFieldKey = "j";
    bool qbFoundFlag = false;

    // The transaction windows.
    Hwnd salesReceiptWnd = 0, invoiceWnd = 0, salesOrderWnd = 0, estimateWnd = 0,
         purchaseOrderWnd = 0;
    Hwnd trnsWnd = 0;
    std::string trnsTitle;
    TrnsKind chosenKind = TrnsKind::None;
    Hwnd chosenTrnsWnd = 0;
    Hwnd trnsEditWnd = 0;
    Hwnd mdiClientWnd = 0;
    Hwnd activeMDIChild = 0;
    std::array<Hwnd, 5> editWnds{};
    bool unsavedFlag = false;

    // The header of the open transaction.
    int headerFieldCount = kHeaderFieldCount;
    std::vector<std::string> headerFields;
    int templateIndex = -2;
    std::string templateName;
    int dateIndex = -9;
    int trnsNoIndex = -8;
    std::string trnsDate;
    std::string trnsNo;
    std::string customerName;
    // When set, the date search starts one field after the template even while a QuickBooks
    // session is open.
    bool dateAfterTemplateOnly = false;
};

// ---- Window search primitives -------------------------------------------------------------

// A handle as traces show it: "&H" and upper-case hexadecimal digits.
std::string HexHwnd(Hwnd wnd);

// Every window below startWnd (0: the desktop) whose title matches titlePattern, whose title is
// at least 2 characters long and whose class matches classPattern. Depth-first, a window's
// children before the window.
WindowMatches FindWindowLike(App& app, Hwnd startWnd, std::string_view titlePattern,
                             std::string_view classPattern);

// The first window (children before their parent) whose trimmed text and class match; below
// startWnd (0: the desktop) when searchChildren, else among the windows after startWnd. 0 when
// none. A walk past 10 seconds writes the looping error to the error log and goes on.
Hwnd GetWindowsHandle4Text(App& app, Hwnd startWnd, std::string_view textPattern,
                           std::string_view classPattern, bool searchChildren = true);

void FillButtonLabels(ScreenState& state);
// True when the upper-case text begins with one of the labels (filled on first use).
bool IsButtonLabel(ScreenState& state, std::string_view text);
// The collected child texts that are not button labels, in order, at most 11.
std::vector<std::string> ChildFieldTexts(ScreenState& state);

struct WindowRect {
    int left = 0, top = 0, width = 0, height = 0;
};
bool MakeTopMost(App& app, Hwnd wnd, const WindowRect& rect);
bool MakeNotTopMost(App& app, Hwnd wnd, const WindowRect& rect);

// ---- The open transaction ------------------------------------------------------------------

// The class of QuickBooks' main window in every version seen (2004 to 2024).
inline constexpr const char* kQbMainClass = "MauiFrame";

// What a QuickBooks main-window title says: "Co  - QuickBooks Desktop Pro 2019(multi-user)(User)"
// is company "Co", edition "Pro", year "2019".
struct QbTitle {
    std::string year;                    // "1999" when no year can be read
    std::optional<std::string> company;  // unset: the title tells nothing of the company
    std::string edition;  // "Pro", "Premier Plus", "Enterprise Solutions: Accountant", ...
};
QbTitle ParseQbTitle(std::string_view title);
// True when a title is that of a QuickBooks main window of a version the program serves: a
// company, then "QuickBooks" and an edition other than Simple Start.
bool IsQbMainTitle(std::string_view title);
// The QuickBooks main window: a top-level window of class MauiFrame with a main-window title
// (holding `key` when one is given); 0 when there is none. Other programs' windows, whatever
// their titles say, are never taken.
Hwnd FindQbMainWindow(App& app, std::string_view key = {});
// Brings the QuickBooks main window to the front by its handle (a browser tab named after the
// company must not get the keys); false when it is gone.
bool ActivateQuickBooks(App& app);
// The title of a visible top-level window owned by QuickBooks' main window (a dialog such as
// "Recording Transaction"), or "" when none shows. Keys sent meanwhile would go to the dialog,
// and SDK requests fail while a modal one shows.
std::string QbDialogTitle(App& app);
// What the program sees on the screen, as "key: value" lines for support: quickbooks, class,
// year, edition, company, transaction, windows, dialog. `found` is set when QuickBooks and one
// transaction window were found.
std::vector<std::string> DescribeScreen(App& app, bool& found);
// True for a date as QuickBooks shows one in a field: "12/15/2024", "15.12.2024", "2024-12-15",
// "Dec 15, 2024", "15-Dec-24".
bool IsScreenDate(std::string_view text);

// Recognises the QuickBooks main window by its title and keeps its company, year and window
// key; false (after the message) when no company can be told.
bool IdentifyQuickBooks(App& app, std::string& result);

// Finds the QuickBooks main window and the transaction windows open in it.
void GetTrnsWindows(App& app);
// The number of the four sortable kinds whose window is open.
int OpenTrnsKinds(const ScreenState& state);

// The number of the transaction open on the QuickBooks screen, or kTrnsMaximized,
// kTrnsSeveralKinds, kTrnsNoNumber, or "" (no transaction window, or a failure that was shown).
// Fills customerName, trnsDate, templateName, trnsNo and the header fields.
std::string GetTrnsNo(App& app);

// ---- Keystrokes and clipboard --------------------------------------------------------------

// Sets the message-mode switch from the main form (chkDontUseSendMsg not checked).
void SetMessageMode(App& app);

// Sends keys; in message mode only navigation keys go out. Plain text goes one character at a
// time with "(", ")" and "%" escaped. False when a send failed.
bool SendKeysEscaped(App& app, std::string_view keys, bool wait);
// The copy keystroke; sets the last answer to 0 first (a failure may ask the user, who can
// cancel: the last answer is then 2).
bool SendCopyKeys(App& app, std::string_view keys);
void ClearClipboard(App& app, bool keep = false);
// The clipboard's text, or with direct the text of trnsEditWnd read by messages.
std::string ClipBoardGetText(App& app, bool trim = false, bool direct = false);

}  // namespace pelmark::screen
