// Locale sort keys from ICU's collator with numeric ordering, for the builds outside Windows.
#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>

#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "sort/collate.h"

namespace pelmark::sort {

namespace {

struct CollatorClose {
    void operator()(UCollator* c) const { ucol_close(c); }
};
using Collator = std::unique_ptr<UCollator, CollatorClose>;

// Secondary strength ignores case and keeps accents; tertiary adds case as the last word,
// which is how Windows' linguistic comparison treats the case-sensitive box as well.
Collator Open(bool caseSensitive) {
    UErrorCode status = U_ZERO_ERROR;
    // uloc_getDefault follows LANG / LC_ALL. With neither set (a service, CI) it is
    // "en_US_POSIX", whose collation is code point order: capitals before every small letter
    // and accents after "z". The root order is what such a user still expects of names.
    const std::string locale = uloc_getDefault();
    Collator c(ucol_open(locale.find("POSIX") == std::string::npos ? locale.c_str() : "", &status));
    if (U_FAILURE(status) || !c) {
        status = U_ZERO_ERROR;
        c.reset(ucol_open("", &status));
    }
    if (!c) return c;
    ucol_setAttribute(c.get(), UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
    ucol_setAttribute(c.get(), UCOL_STRENGTH, caseSensitive ? UCOL_TERTIARY : UCOL_SECONDARY,
                      &status);
    return c;
}

const UCollator* Get(bool caseSensitive) {
    // Opened once: opening a collator loads the locale's rules, far dearer than a key.
    static const Collator insensitive = Open(false);
    static const Collator sensitive = Open(true);
    return caseSensitive ? sensitive.get() : insensitive.get();
}

}  // namespace

void AppendCollationKey(std::string& key, std::string_view text, bool caseSensitive) {
    const UCollator* collator = Get(caseSensitive);
    // A UTF-8 byte gives at most one UTF-16 unit. Names and descriptions fit on the stack; a
    // key is built per distinct text, and this spares it a heap buffer.
    UChar onStack[256];
    std::vector<UChar> onHeap;
    UChar* wide = onStack;
    if (text.size() + 1 > std::size(onStack)) {
        onHeap.resize(text.size() + 1);
        wide = onHeap.data();
    }
    const auto capacity = static_cast<int32_t>(text.size() + 1);
    int32_t wideLength = 0;
    UErrorCode status = U_ZERO_ERROR;
    // Invalid UTF-8 becomes U+FFFD rather than an error: a key is still needed for the line.
    u_strFromUTF8WithSub(wide, capacity, &wideLength, text.data(),
                         static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &status);
    if (!collator || U_FAILURE(status)) {
        for (char c : text)
            if (c != '\0') key += c;
        key += '\0';
        return;
    }
    const std::size_t start = key.size();
    key.resize(start + 2 * static_cast<std::size_t>(capacity) + 16);
    auto* out = reinterpret_cast<uint8_t*>(key.data() + start);
    int32_t room = static_cast<int32_t>(key.size() - start);
    int32_t n = ucol_getSortKey(collator, wide, wideLength, out, room);
    if (n > room) {
        key.resize(start + static_cast<std::size_t>(n));
        n = ucol_getSortKey(collator, wide, wideLength,
                            reinterpret_cast<uint8_t*>(key.data() + start), n);
    }
    // ICU's sort key already ends with its only zero byte.
    key.resize(start + static_cast<std::size_t>(n));
}

}  // namespace pelmark::sort
