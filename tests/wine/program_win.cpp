// Starts a Windows program of the build for a test, in a job that ends it when the test ends.
#include "wine/program_win.h"

#include "app/wideText.h"

namespace pelmark::test {
// The quoting CommandLineToArgvW undoes: backslashes are literal except before a quote.
std::wstring QuoteArg(const std::wstring& arg) {
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

namespace {

// The test's environment block with `env` set on top, for CREATE_UNICODE_ENVIRONMENT.
std::wstring EnvironmentBlock(const std::vector<std::pair<std::string, std::string>>& env) {
    std::wstring block;
    wchar_t* own = GetEnvironmentStringsW();
    for (const wchar_t* p = own; *p != L'\0'; p += wcslen(p) + 1) {
        std::wstring entry = p;
        bool replaced = false;
        for (const auto& [name, value] : env) {
            std::wstring prefix = Wide(name) + L"=";
            replaced |=
                CompareStringOrdinal(entry.c_str(), static_cast<int>(prefix.size()), prefix.c_str(),
                                     static_cast<int>(prefix.size()), TRUE) == CSTR_EQUAL;
        }
        if (!replaced) block += entry + L'\0';
    }
    FreeEnvironmentStringsW(own);
    for (const auto& [name, value] : env) block += Wide(name) + L"=" + Wide(value) + L'\0';
    return block + L'\0';
}

struct ClassMatch {
    const wchar_t* className;
    HWND found;
};

// A named CALLBACK, not a lambda: 32-bit Windows calls it with the stdcall convention.
BOOL CALLBACK MatchClass(HWND wnd, LPARAM param) {
    auto* match = reinterpret_cast<ClassMatch*>(param);
    wchar_t cls[64] = {};
    GetClassNameW(wnd, cls, 64);
    if (std::wstring(cls) != match->className || !IsWindowVisible(wnd)) return TRUE;
    match->found = wnd;
    return FALSE;
}

}  // namespace

HANDLE MakeKillOnCloseJob() {
    HANDLE job = CreateJobObjectW(nullptr, nullptr);
    if (!job) return nullptr;
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    return job;
}

std::wstring Wide(const std::string& s) {
    return WideFromUtf8(s);
}

std::wstring WindowsPath(std::string path) {
    if (!path.empty() && path[0] == '/') path = "Z:" + path;
    for (char& c : path)
        if (c == '/') c = '\\';
    return Wide(path);
}

TestProgram::TestProgram(const std::string& exe, const std::vector<std::string>& args,
                         const std::vector<std::pair<std::string, std::string>>& env) {
    std::wstring path = WindowsPath(exe);
    std::wstring cmd = QuoteArg(path);
    for (const std::string& a : args) cmd += L" " + QuoteArg(Wide(a));
    std::wstring block = EnvironmentBlock(env);

    job_ = MakeKillOnCloseJob();
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    if (!CreateProcessW(path.c_str(), cmd.data(), nullptr, nullptr, FALSE,
                        CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT, block.data(), nullptr, &si,
                        &process_)) {
        process_ = {};
        return;
    }
    if (job_) AssignProcessToJobObject(job_, process_.hProcess);
    ResumeThread(process_.hThread);
}

TestProgram::~TestProgram() {
    if (process_.hProcess) {
        TerminateProcess(process_.hProcess, 0);
        WaitForSingleObject(process_.hProcess, 5000);
        CloseHandle(process_.hThread);
        CloseHandle(process_.hProcess);
    }
    if (job_) CloseHandle(job_);
}

bool TestProgram::Ended(int ms, DWORD* code) const {
    if (!process_.hProcess) return true;
    if (WaitForSingleObject(process_.hProcess, static_cast<DWORD>(ms)) != WAIT_OBJECT_0) {
        return false;
    }
    if (code != nullptr) GetExitCodeProcess(process_.hProcess, code);
    return true;
}

void TestProgram::WaitForIdle(int ms) const {
    if (process_.hProcess) WaitForInputIdle(process_.hProcess, static_cast<DWORD>(ms));
}

HWND TestProgram::FindWindowOfClass(const wchar_t* className) const {
    ClassMatch match{className, nullptr};
    if (process_.hProcess) {
        EnumThreadWindows(process_.dwThreadId, MatchClass, reinterpret_cast<LPARAM>(&match));
    }
    return match.found;
}

}  // namespace pelmark::test
