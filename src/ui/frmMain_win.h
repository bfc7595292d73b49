// The Win32 main window's state, shared by its message handling (frmMain_win.cpp) and the
// creation and layout of its controls (frmMainLayout_win.cpp).
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "ui/form.h"

namespace pelmark {
struct App;
}

namespace pelmark::ui {

// The windows standing for one control of the model.
struct BoundControl {
    HWND wnd = nullptr;      // the control itself
    HWND caption = nullptr;  // the label in front of a text box, combo box or value label
    int page = -1;           // the settings page it stands on; -1: the commands and the status
    RECT box{};              // where the layout put it, in client pixels
};

struct MainWindow {
    explicit MainWindow(App& a) : app(a) {}

    App& app;
    HWND wnd = nullptr;
    HWND tabs = nullptr;  // SSTab1
    HWND tips = nullptr;
    HFONT font = nullptr;
    UINT dpi = 96;
    bool expanded = false;
    bool running = false;           // a sort run or a batch is on the stack
    bool batchStop = false;         // Stop on the Batch page: no transaction after this one
    bool pushing = false;           // the model is going into the controls: no pulls meanwhile
    bool validating = false;        // a field's message box is up
    std::optional<int> pendingEnd;  // End was answered Yes while a run was on the stack
    int exitCode = 0;
    std::vector<BoundControl> bound;  // by the control's place in the model
    SIZE smallSize{}, expandedSize{};

    int Px(int dip) const { return MulDiv(dip, static_cast<int>(dpi), 96); }
    Control& Model(size_t i);
    size_t IndexOf(const std::string& name, int index = -1) const;
};

// frmMainLayout_win.cpp
void CreateControls(MainWindow& w);
// Places every control for the state (small or expanded) and the DPI, and sets the window
// sizes of both states.
void LayoutControls(MainWindow& w);
// Shows the controls of the state and of the selected settings page, hides the others.
void ShowPage(MainWindow& w);
// Makes the font for the window's DPI and gives it to every control.
void ApplyFont(MainWindow& w);
// The DPI of the monitor the window is on.
UINT WindowDpi(HWND wnd);

}  // namespace pelmark::ui
