// The settings file as the program opens it: read into the main form, saved, and read again.
#include "app/settings.h"
#include "fuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    pelmark::fuzz::QuietApp t;
    t.dir.Write("Pelmark.ini", pelmark::fuzz::Text(data, size));
    pelmark::fuzz::AsTheProgramDoes([&] {
        pelmark::ReadIni(t.app, t.app.frmMain);
        pelmark::SaveSettings(t.app, {&t.app.frmMain});
        pelmark::ReadIni(t.app, t.app.frmMain);
    });
    return 0;
}
