// Locale sort keys from ICU's collator with numeric ordering, for the builds outside Windows.
#include <unicode/ucol.h>
#include <unicode/ucoleitr.h>
#include <unicode/uloc.h>
#include <unicode/uset.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
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

// Short keys for printable ASCII, case ignored. In the root order (which most locales keep for
// ASCII) every printable ASCII character is one collation element with a primary weight of its
// own and the common secondary weight, and no contraction starts with one; numeric collation
// weighs a digit run by its value, leading zeros ignored. Such texts then order, at secondary
// strength, as the sequences of their characters' primary ranks with each digit run one element
// (its digit count, then its digits). All of this is checked against the collator here, so a
// locale that reorders or joins ASCII characters (Czech "ch") simply gets no short keys.
struct AsciiRanks {
    bool usable = false;
    std::array<unsigned char, 128> rank{};  // 0: not printable ASCII
};

AsciiRanks Ranks() {
    AsciiRanks r;
    const UCollator* c = Get(false);
    UErrorCode status = U_ZERO_ERROR;
    if (!c || ucol_getAttribute(c, UCOL_ALTERNATE_HANDLING, &status) != UCOL_NON_IGNORABLE ||
        ucol_getAttribute(c, UCOL_NUMERIC_COLLATION, &status) != UCOL_ON)
        return r;
    USet* contractions = uset_openEmpty();
    ucol_getContractionsAndExpansions(c, contractions, nullptr, false, &status);
    bool joined = false;
    for (int32_t i = 0, n = uset_getItemCount(contractions); i < n && U_SUCCESS(status); ++i) {
        UChar32 start = 0, end = 0;
        UChar first[64];
        const int32_t length = uset_getItem(contractions, i, &start, &end, first, 64, &status);
        joined = joined || (length > 0 && first[0] >= 0x20 && first[0] < 0x7F);
    }
    uset_close(contractions);
    if (joined || U_FAILURE(status)) return r;

    // One element each, common secondary weight, and the primary weight of each.
    std::array<std::uint32_t, 128> primary{};
    std::vector<UChar> chars;
    for (UChar ch = 0x20; ch < 0x7F; ++ch) {
        UCollationElements* it = ucol_openElements(c, &ch, 1, &status);
        int elements = 0;
        for (int32_t ce; U_SUCCESS(status) && (ce = ucol_next(it, &status)) != UCOL_NULLORDER;) {
            if ((ce & 0xC0) == 0xC0) continue;  // the second half of a 64-bit element
            ++elements;
            primary[ch] = static_cast<std::uint32_t>(ucol_primaryOrder(ce));
            if (ucol_secondaryOrder(ce) != 0x05 || primary[ch] == 0) elements = 2;
        }
        if (it) ucol_closeElements(it);
        if (elements != 1 || U_FAILURE(status)) return r;
        chars.push_back(ch);
    }
    // The order of the characters as the collator compares them; equal ones (a letter's two
    // cases) share a rank, and every digit has the digits' rank.
    auto isDigit = [](UChar ch) { return ch >= u'0' && ch <= u'9'; };
    auto order = [&](UChar a, UChar b) {
        return isDigit(a) && isDigit(b) ? UCOL_EQUAL : ucol_strcoll(c, &a, 1, &b, 1);
    };
    std::stable_sort(chars.begin(), chars.end(),
                     [&](UChar a, UChar b) { return order(a, b) == UCOL_LESS; });
    unsigned char rank = 1;
    for (std::size_t i = 0; i < chars.size(); ++i) {
        if (i > 0 && order(chars[i - 1], chars[i]) != UCOL_EQUAL) ++rank;
        r.rank[chars[i]] = rank;
    }
    // Characters of different ranks must differ at the first level: a difference at the second
    // would count only after the whole text's first level.
    for (UChar a : chars)
        for (UChar b : chars)
            if (r.rank[a] != r.rank[b] && primary[a] == primary[b] && !isDigit(a)) return r;
    r.usable = true;
    return r;
}

const AsciiRanks& Short() {
    static const AsciiRanks ranks = Ranks();
    return ranks;
}

// ICU splits digit runs longer than 254 digits; such texts take locale keys.
constexpr std::size_t kLongestDigitRun = 200;

}  // namespace

bool ShortCollationKeys() {
    return Short().usable;
}

bool HasShortCollationKey(std::string_view text) {
    const AsciiRanks& r = Short();
    if (!r.usable) return false;
    std::size_t digits = 0;
    for (char c : text) {
        const auto ch = static_cast<unsigned char>(c);
        if (ch >= 128 || r.rank[ch] == 0) return false;
        digits = ch >= '0' && ch <= '9' ? digits + 1 : 0;
        if (digits > kLongestDigitRun) return false;
    }
    return true;
}

void AppendShortCollationKey(std::string& key, std::string_view text) {
    const AsciiRanks& r = Short();
    for (std::size_t i = 0; i < text.size();) {
        const auto ch = static_cast<unsigned char>(text[i]);
        key += static_cast<char>(r.rank[ch]);
        if (ch < '0' || ch > '9') {
            ++i;
            continue;
        }
        // A digit run: its digits without leading zeros, after their count.
        std::size_t end = i;
        while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
        while (i + 1 < end && text[i] == '0') ++i;
        key += static_cast<char>(end - i);
        key.append(text.substr(i, end - i));
        i = end;
    }
    key += '\0';
}

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
