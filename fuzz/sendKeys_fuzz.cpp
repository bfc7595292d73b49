// The SendKeys notation of the keys the sort types into QuickBooks' windows.
#include "fuzzInput.h"
#include "screen/sendKeys.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string keys = pelmark::fuzz::Text(data, size);
    pelmark::screen::SendKeysParse parse = pelmark::screen::ParseSendKeys(keys);
    if (!parse.ok && parse.position > keys.size()) __builtin_trap();  // an error points inside
    return 0;
}
