// The Windows Prompter: a real message box.
#include <windows.h>

#include "app/prompts.h"
#include "app/wideText.h"

namespace pelmark {
namespace {

class MessageBoxPrompter : public Prompter {
  public:
    int Show(const std::string& text, int style, const std::string& title, bool topMost) override {
        UINT flags = static_cast<UINT>(style);
        // Above QuickBooks, which the run has just brought to the front.
        if (topMost) flags |= MB_TOPMOST | MB_SETFOREGROUND;
        HWND owner = GetActiveWindow();
        return MessageBoxW(owner, WideFromUtf8(text).c_str(), WideFromUtf8(title).c_str(), flags);
    }
};

}  // namespace

std::unique_ptr<Prompter> MakeMessageBoxPrompter() {
    return std::make_unique<MessageBoxPrompter>();
}

}  // namespace pelmark
