// Which QuickBooks and company the program's lists come from, checked at the start of every run:
// QuickBooks may have been started after the program, or another company opened meanwhile.
#include <string>

#include "app/context.h"
#include "app/fieldLists.h"
#include "app/logs.h"
#include "app/run.h"
#include "qb/qbCommon.h"
#include "screen/WindowsStuff.h"
#include "ui/frmMain.h"

namespace pelmark {
namespace {

std::vector<std::string> CustomFieldNames(const App& app) {
    std::vector<std::string> names;
    for (const qb::DataExtDef& def : app.qb.dataExtDefs) names.push_back(def.name);
    return names;
}

// The QuickBooks on the screen: company, edition and year of its main window; "" when none.
std::string ScreenIdentity(App& app, std::string* title = nullptr) {
    screen::Hwnd main = screen::FindQbMainWindow(app);
    if (main == 0) return {};
    const std::string text = app.sys.desktop->WindowText(main, 255);
    if (title) *title = text;
    screen::QbTitle t = screen::ParseQbTitle(text);
    return t.company.value_or("") + "|" + t.edition + "|" + t.year;
}

}  // namespace

bool LoadQuickBooks(App& app) {
    RunState& run = app.run;
    // The screen is identified afresh: the window key and year of another company or version
    // would send the keys to the wrong window.
    app.screen.qbFoundFlag = false;
    app.screen.qbWindowKey.clear();
    app.screen.qbAppTitle.clear();
    app.screen.qbMainWnd = 0;
    const bool opened = qb::QBInit(app);
    FillCustomFieldLists(app, CustomFieldNames(app), opened);
    run.loadedScreen = opened && app.sys.desktop ? ScreenIdentity(app) : "";
    run.loadedFile = opened ? app.qb.companyFileName : "";
    run.listsLoaded = opened;
    return opened;
}

bool RedetectQuickBooks(App& app) {
    RunState& run = app.run;
    std::string title;
    const std::string seen = ScreenIdentity(app, &title);
    // No QuickBooks on the screen: the screen read says so in its own words.
    if (seen.empty()) return true;
    if (run.listsLoaded && seen == run.loadedScreen) {
        if (app.qb.sessionOpen) return true;
        // The session ended since the last run (QuickBooks closed a company, or failed a
        // request): the file it opens now may be another one of the same name.
        if (!qb::QBOpen(app)) return false;
        if (app.qb.companyFileName == run.loadedFile) return true;
    }
    ShowStatus(app, std::string(run.listsLoaded ? "QuickBooks or its company changed"
                                                : "QuickBooks found") +
                        ": " + title + "; loading templates, items and custom fields");
    qb::QBClose(app);
    if (!LoadQuickBooks(app)) return false;
    ShowStatus(app, "Loaded templates, items and custom fields of " + title);
    return true;
}

}  // namespace pelmark
