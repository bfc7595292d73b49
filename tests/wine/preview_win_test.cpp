// The window's preview and Batch page under Wine, against fakeqb and qbcom: Sort with "Preview
// before writing" shows the new order, Cancel leaves the invoice as it was, "Write this order"
// writes it; the Batch page sorts the month's invoices and lists each result.
#include <gtest/gtest.h>
#include <windows.h>

#include <commctrl.h>  // after windows.h, whose types it uses

#include <cstdio>
#include <string>

#include "app/wideText.h"
#include "ui/frmMain.h"
#include "wine/gui_win.h"
#include "wine/screenshot_win.h"
#include "wine/sortRig_win.h"

namespace pelmark::test {
namespace {

TEST(GuiPreviewTest, PreviewCancelWriteAndABatchFromTheWindow) {
    DesktopSortRig rig({"invoice", "3001"});
    Gui gui(";Ver=1.0.1\r\n[frmMain]\r\ncboSortField(0)=Item Full Name\r\nchkEUAAccepted=1\r\n");
    ASSERT_NE(gui.main, nullptr);
    EXPECT_TRUE(gui.startupBoxes.empty()) << gui.startupBoxes.front();
    const HWND main = gui.main;
    auto control = [&](const char* name) { return gui.Control(name); };
    auto idle = [&] { return IsWindowEnabled(control("cmdGo")) != FALSE; };
    // The weight fields' lists hold the company's custom-field names.
    EXPECT_GT(SendMessageW(control("cboCFNetWeight"), CB_GETCOUNT, 0, 0), 1);

    SendMessageW(control("chkPreview"), BM_SETCHECK, BST_CHECKED, 0);
    PostClick(control("chkPreview"));
    for (const wchar_t* answer : {L"Cancel", L"&Write this order"}) {
        // QuickBooks shows the invoice as it stands before Sort is pressed.
        ASSERT_TRUE(WaitUntil(
            [&] {
                return FakeQbProgram::ShownItems(rig.quickBooks()->TrnsWindow(rig.windowTitle())) ==
                       rig.Items();
            },
            30000));
        PostClick(control("cmdGo"));
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
        PostClick(FindWindowExW(preview, nullptr, L"Button", answer));
        ASSERT_TRUE(WaitUntil(idle, 120000));
        const std::vector<std::string> items = rig.Items();
        EXPECT_EQ(items == rig.itemsBefore(), answer[0] == L'C');
        EXPECT_TRUE(std::is_sorted(items.begin(), items.end()) || answer[0] == L'C');
        EXPECT_EQ(rig.LineTuples(), rig.tuplesBefore());
    }

    // The Batch page.
    PostClick(control("cmdExpand"));
    ASSERT_TRUE(WaitUntil([&] { return IsWindowVisible(control("SSTab1")) != FALSE; }, 10000));
    SetForegroundWindow(main);
    // The fourth tab, as the arrow keys reach it (the strip tells the window of each change).
    for (int tab = 0; tab < 3; ++tab) PostMessageW(control("SSTab1"), WM_KEYDOWN, VK_RIGHT, 0);
    WaitUntil([&] { return IsWindowVisible(control("grdBatch")) != FALSE; }, 5000);
    ASSERT_TRUE(IsWindowVisible(control("grdBatch")));
    auto message = [&] { return TextOf(control("lblBatchMessage")); };
    SetWindowTextW(control("txtBatchFrom"), L"2024-03-01");
    SetWindowTextW(control("txtBatchTo"), L"2024-03-31");
    PostClick(control("cmdBatchStart"));
    std::string asked;  // a message box the batch showed, answered OK
    EXPECT_TRUE(WaitUntil(
        [&] {
            if (Box box = gui.CurrentBox(); box.wnd != nullptr) {
                asked += box.text + "|";
                Gui::Answer(box, IDOK);
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
    EXPECT_TRUE(gui.program().Ended(10000));
}

}  // namespace
}  // namespace pelmark::test
