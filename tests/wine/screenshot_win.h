// Screenshots from the Windows tests: asks the xwd watcher of the test script for one.
#pragma once

#include <string>

namespace pelmark::test {

// The artefact folder as a Windows path (Wine maps the Unix root to drive Z:).
std::string ArtifactDir();
// Takes a screenshot of the whole X display as ArtifactDir() + name + ".png"; false when no
// watcher answered within the time given (the tests were not started by the test script).
bool TakeScreenshot(const std::string& name, int timeoutMs = 15000);

}  // namespace pelmark::test
