// Builds each line's sort key: typed levels (numbers as numbers, text in the user's locale
// order) laid out so that comparing two keys byte by byte orders the lines level by level.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <unordered_map>

#include "sort/collate.h"
#include "sort/engine.h"

namespace pelmark::sort {

namespace {

std::string Trim(const std::string& s) {
    const auto first = s.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    const auto last = s.find_last_not_of(' ');
    return s.substr(first, last - first + 1);
}

// Cuts UTF-8 text to at most `width` bytes without splitting a character.
std::string Cut(const std::string& s, std::size_t width) {
    if (s.size() <= width) return s;
    while (width > 0 && (static_cast<unsigned char>(s[width]) & 0xC0) == 0x80) --width;
    return s.substr(0, width);
}

std::string CustomFieldValue(const qb::TxnLine& line, const std::string& name) {
    for (const qb::TxnCustomField& field : line.customFields)
        if (field.name == name) return field.value;
    return {};
}

// The classes of a number level, in ascending order: a number, then text that is not one,
// then nothing at all.
enum : char { kNumber = 1, kNotNumber = 2, kBlank = 3 };

// A number as QuickBooks or a user writes it: "1,000.50", "-3", " 2 ". Not "nan" or "inf".
bool ParseNumber(const std::string& text, double& value) {
    std::string digits;
    for (char c : Trim(text))
        if (c != ',') digits += c;
    if (digits.empty()) return false;
    const char* end = digits.data() + digits.size();
    const auto [ptr, ec] = std::from_chars(digits.data(), end, value);
    return ec == std::errc() && ptr == end && std::isfinite(value);
}

// Eight bytes that compare as the numbers do: the IEEE bits with the sign bit flipped for a
// positive number and every bit flipped for a negative one, most significant byte first.
void AppendNumber(std::string& key, double value) {
    value += 0.0;  // -0 and 0 are the same quantity
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    bits = (bits >> 63) ? ~bits : bits | (std::uint64_t{1} << 63);
    for (int shift = 56; shift >= 0; shift -= 8) key += static_cast<char>((bits >> shift) & 0xFF);
}

void AppendNumberLevel(std::string& key, const std::string& text, bool caseSensitive) {
    double value = 0;
    if (Trim(text).empty()) {
        key += kBlank;
    } else if (ParseNumber(text, value)) {
        key += kNumber;
        AppendNumber(key, value);
    } else {
        key += kNotNumber;
        AppendCollationKey(key, text, caseSensitive);
    }
}

}  // namespace

std::vector<SortLevel> ActiveLevels(const std::vector<SortLevel>& levels) {
    std::vector<SortLevel> active;
    for (const SortLevel& level : levels) {
        if (level.field.empty()) continue;
        if (active.size() == kMaxSortLevels) break;
        active.push_back(level);
    }
    return active;
}

std::string ItemNameOf(const std::string& fullName) {
    const auto colon = fullName.rfind(':');
    return colon == std::string::npos ? fullName : fullName.substr(colon + 1);
}

std::vector<std::string> BuildSortKeys(const std::vector<const qb::TxnLine*>& lines,
                                       const SortSettings& settings, const DebugSink& debug) {
    const std::vector<SortLevel> levels = ActiveLevels(settings.levels);
    std::vector<std::string> keys;
    keys.reserve(lines.size());
    std::string previousTaxCode;
    // Item names and descriptions repeat down a transaction; a locale key costs far more than
    // a lookup, so each level keeps the keys of the texts it has seen.
    std::vector<std::unordered_map<std::string, std::string>> seen(levels.size());
    auto appendText = [&](std::string& key, std::size_t level, const std::string& text) {
        auto [it, added] = seen[level].try_emplace(text);
        if (added) AppendCollationKey(it->second, text, levels[level].caseSensitive);
        key += it->second;
    };

    for (std::size_t position = 0; position < lines.size(); ++position) {
        const qb::TxnLine& line = *lines[position];
        if (debug) debug("DBG, Line " + std::to_string(position));

        std::string taxCode = line.salesTaxCodeFullName;
        if (taxCode.empty()) taxCode = previousTaxCode;
        previousTaxCode = taxCode;

        std::string key;
        for (std::size_t index = 0; index < levels.size(); ++index) {
            const SortLevel& level = levels[index];
            const std::string& name = level.field;
            const std::size_t start = key.size();
            bool itemLevel = false;
            if (name == "Item Full Name" || name == "Item Name") {
                const std::string& full = line.itemFullName;
                appendText(
                    key, index,
                    Cut(name == "Item Name" ? Trim(ItemNameOf(full)) : full, kItemNameWidth));
                itemLevel = true;
            } else if (name == "Price") {
                AppendNumberLevel(key, line.rate.empty() ? line.ratePercent : line.rate,
                                  level.caseSensitive);
            } else if (name == "Qty") {
                AppendNumberLevel(key, line.quantity, level.caseSensitive);
            } else if (name == "Amount") {
                AppendNumberLevel(key, line.amount, level.caseSensitive);
            } else {
                const std::string text = name == "Desc"       ? line.desc
                                         : name == "Class"    ? line.classFullName
                                         : name == "Tax Code" ? taxCode
                                         : name == "Other1"   ? line.other1
                                         : name == "Other2"   ? line.other2
                                                              : CustomFieldValue(line, name);
                appendText(key, index, text);
            }
            // Inverting every byte of a level, its end mark included, reverses that level's
            // order and nothing else.
            if (level.descending)
                for (std::size_t i = start; i < key.size(); ++i)
                    key[i] = static_cast<char>(~static_cast<unsigned char>(key[i]));
            // Blank and description lines kept under their line are told apart from it by
            // position alone, so levels after the item level have nothing left to decide.
            if (itemLevel && settings.keepBlankItems) break;
        }
        keys.push_back(std::move(key));
        if (debug) debug("DBG, NExt Line");
    }
    return keys;
}

}  // namespace pelmark::sort
