// The narrow interfaces behind which all platform access of the application core sits.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pelmark {

// Message box answers and styles, numbered as Windows numbers them (IDOK, MB_YESNO, ...).
enum Answer : int {
    kAnsOK = 1,
    kAnsCancel = 2,
    kAnsAbort = 3,
    kAnsRetry = 4,
    kAnsIgnore = 5,
    kAnsYes = 6,
    kAnsNo = 7
};
enum BoxStyle : int {
    kMbOKOnly = 0,
    kMbOKCancel = 1,
    kMbAbortRetryIgnore = 2,
    kMbYesNoCancel = 3,
    kMbYesNo = 4,
    kMbRetryCancel = 5,
    kMbCritical = 16,
    kMbQuestion = 32,
    kMbExclamation = 48,
    kMbInformation = 64
};

// Message boxes and the continue-or-terminate question.
class Prompter {
  public:
    virtual ~Prompter() = default;
    // Shows `text` with the buttons and icon of `style` under `title`; returns an Answer.
    virtual int Show(const std::string& text, int style, const std::string& title,
                     bool topMost) = 0;
};

// The points where pending window events may run (and where Stop can be clicked).
class EventPump {
  public:
    virtual ~EventPump() = default;
    virtual void DoEvents() = 0;
};

struct LocalTime {
    int year = 1970, month = 1, day = 1;
    int hour = 0, minute = 0, second = 0, millisecond = 0;
};

class Clock {
  public:
    virtual ~Clock() = default;
    virtual LocalTime Now() = 0;
    // Seconds since local midnight, with fractions (the classic Timer function).
    virtual double Timer() = 0;
    virtual void Sleep(int milliseconds) = 0;
};

class Environment {
  public:
    virtual ~Environment() = default;
    virtual std::optional<std::string> Get(const std::string& name) = 0;
};

enum class RegRoot { ClassesRoot, CurrentUser, LocalMachine, Users };
enum RegType : unsigned { kRegSz = 1, kRegDword = 4 };

struct RegData {
    unsigned type = 0;
    std::string bytes;  // raw value bytes as the registry holds them (a string with its NUL)
};

// The registry as a value store; RegistryStuffM builds its typed reads and writes on it.
class Registry {
  public:
    virtual ~Registry() = default;
    virtual std::optional<RegData> Query(RegRoot root, const std::string& key,
                                         const std::string& name) = 0;
    virtual bool Set(RegRoot root, const std::string& key, const std::string& name,
                     const RegData& data) = 0;
};

enum class FileStatus { Ok, NotFound, HeldByOther, Failed };

struct FileResult {
    FileStatus status = FileStatus::Ok;
    std::string error;  // the system's words for a failure
    bool ok() const { return status == FileStatus::Ok; }
};

// Files and folders; paths are in the platform's own form.
class FileSystem {
  public:
    virtual ~FileSystem() = default;
    virtual bool Exists(const std::string& path) = 0;
    virtual bool IsDirectory(const std::string& path) = 0;
    virtual std::optional<std::string> ReadAll(const std::string& path) = 0;
    // The size in bytes of a plain file; nothing when it is missing or not a file.
    virtual std::optional<std::uintmax_t> FileSize(const std::string& path) = 0;
    virtual FileResult WriteAll(const std::string& path, const std::string& data) = 0;
    virtual FileResult Append(const std::string& path, const std::string& data) = 0;
    virtual FileResult Remove(const std::string& path) = 0;
    virtual FileResult Rename(const std::string& from, const std::string& to) = 0;
    virtual FileResult Copy(const std::string& from, const std::string& to) = 0;
    virtual FileResult MakeDir(const std::string& path) = 0;
    // Names (not paths) of the plain files in a folder.
    virtual std::vector<std::string> ListFiles(const std::string& folder) = 0;
};

struct LaunchResult {
    bool ok = true;
    std::string error;  // the failing call, its target and the system's words
};

// Starts programs and opens folders, documents and web addresses as the shell does.
class Launcher {
  public:
    virtual ~Launcher() = default;
    // `target` is a program, document, folder or address; `parameters` its command line.
    virtual LaunchResult Open(const std::string& target, const std::string& parameters) = 0;
};

// The real implementations of this platform (platform_win.cpp or platform_posix.cpp).
Clock& RealClock();
EventPump& RealEventPump();
Environment& RealEnvironment();
Registry& RealRegistry();  // the Windows registry, or an empty in-memory one elsewhere
FileSystem& RealFileSystem();
// ShellExecuteW on Windows; elsewhere a launcher that refuses (there is no shell to ask).
Launcher& RealLauncher();
// Full path of the running program's file.
std::string RunningProgramPath();

}  // namespace pelmark
