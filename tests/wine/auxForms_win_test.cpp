// The auxiliary forms as real windows: shown in this process, driven with mouse clicks and keys
// from another thread while they run modally, photographed, and checked for what they did.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "app/version.h"
#include "app/wideText.h"
#include "fakes/fakes.h"
#include "screen/desktop.h"
#include "ui/auxForms.h"
#include "wine/gui_win.h"
#include "wine/screenshot_win.h"

namespace pelmark::ui {
namespace {

using test::RecordingLauncher;
using test::TestApp;

constexpr wchar_t kFormClass[] = L"PelmarkAuxForm";

bool WaitFor(const std::function<bool()>& done, int ms = 10000) {
    return test::WaitUntil(done, ms);
}

HWND WaitForForm(const std::string& caption) {
    HWND form = nullptr;
    WaitFor([&] {
        form = FindWindowW(kFormClass, WideFromUtf8(caption).c_str());
        return form && IsWindowVisible(form);
    });
    return form && IsWindowVisible(form) ? form : nullptr;
}

HWND Child(HWND form, const std::string& text) {
    return form ? FindWindowExW(form, nullptr, nullptr, WideFromUtf8(text).c_str()) : nullptr;
}

// Drives a modal form from another thread; if the script could not end the form, the escape
// button is pressed so that the test fails instead of hanging.
class Driver {
  public:
    Driver(std::string caption, std::string escape, std::function<void(HWND)> script)
        : thread_([this, caption, escape, script] {
              HWND form = WaitForForm(caption);
              found = form != nullptr;
              if (form) script(form);
              if (form && !WaitFor([&] { return !IsWindowVisible(form); }, 5000)) {
                  ended = false;
                  PostMessageW(Child(form, escape), BM_CLICK, 0, 0);
              }
          }) {}
    ~Driver() {
        if (thread_.joinable()) thread_.join();
    }
    void Join() { thread_.join(); }
    std::atomic<bool> found{false};
    std::atomic<bool> ended{true};

  private:
    std::thread thread_;
};

// A top-level window to own the modal forms, as the main window does. It is smaller than the
// forms: under Wine on Xvfb a window lying wholly inside another top-level window shows black
// in the screenshots.
struct OwnerWindow {
    OwnerWindow() {
        WNDCLASSW wc = {};
        wc.lpfnWndProc = DefWindowProcW;
        wc.hInstance = GetModuleHandleW(nullptr);
        wc.hbrBackground = GetSysColorBrush(COLOR_APPWORKSPACE);
        wc.lpszClassName = L"PelmarkTestOwner";
        RegisterClassW(&wc);
        wnd = CreateWindowExW(0, wc.lpszClassName, L"Owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 440,
                              400, 400, 220, nullptr, nullptr, wc.hInstance, nullptr);
    }
    ~OwnerWindow() { DestroyWindow(wnd); }
    HWND wnd;
};

TEST(AuxFormsWinTest, SplashShowsItsTextsAndItsFrameOpensTheProductPage) {
    TestApp t;
    t.app.folders.productName = "Windows 7 Professional";
    ShowSplash(t.app);
    HWND splash = static_cast<HWND>(t.app.aux.splash);
    ASSERT_TRUE(splash && IsWindowVisible(splash));
    EXPECT_NE(Child(splash, "Pelmark Bld" + std::to_string(kVersionRevision)), nullptr);
    EXPECT_NE(Child(splash, "Windows 2003, XP, VISTA, 2008, Windows 7"), nullptr);
    EXPECT_NE(Child(splash, t.dir.path()), nullptr);
    test::TakeScreenshot("aux-splash");

    // The labels let a click through to the frame under them.
    test::Click(Child(splash, "Corvalt"));
    ASSERT_TRUE(WaitFor([&] { return t.launcher.calls == 1; }));
    EXPECT_EQ(t.launcher.started[0], (RecordingLauncher::Started{kProductPageUrl, ""}));

    CloseSplash(t.app);
    EXPECT_FALSE(IsWindow(splash));
    EXPECT_EQ(t.app.aux.splash, nullptr);
}

TEST(AuxFormsWinTest, AgreementOnTopAcceptedOrDeclined) {
    const std::string file = "PELMARK END-USER AGREEMENT\n\n1. Licence\r\n2. Caf\xC3\xA9 & Co\n";
    const std::string shown =
        "PELMARK END-USER AGREEMENT\r\n\r\n1. Licence\r\n2. Caf\xC3\xA9 & Co\r\n";
    std::unique_ptr<screen::Desktop> desktop = screen::MakeWin32Desktop();
    for (bool accept : {true, false}) {
        SCOPED_TRACE(accept ? "accept" : "decline");
        TestApp t;
        t.app.sys.desktop = desktop.get();
        t.dir.Write("EUA_Pelmark.txt", file);
        std::atomic<bool> topMost{false};
        std::string text;
        Driver driver("Pelmark - End-User Agreement", "I &Decline", [&](HWND form) {
            topMost = (GetWindowLongW(form, GWL_EXSTYLE) & WS_EX_TOPMOST) != 0;
            text = test::TextOf(FindWindowExW(form, nullptr, L"Edit", nullptr));
            if (accept) test::TakeScreenshot("aux-agreement");
            test::Click(Child(form, accept ? "I &Accept" : "I &Decline"));
        });
        bool result = ShowAgreement(t.app, nullptr);
        driver.Join();
        EXPECT_TRUE(driver.found && driver.ended);
        EXPECT_TRUE(topMost);
        EXPECT_EQ(text, shown);
        EXPECT_EQ(result, accept);
        EXPECT_EQ(t.app.frmMain.Checked("chkEUAAccepted"), accept);
        EXPECT_EQ(t.dir.Read("Pelmark.ini").find("chkEUAAccepted=1") != std::string::npos, accept);
    }

    // No agreement file, or one accepted before: no form, and the program goes on.
    TestApp t;
    EXPECT_TRUE(ShowAgreement(t.app, nullptr));
    EXPECT_FALSE(t.app.frmMain.Checked("chkEUAAccepted"));
    t.dir.Write("EUA_Pelmark.txt", file);
    t.app.frmMain.Find("chkEUAAccepted")->value = 1;
    EXPECT_TRUE(ShowAgreement(t.app, nullptr));
    EXPECT_EQ(FindWindowW(kFormClass, nullptr), nullptr);
}

TEST(AuxFormsWinTest, AboutShowsFoldersAndSizesAndStartsWhatIsClicked) {
    TestApp t;
    Folders& f = t.app.folders;
    f.product = "C:\\Program Files\\Corvalt\\Pelmark\\";  // not the data folder: a warning
    t.app.qb.companyFileName = t.dir.File("Rock Castle.QBW");
    t.app.qb.hostProductName = "QuickBooks Pro 2014";
    t.dir.Write("Rock Castle.QBW", std::string(5000, 'x'));
    t.dir.Write("Rock Castle.TLG", std::string(2048, 'x'));
    RegWriteValue(t.registry, RegRoot::LocalMachine, "SOFTWARE\\Microsoft\\Shared Tools\\MSINFO",
                  "PATH", kRegSz, "C:\\Program Files\\Common Files\\MSINFO\\MSINFO32.EXE");
    const std::string working = f.data + " WARNING. This is not the normal folder";

    std::string sizes;
    Driver driver("About Pelmark", "OK", [&](HWND form) {
        sizes = test::TextOf(Child(form, "QBW Size 5K")) + "|" +
                test::TextOf(Child(form, "TLG Size 2K"));
        test::TakeScreenshot("aux-about");
        int n = 0;
        for (const std::string& text : {f.program, working, std::string("&System Info..."),
                                        std::string("Help && &Support...")}) {
            test::Click(Child(form, text));
            if (!WaitFor([&] { return t.launcher.calls == n + 1; }, 5000)) break;
            ++n;
        }
        test::Click(Child(form, "OK"));
    });
    ShowAbout(t.app, nullptr);
    driver.Join();
    EXPECT_TRUE(driver.found && driver.ended);
    EXPECT_EQ(sizes, "QBW Size 5K|TLG Size 2K");
    const std::vector<RecordingLauncher::Started> want = {
        {"Explorer.exe", "/e, \"" + f.program + "\""},
        {"Explorer.exe", "/e, \"" + f.data + "\""},
        {"C:\\Program Files\\Common Files\\MSINFO\\MSINFO32.EXE", ""},
        {std::string(kSupportPageUrl) + "?prod=Pelmark&ver=" + VersionText() +
             "&extra=QuickBooks%20Pro%202014",
         ""},
    };
    EXPECT_EQ(t.launcher.started, want);
    EXPECT_TRUE(t.prompter.shown.empty());
}

// Pending events that end the program once armed, as End pressed during a long step does.
class EndingEventPump : public EventPump {
  public:
    void DoEvents() override {
        if (armed.exchange(false)) throw ProgramEnd{3, true};
    }
    std::atomic<bool> armed{false};
};

TEST(AuxFormsWinTest, ProgramEndInAClickLeavesTheFormAndReachesTheCaller) {
    TestApp t;
    OwnerWindow owner;
    EndingEventPump pump;
    t.app.sys.events = &pump;
    Driver driver("About Pelmark", "OK", [&](HWND form) {
        pump.armed = true;  // the click's first debug line lets events run
        test::Click(Child(form, "&System Info..."));
    });
    try {
        ShowAbout(t.app, owner.wnd);
        ADD_FAILURE() << "the end of the program was lost in the window procedure";
    } catch (const ProgramEnd& end) {
        EXPECT_EQ(end.code, 3);
    }
    driver.Join();
    EXPECT_TRUE(driver.found && driver.ended);
    EXPECT_EQ(FindWindowW(kFormClass, L"About Pelmark"), nullptr);
    EXPECT_TRUE(IsWindowEnabled(owner.wnd));
    EXPECT_TRUE(t.launcher.started.empty());
}

TEST(AuxFormsWinTest, ShellLauncherStartsProgramsAndNamesWhatFailed) {
    Launcher& launcher = RealLauncher();
    EXPECT_TRUE(launcher.Open("cmd.exe", "/c exit 0").ok);
    LaunchResult missing = launcher.Open("Z:\\no\\such\\folder\\program.exe", "/x");
    EXPECT_FALSE(missing.ok);
    EXPECT_TRUE(StartsWith(missing.error,
                           "ShellExecuteW(Z:\\no\\such\\folder\\program.exe /x) failed, code "))
        << missing.error;
}

}  // namespace
}  // namespace pelmark::ui
