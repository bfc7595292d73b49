// The window's preview and Batch page under Wine, against fakeqb and qbcom: Sort with "Preview
// before writing" shows the new order, Cancel leaves the invoice as it was, "Write this order"
// writes it; the Batch page sorts the month's invoices and lists each result.
#include <gtest/gtest.h>
#include <windows.h>

#include <commctrl.h>  // after windows.h, whose types it uses

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "app/wideText.h"
#include "ui/frmMain.h"
#include "wine/program_win.h"
#include "wine/screenshot_win.h"
#include "wine/sortRig_win.h"

namespace pelmark::test {
namespace {

bool WaitUntil(const std::function<bool()>& done, int ms) {
    for (int waited = 0; waited < ms && !done(); waited += 100) Sleep(100);
    return done();
}

TEST(GuiPreviewTest, PreviewCancelWriteAndABatchFromTheWindow) {
    DesktopSortRig rig({"invoice", "3001"});
    TempDir shared;  // Windows' "Public" folder, where the program keeps its settings
    const std::string folder = shared.path() + "Documents\\Corvalt\\Pelmark\\";
    std::filesystem::create_directories(folder);
    shared.Write(
        "Documents\\Corvalt\\Pelmark\\Pelmark.ini",
        ";Ver=1.0.1\r\n[frmMain]\r\ncboSortField(0)=Item Full Name\r\nchkEUAAccepted=1\r\n");
    const std::string publicDir = shared.path().substr(0, shared.path().size() - 1);
    TestProgram gui(PELMARK_GUI_EXE, {}, {{"Public", publicDir}});
    HWND main = nullptr;
    ASSERT_TRUE(
        WaitUntil([&] { return (main = gui.FindWindowOfClass(L"PelmarkMainForm")); }, 60000));
    const ui::Form model = ui::MakeMainFormModel();
    auto control = [&](const char* name) {
        return GetDlgItem(main, ui::MainControlId(model, name));
    };
    // A click as the button's own BN_CLICKED: posted, so a modal form it opens does not block.
    auto click = [&](HWND button) {
        PostMessageW(GetParent(button), WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(button), BN_CLICKED),
                     reinterpret_cast<LPARAM>(button));
    };
    auto idle = [&] { return IsWindowEnabled(control("cmdGo")) != FALSE; };
    // The weight fields' lists hold the company's custom-field names.
    EXPECT_GT(SendMessageW(control("cboCFNetWeight"), CB_GETCOUNT, 0, 0), 1);

    SendMessageW(control("chkPreview"), BM_SETCHECK, BST_CHECKED, 0);
    click(control("chkPreview"));
    for (const wchar_t* answer : {L"Cancel", L"&Write this order"}) {
        // QuickBooks shows the invoice as it stands before Sort is pressed.
        ASSERT_TRUE(WaitUntil(
            [&] {
                return FakeQbProgram::ShownItems(rig.quickBooks()->TrnsWindow(rig.windowTitle())) ==
                       rig.Items();
            },
            30000));
        click(control("cmdGo"));
        HWND preview = nullptr;
        const bool shown = WaitUntil(
            [&] { return (preview = FindWindowW(L"PelmarkAuxForm", L"Pelmark - Preview")); },
            120000);
        if (!shown) TakeScreenshot("gui-preview-missing");
        ASSERT_TRUE(shown);
        HWND list = FindWindowExW(preview, nullptr, WC_LISTVIEWW, nullptr);
        EXPECT_EQ(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0),
                  static_cast<LRESULT>(rig.itemsBefore().size()));
        if (answer[0] == L'C') TakeScreenshot("gui-preview");
        click(FindWindowExW(preview, nullptr, L"Button", answer));
        ASSERT_TRUE(WaitUntil(idle, 120000));
        const std::vector<std::string> items = rig.Items();
        EXPECT_EQ(items == rig.itemsBefore(), answer[0] == L'C');
        EXPECT_TRUE(std::is_sorted(items.begin(), items.end()) || answer[0] == L'C');
        EXPECT_EQ(rig.LineTuples(), rig.tuplesBefore());
    }

    // The Batch page.
    click(control("cmdExpand"));
    ASSERT_TRUE(WaitUntil([&] { return IsWindowVisible(control("SSTab1")) != FALSE; }, 10000));
    SetForegroundWindow(main);
    // The fourth tab, as the arrow keys reach it (the strip tells the window of each change).
    for (int tab = 0; tab < 3; ++tab) PostMessageW(control("SSTab1"), WM_KEYDOWN, VK_RIGHT, 0);
    WaitUntil([&] { return IsWindowVisible(control("grdBatch")) != FALSE; }, 5000);
    ASSERT_TRUE(IsWindowVisible(control("grdBatch")));
    auto message = [&] {
        wchar_t text[200] = {};
        int n = static_cast<int>(SendMessageW(control("lblBatchMessage"), WM_GETTEXT, 200,
                                              reinterpret_cast<LPARAM>(text)));
        return Utf8FromWide(text, static_cast<std::size_t>(n));
    };
    SetWindowTextW(control("txtBatchFrom"), L"2024-03-01");
    SetWindowTextW(control("txtBatchTo"), L"2024-03-31");
    click(control("cmdBatchStart"));
    std::string asked;  // a message box the batch showed, answered OK
    EXPECT_TRUE(WaitUntil(
        [&] {
            HWND box = FindWindowW(L"#32770", nullptr);
            if (box != nullptr && IsWindowVisible(box)) {
                wchar_t text[400] = {};
                int n = GetWindowTextW(GetDlgItem(box, 0xFFFF), text, 400);
                if (n == 0)
                    n = static_cast<int>(SendMessageW(GetDlgItem(box, 0xFFFF), WM_GETTEXT, 400,
                                                      reinterpret_cast<LPARAM>(text)));
                asked += Utf8FromWide(text, static_cast<std::size_t>(n)) + "|";
                PostMessageW(box, WM_COMMAND, IDOK, 0);
                Sleep(500);
            }
            return message().rfind("4 of 4 transactions done", 0) == 0;
        },
        180000))
        << message() << " asked: " << asked;
    EXPECT_EQ(SendMessageW(control("grdBatch"), LVM_GETITEMCOUNT, 0, 0), 4);
    // What a failed transaction told the user, kept in the log of the run for whoever looks.
    if (!asked.empty()) std::printf("the batch asked: %s\n", asked.c_str());
    // Under Xvfb no window manager raises Pelmark above QuickBooks for the picture.
    SetWindowPos(main, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    Sleep(500);
    TakeScreenshot("gui-batch");
    PostMessageW(main, WM_CLOSE, 0, 0);
    EXPECT_TRUE(gui.Ended(10000));
}

}  // namespace
}  // namespace pelmark::test
