// Which QuickBooks is on the screen: its main window by class and title, what the title says
// (company, edition, year), the dialogs it shows, and a plain report of all of it for support.
#include <cctype>
#include <string>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "screen/WindowsStuff.h"

namespace pelmark::screen {
namespace {

constexpr int kTextBuffer = 255;
// A dialog may own a dialog of its own (a password prompt over "Recording Transaction").
constexpr int kOwnerDepth = 4;

bool IsDigits(std::string_view s) {
    if (s.empty()) return false;
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

// Where the product name starts: the "QuickBooks" after the company's " - " (maybe after
// "Intuit "), so that a company named after the product does not mislead; else the first one.
size_t ProductStart(std::string_view up) {
    for (size_t p = up.find("QUICKBOOKS"); p != std::string_view::npos;
         p = up.find("QUICKBOOKS", p + 1)) {
        std::string_view before = up.substr(0, p);
        if (before.ends_with("- ") || before.ends_with("- INTUIT ")) return p;
    }
    return up.find("QUICKBOOKS");
}

// The year of a version word: "2019" (a 20xx year, maybe followed by "(multi-user)"), or an
// Enterprise version "24.0", the 2024 release; "" for any other word.
std::string YearOf(std::string_view word) {
    if (word.size() == 4 && word.starts_with("20") && IsDigits(word)) return std::string(word);
    size_t dot = word.find('.');
    if (dot != std::string_view::npos && dot > 0 && dot <= 2 && IsDigits(word.substr(0, dot)) &&
        IsDigits(word.substr(dot + 1)))
        return std::to_string(2000 + std::stoi(std::string(word.substr(0, dot))));
    return {};
}

int KindCount(const ScreenState& s, TrnsKind kind) {
    switch (kind) {
        case TrnsKind::SalesOrder:
            return s.salesOrderWnd != 0;
        case TrnsKind::SalesReceipt:
            return s.salesReceiptWnd != 0;
        case TrnsKind::Invoice:
            return s.invoiceWnd != 0;
        case TrnsKind::Estimate:
            return s.estimateWnd != 0;
        case TrnsKind::PurchaseOrder:
            return s.purchaseOrderWnd != 0;
        case TrnsKind::None:
            break;
    }
    return 0;
}

}  // namespace

// Titles seen on QuickBooks' main window (samples in tests/data/qb-titles.txt, with sources):
//   "Co - QuickBooks Pro Edition 2004", "Co - QuickBooks: Pro Edition" (1999, no year),
//   "Co - QuickBooks Enterprise Solutions 5.0", "Co  - QuickBooks Pro 2014",
//   "Co  - QuickBooks Desktop Pro 2019(multi-user)(User)" (the "Desktop" branding of 2016 on),
//   "Co  - Intuit QuickBooks Enterprise Solutions: Manufacturing and Wholesale 24.0",
//   and " - [Create Invoices - Accounts Receivable]" after it while a form is maximized.
QbTitle ParseQbTitle(std::string_view title) {
    QbTitle r;
    const std::string t = Trim(title);
    const std::string up = Upper(t);
    const size_t qb = ProductStart(up);
    r.year = "1999";
    if (qb == std::string::npos) return r;
    if (qb >= 3) {
        size_t dash = t.rfind(" - ", qb - 3);
        if (dash != std::string::npos) r.company = Trim(t.substr(0, dash));
    }
    std::string product = t.substr(qb + 10);
    if (size_t child = product.find(" - ["); child != std::string::npos) product.resize(child);
    // "(multi-user)(User)" says how the file is open, not which QuickBooks it is.
    std::string words;
    int depth = 0;
    for (char c : product) {
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        words += depth > 0 || c == '(' || c == ')' ? ' ' : c;
    }
    std::string edition, year;
    size_t pos = 0;
    while (pos < words.size()) {
        size_t end = words.find(' ', pos);
        if (end == std::string::npos) end = words.size();
        std::string word = words.substr(pos, end - pos);
        pos = end + 1;
        std::string w = Upper(word);
        if (w.empty() || w == ":" || w == "DESKTOP" || w == "EDITION") continue;
        if (std::string y = YearOf(word); !y.empty()) {
            if (year.empty()) year = y;
            continue;
        }
        if (word.front() == ':') word.erase(0, 1);
        edition += (edition.empty() ? "" : " ") + word;
    }
    if (!year.empty()) r.year = year;
    r.edition = edition;
    return r;
}

bool IsQbMainTitle(std::string_view title) {
    QbTitle t = ParseQbTitle(title);
    // Simple Start took no part in the SDK's sales transactions.
    return t.company && !t.company->empty() && !t.edition.empty() &&
           !Upper(t.edition).starts_with("SIMPLE START");
}

Hwnd FindQbMainWindow(App& app, std::string_view key) {
    Desktop& d = *app.sys.desktop;
    for (Hwnd w = d.GetWindow(d.GetDesktopWindow(), kGwChild); w != 0;
         w = d.GetWindow(w, kGwHwndNext)) {
        if (d.WindowClass(w, kTextBuffer) != kQbMainClass) continue;
        std::string title = d.WindowText(w, kTextBuffer);
        DebugLog(app, "QuickBooks main window? " + HexHwnd(w) + " " + title, 5);
        if (!IsQbMainTitle(title)) continue;
        if (!key.empty() && Upper(title).find(Upper(key)) == std::string::npos) continue;
        return w;
    }
    return 0;
}

bool ActivateQuickBooks(App& app) {
    ScreenState& s = app.screen;
    Desktop& d = *app.sys.desktop;
    Hwnd main = s.qbMainWnd != 0 && d.IsWindow(s.qbMainWnd) ? s.qbMainWnd
                                                            : FindQbMainWindow(app, s.qbWindowKey);
    if (main == 0) return false;
    s.qbMainWnd = main;
    s.qbMainTitle = d.WindowText(main, kTextBuffer);
    return d.Activate(main);
}

std::string QbDialogTitle(App& app) {
    Desktop& d = *app.sys.desktop;
    Hwnd main = FindQbMainWindow(app, app.screen.qbWindowKey);
    if (main == 0) return {};
    for (Hwnd w = d.GetWindow(d.GetDesktopWindow(), kGwChild); w != 0;
         w = d.GetWindow(w, kGwHwndNext)) {
        if (w == main || !d.IsVisible(w)) continue;
        Hwnd owner = d.GetWindow(w, kGwOwner);
        for (int i = 0; i < kOwnerDepth && owner != 0 && owner != main; ++i)
            owner = d.GetWindow(owner, kGwOwner);
        if (owner != main) continue;
        // Tooltips and other untitled helpers are owned by the main window too.
        std::string title = Trim(d.WindowText(w, kTextBuffer));
        if (!title.empty()) return title;
    }
    return {};
}

std::vector<std::string> DescribeScreen(App& app, bool& found) {
    ScreenState& s = app.screen;
    Desktop& d = *app.sys.desktop;
    std::vector<std::string> out;
    found = false;
    Hwnd main = FindQbMainWindow(app);
    if (main == 0) {
        out.push_back("quickbooks: none");
        return out;
    }
    std::string title = d.WindowText(main, kTextBuffer);
    QbTitle t = ParseQbTitle(title);
    s.qbWindowKey = t.company.value_or("");
    GetTrnsWindows(app);
    out.push_back("quickbooks: " + title);
    out.push_back(std::string("class: ") + kQbMainClass);
    out.push_back("year: " + t.year);
    out.push_back("edition: " + t.edition);
    out.push_back("company: " + t.company.value_or(""));
    std::string transaction = "none", windows, formTitle;
    int open = 0;
    for (TrnsKind kind : {TrnsKind::Invoice, TrnsKind::Estimate, TrnsKind::SalesOrder,
                          TrnsKind::SalesReceipt, TrnsKind::PurchaseOrder}) {
        int n = KindCount(s, kind);
        if (!windows.empty()) windows += ", ";
        windows += std::string(TrnsKindTitle(kind)) + " " + std::to_string(n);
        if (n == 0 || kind == TrnsKind::PurchaseOrder) continue;
        ++open;
        transaction = formTitle = TrnsKindTitle(kind);
    }
    // The number is the field after the date, read by window messages without a keystroke;
    // QuickBooks versions that keep their fields out of reach of messages show the kind alone.
    Hwnd form = s.salesOrderWnd + s.salesReceiptWnd + s.invoiceWnd + s.estimateWnd;
    bool afterDate = false;
    for (Hwnd f = open == 1 ? d.FindChild(form, 0, "Edit", "") : 0; f != 0;
         f = d.FindChild(form, f, "Edit", "")) {
        std::string text = Trim(d.GetTextByMessage(f, kTextBuffer));
        if (afterDate && !text.empty()) {
            transaction += " " + text;
            break;
        }
        afterDate = afterDate || IsScreenDate(text);
    }
    out.push_back("transaction: " + (open == 1 ? transaction : std::string("none")));
    // The texts of the open form's fields, its buttons left out: what support needs to tell a
    // form whose fields moved from one whose fields messages cannot reach (then none show).
    if (open == 1) {
        s.childTextTitle = formTitle;
        s.childTexts.clear();
        FindWindowLike(app, main, formTitle + "*", "*");
        s.childTextTitle.clear();
        std::string fields;
        for (const std::string& text : ChildFieldTexts(s))
            fields += (fields.empty() ? "" : " | ") + text;
        out.push_back("fields: " + fields);
    }
    out.push_back("windows: " + windows);
    std::string dialog = QbDialogTitle(app);
    out.push_back("dialog: " + (dialog.empty() ? std::string("none") : dialog));
    found = open == 1;
    return out;
}

}  // namespace pelmark::screen
