// The two Prompter implementations: Windows message boxes, and a console that never blocks.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "app/seams.h"

namespace pelmark {

// Writes each prompt to a stream and answers it from a policy: a yes/no question gets
// `yesNoAnswer`; other boxes get their affirmative or negative button to match. When
// `interactive` is set and standard input is a terminal, the user types the answer instead.
class ConsolePrompter : public Prompter {
  public:
    explicit ConsolePrompter(int yesNoAnswer = kAnsNo, bool interactive = false,
                             std::FILE* out = stderr)
        : yesNoAnswer_(yesNoAnswer), interactive_(interactive), out_(out) {}
    int Show(const std::string& text, int style, const std::string& title, bool topMost) override;

  private:
    int yesNoAnswer_;
    bool interactive_;
    std::FILE* out_;
};

// The answer a box with these buttons gives for an affirmative or a negative reply.
int AnswerFor(int style, bool affirmative);

#ifdef _WIN32
// MessageBoxA, owned by the program's active window; on top of QuickBooks when asked.
std::unique_ptr<Prompter> MakeMessageBoxPrompter();
#endif

}  // namespace pelmark
