// Builds the fixed-width sort key of each line and orders the keys as the sorted list box does.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <numeric>

#include "sort/engine.h"

namespace pelmark::sort {

namespace {

std::string Upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string Trim(const std::string& s) {
    const auto first = s.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    const auto last = s.find_last_not_of(' ');
    return s.substr(first, last - first + 1);
}

std::string Digits(std::size_t value, int width) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%0*zu", width, value);
    return buf;
}

void PadTo(std::string& s, std::size_t width) {
    if (s.size() < width) s.append(width - s.size(), ' ');
}

std::string CustomFieldValue(const qb::TxnLine& line, const std::string& name) {
    for (const qb::TxnCustomField& field : line.customFields)
        if (field.name == name) return field.value;
    return {};
}

}  // namespace

std::string SortKey::Entry() const {
    std::string entry;
    for (const std::string& segment : segments) entry += segment;
    entry += '\t';
    entry += Digits(position, 5);
    entry += '\t';
    return entry;
}

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

std::vector<SortKey> BuildSortKeys(const std::vector<const qb::TxnLine*>& lines,
                                   const SortSettings& settings, const DebugSink& debug) {
    const std::vector<SortLevel> levels = ActiveLevels(settings.levels);
    std::vector<SortKey> keys;
    keys.reserve(lines.size());
    std::string previousTaxCode;
    // The most recent text segment of the run: what an "Amount" level repeats.
    std::string lastText;

    for (std::size_t position = 0; position < lines.size(); ++position) {
        const qb::TxnLine& line = *lines[position];
        if (debug) debug("DBG, Line " + std::to_string(position));

        std::string taxCode = line.salesTaxCodeFullName;
        if (taxCode.empty()) taxCode = previousTaxCode;
        previousTaxCode = taxCode;
        PadTo(taxCode, 5);

        SortKey key;
        key.position = position;
        for (const SortLevel& level : levels) {
            const std::string& name = level.field;
            std::string segment;
            bool textLevel = true;
            bool itemLevel = false;
            if (name == "Item Full Name") {
                segment = line.itemFullName.substr(0, kItemNameWidth);
                PadTo(segment, kItemNameWidth);
                itemLevel = true;
            } else if (name == "Item Name") {
                segment = Trim(ItemNameOf(line.itemFullName)).substr(0, kItemNameWidth);
                itemLevel = true;
            } else if (name == "Desc") {
                segment = line.desc;
            } else if (name == "Class") {
                segment = line.classFullName;
            } else if (name == "Tax Code") {
                segment = taxCode;
            } else if (name == "Price") {
                segment = line.rate;
                textLevel = false;
            } else if (name == "Qty") {
                segment = line.quantity;
                textLevel = false;
            } else if (name == "Other1") {
                segment = line.other1;
            } else if (name == "Other2") {
                segment = line.other2;
            } else if (name == "Amount") {
                segment = lastText;
                textLevel = false;
            } else {
                segment = CustomFieldValue(line, name);
            }
            if ((textLevel || itemLevel) && !level.caseSensitive) segment = Upper(segment);
            if (itemLevel) {
                if (settings.keepBlankItems) segment += Digits(position, 4);
            } else if (textLevel) {
                lastText = segment;
            }
            PadTo(segment, kSegmentWidth);
            key.segments.push_back(std::move(segment));
            key.descending.push_back(level.descending);
        }
        keys.push_back(std::move(key));
        if (debug) debug("DBG, NExt Line");
    }
    return keys;
}

int CompareNoCase(const std::string& a, const std::string& b) {
    const std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        const int ca = std::tolower(static_cast<unsigned char>(a[i]));
        const int cb = std::tolower(static_cast<unsigned char>(b[i]));
        if (ca != cb) return ca < cb ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

bool KeyLess(const SortKey& a, const SortKey& b) {
    const std::size_t n = std::min(a.segments.size(), b.segments.size());
    for (std::size_t i = 0; i < n; ++i) {
        int c = CompareNoCase(a.segments[i], b.segments[i]);
        if (c == 0) continue;
        const bool descending = i < a.descending.size() && a.descending[i];
        if (descending) c = -c;
        return c < 0;
    }
    return a.position < b.position;
}

std::vector<std::size_t> SortOrder(const std::vector<SortKey>& keys) {
    std::vector<std::size_t> order(keys.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return KeyLess(keys[a], keys[b]); });
    std::vector<std::size_t> positions;
    positions.reserve(order.size());
    for (std::size_t i : order) positions.push_back(keys[i].position);
    return positions;
}

}  // namespace pelmark::sort
