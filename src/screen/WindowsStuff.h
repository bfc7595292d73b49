// QuickBooks screen discovery and keyboard automation (the WindowsStuff module).
#pragma once

#include "screen/desktop.h"

namespace pelmark::screen {

// Module state of the screen discovery: one per application.
struct ScreenState {};

}  // namespace pelmark::screen
