// Window searches over the simulated desktop: order, short titles, the time guard, labels.
#include <gtest/gtest.h>

#include <string>

#include "app/context.h"
#include "fakes/fakes.h"
#include "screen/WindowsStuff.h"
#include "sim/simDesktop.h"

namespace pelmark::screen {
namespace {

using sim::SimDesktop;
using test::TestApp;

// Every pending-events point costs a second: a walk over many windows outlasts the guard.
class SlowPump : public EventPump {
  public:
    explicit SlowPump(test::FakeClock& clock) : clock_(clock) {}
    void DoEvents() override { clock_.Advance(1); }

  private:
    test::FakeClock& clock_;
};

sim::SimScenario WithoutQuickBooks() {
    sim::SimScenario s;
    s.qbRunning = false;
    return s;
}

struct ScreenSearchTest : ::testing::Test {
    ScreenSearchTest() {
        t.app.sys.desktop = &sim;
        t.app.frmMain.Find("txtDebugLevel")->text = "0";
    }
    Hwnd Top(const std::string& title, const std::string& cls = "Plain") {
        return sim.AddTopLevelWindow(title, cls, false);
    }
    TestApp t;
    SimDesktop sim{WithoutQuickBooks()};
};

// FindWindowLike skips one-character titles and lists children first; GetWindowsHandle4Text
// takes the first match the same way.
TEST_F(ScreenSearchTest, SearchesListChildrenFirstAndTakeTheFirstMatch) {
    sim.AddChildWindow(Top("X"), "Static", "Y");
    Hwnd parent = Top("Match Parent");
    Hwnd child = sim.AddChildWindow(parent, "Static", "Match Child");
    Hwnd xy = Top("XY");
    Hwnd later = Top("Match Later");
    Hwnd padded = Top("  Padded  ", "Edit");
    EXPECT_EQ(FindWindowLike(t.app, 0, "*", "*").handles,
              (std::vector<Hwnd>{child, parent, xy, later, padded}));
    EXPECT_EQ(FindWindowLike(t.app, 0, "?", "*").count(), 0);
    EXPECT_EQ(FindWindowLike(t.app, 0, "??", "*").handles, std::vector<Hwnd>{xy});
    EXPECT_EQ(FindWindowLike(t.app, 0, "*d", "Static").titles,
              std::vector<std::string>{"Match Child"});
    EXPECT_EQ(GetWindowsHandle4Text(t.app, 0, "Match*", "*"), child);
    EXPECT_EQ(t.app.screen.h4tMatches.titles, std::vector<std::string>{"Match Child"});
    // Each search starts afresh: the handle found before does not answer the next one.
    EXPECT_EQ(GetWindowsHandle4Text(t.app, 0, "Match L*", "*"), later);
    EXPECT_EQ(GetWindowsHandle4Text(t.app, 0, "Padded", "Edit"), padded) << "text is trimmed";
    EXPECT_EQ(GetWindowsHandle4Text(t.app, 0, "Padded", "Static"), 0u);

    // Without children: the windows after the start only.
    Hwnd a = Top("Window A");
    Hwnd inA = sim.AddChildWindow(a, "Static", "Target 1");
    Hwnd b = Top("Window B");
    Hwnd inB = sim.AddChildWindow(b, "Static", "Target 2");
    Top("Target 3");
    EXPECT_EQ(GetWindowsHandle4Text(t.app, a, "Target*", "*", true), inA);
    EXPECT_EQ(GetWindowsHandle4Text(t.app, a, "Target*", "*", false), inB);
    EXPECT_EQ(GetWindowsHandle4Text(t.app, b, "Window*", "*", false), 0u);
}

TEST_F(ScreenSearchTest, Handle4TextGuardLogsLoopingPastTenSecondsAndGoesOn) {
    SlowPump pump(t.clock);
    t.app.sys.events = &pump;
    for (int i = 0; i < 14; ++i) {
        Hwnd w = Top("Window " + std::to_string(i));
        sim.AddChildWindow(w, "Static", "Label " + std::to_string(i));
    }
    Hwnd target = Top("Target");

    EXPECT_EQ(GetWindowsHandle4Text(t.app, 0, "Target", "*"), target);
    int looping = 0, looping1 = 0;
    for (const std::string& line : t.ErrLines()) {
        looping += line == std::string("ERROR\t") + kLooping;
        looping1 += line == std::string("ERROR\t") + kLooping1;
    }
    EXPECT_GT(looping, 0);
    EXPECT_GT(looping1, 0) << "a level entered after the 10 seconds reports too";
    EXPECT_EQ(t.app.common.errCounters[0], looping + looping1);

    // With the guard off, nothing is written.
    TestApp off;
    SlowPump offPump(off.clock);
    off.app.sys.events = &offPump;
    off.app.sys.desktop = &sim;
    off.app.screen.noTimeout = true;
    EXPECT_EQ(GetWindowsHandle4Text(off.app, 0, "Target", "*"), target);
    EXPECT_TRUE(off.ErrLines().empty());
}

// tests/data/button-labels.txt and screen-dates.txt: text|yes or no.
TEST(ScreenTextTest, TellsQuickBooksButtonsAndDatesFromFieldTexts) {
    ScreenState s;
    for (const auto& row : test::DataRows("button-labels.txt"))
        EXPECT_EQ(IsButtonLabel(s, row[0]), row[1] == "yes") << row[0];
    for (const auto& row : test::DataRows("screen-dates.txt"))
        EXPECT_EQ(IsScreenDate(row[0]), row[1] == "yes") << row[0];
}

}  // namespace
}  // namespace pelmark::screen
