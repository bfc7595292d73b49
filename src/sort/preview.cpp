// Lays out the planned order for the user to look at before anything is written.
#include "sort/preview.h"

#include <algorithm>

namespace pelmark::sort {

std::vector<PreviewRow> PreviewRows(const std::vector<qb::TxnLine>& table, std::size_t first,
                                    std::size_t count, const SortPlan& plan) {
    const std::vector<std::size_t> top = TopLevelRows(table, first, count);
    std::vector<PreviewRow> rows;
    rows.reserve(plan.steps.size());
    for (const PlanStep& step : plan.steps) {
        PreviewRow& r = rows.emplace_back();
        if (step.kind == PlanStep::Kind::Blank) continue;
        const qb::TxnLine& line = table[step.row];
        r.oldPosition =
            static_cast<std::size_t>(std::find(top.begin(), top.end(), step.row) - top.begin()) + 1;
        r.item = line.itemFullName;
        r.desc = line.desc;
        r.quantity = line.quantity;
        r.amount = line.amount;
    }
    return rows;
}

std::vector<std::vector<std::string>> PreviewCells(const std::vector<PreviewRow>& rows) {
    std::vector<std::vector<std::string>> cells = {
        {"new", "old", "item", "description", "qty", "amount"}};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const PreviewRow& r = rows[i];
        const bool blank = r.oldPosition == 0;
        cells.push_back({std::to_string(i + 1), blank ? "new" : std::to_string(r.oldPosition),
                         blank ? "(blank line)" : r.item, r.desc, r.quantity, r.amount});
    }
    return cells;
}

std::string PreviewTable(const std::vector<PreviewRow>& rows) {
    // Positions right-aligned, texts cut to their column with "~"; the amount runs on.
    constexpr int kWidths[] = {5, 4, 24, 30, 8, 0};
    constexpr const char* kGaps[] = {"", " ", "  ", " ", " ", " "};
    std::string out;
    for (const std::vector<std::string>& row : PreviewCells(rows)) {
        for (std::size_t c = 0; c < row.size(); ++c) {
            std::string text = row[c];
            const std::size_t width = static_cast<std::size_t>(kWidths[c]);
            if (width > 0 && text.size() > width) text = text.substr(0, width - 1) + "~";
            if (c < 2 && text.size() < width) text.insert(0, width - text.size(), ' ');
            if (c >= 2 && width > 0) text.resize(width, ' ');
            out += kGaps[c] + text;
        }
        out += "\n";
    }
    return out;
}

}  // namespace pelmark::sort
