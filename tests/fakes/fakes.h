// Test doubles for the seams, and TestApp: an App on fakes with a fresh data folder of its own.
#pragma once

#include <atomic>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/context.h"
#include "app/registry.h"

namespace pelmark::test {

// Answers prompts from a script; remembers every prompt shown.
class ScriptedPrompter : public Prompter {
  public:
    struct Shown {
        std::string text;
        int style;
        std::string title;
        bool topMost;
    };
    int Show(const std::string& text, int style, const std::string& title, bool topMost) override;
    void Answer(int answer) { script_.push_back(answer); }
    std::vector<std::string> Texts() const;  // of the prompts shown, in order
    int defaultAnswer = kAnsYes;             // when the script is used up
    std::vector<Shown> shown;

  private:
    std::deque<int> script_;
};

// Records what would be started; the Nth start (from 1; 0: none) fails.
class RecordingLauncher : public Launcher {
  public:
    struct Started {
        std::string target, parameters;
        bool operator==(const Started&) const = default;
    };
    LaunchResult Open(const std::string& target, const std::string& parameters) override;
    std::vector<Started> started;  // every start asked for, the failed one too
    std::atomic<int> calls{0};     // for a test's other thread to wait on
    int failOnCall = 0;
};

// A clock that moves only when told to (or by the sleeps it is asked for).
class FakeClock : public Clock {
  public:
    LocalTime Now() override;
    double Timer() override { return seconds_; }
    void Sleep(int milliseconds) override;
    void Advance(double seconds) { seconds_ += seconds; }
    std::vector<int> sleeps;

  private:
    LocalTime date_{2026, 11, 14, 0, 0, 0, 0};
    double seconds_ = 22 * 3600 + 13 * 60;  // 22:13:00
};

class CountingEventPump : public EventPump {
  public:
    void DoEvents() override { ++calls; }
    int calls = 0;
};

class MapEnvironment : public Environment {
  public:
    std::optional<std::string> Get(const std::string& name) override;
    std::map<std::string, std::string> values;
};

// The real file system, with a fault to inject: the Nth write or append to a path that contains
// `failPathPart`, or copy from one, fails with `failStatus` (N counts from 1; 0 means every such
// call).
class FaultyFileSystem : public FileSystem {
  public:
    bool Exists(const std::string& p) override { return real().Exists(p); }
    bool IsDirectory(const std::string& p) override { return real().IsDirectory(p); }
    std::optional<std::string> ReadAll(const std::string& p) override { return real().ReadAll(p); }
    std::optional<std::uintmax_t> FileSize(const std::string& p) override {
        return real().FileSize(p);
    }
    FileResult WriteAll(const std::string& p, const std::string& d) override {
        return ShouldFail(p) ? Injected() : real().WriteAll(p, d);
    }
    FileResult Append(const std::string& p, const std::string& d) override {
        return ShouldFail(p) ? Injected() : real().Append(p, d);
    }
    FileResult Remove(const std::string& p) override { return real().Remove(p); }
    FileResult Rename(const std::string& f, const std::string& t) override {
        return real().Rename(f, t);
    }
    FileResult Copy(const std::string& f, const std::string& t) override {
        return ShouldFail(f) ? Injected() : real().Copy(f, t);
    }
    FileResult MakeDir(const std::string& p) override { return real().MakeDir(p); }
    std::vector<std::string> ListFiles(const std::string& f) override {
        return real().ListFiles(f);
    }

    std::string failPathPart;
    int failOnCall = 0;
    FileStatus failStatus = FileStatus::HeldByOther;
    int writes = 0;

  private:
    static FileSystem& real() { return RealFileSystem(); }
    bool ShouldFail(const std::string& path);
    FileResult Injected() const { return {failStatus, "injected failure"}; }
};

// A folder of its own under the system's temporary folder, removed at the end.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    // The folder with a trailing separator, as folder strings are kept.
    const std::string& path() const { return path_; }
    std::string File(const std::string& name) const { return path() + name; }
    void Write(const std::string& name, const std::string& data) const;
    std::string Read(const std::string& name) const;

  private:
    std::filesystem::path dir_;
    std::string path_;
};

// A file's bytes ("" when it cannot be read).
std::string FileBytes(const std::filesystem::path& path);

// Text as XML element text or attribute value.
std::string XmlEscape(const std::string& text);

// The rows of a table under tests/data/: one row a line, fields split at "|"; blank lines and
// lines starting with "# " are left out. Throws when the table has no rows.
std::vector<std::vector<std::string>> DataRows(const std::string& name);

// An App on fakes whose data folder is a fresh temporary folder.
struct TestApp {
    TestApp();
    ScriptedPrompter prompter;
    FakeClock clock;
    CountingEventPump events;
    MapEnvironment env;
    MemoryRegistry registry;
    FaultyFileSystem files;
    RecordingLauncher launcher;
    TempDir dir;
    App app;
    // All lines of the debug log so far (empty when none was written).
    std::vector<std::string> DebugLines() const;
    std::vector<std::string> ErrLines() const;
    // Some line of the debug log holds `text`.
    bool Logged(const std::string& text) const;
};

}  // namespace pelmark::test
