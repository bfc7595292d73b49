// The user's locale order for text sort levels: a sort key per text, compared byte by byte.
#pragma once

#include <string>
#include <string_view>

namespace pelmark::sort {

// Appends the locale sort key of `text` (UTF-8) to `key`: the order of the user's language,
// digit runs compared as numbers ("M6" before "M10"), letter case ignored unless
// `caseSensitive`, where it only breaks ties. The key ends with one zero byte and holds no
// other, so keys of several levels appended one after another still compare level by level.
// Windows: LCMapStringEx sort keys (the order of CompareStringEx); elsewhere: ICU's collator.
void AppendCollationKey(std::string& key, std::string_view text, bool caseSensitive);

// Whether the locale allows the short keys below (ICU's root order for ASCII; never on Windows).
bool ShortCollationKeys();
// Whether `text` has a short key (printable ASCII). Appends it: a key that orders, case ignored,
// as AppendCollationKey's keys do, with the same end mark. The two kinds do not compare with
// each other: a sort level takes short keys only when every one of its texts has one. A locale
// key costs some twenty times more.
bool HasShortCollationKey(std::string_view text);
void AppendShortCollationKey(std::string& key, std::string_view text);

}  // namespace pelmark::sort
