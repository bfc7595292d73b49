// Builds each line's sort key: typed levels (numbers as numbers, text in the user's locale
// order) laid out so that comparing two keys byte by byte orders the lines level by level.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>
#include <vector>

#include "sort/collate.h"
#include "sort/engine.h"

namespace pelmark::sort {

namespace {

// Views into the lines' own text: a key is built without copying what it is built from.
std::string_view Trim(std::string_view s) {
    const auto first = s.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

std::string_view NameAfterColon(std::string_view fullName) {
    const auto colon = fullName.rfind(':');
    return colon == std::string_view::npos ? fullName : fullName.substr(colon + 1);
}

// Cuts UTF-8 text to at most `width` bytes without splitting a character.
std::string_view Cut(std::string_view s, std::size_t width) {
    if (s.size() <= width) return s;
    while (width > 0 && (static_cast<unsigned char>(s[width]) & 0xC0) == 0x80) --width;
    return s.substr(0, width);
}

std::string_view CustomFieldValue(const qb::TxnLine& line, const std::string& name) {
    for (const qb::TxnCustomField& field : line.customFields)
        if (field.name == name) return field.value;
    return {};
}

// What a level reads, decided once per sort rather than by name on every line.
enum class Field {
    ItemFull,
    ItemName,
    Price,
    Qty,
    Amount,
    Desc,
    Class,
    TaxCode,
    Other1,
    Other2,
    Custom
};

Field FieldOf(const std::string& name) {
    static const std::pair<std::string_view, Field> kNames[] = {{"Item Full Name", Field::ItemFull},
                                                                {"Item Name", Field::ItemName},
                                                                {"Price", Field::Price},
                                                                {"Qty", Field::Qty},
                                                                {"Amount", Field::Amount},
                                                                {"Desc", Field::Desc},
                                                                {"Class", Field::Class},
                                                                {"Tax Code", Field::TaxCode},
                                                                {"Other1", Field::Other1},
                                                                {"Other2", Field::Other2}};
    for (const auto& [text, field] : kNames)
        if (name == text) return field;
    return Field::Custom;
}

// The classes of a number level, in ascending order: a number, then text that is not one,
// then nothing at all.
enum : char { kNumber = 1, kNotNumber = 2, kBlank = 3 };

// A number as QuickBooks or a user writes it: "1,000.50", "-3", " 2 ". Not "nan" or "inf".
bool ParseNumber(std::string_view text, double& value) {
    std::string withoutCommas;
    if (text.find(',') != std::string_view::npos) {
        for (char c : text)
            if (c != ',') withoutCommas += c;
        text = withoutCommas;
    }
    if (text.empty()) return false;
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
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

// The text a level reads from a line: for a number level, the number as written.
std::string_view LevelText(Field field, const qb::TxnLine& line, const std::string& name,
                           std::string_view taxCode) {
    switch (field) {
        case Field::ItemFull:
            return Cut(line.itemFullName, kItemNameWidth);
        case Field::ItemName:
            return Cut(Trim(NameAfterColon(line.itemFullName)), kItemNameWidth);
        case Field::Price:
            return line.rate.empty() ? line.ratePercent : line.rate;
        case Field::Qty:
            return line.quantity;
        case Field::Amount:
            return line.amount;
        case Field::Desc:
            return line.desc;
        case Field::Class:
            return line.classFullName;
        case Field::TaxCode:
            return taxCode;
        case Field::Other1:
            return line.other1;
        case Field::Other2:
            return line.other2;
        case Field::Custom:
            break;
    }
    return CustomFieldValue(line, name);
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

SortKeys BuildSortKeys(const std::vector<const qb::TxnLine*>& lines, const SortSettings& settings,
                       const DebugSink& debug) {
    const std::vector<SortLevel> levels = ActiveLevels(settings.levels);
    const std::size_t width = levels.size();
    std::vector<Field> fields;
    for (const SortLevel& level : levels) fields.push_back(FieldOf(level.field));

    // What each level reads from each line; the tax code is carried down from the line above.
    std::vector<std::string_view> texts(lines.size() * width);
    std::string_view taxCode;
    for (std::size_t position = 0; position < lines.size(); ++position) {
        const qb::TxnLine& line = *lines[position];
        if (!line.salesTaxCodeFullName.empty()) taxCode = line.salesTaxCodeFullName;
        for (std::size_t index = 0; index < width; ++index)
            texts[position * width + index] =
                LevelText(fields[index], line, levels[index].field, taxCode);
    }
    // A level whose texts all have short keys takes those (see collate.h).
    std::vector<bool> shortKeys(width, false);
    for (std::size_t index = 0; index < width; ++index) {
        bool all = ShortCollationKeys() && !levels[index].caseSensitive;
        for (std::size_t position = 0; all && position < lines.size(); ++position)
            all = HasShortCollationKey(texts[position * width + index]);
        shortKeys[index] = all;
    }

    SortKeys keys;
    keys.ends.reserve(lines.size());
    keys.bytes.reserve(lines.size() * 24 * (width + 1));
    // Item names and descriptions repeat down a transaction; a locale key costs far more than
    // a lookup, so each level keeps the keys of the texts it has seen, in an open-addressing
    // table (one allocation per level, none per text). The texts are views into the lines, which
    // outlive the building; each locale key is kept once in `known` as its offset and length.
    struct Seen {
        std::string_view text;
        std::uint32_t offset = 0, size = 0;
        bool used = false;
    };
    std::size_t slots = 16;
    while (slots < 2 * lines.size()) slots *= 2;
    std::vector<std::vector<Seen>> seen(width);
    std::string known;
    std::string& key = keys.bytes;
    auto appendText = [&](std::size_t level, std::string_view text) {
        if (shortKeys[level]) {
            AppendShortCollationKey(key, text);
            return;
        }
        std::vector<Seen>& table = seen[level];
        if (table.empty()) table.resize(slots);
        std::size_t at = std::hash<std::string_view>{}(text) & (slots - 1);
        while (table[at].used && table[at].text != text) at = (at + 1) & (slots - 1);
        Seen& slot = table[at];
        if (!slot.used) {
            const std::size_t offset = known.size();
            AppendCollationKey(known, text, levels[level].caseSensitive);
            slot = {text, static_cast<std::uint32_t>(offset),
                    static_cast<std::uint32_t>(known.size() - offset), true};
        }
        key.append(known, slot.offset, slot.size);
    };
    auto appendNumber = [&](std::size_t level, std::string_view text) {
        const std::string_view trimmed = Trim(text);
        double value = 0;
        if (trimmed.empty()) {
            key += kBlank;
        } else if (ParseNumber(trimmed, value)) {
            key += kNumber;
            AppendNumber(key, value);
        } else {
            key += kNotNumber;
            appendText(level, text);
        }
    };

    for (std::size_t position = 0; position < lines.size(); ++position) {
        if (debug) debug("DBG, Line " + std::to_string(position));
        for (std::size_t index = 0; index < width; ++index) {
            const std::size_t start = key.size();
            const std::string_view text = texts[position * width + index];
            const Field field = fields[index];
            if (field == Field::Price || field == Field::Qty || field == Field::Amount)
                appendNumber(index, text);
            else
                appendText(index, text);
            // Inverting every byte of a level, its end mark included, reverses that level's
            // order and nothing else.
            if (levels[index].descending)
                for (std::size_t i = start; i < key.size(); ++i)
                    key[i] = static_cast<char>(~static_cast<unsigned char>(key[i]));
            // Blank and description lines kept under their line are told apart from it by
            // position alone, so levels after the item level have nothing left to decide.
            if ((field == Field::ItemFull || field == Field::ItemName) && settings.keepBlankItems)
                break;
        }
        keys.ends.push_back(key.size());
        if (debug) debug("DBG, NExt Line");
    }
    return keys;
}

}  // namespace pelmark::sort
