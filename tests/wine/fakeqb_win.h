// Starts the fake QuickBooks program (fakeqb.exe) for a test and ends it when the test ends; the
// helpers the Windows tests share for paths, command lines, child processes and its windows.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "wine/program_win.h"

namespace pelmark::test {

// A window's text by WM_GETTEXT, which Windows carries across processes (GetWindowText does not
// ask another program's controls); "" when the window does not answer within two seconds.
std::string TextOf(HWND wnd);
// Waits up to `timeoutMs` until `done` holds, letting this thread's window messages run.
bool WaitUntil(const std::function<bool()>& done, int timeoutMs);

class FakeQbProgram {
  public:
    // `args` as fakeqb.exe takes them (UTF-8); the count file is added here.
    explicit FakeQbProgram(const std::vector<std::string>& args);
    // Terminates the program, whatever the test did with it.
    ~FakeQbProgram();
    FakeQbProgram(const FakeQbProgram&) = delete;
    FakeQbProgram& operator=(const FakeQbProgram&) = delete;

    // The main window once it is up, or null when the program did not come up.
    HWND main() const { return main_; }
    // How many times Save & Close was pressed, from the program's count file; -1 unread.
    int SaveCount() const;
    // The transaction window whose title begins with `title`; null when none is open.
    HWND TrnsWindow(const std::string& title) const;
    // The item column of a transaction window's line grid, without the empty rows at its end.
    static std::vector<std::string> ShownItems(HWND trnsWnd);

  private:
    std::unique_ptr<TestProgram> program_;
    HWND main_ = nullptr;
    std::wstring countFile_;
};

}  // namespace pelmark::test
