// Debug log, error log and prompts: formats, levels, counters and how the program ends.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "app/logs.h"
#include "fakes/fakes.h"

namespace pelmark {
namespace {

using test::TestApp;

TEST(DebugLogTest, WritesHeaderAndTimedLinesAtTheChosenLevelInAStampedFile) {
    TestApp t;
    t.app.frmMain.Find("txtDebugLevel")->text = "4x";  // the leading number counts
    t.app.common.currentStep = "PIIIX, Init ";
    DebugLog(t.app, "Read Ini Entered ", 5);
    EXPECT_TRUE(t.DebugLines().empty()) << "level 5 lines are not written at level 4";

    DebugLog(t.app, "first", 4);
    t.clock.Advance(0.015625);
    DebugLog(t.app, "two\r\nlines", 1);
    t.app.frmMain.Find("txtDebugLevel")->text = "5";
    DebugLog(t.app, "Read Ini Entered ", 5);

    EXPECT_EQ(t.app.common.debug.fileName, "Debug_20261114_221300.Log");
    const std::string at = "11/14/2026 10:13:00 PM ", step = " PIIIX, Init ";
    EXPECT_EQ(t.DebugLines(), (std::vector<std::string>{
                                  at + "Pelmark Debug Log Version " + VersionText() + " " +
                                      t.app.folders.program + " pelmark_tests ",
                                  at + "0000.00-first" + step, at + "0000.01563-two\tlines" + step,
                                  at + "0000.00000-Read Ini Entered " + step}));
    EXPECT_EQ(t.events.calls, 3) << "each written line lets pending events run";

    // The stamp in the file name, and the dates it refuses.
    auto s = MakeDateTimeStamp(t.app, LocalTime{2026, 1, 2}, LocalTime{2026, 1, 2, 3, 4, 5});
    ASSERT_TRUE(s);
    EXPECT_EQ(s->stamp + " " + s->dateText + " " + s->timeText,
              "20260102_030405 2026-01-02 03:04:05");
    EXPECT_FALSE(MakeDateTimeStamp(t.app, LocalTime{2026, 2, 29}));
    EXPECT_TRUE(MakeDateTimeStamp(t.app, LocalTime{2024, 2, 29}));
    EXPECT_FALSE(MakeDateTimeStamp(t.app, std::nullopt, LocalTime{2026, 1, 1, 24, 0, 0}));
}

TEST(DebugLogTest, LevelZeroAndDisabledAndDeveloperMode) {
    TestApp t;
    t.app.frmMain.Find("txtDebugLevel")->text = "";
    DebugLog(t.app, "only level 0 lines", 1);
    EXPECT_FALSE(t.app.common.debug.open) << "no file for a run without level-0 lines";
    t.app.common.developerMode = true;
    DebugLog(t.app, "bare text", 0, {.bare = true});
    EXPECT_EQ(t.app.common.debug.fileName, "Debug.Log");
    EXPECT_EQ(t.DebugLines().back(), "bare text");

    t.app.common.debug.disabled = true;
    DebugLog(t.app, "not kept", 0);
    EXPECT_EQ(t.app.common.lastDebugText, "bare text");
}

TEST(DebugLogTest, UnwritableFolderLosesLinesButNotTheRun) {
    TestApp t;
    t.dir.Write("plainfile", "x");
    t.app.folders.data = t.dir.File("plainfile") + "/sub/";  // a folder that cannot exist
    t.app.frmMain.SetOption(*t.app.frmMain.Find("optStopOnError"), true);
    DebugLog(t.app, "lost", 0);
    WriteErr(t.app, "ERROR\tlost too");
    EXPECT_FALSE(t.app.common.errLogOpen);
    EXPECT_EQ(t.app.common.errCounters[0], 1);
    // An INFO prompt is normally held back by "Error only", but a message that cannot be kept
    // in the log is shown instead.
    t.prompter.Answer(kAnsOK);
    DoErrors(t.app, "the prompt", kMbOKOnly, "INFO\tthe prompt");
    EXPECT_EQ(t.prompter.Texts(), std::vector<std::string>{"the prompt"});
}

TEST(ErrLogTest, OpenModesFirstLinesAndCounters) {
    TestApp t;
    t.app.settings.path = t.dir.File("Pelmark.ini");
    t.dir.Write("Err.Log", "old line\r\n");
    OpenErrLog(t.app, "append");
    WriteErr(t.app, "error: one");
    WriteErr(t.app, "ERROR:\ttwo\r\nlines");
    WriteErr(t.app, "Warn three");
    WriteErr(t.app, "INFO\tfour");
    const std::vector<std::string> lines = t.ErrLines();
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(std::vector(lines.begin(), lines.begin() + 3),
              (std::vector<std::string>{"old line", "INFO\tappend\tErr Log B" + VersionText(),
                                        "INFO\tfile name \t" + t.dir.File("Pelmark.ini")}));
    EXPECT_EQ(lines[4], "ERROR:\ttwo\tlines");
    EXPECT_EQ(t.app.common.errCounters, (std::array<int16_t, 2>{2, 1}));  // errors, warnings

    t.app.common.errCounters[1] = INT16_MAX;
    WriteErr(t.app, "WARNING\tone too many");
    EXPECT_EQ(t.app.common.errCounters[1], INT16_MAX) << "the counter does not wrap";
}

TEST(PromptTest, StopOptionsChooseWhichLevelsAreAsked) {
    // tests/data/stop-options.txt: option|the titles of the boxes shown.
    for (const auto& row : test::DataRows("stop-options.txt")) {
        TestApp t;
        t.app.frmMain.SetOption(*t.app.frmMain.Find(row[0]), true);
        for (const char* text : {"ERROR\te", "WARNING\tw", "INFO\ti"})
            DoErrors(t.app, "p", kMbYesNo, text);
        std::string titles;
        for (auto& s : t.prompter.shown) titles += (titles.empty() ? "" : ",") + s.title;
        EXPECT_EQ(titles, row[1]) << row[0];
        EXPECT_EQ(t.ErrLines().size(), 4u) << "every line is logged whether asked or not";
    }
}

TEST(PromptTest, NoAndFatalStopsEndTheProgramThroughTheCloseSteps) {
    TestApp t;
    t.app.frmMain.SetOption(*t.app.frmMain.Find("optStopOnAll"), true);
    int closed = 0;
    t.app.closeSteps.push_back([&] { ++closed; });
    t.prompter.Answer(kAnsYes);
    EXPECT_TRUE(ContinueOrTerminate(t.app, "INFO\tCould not find all iif fields"));
    EXPECT_EQ(t.prompter.shown[0].text,
              "Could not find all iif fields\r\nHit YES to continue, NO to terminate");
    EXPECT_EQ(t.prompter.shown[0].style, kMbYesNo);
    EXPECT_EQ(closed, 0);

    t.prompter.Answer(kAnsNo);
    try {
        ContinueOrTerminate(t.app, "WARNING\tsecond");
        FAIL() << "No must end the program";
    } catch (const ProgramEnd& end) {
        EXPECT_TRUE(end.closed);
    }
    EXPECT_EQ(closed, 1);
    EXPECT_TRUE(t.Logged("Close All Entered "));

    // A fatal stop (close steps run once in a program), then developer mode.
    TestApp fatal;
    fatal.app.closeSteps.push_back([&] { ++closed; });
    EXPECT_THROW(CloseWMsg(fatal.app, "Pelmark invalid ini record #=3"), ProgramEnd);
    EXPECT_EQ(fatal.prompter.shown.at(0).style, kMbCritical);
    EXPECT_EQ(closed, 2);

    TestApp dev;
    dev.app.common.developerMode = true;
    dev.app.closeSteps.push_back([&] { ++closed; });
    try {
        CloseWMsg(dev.app, "stop");
    } catch (const ProgramEnd& end) {
        EXPECT_FALSE(end.closed);
    }
    EXPECT_EQ(closed, 2) << "developer mode stops without the close steps";

    // In developer mode a log text whose first field begins with "=" is a caller's mistake.
    EXPECT_THROW(DoErrors(dev.app, "p", kMbOKOnly, "INFO\t=oops"), ProgramEnd);
    EXPECT_EQ(dev.prompter.shown.back().title, "Pgm Error Pelmark");
}

// tests/data/numbers.txt: function|text|value.
TEST(NumbersTest, CleanNumberNumValAndLeadingNumber) {
    const std::map<std::string, std::function<double(const std::string&)>> read = {
        {"CleanNumber", CleanNumber},
        {"NumVal", NumVal},
        {"LeadingNumber", LeadingNumber},
        {"IsNumeric", [](const std::string& s) { return IsNumeric(s) ? 1.0 : 0.0; }}};
    for (const auto& row : test::DataRows("numbers.txt"))
        EXPECT_DOUBLE_EQ(read.at(row[0])(row[1]), std::stod(row[2])) << row[0] << " " << row[1];
}

}  // namespace
}  // namespace pelmark
