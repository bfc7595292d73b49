// Start-up of the program and the sort run: the application core's spine.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/folders.h"

namespace pelmark {

struct App;

// Start-up before the main form shows: version, folders, settings file name, item list, and
// the first debug line. The caller then shows the main form (or runs the command line).
void Main(App& app, const HouseKeeperOptions& options);

// The run-wide state of the Go command.
struct RunState {
    bool stopRequested = false;
    bool running = false;
    int runCounter = 0;
    int saveRounds = 0;
    int openCount = 0;
    std::string trnsNo;
    long trnsNoValue = 0;
    std::string customer;
    std::string lastError;
    std::string status;  // the status label's text
    // Requests sent to QuickBooks during the current run (each request set is one round trip).
    int roundTrips = 0;
    // What the check after the modify found wrong; empty when the transaction came back whole.
    std::vector<std::string> checkProblems;
    bool succeeded = false;  // the last run went through to the display request
    // Where the templates, items and custom-field definitions were loaded from: QuickBooks' main
    // window (company, edition, year) and the company file. Unset when nothing was loaded.
    bool listsLoaded = false;
    std::string loadedScreen, loadedFile;
    std::string journalPath;  // the journal of the last sort
};

// Receives every status text as it is shown: the main window repaints its label and message
// list, the command line prints it.
using StatusHook = std::function<void(const std::string&)>;

// Shows `text` in the status label, adds it to the message list (lstMsgs) and passes it on to
// App::statusHook.
void ShowStatus(App& app, const std::string& text);

struct UndoOptions {
    std::string journal;  // the journal to undo; "" the newest sort's
};
// Undo last sort: writes the journaled transaction back (every line, field and custom-field
// value, in its journaled order) by the sort's own write-back and check, and shows it again.
// Refuses a damaged journal, one of another company file, and, unless the user confirms, a
// transaction changed in QuickBooks since the sort. True when the transaction is as journaled.
bool CmdUndo(App& app, const UndoOptions& options = {});

// The main form's load, after Main: "HouseKeeping" ... "Load Complete Exiting ". Reads the
// settings into frmMain, opens QuickBooks with its lists, and fills the sort-field and custom
// field lists. False when a stage failed (reported and logged as "Load err=").
bool LoadMainForm(App& app);

// Opens QuickBooks and loads customers, templates, items and custom-field definitions (also into
// the sort-field lists), and notes which QuickBooks and company file they came from.
bool LoadQuickBooks(App& app);
// At the start of a run: when QuickBooks or its company file is not the one the lists came from
// (or nothing was loaded), loads them again and says so in the status. False when that failed.
bool RedetectQuickBooks(App& app);

// The Go command: one sort run. True when the run went through to the display request.
bool CmdGo(App& app);
// The Stop command: the next Go ends at its stop test with "Stopped (1)".
void CmdStop(App& app);
// The End command: asks "Are you sure you want to exit?"; on Yes the program ends (throws
// ProgramEnd after closing the QuickBooks session).
void CmdEnd(App& app);

// The stages of the run, for the window and tests that drive them one by one.
bool PreProcess(App& app);
bool DoBackGround(App& app, const std::string& customer, const std::string& trnsNo);

}  // namespace pelmark
