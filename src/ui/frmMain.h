// The main form: its full control set as a form model (the Win32 window binds to it).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/batch.h"
#include "ui/form.h"

namespace pelmark {
struct App;
class EventPump;
}  // namespace pelmark

namespace pelmark::ui {

inline constexpr int kSortLevels = 5;

// Every control of the main form with its caption, tip, array index, option group and default.
Form MakeMainFormModel();

// The sort-field vocabulary of every level list, empty entry first; custom field names follow.
std::vector<std::string> SortFieldVocabulary(const std::vector<std::string>& customFields);

// The Win32 control id of a main-form control: its place in the model from kFirstControlId, so
// the window and the tests that drive it agree without a table. 0 when there is no such control.
inline constexpr int kFirstControlId = 1000;
int MainControlId(const Form& form, const std::string& name, int index = -1);

// The numeric fields' validate events (txtBlankLines, txtDebugLevel, txtLinesMax): the message
// to show, or nothing when the text is accepted or the field has no check.
std::optional<std::string> CheckMainField(const std::string& name, const std::string& text);
bool HasFieldCheck(const std::string& name);

// The small form's position as cmdSave keeps it in lblScreenLeft / lblScreenTop.
struct FormPlacement {
    bool small = true;  // cmdExpand reads "Expand"
    int left = 0, top = 0;
    int screenWidth = 0, screenHeight = 0;  // the area a saved position must lie in
};
// cmdSave: keeps the small form's position (a coordinate off the screen as "0"), saves the
// settings file and shows "Settings Saved".
void CmdSave(App& app, const FormPlacement& placement);

// chkAlwaysOnTop: keeps the main window above other windows, or lets it go back among them.
void DoAlwaysOnTop(App& app, std::uintptr_t form, int left, int top, int width, int height);

// The Batch page's choices as the batch's options: "" when they can run, else the message for
// the page (a kind, date or date range the batch cannot take).
std::string BatchPageOptions(const Form& form, BatchOptions& options);
// cmdBatchStart: the batch over the Batch page's choices, each transaction's result passed on to
// `progress` (false stops it before the next one). The closing message goes into
// lblBatchMessage and is returned; a refused choice changes nothing.
std::string CmdBatch(App& app, const BatchProgress& progress);

#ifdef _WIN32
// ---- The Win32 main window (frmMain_win.cpp) ------------------------------------------------

// The window class the main window is registered under; tests find the window by it.
inline constexpr const char* kMainWindowClass = "PelmarkMainForm";
// Creates the main window hidden and routes the status texts to it; nullptr when it cannot.
void* CreateMainWindow(App& app);
// Puts the model into the controls, lays out the small form at the saved position, applies
// always-on-top and shows the window.
void ShowMainWindow(App& app, void* window);
// Pushes the model into the controls again (after a form changed it).
void RefreshMainWindow(App& app, void* window);
// Runs the messages until the main window is gone; the program's exit code.
int RunMainWindow(App& app, void* window);
// The EventPump of the GUI: lets pending messages run, and ends a run when End was answered
// Yes while it ran.
pelmark::EventPump& MainWindowEventPump();
#endif

}  // namespace pelmark::ui
