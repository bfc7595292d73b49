// The Like comparison of window titles and classes. Input: text, a newline, then the pattern.
// Besides not crashing, every text must match its own escaped pattern and "*".
#include "fuzzInput.h"
#include "screen/WindowsStuff.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using pelmark::screen::Like;
    const std::string input = pelmark::fuzz::Text(data, size);
    const std::size_t cut = input.find('\n');
    const std::string text = input.substr(0, cut);
    const std::string pattern = cut == std::string::npos ? "" : input.substr(cut + 1);
    (void)Like(text, pattern);
    if (!Like(text, pelmark::screen::LikeEscape(text)) || !Like(text, "*")) __builtin_trap();
    return 0;
}
