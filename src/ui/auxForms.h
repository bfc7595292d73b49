// The auxiliary forms: splash, agreement, read-me, internal and about. The portable part builds
// their texts and decides their rules; the Win32 part (auxForms_win.cpp) shows them.
#pragma once

#include <string>
#include <vector>

namespace pelmark {
struct App;
}

namespace pelmark::ui {

// An owner window, passed as an opaque pointer so that this header needs no <windows.h>.
using WindowHandle = void*;

// Module state of the auxiliary forms.
struct AuxState {
    bool readMeAccepted = false;
    bool internalClosed = false;
    WindowHandle splash = nullptr;
};

// ---- Windows only (auxForms_win.cpp) -----------------------------------------------------

// frmSplash: shown while start-up runs, closed by CloseSplash.
void ShowSplash(App& app);
void CloseSplash(App& app);
// frmEUA, modal. True when the agreement is (or already was) accepted; false when the user
// declined, after which the program ends.
bool ShowAgreement(App& app, WindowHandle owner);
// frmReadMe, frmInternal and frmAbout, modal.
void ShowReadMe(App& app, WindowHandle owner);
void ShowInternal(App& app, WindowHandle owner);
void ShowAbout(App& app, WindowHandle owner);
// The auxiliary forms start-up needs (the main form's "Loading other forms" stage).
void LoadOtherForms(App& app, WindowHandle owner);

}  // namespace pelmark::ui
