// frmMain as a Win32 window: the controls bound to the form model, the commands, the small and
// expanded states, and the message loop that the sort run shares through DoEvents.
#include <windows.h>

#include <commctrl.h>  // after windows.h, whose types it uses

#include <exception>
#include <memory>

#include "app/context.h"
#include "app/logs.h"
#include "app/run.h"
#include "app/version.h"
#include "app/wideText.h"
#include "ui/auxForms.h"
#include "ui/frmMain.h"
#include "ui/frmMain_win.h"

namespace pelmark::ui {
namespace {

// System-menu ids stay below 0xF000, in steps of 16 (Windows uses the low four bits).
constexpr UINT kAboutCommand = 0x0010;
constexpr UINT kReadMeCommand = 0x0020;
constexpr UINT kInternalCommand = 0x0030;
constexpr UINT kRefocusField = WM_APP + 1;

// The one main window of the program; the event pump needs it to end a run on End.
MainWindow* g_main = nullptr;

std::string WindowTextOf(HWND h) {
    int n = GetWindowTextLengthW(h);
    std::wstring text(static_cast<size_t>(n) + 1, L'\0');
    n = GetWindowTextW(h, text.data(), n + 1);
    return Utf8FromWide(text.data(), static_cast<size_t>(n));
}

void SetTextIfChanged(HWND h, const std::string& text) {
    if (h != nullptr && WindowTextOf(h) != text) SetWindowTextW(h, WideFromUtf8(text).c_str());
}

std::string ListText(HWND h, UINT lenMsg, UINT textMsg, int item) {
    LRESULT n = SendMessageW(h, lenMsg, static_cast<WPARAM>(item), 0);
    if (n <= 0) return {};
    std::wstring text(static_cast<size_t>(n) + 1, L'\0');
    n = SendMessageW(h, textMsg, static_cast<WPARAM>(item), reinterpret_cast<LPARAM>(text.data()));
    return Utf8FromWide(text.data(), n > 0 ? static_cast<size_t>(n) : 0);
}

// Refills a combo or list box when the model's list is not the one it shows.
void SyncList(HWND h, const std::vector<std::string>& list, bool combo) {
    const UINT count = combo ? CB_GETCOUNT : LB_GETCOUNT;
    const UINT reset = combo ? CB_RESETCONTENT : LB_RESETCONTENT;
    const UINT add = combo ? CB_ADDSTRING : LB_ADDSTRING;
    const UINT len = combo ? CB_GETLBTEXTLEN : LB_GETTEXTLEN;
    const UINT get = combo ? CB_GETLBTEXT : LB_GETTEXT;
    int shown = static_cast<int>(SendMessageW(h, count, 0, 0));
    bool same = shown == static_cast<int>(list.size());
    for (int i = 0; same && i < shown; ++i) same = ListText(h, len, get, i) == list[i];
    if (same) return;
    SendMessageW(h, reset, 0, 0);
    for (const std::string& entry : list) {
        std::wstring text = WideFromUtf8(entry);
        SendMessageW(h, add, 0, reinterpret_cast<LPARAM>(text.c_str()));
    }
}

// ---- Model and controls -------------------------------------------------------------------

void Push(MainWindow& w, size_t i) {
    Control& c = w.Model(i);
    HWND h = w.bound[i].wnd;
    if (h == nullptr) return;
    switch (c.kind) {
        case ControlKind::CheckBox:
        case ControlKind::OptionButton:
            SendMessageW(h, BM_SETCHECK, c.value != 0 ? BST_CHECKED : BST_UNCHECKED, 0);
            SetTextIfChanged(h, c.caption);
            break;
        case ControlKind::TextBox:
            SetTextIfChanged(h, c.text);
            break;
        case ControlKind::ComboBox:
            SyncList(h, c.list, true);
            SendMessageW(h, CB_SETCURSEL, static_cast<WPARAM>(c.listIndex), 0);
            if (c.listIndex < 0 &&
                (GetWindowLongPtrW(h, GWL_STYLE) & CBS_DROPDOWNLIST) == CBS_DROPDOWN) {
                SetTextIfChanged(h, c.text);
            }
            break;
        case ControlKind::ListBox:
            SyncList(h, c.list, false);
            if (c.holdsSetting) {
                for (size_t k = 0; k < c.selected.size(); ++k) {
                    SendMessageW(h, LB_SETSEL, c.selected[k] ? TRUE : FALSE,
                                 static_cast<LPARAM>(k));
                }
            } else {
                SendMessageW(h, LB_SETTOPINDEX, c.list.empty() ? 0 : c.list.size() - 1, 0);
            }
            break;
        case ControlKind::Label:
        case ControlKind::CommandButton:
        case ControlKind::Frame:
            SetTextIfChanged(h, c.caption);
            break;
        case ControlKind::UpDown:
            SendMessageW(h, UDM_SETPOS32, 0, c.value);
            break;
        case ControlKind::ProgressBar:
            SendMessageW(h, PBM_SETRANGE32, 0, c.max);
            SendMessageW(h, PBM_SETPOS, static_cast<WPARAM>(c.value), 0);
            break;
        case ControlKind::Grid:
        case ControlKind::TabStrip:
            break;
    }
}

void Pull(MainWindow& w, size_t i) {
    Control& c = w.Model(i);
    HWND h = w.bound[i].wnd;
    if (h == nullptr || w.pushing) return;
    switch (c.kind) {
        case ControlKind::CheckBox:
        case ControlKind::OptionButton:
            c.value = SendMessageW(h, BM_GETCHECK, 0, 0) == BST_CHECKED ? 1 : 0;
            break;
        case ControlKind::TextBox:
            c.text = WindowTextOf(h);
            break;
        case ControlKind::ComboBox: {
            int selected = static_cast<int>(SendMessageW(h, CB_GETCURSEL, 0, 0));
            bool editable = (GetWindowLongPtrW(h, GWL_STYLE) & CBS_DROPDOWNLIST) == CBS_DROPDOWN;
            if (editable) {
                c.text = WindowTextOf(h);
                c.listIndex = -1;
                for (size_t k = 0; k < c.list.size(); ++k) {
                    if (c.list[k] == c.text) c.listIndex = static_cast<int>(k);
                }
            } else if (selected >= 0 && selected < static_cast<int>(c.list.size())) {
                c.listIndex = selected;
                c.text = c.list[static_cast<size_t>(selected)];
            }
            // A drop-down list with nothing selected keeps a value read before its list came.
            break;
        }
        case ControlKind::ListBox:
            if (c.holdsSetting) {
                c.selected.assign(c.list.size(), false);
                for (size_t k = 0; k < c.list.size(); ++k) {
                    c.selected[k] = SendMessageW(h, LB_GETSEL, k, 0) > 0;
                }
            }
            break;
        case ControlKind::Label:
            if (c.holdsSetting) c.caption = WindowTextOf(h);
            break;
        case ControlKind::UpDown:
            c.value = static_cast<int>(SendMessageW(h, UDM_GETPOS32, 0, 0));
            break;
        case ControlKind::CommandButton:
        case ControlKind::Frame:
        case ControlKind::Grid:
        case ControlKind::TabStrip:
        case ControlKind::ProgressBar:
            break;
    }
}

void PushAll(MainWindow& w) {
    w.pushing = true;
    for (size_t i = 0; i < w.bound.size(); ++i) Push(w, i);
    w.pushing = false;
}

void PullAll(MainWindow& w) {
    for (size_t i = 0; i < w.bound.size(); ++i) Pull(w, i);
}

// ---- Commands -----------------------------------------------------------------------------

RECT WindowRectOf(HWND h) {
    RECT r{};
    GetWindowRect(h, &r);
    return r;
}

void ApplyAlwaysOnTop(MainWindow& w) {
    RECT r = WindowRectOf(w.wnd);
    DoAlwaysOnTop(w.app, reinterpret_cast<std::uintptr_t>(w.wnd), r.left, r.top, r.right - r.left,
                  r.bottom - r.top);
}

void SetCaption(MainWindow& w, const char* name, const std::string& caption) {
    size_t i = w.IndexOf(name);
    w.Model(i).caption = caption;
    SetTextIfChanged(w.bound[i].wnd, caption);
}

int Coordinate(MainWindow& w, const char* name) {
    return static_cast<int>(LeadingNumber(w.Model(w.IndexOf(name)).caption));
}

// Expand and Collapse; the position labels always hold the small form's position.
void ToggleExpanded(MainWindow& w) {
    RECT r = WindowRectOf(w.wnd);
    if (!w.expanded) {
        SetCaption(w, "lblScreenLeft", std::to_string(r.left));
        SetCaption(w, "lblScreenTop", std::to_string(r.top));
        SetCaption(w, "cmdExpand", "Collapse");
        w.expanded = true;
        LayoutControls(w);
        SetWindowPos(w.wnd, nullptr, 0, 0, w.expandedSize.cx, w.expandedSize.cy,
                     SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    } else {
        SetCaption(w, "cmdExpand", "Expand");
        w.expanded = false;
        LayoutControls(w);
        SetWindowPos(w.wnd, nullptr, Coordinate(w, "lblScreenLeft"), Coordinate(w, "lblScreenTop"),
                     w.smallSize.cx, w.smallSize.cy, SWP_NOZORDER | SWP_NOACTIVATE);
    }
}

// The validate event of a numeric field: false (after the message) when its text is refused.
bool ValidateField(MainWindow& w, size_t i) {
    const Control& c = w.Model(i);
    std::optional<std::string> message = CheckMainField(c.name, WindowTextOf(w.bound[i].wnd));
    if (!message) return true;
    w.validating = true;
    ShowMessage(w.app, *message, kMbOKOnly | kMbExclamation);
    w.validating = false;
    // Like a cancelled validate event: the focus goes back to the field.
    PostMessageW(w.wnd, kRefocusField, i, 0);
    return false;
}

bool ValidateAll(MainWindow& w) {
    for (size_t i = 0; i < w.bound.size(); ++i) {
        if (HasFieldCheck(w.Model(i).name) && !ValidateField(w, i)) return false;
    }
    return true;
}

void Save(MainWindow& w) {
    PullAll(w);
    if (!ValidateAll(w)) return;
    RECT r = WindowRectOf(w.wnd);
    FormPlacement placement;
    placement.small = !w.expanded;
    placement.left = r.left;
    placement.top = r.top;
    placement.screenWidth = GetSystemMetrics(SM_CXVIRTUALSCREEN);
    placement.screenHeight = GetSystemMetrics(SM_CYVIRTUALSCREEN);
    CmdSave(w.app, placement);
    PushAll(w);
}

// Ends the program with `code`: at once when idle; when a run is on the stack, at the run's
// next DoEvents, which unwinds it.
void EndProgram(MainWindow& w, int code) {
    if (w.running) {
        w.pendingEnd = code;
        return;
    }
    w.exitCode = code;
    CloseAll(w.app);  // the QuickBooks session, unless End has closed it already
    DestroyWindow(w.wnd);
}

// One command at a time: Sort and Start are greyed while a sort or a batch runs.
class Busy {
  public:
    explicit Busy(MainWindow& w) : w_(w) {
        for (const char* name : {"cmdGo", "cmdBatchStart"}) {
            buttons_.push_back(w.bound[w.IndexOf(name)].wnd);
            EnableWindow(buttons_.back(), FALSE);
        }
        w.running = true;
    }
    ~Busy() {
        w_.running = false;
        w_.app.previewHook = nullptr;
        for (HWND b : buttons_)
            if (IsWindow(b)) EnableWindow(b, TRUE);
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

  private:
    MainWindow& w_;
    std::vector<HWND> buttons_;
};

// Sort, or Undo last sort. With "Preview before writing" ticked the new order is shown first
// and written only when the user chooses to.
void Go(MainWindow& w, bool undo = false) {
    if (w.running) return;
    PullAll(w);
    Busy busy(w);
    if (undo) {
        CmdUndo(w.app);
    } else {
        if (w.app.frmMain.Checked("chkPreview"))
            w.app.previewHook = [&w](const std::vector<sort::PreviewRow>& rows) {
                return ShowPreview(w.app, w.wnd, sort::PreviewCells(rows));
            };
        CmdGo(w.app);
    }
    PushAll(w);
}

// Start on the Batch page: each transaction's result is listed as it comes, and the messages
// waiting meanwhile (Stop among them) run between transactions.
void Batch(MainWindow& w) {
    if (w.running) return;
    PullAll(w);
    Busy busy(w);
    w.batchStop = false;
    HWND grid = w.bound[w.IndexOf("grdBatch")].wnd;
    Control& bar = w.Model(w.IndexOf("prgBatch"));
    SendMessageW(grid, LVM_DELETEALLITEMS, 0, 0);
    bar.value = 0;
    SetCaption(w, "lblBatchMessage", "Working...");
    Push(w, w.IndexOf("prgBatch"));
    CmdBatch(w.app, [&](std::size_t done, std::size_t total, const BatchItem& item) {
        AddListRow(grid, {item.refNumber, std::to_string(item.lines), item.result});
        bar.max = static_cast<int>(total);
        bar.value = static_cast<int>(done);
        Push(w, w.IndexOf("prgBatch"));
        UpdateWindow(w.wnd);
        w.app.sys.events->DoEvents();
        return !w.batchStop;
    });
    PushAll(w);
}

void OnCommand(MainWindow& w, int id, int code, HWND control) {
    if (id < kFirstControlId || id >= kFirstControlId + static_cast<int>(w.bound.size())) return;
    size_t i = static_cast<size_t>(id - kFirstControlId);
    if (w.bound[i].wnd != control) return;
    Control& c = w.Model(i);
    switch (c.kind) {
        case ControlKind::CommandButton:
            if (code != BN_CLICKED) return;
            if (c.name == "cmdGo") {
                Go(w);
            } else if (c.name == "cmdUndo") {
                Go(w, true);
            } else if (c.name == "cmdStop") {
                CmdStop(w.app);
            } else if (c.name == "cmdBatchStart") {
                Batch(w);
            } else if (c.name == "cmdBatchStop") {
                w.batchStop = true;
                SetCaption(w, "lblBatchMessage", "Stopping after this transaction");
            } else if (c.name == "cmdSave") {
                Save(w);
            } else if (c.name == "cmdEnd") {
                CmdEnd(w.app);
            } else if (c.name == "cmdExpand") {
                ToggleExpanded(w);
            }
            return;
        case ControlKind::CheckBox:
            if (code != BN_CLICKED) return;
            Pull(w, i);
            if (c.name == "chkAlwaysOnTop") ApplyAlwaysOnTop(w);
            return;
        case ControlKind::OptionButton:
            if (code != BN_CLICKED) return;
            for (size_t k = 0; k < w.bound.size(); ++k) {
                if (w.Model(k).kind == ControlKind::OptionButton) Pull(w, k);
            }
            return;
        case ControlKind::TextBox:
            if (code == EN_CHANGE) Pull(w, i);
            if (code == EN_KILLFOCUS && !w.validating && HasFieldCheck(c.name)) {
                // Only a move to another control of this window validates, as in a form;
                // switching to another program does not.
                HWND to = GetFocus();
                if (to != nullptr && IsChild(w.wnd, to)) ValidateField(w, i);
            }
            return;
        case ControlKind::ComboBox:
            if (code == CBN_SELCHANGE || code == CBN_EDITCHANGE) Pull(w, i);
            return;
        case ControlKind::ListBox:
            if (code == LBN_SELCHANGE) Pull(w, i);
            return;
        default:
            return;
    }
}

// An up-down control moved: its label shows the new number.
void OnUpDown(MainWindow& w, HWND upDown) {
    for (size_t i = 0; i < w.bound.size(); ++i) {
        if (w.bound[i].wnd != upDown) continue;
        Pull(w, i);
        const Control& c = w.Model(i);
        size_t label = w.IndexOf(c.buddy);
        w.Model(label).caption = std::to_string(c.value);
        Push(w, label);
        return;
    }
}

void ShowStatusText(MainWindow& w, const std::string& text) {
    HWND label = w.bound[w.IndexOf("lblStatus")].wnd;
    HWND list = w.bound[w.IndexOf("lstMsgs")].wnd;
    SetWindowTextW(label, WideFromUtf8(text).c_str());
    std::wstring line = WideFromUtf8(text);
    LRESULT at = SendMessageW(list, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(line.c_str()));
    SendMessageW(list, LB_SETTOPINDEX, static_cast<WPARAM>(at), 0);
    // The run holds the thread: paint now, not when the run is over.
    UpdateWindow(label);
    UpdateWindow(list);
}

void OnDpiChanged(MainWindow& w, UINT dpi, const RECT& suggested) {
    w.dpi = dpi;
    ApplyFont(w);
    LayoutControls(w);
    SIZE size = w.expanded ? w.expandedSize : w.smallSize;
    SetWindowPos(w.wnd, nullptr, suggested.left, suggested.top, size.cx, size.cy,
                 SWP_NOZORDER | SWP_NOACTIVATE);
}

LRESULT Handle(MainWindow& w, UINT msg, WPARAM wp, LPARAM lp) {
    switch (msg) {
        case WM_COMMAND:
            OnCommand(w, LOWORD(wp), HIWORD(wp), reinterpret_cast<HWND>(lp));
            return 0;
        case WM_VSCROLL:
            if (lp != 0) OnUpDown(w, reinterpret_cast<HWND>(lp));
            return 0;
        case WM_NOTIFY: {
            const NMHDR* n = reinterpret_cast<const NMHDR*>(lp);
            if (n->hwndFrom == w.tabs && n->code == TCN_SELCHANGE) ShowPage(w);
            return 0;
        }
        case kRefocusField: {
            HWND field = w.bound[wp].wnd;
            SetFocus(field);
            SendMessageW(field, EM_SETSEL, 0, -1);
            return 0;
        }
        case WM_SYSCOMMAND:
            switch (wp & 0xFFF0) {
                case kAboutCommand:
                    ShowAbout(w.app, w.wnd);
                    return 0;
                case kReadMeCommand:
                    ShowReadMe(w.app, w.wnd);
                    return 0;
                case kInternalCommand:
                    ShowInternal(w.app, w.wnd);
                    return 0;
            }
            break;
        case WM_DPICHANGED:
            OnDpiChanged(w, HIWORD(wp), *reinterpret_cast<const RECT*>(lp));
            return 0;
        case WM_CLOSE:
            // The close box ends the program as End does, without the question.
            EndProgram(w, 0);
            return 0;
        case WM_DESTROY:
            w.app.statusHook = nullptr;
            PostQuitMessage(w.exitCode);
            return 0;
        default:
            break;
    }
    return DefWindowProcW(w.wnd, msg, wp, lp);
}

LRESULT CALLBACK MainWindowProc(HWND wnd, UINT msg, WPARAM wp, LPARAM lp) {
    if (msg == WM_NCCREATE) {
        auto* w = static_cast<MainWindow*>(reinterpret_cast<CREATESTRUCTW*>(lp)->lpCreateParams);
        w->wnd = wnd;
        SetWindowLongPtrW(wnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(w));
    }
    auto* w = reinterpret_cast<MainWindow*>(GetWindowLongPtrW(wnd, GWLP_USERDATA));
    if (w == nullptr) return DefWindowProcW(wnd, msg, wp, lp);
    // No exception may leave a window procedure: Windows' own frames are between it and the
    // message loop.
    try {
        return Handle(*w, msg, wp, lp);
    } catch (const ProgramEnd& end) {
        EndProgram(*w, end.code);
    } catch (const std::exception& e) {
        DebugLog(w->app, std::string("frmMain error ") + e.what(), 0);
        ShowMessage(w->app, std::string("frmMain error ") + e.what());
    } catch (...) {
        DebugLog(w->app, "frmMain error", 0);
    }
    return 0;
}

bool IsOurDialogMessage(MSG& msg) {
    return g_main != nullptr && IsWindow(g_main->wnd) && IsDialogMessageW(g_main->wnd, &msg);
}

// DoEvents of the GUI: the run's pending messages run here, and End answered Yes while the run
// was on the stack ends the run here.
class WindowEventPump : public EventPump {
  public:
    void DoEvents() override {
        MSG msg;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            if (msg.message == WM_QUIT) {
                PostQuitMessage(static_cast<int>(msg.wParam));  // for the main message loop
                break;
            }
            if (IsOurDialogMessage(msg)) continue;
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
        if (g_main != nullptr && g_main->pendingEnd) {
            int code = *g_main->pendingEnd;
            g_main->pendingEnd.reset();
            throw ProgramEnd{code, false};
        }
    }
};

}  // namespace

EventPump& MainWindowEventPump() {
    static WindowEventPump pump;
    return pump;
}

void* CreateMainWindow(App& app) {
    static bool registered = false;
    const std::wstring className = WideFromUtf8(kMainWindowClass);
    HINSTANCE instance = GetModuleHandleW(nullptr);
    if (!registered) {
        WNDCLASSEXW wc = {};
        wc.cbSize = sizeof wc;
        wc.lpfnWndProc = MainWindowProc;
        wc.hInstance = instance;
        wc.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(1));
        wc.hIconSm = static_cast<HICON>(LoadImageW(instance, MAKEINTRESOURCEW(1), IMAGE_ICON,
                                                   GetSystemMetrics(SM_CXSMICON),
                                                   GetSystemMetrics(SM_CYSMICON), 0));
        wc.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));  // IDC_ARROW
        wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
        wc.lpszClassName = className.c_str();
        if (RegisterClassExW(&wc) == 0) return nullptr;
        registered = true;
    }
    auto w = std::make_unique<MainWindow>(app);
    std::wstring title = WideFromUtf8(std::string(kProductName) + " " + VersionText());
    HWND wnd = CreateWindowExW(
        WS_EX_CONTROLPARENT, className.c_str(), title.c_str(),
        WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | WS_CLIPCHILDREN, CW_USEDEFAULT,
        CW_USEDEFAULT, 400, 300, nullptr, nullptr, instance, w.get());
    if (wnd == nullptr) return nullptr;
    w->dpi = WindowDpi(wnd);
    CreateControls(*w);
    ApplyFont(*w);
    HMENU system = GetSystemMenu(wnd, FALSE);
    AppendMenuW(system, MF_SEPARATOR, 0, nullptr);
    AppendMenuW(system, MF_STRING, kReadMeCommand, L"Read Me...");
    AppendMenuW(system, MF_STRING, kInternalCommand, L"Internal...");
    AppendMenuW(system, MF_STRING, kAboutCommand, L"About Pelmark...");
    MainWindow* raw = w.release();  // lives as long as the program
    g_main = raw;
    app.statusHook = [raw](const std::string& text) { ShowStatusText(*raw, text); };
    return wnd;
}

void ShowMainWindow(App&, void* window) {
    HWND wnd = static_cast<HWND>(window);
    auto* w = reinterpret_cast<MainWindow*>(GetWindowLongPtrW(wnd, GWLP_USERDATA));
    PushAll(*w);
    LayoutControls(*w);
    // The small form at the position saved with the settings, kept on a monitor that is there.
    RECT want{Coordinate(*w, "lblScreenLeft"), Coordinate(*w, "lblScreenTop"), 0, 0};
    want.right = want.left + w->smallSize.cx;
    want.bottom = want.top + w->smallSize.cy;
    MONITORINFO mi = {};
    mi.cbSize = sizeof mi;
    GetMonitorInfoW(MonitorFromRect(&want, MONITOR_DEFAULTTONEAREST), &mi);
    int left = std::max(mi.rcWork.left, std::min(want.left, mi.rcWork.right - w->smallSize.cx));
    int top = std::max(mi.rcWork.top, std::min(want.top, mi.rcWork.bottom - w->smallSize.cy));
    SetWindowPos(wnd, nullptr, left, top, w->smallSize.cx, w->smallSize.cy,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    ShowWindow(wnd, SW_SHOW);
    // Once shown: Wine leaves the z-order of a hidden window as it is.
    ApplyAlwaysOnTop(*w);
    UpdateWindow(wnd);
    SetForegroundWindow(wnd);
    SetFocus(w->bound[w->IndexOf("cmdGo")].wnd);
}

void RefreshMainWindow(App&, void* window) {
    auto* w =
        reinterpret_cast<MainWindow*>(GetWindowLongPtrW(static_cast<HWND>(window), GWLP_USERDATA));
    if (w != nullptr) PushAll(*w);
}

int RunMainWindow(App&, void*) {
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
        if (IsOurDialogMessage(msg)) continue;
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
    return static_cast<int>(msg.wParam);
}

}  // namespace pelmark::ui
