// Error log, debug log and the prompts that follow an error (the CommonM module).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "app/seams.h"

namespace pelmark {

struct App;

// Thrown by CloseEnd and CloseWMsg: the program ends. Entry points catch it and return `code`;
// window procedures and COM calls catch it before it can cross them.
struct ProgramEnd {
    int code = 0;
    bool closed = true;  // false when developer mode stopped without the close steps
};

struct DebugLogState {
    bool open = false;
    double lastTime = 0;   // Timer() of the previous line; 0 before the first
    std::string fileName;  // bare name, e.g. Debug_20261114_221300.Log
    std::string path;      // data folder + file name
    bool disabled = false;
};

// Module state of CommonM: one per application.
struct CommonM {
    bool errLogOpen = false;
    std::string errLogPath;
    std::array<int16_t, 2> errCounters{};  // [0] lines beginning "ERRO", [1] "WARN"
    int lastAnswer = 0;                    // answer of the last prompt
    std::string currentStep;               // appended to every debug line
    std::string lastDebugText;
    bool developerMode = false;
    DebugLogState debug;
};

inline constexpr const char* kContinueOrTerminate = "Hit YES to continue, NO to terminate";

struct DebugLogOptions {
    bool bare = false;        // write the text alone, without date, time and step
    bool reopen = false;      // re-open an existing log before writing
    bool closeAfter = false;  // close the file after the line
};

// One trace line when the debug level setting is at least `level`. Never fails the caller.
void DebugLog(App& app, const std::string& text, int level, DebugLogOptions options = {});

struct DateTimeStamp {
    std::string stamp;     // yyyymmdd_hhmmss
    std::string dateText;  // yyyy-mm-dd
    std::string timeText;  // hh:mm:ss
};
// Empty result when a given date or time is not a real one.
std::optional<DateTimeStamp> MakeDateTimeStamp(App& app, std::optional<LocalTime> date = {},
                                               std::optional<LocalTime> time = {});

void OpenErrLog(App& app, const std::string& mode);
void WriteErr(App& app, const std::string& text);

struct PromptOptions {
    bool show = true;
    bool onTop = false;
};
// Logs `logText` (level word, tab, fields) and, when the stop options allow it, asks the user.
int DoErrors(App& app, const std::string& prompt, int buttons, const std::string& logText,
             PromptOptions options = {});
// DoErrors with the log text and the addition; ends the program when the answer is `endOn`.
bool DoErrorsNoReturn(App& app, const std::string& logText, const std::string& addition,
                      bool show = true, int endOn = kAnsNo, int buttons = kMbYesNo,
                      bool onTop = false);
// The standard continue-or-terminate prompt after a recoverable failure.
inline bool ContinueOrTerminate(App& app, const std::string& logText) {
    return DoErrorsNoReturn(app, logText, kContinueOrTerminate);
}

// Shows a message box titled "Pelmark" (critical icon, OK, unless told otherwise) and keeps
// the answer as the last prompt answer.
int ShowMessage(App& app, const std::string& prompt, int buttons = kMbCritical,
                const std::string& title = "Pelmark", bool topMost = false);

[[noreturn]] void CloseWMsg(App& app, const std::string& text);
[[noreturn]] void CloseEnd(App& app, int code = 0);
void CloseAll(App& app);

// The text without every "," and "$": its number when numeric, else 0.
double CleanNumber(const std::string& text);
double NumVal(const std::string& text);
// The value of the number a text begins with ("3x" is 3, "" is 0), as the classic Val reads it.
double LeadingNumber(const std::string& text);
// True when the whole (trimmed) text is a number.
bool IsNumeric(const std::string& text);

// "1.0.1": major, minor and revision joined with ".".
std::string VersionText();
// Replaces every CR LF pair (and any lone CR or LF) by a tab, so one message is one line.
std::string OneLine(const std::string& text);

}  // namespace pelmark
