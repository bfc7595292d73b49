// The application object: module state on the seams it was given.
#include "app/context.h"

#include "ui/frmMain.h"

namespace pelmark {

App::App(const Seams& seams) : sys(seams), frmMain(ui::MakeMainFormModel()) {}

}  // namespace pelmark
