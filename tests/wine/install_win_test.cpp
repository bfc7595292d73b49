// Pelmark as the setup program installed it: started from its Start-menu entry, it sorts the
// invoice open in the fake QuickBooks, and a second setup run while it runs changes nothing.
// tests/install/install-test.sh installs into a fresh Wine prefix and runs this test there with
// PELMARK_SETUP (the setup program); the script checks from the debug log which program ran.
#include <gtest/gtest.h>
#include <shlobj.h>
#include <windows.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ui/frmMain.h"
#include "wine/program_win.h"
#include "wine/screenshot_win.h"
#include "wine/sortRig_win.h"

namespace pelmark::test {
namespace {

TEST(InstalledProgramTest, StartMenuEntrySortsAndASecondSetupWaitsForTheProgram) {
    const char* setup = std::getenv("PELMARK_SETUP");
    ASSERT_NE(setup, nullptr) << "run by tests/install/install-test.sh on an installed Pelmark";
    DesktopSortRig rig({"invoice", "3001"});
    ASSERT_NE(rig.quickBooks()->main(), nullptr);

    PWSTR programs = nullptr;
    ASSERT_EQ(SHGetKnownFolderPath(FOLDERID_CommonPrograms, 0, nullptr, &programs), S_OK);
    const std::wstring shortcut = std::wstring(programs) + L"\\Pelmark.lnk";
    CoTaskMemFree(programs);
    ASSERT_GT(reinterpret_cast<INT_PTR>(
                  ShellExecuteW(nullptr, nullptr, shortcut.c_str(), nullptr, nullptr, SW_SHOW)),
              32);
    HWND main = nullptr;
    ASSERT_TRUE(WaitUntil(
        [&] { return (main = FindWindowW(L"PelmarkMainForm", nullptr)) && IsWindowVisible(main); },
        60000));
    TakeScreenshot("install-started");

    // Sort, as a click on it does; a question on the way leaves it disabled and fails the test.
    const int go = ui::MainControlId(ui::MakeMainFormModel(), "cmdGo", -1);
    HWND goButton = GetDlgItem(main, go);
    PostMessageW(main, WM_COMMAND, MAKEWPARAM(go, BN_CLICKED), reinterpret_cast<LPARAM>(goButton));
    WaitUntil([&] { return !IsWindowEnabled(goButton); }, 5000);
    EXPECT_TRUE(WaitUntil([&] { return IsWindowEnabled(goButton) != FALSE; }, 120000));
    const std::vector<std::string> items = rig.Items();
    EXPECT_TRUE(std::is_sorted(items.begin(), items.end(), [](const auto& a, const auto& b) {
        return _stricmp(a.c_str(), b.c_str()) < 0;
    }));
    EXPECT_NE(items, rig.itemsBefore());
    EXPECT_EQ(rig.LineTuples(), rig.tuplesBefore());
    EXPECT_TRUE(rig.Displayed());
    TakeScreenshot("install-sorted");

    // Windows cannot replace a running program: a silent setup stops (exit code 3).
    // (NSIS reads /S only unquoted, which TestProgram's quoting does not give.)
    const std::wstring setupPath = WindowsPath(setup);
    SHELLEXECUTEINFOW again = {};
    again.cbSize = sizeof again;
    again.fMask = SEE_MASK_NOCLOSEPROCESS;
    again.lpFile = setupPath.c_str();
    again.lpParameters = L"/S";
    ASSERT_TRUE(ShellExecuteExW(&again));
    DWORD code = 0;
    EXPECT_EQ(WaitForSingleObject(again.hProcess, 60000), static_cast<DWORD>(WAIT_OBJECT_0));
    GetExitCodeProcess(again.hProcess, &code);
    CloseHandle(again.hProcess);
    EXPECT_EQ(code, 3u);
    EXPECT_TRUE(IsWindow(main));
    PostMessageW(main, WM_CLOSE, 0, 0);
    EXPECT_TRUE(WaitUntil([&] { return !IsWindow(main); }, 15000));
}

}  // namespace
}  // namespace pelmark::test
