// Starts the fake QuickBooks program (fakeqb.exe) for a test and ends it when the test ends.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "wine/program_win.h"

namespace pelmark::test {

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

  private:
    std::unique_ptr<TestProgram> program_;
    HWND main_ = nullptr;
    std::wstring countFile_;
};

}  // namespace pelmark::test
