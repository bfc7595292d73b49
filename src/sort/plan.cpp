// Groups the top-level lines into units that move together, sorts them within the sections
// between subtotals, and lays out the plan with its blank lines.
#include <algorithm>
#include <cctype>
#include <numeric>

#include "sort/engine.h"

namespace pelmark::sort {

namespace {

bool EqualsNoCase(const std::string& a, const std::string& b) {
    return CompareNoCase(a, b) == 0;
}

// Lines that travel together; positions index the top-level lines.
struct Unit {
    std::vector<std::size_t> positions;
    bool fixed = false;  // a subtotal and what is attached to it: never moves
};

// One text per key that orders as KeyLess does when compared byte by byte: each segment folded
// to lower case and filled with NULs to the longest segment of its level (a shorter text that is
// a prefix sorts first, as in the comparison), and inverted on a descending level. Sorting these
// with std::string's unsigned comparison costs no more than sorting the keys' entries.
std::vector<std::string> CollationTexts(const std::vector<SortKey>& keys) {
    std::vector<std::size_t> widths;
    for (const SortKey& k : keys) {
        if (widths.size() < k.segments.size()) widths.resize(k.segments.size(), 0);
        for (std::size_t i = 0; i < k.segments.size(); ++i)
            widths[i] = std::max(widths[i], k.segments[i].size());
    }
    std::size_t total = 0;
    for (std::size_t w : widths) total += w;
    std::vector<std::string> texts;
    texts.reserve(keys.size());
    for (const SortKey& k : keys) {
        std::string t;
        t.reserve(total);
        for (std::size_t i = 0; i < widths.size(); ++i) {
            const std::string& seg = i < k.segments.size() ? k.segments[i] : std::string();
            const bool descending = i < k.descending.size() && k.descending[i];
            for (std::size_t j = 0; j < widths[i]; ++j) {
                const unsigned char c = j < seg.size() ? static_cast<unsigned char>(std::tolower(
                                                             static_cast<unsigned char>(seg[j])))
                                                       : 0;
                t += static_cast<char>(descending ? 255 - c : c);
            }
        }
        texts.push_back(std::move(t));
    }
    return texts;
}

}  // namespace

RowRole ClassifyRow(const qb::TxnLine& row, const ItemLookup& items) {
    if (row.IsGroup()) return RowRole::Group;
    if (row.lineType == qb::kLineBlank || row.lineType == qb::kLineDescOnly)
        return RowRole::BlankOrDesc;
    const ItemRec* item = items && !row.itemFullName.empty() ? items(row.itemFullName) : nullptr;
    if (item && item->kind == kItemSubtotal) return RowRole::Subtotal;
    // Without the item in the lists, a subtotal is known by QuickBooks' usual item name.
    if (!item && EqualsNoCase(ItemNameOf(row.itemFullName), "Subtotal")) return RowRole::Subtotal;
    if (!row.ratePercent.empty()) return RowRole::Discount;
    if (item && item->kind == kItemDiscount && !item->price.empty() && item->price.back() == '%')
        return RowRole::Discount;
    return RowRole::Ordinary;
}

std::vector<std::size_t> TopLevelRows(const std::vector<qb::TxnLine>& table, std::size_t first,
                                      std::size_t count) {
    std::vector<std::size_t> rows;
    const std::size_t end = std::min(table.size(), first + count);
    for (std::size_t i = first; i < end; ++i)
        if (table[i].group == qb::kNoGroup && !table[i].IsGroupEnd()) rows.push_back(i);
    return rows;
}

SortPlan BuildSortPlan(const std::vector<qb::TxnLine>& table, std::size_t first, std::size_t count,
                       const SortSettings& settings, const ItemLookup& items, qb::TxnKind kind,
                       const std::string& txnID, const DebugSink& debug) {
    SortPlan plan;
    const DebugSink log = [&](const std::string& text) {
        plan.debugLines.push_back(text);
        if (debug) debug(text);
    };

    const std::vector<std::size_t> top = TopLevelRows(table, first, count);
    log("Do back Ground Taxes Etc - LineCollection count " + std::to_string(top.size()));
    std::vector<const qb::TxnLine*> lines;
    lines.reserve(top.size());
    for (std::size_t row : top) lines.push_back(&table[row]);
    const std::vector<SortKey> keys = BuildSortKeys(lines, settings, log);

    const int blanks =
        settings.blankLines == BlankLines::None ? 0 : std::max(0, settings.blankCount);
    // Blank lines an earlier sort added (nothing on them at all) go before new ones come in, so
    // that sorting a sorted transaction again changes nothing.
    // One that a discount applies to stays: the discount would apply to another line.
    auto spent = [&](std::size_t p) {
        const qb::TxnLine& row = *lines[p];
        if (blanks == 0 || row.lineType != qb::kLineBlank || !row.amount.empty()) return false;
        if (p + 1 < lines.size() && ClassifyRow(*lines[p + 1], items) == RowRole::Discount)
            return false;
        return std::all_of(row.customFields.begin(), row.customFields.end(),
                           [](const qb::TxnCustomField& f) { return f.value.empty(); });
    };

    // Units in incoming order. A discount (and, with keepBlankItems, a blank or description
    // line) joins the unit above it; a subtotal starts a fixed unit that bounds the sections.
    std::vector<Unit> units;
    for (std::size_t p = 0; p < top.size(); ++p) {
        if (spent(p)) continue;
        const RowRole role = ClassifyRow(*lines[p], items);
        const bool attaches =
            role == RowRole::Discount || (role == RowRole::BlankOrDesc && settings.keepBlankItems);
        if (attaches && !units.empty()) {
            units.back().positions.push_back(p);
            continue;
        }
        // A discount with no line above it discounts nothing; moved under a line it would
        // discount that line and change the total, so it stays where it is.
        units.push_back({{p}, role == RowRole::Subtotal || role == RowRole::Discount});
    }

    log("Do Back Ground Sort count=" + std::to_string(keys.size()));
    const std::vector<std::string> collated = CollationTexts(keys);
    // Each run of movable units between fixed ones is sorted by the key of its first line.
    std::vector<std::size_t> order;
    order.reserve(units.size());
    for (std::size_t u = 0; u < units.size();) {
        if (units[u].fixed) {
            order.push_back(u++);
            continue;
        }
        const std::size_t sectionStart = order.size();
        while (u < units.size() && !units[u].fixed) order.push_back(u++);
        std::stable_sort(order.begin() + static_cast<std::ptrdiff_t>(sectionStart), order.end(),
                         [&](std::size_t a, std::size_t b) {
                             return collated[units[a].positions.front()] <
                                    collated[units[b].positions.front()];
                         });
    }

    auto addBlanks = [&](BlankLines where) {
        if (settings.blankLines != where) return;
        for (int i = 0; i < blanks; ++i) plan.steps.push_back({PlanStep::Kind::Blank, 0, false});
    };
    for (std::size_t u : order) {
        addBlanks(BlankLines::Before);
        bool startOfUnit = true;
        for (std::size_t p : units[u].positions) {
            plan.steps.push_back({PlanStep::Kind::Row, top[p], startOfUnit});
            startOfUnit = false;
        }
        addBlanks(BlankLines::After);
    }
    log("Do Back Groupd End of Sort");

    FillLineWeights(table, first, count, settings, items, kind, txnID, plan, debug);
    return plan;
}

}  // namespace pelmark::sort
