// Locale sort keys from Windows: LCMapStringEx with the flags CompareStringEx would be given.
#include <windows.h>

#include "app/wideText.h"
#include "sort/collate.h"

namespace pelmark::sort {

void AppendCollationKey(std::string& key, std::string_view text, bool caseSensitive) {
    const std::wstring wide = WideFromUtf8(std::string(text));
    // LCMAP_SORTKEY keys compare as CompareStringEx compares with the same flags (Microsoft's
    // "Handling Sorting in Your Applications"); SORT_DIGITSASNUMBERS (Windows 7 and later, and
    // Wine) is the digit order Explorer shows. Without LINGUISTIC_IGNORECASE case still counts,
    // but only after letters and accents, which makes it the tie-break.
    const DWORD flags = LCMAP_SORTKEY | SORT_DIGITSASNUMBERS |
                        (caseSensitive ? 0 : static_cast<DWORD>(LINGUISTIC_IGNORECASE));
    const int length = static_cast<int>(wide.size());
    const int n = LCMapStringEx(LOCALE_NAME_USER_DEFAULT, flags, wide.c_str(), length, nullptr, 0,
                                nullptr, nullptr, 0);
    const std::size_t start = key.size();
    if (n > 0) {
        key.resize(start + static_cast<std::size_t>(n));
        // With LCMAP_SORTKEY the output is bytes despite the LPWSTR type, n of them.
        if (LCMapStringEx(LOCALE_NAME_USER_DEFAULT, flags, wide.c_str(), length,
                          reinterpret_cast<LPWSTR>(key.data() + start), n, nullptr, nullptr,
                          0) == n &&
            key.back() == '\0')
            return;
        key.resize(start);
    }
    // Without a key (an unknown flag on an old system) the text itself keeps the lines apart.
    for (char c : text)
        if (c != '\0') key += c;
    key += '\0';
}

// LCMapStringEx keys depend on the user's locale and Windows version; no shortcut is safe.
bool ShortCollationKeys() {
    return false;
}
bool HasShortCollationKey(std::string_view) {
    return false;
}
void AppendShortCollationKey(std::string&, std::string_view) {}

}  // namespace pelmark::sort
