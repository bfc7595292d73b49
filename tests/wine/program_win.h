// Starts a Windows program of the build for a test, in a job that ends it when the test ends.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

namespace pelmark::test {

std::wstring Wide(const std::string& s);
// A path of the build tree as Windows sees it under Wine (the Unix root is drive Z:).
std::wstring WindowsPath(std::string path);
// One argument quoted the way CommandLineToArgvW and the C runtime undo it.
std::wstring QuoteArg(const std::wstring& arg);
// A job that ends its processes when its handle is closed, so that a test binary that dies
// leaves nothing running on the shared display; null when Windows would not make one.
HANDLE MakeKillOnCloseJob();

class TestProgram {
  public:
    // `exe` is a path of the build tree; `args` (UTF-8) are quoted for CommandLineToArgvW;
    // `env` names environment values to set for the program on top of the test's own.
    TestProgram(const std::string& exe, const std::vector<std::string>& args,
                const std::vector<std::pair<std::string, std::string>>& env = {});
    // Terminates the program, whatever the test did with it.
    ~TestProgram();
    TestProgram(const TestProgram&) = delete;
    TestProgram& operator=(const TestProgram&) = delete;

    bool started() const { return process_.hProcess != nullptr; }
    DWORD threadId() const { return process_.dwThreadId; }
    // True when the program has ended within `ms`; its exit code in `code`.
    bool Ended(int ms, DWORD* code = nullptr) const;
    void WaitForIdle(int ms) const;
    // The first visible top-level window of the program's main thread with this class.
    HWND FindWindowOfClass(const wchar_t* className) const;

  private:
    PROCESS_INFORMATION process_ = {};
    HANDLE job_ = nullptr;
};

}  // namespace pelmark::test
