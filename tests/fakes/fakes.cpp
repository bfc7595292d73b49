// Test doubles for the seams, and TestApp.
#include "fakes/fakes.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "app/text.h"

namespace pelmark::test {

std::vector<std::string> ScriptedPrompter::Texts() const {
    std::vector<std::string> texts;
    for (const Shown& p : shown) texts.push_back(p.text);
    return texts;
}

int ScriptedPrompter::Show(const std::string& text, int style, const std::string& title,
                           bool topMost) {
    shown.push_back({text, style, title, topMost});
    if (script_.empty()) return defaultAnswer;
    int a = script_.front();
    script_.pop_front();
    return a;
}

LaunchResult RecordingLauncher::Open(const std::string& target, const std::string& parameters) {
    started.push_back({target, parameters});
    ++calls;
    if (failOnCall != 0 && static_cast<int>(started.size()) == failOnCall)
        return {false, "injected failure starting " + target};
    return {};
}

LocalTime FakeClock::Now() {
    LocalTime t = date_;
    long long s = static_cast<long long>(seconds_);
    t.hour = static_cast<int>(s / 3600 % 24);
    t.minute = static_cast<int>(s / 60 % 60);
    t.second = static_cast<int>(s % 60);
    t.millisecond = static_cast<int>((seconds_ - static_cast<double>(s)) * 1000);
    return t;
}

void FakeClock::Sleep(int milliseconds) {
    sleeps.push_back(milliseconds);
    seconds_ += milliseconds / 1000.0;
}

std::optional<std::string> MapEnvironment::Get(const std::string& name) {
    auto it = values.find(name);
    if (it == values.end()) return std::nullopt;
    return it->second;
}

bool FaultyFileSystem::ShouldFail(const std::string& path) {
    if (failPathPart.empty() || path.find(failPathPart) == std::string::npos) return false;
    ++writes;
    if (failOnCall == 0) return true;
    return writes == failOnCall;
}

std::string XmlEscape(const std::string& text) {
    const std::string from = "<>&\"'";
    const char* const to[] = {"&lt;", "&gt;", "&amp;", "&quot;", "&apos;"};
    std::string out;
    for (char c : text)
        out += from.find(c) == std::string::npos ? std::string(1, c) : to[from.find(c)];
    return out;
}

TempDir::TempDir() {
    static std::atomic<int> counter{0};
    std::random_device rd;
    dir_ = std::filesystem::temp_directory_path() /
           ("pelmark-test-" + std::to_string(rd()) + "-" + std::to_string(counter++));
    std::filesystem::create_directories(dir_);
    path_ = (dir_ / "").string();  // the trailing separator, as folder strings are kept
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
}

void TempDir::Write(const std::string& name, const std::string& data) const {
    std::ofstream(dir_ / name, std::ios::binary) << data;
}

std::string TempDir::Read(const std::string& name) const {
    return FileBytes(dir_ / name);
}

std::string FileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

TestApp::TestApp() : app(Seams{&prompter, &events, &clock, &env, &registry, &files}) {
    app.sys.launcher = &launcher;
    app.folders.data = dir.path();
    app.folders.program = dir.path();
    app.folders.exeName = "pelmark_tests";
    if (auto* level = app.frmMain.Find("txtDebugLevel")) level->text = "5";
}

std::vector<std::string> TestApp::DebugLines() const {
    if (!app.common.debug.open) return {};
    return SplitLines(dir.Read(app.common.debug.fileName));
}

std::vector<std::string> TestApp::ErrLines() const {
    return SplitLines(dir.Read("Err.Log"));
}

bool TestApp::Logged(const std::string& text) const {
    const std::vector<std::string> lines = DebugLines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& l) { return l.find(text) != std::string::npos; });
}

std::vector<std::vector<std::string>> DataRows(const std::string& name) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream in(std::string(PELMARK_SOURCE_DIR) + "/tests/data/" + name, std::ios::binary);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line == "#" || line.starts_with("# ")) continue;
        std::vector<std::string>& row = rows.emplace_back(1);
        for (char c : line) c == '|' ? (void)row.emplace_back() : row.back().push_back(c);
    }
    // A table that is not there must fail its test, not pass it with no rows.
    if (rows.empty()) throw std::runtime_error("no rows in tests/data/" + name);
    return rows;
}

}  // namespace pelmark::test
