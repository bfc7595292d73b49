// Start-up of the program and (later) the sort run: the application core's spine.
#pragma once

#include <string>

#include "app/folders.h"

namespace pelmark {

struct App;

// Start-up before the main form shows: version, folders, settings file name, item list, and
// the first debug line. The caller then shows the main form (or runs the command line).
void Main(App& app, const HouseKeeperOptions& options);

}  // namespace pelmark
