// Window searches over the desktop's window tree, the QuickBooks button labels and top-most.
#include <cstdio>
#include <string>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "screen/WindowsStuff.h"

namespace pelmark::screen {
namespace {

// The buffer size the window-text and class-name reads are given.
constexpr int kTextBuffer = 255;
constexpr double kSearchSeconds = 10;
constexpr int kMaxChildFieldTexts = 11;

const char* const kButtonLabels[] = {
    "&NEXT",       "PREV&",          "PRE&",        "&CANCEL",      "CUSTOMER IS TA&X",
    "PROGRESS &D", "PRIN&T",         "TIME/COST&S", "PMT HISTOR&Y", "OK",
    "CUSTOMIZE",   "TO BE PRINT",    "TO BE &P",    "TO &BE ",      "TO BE E-MAILE",
    "TO BE MAILE", "TO BE SENT",     "REVERT",      "CLEAR",        "&SAVE &&",
    "S&AVE &&",    "ESTIMATE ACTIVE"};

std::string Str(std::string_view s) {
    return std::string(s);
}

// True (after writing the error-log line) when the search has run past its 10 seconds.
bool CheckLooping(App& app, const char* errorText) {
    const ScreenState& s = app.screen;
    if (s.noTimeout) return false;
    double elapsed = app.sys.clock->Timer() - s.h4tStart;
    if (elapsed < 0) elapsed += 86400;  // the timer starts again at midnight
    if (elapsed <= kSearchSeconds) return false;
    WriteErr(app, std::string("ERROR\t") + errorText);
    return true;
}

Hwnd Handle4TextWalk(App& app, Hwnd startWnd, std::string_view textPattern,
                     std::string_view classPattern, bool searchChildren) {
    ScreenState& s = app.screen;
    Desktop& d = *app.sys.desktop;
    DebugLog(app,
             "Get Windows Handle 4 Text Entered level=" + std::to_string(s.h4tLevel) + " " +
                 Str(textPattern) + " " + Str(classPattern) + " " + HexHwnd(startWnd),
             5);
    // One search returns the first match: every call after it unwinds at once.
    if (s.h4tFound != 0) {
        DebugLog(app, "Get Windows Handle 4 Text the Handle <> 0 ", 9);
        return s.h4tFound;
    }
    ++s.h4tLevel;
    CheckLooping(app, kLooping1);

    Hwnd wnd = d.GetWindow(startWnd, searchChildren ? kGwChild : kGwHwndNext);
    DebugLog(app, "Get Windows Handle 4 Text Do until hwnd=" + HexHwnd(wnd), 9);
    while (wnd != 0) {
        app.sys.events->DoEvents();
        CheckLooping(app, kLooping);
        std::string text = Trim(d.WindowText(wnd, kTextBuffer));

        DebugLog(app, "Get Windows Handle 4 Text Recursing ", 9);
        Handle4TextWalk(app, wnd, textPattern, classPattern, true);
        DebugLog(app, "Get Windows Handle 4 Text Recursing back ", 9);
        // A child that matched wins over this window.
        if (s.h4tFound != 0) break;

        std::string cls = d.WindowClass(wnd, kTextBuffer);
        DebugLog(app, "Get Windows Handle 4 Text GetClassNameA Back ", 9);
        if (Like(cls, classPattern) && Like(text, textPattern)) {
            DebugLog(app, "Get Windows Handle 4 Text Found1 " + HexHwnd(wnd) + " " + text, 9);
            s.h4tMatches.handles.push_back(wnd);
            s.h4tMatches.titles.push_back(text);
            s.h4tMatches.classes.push_back(cls);
            ++s.h4tFoundCount;
            s.h4tFound = wnd;
            DebugLog(app, "Get Windows Handle 4 Text Found2 " + cls, 9);
            break;
        }
        wnd = d.GetWindow(wnd, kGwHwndNext);
    }
    --s.h4tLevel;
    DebugLog(app, "Get windows handle 4 text exit new Level=" + std::to_string(s.h4tLevel), 9);
    return s.h4tFound;
}

void CollectChildTexts(App& app, Hwnd parent) {
    Desktop& d = *app.sys.desktop;
    for (Hwnd child = d.FindChild(parent, 0, {}, {}); child != 0;
         child = d.FindChild(parent, child, {}, {})) {
        int length = d.GetTextLength(child);
        if (length <= 0) continue;
        std::string text = d.GetTextByMessage(child, length + 1);
        if (!text.empty()) app.screen.childTexts.push_back(text);
    }
}

void FindWindowLikeWalk(App& app, Hwnd startWnd, std::string_view titlePattern,
                        std::string_view classPattern, WindowMatches& out) {
    ScreenState& s = app.screen;
    Desktop& d = *app.sys.desktop;
    ++s.fwlLevel;
    Hwnd child = d.GetWindow(startWnd, kGwChild);
    DebugLog(app, "Find Window Get Window " + HexHwnd(child), 9);
    while (child != 0) {
        app.sys.events->DoEvents();
        FindWindowLikeWalk(app, child, titlePattern, classPattern, out);
        std::string title = d.WindowText(child, kTextBuffer);
        std::string cls = d.WindowClass(child, kTextBuffer);
        // A title shorter than two characters is never taken, whatever the pattern.
        bool match = title.size() >= 2 && Like(title, titlePattern) && Like(cls, classPattern);
        if (match) {
            out.handles.push_back(child);
            out.titles.push_back(title);
            out.classes.push_back(cls);
            if (!s.childTextTitle.empty() && StartsWith(title, s.childTextTitle))
                CollectChildTexts(app, child);
        }
        child = d.GetWindow(child, kGwHwndNext);
    }
    --s.fwlLevel;
}

}  // namespace

std::string HexHwnd(Hwnd wnd) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "&H%llX", static_cast<unsigned long long>(wnd));
    return buf;
}

WindowMatches FindWindowLike(App& app, Hwnd startWnd, std::string_view titlePattern,
                             std::string_view classPattern) {
    ScreenState& s = app.screen;
    s.fwlLevel = 0;
    if (startWnd == 0) startWnd = app.sys.desktop->GetDesktopWindow();
    DebugLog(app,
             "Find Window Like pWndStart=" + HexHwnd(startWnd) + " " + Str(titlePattern) + " " +
                 Str(classPattern),
             5);
    WindowMatches out;
    FindWindowLikeWalk(app, startWnd, titlePattern, classPattern, out);
    return out;
}

Hwnd GetWindowsHandle4Text(App& app, Hwnd startWnd, std::string_view textPattern,
                           std::string_view classPattern, bool searchChildren) {
    ScreenState& s = app.screen;
    s.h4tLevel = 0;
    s.h4tStart = app.sys.clock->Timer();
    s.h4tFound = 0;
    s.h4tFoundCount = 0;
    s.h4tMatches = {};
    if (startWnd == 0) startWnd = app.sys.desktop->GetDesktopWindow();
    DebugLog(app, "Get Windows Handle 4 text=" + HexHwnd(startWnd), 5);
    return Handle4TextWalk(app, startWnd, textPattern, classPattern, searchChildren);
}

void FillButtonLabels(ScreenState& state) {
    state.buttonLabels = {};
    size_t i = 0;
    for (const char* label : kButtonLabels) state.buttonLabels[i++] = label;
}

bool IsButtonLabel(ScreenState& state, std::string_view text) {
    if (state.buttonLabels[0].empty()) FillButtonLabels(state);
    std::string up = Upper(text);
    for (const std::string& label : state.buttonLabels) {
        // The empty slots at the end of the table would match every text.
        if (label.empty()) continue;
        if (StartsWith(up, label)) return true;
    }
    return false;
}

std::vector<std::string> ChildFieldTexts(ScreenState& state) {
    std::vector<std::string> kept;
    for (const std::string& text : state.childTexts) {
        if (IsButtonLabel(state, text)) continue;
        if (static_cast<int>(kept.size()) >= kMaxChildFieldTexts) break;
        kept.push_back(text);
    }
    return kept;
}

bool MakeTopMost(App& app, Hwnd wnd, const WindowRect& rect) {
    DebugLog(app, "Make Top Most Entered ", 5);
    return app.sys.desktop->SetTopMost(wnd, true, rect.left, rect.top, rect.width, rect.height);
}

bool MakeNotTopMost(App& app, Hwnd wnd, const WindowRect& rect) {
    DebugLog(app, "Make Not Top Most Entered ", 5);
    return app.sys.desktop->SetTopMost(wnd, false, rect.left, rect.top, rect.width, rect.height);
}

}  // namespace pelmark::screen
