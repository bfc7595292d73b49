// Small text helpers shared by every module.
#include "app/text.h"

#include <algorithm>
#include <cctype>

namespace pelmark {

std::string Trim(std::string_view s) {
    size_t b = s.find_first_not_of(' ');
    if (b == std::string_view::npos) return {};
    size_t e = s.find_last_not_of(' ');
    return std::string(s.substr(b, e - b + 1));
}

std::string TrimWs(std::string_view s) {
    constexpr std::string_view ws = " \t\r\n\v\f";
    size_t b = s.find_first_not_of(ws);
    if (b == std::string_view::npos) return {};
    size_t e = s.find_last_not_of(ws);
    return std::string(s.substr(b, e - b + 1));
}

std::string Upper(std::string_view s) {
    std::string r(s);
    for (char& c : r) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return r;
}

std::string Lower(std::string_view s) {
    std::string r(s);
    for (char& c : r) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return r;
}

bool StartsWith(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && s.substr(0, prefix.size()) == prefix;
}

bool EndsWith(std::string_view s, std::string_view suffix) {
    return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && Upper(a) == Upper(b);
}

bool ContainsNoCase(std::string_view haystack, std::string_view needle) {
    return Upper(haystack).find(Upper(needle)) != std::string::npos;
}

std::string ReplaceAll(std::string s, std::string_view from, std::string_view to) {
    if (from.empty()) return s;
    size_t pos = 0;
    while ((pos = s.find(from, pos)) != std::string::npos) {
        s.replace(pos, from.size(), to);
        pos += to.size();
    }
    return s;
}

std::vector<std::string> Split(std::string_view s, char sep) {
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        size_t pos = s.find(sep, start);
        out.emplace_back(s.substr(start, pos == std::string_view::npos ? pos : pos - start));
        if (pos == std::string_view::npos) break;
        start = pos + 1;
    }
    return out;
}

std::vector<std::string> SplitLines(std::string_view text) {
    if (StartsWith(text, "\xEF\xBB\xBF")) text.remove_prefix(3);
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r' && text[i] != '\n') continue;
        lines.emplace_back(text.substr(start, i - start));
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
        start = i + 1;
    }
    if (start < text.size()) lines.emplace_back(text.substr(start));
    return lines;
}

std::string Pad(long long n, int width) {
    std::string digits = std::to_string(n < 0 ? -n : n);
    if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
    return n < 0 ? "-" + digits : digits;
}

}  // namespace pelmark
