// The Win32 desktop: window calls, SendInput keystrokes and the system clipboard.
#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "app/wideText.h"
#include "screen/desktop.h"
#include "screen/sendKeys.h"

namespace pelmark::screen {
namespace {

// Texts cross the seam as UTF-8, like every other text of the program; the W calls give them
// whole, where the A calls would lose what the ANSI code page cannot hold.
std::string Utf8(const wchar_t* w, int n) {
    return n > 0 ? Utf8FromWide(w, static_cast<size_t>(n)) : std::string();
}
std::wstring Wide(const std::string& s) {
    return WideFromUtf8(s);
}

HWND H(Hwnd wnd) {
    return reinterpret_cast<HWND>(wnd);
}
Hwnd W(HWND wnd) {
    return reinterpret_cast<Hwnd>(wnd);
}

// A hung QuickBooks must not hang the run: messages sent to its windows give up after this.
constexpr UINT kMessageTimeoutMs = 2000;
// How long a send with wait waits for QuickBooks to take its keys before going on.
constexpr DWORD kKeysTimeoutMs = 2000;

// What a buffer of `maxChars` characters holds: at most maxChars - 1 of them. A character of
// the program is a byte of its UTF-8 text (as it was of the ANSI text); a cut never splits one
// letter's bytes.
std::string FitBuffer(std::string s, int maxChars) {
    size_t room = maxChars > 1 ? static_cast<size_t>(maxChars - 1) : 0;
    if (s.size() <= room) return s;
    while (room > 0 && (static_cast<unsigned char>(s[room]) & 0xC0) == 0x80) --room;
    s.resize(room);
    return s;
}

// AttachThreadInput needs a message queue on both threads; a thread gets one with its first
// message call.
void EnsureMessageQueue() {
    MSG msg;
    PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE);
}

// Shares the input state (focus, active window, key state) of another thread for a scope.
class InputAttachment {
  public:
    explicit InputAttachment(DWORD other) : self_(GetCurrentThreadId()), other_(other) {
        if (other_ == 0 || other_ == self_) return;
        EnsureMessageQueue();
        attached_ = AttachThreadInput(self_, other_, TRUE) != 0;
    }
    ~InputAttachment() {
        if (attached_) AttachThreadInput(self_, other_, FALSE);
    }
    InputAttachment(const InputAttachment&) = delete;
    InputAttachment& operator=(const InputAttachment&) = delete;

  private:
    DWORD self_, other_;
    bool attached_ = false;
};

void PressAlt() {
    INPUT in[2] = {};
    for (INPUT& i : in) {
        i.type = INPUT_KEYBOARD;
        i.ki.wVk = VK_MENU;
        i.ki.wScan = static_cast<WORD>(MapVirtualKeyW(VK_MENU, MAPVK_VK_TO_VSC));
    }
    in[1].ki.dwFlags = KEYEVENTF_KEYUP;
    SendInput(2, in, sizeof(INPUT));
}

bool WaitForeground(HWND wnd, DWORD ms) {
    for (DWORD waited = 0;; waited += 10) {
        if (GetForegroundWindow() == wnd) return true;
        if (waited >= ms) return false;
        Sleep(10);
    }
}

// Windows lets only the program the user last worked with change the foreground window.
// Sharing the input state of the foreground thread lifts that for our call; failing that, an
// injected key press makes us the last program with input (two Alt presses, so that the menu
// bar the first one opens is closed again by the second).
bool BringToFront(HWND wnd) {
    if (IsIconic(wnd)) ShowWindow(wnd, SW_RESTORE);
    if (GetForegroundWindow() == wnd) return true;
    HWND fg = GetForegroundWindow();
    {
        InputAttachment attach(fg ? GetWindowThreadProcessId(fg, nullptr) : 0);
        SetForegroundWindow(wnd);
        BringWindowToTop(wnd);
    }
    if (WaitForeground(wnd, 200)) return true;
    PressAlt();
    PressAlt();
    SetForegroundWindow(wnd);
    return WaitForeground(wnd, 500);
}

bool IsExtendedKey(int vk) {
    switch (vk) {
        case VK_PRIOR:
        case VK_NEXT:
        case VK_END:
        case VK_HOME:
        case VK_LEFT:
        case VK_UP:
        case VK_RIGHT:
        case VK_DOWN:
        case VK_INSERT:
        case VK_DELETE:
        case VK_NUMLOCK:
        case VK_DIVIDE:
        case VK_SNAPSHOT:
        case VK_CANCEL:
        case VK_LWIN:
        case VK_RWIN:
        case VK_APPS:
            return true;
        default:
            return false;
    }
}

INPUT KeyInput(int vk, bool up) {
    INPUT in = {};
    in.type = INPUT_KEYBOARD;
    in.ki.wVk = static_cast<WORD>(vk);
    // Programs that read the scan code from lParam (QuickBooks' grid among them) see the key a
    // keyboard would have sent.
    in.ki.wScan = static_cast<WORD>(MapVirtualKeyW(static_cast<UINT>(vk), MAPVK_VK_TO_VSC));
    in.ki.dwFlags = (up ? KEYEVENTF_KEYUP : 0) | (IsExtendedKey(vk) ? KEYEVENTF_EXTENDEDKEY : 0);
    return in;
}

INPUT CharInput(wchar_t c, bool up) {
    INPUT in = {};
    in.type = INPUT_KEYBOARD;
    in.ki.wScan = c;
    in.ki.dwFlags = KEYEVENTF_UNICODE | (up ? KEYEVENTF_KEYUP : 0);
    return in;
}

// `text` is one character (two UTF-16 units for one outside the basic plane), or empty for
// the virtual key `vk`.
std::vector<INPUT> BuildStroke(int vk, const std::wstring& text, bool shift, bool ctrl, bool alt) {
    std::vector<INPUT> events;
    if (text.size() == 1 && vk == 0) {
        wchar_t c = text[0];
        if (c == L'\t') vk = VK_TAB;
        if (c == L'\r' || c == L'\n') vk = VK_RETURN;
        // With Ctrl or Alt held a character must arrive as its key (Ctrl+C, not a typed "c"), so
        // it goes out as the key of the keyboard layout that types it.
        if (vk == 0 && (ctrl || alt)) {
            SHORT scan = VkKeyScanW(c);
            if (scan != -1 && (scan & 0x0600) == 0) {
                vk = scan & 0xFF;
                shift = shift || (scan & 0x0100);
            }
        }
    }
    std::vector<int> mods;
    if (shift) mods.push_back(VK_SHIFT);
    if (ctrl) mods.push_back(VK_CONTROL);
    if (alt) mods.push_back(VK_MENU);
    for (int m : mods) events.push_back(KeyInput(m, false));
    if (vk != 0) {
        events.push_back(KeyInput(vk, false));
        events.push_back(KeyInput(vk, true));
    } else {
        // KEYEVENTF_UNICODE types the character itself whatever the keyboard layout (no dead
        // keys, no missing keys); the program receives it as VK_PACKET.
        for (wchar_t c : text) {
            events.push_back(CharInput(c, false));
            events.push_back(CharInput(c, true));
        }
    }
    for (auto m = mods.rbegin(); m != mods.rend(); ++m) events.push_back(KeyInput(*m, true));
    return events;
}

// The strokes of a parse, with a literal UTF-8 sequence (one stroke per byte in the parse)
// joined into its character.
struct Stroke {
    int vk = 0;
    std::wstring text;
    bool shift = false, ctrl = false, alt = false;
};

std::vector<Stroke> JoinCharacters(const std::vector<KeyStroke>& in) {
    std::vector<Stroke> out;
    for (size_t i = 0; i < in.size(); ++i) {
        const KeyStroke& k = in[i];
        Stroke s{k.vk, {}, k.shift, k.ctrl, k.alt};
        if (k.vk == 0) {
            auto lead = static_cast<unsigned char>(k.ch);
            size_t len = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
            std::string bytes(1, k.ch);
            while (bytes.size() < len && i + 1 < in.size() && in[i + 1].vk == 0 &&
                   (static_cast<unsigned char>(in[i + 1].ch) & 0xC0) == 0x80)
                bytes += in[++i].ch;
            s.text = Wide(bytes);
        }
        out.push_back(std::move(s));
    }
    return out;
}

// Windows gives a window WM_PAINT only when its thread has no input and no posted message
// waiting. A pixel of the focus window invalidated after the keys went out is therefore
// painted again only once QuickBooks has taken and handled every key before it. The probe is
// made twice, since Windows may still be moving the keys into QuickBooks' queue at the first.
void WaitKeysProcessed() {
    HWND fg = GetForegroundWindow();
    DWORD thread = fg ? GetWindowThreadProcessId(fg, nullptr) : 0;
    if (thread == 0) return;
    if (thread == GetCurrentThreadId()) {
        // Our own window has the focus: the keys came to this thread, which must run them.
        MSG msg;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
        return;
    }
    for (int probe = 0; probe < 2; ++probe) {
        GUITHREADINFO gui = {};
        gui.cbSize = sizeof gui;
        if (!GetGUIThreadInfo(thread, &gui)) return;
        HWND wnd = gui.hwndFocus ? gui.hwndFocus : gui.hwndActive;
        if (!wnd) return;
        RECT pixel = {0, 0, 1, 1};
        RedrawWindow(wnd, &pixel, nullptr, RDW_INVALIDATE);
        // A hidden window is never painted; there is nothing to wait for.
        if (!GetUpdateRect(wnd, nullptr, FALSE)) return;
        DWORD start = GetTickCount();
        while (IsWindow(wnd) && GetUpdateRect(wnd, nullptr, FALSE)) {
            if (GetTickCount() - start >= kKeysTimeoutMs) return;
            Sleep(1);
        }
    }
}

bool OpenClipboardPatiently() {
    // Another program (the one that just copied, a clipboard viewer, a remote-desktop client)
    // may hold the clipboard open for a moment.
    for (int i = 0; i < 40; ++i) {
        if (OpenClipboard(nullptr)) return true;
        Sleep(25);
    }
    return false;
}

// WM_GETTEXT with a buffer of `units` UTF-16 units; nothing when the window did not answer.
std::optional<std::string> TextByMessage(Hwnd wnd, int units) {
    std::wstring buf(static_cast<size_t>(units), L'\0');
    DWORD_PTR copied = 0;
    if (!SendMessageTimeoutW(H(wnd), WM_GETTEXT, static_cast<WPARAM>(units),
                             reinterpret_cast<LPARAM>(buf.data()), SMTO_ABORTIFHUNG,
                             kMessageTimeoutMs, &copied))
        return std::nullopt;
    int n = static_cast<int>(copied);
    if (n > units - 1) n = units - 1;
    return Utf8(buf.data(), n);
}

class Win32Desktop : public Desktop {
  public:
    Hwnd GetDesktopWindow() override { return W(::GetDesktopWindow()); }
    Hwnd GetWindow(Hwnd wnd, int relation) override {
        return W(::GetWindow(H(wnd), static_cast<UINT>(relation)));
    }
    Hwnd GetParent(Hwnd wnd) override { return W(::GetParent(H(wnd))); }

    // A UTF-16 buffer of maxChars units holds at least as much as maxChars bytes of UTF-8.
    std::string WindowText(Hwnd wnd, int maxChars) override {
        if (maxChars <= 1) return {};
        std::wstring buf(static_cast<size_t>(maxChars), L'\0');
        int n = GetWindowTextW(H(wnd), buf.data(), maxChars);
        return FitBuffer(Utf8(buf.data(), n), maxChars);
    }
    std::string WindowClass(Hwnd wnd, int maxChars) override {
        if (maxChars <= 1) return {};
        std::wstring buf(static_cast<size_t>(maxChars), L'\0');
        int n = GetClassNameW(H(wnd), buf.data(), maxChars);
        return FitBuffer(Utf8(buf.data(), n), maxChars);
    }
    Hwnd FindChild(Hwnd parent, Hwnd after, const std::string& className,
                   const std::string& title) override {
        std::wstring cls = Wide(className), text = Wide(title);
        return W(FindWindowExW(H(parent), H(after), className.empty() ? nullptr : cls.c_str(),
                               title.empty() ? nullptr : text.c_str()));
    }

    // The length in the same characters as GetTextByMessage counts, so that a buffer of the
    // length plus one holds the whole text: the UTF-8 length of the text.
    int GetTextLength(Hwnd wnd) override {
        DWORD_PTR units = 0;
        if (!SendMessageTimeoutW(H(wnd), WM_GETTEXTLENGTH, 0, 0, SMTO_ABORTIFHUNG,
                                 kMessageTimeoutMs, &units) ||
            units == 0)
            return 0;
        std::optional<std::string> text = TextByMessage(wnd, static_cast<int>(units) + 1);
        // WM_GETTEXTLENGTH may overstate; when the text cannot be had, its word stands.
        return text ? static_cast<int>(text->size()) : static_cast<int>(units);
    }
    std::string GetTextByMessage(Hwnd wnd, int maxChars) override {
        if (maxChars <= 1) return {};
        return FitBuffer(TextByMessage(wnd, maxChars).value_or(std::string()), maxChars);
    }
    Hwnd GetMdiActiveChild(Hwnd mdiClient) override {
        DWORD_PTR child = 0;
        if (!SendMessageTimeoutW(H(mdiClient), WM_MDIGETACTIVE, 0, 0, SMTO_ABORTIFHUNG,
                                 kMessageTimeoutMs, &child))
            return 0;
        return static_cast<Hwnd>(child);
    }
    bool IsWindow(Hwnd wnd) override { return wnd != 0 && ::IsWindow(H(wnd)); }
    bool IsVisible(Hwnd wnd) override { return wnd != 0 && ::IsWindowVisible(H(wnd)); }

    bool SetFocus(Hwnd wnd) override {
        HWND h = H(wnd);
        if (!IsWindow(wnd)) return false;
        // SetFocus reaches only windows of the caller's input queue; QuickBooks' controls
        // belong to another thread, whose input state we share for the call.
        InputAttachment attach(GetWindowThreadProcessId(h, nullptr));
        ::SetFocus(h);
        return ::GetFocus() == h;
    }

    bool SetTopMost(Hwnd wnd, bool on, int left, int top, int width, int height) override {
        return SetWindowPos(H(wnd), on ? HWND_TOPMOST : HWND_NOTOPMOST, left, top, width, height,
                            0) != 0;
    }

    bool Activate(Hwnd wnd) override {
        return wnd != 0 && ::IsWindow(H(wnd)) && BringToFront(H(wnd));
    }

    bool SendKeys(const std::string& keys, bool wait) override {
        SendKeysParse parse = ParseSendKeys(keys);
        if (!parse.ok) return false;
        for (const Stroke& k : JoinCharacters(parse.strokes)) {
            std::vector<INPUT> events = BuildStroke(k.vk, k.text, k.shift, k.ctrl, k.alt);
            if (events.empty()) continue;
            UINT sent = SendInput(static_cast<UINT>(events.size()), events.data(), sizeof(INPUT));
            if (sent != events.size()) return false;
            if (wait) WaitKeysProcessed();
        }
        return true;
    }

    bool ClearClipboard() override {
        if (!OpenClipboardPatiently()) return false;
        bool ok = EmptyClipboard() != 0;
        CloseClipboard();
        return ok;
    }

    // Empty when the clipboard holds no text; nothing when it could not be opened.
    std::optional<std::string> GetClipboardText() override {
        if (!OpenClipboardPatiently()) return std::nullopt;
        std::string text;
        // Windows converts CF_TEXT put there by ANSI programs to CF_UNICODETEXT on request.
        if (HANDLE data = GetClipboardData(CF_UNICODETEXT)) {
            if (const auto* w = static_cast<const wchar_t*>(GlobalLock(data))) {
                // The block may be larger than the text and is not trusted to hold a NUL.
                size_t max = GlobalSize(data) / sizeof(wchar_t), n = 0;
                while (n < max && w[n] != L'\0') ++n;
                text = Utf8(w, static_cast<int>(n));
                GlobalUnlock(data);
            }
        }
        CloseClipboard();
        return text;
    }
};

}  // namespace

std::unique_ptr<Desktop> MakeWin32Desktop() {
    return std::make_unique<Win32Desktop>();
}

}  // namespace pelmark::screen
