// What the window tests share: real mouse clicks, the program's message boxes, and pelmark.exe
// started on a settings file of the test's own.
#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/wideText.h"
#include "fakes/fakes.h"
#include "ui/frmMain.h"
#include "wine/fakeqb_win.h"
#include "wine/program_win.h"

namespace pelmark::test {

inline bool WaitFor(const std::function<bool()>& done, int ms = 5000) {
    return WaitUntil(done, ms);
}

// A real mouse click at a point of the screen. The position goes with the button events: under
// Wine a SetCursorPos just before them may not have reached the X server when they are handled.
inline void ClickAt(int x, int y) {
    INPUT in[3] = {};
    for (INPUT& i : in) {
        i.type = INPUT_MOUSE;
        i.mi.dx = MulDiv(x, 65535, GetSystemMetrics(SM_CXSCREEN) - 1);
        i.mi.dy = MulDiv(y, 65535, GetSystemMetrics(SM_CYSCREEN) - 1);
        i.mi.dwFlags = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE;
    }
    in[1].mi.dwFlags |= MOUSEEVENTF_LEFTDOWN;
    in[2].mi.dwFlags |= MOUSEEVENTF_LEFTUP;
    SendInput(3, in, sizeof(INPUT));
    Sleep(150);
}

// Clicks a window at a fraction of its width and height (the middle by default).
inline void Click(HWND h, double fx = 0.5, double fy = 0.5) {
    RECT r{};
    GetWindowRect(h, &r);
    ClickAt(r.left + static_cast<int>((r.right - r.left) * fx),
            r.top + static_cast<int>((r.bottom - r.top) * fy));
}

// A button's click as the button itself reports it: posted, so that a modal form or message box
// it opens does not block the test.
inline void PostClick(HWND button) {
    PostMessageW(GetParent(button), WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(button), BN_CLICKED),
                 reinterpret_cast<LPARAM>(button));
}

// A message box of the program, if one is up: its text, and the window.
struct Box {
    HWND wnd = nullptr;
    std::string text;
};

inline BOOL CALLBACK MatchBox(HWND wnd, LPARAM param) {
    wchar_t cls[16] = {};
    GetClassNameW(wnd, cls, 16);
    if (std::wstring(cls) != L"#32770" || !IsWindowVisible(wnd)) return TRUE;
    auto* box = reinterpret_cast<Box*>(param);
    box->wnd = wnd;
    box->text = TextOf(GetDlgItem(wnd, 0xFFFF));  // the message text's static control
    return FALSE;
}

// pelmark.exe on a data folder of its own: Windows' "Public" folder is where the program's
// folder rules put its shared data folder, so the test points that at a folder it made.
class Gui {
  public:
    explicit Gui(const std::string& settings) {
        const std::string dir = public_.path() + "Documents\\Corvalt\\Pelmark\\";
        CreateDirectoryW(Wide(public_.path() + "Documents").c_str(), nullptr);
        CreateDirectoryW(Wide(public_.path() + "Documents\\Corvalt").c_str(), nullptr);
        CreateDirectoryW(Wide(dir).c_str(), nullptr);
        ini_ = Wide(dir + "Pelmark.ini");
        std::ofstream{std::filesystem::path(ini_), std::ios::binary} << settings;
        const std::string publicDir = public_.path().substr(0, public_.path().size() - 1);
        program_ = std::make_unique<TestProgram>(
            PELMARK_GUI_EXE, std::vector<std::string>{},
            std::vector<std::pair<std::string, std::string>>{{"Public", publicDir}});
        // Start-up may ask questions (QuickBooks is not installed here): each is answered
        // Yes, to go on, and kept for the test to look at.
        WaitFor(
            [&] {
                if (Box box = CurrentBox(); box.wnd != nullptr) {
                    startupBoxes.push_back(box.text);
                    Answer(box, IDYES);
                }
                main = program_->FindWindowOfClass(L"PelmarkMainForm");
                return main != nullptr || program_->Ended(0);
            },
            60000);
        program_->WaitForIdle(5000);
        if (main != nullptr) SetForegroundWindow(main);
    }

    HWND Control(const std::string& name, int index = -1) const {
        return GetDlgItem(main, ui::MainControlId(model, name, index));
    }
    bool Checked(const std::string& name, int index = -1) const {
        return SendMessageW(Control(name, index), BM_GETCHECK, 0, 0) == BST_CHECKED;
    }
    std::wstring SettingsPath() const { return ini_; }
    const TestProgram& program() const { return *program_; }

    Box CurrentBox() const {
        Box box;
        EnumThreadWindows(program_->threadId(), MatchBox, reinterpret_cast<LPARAM>(&box));
        return box;
    }
    Box WaitForBox() const {
        Box box;
        WaitFor([&] { return (box = CurrentBox()).wnd != nullptr; });
        return box;
    }
    // Presses the button as a click would; Yes where there is no such button means OK.
    static void Answer(const Box& box, int button) {
        HWND b = GetDlgItem(box.wnd, button);
        PostClick(b != nullptr ? b : GetDlgItem(box.wnd, IDOK));
        WaitFor([&] { return !IsWindow(box.wnd); });
    }

    HWND Focused() const {
        GUITHREADINFO info = {};
        info.cbSize = sizeof info;
        GetGUIThreadInfo(program_->threadId(), &info);
        return info.hwndFocus;
    }
    RECT Rect() const {
        RECT r{};
        GetWindowRect(main, &r);
        return r;
    }

    const ui::Form model = ui::MakeMainFormModel();
    HWND main = nullptr;
    std::vector<std::string> startupBoxes;

  private:
    TempDir public_;  // first: removed after the program has ended
    std::wstring ini_;
    std::unique_ptr<TestProgram> program_;
};

}  // namespace pelmark::test
