// Finds the QuickBooks main window and the open transaction window, and reads its header fields.
#include <cctype>
#include <string>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "screen/WindowsStuff.h"

namespace pelmark::screen {
namespace {

constexpr int kBeforeFirstFieldMs = 310;
constexpr int kAfterActivateMs = 50;

bool Contains(std::string_view s, std::string_view part) {
    return s.find(part) != std::string_view::npos;
}

bool IsDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// A pattern that matches any title containing the text: QuickBooks puts more before and after
// the company name (" - QuickBooks Pro 2014") and after a transaction window's name
// (" - Accounts Receivable").
std::string ContainsPattern(std::string_view text) {
    return "*" + LikeEscape(text) + "*";
}

int MonthOf(std::string_view word) {
    static const char* const kMonths[] = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                          "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};
    std::string up = Upper(word);
    if (up.size() < 3) return 0;
    for (int m = 0; m < 12; ++m)
        if (up.compare(0, 3, kMonths[m]) == 0) return m + 1;
    return 0;
}

bool ValidDay(int year, int month, int day) {
    static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12 || day < 1) return false;
    if (month == 2 && day == 29)
        return year < 0 || (year % 4 == 0 && (year % 100 != 0 || year % 400 == 0));
    return day <= kDays[month - 1];
}

// Splits a date text into its parts at "/", "-", ".", "," and blanks.
std::vector<std::string> DateParts(std::string_view text) {
    std::vector<std::string> parts;
    std::string cur;
    for (char c : text) {
        if (c == '/' || c == '-' || c == '.' || c == ',' || c == ' ') {
            if (!cur.empty()) parts.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) parts.push_back(cur);
    return parts;
}

bool AllDigits(const std::string& s, size_t minLen, size_t maxLen) {
    if (s.size() < minLen || s.size() > maxLen) return false;
    for (char c : s)
        if (!IsDigit(c)) return false;
    return true;
}

std::string JoinLines(const std::vector<std::string>& fields) {
    std::string r;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (i > 0) r += kCrLf;
        r += fields[i];
    }
    return r;
}

int KeyDelay(App& app) {
    return static_cast<int>(LeadingNumber(app.frmMain.Caption("lblTimeProDelay")));
}

void Wait(App& app, int ms) {
    if (ms > 0) app.sys.clock->Sleep(ms);
}

// The main window itself to the front, not a window whose title begins with the company name
// (a browser tab), then the keys.
bool BringUpQuickBooks(App& app, const std::string& keys) {
    app.sys.events->DoEvents();
    if (!ActivateQuickBooks(app)) return false;
    app.sys.clock->Sleep(kAfterActivateMs);
    return SendKeysEscaped(app, keys, true);
}

// Each field: select its whole text, copy it, read the clipboard, go on with Tab. In message mode
// the selecting and copying keys are not sent and the field editor is read instead. False when
// the user cancelled after a failed copy.
bool ReadHeaderFields(App& app, int delay) {
    ScreenState& s = app.screen;
    for (int i = 0; i <= s.headerFieldCount; ++i) {
        ClearClipboard(app);
        SendKeysEscaped(app, "(^{HOME})", true);
        Wait(app, delay);
        SendKeysEscaped(app, "(^(+{END}))", true);
        Wait(app, delay);
        SendCopyKeys(app, "^c");
        if (app.common.lastAnswer == kAnsCancel) return false;
        Wait(app, delay);
        s.headerFields[i] = ClipBoardGetText(app, true, s.messageMode);
        SendKeysEscaped(app, "{TAB}", true);
        Wait(app, delay);
    }
    return true;
}

bool FullScreenAllowed(App& app) {
    const ui::Control* list = app.frmMain.Find("lstOptionsInternal");
    return list != nullptr && static_cast<int>(list->selected.size()) > kOptFullScreenMode &&
           list->selected[kOptFullScreenMode];
}

}  // namespace

bool IdentifyQuickBooks(App& app, std::string& result) {
    ScreenState& s = app.screen;
    s.qbMainWnd = FindQbMainWindow(app);
    s.qbMainTitle = s.qbMainWnd ? app.sys.desktop->WindowText(s.qbMainWnd, 255) : "";
    DebugLog(app, "Get Trns No QuickBooks main window=" + s.qbMainTitle, 1);
    if (s.qbMainWnd != 0) {
        QbTitle parsed = ParseQbTitle(s.qbMainTitle);
        s.qbYear = parsed.year;
        s.qbEdition = parsed.edition;
        s.apCompany = parsed.company.value_or("");
    } else {
        s.apCompany.clear();
    }

    DebugLog(app, "Get Trns check ap=" + s.apCompany, 1);
    s.qbAppTitle = Trim(s.apCompany);
    if (s.qbAppTitle.empty()) {
        DebugLog(app, "Get Trns QB AP not found ", 1);
        for (const std::string& title : FindWindowLike(app, 0, "*QuickBooks*", "*").titles)
            DebugLog(app, "Get Trns QB AP Windows=" + title, 1);
        s.qbFoundFlag = false;
        ShowMessage(app, kMsgNoApCompany);
        result.clear();
        return false;
    }
    s.qbWindowKey = s.qbAppTitle;

    // A maximized transaction window puts its title in brackets into the main window's title.
    if (Contains(s.qbMainTitle, "[Create") && !FullScreenAllowed(app)) {
        ShowMessage(app, kMsgFullScreen, kMbCritical, "Pelmark");
        s.qbFoundFlag = false;
        result = kTrnsMaximized;
        return false;
    }
    return true;
}

const char* TrnsKindTitle(TrnsKind kind) {
    switch (kind) {
        case TrnsKind::SalesOrder:
            return kTitleSalesOrders;
        case TrnsKind::SalesReceipt:
            return kTitleSalesReceipts;
        case TrnsKind::Invoice:
            return kTitleInvoices;
        case TrnsKind::Estimate:
            return kTitleEstimates;
        case TrnsKind::PurchaseOrder:
            return kTitlePurchaseOrders;
        case TrnsKind::None:
            break;
    }
    return "";
}

bool IsScreenDate(std::string_view text) {
    std::string t = Trim(text);
    std::vector<std::string> parts = DateParts(t);
    if (parts.size() != 3) return false;
    // Numbers only: m/d/y or d/m/y (as the regional settings show them), or y-m-d.
    if (AllDigits(parts[0], 1, 4) && AllDigits(parts[1], 1, 2) && AllDigits(parts[2], 1, 4)) {
        int a = std::stoi(parts[0]), b = std::stoi(parts[1]), c = std::stoi(parts[2]);
        if (parts[0].size() == 4) return ValidDay(a, b, c);
        if (parts[2].size() == 3) return false;
        int year = parts[2].size() == 4 ? c : -1;
        return ValidDay(year, a, b) || ValidDay(year, b, a);
    }
    // With a month name: "Dec 15, 2024" or "15-Dec-24".
    if (int m = MonthOf(parts[0]); m != 0 && AllDigits(parts[1], 1, 2) && AllDigits(parts[2], 2, 4))
        return ValidDay(parts[2].size() == 4 ? std::stoi(parts[2]) : -1, m, std::stoi(parts[1]));
    if (int m = MonthOf(parts[1]); m != 0 && AllDigits(parts[0], 1, 2) && AllDigits(parts[2], 2, 4))
        return ValidDay(parts[2].size() == 4 ? std::stoi(parts[2]) : -1, m, std::stoi(parts[0]));
    return false;
}

int OpenTrnsKinds(const ScreenState& s) {
    return (s.salesOrderWnd != 0) + (s.invoiceWnd != 0) + (s.salesReceiptWnd != 0) +
           (s.estimateWnd != 0);
}

void GetTrnsWindows(App& app) {
    DebugLog(app, "Get Trns Windows Entered ", 5);
    ScreenState& s = app.screen;
    s.salesOrderWnd = s.invoiceWnd = s.salesReceiptWnd = s.estimateWnd = s.purchaseOrderWnd = 0;
    s.mdiClientWnd = s.activeMDIChild = 0;
    s.editWnds = {};

    s.qbMainWnd = FindQbMainWindow(app, s.qbWindowKey);
    if (s.qbMainWnd == 0) return;

    auto find = [&](const char* title) {
        return GetWindowsHandle4Text(app, s.qbMainWnd, ContainsPattern(title), "*");
    };
    s.salesOrderWnd = find(kTitleSalesOrders);
    s.invoiceWnd = find(kTitleInvoices);
    s.salesReceiptWnd = find(kTitleSalesReceipts);
    s.estimateWnd = find(kTitleEstimates);
    s.purchaseOrderWnd = find(kTitlePurchaseOrders);

    s.mdiClientWnd = GetWindowsHandle4Text(app, s.qbMainWnd, "*", "MDIClient");
    if (s.mdiClientWnd == 0) return;
    s.activeMDIChild = app.sys.desktop->GetMdiActiveChild(s.mdiClientWnd);

    s.editWnds[0] = GetWindowsHandle4Text(app, s.mdiClientWnd, "*", "Edit");
    for (size_t i = 1; i < s.editWnds.size() && s.editWnds[i - 1] != 0; ++i)
        s.editWnds[i] = GetWindowsHandle4Text(app, s.editWnds[i - 1], "*", "Edit", false);
}

std::string GetTrnsNo(App& app) {
    DebugLog(app, "Get Trns No entered ", 5);
    ScreenState& s = app.screen;
    s.trnsDate.clear();
    s.apCompany = s.qbAppTitle;
    s.custFieldKey = "j";
    std::string result;
    if (!s.qbFoundFlag) {
        s.qbFoundFlag = true;
        if (!IdentifyQuickBooks(app, result)) return result;
    }

    DebugLog(app, "Get Trns No abc=def ", 1);
    s.unsavedFlag = false;
    GetTrnsWindows(app);

    if (OpenTrnsKinds(s) > 1) {
        ShowMessage(app, kMsgMultipleScreens, kMbCritical, "Pelmark");
        s.qbFoundFlag = false;
        return kTrnsSeveralKinds;
    }
    // A Purchase Order window alone is recognised but never sorted.
    s.trnsWnd = s.invoiceWnd + s.salesOrderWnd + s.salesReceiptWnd + s.estimateWnd;
    if (s.trnsWnd == 0) return {};

    struct Choice {
        TrnsKind kind;
        Hwnd wnd;
    };
    const Choice order[] = {{TrnsKind::SalesOrder, s.salesOrderWnd},
                            {TrnsKind::SalesReceipt, s.salesReceiptWnd},
                            {TrnsKind::Invoice, s.invoiceWnd},
                            {TrnsKind::Estimate, s.estimateWnd},
                            {TrnsKind::PurchaseOrder, s.purchaseOrderWnd}};
    for (const Choice& c : order) {
        if (c.wnd == 0) continue;
        s.chosenKind = c.kind;
        s.trnsTitle = TrnsKindTitle(c.kind);
        s.chosenTrnsWnd = c.wnd;
        break;
    }

    if (s.salesOrderWnd != 0 && GetWindowsHandle4Text(app, s.trnsWnd, "Revert", "*") != 0)
        s.unsavedFlag = true;
    if (s.chosenTrnsWnd != 0)
        s.trnsEditWnd = GetWindowsHandle4Text(app, s.chosenTrnsWnd, "*", "Edit");
    if (s.qbYear == "1999") s.custFieldKey = "c";
    DebugLog(app, "Get Trns No - QB yr=" + s.qbYear, 1);

    s.headerFieldCount = kHeaderFieldCount;
    s.headerFields.assign(s.headerFieldCount + 1, std::string());
    int delay = KeyDelay(app);

    if (!BringUpQuickBooks(app, "%" + s.custFieldKey)) {
        ShowMessage(app, std::string(kCrLf) + kMsgCannotFindScreen + s.apCompany);
        s.qbFoundFlag = false;
        return {};
    }
    Wait(app, kBeforeFirstFieldMs);
    if (!ReadHeaderFields(app, delay)) return {};
    // Some QuickBooks versions keep their fields out of reach of window messages: the message
    // mode then reads nothing, and the clipboard mode is tried once.
    bool anyText = false;
    for (const std::string& f : s.headerFields) anyText = anyText || !f.empty();
    if (s.messageMode && !anyText) {
        s.messageMode = false;
        bool read = BringUpQuickBooks(app, "%" + s.custFieldKey) &&
                    (Wait(app, kBeforeFirstFieldMs), ReadHeaderFields(app, delay));
        s.messageMode = true;
        if (!read) return {};
        DebugLog(app, "Header read in clipboard mode (message mode read nothing)", 1);
    } else {
        DebugLog(
            app,
            std::string("Header read in ") + (s.messageMode ? "message" : "clipboard") + " mode",
            1);
    }

    const int last = static_cast<int>(s.headerFields.size()) - 1;
    s.customerName = s.headerFields[0];
    s.dateIndex = -9;
    s.trnsNoIndex = s.dateIndex + 1;
    s.templateIndex = -2;
    s.templateName.clear();
    s.trnsDate.clear();

    for (int i = 2; i <= last && s.templateIndex < 0; ++i) {
        for (const auto& t : app.qb.templates) {
            if (t.name.empty()) break;
            if (s.headerFields[i] == t.name) {
                s.templateIndex = i;
                s.templateName = t.name;
                break;
            }
        }
    }

    if (last < s.templateIndex + 2) {
        s.qbFoundFlag = false;
        ShowMessage(app, JoinLines(s.headerFields) + kCrLf + kMsgNoHeaderInfo);
        return {};
    }
    if (s.templateIndex < 0) {
        ShowMessage(app, JoinLines(s.headerFields) + kCrLf + kMsgNoTemplate);
        s.qbFoundFlag = false;
        s.customerName.clear();
        return {};
    }

    // While a session is open the date search takes in the template's own field as well.
    int first =
        app.qb.sessionOpen && !s.dateAfterTemplateOnly ? s.templateIndex : s.templateIndex + 1;
    for (int k = first; k <= s.templateIndex + 2; ++k) {
        if (IsScreenDate(s.headerFields[k])) {
            s.trnsDate = s.headerFields[k];
            s.dateIndex = k;
            s.trnsNoIndex = k + 1;
            break;
        }
    }
    // No date, or a date in the last field read: there is no number field to take.
    s.trnsNo = s.trnsNoIndex >= 0 && s.trnsNoIndex <= last ? s.headerFields[s.trnsNoIndex] : "";
    if (s.trnsNo.empty()) s.trnsNo = kTrnsNoNumber;
    if (s.templateName.empty()) s.templateName = s.headerFields[s.templateIndex];
    DebugLog(app, "Get Trns No exit " + s.trnsTitle + " cust=" + s.customerName + " no=" + s.trnsNo,
             1);
    return s.trnsNo;
}

}  // namespace pelmark::screen
