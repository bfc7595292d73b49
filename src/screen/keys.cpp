// Keystrokes to QuickBooks, the copy keystroke and the clipboard, and the main form's readers.
#include <string>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "screen/WindowsStuff.h"

namespace pelmark::screen {
namespace {

constexpr int kAfterActivateMs = 50;
constexpr int kLineColumnWaitMs = 400;
constexpr int kCheckStartWaitMs = 500;
constexpr int kLineColumnRows = 10;
constexpr int kCheckFields = 31;

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

bool BringUpAndSendKeys(App& app, const std::string& title, std::string_view keys) {
    DebugLog(app, "Bring Up And Send Keys Entered " + title + " " + std::string(keys), 5);
    app.sys.events->DoEvents();
    if (!app.sys.desktop->AppActivate(title)) {
        DebugLog(app, "Bring Up And Send Keys no window " + title, 1);
        return false;
    }
    app.sys.clock->Sleep(kAfterActivateMs);
    if (keys.empty()) return true;
    return SendKeysEscaped(app, keys, true);
}

bool SendCopyKeys(App& app, std::string_view keys) {
    app.common.lastAnswer = 0;
    if (app.screen.messageMode) return SendKeysEscaped(app, keys, true);
    const std::string& title = app.screen.qbAppTitle;
    bool ok = app.sys.desktop->AppActivate(title);
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

std::vector<std::string> ReadLineColumn(App& app) {
    DebugLog(app, "Read Line Column Entered ", 5);
    std::vector<std::string> lines;
    for (int i = 0; i < kLineColumnRows; ++i) {
        if (!app.sys.desktop->AppActivate(app.screen.qbWindowKey)) break;
        app.sys.clock->Sleep(kLineColumnWaitMs);
        SendKeysEscaped(app, "^c", true);
        app.sys.clock->Sleep(kLineColumnWaitMs);
        lines.push_back(ClipBoardGetText(app));
        SendKeysEscaped(app, "{DOWN}", true);
    }
    return lines;
}

ScreenCheck CheckScreenReading(App& app) {
    DebugLog(app, "Check Screen Reading Entered ", 5);
    ScreenCheck r;
    GetTrnsWindows(app);
    DebugLog(app, "Get Trns No abc=def ", 1);
    if (!app.sys.desktop->AppActivate(app.screen.qbWindowKey)) {
        r.failedAt = "QuickBooks window " + app.screen.qbWindowKey;
        return r;
    }
    app.sys.events->DoEvents();
    app.sys.clock->Sleep(kCheckStartWaitMs);
    SendKeysEscaped(app, "%j", true);
    for (int i = 0; i < kCheckFields; ++i) {
        ClearClipboard(app);
        SendKeysEscaped(app, "{HOME}+({END})", true);
        SendKeysEscaped(app, "^c", true);
        r.fields.push_back(ClipBoardGetText(app, true));
        SendKeysEscaped(app, "{TAB}", true);
    }

    // The prepared test transaction holds these, in tab order after its template.
    size_t at = 0;
    bool templateFound = false;
    for (; at < r.fields.size() && !templateFound; ++at) {
        for (const auto& t : app.qb.templates) {
            if (t.name.empty()) break;
            if (r.fields[at] == t.name) templateFound = true;
        }
    }
    if (!templateFound) {
        r.failedAt = "template";
        return r;
    }
    const std::vector<std::vector<std::string>> expected = {
        {"trnsno"},   {"000Item"}, {"000Item Desc"}, {"10"}, {"9876.54321", "9,876.54321"},
        {"98,765.43"}};
    for (const auto& accepted : expected) {
        bool found = false;
        for (; at < r.fields.size() && !found; ++at)
            for (const std::string& a : accepted) found = found || r.fields[at] == a;
        if (!found) {
            r.failedAt = accepted[0];
            DebugLog(app, "Check Screen Reading differs at " + accepted[0], 1);
            return r;
        }
    }
    r.ok = true;
    return r;
}

}  // namespace pelmark::screen
