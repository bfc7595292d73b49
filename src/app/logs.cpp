// Error log, debug log and the prompts that follow an error: every module reports through here.
#include "app/logs.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "app/context.h"
#include "app/text.h"
#include "app/version.h"

namespace pelmark {
namespace {

const char* const kCrLfText = "\r\n";

std::string ShortDate(const LocalTime& t) {
    return std::to_string(t.month) + "/" + std::to_string(t.day) + "/" + std::to_string(t.year);
}

std::string LongTime(const LocalTime& t) {
    int h12 = t.hour % 12 == 0 ? 12 : t.hour % 12;
    return std::to_string(h12) + ":" + Pad(t.minute, 2) + ":" + Pad(t.second, 2) +
           (t.hour < 12 ? " AM" : " PM");
}

// Format(seconds, "0000.00000"): four integer digits at least, five decimals, halves rounded
// away from zero as Format rounds them (printf would round 0.015625 to even).
std::string Elapsed(double seconds) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%010.5f", std::round(seconds * 1e5) / 1e5);
    return buf;
}

// Which prompts the stop options let through: 3 errors only, 2 warnings too, 1 information too.
int Severity(const std::string& levelWord) {
    std::string head = Upper(levelWord.substr(0, 4));
    if (head == "WARN") return 2;
    if (head == "INFO") return 1;
    return 3;  // "ERRO", and a failure reported without a level word
}

bool StopOptionsAllow(const App& app, const std::string& levelWord) {
    const ui::Form& f = app.frmMain;
    if (f.Checked("optStopOnAll")) return true;
    if (f.Checked("optStopOnNone")) return false;
    int needed = f.Checked("optStopOnInfo") ? 1 : f.Checked("optStopOnWarning") ? 2 : 3;
    return Severity(levelWord) >= needed;
}

void CountLine(App& app, const std::string& text) {
    std::string head = Upper(text.substr(0, 4));
    int which = head == "ERRO" ? 0 : head == "WARN" ? 1 : -1;
    if (which < 0) return;
    int16_t& counter = app.common.errCounters[which];
    if (counter == INT16_MAX) {
        DebugLog(app, "WriteErr Err=6 Overflow", 1);
        return;
    }
    ++counter;
}

// One line of Err.Log, opening the log first when needed; false when it cannot be written.
bool AppendErrLine(App& app, const std::string& line) {
    if (!app.common.errLogOpen) OpenErrLog(app, "OUTPUT");
    if (!app.common.errLogOpen) return false;
    return app.sys.files->Append(app.common.errLogPath, line + kCrLfText).ok();
}

// What a prompt shows of a log text: the fields after the level word, one per line.
std::string PromptBody(const std::string& logText) {
    size_t tab = logText.find('\t');
    std::string body = tab == std::string::npos ? logText : logText.substr(tab + 1);
    return ReplaceAll(body, "\t", kCrLfText);
}

}  // namespace

std::string VersionText() {
    return std::to_string(kVersionMajor) + "." + std::to_string(kVersionMinor) + "." +
           std::to_string(kVersionRevision);
}

std::string OneLine(const std::string& text) {
    std::string s = ReplaceAll(text, kCrLfText, "\t");
    for (char& c : s)
        if (c == '\r' || c == '\n') c = '\t';
    return s;
}

void DebugLog(App& app, const std::string& text, int level, DebugLogOptions options) {
    DebugLogState& d = app.common.debug;
    if (d.disabled) return;
    app.common.lastDebugText = text;
    // The level test comes before any formatting: a trace above the level costs one comparison.
    if (LeadingNumber(app.frmMain.Text("txtDebugLevel")) < level) return;

    FileSystem& fs = *app.sys.files;
    LocalTime now = app.sys.clock->Now();
    if (!d.open) {
        auto stamp = MakeDateTimeStamp(app);
        d.fileName = app.common.developerMode ? "Debug.Log" : "Debug_" + stamp->stamp + ".Log";
        d.path = app.folders.data + d.fileName;
        std::string header = ShortDate(now) + " " + LongTime(now) + " " + kProductName +
                             " Debug Log Version " + VersionText() + " " + app.folders.program +
                             " " + app.folders.exeName + " ";
        // A log that cannot be created loses its lines; the run goes on.
        if (!fs.WriteAll(d.path, header + kCrLfText).ok()) return;
        d.open = true;
    }
    double timer = app.sys.clock->Timer();
    std::string line;
    if (options.bare) {
        line = OneLine(text);
    } else {
        double diff = timer - d.lastTime;
        if (diff < 0) diff += 86400;  // the timer starts again at midnight
        std::string elapsed = d.lastTime != 0 ? Elapsed(diff) : "0000.00";
        line = ShortDate(now) + " " + LongTime(now) + " " + elapsed + "-" + OneLine(text) + " " +
               app.common.currentStep;
    }
    // Every line is appended and the file closed again, so a crash keeps the whole trace;
    // reopen and close-after therefore need no work of their own.
    fs.Append(d.path, line + kCrLfText);
    app.sys.events->DoEvents();
    d.lastTime = timer;
}

std::optional<DateTimeStamp> MakeDateTimeStamp(App& app, std::optional<LocalTime> date,
                                               std::optional<LocalTime> time) {
    LocalTime now = app.sys.clock->Now();
    LocalTime d = date.value_or(now), t = time.value_or(now);
    static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (d.year % 4 == 0 && d.year % 100 != 0) || d.year % 400 == 0;
    if (d.year < 100 || d.year > 9999 || d.month < 1 || d.month > 12 || d.day < 1 ||
        d.day > kDays[d.month - 1] || (d.month == 2 && d.day == 29 && !leap))
        return std::nullopt;
    if (t.hour < 0 || t.hour > 23 || t.minute < 0 || t.minute > 59 || t.second < 0 || t.second > 59)
        return std::nullopt;
    DateTimeStamp s;
    s.dateText = Pad(d.year, 4) + "-" + Pad(d.month, 2) + "-" + Pad(d.day, 2);
    s.timeText = Pad(t.hour, 2) + ":" + Pad(t.minute, 2) + ":" + Pad(t.second, 2);
    s.stamp = Pad(d.year, 4) + Pad(d.month, 2) + Pad(d.day, 2) + "_" + Pad(t.hour, 2) +
              Pad(t.minute, 2) + Pad(t.second, 2);
    return s;
}

void OpenErrLog(App& app, const std::string& mode) {
    DebugLog(app, "OpenErrLog Entered ", 5);
    CommonM& c = app.common;
    if (c.errLogOpen) return;
    std::string m = Upper(mode);
    if (m != "OUTPUT" && m != "APPEND") {
        ShowMessage(app, "Program err - invalid log open " + mode, kMbCritical | kMbOKOnly);
        return;
    }
    std::string path = app.folders.data + "Err.Log";
    FileSystem& fs = *app.sys.files;
    std::string first = "INFO\t" + mode + "\tErr Log B" + VersionText() + kCrLfText;
    FileResult r = m == "OUTPUT" ? fs.WriteAll(path, first) : fs.Append(path, first);
    if (!r.ok()) {
        DebugLog(app, "OpenErrLog cannot open " + path + " " + r.error, 1);
        return;
    }
    c.errLogOpen = true;
    c.errLogPath = path;
    if (!app.settings.path.empty())
        fs.Append(path, "INFO\tfile name \t" + app.settings.path + kCrLfText);
}

void WriteErr(App& app, const std::string& text) {
    DebugLog(app, "WriteErr Entered ", 5);
    std::string line = OneLine(text);
    AppendErrLine(app, line);
    CountLine(app, line);
}

int DoErrors(App& app, const std::string& prompt, int buttons, const std::string& logText,
             PromptOptions options) {
    DebugLog(app, "Do Errors Entered " + logText, 5);
    std::string levelWord = Split(logText, '\t')[0];
    CountLine(app, levelWord);
    std::string line = OneLine(logText);

    size_t tab = line.find('\t');
    if (app.common.developerMode && tab != std::string::npos && tab + 1 < line.size() &&
        line[tab + 1] == '=') {
        // A log text whose first field starts with "=" comes from a mistake in the calling code.
        DebugLog(app, "Do Errors program error in log text " + line, 0);
        ShowMessage(app, line, kMbCritical, "Pgm Error " + std::string(kProductName));
        CloseEnd(app, 1);
    }

    bool mustShow = false;
    if (app.frmMain.Checked("chkWriteErrsToLog") && !AppendErrLine(app, line)) {
        // The message cannot be kept in the log, so the user sees it whatever the stop level.
        DebugLog(app, "Error log closed and msg =" + line, 0);
        mustShow = true;
    }

    app.common.lastAnswer = kAnsOK;
    if (options.show && (mustShow || StopOptionsAllow(app, levelWord))) {
        app.common.lastAnswer = app.sys.prompter->Show(
            prompt, buttons, std::string(kProductName) + " " + levelWord, options.onTop);
    }
    return app.common.lastAnswer;
}

bool DoErrorsNoReturn(App& app, const std::string& logText, const std::string& addition, bool show,
                      int endOn, int buttons, bool onTop) {
    DebugLog(app, "Do Errors No Return Entered " + logText, 5);
    std::string prompt = PromptBody(logText);
    // The addition ("Hit YES to continue, NO to terminate") stands on a line of its own.
    if (!addition.empty()) prompt += kCrLfText + addition;
    DoErrors(app, prompt, buttons, logText, {show, onTop});
    if (app.common.lastAnswer == endOn) CloseEnd(app, 1);
    return true;
}

int ShowMessage(App& app, const std::string& prompt, int buttons, const std::string& title,
                bool topMost) {
    app.common.lastAnswer = app.sys.prompter->Show(prompt, buttons, title, topMost);
    return app.common.lastAnswer;
}

void CloseWMsg(App& app, const std::string& text) {
    DebugLog(app, "Close w msg " + text + " " + app.common.currentStep, 0);
    app.run.lastError = text;  // the reason the program ended, for whoever reports the end
    ShowMessage(app, text, kMbCritical | kMbOKOnly);
    if (app.common.developerMode) throw ProgramEnd{1, false};
    CloseEnd(app, 1);
}

void CloseEnd(App& app, int code) {
    DebugLog(app, "CloseEnd Entered ", 5);
    CloseAll(app);
    throw ProgramEnd{code, true};
}

void CloseAll(App& app) {
    DebugLog(app, "Close All Entered ", 5);
    auto steps = std::move(app.closeSteps);
    app.closeSteps.clear();
    for (auto it = steps.rbegin(); it != steps.rend(); ++it) {
        try {
            (*it)();
        } catch (...) {
            // A close step that fails must not keep the program from ending.
            DebugLog(app, "Close All step failed", 1);
        }
    }
}

bool IsNumeric(const std::string& text) {
    std::string s = TrimWs(text);
    size_t i = 0, n = s.size();
    if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
    size_t digits = 0;
    while (i < n && std::isdigit(static_cast<unsigned char>(s[i]))) ++i, ++digits;
    if (i < n && s[i] == '.') {
        ++i;
        while (i < n && std::isdigit(static_cast<unsigned char>(s[i]))) ++i, ++digits;
    }
    if (digits == 0) return false;
    if (i < n && (s[i] == 'e' || s[i] == 'E')) {
        ++i;
        if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
        size_t exp = 0;
        while (i < n && std::isdigit(static_cast<unsigned char>(s[i]))) ++i, ++exp;
        if (exp == 0) return false;
    }
    return i == n;
}

double CleanNumber(const std::string& text) {
    std::string s;
    for (char c : text)
        if (c != ',' && c != '$') s += c;
    s = TrimWs(s);
    if (s.empty() || !IsNumeric(s)) return 0;
    return std::strtod(s.c_str(), nullptr);
}

double NumVal(const std::string& text) {
    return CleanNumber(text);
}

double LeadingNumber(const std::string& text) {
    // Val skips blanks and tabs anywhere and reads as far as the text forms a number.
    std::string s;
    for (char c : text)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') s += c;
    size_t i = 0, n = s.size();
    if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
    while (i < n && std::isdigit(static_cast<unsigned char>(s[i]))) ++i;
    if (i < n && s[i] == '.') {
        ++i;
        while (i < n && std::isdigit(static_cast<unsigned char>(s[i]))) ++i;
    }
    if (i < n && (s[i] == 'e' || s[i] == 'E')) {
        size_t j = i + 1;
        if (j < n && (s[j] == '+' || s[j] == '-')) ++j;
        if (j < n && std::isdigit(static_cast<unsigned char>(s[j]))) {
            while (j < n && std::isdigit(static_cast<unsigned char>(s[j]))) ++j;
            i = j;
        }
    }
    double v = std::strtod(s.substr(0, i).c_str(), nullptr);
    return std::isfinite(v) ? v : 0;
}

}  // namespace pelmark
