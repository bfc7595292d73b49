// The Windows Prompter: a real message box.
#include <windows.h>

#include "app/prompts.h"

namespace pelmark {
namespace {

// Texts are UTF-8 ("QuickBooks®", names from QuickBooks); text that is not valid UTF-8 came
// from an ANSI source (a file, a window) and is read in the ANSI code page.
std::wstring Wide(const std::string& s) {
    if (s.empty()) return {};
    UINT cp = CP_UTF8;
    int n = MultiByteToWideChar(cp, MB_ERR_INVALID_CHARS, s.data(), static_cast<int>(s.size()),
                                nullptr, 0);
    if (n == 0) {
        cp = CP_ACP;
        n = MultiByteToWideChar(cp, 0, s.data(), static_cast<int>(s.size()), nullptr, 0);
    }
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(cp, 0, s.data(), static_cast<int>(s.size()), w.data(), n);
    return w;
}

class MessageBoxPrompter : public Prompter {
  public:
    int Show(const std::string& text, int style, const std::string& title, bool topMost) override {
        UINT flags = static_cast<UINT>(style);
        // Above QuickBooks, which the run has just brought to the front.
        if (topMost) flags |= MB_TOPMOST | MB_SETFOREGROUND;
        HWND owner = GetActiveWindow();
        return MessageBoxW(owner, Wide(text).c_str(), Wide(title).c_str(), flags);
    }
};

}  // namespace

std::unique_ptr<Prompter> MakeMessageBoxPrompter() {
    return std::make_unique<MessageBoxPrompter>();
}

}  // namespace pelmark
