// The application: the state of every module and the seams it reaches the platform through.
// Each test makes its own App, so every test starts from fresh state.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/folders.h"
#include "app/items.h"
#include "app/logs.h"
#include "app/run.h"
#include "app/seams.h"
#include "app/settings.h"
#include "qb/qbCommon.h"
#include "screen/WindowsStuff.h"
#include "sort/preview.h"
#include "ui/auxForms.h"
#include "ui/form.h"

namespace pelmark {

struct Seams {
    Prompter* prompter = nullptr;
    EventPump* events = nullptr;
    Clock* clock = nullptr;
    Environment* env = nullptr;
    Registry* registry = nullptr;
    FileSystem* files = nullptr;
    qb::QbTransport* qbTransport = nullptr;  // QuickBooks, or qbsim standing in for it
    screen::Desktop* desktop = nullptr;      // the Windows desktop, or the simulated one
    Launcher* launcher = nullptr;            // programs, folders and web pages started
};

struct App {
    Seams sys;
    CommonM common;
    Folders folders;
    SettingsFile settings;
    ItemTable items;
    ui::Form frmMain;
    ui::AuxState aux;
    qb::QbState qb;
    screen::ScreenState screen;
    RunState run;
    StatusHook statusHook;  // the window or the command line showing the status texts
    // Set when the user looks at the new order before it is written (a dry run, or the
    // window's preview); unset, the sort writes without asking.
    sort::PreviewHook previewHook;
    // Close steps registered by the modules that hold something open (the QuickBooks session);
    // CloseAll runs them in reverse order.
    std::vector<std::function<void()>> closeSteps;

    // An application on these seams, with the main form's full control set.
    explicit App(const Seams& seams);
};

}  // namespace pelmark
