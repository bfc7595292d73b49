// The SendKeys notation: "%" Alt, "^" Ctrl, "+" Shift, "{NAME}" named keys ("{TAB}",
// "{HOME}", "{END}", "{DOWN}", "{F4}", "{TAB 3}"), "{(}" and the like for the special
// characters themselves, "~" Enter, and parentheses applying modifiers to a group:
// "(^(+{END}))" is Ctrl+Shift+End.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace pelmark::screen {

// Virtual-key codes as Windows numbers them (so the Win32 side passes them on unchanged).
enum VirtualKey : int {
    kVkBack = 0x08,
    kVkTab = 0x09,
    kVkReturn = 0x0D,
    kVkShift = 0x10,
    kVkControl = 0x11,
    kVkMenu = 0x12,
    kVkPause = 0x13,
    kVkCapital = 0x14,
    kVkEscape = 0x1B,
    kVkSpace = 0x20,
    kVkPrior = 0x21,
    kVkNext = 0x22,
    kVkEnd = 0x23,
    kVkHome = 0x24,
    kVkLeft = 0x25,
    kVkUp = 0x26,
    kVkRight = 0x27,
    kVkDown = 0x28,
    kVkInsert = 0x2D,
    kVkDelete = 0x2E,
    kVkF1 = 0x70  // F1..F16 follow in order
};

// One key press: a named or letter key (vk != 0; letters and digits as their upper-case ASCII
// code, as Windows numbers them), or a literal character typed as text (vk == 0), with the
// modifiers held down while it is pressed.
struct KeyStroke {
    int vk = 0;
    char ch = 0;
    bool shift = false, ctrl = false, alt = false;
    bool operator==(const KeyStroke&) const = default;
};

struct SendKeysParse {
    bool ok = true;
    std::vector<KeyStroke> strokes;
    std::string error;         // what is wrong, in plain words
    std::size_t position = 0;  // where in the text
};

// Parses the notation. A letter after a modifier is its key ("%a" is Alt+A, vk 'A'); a plain
// letter or other character is typed as text.
SendKeysParse ParseSendKeys(std::string_view keys);

}  // namespace pelmark::screen
