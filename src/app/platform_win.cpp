// Clock, event pump, environment, file writing and the shell's launcher on Windows.
#include <windows.h>

#include <objbase.h>  // after windows.h, whose types these use
#include <shellapi.h>

#include <string>

#include "app/platform_detail.h"
#include "app/seams.h"
#include "app/wideText.h"

namespace pelmark {
namespace {

class WinClock : public Clock {
  public:
    LocalTime Now() override {
        SYSTEMTIME st;
        GetLocalTime(&st);
        return {st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds};
    }
    double Timer() override {
        LocalTime t = Now();
        return t.hour * 3600.0 + t.minute * 60.0 + t.second + t.millisecond / 1000.0;
    }
    void Sleep(int milliseconds) override {
        if (milliseconds > 0) ::Sleep(static_cast<DWORD>(milliseconds));
    }
};

// Lets the messages waiting for this thread's windows run, as DoEvents does.
class WinEventPump : public EventPump {
  public:
    void DoEvents() override {
        MSG msg;
        while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
            if (msg.message == WM_QUIT) {
                // Leave the quit request for the main message loop to see.
                PostQuitMessage(static_cast<int>(msg.wParam));
                break;
            }
            TranslateMessage(&msg);
            DispatchMessageA(&msg);
        }
    }
};

class WinEnvironment : public Environment {
  public:
    std::optional<std::string> Get(const std::string& name) override {
        DWORD n = GetEnvironmentVariableA(name.c_str(), nullptr, 0);
        if (n == 0) return std::nullopt;
        std::string v(n, '\0');
        DWORD got = GetEnvironmentVariableA(name.c_str(), v.data(), n);
        v.resize(got);
        return v;
    }
};

std::string SystemMessage(DWORD code) {
    char* buf = nullptr;
    DWORD n = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, 0, reinterpret_cast<char*>(&buf), 0, nullptr);
    std::string s = n && buf ? std::string(buf, n) : std::string();
    if (buf) LocalFree(buf);
    while (!s.empty() && (s.back() == '\r' || s.back() == '\n' || s.back() == ' ')) s.pop_back();
    return s;
}

class ShellLauncher : public Launcher {
  public:
    LaunchResult Open(const std::string& target, const std::string& parameters) override {
        // The shell may hand the request to a COM handler (a browser, Explorer) and asks for
        // an apartment-threaded caller.
        HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
        std::wstring file = WideFromUtf8(target), args = WideFromUtf8(parameters);
        SetLastError(ERROR_SUCCESS);
        INT_PTR started = reinterpret_cast<INT_PTR>(
            ShellExecuteW(nullptr, nullptr, file.c_str(), args.empty() ? nullptr : args.c_str(),
                          nullptr, SW_SHOWNORMAL));
        DWORD e = GetLastError();
        if (SUCCEEDED(com)) CoUninitialize();
        if (started > 32) return {};
        // ShellExecute answers with a small error number (SE_ERR_FNF is ERROR_FILE_NOT_FOUND);
        // the thread's last error is more precise when it was set.
        DWORD code = e != ERROR_SUCCESS ? e : static_cast<DWORD>(started);
        std::string call = "ShellExecuteW(" + target + (parameters.empty() ? "" : " " + parameters);
        return {false,
                call + ") failed, code " + std::to_string(code) + ": " + SystemMessage(code)};
    }
};

}  // namespace

Launcher& RealLauncher() {
    static ShellLauncher l;
    return l;
}

Clock& RealClock() {
    static WinClock c;
    return c;
}
EventPump& RealEventPump() {
    static WinEventPump p;
    return p;
}
Environment& RealEnvironment() {
    static WinEnvironment e;
    return e;
}

std::string RunningProgramPath() {
    char buf[MAX_PATH * 2];
    DWORD n = GetModuleFileNameA(nullptr, buf, sizeof buf);
    return std::string(buf, n);
}

FileResult detail::PlatformWriteFile(const std::string& path, const std::string& data,
                                     bool append) {
    // Others may read the file while we write it, but not write it: that is what lets us tell
    // a settings file held open by another program from any other failure.
    HANDLE h =
        CreateFileA(path.c_str(), append ? FILE_APPEND_DATA : GENERIC_WRITE, FILE_SHARE_READ,
                    nullptr, append ? OPEN_ALWAYS : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        DWORD e = GetLastError();
        FileStatus s =
            (e == ERROR_SHARING_VIOLATION || e == ERROR_LOCK_VIOLATION) ? FileStatus::HeldByOther
            : (e == ERROR_FILE_NOT_FOUND || e == ERROR_PATH_NOT_FOUND)  ? FileStatus::NotFound
                                                                        : FileStatus::Failed;
        return {s, "CreateFileA(" + path + ") failed, code " + std::to_string(e) + ": " +
                       SystemMessage(e)};
    }
    DWORD written = 0;
    BOOL ok = data.empty() ||
              WriteFile(h, data.data(), static_cast<DWORD>(data.size()), &written, nullptr);
    // A whole-file write is what the journal and the settings are saved with: on the disk
    // before the rename that makes it current, so a power cut cannot leave an empty file.
    if (ok && !append) ok = FlushFileBuffers(h);
    DWORD e = ok ? 0 : GetLastError();
    CloseHandle(h);
    if (!ok || written != data.size())
        return {FileStatus::Failed, "WriteFile(" + path + ") failed, code " + std::to_string(e) +
                                        ": " + SystemMessage(e)};
    return {};
}

}  // namespace pelmark
