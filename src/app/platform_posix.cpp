// Clock, event pump, environment, file writing and the launcher on POSIX systems (the portable
// build).
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

#include "app/platform_detail.h"
#include "app/seams.h"

namespace pelmark {
namespace {

class PosixClock : public Clock {
  public:
    LocalTime Now() override {
        auto now = std::chrono::system_clock::now();
        std::time_t t = std::chrono::system_clock::to_time_t(now);
        std::tm tm{};
        localtime_r(&t, &tm);
        auto ms =
            std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
            1000;
        return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,          tm.tm_hour,
                tm.tm_min,         tm.tm_sec,     static_cast<int>(ms)};
    }
    double Timer() override {
        LocalTime t = Now();
        return t.hour * 3600.0 + t.minute * 60.0 + t.second + t.millisecond / 1000.0;
    }
    void Sleep(int milliseconds) override {
        if (milliseconds > 0) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
};

// Without a window system there are no pending window events to let run.
class NoEventPump : public EventPump {
  public:
    void DoEvents() override {}
};

class PosixEnvironment : public Environment {
  public:
    std::optional<std::string> Get(const std::string& name) override {
        const char* v = std::getenv(name.c_str());
        if (!v) return std::nullopt;
        return std::string(v);
    }
};

// The forms that start programs and open web pages exist only on Windows.
class NoLauncher : public Launcher {
  public:
    LaunchResult Open(const std::string& target, const std::string&) override {
        return {false, "cannot start " + target + ": there is no shell on this system"};
    }
};

}  // namespace

Launcher& RealLauncher() {
    static NoLauncher l;
    return l;
}

Clock& RealClock() {
    static PosixClock c;
    return c;
}
EventPump& RealEventPump() {
    static NoEventPump p;
    return p;
}
Environment& RealEnvironment() {
    static PosixEnvironment e;
    return e;
}

std::string RunningProgramPath() {
    char buf[4096];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string("pelmark");
}

FileResult detail::PlatformWriteFile(const std::string& path, const std::string& data,
                                     bool append) {
    std::FILE* f = std::fopen(path.c_str(), append ? "ab" : "wb");
    if (!f) {
        int e = errno;
        FileStatus s = e == ENOENT                  ? FileStatus::NotFound
                       : e == ETXTBSY || e == EBUSY ? FileStatus::HeldByOther
                                                    : FileStatus::Failed;
        return {s, std::strerror(e)};
    }
    size_t written = std::fwrite(data.data(), 1, data.size(), f);
    bool ok = written == data.size();
    // A whole-file write is what the journal and the settings are saved with: on the disk
    // before the rename that makes it current, so a power cut cannot leave an empty file.
    if (!append) ok = std::fflush(f) == 0 && ::fsync(::fileno(f)) == 0 && ok;
    ok = std::fclose(f) == 0 && ok;
    if (!ok) return {FileStatus::Failed, "write failed"};
    return {};
}

}  // namespace pelmark
