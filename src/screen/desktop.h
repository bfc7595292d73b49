// The seam through which the program sees and drives the Windows desktop: the window tree,
// window texts, keystrokes and the clipboard. Win32 implements it for real; the simulated
// desktop of qbsim implements it with fake QuickBooks windows.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace pelmark::screen {

// A window handle; 0 is no window.
using Hwnd = std::uintptr_t;

// GetWindow relations, numbered as Windows numbers them.
enum WindowRel : int { kGwHwndNext = 2, kGwOwner = 4, kGwChild = 5 };

class Desktop {
  public:
    virtual ~Desktop() = default;

    // The window tree.
    virtual Hwnd GetDesktopWindow() = 0;
    virtual Hwnd GetWindow(Hwnd wnd, int relation) = 0;  // kGwChild, kGwHwndNext, kGwOwner
    virtual Hwnd GetParent(Hwnd wnd) = 0;
    // A window's title and class (GetWindowText / GetClassName) as UTF-8, cut to fit a buffer
    // of `maxChars` bytes; lengths and buffers everywhere here count bytes of the UTF-8 text.
    // (Named apart from the Win32 functions, which <windows.h> turns into macros.)
    virtual std::string WindowText(Hwnd wnd, int maxChars = 255) = 0;
    virtual std::string WindowClass(Hwnd wnd, int maxChars = 255) = 0;
    // FindWindowExA: the next child of `parent` after `after` (0: the first) whose class and
    // title equal the given ones (empty: any).
    virtual Hwnd FindChild(Hwnd parent, Hwnd after, const std::string& className,
                           const std::string& title) = 0;
    // WM_GETTEXTLENGTH and WM_GETTEXT, which reach into controls of other programs.
    virtual int GetTextLength(Hwnd wnd) = 0;
    virtual std::string GetTextByMessage(Hwnd wnd, int maxChars) = 0;
    // WM_MDIGETACTIVE sent to an MDIClient window.
    virtual Hwnd GetMdiActiveChild(Hwnd mdiClient) = 0;
    virtual bool IsWindow(Hwnd wnd) = 0;
    virtual bool IsVisible(Hwnd wnd) = 0;  // IsWindowVisible

    // Focus and z-order.
    virtual bool SetFocus(Hwnd wnd) = 0;
    // SetWindowPos with HWND_TOPMOST (on) or HWND_NOTOPMOST (off) at the given position.
    virtual bool SetTopMost(Hwnd wnd, bool on, int left, int top, int width, int height) = 0;
    // Brings that top-level window to the front (restored when minimized).
    virtual bool Activate(Hwnd wnd) = 0;

    // Keystrokes in SendKeys notation ("%a", "(^(+{END}))", "{TAB}", "{(}"), to the window that
    // has the focus. `wait`: return when they have been processed.
    virtual bool SendKeys(const std::string& keys, bool wait) = 0;

    // The clipboard's text.
    virtual bool ClearClipboard() = 0;
    virtual std::optional<std::string> GetClipboardText() = 0;
};

#ifdef _WIN32
// The real desktop: Win32 window calls, SendInput keystrokes and the system clipboard.
std::unique_ptr<Desktop> MakeWin32Desktop();
#endif

}  // namespace pelmark::screen
