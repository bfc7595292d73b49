// The item list exported from QuickBooks (Items.iif) as the program reads it at start.
#include "app/context.h"
#include "app/items.h"
#include "fuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    pelmark::fuzz::QuietApp t;
    t.dir.Write("Items.iif", pelmark::fuzz::Text(data, size));
    pelmark::fuzz::AsTheProgramDoes([&] { pelmark::ReadItemsIIF(t.app); });
    return 0;
}
