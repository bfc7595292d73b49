// Starts the fake QuickBooks program (fakeqb.exe) for a test and ends it when the test ends.
#include "wine/fakeqb_win.h"

#include <cstdlib>
#include <string>

namespace pelmark::test {
namespace {

std::wstring Wide(const std::string& s) {
    int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), nullptr, 0);
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), w.data(), n);
    return w;
}

// The quoting CommandLineToArgvW undoes: backslashes are literal except before a quote.
std::wstring Quote(const std::wstring& arg) {
    std::wstring out = L"\"";
    size_t slashes = 0;
    for (wchar_t c : arg) {
        if (c == L'\\') {
            ++slashes;
            continue;
        }
        out.append(c == L'"' ? slashes * 2 + 1 : slashes, L'\\');
        slashes = 0;
        out += c;
    }
    out.append(slashes * 2, L'\\');
    return out + L"\"";
}

// Wine maps the Unix root to drive Z:.
std::wstring WindowsPath(std::string path) {
    if (!path.empty() && path[0] == '/') path = "Z:" + path;
    for (char& c : path)
        if (c == '/') c = '\\';
    return Wide(path);
}

// A named CALLBACK, not a lambda: 32-bit Windows calls it with the stdcall convention.
BOOL CALLBACK MatchMainWindow(HWND wnd, LPARAM param) {
    wchar_t cls[32] = {};
    GetClassNameW(wnd, cls, 32);
    if (std::wstring(cls) != L"MauiFrame" || !IsWindowVisible(wnd)) return TRUE;
    *reinterpret_cast<HWND*>(param) = wnd;
    return FALSE;
}

HWND FindMainWindow(DWORD threadId) {
    HWND found = nullptr;
    EnumThreadWindows(threadId, MatchMainWindow, reinterpret_cast<LPARAM>(&found));
    return found;
}

}  // namespace

FakeQbProgram::FakeQbProgram(const std::vector<std::string>& args) {
    wchar_t temp[MAX_PATH] = {}, file[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temp);
    GetTempFileNameW(temp, L"fqb", 0, file);
    countFile_ = file;

    std::wstring exe = WindowsPath(PELMARK_FAKEQB_EXE);
    std::wstring cmd = Quote(exe) + L" --count-file " + Quote(countFile_);
    for (const std::string& a : args) cmd += L" " + Quote(Wide(a));

    // A job that ends the program with the job handle, so a test binary that dies leaves no
    // fake QuickBooks behind on the shared display.
    job_ = CreateJobObjectW(nullptr, nullptr);
    if (job_) {
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(job_, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    }
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    if (!CreateProcessW(exe.c_str(), cmd.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                        nullptr, &si, &process_))
        return;
    if (job_) AssignProcessToJobObject(job_, process_.hProcess);
    ResumeThread(process_.hThread);
    // The first program started in a Wine prefix can take seconds.
    for (int waited = 0; waited < 30000 && !main_; waited += 50) {
        if (WaitForSingleObject(process_.hProcess, 0) == WAIT_OBJECT_0) return;
        main_ = FindMainWindow(process_.dwThreadId);
        if (!main_) Sleep(50);
    }
    if (main_) WaitForInputIdle(process_.hProcess, 5000);
}

FakeQbProgram::~FakeQbProgram() {
    if (process_.hProcess) {
        TerminateProcess(process_.hProcess, 0);
        WaitForSingleObject(process_.hProcess, 5000);
        CloseHandle(process_.hThread);
        CloseHandle(process_.hProcess);
    }
    if (job_) CloseHandle(job_);
    DeleteFileW(countFile_.c_str());
}

int FakeQbProgram::SaveCount() const {
    HANDLE h = CreateFileW(countFile_.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return -1;
    char text[16] = {};
    DWORD got = 0;
    BOOL ok = ReadFile(h, text, sizeof text - 1, &got, nullptr);
    CloseHandle(h);
    if (!ok || got == 0) return -1;
    return std::atoi(text);
}

}  // namespace pelmark::test
