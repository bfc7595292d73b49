// Tests of the sort plan: units that move together, subtotal sections, blank lines and line
// weights (the property test checks the invariants on random transactions through qbsim).
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "sort/engine.h"

namespace pelmark::sort {
namespace {

using qb::TxnLine;

struct Table {
    std::vector<TxnLine> rows;
    std::map<std::string, ItemRec> items;

    std::size_t Add(std::string item, std::string amount = "0", std::string type = qb::kLineItem) {
        TxnLine line;
        line.lineType = std::move(type);
        line.itemFullName = std::move(item);
        line.amount = std::move(amount);
        line.txnLineID = "L" + std::to_string(rows.size());
        rows.push_back(std::move(line));
        return rows.size() - 1;
    }
    // A group row, its members and its closing row; returns the group row.
    std::size_t Group(std::string item, const std::vector<std::string>& members) {
        const std::size_t group = Add(item, "0", qb::kLineGroup);
        for (const std::string& m : members) rows[Add(m, "1")].group = group;
        rows[Add(item, "", qb::kLineGroupEnd)].group = group;
        return group;
    }
    void Item(std::string name, int kind, std::string price = {},
              std::vector<std::pair<std::string, std::string>> fields = {}) {
        ItemRec& rec = items[name];
        rec.fullName = name;
        rec.kind = kind;
        rec.price = std::move(price);
        rec.customFields = std::move(fields);
    }
    SortPlan Plan(const SortSettings& settings, qb::TxnKind kind = qb::TxnKind::Invoice) const {
        const ItemLookup lookup = [this](const std::string& name) -> const ItemRec* {
            return items.contains(name) ? &items.at(name) : nullptr;
        };
        return BuildSortPlan(rows, 0, rows.size(), settings, lookup, kind, "T1");
    }
};

SortSettings ByItem(bool keepBlank = false) {
    SortSettings s;
    s.levels = {{"Item Full Name"}};
    s.keepBlankItems = keepBlank;
    return s;
}

// The plan as text: item names of the rows, "_" for a blank line, "|" before each unit.
std::string Layout(const SortPlan& plan, const Table& t) {
    std::string text;
    for (const PlanStep& step : plan.steps) {
        if (step.kind == PlanStep::Kind::Blank) {
            text += "_";
            continue;
        }
        if (step.unitStart) text += "|";
        const std::string& item = t.rows[step.row].itemFullName;
        text += item.empty() ? "-" : item;
    }
    return text;
}

// Groups move whole, keyed by their group row; percentage discounts (by the line's rate or the
// item's price) follow their line; subtotals stay and bound the sections; blank and description
// lines stay with the line above, or sort by their own keys.
TEST(SortPlan, UnitsAndSections) {
    Table t;
    t.Add("Z");
    t.rows[t.Add("D")].ratePercent = "-10.0";
    t.Group("K", {"m2", "m1"});
    for (const char* item : {"A", "C", "Off", "Flat", "Sub"}) t.Add(item);
    t.rows[t.Add("P")].ratePercent = "5";
    t.Add("E");
    t.Add("", "0", qb::kLineBlank);
    t.Add("", "0", qb::kLineDescOnly);
    t.Add("B");
    t.Add("Other:Subtotal");  // not in the item table: known by its name
    t.Add("0");
    t.Item("Off", kItemDiscount, "-5%");
    t.Item("Flat", kItemDiscount, "-5.00");
    t.Item("Sub", kItemSubtotal);
    EXPECT_EQ(Layout(t.Plan(ByItem(true)), t), "|A|COff|Flat|K|ZD|SubP|B|E--|Other:Subtotal|0");
    EXPECT_EQ(Layout(t.Plan(ByItem(false)), t), "|A|COff|Flat|K|ZD|SubP|-|-|B|E|Other:Subtotal|0");
}

TEST(SortPlan, BlankLines) {
    Table t;
    t.Add("B");
    t.rows[t.Add("D")].ratePercent = "10";
    t.Add("A");
    t.Add("", "", qb::kLineBlank);  // an earlier sort's: gone when new ones come in
    const std::tuple<BlankLines, int, std::string> cases[] = {
        // where, how many, the plan
        {BlankLines::None, 2, "|-|A|BD"},    {BlankLines::Before, 0, "|-|A|BD"},
        {BlankLines::After, 0, "|-|A|BD"},   {BlankLines::Before, 1, "_|A_|BD"},
        {BlankLines::After, 2, "|A__|BD__"}, {BlankLines::Before, -3, "|-|A|BD"},
    };
    for (const auto& [where, count, expected] : cases) {
        SortSettings s = ByItem();
        s.blankLines = where;
        s.blankCount = count;
        EXPECT_EQ(Layout(t.Plan(s), t), expected) << static_cast<int>(where) << count;
    }
}

TEST(SortWeights, LineWeights) {
    Table t;
    t.Item("Bolt", kItemInventory, "", {{"Color", "x"}, {"NetWt", "1.333"}});
    t.Item("Nut", kItemInventory, "", {{"NetWt", "0.5 lb"}});
    t.Item("Labor", kItemService);
    t.Item("Washer", kItemInventory, "", {{"NetWt", "about 2"}});  // not a number: 0
    t.rows[t.Add("Bolt")].quantity = "2.5";
    t.rows[t.Add("Labor")].quantity = "3";    // no weight field: 0
    t.rows[t.Add("Unknown")].quantity = "3";  // not in the lists: 0
    t.rows[t.Add("Washer")].quantity = "2";
    t.Add("", "0", qb::kLineBlank);  // nothing to weigh
    const std::size_t g = t.Group("Kit", {"Nut", "Nut"});
    t.rows[g + 1].quantity = "4";
    t.rows[g + 2].quantity = "1";

    SortSettings s = ByItem();
    s.netWeightField = "NetWt";
    s.netWeightTotalField = "LineWt";
    const SortPlan plan = t.Plan(s);
    std::vector<std::string> entries;
    for (const WeightEntry& e : plan.weights) entries.push_back(e.Text());
    EXPECT_EQ(entries,
              (std::vector<std::string>{"T1|L0|LineWt|3.33", "T1|L1|LineWt|0", "T1|L2|LineWt|0",
                                        "T1|L3|LineWt|0", "T1|L6|LineWt|2", "T1|L7|LineWt|0.5"}));
    EXPECT_DOUBLE_EQ(plan.weightTotal, 5.83);
    EXPECT_EQ(plan.debugLines.back(), "Fill AR With Line Weights Exit 5.83");

    EXPECT_TRUE(t.Plan(s, qb::TxnKind::SalesOrder).weights.empty());
    s.netWeightTotalField.clear();
    EXPECT_TRUE(t.Plan(s).weights.empty());
}

}  // namespace
}  // namespace pelmark::sort
