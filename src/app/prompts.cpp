// The console Prompter: prompts go to a stream and are answered without blocking.
#include "app/prompts.h"

#include <cctype>
#include <iostream>
#include <string>

#include "app/text.h"

#ifdef _WIN32
#include <io.h>
#define PELMARK_ISATTY _isatty
#define PELMARK_FILENO _fileno
#else
#include <unistd.h>
#define PELMARK_ISATTY isatty
#define PELMARK_FILENO fileno
#endif

namespace pelmark {

int AnswerFor(int style, bool affirmative) {
    switch (style & 7) {
        case kMbOKCancel:
            return affirmative ? kAnsOK : kAnsCancel;
        case kMbAbortRetryIgnore:
            return affirmative ? kAnsIgnore : kAnsAbort;
        case kMbYesNoCancel:
        case kMbYesNo:
            return affirmative ? kAnsYes : kAnsNo;
        case kMbRetryCancel:
            return affirmative ? kAnsRetry : kAnsCancel;
        default:
            return kAnsOK;
    }
}

static const char* AnswerName(int a) {
    switch (a) {
        case kAnsOK:
            return "OK";
        case kAnsCancel:
            return "Cancel";
        case kAnsAbort:
            return "Abort";
        case kAnsRetry:
            return "Retry";
        case kAnsIgnore:
            return "Ignore";
        case kAnsYes:
            return "Yes";
        case kAnsNo:
            return "No";
        default:
            return "?";
    }
}

int ConsolePrompter::Show(const std::string& text, int style, const std::string& title, bool) {
    std::fprintf(out_, "[%s] %s\n", title.c_str(), ReplaceAll(text, "\r\n", "\n").c_str());
    bool affirmative = yesNoAnswer_ != kAnsNo;
    int answer = AnswerFor(style, affirmative);
    if ((style & 7) != kMbOKOnly && interactive_ && PELMARK_ISATTY(PELMARK_FILENO(stdin))) {
        std::fprintf(out_, "Answer y(es) or n(o): ");
        std::fflush(out_);
        std::string reply;
        if (std::getline(std::cin, reply))
            answer = AnswerFor(style, !reply.empty() && std::tolower(reply[0]) == 'y');
    }
    std::fprintf(out_, "  -> %s\n", AnswerName(answer));
    std::fflush(out_);
    return answer;
}

}  // namespace pelmark
