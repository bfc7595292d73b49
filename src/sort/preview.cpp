// Lays out the planned order for the user to look at before anything is written.
#include "sort/preview.h"

#include <algorithm>
#include <cstdio>

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

std::string PreviewTable(const std::vector<PreviewRow>& rows) {
    auto cell = [](std::string text, std::size_t width) {
        if (text.size() > width) text = text.substr(0, width - 1) + "~";
        text.resize(width, ' ');
        return text;
    };
    std::string out = "  new  old  " + cell("item", 24) + " " + cell("description", 30) + " " +
                      cell("qty", 8) + " amount\n";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const PreviewRow& r = rows[i];
        char positions[32];
        if (r.oldPosition == 0)
            std::snprintf(positions, sizeof positions, "%5zu  new", i + 1);
        else
            std::snprintf(positions, sizeof positions, "%5zu %4zu", i + 1, r.oldPosition);
        out += std::string(positions) + "  " + cell(r.oldPosition ? r.item : "(blank line)", 24) +
               " " + cell(r.desc, 30) + " " + cell(r.quantity, 8) + " " + r.amount + "\n";
    }
    return out;
}

}  // namespace pelmark::sort
