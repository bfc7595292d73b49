// Computes the net weight of each transaction line from its item's weight field and quantity.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "sort/engine.h"

namespace pelmark::sort {

std::string WeightEntry::Text() const {
    return txnID + "|" + txnLineID + "|" + field + "|" + value;
}

std::string FormatWeight(double value) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.2f", value);
    std::string text = buf;
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
    if (text == "-0") text = "0";
    return text;
}

double LeadingNumber(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    if (i < text.size() && text[i] == '+') ++i;
    double value = 0;
    const char* begin = text.data() + i;
    const auto result = std::from_chars(begin, text.data() + text.size(), value);
    return result.ec == std::errc{} && std::isfinite(value) ? value : 0;
}

void FillLineWeights(const std::vector<qb::TxnLine>& table, std::size_t first, std::size_t count,
                     const SortSettings& settings, const ItemLookup& items, qb::TxnKind kind,
                     const std::string& txnID, SortPlan& plan, const DebugSink& debug) {
    auto log = [&](const std::string& text) {
        plan.debugLines.push_back(text);
        if (debug) debug(text);
    };
    log("Fill AR With Line Weights Entered ");
    double total = 0;
    // Sales orders are not weighed; neither are kinds that are never sorted. Without a field
    // to receive them no weight is recorded, so no item is looked up either.
    const bool weighed = !settings.netWeightTotalField.empty() &&
                         (kind == qb::TxnKind::Invoice || kind == qb::TxnKind::SalesReceipt ||
                          kind == qb::TxnKind::Estimate);
    const std::size_t end = std::min(table.size(), first + count);
    for (std::size_t i = first; weighed && i < end; ++i) {
        const qb::TxnLine& line = table[i];
        // Group rows and closing rows carry no weight of their own; their members do. Lines
        // without an item (blank, description only) have nothing to weigh.
        if (line.IsGroup() || line.IsGroupEnd() || line.itemFullName.empty()) continue;
        double itemWeight = 0;
        if (const ItemRec* item = items ? items(line.itemFullName) : nullptr) {
            for (const auto& [name, value] : item->customFields) {
                if (name == settings.netWeightField) {
                    itemWeight = LeadingNumber(value);
                    break;
                }
            }
        }
        const double weight = std::round(itemWeight * LeadingNumber(line.quantity) * 100) / 100;
        plan.weights.push_back(
            {txnID, line.txnLineID, settings.netWeightTotalField, FormatWeight(weight)});
        total += weight;
    }
    plan.weightTotal = std::round(total * 100) / 100;
    log("Fill AR With Line Weights Exit " + FormatWeight(plan.weightTotal));
}

}  // namespace pelmark::sort
