// What the libFuzzer targets share: the input as text, and a TestApp that writes no debug log
// (a log line per input would make the disk, not the reader, the thing being measured).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "app/logs.h"
#include "fakes/fakes.h"
#include "ui/form.h"

namespace pelmark::fuzz {

inline std::string Text(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

struct QuietApp : test::TestApp {
    QuietApp() {
        if (auto* level = app.frmMain.Find("txtDebugLevel")) level->text = "0";
    }
};

// Runs one reading as the program does: a ProgramEnd is the program's way of stopping on input it
// refuses (after telling the user), which its entry points catch; anything else escapes.
template <typename F>
void AsTheProgramDoes(F&& read) {
    try {
        read();
    } catch (const ProgramEnd&) {
    }
}

}  // namespace pelmark::fuzz
