// fakeqb.exe: a stand-in for the QuickBooks main window and its transaction windows, which the
// Windows tests drive with real keystrokes, messages and the clipboard.
//
//   fakeqb.exe (--title TEXT | --company NAME [--version KEY]) [--count-file PATH]
//              [--class NAME] [--dialog TITLE]
//              [--window SPEC]... [--company-file PATH [--open KIND:REFNUMBER[;SETTINGS]]...]
//
// KEY picks a title format: pro2014 (the default), enterprise18, pro2004, solutions5, old,
// premier2016, pro2019 (multi-user), accountant2019, enterprise24, premierplus2024 (the formats
// of tests/data/qb-titles.txt). --class gives the main window another class than QuickBooks'
// MauiFrame (a decoy that must not be taken for QuickBooks). --dialog: the first Save & Close
// shows a modal dialog of that title, owned by the main window, instead of closing the form (as
// QuickBooks' "Recording Transaction" does); the form stays open until the dialog is answered.
// SPEC is a kind (invoice, estimate, salesorder, salesreceipt, purchaseorder) followed by
// ";"-separated settings: customer= (a purchase order's vendor), class=, template=, date=,
// number=, extra= (a field between the template and the date), title= (instead of the kind's
// own), line=Item|Desc|Qty|Rate|Amount (repeatable), and the flags maximized, stubborn (Alt+A
// does not close it) and unsaved (a Revert button). The window opened last is the active one.
// Every Alt+A (the Save & Close button) is counted in the count file.
//
// With --company-file, a qbsim company file: the company's name is the default for --company,
// and each --open after it shows the stored transaction of a kind with that reference number
// (its header and its lines in their stored order), followed by the same settings as SPEC
// (e.g. ";stubborn"). The file is watched as QuickBooks would be asked: when qbsim records a new
// display request (<TxnDisplay>) in it, the transaction's window opens again with the lines as
// they are now.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/wideText.h"
#include "fakeqb.h"
#include "sim/company.h"
#include "sim/simDesktop.h"

namespace {

using namespace pelmark::fakeqb;

enum : int {
    kIdEditor = 999,
    kIdHeaderFirst = 1000,
    kIdSaveClose = 3001,
    kIdSaveNew = 3002,
    kIdClear = 3003,
    kIdFirstMdiChild = 50000,
};
constexpr UINT kMsgClose = WM_APP + 1;
constexpr UINT_PTR kDisplayTimer = 1;
constexpr UINT kDisplayPollMs = 200;
// Rows of the line grid: at least the empty rows of a new form, at most what fits the frame
// (QuickBooks scrolls the rest).
constexpr int kMinLineRows = 5;
constexpr int kMaxLineRows = 12;
constexpr int kRowHeight = 21;

struct Line {
    std::wstring cells[5];
};

struct WindowSpec {
    std::wstring kind, title, customer, cls, templ, date, number, extra;
    bool hasExtra = false, maximized = false, stubborn = false, unsaved = false;
    std::vector<Line> lines;
};

// The live state of one transaction window.
struct Form {
    WindowSpec spec;
    HWND editor = nullptr;     // holds the text of the field with the focus
    HWND lastFocus = nullptr;  // given the focus back when the window gets it
    HWND navFrom = nullptr;    // the label whose accelerator was pressed
};

struct Program {
    HINSTANCE instance = nullptr;
    HWND frame = nullptr, client = nullptr;
    std::wstring title, countFile;
    std::wstring frameClass = L"MauiFrame";
    std::wstring dialogTitle;  // shown at the first Save & Close; empty once shown
    HWND dialog = nullptr;
    bool oldVersion = false;  // no version in the title: the customer field is Alt+C
    int saveCount = 0;
    HFONT font = nullptr, bold = nullptr, big = nullptr;
    HBRUSH formBrush = nullptr, headBrush = nullptr;
    std::vector<WindowSpec> windows;
    // The company file: its path, the company as last read, the file's time and size then, and
    // the last display request acted on.
    std::wstring companyFile;
    pelmark::sim::Company company;
    pelmark::sim::FileStamp stamp;
    long lastDisplay = 0;
} g;

constexpr COLORREF kFormColor = RGB(232, 239, 247);
constexpr COLORREF kHeadColor = RGB(205, 216, 230);
constexpr COLORREF kFormNameColor = RGB(40, 70, 120);

struct Kind {
    const wchar_t* key;
    const char* companyKind;  // the kind's name in the company file and in display requests
    const wchar_t* title;
    const wchar_t* formName;
    const wchar_t* numberLabel;
    const wchar_t* after[2];  // the header fields after the number
};
// clang-format off
const Kind kKinds[] = {
    {L"invoice", "Invoice", L"Create Invoices - Accounts Receivable", L"Invoice", L"Invoice #",
     {L"Bill To", L"P.O. No."}},
    {L"estimate", "Estimate", L"Create Estimates", L"Estimate", L"Estimate #",
     {L"Name / Address", L"Rep"}},
    {L"salesorder", "SalesOrder", L"Create Sales Orders", L"Sales Order", L"S.O. No.",
     {L"Name / Address", L"P.O. No."}},
    {L"salesreceipt", "SalesReceipt", L"Enter Sales Receipts", L"Sales Receipt", L"Sale No.",
     {L"Sold To", L"Check No."}},
    {L"purchaseorder", "PurchaseOrder", L"Create Purchase Orders", L"Purchase Order", L"P.O. No.",
     {L"Vendor", L"Ship To"}},
};
// clang-format on

const Kind* FindKind(const std::wstring& key) {
    for (const Kind& k : kKinds)
        if (key == k.key) return &k;
    return nullptr;
}

// Title formats of QuickBooks versions; %s is the company name.
struct Version {
    const wchar_t* key;
    const wchar_t* format;
};
const Version kVersions[] = {
    {L"pro2014", L"%s  - QuickBooks Pro 2014"},
    {L"enterprise18", L"%s  - Intuit QuickBooks Enterprise Solutions: Accountant 18.0"},
    {L"pro2004", L"%s - QuickBooks: Pro Edition 2004"},
    {L"solutions5", L"%s - QuickBooks: Enterprise Solutions 5.0"},
    {L"old", L"%s - QuickBooks Pro"},
    {L"premier2016", L"%s  - QuickBooks Premier 2016"},
    {L"pro2019", L"%s  - QuickBooks Desktop Pro 2019(multi-user)(Admin)"},
    {L"accountant2019", L"%s  - QuickBooks Accountant Desktop 2019"},
    {L"enterprise24",
     L"%s  - Intuit QuickBooks Enterprise Solutions: Manufacturing and Wholesale 24.0"},
    {L"premierplus2024", L"%s  - QuickBooks Desktop Premier Plus 2024"},
};

std::vector<std::wstring> Split(const std::wstring& s, wchar_t sep) {
    std::vector<std::wstring> parts;
    size_t start = 0;
    for (;;) {
        size_t end = s.find(sep, start);
        parts.push_back(s.substr(start, end - start));
        if (end == std::wstring::npos) return parts;
        start = end + 1;
    }
}

struct TextSetting {
    const wchar_t* key;
    std::wstring WindowSpec::*text;
};
const TextSetting kTextSettings[] = {
    {L"customer", &WindowSpec::customer}, {L"class", &WindowSpec::cls},
    {L"template", &WindowSpec::templ},    {L"date", &WindowSpec::date},
    {L"number", &WindowSpec::number},     {L"title", &WindowSpec::title},
};
struct FlagSetting {
    const wchar_t* key;
    bool WindowSpec::*flag;
};
const FlagSetting kFlagSettings[] = {
    {L"maximized", &WindowSpec::maximized},
    {L"stubborn", &WindowSpec::stubborn},
    {L"unsaved", &WindowSpec::unsaved},
};

bool ParseSetting(const std::wstring& key, const std::wstring& value, WindowSpec* spec) {
    for (const TextSetting& t : kTextSettings) {
        if (key != t.key) continue;
        spec->*t.text = value;
        return true;
    }
    for (const FlagSetting& f : kFlagSettings) {
        if (key != f.key) continue;
        spec->*f.flag = true;
        return true;
    }
    if (key == L"extra") {
        spec->extra = value;
        spec->hasExtra = true;
        return true;
    }
    if (key == L"line") {
        std::vector<std::wstring> cells = Split(value, L'|');
        Line line;
        for (size_t c = 0; c < cells.size() && c < 5; ++c) line.cells[c] = cells[c];
        spec->lines.push_back(line);
        return true;
    }
    return false;
}

bool ParseSettings(const std::vector<std::wstring>& parts, WindowSpec* spec) {
    for (size_t i = 1; i < parts.size(); ++i) {
        size_t eq = parts[i].find(L'=');
        std::wstring value = eq == std::wstring::npos ? L"" : parts[i].substr(eq + 1);
        if (!ParseSetting(parts[i].substr(0, eq), value, spec)) return false;
    }
    return true;
}

bool ParseWindow(const std::wstring& text, WindowSpec* spec) {
    std::vector<std::wstring> parts = Split(text, L';');
    const Kind* kind = FindKind(parts[0]);
    if (!kind) return false;
    spec->kind = parts[0];
    spec->title = kind->title;
    return ParseSettings(parts, spec);
}

std::wstring Wide(const std::string& text) {
    return pelmark::WideFromUtf8(text);
}

// Reads the company file and its change log (Company::LoadFile reads both with every sharing
// mode, so that qbsim's rename of a new file over the company is not kept out).
bool LoadCompany() {
    const std::string path = pelmark::Utf8FromWide(g.companyFile.c_str(), g.companyFile.size());
    const pelmark::sim::FileStamp stamp = pelmark::sim::StampOf(path);
    pelmark::sim::Company company;
    if (!stamp.ok || !company.LoadFile(path).ok()) return false;
    g.company = std::move(company);
    g.stamp = stamp;
    return true;
}

// A new base file means reading it all; records qbsim appended to the log are read alone.
bool CompanyFileChanged() {
    const std::string path = pelmark::Utf8FromWide(g.companyFile.c_str(), g.companyFile.size());
    const pelmark::sim::FileStamp now = pelmark::sim::StampOf(path);
    if (!now.ok) return false;
    if (now != g.stamp) return LoadCompany();
    switch (g.company.ReadLogTail(path)) {
        case pelmark::sim::Company::Tail::Same:
            return false;
        case pelmark::sim::Company::Tail::Applied:
            return true;
        default:
            return LoadCompany();
    }
}

// The window of a stored transaction, as QuickBooks lays it out for the kind.
std::optional<WindowSpec> SpecFromCompany(const Kind& kind, const std::string& txnID) {
    auto txn = pelmark::sim::ReadTxnForScreen(g.company, kind.companyKind, txnID);
    if (!txn) return std::nullopt;
    WindowSpec spec;
    spec.kind = kind.key;
    spec.title = kind.title;
    spec.customer = Wide(txn->header.customer);
    spec.cls = Wide(txn->header.className);
    spec.templ = Wide(txn->header.templateName);
    spec.date = Wide(txn->header.date);
    spec.number = Wide(txn->header.number);
    for (const pelmark::sim::ScreenLine& l : txn->lines)
        spec.lines.push_back(
            {{Wide(l.item), Wide(l.desc), Wide(l.quantity), Wide(l.rate), Wide(l.amount)}});
    return spec;
}

// KIND:REFNUMBER, then settings as in --window.
bool ParseOpen(const std::wstring& text, WindowSpec* spec) {
    std::vector<std::wstring> parts = Split(text, L';');
    size_t colon = parts[0].find(L':');
    if (colon == std::wstring::npos || !g.company.IsLoaded()) return false;
    const Kind* kind = FindKind(parts[0].substr(0, colon));
    if (!kind) return false;
    std::wstring ref = parts[0].substr(colon + 1);
    std::string txnID = pelmark::sim::TxnIDByRefNumber(
        g.company, kind->companyKind, pelmark::Utf8FromWide(ref.c_str(), ref.size()));
    auto found = SpecFromCompany(*kind, txnID);
    if (!found) return false;
    *spec = std::move(*found);
    return ParseSettings(parts, spec);
}

void WriteCount() {
    if (g.countFile.empty()) return;
    HANDLE h = CreateFileW(g.countFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return;
    char text[16];
    int n = std::snprintf(text, sizeof text, "%d\n", g.saveCount);
    DWORD written = 0;
    WriteFile(h, text, static_cast<DWORD>(n), &written, nullptr);
    CloseHandle(h);
}

HWND Control(HWND parent, const wchar_t* cls, const std::wstring& text, DWORD style, int id, int x,
             int y, int w, int h, HFONT font) {
    HWND wnd =
        CreateWindowExW(0, cls, text.c_str(), WS_CHILD | WS_VISIBLE | style, x, y, w, h, parent,
                        reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), g.instance, nullptr);
    SendMessageW(wnd, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
    return wnd;
}

HWND Label(HWND parent, const std::wstring& text, int x, int y, int w) {
    return Control(parent, L"STATIC", text, SS_LEFT, -1, x, y + 3, w, 16, g.font);
}

HWND Field(HWND parent, const std::wstring& text, int id, int x, int y, int w) {
    return Control(parent, L"EDIT", text, WS_BORDER | WS_TABSTOP | ES_AUTOHSCROLL, id, x, y, w, 21,
                   g.font);
}

int LineRows(const WindowSpec& s) {
    return std::clamp(static_cast<int>(s.lines.size()), kMinLineRows, kMaxLineRows);
}

// The controls of a transaction window. Their creation order is the tab order: the customer
// (or vendor) first, the template from the third field on, then the date and the number, as
// QuickBooks' forms have them; the label before a field carries its Alt accelerator.
void BuildForm(HWND wnd, Form* form) {
    const WindowSpec& s = form->spec;
    const Kind* kind = FindKind(s.kind);
    bool vendor = s.kind == L"purchaseorder";
    int id = kIdHeaderFirst;

    // QuickBooks' forms have one edit control, their first Edit child, holding the text of the
    // field with the focus; a program that reads fields by window messages reads that one.
    form->editor = CreateWindowExW(0, L"EDIT", L"", WS_CHILD | ES_AUTOHSCROLL, 0, 0, 0, 0, wnd,
                                   reinterpret_cast<HMENU>(static_cast<INT_PTR>(kIdEditor)),
                                   g.instance, nullptr);

    // Top row: customer, class, template (a purchase order has its drop-ship field before it).
    const wchar_t* firstLabel = L"Customer:&Job";
    if (g.oldVersion) firstLabel = L"&Customer:Job";
    if (vendor) firstLabel = L"&Vendor";
    Label(wnd, firstLabel, 12, 12, 82);
    HWND first = Field(wnd, s.customer, id++, 96, 12, 220);
    Label(wnd, L"Class", 330, 12, 34);
    Field(wnd, s.cls, id++, 366, 12, 110);
    int x = 490;
    if (vendor) {
        Label(wnd, L"Drop Ship To", x, 12, 70);
        Field(wnd, L"", id++, x + 72, 12, 100);
        x += 186;
    }
    Label(wnd, L"Template", x + (vendor ? 0 : 60), 12, 52);
    Field(wnd, s.templ, id++, x + (vendor ? 54 : 114), 12, vendor ? 110 : 170);

    // The form's name, and its date and number on the right.
    Control(wnd, L"STATIC", kind->formName, SS_LEFT, -1, 12, 46, 300, 34, g.big);
    int y = 52;
    if (s.hasExtra) {
        Label(wnd, L"Ship Via", 348, y, 50);
        Field(wnd, s.extra, id++, 400, y, 90);
    }
    Label(wnd, L"Date", 510, y, 30);
    Field(wnd, s.date, id++, 542, y, 90);
    Label(wnd, kind->numberLabel, 644, y, 58);
    Field(wnd, s.number, id++, 704, y, 80);

    // Address and reference fields.
    Label(wnd, kind->after[0], 12, 92, 200);
    Field(wnd, L"", id++, 12, 110, 300);
    Label(wnd, kind->after[1], 544, 92, 120);
    Field(wnd, L"", id++, 544, 110, 120);

    // The lines: a header row, then rows of cells.
    const int rows = LineRows(s);
    static const wchar_t* const kColumns[] = {L"Item", L"Description", L"Qty", L"Rate", L"Amount"};
    static const int kWidths[] = {130, 316, 60, 120, 146};
    int top = 148;
    x = 12;
    for (int c = 0; c < 5; ++c) {
        Control(wnd, L"STATIC", kColumns[c], SS_CENTER | WS_BORDER, -1, x, top, kWidths[c], 20,
                g.bold);
        x += kWidths[c] - 1;
    }
    for (int r = 0; r < rows; ++r) {
        x = 12;
        for (int c = 0; c < 5; ++c) {
            std::wstring text = r < static_cast<int>(s.lines.size()) ? s.lines[r].cells[c] : L"";
            DWORD align = c >= 2 ? ES_RIGHT : ES_LEFT;
            Control(wnd, L"EDIT", text, WS_BORDER | WS_TABSTOP | ES_AUTOHSCROLL | align,
                    LineCellId(r, c), x, top + 19 + r * kRowHeight, kWidths[c], 22, g.font);
            x += kWidths[c] - 1;
        }
    }

    // "Save & Close" is Alt+A in QuickBooks, "Save & New" Alt+S.
    int by = top + 19 + rows * kRowHeight + 24;
    Control(wnd, L"BUTTON", L"S&ave && Close", BS_PUSHBUTTON | WS_TABSTOP, kIdSaveClose, 460, by,
            104, 26, g.font);
    Control(wnd, L"BUTTON", L"&Save && New", BS_PUSHBUTTON | WS_TABSTOP, kIdSaveNew, 570, by, 104,
            26, g.font);
    Control(wnd, L"BUTTON", s.unsaved ? L"Revert" : L"Clear", BS_PUSHBUTTON | WS_TABSTOP, kIdClear,
            680, by, 104, 26, g.font);
    form->lastFocus = first;
}

constexpr const wchar_t* kDialogClass = L"FakeQbDialog";
constexpr int kIdDialogOk = 4001;

// A modal dialog as QuickBooks shows one: owned by the main window, which it disables until it
// is answered (OK, or closed).
void ShowDialog() {
    std::wstring title = std::exchange(g.dialogTitle, std::wstring());
    g.dialog = CreateWindowExW(0, kDialogClass, title.c_str(),
                               WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_VISIBLE, 300, 220, 360, 150,
                               g.frame, nullptr, g.instance, nullptr);
    Control(g.dialog, L"STATIC", L"You have changed the transaction. Do you want to record it?",
            SS_LEFT, -1, 16, 16, 320, 34, g.font);
    Control(g.dialog, L"BUTTON", L"OK", BS_DEFPUSHBUTTON | WS_TABSTOP, kIdDialogOk, 136, 66, 80, 26,
            g.font);
    EnableWindow(g.frame, FALSE);
    SetForegroundWindow(g.dialog);
    UpdateWindow(g.dialog);
}

LRESULT CALLBACK DialogProc(HWND wnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    if ((msg == WM_COMMAND && LOWORD(wParam) == kIdDialogOk) || msg == WM_CLOSE) {
        EnableWindow(g.frame, TRUE);
        DestroyWindow(wnd);
        g.dialog = nullptr;
        SetForegroundWindow(g.frame);
        return 0;
    }
    return DefWindowProcW(wnd, msg, wParam, lParam);
}

LRESULT CALLBACK FormProc(HWND wnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    auto* form = reinterpret_cast<Form*>(GetWindowLongPtrW(wnd, GWLP_USERDATA));
    switch (msg) {
        case WM_CREATE: {
            auto* cs = reinterpret_cast<CREATESTRUCTW*>(lParam);
            auto* mdi = static_cast<MDICREATESTRUCTW*>(cs->lpCreateParams);
            form = new Form{*reinterpret_cast<const WindowSpec*>(mdi->lParam)};
            SetWindowLongPtrW(wnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(form));
            BuildForm(wnd, form);
            break;
        }
        case WM_NCDESTROY:
            delete form;
            SetWindowLongPtrW(wnd, GWLP_USERDATA, 0);
            break;
        case WM_SETFOCUS:
            // The MDI client hands the focus to the active child; QuickBooks puts it back in
            // the field the user was in.
            DefMDIChildProcW(wnd, msg, wParam, lParam);
            if (form && form->lastFocus && IsWindow(form->lastFocus)) SetFocus(form->lastFocus);
            return 0;
        case WM_NEXTDLGCTL: {
            // IsDialogMessage asks for this when a label's accelerator is pressed: first the
            // label itself, then the next control, that is the field after the label. A plain
            // window has no dialog procedure to answer it.
            if (!form) return 0;
            HWND to = nullptr;
            if (LOWORD(lParam)) {
                HWND ctl = reinterpret_cast<HWND>(wParam);
                if (GetWindowLongW(ctl, GWL_STYLE) & WS_TABSTOP)
                    to = ctl;
                else
                    form->navFrom = ctl;
            } else {
                HWND from = form->navFrom ? form->navFrom : GetFocus();
                form->navFrom = nullptr;
                to = GetNextDlgTabItem(wnd, from, wParam != 0);
            }
            if (to) SetFocus(to);
            return 0;
        }
        case WM_COMMAND:
            if ((HIWORD(wParam) == EN_SETFOCUS || HIWORD(wParam) == EN_CHANGE) && form &&
                LOWORD(wParam) != kIdEditor) {
                auto field = reinterpret_cast<HWND>(lParam);
                if (HIWORD(wParam) == EN_SETFOCUS) form->lastFocus = field;
                if (field == GetFocus()) {
                    wchar_t text[256] = {};
                    GetWindowTextW(field, text, 256);
                    SetWindowTextW(form->editor, text);
                }
            } else if (LOWORD(wParam) == kIdSaveClose && HIWORD(wParam) == BN_CLICKED) {
                ++g.saveCount;
                WriteCount();
                if (!g.dialogTitle.empty()) {
                    ShowDialog();
                    return 0;
                }
                // Closed once the button has finished its click, not from inside it.
                if (form && !form->spec.stubborn) PostMessageW(wnd, kMsgClose, 0, 0);
            }
            return 0;
        case kMsgClose:
            SendMessageW(g.client, WM_MDIDESTROY, reinterpret_cast<WPARAM>(wnd), 0);
            return 0;
        case WM_CTLCOLORSTATIC: {
            HDC dc = reinterpret_cast<HDC>(wParam);
            auto ctl = reinterpret_cast<HWND>(lParam);
            bool head = GetWindowLongW(ctl, GWL_STYLE) & WS_BORDER;
            SetBkColor(dc, head ? kHeadColor : kFormColor);
            if (reinterpret_cast<HFONT>(SendMessageW(ctl, WM_GETFONT, 0, 0)) == g.big)
                SetTextColor(dc, kFormNameColor);
            return reinterpret_cast<LRESULT>(head ? g.headBrush : g.formBrush);
        }
    }
    return DefMDIChildProcW(wnd, msg, wParam, lParam);
}

HMENU BuildMenu(HMENU* windowMenu) {
    HMENU bar = CreateMenu();
    static const wchar_t* const kMenus[] = {L"&File",      L"&Edit",    L"&View",      L"&Lists",
                                            L"Favori&tes", L"&Company", L"C&ustomers", L"Vend&ors",
                                            L"Emplo&yees", L"&Banking", L"&Reports",   L"&Window",
                                            L"&Help"};
    for (const wchar_t* name : kMenus) {
        HMENU popup = CreatePopupMenu();
        if (std::wcscmp(name, L"&File") == 0) AppendMenuW(popup, MF_STRING, IDCANCEL, L"E&xit");
        if (std::wcscmp(name, L"&Window") == 0) *windowMenu = popup;
        AppendMenuW(bar, MF_POPUP, reinterpret_cast<UINT_PTR>(popup), name);
    }
    return bar;
}

void ShowRequestedTransactions();

LRESULT CALLBACK FrameProc(HWND wnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    switch (msg) {
        case WM_CREATE: {
            // The MDI client keeps the frame's title as it was here and, while a child is
            // maximized, shows "title - [child title]", as QuickBooks' main window does.
            CLIENTCREATESTRUCT ccs = {};
            ccs.hWindowMenu =
                reinterpret_cast<HMENU>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams);
            ccs.idFirstChild = kIdFirstMdiChild;
            g.client =
                CreateWindowExW(WS_EX_CLIENTEDGE, L"MDICLIENT", nullptr,
                                WS_CHILD | WS_CLIPCHILDREN | WS_VSCROLL | WS_HSCROLL | WS_VISIBLE,
                                0, 0, 0, 0, wnd, nullptr, g.instance, &ccs);
            return 0;
        }
        case WM_COMMAND:
            if (LOWORD(wParam) == IDCANCEL) {
                DestroyWindow(wnd);
                return 0;
            }
            break;
        case WM_TIMER:
            if (wParam == kDisplayTimer) ShowRequestedTransactions();
            return 0;
        case WM_DESTROY:
            PostQuitMessage(0);
            return 0;
    }
    return DefFrameProcW(wnd, g.client, msg, wParam, lParam);
}

bool ParseArgs(int argc, wchar_t** argv) {
    std::wstring company, version = L"pro2014";
    for (int i = 1; i < argc; ++i) {
        std::wstring a = argv[i];
        if (i + 1 >= argc) return false;
        std::wstring v = argv[++i];
        if (a == L"--title") {
            g.title = v;
        } else if (a == L"--company") {
            company = v;
        } else if (a == L"--version") {
            version = v;
        } else if (a == L"--class") {
            g.frameClass = v;
        } else if (a == L"--dialog") {
            g.dialogTitle = v;
        } else if (a == L"--count-file") {
            g.countFile = v;
        } else if (a == L"--window" || a == L"--open") {
            WindowSpec spec;
            if (!(a == L"--open" ? ParseOpen(v, &spec) : ParseWindow(v, &spec))) return false;
            g.windows.push_back(spec);
        } else if (a == L"--company-file") {
            g.companyFile = v;
            if (!LoadCompany()) return false;
        } else {
            return false;
        }
    }
    if (company.empty() && g.company.IsLoaded())
        company = Wide(pelmark::sim::ChildText(g.company.CompanyInfo(), "CompanyName"));
    if (company.empty()) company = L"Company";
    if (g.title.empty()) {
        const Version* found = nullptr;
        for (const Version& ver : kVersions)
            if (version == ver.key) found = &ver;
        if (!found) return false;
        g.title = found->format;
        g.title.replace(g.title.find(L"%s"), 2, company);
    }
    // The oldest versions show no version number in the title.
    g.oldVersion = g.title.find_first_of(L"0123456789") == std::wstring::npos;
    return true;
}

void RegisterClasses() {
    WNDCLASSEXW wc = {};
    wc.cbSize = sizeof wc;
    wc.hInstance = g.instance;
    wc.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    wc.hIcon = LoadIconW(nullptr, reinterpret_cast<LPCWSTR>(IDI_APPLICATION));
    // The class QuickBooks' main window has (or a decoy's).
    wc.lpszClassName = g.frameClass.c_str();
    wc.lpfnWndProc = FrameProc;
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_APPWORKSPACE + 1);
    RegisterClassExW(&wc);

    wc.lpszClassName = kFormClass;
    wc.lpfnWndProc = FormProc;
    wc.hbrBackground = g.formBrush;
    RegisterClassExW(&wc);

    wc.lpszClassName = kDialogClass;
    wc.lpfnWndProc = DialogProc;
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    RegisterClassExW(&wc);
}

HWND OpenForm(const WindowSpec& spec) {
    MDICREATESTRUCTW mcs = {};
    mcs.szClass = kFormClass;
    mcs.szTitle = spec.title.c_str();
    mcs.hOwner = g.instance;
    mcs.x = mcs.y = CW_USEDEFAULT;
    mcs.cx = 812;
    mcs.cy = 372 + (LineRows(spec) - kMinLineRows) * kRowHeight;
    mcs.lParam = reinterpret_cast<LPARAM>(&spec);
    auto wnd = reinterpret_cast<HWND>(
        SendMessageW(g.client, WM_MDICREATE, 0, reinterpret_cast<LPARAM>(&mcs)));
    // Wine leaves the frame's title alone for a child created with WS_MAXIMIZE; maximized
    // afterwards, it shows "title - [child title]" as Windows does.
    if (wnd && spec.maximized)
        SendMessageW(g.client, WM_MDIMAXIMIZE, reinterpret_cast<WPARAM>(wnd), 0);
    return wnd;
}

long LastDisplaySequence() {
    long last = 0;
    for (const pelmark::sim::DisplayRequest& r : g.company.DisplayRequests())
        last = std::max(last, r.sequence);
    return last;
}

// The windows showing a transaction of a kind and number: a display request replaces them.
void CloseWindowsOf(const WindowSpec& spec) {
    std::vector<HWND> doomed;
    for (HWND w = GetWindow(g.client, GW_CHILD); w; w = GetWindow(w, GW_HWNDNEXT)) {
        wchar_t cls[32] = {};
        GetClassNameW(w, cls, 32);
        if (std::wcscmp(cls, kFormClass) != 0) continue;
        auto* form = reinterpret_cast<Form*>(GetWindowLongPtrW(w, GWLP_USERDATA));
        if (form && form->spec.kind == spec.kind && form->spec.number == spec.number)
            doomed.push_back(w);
    }
    for (HWND w : doomed) SendMessageW(g.client, WM_MDIDESTROY, reinterpret_cast<WPARAM>(w), 0);
}

// QuickBooks shows a transaction when an SDK program asks it to; qbsim records the request in
// the company file, which is read again whenever it changed.
void ShowRequestedTransactions() {
    if (!CompanyFileChanged()) return;
    for (const pelmark::sim::DisplayRequest& r : g.company.DisplayRequests()) {
        if (r.sequence <= g.lastDisplay) continue;
        g.lastDisplay = r.sequence;
        const Kind* kind = nullptr;
        for (const Kind& k : kKinds)
            if (r.txnType == k.companyKind) kind = &k;
        std::optional<WindowSpec> spec = kind ? SpecFromCompany(*kind, r.txnID) : std::nullopt;
        if (!spec) continue;
        CloseWindowsOf(*spec);
        OpenForm(*spec);
    }
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    // No message box: a test waiting for the main window sees the program end at once.
    if (!argv || !ParseArgs(argc, argv)) {
        std::fputs("fakeqb.exe: bad command line\n", stderr);
        return 2;
    }
    LocalFree(argv);
    g.instance = instance;
    g.font = CreateFontW(-11, 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY,
                         0, L"Tahoma");
    g.bold = CreateFontW(-11, 0, 0, 0, FW_BOLD, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY,
                         0, L"Tahoma");
    g.big = CreateFontW(-26, 0, 0, 0, FW_BOLD, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0,
                        L"Arial");
    g.formBrush = CreateSolidBrush(kFormColor);
    g.headBrush = CreateSolidBrush(kHeadColor);
    RegisterClasses();
    WriteCount();

    HMENU windowMenu = nullptr;
    HMENU menu = BuildMenu(&windowMenu);
    g.frame = CreateWindowExW(0, g.frameClass.c_str(), g.title.c_str(),
                              WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, 20, 20, 1080, 640, nullptr,
                              menu, instance, windowMenu);
    if (!g.frame) return 1;
    ShowWindow(g.frame, SW_SHOW);
    for (const WindowSpec& spec : g.windows) OpenForm(spec);
    if (!g.companyFile.empty()) {
        g.lastDisplay = LastDisplaySequence();
        SetTimer(g.frame, kDisplayTimer, kDisplayPollMs, nullptr);
    }
    UpdateWindow(g.frame);
    SetForegroundWindow(g.frame);

    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
        if (g.dialog && IsDialogMessageW(g.dialog, &msg)) continue;
        if (TranslateMDISysAccel(g.client, &msg)) continue;
        // Tab, Shift+Tab and the Alt accelerators of the labels and buttons work in the
        // active transaction window as in a dialog box.
        auto active = reinterpret_cast<HWND>(SendMessageW(g.client, WM_MDIGETACTIVE, 0, 0));
        if (active && IsDialogMessageW(active, &msg)) continue;
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
    return static_cast<int>(msg.wParam);
}
