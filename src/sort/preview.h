// The new order of a transaction's lines as the user sees it before it is written.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "sort/engine.h"

namespace pelmark::sort {

// One line of the new order. oldPosition counts the transaction's top-level lines from 1; an
// added blank line has 0.
struct PreviewRow {
    std::size_t oldPosition = 0;
    std::string item, desc, quantity, amount;
};

// The lines of `plan` (for rows [first, first + count) of `table`) in their new order.
std::vector<PreviewRow> PreviewRows(const std::vector<qb::TxnLine>& table, std::size_t first,
                                    std::size_t count, const SortPlan& plan);

// The rows as cells of a list, headings first: new and old position ("new" for an added blank
// line), item, description, qty, amount.
std::vector<std::vector<std::string>> PreviewCells(const std::vector<PreviewRow>& rows);

// The rows as a table for a terminal: new and old position, item, description, qty, amount.
std::string PreviewTable(const std::vector<PreviewRow>& rows);

// Shown the new order before the modify; true writes it, false leaves the transaction as it is.
using PreviewHook = std::function<bool(const std::vector<PreviewRow>&)>;

}  // namespace pelmark::sort
