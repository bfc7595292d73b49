// The main window's controls: one Win32 control for each control of the form model, and their
// placement on the small form and on the settings pages of the expanded form.
#include <windows.h>

#include <commctrl.h>  // after windows.h, whose types it uses

#include <algorithm>
#include <array>

#include "app/context.h"
#include "app/text.h"
#include "app/wideText.h"
#include "ui/auxForms.h"
#include "ui/frmMain.h"
#include "ui/frmMain_win.h"

namespace pelmark::ui {
namespace {

// Layout units are pixels at 96 DPI, scaled to the window's DPI by MainWindow::Px.
constexpr int kMargin = 10;
constexpr int kGap = 6;
constexpr int kButtonHeight = 25;
constexpr int kRowHeight = 25;
constexpr int kFieldHeight = 22;
constexpr int kColumnWidth = 300;
constexpr int kColumns = 3;
constexpr int kFrameTop = 20;    // the frame's caption line
constexpr int kFramePad = 10;    // inside a frame, left and right
constexpr int kValueWidth = 64;  // a label that shows a number
constexpr int kUpDownWidth = 18;
constexpr int kSmallListHeight = 150;
constexpr int kExpandedListHeight = 96;
constexpr int kGridHeight = 150;
constexpr int kBatchGridHeight = 268;

// Where each frame stands on the expanded form: its page of SSTab1, its column, and how many
// columns it spans. Frames follow each other down their column in this order.
struct FramePlace {
    const char* frame;
    int page, column, span;
};
constexpr FramePlace kFramePlaces[] = {
    {"fraTransType", 0, 0, 1},     {"fraBlankLines", 0, 0, 1},
    {"fraSortCriteria", 0, 1, 2},  {"fraSubTotals", 0, 1, 1},
    {"fraCustomFields", 0, 2, 1},  {"fraStopOnErrorLevel", 1, 0, 1},
    {"fraPerformance", 1, 0, 1},   {"fraKeystrokes", 1, 0, 1},
    {"fraFilesAndLogs", 1, 1, 1},  {"fraInternalOptions", 1, 1, 1},
    {"fraTiming", 1, 2, 1},        {"fraDisplay", 2, 0, 1},
    {"fraTesting", 2, 0, 1},       {"fraWeights", 2, 1, 1},
    {"fraBoxes", 2, 1, 1},         {"fraDimensions", 2, 1, 1},
    {"fraColumnFactors", 2, 2, 1}, {"fraBuilds", 2, 2, 1},
    {"fraBatch", 3, 0, 1},         {"fraBatchResults", 3, 1, 2},
};

const FramePlace* PlaceOf(const std::string& frame) {
    for (const FramePlace& p : kFramePlaces) {
        if (EqualsNoCase(frame, p.frame)) return &p;
    }
    return nullptr;
}

HWND MakeChild(MainWindow& w, const wchar_t* cls, const std::string& text, DWORD style,
               DWORD exStyle, int id) {
    return CreateWindowExW(exStyle, cls, WideFromUtf8(text).c_str(),
                           WS_CHILD | WS_CLIPSIBLINGS | style, 0, 0, 0, 0, w.wnd,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                           GetModuleHandleW(nullptr), nullptr);
}

// The label in front of a field; SS_NOTIFY so that it shows the field's tip too.
HWND MakeCaption(MainWindow& w, const std::string& text) {
    return MakeChild(w, L"STATIC", text, SS_LEFT | SS_NOTIFY | SS_NOPREFIX, 0, -1);
}

// The up-down control that sets this label, if one does.
const Control* UpDownOf(const Form& form, const Control& label) {
    for (const Control& c : form.controls()) {
        if (c.kind == ControlKind::UpDown && EqualsNoCase(c.buddy, label.name)) return &c;
    }
    return nullptr;
}

void AddTip(MainWindow& w, HWND control, const std::string& tip) {
    if (control == nullptr || tip.empty()) return;
    std::wstring text = WideFromUtf8(tip);
    TTTOOLINFOW info = {};
    info.cbSize = sizeof info;
    info.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
    info.hwnd = w.wnd;
    info.uId = reinterpret_cast<UINT_PTR>(control);
    info.lpszText = text.data();
    SendMessageW(w.tips, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&info));
}

// A frame is a group box, which lets the mouse through to the window under it: its tip is a
// rectangle of the main window, kept where the frame is by LayoutControls.
void AddFrameTip(MainWindow& w, size_t i, const std::string& tip) {
    std::wstring text = WideFromUtf8(tip);
    TTTOOLINFOW info = {};
    info.cbSize = sizeof info;
    info.uFlags = TTF_SUBCLASS;
    info.hwnd = w.wnd;
    info.uId = kFirstControlId + i;
    info.lpszText = text.data();
    SendMessageW(w.tips, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&info));
}

// A group box leaves its inside unpainted, and the tab strip under it leaves out what lies under
// its siblings: the frame fills its inside itself.
LRESULT CALLBACK FrameProc(HWND h, UINT msg, WPARAM wp, LPARAM lp, UINT_PTR, DWORD_PTR) {
    if (msg == WM_ERASEBKGND) {
        RECT r{};
        GetClientRect(h, &r);
        FillRect(reinterpret_cast<HDC>(wp), &r, GetSysColorBrush(COLOR_BTNFACE));
        return 1;
    }
    return DefSubclassProc(h, msg, wp, lp);
}

void CreateOne(MainWindow& w, size_t i, bool& groupStart) {
    const Control& c = w.Model(i);
    const int id = kFirstControlId + static_cast<int>(i);
    BoundControl& b = w.bound[i];
    const DWORD tab = WS_TABSTOP | (groupStart ? WS_GROUP : 0);
    groupStart = false;
    switch (c.kind) {
        case ControlKind::Frame:
            b.wnd = MakeChild(w, L"BUTTON", c.caption, BS_GROUPBOX, 0, id);
            SetWindowSubclass(b.wnd, FrameProc, 0, 0);
            groupStart = true;  // the first control of a frame starts its group
            break;
        case ControlKind::CommandButton:
            b.wnd = MakeChild(w, L"BUTTON", c.caption, BS_PUSHBUTTON | tab, 0, id);
            break;
        case ControlKind::CheckBox:
            b.wnd = MakeChild(w, L"BUTTON", c.caption, BS_AUTOCHECKBOX | tab, 0, id);
            break;
        case ControlKind::OptionButton: {
            // Auto radio buttons clear each other within a group that WS_GROUP starts.
            const Control* prev = i > 0 ? &w.Model(i - 1) : nullptr;
            bool first = prev == nullptr || prev->kind != ControlKind::OptionButton ||
                         !EqualsNoCase(prev->group, c.group);
            b.wnd = MakeChild(w, L"BUTTON", c.caption,
                              BS_AUTORADIOBUTTON | WS_TABSTOP | (first ? WS_GROUP : 0), 0, id);
            // The control after the last option of a group starts a new group.
            groupStart = true;
            break;
        }
        case ControlKind::TextBox:
            b.caption = MakeCaption(w, c.caption);
            b.wnd = MakeChild(w, L"EDIT", c.text, ES_AUTOHSCROLL | tab, WS_EX_CLIENTEDGE, id);
            break;
        case ControlKind::ComboBox: {
            // The sort levels stand in rows under the frame's heading and need no label.
            if (!EqualsNoCase(c.name, "cboSortField")) b.caption = MakeCaption(w, c.caption);
            // cboTotalsItem holds an item name even when the list (from QuickBooks) lacks it.
            DWORD style = EqualsNoCase(c.name, "cboTotalsItem") ? CBS_DROPDOWN | CBS_AUTOHSCROLL
                                                                : CBS_DROPDOWNLIST;
            b.wnd = MakeChild(w, L"COMBOBOX", "", style | WS_VSCROLL | tab, 0, id);
            break;
        }
        case ControlKind::ListBox: {
            DWORD style = LBS_NOTIFY | LBS_NOINTEGRALHEIGHT | WS_VSCROLL | tab;
            if (c.holdsSetting) style |= LBS_MULTIPLESEL;
            b.wnd = MakeChild(w, L"LISTBOX", "", style, WS_EX_CLIENTEDGE, id);
            break;
        }
        case ControlKind::Label:
            if (c.name == "lblStatus") {
                b.wnd = MakeChild(w, L"STATIC", c.caption,
                                  SS_LEFTNOWORDWRAP | SS_NOPREFIX | SS_CENTERIMAGE,
                                  WS_EX_STATICEDGE, id);
            } else if (c.holdsSetting) {
                // A number kept as the label's caption, set by its up-down control.
                if (const Control* upDown = UpDownOf(w.app.frmMain, c)) {
                    b.caption = MakeCaption(w, upDown->caption);
                }
                b.wnd = MakeChild(w, L"STATIC", c.caption,
                                  SS_CENTER | SS_CENTERIMAGE | SS_NOTIFY | SS_NOPREFIX,
                                  WS_EX_STATICEDGE, id);
            } else {
                b.wnd =
                    MakeChild(w, L"STATIC", c.caption, SS_LEFT | SS_NOTIFY | SS_NOPREFIX, 0, id);
            }
            break;
        case ControlKind::UpDown:
            b.wnd = MakeChild(w, UPDOWN_CLASSW, "", UDS_ARROWKEYS | UDS_HOTTRACK, 0, id);
            SendMessageW(b.wnd, UDM_SETRANGE32, c.min, c.max);
            {
                // Millisecond labels run to thousands: hold the arrow and the steps grow.
                UDACCEL accel[] = {{0, 1}, {1, 10}, {2, 100}, {4, 1000}};
                SendMessageW(b.wnd, UDM_SETACCEL, 4, reinterpret_cast<LPARAM>(accel));
            }
            break;
        case ControlKind::Grid:
            b.wnd = MakeChild(w, WC_LISTVIEWW, "",
                              LVS_REPORT | LVS_SHOWSELALWAYS | LVS_NOSORTHEADER | tab,
                              WS_EX_CLIENTEDGE, id);
            SendMessageW(b.wnd, LVM_SETEXTENDEDLISTVIEWSTYLE, 0,
                         LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
            AddListColumns(b.wnd, c.list, w.Px(64));
            break;
        case ControlKind::ProgressBar:
            b.wnd = MakeChild(w, PROGRESS_CLASSW, "", PBS_SMOOTH, 0, id);
            break;
        case ControlKind::TabStrip: {
            b.wnd = MakeChild(w, WC_TABCONTROLW, "", WS_TABSTOP, 0, id);
            int item = 0;
            for (const std::string& page : c.list) {
                std::wstring text = WideFromUtf8(page);
                TCITEMW ti = {};
                ti.mask = TCIF_TEXT;
                ti.pszText = text.data();
                SendMessageW(b.wnd, TCM_INSERTITEMW, item++, reinterpret_cast<LPARAM>(&ti));
            }
            w.tabs = b.wnd;
            break;
        }
    }
    if (c.kind == ControlKind::Frame) {
        if (!c.tip.empty()) AddFrameTip(w, i, c.tip);
    } else if (c.kind == ControlKind::ComboBox && c.tip.empty() && b.caption == nullptr) {
        AddTip(w, b.wnd, c.caption);  // "Level 1" ... on the sort levels
    } else {
        AddTip(w, b.wnd, c.tip);
        AddTip(w, b.caption, c.tip);
    }
}

// ---- Layout -------------------------------------------------------------------------------

struct Measure {
    explicit Measure(MainWindow& w) : wnd(w.wnd), dc(GetDC(w.wnd)) {
        old = SelectObject(dc, w.font);
    }
    ~Measure() {
        SelectObject(dc, old);
        ReleaseDC(wnd, dc);
    }
    Measure(const Measure&) = delete;
    Measure& operator=(const Measure&) = delete;

    // Width of a caption as the control draws it ("&End" shows as "End").
    int Width(const std::string& text) const {
        std::wstring t = WideFromUtf8(ReplaceAll(text, "&", ""));
        SIZE s{};
        GetTextExtentPoint32W(dc, t.c_str(), static_cast<int>(t.size()), &s);
        return s.cx;
    }

    HWND wnd;
    HDC dc;
    HGDIOBJ old;
};

void Place(HWND h, RECT& box, int x, int y, int cx, int cy) {
    box = RECT{x, y, x + cx, y + cy};
    if (h != nullptr) MoveWindow(h, x, y, cx, cy, FALSE);
}

// The pieces of one frame's layout, in client pixels.
class FrameLayout {
  public:
    FrameLayout(MainWindow& w, const Measure& m, size_t frame, int x, int y, int width)
        : w_(w), m_(m), frame_(frame), x_(x), y_(y), width_(width) {
        inner_ = x + w.Px(kFramePad);
        innerWidth_ = width - 2 * w.Px(kFramePad);
        row_ = y + w.Px(kFrameTop);
        captionWidth_ = CaptionWidth();
    }

    // Lays out the frame's controls; returns the frame's bottom edge.
    int Run() {
        const std::string& name = w_.Model(frame_).name;
        for (size_t i = frame_ + 1; i < w_.bound.size() && InFrame(i); ++i) {
            if (EqualsNoCase(name, "fraSortCriteria")) {
                SortLevelRow(i);
                i += 2;
            } else {
                One(i);
            }
        }
        int bottom = row_ + w_.Px(4);
        Place(w_.bound[frame_].wnd, w_.bound[frame_].box, x_, y_, width_, bottom - y_);
        return bottom;
    }

  private:
    bool InFrame(size_t i) const {
        return EqualsNoCase(w_.Model(i).frame, w_.Model(frame_).name) &&
               w_.Model(i).kind != ControlKind::Frame;
    }

    // The widest label in front of a field of this frame, so that the fields line up.
    int CaptionWidth() const {
        int widest = w_.Px(60);
        for (size_t i = frame_ + 1; i < w_.bound.size() && InFrame(i); ++i) {
            const Control& c = w_.Model(i);
            if (w_.bound[i].caption != nullptr) {
                const Control* upDown = UpDownOf(w_.app.frmMain, c);
                widest = std::max(widest, m_.Width(upDown ? upDown->caption : c.caption));
            } else if (c.kind == ControlKind::Label && !c.holdsSetting) {
                widest = std::max(widest, m_.Width(c.caption));
            }
        }
        return std::min(widest + w_.Px(10), innerWidth_ - w_.Px(100));
    }

    void One(size_t i) {
        const Control& c = w_.Model(i);
        BoundControl& b = w_.bound[i];
        const int field = w_.Px(kFieldHeight);
        const int fieldTop = FieldTop();
        const int fieldLeft = inner_ + captionWidth_;
        switch (c.kind) {
            case ControlKind::CheckBox:
            case ControlKind::OptionButton:
                Place(b.wnd, b.box, inner_, fieldTop, innerWidth_, field);
                break;
            case ControlKind::CommandButton:
                Place(b.wnd, b.box, inner_, fieldTop,
                      std::max(w_.Px(84), m_.Width(c.caption) + w_.Px(24)), field);
                break;
            case ControlKind::TextBox:
                PlaceCaption(b);
                Place(b.wnd, b.box, fieldLeft, fieldTop,
                      std::min(innerWidth_ - captionWidth_, w_.Px(120)), field);
                break;
            case ControlKind::ComboBox:
                PlaceCaption(b);
                // A combo box's height includes its drop-down list.
                Place(b.wnd, b.box, fieldLeft, fieldTop, innerWidth_ - captionWidth_, w_.Px(240));
                break;
            case ControlKind::Label:
                if (b.caption != nullptr) {
                    PlaceCaption(b);
                    Place(b.wnd, b.box, fieldLeft, fieldTop, w_.Px(kValueWidth), field);
                    if (i + 1 < w_.bound.size() && w_.Model(i + 1).kind == ControlKind::UpDown) {
                        BoundControl& ud = w_.bound[i + 1];
                        Place(ud.wnd, ud.box, fieldLeft + w_.Px(kValueWidth), fieldTop,
                              w_.Px(kUpDownWidth), field);
                    }
                } else if (c.holdsSetting && i > 0 && w_.Model(i - 1).kind == ControlKind::Label) {
                    // lblScreenLeft and lblScreenTop stand beside their heading.
                    const RECT& prev = w_.bound[i - 1].box;
                    int left = w_.Model(i - 1).holdsSetting ? prev.right + w_.Px(kGap) : fieldLeft;
                    Place(b.wnd, b.box, left, lastFieldTop_, w_.Px(kValueWidth), field);
                    return;  // same row
                } else if (EqualsNoCase(c.name, "lblBatchMessage")) {
                    // The batch's message: the frame's width, two lines of text.
                    Place(b.wnd, b.box, inner_, fieldTop, innerWidth_, 2 * field);
                    row_ += w_.Px(kRowHeight);
                } else {
                    RECT ignored;
                    Place(b.wnd, ignored, inner_, fieldTop + w_.Px(3), captionWidth_ - w_.Px(6),
                          field - w_.Px(3));
                    b.box = RECT{inner_, fieldTop, inner_ + captionWidth_, fieldTop + field};
                }
                break;
            case ControlKind::ListBox: {
                int item = static_cast<int>(SendMessageW(b.wnd, LB_GETITEMHEIGHT, 0, 0));
                int height = item * static_cast<int>(c.list.size()) + w_.Px(6);
                Place(b.wnd, b.box, inner_, row_, innerWidth_, height);
                row_ += height + w_.Px(kGap);
                return;
            }
            case ControlKind::Grid: {
                // The batch's results stand beside the whole Batch frame.
                const int height = c.name == "grdBatch" ? kBatchGridHeight : kGridHeight;
                Place(b.wnd, b.box, inner_, row_ + w_.Px(2), innerWidth_, w_.Px(height));
                ListView_SetColumnWidth(b.wnd, static_cast<int>(c.list.size()) - 1,
                                        LVSCW_AUTOSIZE_USEHEADER);
                row_ += w_.Px(height + kGap);
                return;
            }
            case ControlKind::ProgressBar:
                Place(b.wnd, b.box, inner_, fieldTop, innerWidth_, field);
                break;
            case ControlKind::UpDown:  // placed with its label
                return;
            case ControlKind::Frame:
            case ControlKind::TabStrip:
                return;
        }
        lastFieldTop_ = fieldTop;
        row_ += w_.Px(kRowHeight);
    }

    // A label's text lines up with the text inside the field beside it.
    void PlaceCaption(BoundControl& b) {
        RECT ignored;
        Place(b.caption, ignored, inner_, FieldTop() + w_.Px(3), captionWidth_ - w_.Px(6),
              w_.Px(kFieldHeight - 3));
    }

    int FieldTop() const { return row_ + (w_.Px(kRowHeight) - w_.Px(kFieldHeight)) / 2; }

    // One sort level: the key, the case box under the word "Case" of the frame's caption,
    // and the descending box.
    void SortLevelRow(size_t i) {
        const std::string& caption = w_.Model(frame_).caption;
        size_t at = caption.rfind("Case");
        // A group box draws its caption from about one average character in.
        int captionLeft = x_ + w_.Px(9);
        int caseCenter = captionLeft + m_.Width(caption.substr(0, at)) + m_.Width("Case") / 2;
        int box = GetSystemMetrics(SM_CXMENUCHECK) + w_.Px(2);
        int caseLeft = caseCenter - box / 2;
        int comboWidth = std::max(w_.Px(120), caseLeft - inner_ - w_.Px(12));
        const int field = w_.Px(kFieldHeight);
        const int top = row_ + (w_.Px(kRowHeight) - field) / 2;
        BoundControl& key = w_.bound[i];
        BoundControl& desc = w_.bound[i + 1];
        BoundControl& cased = w_.bound[i + 2];
        Place(key.wnd, key.box, inner_, top, comboWidth, w_.Px(240));
        int caseX = std::max(caseLeft, inner_ + comboWidth + w_.Px(12));
        Place(cased.wnd, cased.box, caseX, top, box, field);
        int descX = caseX + box + w_.Px(20);
        Place(desc.wnd, desc.box, descX, top, x_ + width_ - w_.Px(kFramePad) - descX, field);
        row_ += w_.Px(kRowHeight + 1);
    }

    MainWindow& w_;
    const Measure& m_;
    size_t frame_;
    int x_, y_, width_;
    int inner_ = 0, innerWidth_ = 0, row_ = 0, captionWidth_ = 0, lastFieldTop_ = 0;
};

void MoveFrameTip(MainWindow& w, size_t i, const RECT& box) {
    TTTOOLINFOW info = {};
    info.cbSize = sizeof info;
    info.hwnd = w.wnd;
    info.uId = kFirstControlId + i;
    info.rect = box;
    SendMessageW(w.tips, TTM_NEWTOOLRECTW, 0, reinterpret_cast<LPARAM>(&info));
}

SIZE WindowSizeFor(MainWindow& w, int clientWidth, int clientHeight) {
    RECT r{0, 0, clientWidth, clientHeight};
    using AdjustForDpi = BOOL(WINAPI*)(LPRECT, DWORD, BOOL, DWORD, UINT);
    auto adjust = reinterpret_cast<AdjustForDpi>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"user32.dll"), "AdjustWindowRectExForDpi")));
    DWORD style = static_cast<DWORD>(GetWindowLongPtrW(w.wnd, GWL_STYLE));
    DWORD exStyle = static_cast<DWORD>(GetWindowLongPtrW(w.wnd, GWL_EXSTYLE));
    if (adjust != nullptr) {
        adjust(&r, style, FALSE, exStyle, w.dpi);
    } else {
        AdjustWindowRectEx(&r, style, FALSE, exStyle);
    }
    return SIZE{r.right - r.left, r.bottom - r.top};
}

}  // namespace

Control& MainWindow::Model(size_t i) {
    return app.frmMain.controls()[i];
}

size_t MainWindow::IndexOf(const std::string& name, int index) const {
    return static_cast<size_t>(MainControlId(app.frmMain, name, index) - kFirstControlId);
}

UINT WindowDpi(HWND wnd) {
    using GetDpi = UINT(WINAPI*)(HWND);
    auto get = reinterpret_cast<GetDpi>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"user32.dll"), "GetDpiForWindow")));
    if (get != nullptr) {
        UINT dpi = get(wnd);
        if (dpi != 0) return dpi;
    }
    HDC dc = GetDC(nullptr);
    UINT dpi = static_cast<UINT>(GetDeviceCaps(dc, LOGPIXELSY));
    ReleaseDC(nullptr, dc);
    return dpi != 0 ? dpi : 96;
}

void CreateControls(MainWindow& w) {
    // The tips' window has no owner: Wine does not make a window topmost while it owns a
    // popup (it puts the window below the popup instead), and chkAlwaysOnTop must work.
    w.tips = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr,
                             WS_POPUP | TTS_ALWAYSTIP | TTS_NOPREFIX, CW_USEDEFAULT, CW_USEDEFAULT,
                             CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr,
                             GetModuleHandleW(nullptr), nullptr);
    SendMessageW(w.tips, TTM_SETMAXTIPWIDTH, 0, w.Px(360));
    const Form& form = w.app.frmMain;
    w.bound.assign(form.controls().size(), BoundControl{});
    bool groupStart = true;
    for (size_t i = 0; i < w.bound.size(); ++i) {
        CreateOne(w, i, groupStart);
        const Control& c = w.Model(i);
        if (const FramePlace* p = PlaceOf(c.kind == ControlKind::Frame ? c.name : c.frame)) {
            w.bound[i].page = p->page;
        }
    }
    // Frames go under their controls and the pages under the frames, or they would paint over
    // them; the rest keep their creation order, which is also the Tab key's order.
    for (size_t i = 0; i < w.bound.size(); ++i) {
        if (w.Model(i).kind == ControlKind::Frame) {
            SetWindowPos(w.bound[i].wnd, HWND_BOTTOM, 0, 0, 0, 0,
                         SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
        }
    }
    if (w.tabs != nullptr) {
        SetWindowPos(w.tabs, HWND_BOTTOM, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    }
}

void ApplyFont(MainWindow& w) {
    NONCLIENTMETRICSW metrics = {};
    metrics.cbSize = sizeof metrics;
    using ForDpi = BOOL(WINAPI*)(UINT, UINT, PVOID, UINT, UINT);
    auto forDpi = reinterpret_cast<ForDpi>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"user32.dll"), "SystemParametersInfoForDpi")));
    if (forDpi == nullptr || !forDpi(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0, w.dpi)) {
        SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0);
        metrics.lfMessageFont.lfHeight =
            MulDiv(metrics.lfMessageFont.lfHeight, static_cast<int>(w.dpi),
                   static_cast<int>(WindowDpi(nullptr)));
    }
    HFONT font = CreateFontIndirectW(&metrics.lfMessageFont);
    if (font == nullptr) return;
    for (const BoundControl& b : w.bound) {
        for (HWND h : {b.wnd, b.caption}) {
            if (h != nullptr) SendMessageW(h, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
        }
    }
    if (w.font != nullptr) DeleteObject(w.font);
    w.font = font;
}

void LayoutControls(MainWindow& w) {
    Measure m(w);
    const int margin = w.Px(kMargin), gap = w.Px(kGap);

    // The commands in one row, then the status label and the message list.
    int x = margin;
    for (const char* name : {"cmdGo", "cmdStop", "cmdUndo", "cmdSave", "cmdExpand", "cmdEnd"}) {
        size_t i = w.IndexOf(name);
        int width = std::max(w.Px(84), m.Width(w.Model(i).caption) + w.Px(24));
        if (EqualsNoCase(name, "cmdExpand")) {
            width = std::max({width, m.Width("Expand") + w.Px(24), m.Width("Collapse") + w.Px(24)});
        }
        Place(w.bound[i].wnd, w.bound[i].box, x, margin, width, w.Px(kButtonHeight));
        x += width + gap;
    }
    const int smallWidth = x - gap + margin;
    const int statusTop = margin + w.Px(kButtonHeight) + gap + w.Px(2);

    // The settings pages: frames flow down their columns.
    std::array<int, kColumns> columnBottom{};
    const int column = w.Px(kColumnWidth), columnGap = w.Px(kMargin);
    const int pageWidth = kColumns * column + (kColumns - 1) * columnGap;
    int pageHeight = 0;
    const int listHeight = w.Px(w.expanded ? kExpandedListHeight : kSmallListHeight);
    const int tabsTop = statusTop + w.Px(kFieldHeight) + gap + listHeight + gap + w.Px(4);
    const int expandedWidth = margin * 2 + pageWidth + w.Px(16);
    // Where the pages' origin lies inside the tab strip, from the strip's own metrics.
    RECT display{margin, tabsTop, margin + expandedWidth - 2 * margin, tabsTop + w.Px(400)};
    MoveWindow(w.tabs, display.left, display.top, display.right - display.left,
               display.bottom - display.top, FALSE);
    SendMessageW(w.tabs, TCM_ADJUSTRECT, FALSE, reinterpret_cast<LPARAM>(&display));
    const int originX = display.left + w.Px(4), originY = display.top + w.Px(6);
    const int pages = static_cast<int>(w.Model(w.IndexOf("SSTab1")).list.size());
    for (int p = 0; p < pages; ++p) {
        columnBottom.fill(originY);
        for (const FramePlace& place : kFramePlaces) {
            if (place.page != p) continue;
            size_t i = w.IndexOf(place.frame);
            int top = *std::max_element(columnBottom.begin() + place.column,
                                        columnBottom.begin() + place.column + place.span);
            int left = originX + place.column * (column + columnGap);
            int width = place.span * column + (place.span - 1) * columnGap;
            FrameLayout frame(w, m, i, left, top, width);
            int bottom = frame.Run() + gap;
            for (int c = place.column; c < place.column + place.span; ++c) columnBottom[c] = bottom;
            pageHeight = std::max(pageHeight, bottom - originY);
        }
    }
    // The tab strip around the tallest page.
    const int stripHeight = (originY - tabsTop) + pageHeight + w.Px(8);
    const RECT strip{margin, tabsTop, expandedWidth - margin, tabsTop + stripHeight};
    size_t tabsIndex = w.IndexOf("SSTab1");
    Place(w.tabs, w.bound[tabsIndex].box, strip.left, strip.top, strip.right - strip.left,
          strip.bottom - strip.top);

    const int width = w.expanded ? expandedWidth : smallWidth;
    size_t status = w.IndexOf("lblStatus");
    Place(w.bound[status].wnd, w.bound[status].box, margin, statusTop, width - 2 * margin,
          w.Px(kFieldHeight));
    size_t msgs = w.IndexOf("lstMsgs");
    Place(w.bound[msgs].wnd, w.bound[msgs].box, margin, statusTop + w.Px(kFieldHeight) + gap,
          width - 2 * margin, listHeight);

    const int smallHeight = statusTop + w.Px(kFieldHeight) + gap + w.Px(kSmallListHeight) + margin;
    w.smallSize = WindowSizeFor(w, smallWidth, smallHeight);
    w.expandedSize = WindowSizeFor(w, expandedWidth, strip.bottom + margin);

    for (size_t i = 0; i < w.bound.size(); ++i) {
        const Control& c = w.Model(i);
        if (c.kind == ControlKind::Frame && !c.tip.empty()) MoveFrameTip(w, i, w.bound[i].box);
    }
    ShowPage(w);
    InvalidateRect(w.wnd, nullptr, TRUE);
}

void ShowPage(MainWindow& w) {
    const int selected = w.tabs ? static_cast<int>(SendMessageW(w.tabs, TCM_GETCURSEL, 0, 0)) : 0;
    for (size_t i = 0; i < w.bound.size(); ++i) {
        const BoundControl& b = w.bound[i];
        bool show = b.page < 0 ? (b.wnd != w.tabs || w.expanded) : w.expanded && b.page == selected;
        for (HWND h : {b.wnd, b.caption}) {
            if (h != nullptr) ShowWindow(h, show ? SW_SHOWNA : SW_HIDE);
        }
        const Control& c = w.Model(i);
        if (c.kind == ControlKind::Frame && !c.tip.empty()) {
            MoveFrameTip(w, i, show ? b.box : RECT{0, 0, 0, 0});
        }
    }
}

}  // namespace pelmark::ui
