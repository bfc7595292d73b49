// The message-box Prompter on a real Windows desktop: the box shows, and its buttons answer.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <thread>

#include "app/prompts.h"
#include "wine/screenshot_win.h"

namespace pelmark {
namespace {

// Waits for the message box titled `title`, photographs it, then presses the button `id`.
void AnswerBoxLater(const char* title, int id, const char* shot, std::atomic<bool>* found) {
    for (int i = 0; i < 200; ++i) {
        HWND box = FindWindowA("#32770", title);
        if (box && IsWindowVisible(box)) {
            found->store(true);
            if (shot) test::TakeScreenshot(shot);
            HWND button = GetDlgItem(box, id);
            if (button)
                PostMessageA(button, BM_CLICK, 0, 0);
            else
                PostMessageA(box, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED), 0);
            return;
        }
        Sleep(50);
    }
}

TEST(MessageBoxPrompterTest, ShowsTheBoxAndReturnsTheButtonPressed) {
    auto prompter = MakeMessageBoxPrompter();
    struct Case {
        int style, button, answer;
        const char* shot;
    } cases[] = {
        {kMbYesNo, IDNO, kAnsNo, "prompt-continue-or-terminate"},
        {kMbYesNo | kMbQuestion, IDYES, kAnsYes, nullptr},
        {kMbOKOnly | kMbCritical, IDOK, kAnsOK, nullptr},
    };
    for (const Case& c : cases) {
        std::atomic<bool> found{false};
        std::thread answerer(AnswerBoxLater, "Pelmark INFO", c.button, c.shot, &found);
        int got =
            prompter->Show("Could not find all iif fields\r\nHit YES to continue, NO to terminate",
                           c.style, "Pelmark INFO", true);
        answerer.join();
        EXPECT_TRUE(found.load());
        EXPECT_EQ(got, c.answer);
    }
}

}  // namespace
}  // namespace pelmark
