// Stand-ins for the auxiliary forms until their Win32 windows (auxForms_win.cpp) are merged.
#include "app/context.h"
#include "ui/auxForms.h"

namespace pelmark::ui {

void ShowSplash(App&) {}
void CloseSplash(App&) {}
bool ShowAgreement(App&, WindowHandle) {
    return true;
}
void ShowReadMe(App&, WindowHandle) {}
void ShowInternal(App&, WindowHandle) {}
void ShowAbout(App&, WindowHandle) {}
void LoadOtherForms(App&, WindowHandle) {}

}  // namespace pelmark::ui
