// Groups the top-level lines into units that move together, sorts them within the sections
// between subtotals, and lays out the plan with its blank lines.
#include <algorithm>
#include <cstdint>
#include <string_view>

#include "app/text.h"
#include "sort/engine.h"

namespace pelmark::sort {

namespace {

// What the stable sort moves: a unit and its key, with the key's first eight bytes as one
// big-endian number (zero-padded), so most comparisons are one integer compare and no memcmp.
struct SortEntry {
    std::uint64_t head = 0;
    const char* key = nullptr;
    std::uint32_t size = 0;
    std::uint32_t unit = 0;
};

SortEntry EntryOf(std::string_view key, std::size_t unit) {
    SortEntry e{0, key.data(), static_cast<std::uint32_t>(key.size()),
                static_cast<std::uint32_t>(unit)};
    for (std::size_t i = 0; i < 8; ++i)
        e.head = e.head << 8 | (i < key.size() ? static_cast<unsigned char>(key[i]) : 0u);
    return e;
}

// Orders as the keys compare as unsigned bytes. Heads that differ decide alone: a padding zero
// against a real byte is a shorter key against a longer one with the same start.
bool operator<(const SortEntry& a, const SortEntry& b) {
    if (a.head != b.head) return a.head < b.head;
    const std::size_t skip = std::min<std::size_t>({8, a.size, b.size});
    return std::string_view(a.key + skip, a.size - skip) <
           std::string_view(b.key + skip, b.size - skip);
}

}  // namespace

RowRole ClassifyRow(const qb::TxnLine& row, const ItemLookup& items) {
    if (row.IsGroup()) return RowRole::Group;
    if (row.lineType == qb::kLineBlank || row.lineType == qb::kLineDescOnly)
        return RowRole::BlankOrDesc;
    const ItemRec* item = items && !row.itemFullName.empty() ? items(row.itemFullName) : nullptr;
    if (item && item->kind == kItemSubtotal) return RowRole::Subtotal;
    // Without the item in the lists, a subtotal is known by QuickBooks' usual item name.
    const std::string_view full = row.itemFullName;
    if (!item && EqualsNoCase(full.substr(full.rfind(':') + 1), "Subtotal"))
        return RowRole::Subtotal;
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
    // The two debug lines of every line go to the sink alone: a plan of 30,000 lines would
    // otherwise hold 60,000 strings nobody reads.
    const SortKeys keys = BuildSortKeys(lines, settings, debug);

    const int blanks =
        settings.blankLines == BlankLines::None ? 0 : std::max(0, settings.blankCount);
    // A blank line with nothing on it at all. One right above a discount is what the discount
    // applies to: it discounts nothing, and it stays, with the discount under it, where it is
    // (dropped, the discount would apply to another line and change the total).
    auto empty = [&](std::size_t p) {
        const qb::TxnLine& row = *lines[p];
        return row.lineType == qb::kLineBlank && row.amount.empty() &&
               std::all_of(row.customFields.begin(), row.customFields.end(),
                           [](const qb::TxnCustomField& f) { return f.value.empty(); });
    };
    auto aboveDiscount = [&](std::size_t p) {
        return p + 1 < lines.size() && ClassifyRow(*lines[p + 1], items) == RowRole::Discount;
    };
    // Every other empty line is one an earlier sort added; they go before new ones come in, so
    // that sorting a sorted transaction again changes nothing.
    auto spent = [&](std::size_t p) { return blanks > 0 && empty(p) && !aboveDiscount(p); };

    // Units in incoming order, each a run of `positions` (top-level line positions) from
    // unitStart[u] to unitStart[u + 1]. A discount (and, with keepBlankItems, a blank or
    // description line) joins the unit above it; a subtotal starts a fixed unit that bounds the
    // sections.
    std::vector<std::size_t> positions, unitStart;
    std::vector<bool> fixed;  // a subtotal and what is attached to it: never moves
    positions.reserve(top.size());
    unitStart.reserve(top.size() + 1);
    for (std::size_t p = 0; p < top.size(); ++p) {
        if (spent(p)) continue;
        const RowRole role = ClassifyRow(*lines[p], items);
        const bool attaches =
            role == RowRole::Discount || (role == RowRole::BlankOrDesc && settings.keepBlankItems);
        if (!attaches || unitStart.empty()) {
            unitStart.push_back(positions.size());
            // A discount with no line above it discounts nothing; moved under a line it would
            // discount that line and change the total, so it stays where it is. So does a kept
            // blank or description line with nothing above it (moved, it would join the line
            // above it when sorted again), and the empty line a discount applies to.
            fixed.push_back(role == RowRole::Subtotal || role == RowRole::Discount || attaches ||
                            (empty(p) && aboveDiscount(p)));
        }
        positions.push_back(p);
    }
    const std::size_t unitCount = unitStart.size();
    unitStart.push_back(positions.size());

    log("Do Back Ground Sort count=" + std::to_string(keys.size()));
    // Each run of movable units between fixed ones is sorted by the key of its first line.
    std::vector<SortEntry> order;
    order.reserve(unitCount);
    for (std::size_t u = 0; u < unitCount;) {
        if (fixed[u]) {
            order.push_back({0, nullptr, 0, static_cast<std::uint32_t>(u++)});
            continue;
        }
        const std::size_t sectionStart = order.size();
        for (; u < unitCount && !fixed[u]; ++u)
            order.push_back(EntryOf(keys[positions[unitStart[u]]], u));
        std::stable_sort(order.begin() + static_cast<std::ptrdiff_t>(sectionStart), order.end());
    }

    auto addBlanks = [&](BlankLines where, int have) {
        if (settings.blankLines != where) return;
        for (int i = have; i < blanks; ++i) plan.steps.push_back({PlanStep::Kind::Blank, 0, false});
    };
    plan.steps.reserve(positions.size());
    for (const SortEntry& entry : order) {
        // The empty line kept above a discount counts as one of the blank lines before it, as
        // it would be after a sort that put new ones there.
        const std::size_t head = positions[unitStart[entry.unit]];
        addBlanks(BlankLines::Before, fixed[entry.unit] && empty(head) ? 1 : 0);
        for (std::size_t i = unitStart[entry.unit]; i < unitStart[entry.unit + 1]; ++i)
            plan.steps.push_back(
                {PlanStep::Kind::Row, top[positions[i]], i == unitStart[entry.unit]});
        addBlanks(BlankLines::After, 0);
    }
    log("Do Back Groupd End of Sort");

    FillLineWeights(table, first, count, settings, items, kind, txnID, plan, debug);
    return plan;
}

}  // namespace pelmark::sort
