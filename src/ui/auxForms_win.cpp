// The auxiliary forms as Win32 windows built in code: splash, agreement, read-me, internal and
// About. Each form is a list of controls laid out in dialog units; the modal ones run their own
// message loop with the owner disabled, as a dialog box does.
#include <windows.h>

#include <commctrl.h>  // after windows.h, whose types it uses

#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "app/version.h"
#include "app/wideText.h"
#include "screen/WindowsStuff.h"
#include "ui/auxForms.h"

namespace pelmark::ui {
namespace {

constexpr wchar_t kFormClass[] = L"PelmarkAuxForm";
constexpr int kFirstControlId = 100;
constexpr COLORREF kWarningColor = RGB(192, 0, 0);
constexpr COLORREF kTitleColor = RGB(0, 51, 102);
// The classic hyperlink blue: COLOR_HOTLIGHT is pale grey under some themes and under Wine.
constexpr COLORREF kLinkColor = RGB(0, 102, 204);
constexpr int kSplashBand = 5;  // dialog units of the coloured band across the splash's top

// How each form ended.
enum FormResult : int { kNone = 0, kAccepted, kDeclined, kReturned, kClosed, kOk };

enum class Kind {
    Button,
    DefaultButton,
    Label,
    Title,      // the product name, large and bold
    Link,       // a label that starts something when clicked
    Frame,      // an etched rectangle; clickable when it has a handler
    Separator,  // an etched line
    TextBox,    // a read-only text with a scroll bar
    List,       // a read-only table: the first row of `table` holds the headings
};

struct AuxWindow;
using Handler = std::function<void(AuxWindow&)>;

// One control: its kind, name, text, place in dialog units and what a click does.
struct ControlArgs {
    ControlArgs(Kind k, std::string n, std::string t, int left, int top, int width, int height,
                Handler click = {})
        : kind(k),
          name(std::move(n)),
          text(std::move(t)),
          x(left),
          y(top),
          w(width),
          h(height),
          onClick(std::move(click)) {}
    // Shown in the warning colour.
    ControlArgs Warn(bool on) && {
        warn = on;
        return std::move(*this);
    }
    // A long path is shortened in its middle.
    ControlArgs Path() && {
        path = true;
        return std::move(*this);
    }
    ControlArgs Table(std::vector<std::vector<std::string>> rows) && {
        table = std::move(rows);
        return std::move(*this);
    }

    Kind kind;
    std::string name;
    std::string text;
    int x, y, w, h;
    Handler onClick;
    bool warn = false;
    bool path = false;
    std::vector<std::vector<std::string>> table;
};

struct FormArgs {
    FormArgs(std::string n, std::string c, int w, int h)
        : name(std::move(n)), caption(std::move(c)), width(w), height(h) {}

    std::string name;  // frmAbout, ...: the name the traces give
    std::string caption;
    int width, height;    // client area in dialog units
    bool splash = false;  // no caption or frame buttons, window-coloured background
    bool closeBox = true;
    std::string focus;  // the control that has the focus first; default: the default button
    std::vector<ControlArgs> controls;
    // The close box, Alt+F4 and Esc; unset: they do nothing.
    Handler onClose;
};

// A form while its window exists. The window owns it (deleted when the window goes) except
// while it is held: during its creation, and while a modal loop runs on it, which must still
// read it after the window is gone.
struct AuxWindow {
    AuxWindow(App& a, FormArgs f) : app(a), args(std::move(f)) {}
    ~AuxWindow() {
        for (HFONT font : {font, titleFont, linkFont})
            if (font) DeleteObject(font);
    }
    AuxWindow(const AuxWindow&) = delete;
    AuxWindow& operator=(const AuxWindow&) = delete;

    App& app;
    FormArgs args;
    HWND wnd = nullptr;
    HWND owner = nullptr;
    std::vector<HWND> controls;
    HFONT font = nullptr, titleFont = nullptr, linkFont = nullptr;
    UINT dpi = 96;
    int baseX = 6, baseY = 13;  // dialog base units in pixels
    bool held = false;
    bool done = false;
    bool busy = false;  // a handler runs; the debug log it writes lets other messages run
    int result = kNone;
    std::exception_ptr error;  // thrown by a handler; rethrown once the modal loop is left

    int Px(int du) const { return MulDiv(du, baseX, 4); }
    int Py(int du) const { return MulDiv(du, baseY, 8); }
    HWND Control(std::string_view name) const {
        for (size_t i = 0; i < controls.size(); ++i)
            if (args.controls[i].name == name) return controls[i];
        return nullptr;
    }
    int IndexOf(HWND control) const {
        for (size_t i = 0; i < controls.size(); ++i)
            if (controls[i] == control) return static_cast<int>(i);
        return -1;
    }
    void End(int how) {
        result = how;
        done = true;
    }
};

AuxWindow* FormOf(HWND wnd) {
    return reinterpret_cast<AuxWindow*>(GetWindowLongPtrW(wnd, GWLP_USERDATA));
}

// GetDpiForWindow exists from Windows 10 1607 on; the program also runs on older Windows.
UINT DpiOf(HWND wnd) {
    using GetDpi = UINT(WINAPI*)(HWND);
    auto get = reinterpret_cast<GetDpi>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"user32.dll"), "GetDpiForWindow")));
    if (get != nullptr && wnd != nullptr) {
        if (UINT dpi = get(wnd)) return dpi;
    }
    HDC dc = GetDC(nullptr);
    int dpi = GetDeviceCaps(dc, LOGPIXELSY);
    ReleaseDC(nullptr, dc);
    return dpi > 0 ? static_cast<UINT>(dpi) : 96;
}

// The message font of the system, at the form's DPI, and its bold and underlined variants.
void MakeFonts(AuxWindow& f) {
    for (HFONT* font : {&f.font, &f.titleFont, &f.linkFont}) {
        if (*font) DeleteObject(*font);
        *font = nullptr;
    }
    NONCLIENTMETRICSW metrics = {};
    metrics.cbSize = sizeof metrics;
    SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0);
    LOGFONTW lf = metrics.lfMessageFont;
    // The system's metrics are at the system DPI; a per-monitor aware program scales them.
    lf.lfHeight = MulDiv(lf.lfHeight, static_cast<int>(f.dpi), static_cast<int>(DpiOf(nullptr)));
    f.font = CreateFontIndirectW(&lf);
    LOGFONTW link = lf;
    link.lfUnderline = TRUE;
    f.linkFont = CreateFontIndirectW(&link);
    LOGFONTW title = lf;
    title.lfHeight = lf.lfHeight * 2;
    title.lfWeight = FW_BOLD;
    f.titleFont = CreateFontIndirectW(&title);

    // Dialog base units of the font, as Windows computes them for a dialog box.
    HDC dc = GetDC(nullptr);
    HGDIOBJ old = SelectObject(dc, f.font);
    TEXTMETRICW tm = {};
    GetTextMetricsW(dc, &tm);
    SIZE size = {};
    const wchar_t* letters = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    GetTextExtentPoint32W(dc, letters, 52, &size);
    SelectObject(dc, old);
    ReleaseDC(nullptr, dc);
    f.baseX = (size.cx / 26 + 1) / 2;
    f.baseY = tm.tmHeight;
}

void LayOut(AuxWindow& f) {
    for (size_t i = 0; i < f.controls.size(); ++i) {
        const ControlArgs& c = f.args.controls[i];
        HFONT font = c.kind == Kind::Title  ? f.titleFont
                     : c.kind == Kind::Link ? f.linkFont
                                            : f.font;
        SendMessageW(f.controls[i], WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
        SetWindowPos(f.controls[i], nullptr, f.Px(c.x), f.Py(c.y), f.Px(c.w), f.Py(c.h),
                     SWP_NOZORDER | SWP_NOACTIVATE);
        if (c.kind == Kind::List) FitListColumns(f.controls[i]);
    }
    InvalidateRect(f.wnd, nullptr, TRUE);
}

HWND CreateControl(AuxWindow& f, size_t i) {
    const ControlArgs& c = f.args.controls[i];
    const wchar_t* cls = L"STATIC";
    DWORD style = WS_CHILD | WS_VISIBLE;
    DWORD exStyle = 0;
    switch (c.kind) {
        case Kind::Button:
            cls = L"BUTTON";
            style |= BS_PUSHBUTTON | WS_TABSTOP;
            break;
        case Kind::DefaultButton:
            cls = L"BUTTON";
            style |= BS_DEFPUSHBUTTON | WS_TABSTOP;
            break;
        case Kind::Label:
        case Kind::Title:
            // Paths and names may hold "&", which is no mnemonic here.
            style |= SS_LEFT | SS_NOPREFIX | (c.path ? SS_PATHELLIPSIS : 0);
            break;
        case Kind::Link:
            style |= SS_LEFT | SS_NOPREFIX | SS_NOTIFY | (c.path ? SS_PATHELLIPSIS : 0);
            break;
        case Kind::Frame:
            style |= SS_ETCHEDFRAME;
            break;
        case Kind::Separator:
            style |= SS_ETCHEDHORZ;
            break;
        case Kind::TextBox:
            cls = L"EDIT";
            style |= ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL | WS_VSCROLL | WS_TABSTOP;
            exStyle = WS_EX_CLIENTEDGE;
            break;
        case Kind::List:
            cls = WC_LISTVIEWW;
            style |= LVS_REPORT | LVS_SHOWSELALWAYS | LVS_NOSORTHEADER | WS_TABSTOP;
            exStyle = WS_EX_CLIENTEDGE;
            break;
    }
    HWND wnd = CreateWindowExW(
        exStyle, cls, c.kind == Kind::TextBox ? L"" : WideFromUtf8(c.text).c_str(), style, 0, 0, 0,
        0, f.wnd, reinterpret_cast<HMENU>(static_cast<INT_PTR>(kFirstControlId + i)),
        GetModuleHandleW(nullptr), nullptr);
    if (wnd && c.kind == Kind::TextBox) {
        // An edit box takes 32K characters unless told otherwise; an agreement may be longer.
        SendMessageW(wnd, EM_SETLIMITTEXT, 0, 0);
        SetWindowTextW(wnd, WideFromUtf8(c.text).c_str());
    }
    if (wnd && c.kind == Kind::List && !c.table.empty()) {
        SendMessageW(wnd, LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
        AddListColumns(wnd, c.table.front(), 48);
        for (size_t row = 1; row < c.table.size(); ++row) AddListRow(wnd, c.table[row]);
    }
    return wnd;
}

// The control standing at a point of the form's client area that a click on the form itself
// reaches: a frame with a handler (labels over it let clicks through to the form).
int ClickableFrameAt(const AuxWindow& f, POINT pt) {
    for (size_t i = 0; i < f.controls.size(); ++i) {
        const ControlArgs& c = f.args.controls[i];
        if (c.kind != Kind::Frame || !c.onClick) continue;
        RECT r;
        GetWindowRect(f.controls[i], &r);
        MapWindowPoints(nullptr, f.wnd, reinterpret_cast<POINT*>(&r), 2);
        if (PtInRect(&r, pt)) return static_cast<int>(i);
    }
    return -1;
}

// Runs a click or close handler. The form is held meanwhile: the debug lines the handler writes
// let other messages run, and one of them may destroy the window. A handler's exception ends
// the form and is kept for whoever shows it. The form must not be touched after this call.
void RunHandler(AuxWindow& f, const Handler& handler) {
    if (!handler || f.busy || f.done) return;
    const bool wasHeld = f.held;
    f.busy = f.held = true;
    try {
        handler(f);
    } catch (...) {
        if (!f.error) f.error = std::current_exception();
        f.done = true;
    }
    f.busy = false;
    f.held = wasHeld;
    if (!f.held && f.wnd == nullptr) delete &f;
}

LRESULT Handle(AuxWindow& f, UINT msg, WPARAM wp, LPARAM lp) {
    switch (msg) {
        case WM_COMMAND: {
            int id = LOWORD(wp);
            if (id == IDCANCEL) {
                RunHandler(f, f.args.onClose);
                return 0;
            }
            size_t i = static_cast<size_t>(id - kFirstControlId);
            // BN_CLICKED and STN_CLICKED are both 0.
            if (id >= kFirstControlId && i < f.controls.size() && HIWORD(wp) == BN_CLICKED)
                RunHandler(f, f.args.controls[i].onClick);
            return 0;
        }
        case DM_GETDEFID:
            // Asked by IsDialogMessage for the button that Enter presses.
            for (size_t i = 0; i < f.controls.size(); ++i)
                if (f.args.controls[i].kind == Kind::DefaultButton)
                    return MAKELRESULT(kFirstControlId + i, DC_HASDEFID);
            return 0;
        case WM_CLOSE:
            RunHandler(f, f.args.onClose);
            return 0;
        case WM_LBUTTONUP: {
            POINT pt = {static_cast<short>(LOWORD(lp)), static_cast<short>(HIWORD(lp))};
            int i = ClickableFrameAt(f, pt);
            if (i >= 0) RunHandler(f, f.args.controls[static_cast<size_t>(i)].onClick);
            return 0;
        }
        case WM_SETCURSOR: {
            HWND over = reinterpret_cast<HWND>(wp);
            bool hand = false;
            if (over == f.wnd && LOWORD(lp) == HTCLIENT) {
                POINT pt;
                GetCursorPos(&pt);
                ScreenToClient(f.wnd, &pt);
                hand = ClickableFrameAt(f, pt) >= 0;
            } else if (int i = f.IndexOf(over); i >= 0) {
                hand = f.args.controls[static_cast<size_t>(i)].kind == Kind::Link;
            }
            if (!hand) break;
            SetCursor(LoadCursorA(nullptr, IDC_HAND));
            return TRUE;
        }
        case WM_ERASEBKGND: {
            HDC dc = reinterpret_cast<HDC>(wp);
            RECT r;
            GetClientRect(f.wnd, &r);
            FillRect(dc, &r, GetSysColorBrush(f.args.splash ? COLOR_WINDOW : COLOR_BTNFACE));
            if (f.args.splash) {
                r.bottom = f.Py(kSplashBand);
                HBRUSH band = CreateSolidBrush(kTitleColor);
                FillRect(dc, &r, band);
                DeleteObject(band);
            }
            return 1;
        }
        case WM_CTLCOLORSTATIC: {
            HDC dc = reinterpret_cast<HDC>(wp);
            int i = f.IndexOf(reinterpret_cast<HWND>(lp));
            const ControlArgs* c = i >= 0 ? &f.args.controls[static_cast<size_t>(i)] : nullptr;
            // A read-only edit box asks here too; its text reads best on the window colour.
            int back =
                f.args.splash || (c && c->kind == Kind::TextBox) ? COLOR_WINDOW : COLOR_BTNFACE;
            COLORREF text = GetSysColor(COLOR_WINDOWTEXT);
            if (c && c->warn) {
                text = kWarningColor;
            } else if (c && c->kind == Kind::Link) {
                text = kLinkColor;
            } else if (c && c->kind == Kind::Title) {
                text = kTitleColor;
            }
            SetTextColor(dc, text);
            SetBkColor(dc, GetSysColor(back));
            return reinterpret_cast<LRESULT>(GetSysColorBrush(back));
        }
        case WM_DPICHANGED: {
            f.dpi = HIWORD(wp);
            MakeFonts(f);
            LayOut(f);
            const RECT* r = reinterpret_cast<const RECT*>(lp);
            SetWindowPos(f.wnd, nullptr, r->left, r->top, r->right - r->left, r->bottom - r->top,
                         SWP_NOZORDER | SWP_NOACTIVATE);
            return 0;
        }
        default:
            break;
    }
    return DefWindowProcW(f.wnd, msg, wp, lp);
}

LRESULT CALLBACK FormProc(HWND wnd, UINT msg, WPARAM wp, LPARAM lp) {
    if (msg == WM_NCCREATE) {
        auto* f = static_cast<AuxWindow*>(reinterpret_cast<CREATESTRUCTW*>(lp)->lpCreateParams);
        f->wnd = wnd;
        SetWindowLongPtrW(wnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(f));
    }
    AuxWindow* f = FormOf(wnd);
    if (f == nullptr) return DefWindowProcW(wnd, msg, wp, lp);
    if (msg == WM_NCDESTROY) {
        SetWindowLongPtrW(wnd, GWLP_USERDATA, 0);
        f->wnd = nullptr;
        f->done = true;
        if (!f->held) delete f;
        return DefWindowProcW(wnd, msg, wp, lp);
    }
    // No exception may leave a window procedure: Windows' own frames are between it and the
    // message loop. The form ends, and whoever shows it rethrows the exception.
    try {
        return Handle(*f, msg, wp, lp);
    } catch (...) {
        if (!f->error) f->error = std::current_exception();
        f->done = true;
        return 0;
    }
}

void RegisterFormClass() {
    static bool registered = false;
    if (registered) return;
    WNDCLASSEXW wc = {};
    wc.cbSize = sizeof wc;
    wc.lpfnWndProc = FormProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    wc.lpszClassName = kFormClass;
    registered = RegisterClassExW(&wc) != 0 || GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
}

// The rectangle to centre a form in: its owner when that shows, else the work area of the
// monitor the owner (or the primary monitor) is on.
RECT CentreArea(HWND owner, RECT* workArea) {
    HMONITOR monitor = MonitorFromWindow(owner, MONITOR_DEFAULTTOPRIMARY);
    MONITORINFO mi = {};
    mi.cbSize = sizeof mi;
    GetMonitorInfoW(monitor, &mi);
    *workArea = mi.rcWork;
    RECT r = mi.rcWork;
    if (owner && IsWindowVisible(owner) && !IsIconic(owner)) GetWindowRect(owner, &r);
    return r;
}

// Creates the form's window and controls, hidden; the window owns the form from here on.
// Returns null (after tracing) when Windows refused the window.
AuxWindow* CreateForm(App& app, FormArgs args, HWND owner) {
    RegisterFormClass();
    auto* f = new AuxWindow(app, std::move(args));
    f->owner = owner ? GetAncestor(owner, GA_ROOT) : nullptr;
    f->dpi = DpiOf(f->owner);
    MakeFonts(*f);

    // Not WS_CLIPCHILDREN: a frame paints only its edges, and the form must paint inside it.
    DWORD style = WS_POPUP;
    DWORD exStyle = WS_EX_CONTROLPARENT;
    if (f->args.splash) {
        style |= WS_BORDER;
        exStyle |= WS_EX_TOOLWINDOW;  // no taskbar button for a window that is gone in seconds
    } else {
        style |= WS_CAPTION | (f->args.closeBox ? WS_SYSMENU : 0);
        exStyle |= WS_EX_DLGMODALFRAME | (f->owner ? 0 : WS_EX_APPWINDOW);
    }
    RECT r = {0, 0, f->Px(f->args.width), f->Py(f->args.height)};
    AdjustWindowRectEx(&r, style, FALSE, exStyle);
    int w = r.right - r.left, h = r.bottom - r.top;
    RECT work;
    RECT area = CentreArea(f->owner, &work);
    int x = area.left + (area.right - area.left - w) / 2;
    int y = area.top + (area.bottom - area.top - h) / 2;
    x = std::max<int>(work.left, std::min<int>(x, work.right - w));
    y = std::max<int>(work.top, std::min<int>(y, work.bottom - h));

    // Held while it is made: a window that fails after WM_NCCREATE still gets WM_NCDESTROY.
    f->held = true;
    HWND wnd = CreateWindowExW(exStyle, kFormClass, WideFromUtf8(f->args.caption).c_str(), style, x,
                               y, w, h, f->owner, nullptr, GetModuleHandleW(nullptr), f);
    f->held = false;
    if (wnd == nullptr) {
        DWORD e = GetLastError();
        std::string name = f->args.name;
        delete f;
        DebugLog(app, name + " CreateWindowExW failed, code " + std::to_string(e), 0);
        return nullptr;
    }
    for (size_t i = 0; i < f->args.controls.size(); ++i)
        f->controls.push_back(CreateControl(*f, i));
    LayOut(*f);
    return f;
}

HWND FirstFocus(const AuxWindow& f) {
    if (!f.args.focus.empty()) return f.Control(f.args.focus);
    for (size_t i = 0; i < f.controls.size(); ++i)
        if (f.args.controls[i].kind == Kind::DefaultButton) return f.controls[i];
    return nullptr;
}

struct ModalEnd {
    int result = kNone;
    AuxWindow* form = nullptr;  // still there, hidden; null when its window went during the loop
};

// Shows the form and runs its messages until it ends, with its owner disabled as a dialog
// box's owner is. A handler's exception is rethrown here, after the owner is enabled again.
ModalEnd RunModal(AuxWindow* f) {
    f->held = true;
    f->done = false;
    f->result = kNone;
    HWND owner = f->owner;
    bool disabledOwner = owner && IsWindowEnabled(owner);
    if (disabledOwner) EnableWindow(owner, FALSE);
    ShowWindow(f->wnd, SW_SHOW);
    UpdateWindow(f->wnd);
    SetForegroundWindow(f->wnd);
    if (HWND focus = FirstFocus(*f)) SetFocus(focus);

    MSG msg;
    while (!f->done) {
        BOOL got = GetMessageW(&msg, nullptr, 0, 0);
        if (got == 0) {
            PostQuitMessage(static_cast<int>(msg.wParam));  // for the program's own loop
            break;
        }
        if (got == -1) break;
        if (f->wnd && IsDialogMessageW(f->wnd, &msg)) continue;
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
    // The owner is enabled before the form hides, or Windows activates another program.
    if (disabledOwner) EnableWindow(owner, TRUE);
    f->held = false;
    ModalEnd end{f->result, f};
    std::exception_ptr error = std::exchange(f->error, nullptr);
    if (f->wnd == nullptr) {
        delete f;
        end.form = nullptr;
    } else {
        ShowWindow(f->wnd, SW_HIDE);
    }
    if (owner) SetActiveWindow(owner);
    if (error) {
        if (end.form) DestroyWindow(end.form->wnd);
        std::rethrow_exception(error);
    }
    return end;
}

// Runs a form that is unloaded when it ends; returns how it ended.
int ShowModalOnce(App& app, FormArgs args, WindowHandle owner) {
    AuxWindow* f = CreateForm(app, std::move(args), static_cast<HWND>(owner));
    if (f == nullptr) return kNone;
    ModalEnd end = RunModal(f);
    if (end.form) DestroyWindow(end.form->wnd);
    return end.result;
}

Handler EndWith(int how) {
    return [how](AuxWindow& f) { f.End(how); };
}

// Two buttons at the bottom right of a form `width` x `height` dialog units.
void AddButtonPair(FormArgs& args, ControlArgs first, ControlArgs second) {
    first.x = args.width - 7 - 2 * 62 - 4;
    second.x = args.width - 7 - 62;
    for (ControlArgs* b : {&first, &second}) {
        b->y = args.height - 7 - 14;
        b->w = 62;
        b->h = 14;
        args.controls.push_back(std::move(*b));
    }
}

std::string JoinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + kCrLf;
    return text;
}

FormArgs InternalArgs(const App& app) {
    FormArgs a("frmInternal", std::string(kProductName) + " - Internal", 300, 190);
    a.controls.push_back(
        {Kind::TextBox, "txtInternal", JoinLines(InternalLines(app)), 7, 7, 286, 155});
    AddButtonPair(a, {Kind::DefaultButton, "cmdReturn", "&Return", 0, 0, 0, 0, EndWith(kReturned)},
                  {Kind::Button, "cmdClose", "&Close", 0, 0, 0, 0, EndWith(kClosed)});
    a.onClose = EndWith(kReturned);
    return a;
}

// frmInternal while it is loaded and hidden, or null.
AuxWindow* LoadedInternal(App& app) {
    HWND wnd = static_cast<HWND>(app.aux.internal);
    AuxWindow* f = wnd && IsWindow(wnd) ? FormOf(wnd) : nullptr;
    if (f == nullptr) app.aux.internal = nullptr;
    return f;
}

void PutTopMost(App& app, HWND wnd) {
    RECT r;
    GetWindowRect(wnd, &r);
    const screen::WindowRect rect{r.left, r.top, r.right - r.left, r.bottom - r.top};
    if (app.sys.desktop) {
        screen::MakeTopMost(app, reinterpret_cast<screen::Hwnd>(wnd), rect);
    } else {
        SetWindowPos(wnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    }
}

}  // namespace

void AddListColumns(WindowHandle list, const std::vector<std::string>& headings, int width) {
    int col = 0;
    for (const std::string& heading : headings) {
        std::wstring text = WideFromUtf8(heading);
        LVCOLUMNW lc = {};
        lc.mask = LVCF_TEXT | LVCF_WIDTH;
        lc.pszText = text.data();
        lc.cx = width;
        SendMessageW(static_cast<HWND>(list), LVM_INSERTCOLUMNW, col++,
                     reinterpret_cast<LPARAM>(&lc));
    }
}

void AddListRow(WindowHandle list, const std::vector<std::string>& cells) {
    HWND h = static_cast<HWND>(list);
    LVITEMW item = {};
    item.mask = LVIF_TEXT;
    item.iItem = static_cast<int>(SendMessageW(h, LVM_GETITEMCOUNT, 0, 0));
    for (size_t col = 0; col < cells.size(); ++col) {
        std::wstring text = WideFromUtf8(cells[col]);
        item.iSubItem = static_cast<int>(col);
        item.pszText = text.data();
        if (col == 0) {
            item.iItem = static_cast<int>(
                SendMessageW(h, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item)));
        } else {
            SendMessageW(h, LVM_SETITEMTEXTW, item.iItem, reinterpret_cast<LPARAM>(&item));
        }
    }
    SendMessageW(h, LVM_ENSUREVISIBLE, item.iItem, FALSE);
}

void FitListColumns(WindowHandle list) {
    HWND h = static_cast<HWND>(list);
    HWND header = reinterpret_cast<HWND>(SendMessageW(h, LVM_GETHEADER, 0, 0));
    const int columns = static_cast<int>(SendMessageW(header, HDM_GETITEMCOUNT, 0, 0));
    // Each column as wide as its widest text and its heading (Wine's LVSCW_AUTOSIZE_USEHEADER
    // leaves the heading out but for the last column); the last one fills what is left.
    for (int col = 0; col < columns; ++col) {
        wchar_t heading[64] = {};
        LVCOLUMNW lc = {};
        lc.mask = LVCF_TEXT;
        lc.pszText = heading;
        lc.cchTextMax = 64;
        SendMessageW(h, LVM_GETCOLUMNW, col, reinterpret_cast<LPARAM>(&lc));
        SendMessageW(h, LVM_SETCOLUMNWIDTH, col,
                     col + 1 < columns ? LVSCW_AUTOSIZE : LVSCW_AUTOSIZE_USEHEADER);
        const int headingWidth = static_cast<int>(SendMessageW(h, LVM_GETSTRINGWIDTHW, 0,
                                                               reinterpret_cast<LPARAM>(heading))) +
                                 16;
        if (SendMessageW(h, LVM_GETCOLUMNWIDTH, col, 0) < headingWidth)
            SendMessageW(h, LVM_SETCOLUMNWIDTH, col, headingWidth);
    }
}

bool ShowPreview(App& app, WindowHandle owner, const std::vector<std::vector<std::string>>& table) {
    DebugLog(app, "frm Preview Entered ", 5);
    FormArgs a("frmPreview", std::string(kProductName) + " - Preview", 380, 230);
    a.controls = {
        {Kind::Label, "lblPreview",
         "The lines in their new order. Nothing is written until you choose Write this order.", 7,
         7, 366, 10},
        ControlArgs(Kind::List, "lvwPreview", "", 7, 20, 366, 182).Table(table),
        {Kind::DefaultButton, "cmdWrite", "&Write this order", 245, 209, 70, 14,
         EndWith(kAccepted)},
        {Kind::Button, "cmdCancel", "Cancel", 319, 209, 54, 14, EndWith(kDeclined)},
    };
    a.onClose = EndWith(kDeclined);
    const bool write = ShowModalOnce(app, std::move(a), owner) == kAccepted;
    DebugLog(app, write ? "frm Preview: write" : "frm Preview: cancelled", 3);
    return write;
}

void ShowSplash(App& app) {
    DebugLog(app, "frm Splash Load Entered ", 5);
    if (app.aux.splash) return;
    SplashTexts t = MakeSplashTexts(app);
    FormArgs a("frmSplash", t.productName, 250, 118);
    a.splash = true;
    a.controls = {
        {Kind::Frame, "Frame1", "", 6, 11, 238, 101, [](AuxWindow& f) { OpenProductPage(f.app); }},
        {Kind::Title, "lblProductName", t.productName, 16, 19, 218, 24},
        {Kind::Label, "lblCompany", t.company, 16, 46, 218, 10},
        {Kind::Label, "lblPlatform", t.platform, 16, 59, 218, 10},
        {Kind::Label, "lblWorkingFolderCaption", "Working folder:", 16, 80, 218, 10},
        ControlArgs(Kind::Label, "lblWorkingFolder", t.workingFolder, 16, 91, 218, 10).Path(),
    };
    AuxWindow* f = CreateForm(app, std::move(a), nullptr);
    if (f == nullptr) return;
    app.aux.splash = f->wnd;
    ShowWindow(f->wnd, SW_SHOWNOACTIVATE);
    UpdateWindow(f->wnd);  // start-up keeps the thread busy: paint now
}

void CloseSplash(App& app) {
    HWND wnd = static_cast<HWND>(app.aux.splash);
    if (wnd == nullptr) return;
    app.aux.splash = nullptr;
    AuxWindow* f = IsWindow(wnd) ? FormOf(wnd) : nullptr;
    std::exception_ptr error = f ? std::exchange(f->error, nullptr) : nullptr;
    DebugLog(app, kSplashUnloading, 3);
    if (f) DestroyWindow(wnd);
    DebugLog(app, kSplashTerminating, 3);
    if (error) std::rethrow_exception(error);
}

bool ShowAgreement(App& app, WindowHandle owner) {
    DebugLog(app, "Show Agreement Entered ", 5);
    if (app.frmMain.Checked("chkEUAAccepted")) return true;
    AgreementText eua = LoadAgreement(app);
    if (!eua.found) return true;  // the form closes itself; it is asked again next time

    FormArgs a("frmEUA", std::string(kProductName) + " - End-User Agreement", 320, 222);
    a.closeBox = false;  // one of the two buttons must answer
    a.focus = "Text1";
    a.controls = {
        {Kind::Label, "lblRead",
         "Please read the agreement below. Choose I Accept to use " + std::string(kProductName) +
             ".",
         7, 7, 306, 10},
        {Kind::TextBox, "Text1", eua.text, 7, 20, 306, 174},
    };
    AddButtonPair(a, {Kind::Button, "cmdAccept", "I &Accept", 0, 0, 0, 0, EndWith(kAccepted)},
                  {Kind::Button, "cmdDeclined", "I &Decline", 0, 0, 0, 0, EndWith(kDeclined)});
    AuxWindow* f = CreateForm(app, std::move(a), static_cast<HWND>(owner));
    if (f == nullptr) return true;
    // Above QuickBooks and every other window until it is answered.
    PutTopMost(app, f->wnd);
    ModalEnd end = RunModal(f);
    if (end.form) DestroyWindow(end.form->wnd);
    if (end.result == kAccepted) AcceptAgreement(app);
    if (end.result == kDeclined) DebugLog(app, "frm EUA Declined ", 2);
    return end.result != kDeclined;
}

void ShowReadMe(App& app, WindowHandle owner) {
    DebugLog(app, "frm Read Me Entered ", 5);
    FormArgs a("frmReadMe", std::string(kProductName) + " - Read Me", 280, 112);
    a.controls = {{Kind::Label, "lblReadMe", ReadMeText(), 7, 7, 266, 76},
                  {Kind::Link, "lblUserGuide", "Open the user guide", 7, 88, 120, 10,
                   [](AuxWindow& f) { OpenUserGuide(f.app); }}};
    AddButtonPair(a, {Kind::DefaultButton, "cmdAccept", "&Accept", 0, 0, 0, 0, EndWith(kAccepted)},
                  {Kind::Button, "cmdDeclined", "&Decline", 0, 0, 0, 0, EndWith(kDeclined)});
    a.onClose = EndWith(kDeclined);
    if (ShowModalOnce(app, std::move(a), owner) == kAccepted) app.aux.readMeAccepted = true;
}

void ShowInternal(App& app, WindowHandle owner) {
    DebugLog(app, "frm Internal Entered ", 5);
    AuxWindow* f = LoadedInternal(app);
    if (f == nullptr) {
        f = CreateForm(app, InternalArgs(app), static_cast<HWND>(owner));
        if (f == nullptr) return;
        app.aux.internal = f->wnd;
    } else {
        // Loaded earlier: show what holds now.
        SetWindowTextW(f->Control("txtInternal"),
                       WideFromUtf8(JoinLines(InternalLines(app))).c_str());
    }
    ModalEnd end = RunModal(f);
    if (end.result == kClosed) {
        app.aux.internalClosed = true;
        if (end.form) DestroyWindow(end.form->wnd);
        app.aux.internal = nullptr;
    } else if (!end.form) {
        app.aux.internal = nullptr;
    }
}

void ShowAbout(App& app, WindowHandle owner) {
    AboutTexts t = MakeAboutTexts(app);
    FormArgs a("frmAbout", t.caption, 300, 190);
    auto openFolder = [](const std::string& folder) {
        return [folder](AuxWindow& f) { OpenFolder(f.app, folder); };
    };
    const std::string program = app.folders.program, data = app.folders.data;
    a.controls = {
        {Kind::Title, "lblProductName", t.product, 7, 6, 200, 24},
        {Kind::Label, "lblVersion", t.version, 7, 32, 200, 10},
        {Kind::Label, "lblCompany", t.contact[0], 7, 46, 200, 10},
        {Kind::Link, "lblWeb", t.contact[1], 7, 57, 120, 10,
         [](AuxWindow& f) { OpenProductPage(f.app); }},
        {Kind::Label, "lblEmail", t.contact[2], 7, 68, 200, 10},
        {Kind::Separator, "linTop", "", 7, 84, 286, 1},
        {Kind::Label, "lblExeFolderCaption", "Program folder:", 7, 92, 62, 10},
        ControlArgs(Kind::Link, "lblExeFolder", t.programFolder, 70, 92, 223, 10,
                    openFolder(program))
            .Path(),
        {Kind::Label, "lblWorkingFolderCaption", "Working folder:", 7, 105, 62, 10},
        ControlArgs(Kind::Link, "lblWorkingFolder", t.workingFolder, 70, 105, 223, 20,
                    openFolder(data))
            .Warn(t.unusualFolder),
        {Kind::Label, "lblQbFileCaption", "Company file:", 7, 128, 62, 10},
        ControlArgs(Kind::Label, "lblQbFile", t.companyFile, 70, 128, 223, 10).Path(),
        ControlArgs(Kind::Label, "lblQbwSize", t.qbwSize, 70, 140, 110, 10).Warn(t.qbwLarge),
        ControlArgs(Kind::Label, "lblTlgSize", t.tlgSize, 183, 140, 110, 10).Warn(t.tlgLarge),
        {Kind::Separator, "linBottom", "", 7, 161, 286, 1},
        {Kind::Button, "cmdSysInfo", "&System Info...", 7, 169, 70, 14,
         [](AuxWindow& f) { StartSysInfo(f.app); }},
        {Kind::Button, "cmdHelpSupport", "Help && &Support...", 81, 169, 78, 14,
         [](AuxWindow& f) { OpenSupportPage(f.app); }},
        {Kind::DefaultButton, "cmdOK", "OK", 231, 169, 62, 14, EndWith(kOk)},
    };
    a.onClose = EndWith(kOk);
    ShowModalOnce(app, std::move(a), owner);
}

void LoadOtherForms(App& app, WindowHandle owner) {
    DebugLog(app, "Load Other Forms Entered ", 5);
    RegisterFormClass();
    if (LoadedInternal(app)) return;
    if (AuxWindow* f = CreateForm(app, InternalArgs(app), static_cast<HWND>(owner)))
        app.aux.internal = f->wnd;
}

}  // namespace pelmark::ui
