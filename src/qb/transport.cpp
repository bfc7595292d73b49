// Plain words for the SDK request processor's failures.
#include <cstdio>
#include <string>

#include "qb/transport.h"

namespace pelmark::qb {

namespace {

struct Known {
    uint32_t hresult;
    const char* words;
};

// The request processor's own codes and the COM codes a user meets when connecting.
const Known kKnown[] = {
    {0x80040400, "QuickBooks found an error when parsing the provided XML text stream."},
    {0x80040401, "Could not access QuickBooks."},
    {0x80040402, "Unexpected error: the connection to QuickBooks failed."},
    {0x80040408,
     "Could not start QuickBooks. This often happens when QuickBooks and Pelmark do not both run "
     "as administrator, or both not."},
    {0x8004040A,
     "The company file could not be opened: it is not a QuickBooks company file or "
     "it is damaged."},
    {0x80040410,
     "The company file is already open in another mode (single-user or "
     "multi-user)."},
    // While QuickBooks shows a modal dialog (after Save & Close: "Recording Transaction", a
    // spelling check, a closing-date password) every SDK call fails with this code; Intuit's
    // SDK error list words it "a modal dialog box is showing in the QuickBooks user interface".
    {0x80040414,
     "A dialog box is open in QuickBooks. Close it (answer it) in QuickBooks, then try again."},
    {0x80040416, "QuickBooks is not running, and no company file was named to open."},
    {0x80040417, "A company file is already open in QuickBooks and it is a different one."},
    {0x80040418,
     "Pelmark has not been authorised to use this company file. Open the company in QuickBooks "
     "as its administrator and allow Pelmark in the dialog QuickBooks shows."},
    {0x8004041A, "This application has not been allowed to read data from this company file."},
    {0x8004041D, "Pelmark is not allowed to log in to QuickBooks automatically."},
    {0x80040420, "The QuickBooks user denied Pelmark access to the company file."},
    {0x80040422, "The company file is open in single-user mode on another computer."},
    {0x80040424, "QuickBooks did not finish its start-up. Try again when QuickBooks is ready."},
    {0x80040154,
     "The QuickBooks SDK request processor is not registered for this kind of program (class "
     "not registered). QuickBooks 2022 and later are 64-bit programs: use the Pelmark build that "
     "matches."},
    {0x800401F3,
     "QuickBooks (its SDK request processor QBXMLRP2.RequestProcessor) is not installed on this "
     "computer."},
    {0x80070005, "Access denied: Windows would not let Pelmark talk to QuickBooks."},
    {0x800706BA, "QuickBooks is not running, or it closed while Pelmark was talking to it."},
    {0x800706BE, "QuickBooks stopped while Pelmark was talking to it."},
};

}  // namespace

std::string DescribeHresult(const std::string& call, uint32_t hresult,
                            const std::string& systemText) {
    const char* words = nullptr;
    for (const Known& k : kKnown)
        if (k.hresult == hresult) words = k.words;
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hresult));
    std::string text = call + " failed: ";
    text += words ? words : "the QuickBooks SDK reported an error.";
    text += " (HRESULT " + std::string(code) + ")";
    if (!systemText.empty()) text += " " + systemText;
    return text;
}

}  // namespace pelmark::qb
