// pelmark.exe under Wine as a person uses it: started on a prepared settings file, looked at in
// both states, changed with the mouse and the keyboard, and saved.
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "app/wideText.h"
#include "ui/frmMain.h"
#include "wine/gui_win.h"
#include "wine/screenshot_win.h"
#include "wine/sortRig_win.h"

namespace pelmark::test {
namespace {

// ---- Real input ---------------------------------------------------------------------------

// Real key presses: a virtual key, or with `ch` a typed character.
INPUT KeyInput(WORD vk, bool up, wchar_t ch = 0) {
    INPUT in = {};
    in.type = INPUT_KEYBOARD;
    in.ki.wVk = vk;
    in.ki.wScan = ch;
    in.ki.dwFlags = (ch ? KEYEVENTF_UNICODE : 0) | (up ? KEYEVENTF_KEYUP : 0);
    return in;
}

void Send(std::vector<INPUT> inputs) {
    SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT));
    Sleep(150);
}

void Key(WORD vk, WORD modifier = 0) {
    std::vector<INPUT> keys = {KeyInput(vk, false), KeyInput(vk, true)};
    if (modifier) {
        keys.insert(keys.begin(), KeyInput(modifier, false));
        keys.push_back(KeyInput(modifier, true));
    }
    Send(keys);
}

void Type(const std::string& text) {
    std::vector<INPUT> keys;
    for (wchar_t c : Wide(text))
        for (bool up : {false, true}) keys.push_back(KeyInput(0, up, c));
    Send(keys);
}

// The first tab of a tab strip ("Sort"): its caption sits in the strip's top left corner.
void ClickFirstTab(HWND tabs) {
    RECT r{};
    GetWindowRect(tabs, &r);
    ClickAt(r.left + 20, r.top + 10);
}

// Replaces a field's text as a user does: click into it, select the text, type.
void Retype(HWND field, const std::string& text) {
    Click(field);
    Key(VK_END);
    Key(VK_HOME, VK_SHIFT);
    Type(text);
}

// ---- The program --------------------------------------------------------------------------

std::map<std::string, std::string> ReadSettings(const std::wstring& path) {
    std::map<std::string, std::string> values;
    std::ifstream in{std::filesystem::path(path), std::ios::binary};
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t eq = line.find('=');
        if (eq != std::string::npos) values[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return values;
}

// The settings the window starts on, and what it saves after the changes the test makes.
const std::string kData = PELMARK_SOURCE_DIR "/tests/data/";

// A picture of the screen with the mouse out of the way, so that no tip covers the form.
void Shot(const std::string& name) {
    SetCursorPos(1270, 1010);
    Sleep(300);
    TakeScreenshot(name);
}

bool IsTopMost(HWND h) {
    return (GetWindowLongPtrW(h, GWL_EXSTYLE) & WS_EX_TOPMOST) != 0;
}

// A field that refuses its text: the message shows, OK returns the focus to the field.
void ExpectRefused(Gui& gui, const char* field, const std::string& text,
                   const std::string& message) {
    Retype(gui.Control(field), text);
    Key(VK_TAB);
    Box box = gui.WaitForBox();
    ASSERT_NE(box.wnd, nullptr) << field << "=" << text;
    EXPECT_EQ(box.text, message);
    Key(VK_RETURN);
    EXPECT_TRUE(WaitFor([&] { return !IsWindow(box.wnd); }));
    EXPECT_TRUE(WaitFor([&] { return gui.Focused() == gui.Control(field); })) << field;
}

TEST(GuiTest, ShowsTheSavedSettingsAndSavesWhatIsClickedAndTyped) {
    std::ifstream start(kData + "gui-start.ini", std::ios::binary);
    Gui gui((std::ostringstream() << start.rdbuf()).str());
    ASSERT_NE(gui.main, nullptr) << "pelmark.exe showed no main window";
    for (const std::string& text : gui.startupBoxes)
        std::printf("start-up asked: %s\n", text.c_str());

    // The saved values, in the small form at the saved position, on top as saved.
    // (The form goes on top once it has loaded: the test may look before.)
    EXPECT_TRUE(WaitFor([&] { return IsTopMost(gui.main); }));
    RECT small = gui.Rect();
    EXPECT_EQ(small.left, 120);
    EXPECT_EQ(small.top, 90);
    EXPECT_EQ(TextOf(gui.Control("cboSortField", 0)), "Class");
    EXPECT_EQ(TextOf(gui.Control("cboSortField", 1)), "Qty");
    EXPECT_TRUE(gui.Checked("chkSortDesc", 1));
    EXPECT_FALSE(gui.Checked("chkSortDesc", 0));
    EXPECT_TRUE(gui.Checked("optBlankLinesAfter"));
    EXPECT_FALSE(gui.Checked("optBlankLinesNone"));
    EXPECT_EQ(TextOf(gui.Control("txtBlankLines")), "2");
    EXPECT_EQ(TextOf(gui.Control("cboTotalsItem")), "Freight Subtotal");
    EXPECT_EQ(TextOf(gui.Control("lblTimeProDelay")), "250");
    HWND internal = gui.Control("lstOptionsInternal");
    for (int k : {0, 1, 8}) EXPECT_EQ(SendMessageW(internal, LB_GETSEL, k, 0) > 0, k != 0) << k;
    EXPECT_TRUE(IsWindowVisible(gui.Control("lstMsgs")));
    EXPECT_FALSE(IsWindowVisible(gui.Control("chkSortDesc", 0)));
    Shot("gui-small");

    // Expand: the settings show, the small form's position is kept in the labels.
    Click(gui.Control("cmdExpand"));
    ASSERT_TRUE(WaitFor([&] { return TextOf(gui.Control("cmdExpand")) == "Collapse"; }));
    EXPECT_EQ(gui.Rect().left, 120);
    EXPECT_TRUE(IsWindowVisible(gui.Control("chkSortDesc", 0)));
    EXPECT_EQ(TextOf(gui.Control("lblScreenLeft")), "120");
    Shot("gui-expanded-sort");
    // The other pages, through the tab strip and the arrow keys.
    HWND tabs = gui.Control("SSTab1");
    ClickFirstTab(tabs);
    Key(VK_RIGHT);
    EXPECT_TRUE(WaitFor([&] { return IsWindowVisible(gui.Control("lblTimeProDelay")); }));
    Shot("gui-expanded-options");
    // The up-down's upper half raises the label it sets.
    Click(gui.Control("UpDownlblTimeProDelay"), 0.5, 0.25);
    EXPECT_TRUE(WaitFor([&] { return TextOf(gui.Control("lblTimeProDelay")) == "251"; }));
    ClickFirstTab(tabs);  // back on the first page, with the focus on the tab strip
    Key(VK_RIGHT);
    Key(VK_RIGHT);
    EXPECT_TRUE(WaitFor([&] { return IsWindowVisible(gui.Control("grdLines")); }));
    Shot("gui-expanded-lines");
    // Always on top: off with a click, on again with the next.
    Click(gui.Control("chkAlwaysOnTop"), 0.05);
    EXPECT_TRUE(WaitFor([&] { return !IsTopMost(gui.main); }));
    Click(gui.Control("chkAlwaysOnTop"), 0.05);
    EXPECT_TRUE(WaitFor([&] { return IsTopMost(gui.main); }));
    ExpectRefused(gui, "txtLinesMax", "abc", "Invalid number. Must be between 1-9999 Not numeric");
    Retype(gui.Control("txtLinesMax"), "300");
    ClickFirstTab(tabs);
    // Wine's tab strip, clicked after an edit box had the focus, takes the focus but not always
    // the page: the arrow keys bring the first page in either case.
    Key(VK_LEFT);
    Key(VK_LEFT);
    ASSERT_TRUE(WaitFor([&] { return IsWindowVisible(gui.Control("chkSortDesc", 0)); }));

    // Changes through the mouse and the keyboard.
    Click(gui.Control("chkSortDesc", 0), 0.05);
    EXPECT_TRUE(WaitFor([&] { return gui.Checked("chkSortDesc", 0); }));
    Click(gui.Control("cboSortField", 2));
    Type("D");
    Key(VK_RETURN);
    EXPECT_TRUE(WaitFor([&] { return TextOf(gui.Control("cboSortField", 2)) == "Desc"; }));
    Click(gui.Control("optBlankLinesBefore"), 0.05);
    EXPECT_TRUE(WaitFor([&] { return gui.Checked("optBlankLinesBefore"); }));
    EXPECT_FALSE(gui.Checked("optBlankLinesAfter"));

    // The numeric fields refuse what is not a number in their range.
    ExpectRefused(gui, "txtBlankLines", "12",
                  "Invalid number. Must be between 0-9 Out of valid Range");
    ExpectRefused(gui, "txtBlankLines", "x", "Invalid number. Must be between 0-9 Not numeric");
    Retype(gui.Control("txtBlankLines"), "3");
    Key(VK_TAB);
    Sleep(300);
    EXPECT_EQ(gui.CurrentBox().wnd, nullptr) << gui.CurrentBox().text;
    EXPECT_NE(gui.Focused(), gui.Control("txtBlankLines"));
    ClickFirstTab(tabs);
    Key(VK_RIGHT);
    ExpectRefused(gui, "txtDebugLevel", "-1", "Invalid -1");
    Retype(gui.Control("txtDebugLevel"), "2");

    // Save while expanded keeps the small form's position.
    Click(gui.Control("cmdSave"));
    EXPECT_TRUE(WaitFor([&] { return TextOf(gui.Control("lblStatus")) == "Settings Saved"; }));
    std::map<std::string, std::string> saved = ReadSettings(gui.SettingsPath());
    for (const auto& [key, value] : ReadSettings(Wide(kData + "gui-saved.ini")))
        EXPECT_EQ(saved[key], value) << key;

    // Collapse goes back to the small form's place.
    Click(gui.Control("cmdExpand"));
    ASSERT_TRUE(WaitFor([&] { return TextOf(gui.Control("cmdExpand")) == "Expand"; }));
    RECT collapsed = gui.Rect();
    EXPECT_EQ(collapsed.left + collapsed.right, small.left + small.right);
    EXPECT_EQ(collapsed.top, 90);
    EXPECT_FALSE(IsWindowVisible(gui.Control("chkSortDesc", 0)));

    // Read Me and Internal from the system menu (the command ids frmMain_win.cpp appends to it),
    // as a user opens them: modal over the main form.
    // Internal is the form loaded hidden at start; Return hides it again, Close unloads it.
    const HWND internalForm = FindWindowW(L"PelmarkAuxForm", L"Pelmark - Internal");
    ASSERT_TRUE(internalForm && !IsWindowVisible(internalForm));
    const struct {
        WPARAM command;
        const wchar_t *caption, *button;
        bool unloaded;
    } menu[] = {{0x0020, L"Pelmark - Read Me", L"&Accept", true},
                {0x0030, L"Pelmark - Internal", L"&Return", false},
                {0x0030, L"Pelmark - Internal", L"&Close", true}};
    for (const auto& m : menu) {
        PostMessageW(gui.main, WM_SYSCOMMAND, m.command, 0);
        HWND form = nullptr;
        ASSERT_TRUE(WaitFor([&] {
            return (form = FindWindowW(L"PelmarkAuxForm", m.caption)) && IsWindowVisible(form);
        }));
        EXPECT_TRUE(m.command != 0x0030 || form == internalForm);
        EXPECT_FALSE(IsWindowEnabled(gui.main));
        // As the button's click arrives: a mouse click may land on the top-most main form,
        // which Wine without a window manager can keep above its own modal form.
        PostMessageW(FindWindowExW(form, nullptr, nullptr, m.button), BM_CLICK, 0, 0);
        EXPECT_TRUE(WaitFor([&] { return !IsWindowVisible(form); }));
        EXPECT_TRUE(WaitFor([&] { return IsWindowEnabled(gui.main) != FALSE; }));
        // The form is hidden before it is destroyed: under load the test can look in between.
        EXPECT_TRUE(WaitFor([&] { return (IsWindow(form) == FALSE) == m.unloaded; })) << m.button;
    }

    // End asks first: No keeps the program, Yes ends it.
    for (int answer : {IDNO, IDYES}) {
        Click(gui.Control("cmdEnd"));
        Box box = gui.WaitForBox();
        ASSERT_NE(box.wnd, nullptr) << "End asked nothing";
        EXPECT_EQ(box.text, "Are you sure you want to exit?");
        Gui::Answer(box, answer);
    }
    DWORD code = 99;
    EXPECT_TRUE(gui.program().Ended(10000, &code));
    EXPECT_EQ(code, 0u);
}

// The whole job as a user meets it: QuickBooks (fakeqb, with qbcom answering for its SDK) shows an
// invoice; Sort is pressed in Pelmark's window; the invoice is saved, closed, sorted, written back
// and shown again; Undo last sort puts it back in its first order. (pelmark-cli's end-to-end test
// runs the other kinds through the same run.)
TEST(GuiTest, SortAndUndoPressedInTheWindowActOnTheTransactionOpenInQuickBooks) {
    DesktopSortRig rig({"invoice", "3001"});
    ASSERT_NE(rig.quickBooks()->main(), nullptr);
    Gui gui(
        ";Ver=1.0.1\r\n[frmMain]\r\ncboSortField(0)=Item Full Name\r\nchkEUAAccepted=1\r\n"
        "chkCombineCFs=1\r\ntxtDebugLevel=5\r\n");
    ASSERT_NE(gui.main, nullptr);
    EXPECT_TRUE(gui.startupBoxes.empty()) << gui.startupBoxes.front();
    TakeScreenshot("gui-sort-before");
    auto shown = [&] {
        return FakeQbProgram::ShownItems(rig.quickBooks()->TrnsWindow(rig.windowTitle()));
    };
    for (const char* button : {"cmdGo", "cmdUndo"}) {
        SCOPED_TRACE(button);
        // QuickBooks comes to the front when it shows the transaction again.
        SetForegroundWindow(gui.main);
        WaitFor([&] { return GetForegroundWindow() == gui.main; }, 2000);
        std::vector<std::string> asked;
        Click(gui.Control(button));
        WaitFor([&] { return IsWindowEnabled(gui.Control("cmdGo")) == FALSE; }, 5000);
        EXPECT_TRUE(WaitFor(
            [&] {
                if (Box box = gui.CurrentBox(); box.wnd != nullptr) {
                    asked.push_back(box.text);
                    Gui::Answer(box, IDYES);
                }
                return IsWindowEnabled(gui.Control("cmdGo")) != FALSE;
            },
            120000));
        const std::vector<std::string> items = rig.Items();
        EXPECT_EQ(rig.LineTuples(), rig.tuplesBefore());
        EXPECT_TRUE(rig.Displayed());
        EXPECT_TRUE(WaitFor([&] { return shown() == items; }, 10000));
        if (std::string(button) == "cmdGo") {
            EXPECT_TRUE(asked.empty()) << asked.front();
            EXPECT_EQ(TextOf(gui.Control("lblStatus")), "Sending Display Trans to QB");
            EXPECT_TRUE(std::is_sorted(
                items.begin(), items.end(),
                [](const auto& a, const auto& b) { return _stricmp(a.c_str(), b.c_str()) < 0; }));
            EXPECT_NE(items, rig.itemsBefore());
            TakeScreenshot("gui-sort-after");
            SetForegroundWindow(gui.main);
            WaitFor([&] { return GetForegroundWindow() == gui.main; }, 2000);
            TakeScreenshot("gui-sort-status");
        } else {
            EXPECT_EQ(items, rig.itemsBefore());
            EXPECT_EQ(TextOf(gui.Control("lblStatus")).rfind("Undo done: Invoice 3001", 0), 0u);
            SetForegroundWindow(gui.main);
            WaitFor([&] { return GetForegroundWindow() == gui.main; }, 2000);
            TakeScreenshot("gui-undo-after");
        }
    }
    PostMessageW(gui.main, WM_CLOSE, 0, 0);
    EXPECT_TRUE(gui.program().Ended(10000));
}

}  // namespace
}  // namespace pelmark::test
