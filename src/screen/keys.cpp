// Keystrokes to QuickBooks, the copy keystroke and the clipboard.
#include <string>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "screen/WindowsStuff.h"

namespace pelmark::screen {
namespace {

constexpr int kAfterActivateMs = 50;

bool Contains(std::string_view s, std::string_view part) {
    return s.find(part) != std::string_view::npos;
}

bool BeginsWithModifier(std::string_view keys) {
    return !keys.empty() && (keys[0] == '%' || keys[0] == '^' || keys[0] == '+');
}

// The per-character delay of plain text, from the main form's "My Keys Timer" label.
int CharDelay(App& app) {
    return static_cast<int>(LeadingNumber(app.frmMain.Caption("lblMyKeysTime")));
}

}  // namespace

void SetMessageMode(App& app) {
    app.screen.messageMode = !app.frmMain.Checked("chkDontUseSendMsg");
}

bool SendKeysEscaped(App& app, std::string_view keys, bool wait) {
    if (keys.empty()) return true;
    Desktop& d = *app.sys.desktop;
    std::string all(keys);
    if (app.screen.messageMode) {
        // Field texts are read by messages in this mode, so only the keys that move between
        // fields and the Alt accelerators go out; selecting and copying are left out.
        if (keys[0] == '%' || Contains(keys, "{TAB") || Contains(keys, "{UP") ||
            Contains(keys, "{DOWN"))
            return d.SendKeys(all, true);
        if (keys == "^c" || Contains(keys, "{") || BeginsWithModifier(keys)) return true;
    }
    if (Contains(keys, "{") || BeginsWithModifier(keys)) return d.SendKeys(all, wait);

    // Plain text goes one character at a time. "(", ")" and "%" would be read as notation;
    // "+", "^", "~", braces and brackets never occur in the texts the program types.
    int delay = CharDelay(app);
    bool ok = true;
    for (char c : keys) {
        std::string one = c == '('   ? "{(}"
                          : c == ')' ? "{)}"
                          : c == '%' ? "{%}"
                                     : std::string(1, c);
        ok = d.SendKeys(one, true) && ok;
        if (delay > 0) app.sys.clock->Sleep(delay);
    }
    return ok;
}

bool SendCopyKeys(App& app, std::string_view keys) {
    app.common.lastAnswer = 0;
    if (app.screen.messageMode) return SendKeysEscaped(app, keys, true);
    // By the main window itself: another program's window may begin with the company name.
    const std::string& title = app.screen.qbAppTitle;
    bool ok = ActivateQuickBooks(app);
    if (ok) {
        app.sys.clock->Sleep(kAfterActivateMs);
        ok = SendKeysEscaped(app, keys, true);
    }
    if (!ok) {
        // The user may stop the header read here (Cancel); the caller tests the answer.
        DoErrors(app, "Send Copy Keys failed: " + std::string(keys) + " to " + title, kMbOKCancel,
                 "ERROR\tSend Copy Keys failed\t" + std::string(keys) + "\t" + title);
    }
    return ok;
}

void ClearClipboard(App& app, bool keep) {
    if (!keep) app.sys.desktop->ClearClipboard();
}

std::string ClipBoardGetText(App& app, bool trim, bool direct) {
    if (trim) return Trim(ClipBoardGetText(app, false, direct));
    Desktop& d = *app.sys.desktop;
    if (direct) {
        Hwnd edit = app.screen.trnsEditWnd;
        if (edit == 0) {
            DebugLog(app, "Clip Board Get Text The Trans Edit H Wnd is zero", 1);
            return {};
        }
        int length = d.GetTextLength(edit);
        if (length <= 0) return {};
        std::string text = d.GetTextByMessage(edit, length + 1);
        if (static_cast<int>(text.size()) > length) text.resize(length);
        return text;
    }
    return d.GetClipboardText().value_or(std::string());
}

}  // namespace pelmark::screen
