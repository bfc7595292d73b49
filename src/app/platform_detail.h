// What the portable file system asks of each platform: writing a file, and why it failed.
#pragma once

#include <string>

#include "app/seams.h"

namespace pelmark::detail {

// Creates (or appends to) a file. A file another process holds open without sharing gives
// FileStatus::HeldByOther, so that callers can offer to try again.
FileResult PlatformWriteFile(const std::string& path, const std::string& data, bool append);

}  // namespace pelmark::detail
