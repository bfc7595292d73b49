// Groups the top-level lines into units that move together, sorts them within the sections
// between subtotals, and lays out the plan with its blank lines.
#include <algorithm>

#include "app/text.h"
#include "sort/engine.h"

namespace pelmark::sort {

namespace {

// Lines that travel together; positions index the top-level lines.
struct Unit {
    std::vector<std::size_t> positions;
    bool fixed = false;  // a subtotal and what is attached to it: never moves
};

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
    const std::vector<std::string> keys = BuildSortKeys(lines, settings, log);

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
        // discount that line and change the total, so it stays where it is. So does a kept
        // blank or description line with nothing above it: moved, it would join the line above
        // it when sorted again.
        const bool fixed = role == RowRole::Subtotal || role == RowRole::Discount || attaches ||
                           (empty(p) && aboveDiscount(p));
        units.push_back({{p}, fixed});
    }

    log("Do Back Ground Sort count=" + std::to_string(keys.size()));
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
                             return keys[units[a].positions.front()] <
                                    keys[units[b].positions.front()];
                         });
    }

    auto addBlanks = [&](BlankLines where, int have) {
        if (settings.blankLines != where) return;
        for (int i = have; i < blanks; ++i) plan.steps.push_back({PlanStep::Kind::Blank, 0, false});
    };
    for (std::size_t u : order) {
        // The empty line kept above a discount counts as one of the blank lines before it, as
        // it would be after a sort that put new ones there.
        const std::size_t head = units[u].positions.front();
        addBlanks(BlankLines::Before, units[u].fixed && empty(head) ? 1 : 0);
        bool startOfUnit = true;
        for (std::size_t p : units[u].positions) {
            plan.steps.push_back({PlanStep::Kind::Row, top[p], startOfUnit});
            startOfUnit = false;
        }
        addBlanks(BlankLines::After, 0);
    }
    log("Do Back Groupd End of Sort");

    FillLineWeights(table, first, count, settings, items, kind, txnID, plan, debug);
    return plan;
}

}  // namespace pelmark::sort
