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
            // The box ends on the command of the button pressed, as a click would send it.
            PostMessageA(box, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED),
                         reinterpret_cast<LPARAM>(GetDlgItem(box, id)));
            return;
        }
        Sleep(50);
    }
}

TEST(MessageBoxPrompterTest, ShowsTheBoxAndReturnsTheButtonPressed) {
    auto prompter = MakeMessageBoxPrompter();
    const char* ask = "Could not find all iif fields\r\nHit YES to continue, NO to terminate";
    struct Case {
        int style, button, answer;
        const char* text;
        const char* shot;
    } cases[] = {
        {kMbYesNo, IDNO, kAnsNo, ask, "prompt-continue-or-terminate"},
        {kMbYesNo | kMbQuestion, IDYES, kAnsYes, ask, nullptr},
        {kMbOKOnly | kMbCritical, IDOK, kAnsOK, ask, nullptr},
        // Texts are UTF-8: the registered sign and accented names must show as such.
        {kMbOKOnly, IDOK, kAnsOK, "Customer not found in QuickBooks\u00ae: Caf\u00e9 L\u00fcbeck",
         "prompt-utf8-text"},
    };
    for (const Case& c : cases) {
        std::atomic<bool> found{false};
        std::thread answerer(AnswerBoxLater, "Pelmark INFO", c.button, c.shot, &found);
        int got = prompter->Show(c.text, c.style, "Pelmark INFO", true);
        answerer.join();
        EXPECT_TRUE(found.load());
        EXPECT_EQ(got, c.answer);
    }
}

}  // namespace
}  // namespace pelmark
