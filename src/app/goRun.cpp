// The sort run: the Go, Stop and End commands, PreProcess and DoBackGround.
#include "app/context.h"
#include "app/logs.h"
#include "app/run.h"

namespace pelmark {

void ShowStatus(App& app, const std::string& text) {
    app.run.status = text;
    if (ui::Control* label = app.frmMain.Find("lblStatus")) label->caption = text;
    if (ui::Control* list = app.frmMain.Find("lstMsgs")) {
        list->list.push_back(text);
        list->selected.push_back(false);
    }
    DebugLog(app, text, 3);
    if (app.statusHook) app.statusHook(text);
}

// Stand-in until the form load is merged: the settings stage only.
bool LoadMainForm(App& app) {
    ShowStatus(app, "Getting Ini and Map files");
    ReadIni(app, app.frmMain);
    ShowStatus(app, "Load Complete Exiting ");
    return true;
}
bool CmdGo(App&) { return false; }
void CmdStop(App& app) {
    app.run.stopRequested = true;
    ShowStatus(app, "Stopping");
}
void CmdEnd(App&) {}
bool PreProcess(App&) { return false; }
bool DoBackGround(App&, const std::string&, const std::string&) { return false; }

}  // namespace pelmark
