// pelmark.exe: the program's start-up, its splash and agreement, and the main window.
#include <windows.h>

#include <commctrl.h>  // after windows.h, whose types it uses

#include <memory>
#include <string>

#include "app/context.h"
#include "app/logs.h"
#include "app/prompts.h"
#include "app/run.h"
#include "app/version.h"
#include "qb/transport.h"
#include "screen/desktop.h"
#include "ui/auxForms.h"
#include "ui/frmMain.h"

namespace {

using namespace pelmark;

int Run(App& app) {
    std::string exe = RunningProgramPath();
    size_t cut = exe.find_last_of("\\/");
    HouseKeeperOptions options;
    options.programFolder = cut == std::string::npos ? std::string() : exe.substr(0, cut + 1);
    options.exeName = cut == std::string::npos ? exe : exe.substr(cut + 1);
    // On Vista and later the settings of an old installation in Program Files move to the
    // shared data folder, where a normal user may write.
    options.copyOldFiles = true;
    Main(app, options);

    ui::ShowSplash(app);
    void* form = ui::CreateMainWindow(app);
    if (form == nullptr) {
        ui::CloseSplash(app);
        CloseWMsg(app, std::string(kProductName) + " cannot create its main window");
    }
    ui::LoadOtherForms(app, form);
    LoadMainForm(app);
    ui::CloseSplash(app);
    ui::ShowMainWindow(app, form);
    if (!app.frmMain.Checked("chkEUAAccepted")) {
        if (!ui::ShowAgreement(app, form)) CloseEnd(app, 0);
        ui::RefreshMainWindow(app, form);
    }
    return ui::RunMainWindow(app, form);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    INITCOMMONCONTROLSEX controls = {};
    controls.dwSize = sizeof controls;
    controls.dwICC = ICC_STANDARD_CLASSES | ICC_WIN95_CLASSES | ICC_TAB_CLASSES | ICC_UPDOWN_CLASS |
                     ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES;
    InitCommonControlsEx(&controls);

    std::unique_ptr<Prompter> prompter = MakeMessageBoxPrompter();
    std::unique_ptr<qb::QbTransport> transport = qb::MakeComTransport();
    std::unique_ptr<screen::Desktop> desktop = screen::MakeWin32Desktop();
    Seams seams{prompter.get(),  &ui::MainWindowEventPump(), &RealClock(),    &RealEnvironment(),
                &RealRegistry(), &RealFileSystem(),          transport.get(), desktop.get()};
    seams.launcher = &RealLauncher();
    App app(seams);
    try {
        return Run(app);
    } catch (const ProgramEnd& end) {
        return end.code;
    }
}
