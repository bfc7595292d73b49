// Small text helpers shared by every module: trimming, case, splitting into lines and cells.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pelmark {

// Blanks as the classic Trim removes them: spaces only. TrimWs also removes tabs, CR and LF.
std::string Trim(std::string_view s);
std::string TrimWs(std::string_view s);
std::string Upper(std::string_view s);
std::string Lower(std::string_view s);
bool StartsWith(std::string_view s, std::string_view prefix);
bool EndsWith(std::string_view s, std::string_view suffix);
bool EqualsNoCase(std::string_view a, std::string_view b);
bool ContainsNoCase(std::string_view haystack, std::string_view needle);
std::string ReplaceAll(std::string s, std::string_view from, std::string_view to);
std::vector<std::string> Split(std::string_view s, char sep);
// Lines of a file's text: a UTF-8 byte-order mark is dropped, and CR LF, LF and lone CR all end
// a line. A final line ending does not make an extra empty line.
std::vector<std::string> SplitLines(std::string_view text);
// Zero-padded decimal, as Format(n, "0000").
std::string Pad(long long n, int width);

inline constexpr const char* kCrLf = "\r\n";

}  // namespace pelmark
