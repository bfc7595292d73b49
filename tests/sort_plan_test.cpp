// Tests of the sort plan: units that move together, subtotal sections, blank lines, line
// weights, and a seeded random check of the plan's invariants.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <string>
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
        TxnLine end;
        end.lineType = qb::kLineGroupEnd;
        end.group = group;
        end.itemFullName = item;
        rows.push_back(end);
        return group;
    }
    void Item(std::string name, int kind, std::string price = {},
              std::vector<std::pair<std::string, std::string>> fields = {}) {
        ItemRec rec;
        rec.fullName = name;
        rec.kind = kind;
        rec.price = std::move(price);
        rec.customFields = std::move(fields);
        items[name] = std::move(rec);
    }
    ItemLookup Lookup() const {
        return [this](const std::string& name) -> const ItemRec* {
            const auto it = items.find(name);
            return it == items.end() ? nullptr : &it->second;
        };
    }
    SortPlan Plan(const SortSettings& settings, qb::TxnKind kind = qb::TxnKind::Invoice) const {
        return BuildSortPlan(rows, 0, rows.size(), settings, Lookup(), kind, "T1");
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

TEST(SortPlan, UnitsAndSections) {
    struct Case {
        const char* name;
        Table table;
        bool keepBlank;
        std::string expected;
    };
    std::vector<Case> cases;
    {
        Table t;
        t.Add("Z");
        t.Group("K", {"m2", "m1"});
        t.Add("A");
        cases.push_back({"a group moves whole, keyed by its group row", t, false, "|A|K|Z"});
    }
    {
        Table t;
        t.Add("Z");
        t.rows[t.Add("D")].ratePercent = "-10.0";
        t.Add("A");
        t.Add("C");
        t.Add("Off");
        t.Item("Off", kItemDiscount, "-5%");
        t.Item("Flat", kItemDiscount, "-5.00");
        t.Add("Flat");
        cases.push_back({"percentage discounts follow their line", t, false, "|A|COff|Flat|ZD"});
    }
    {
        Table t;
        t.Add("C");
        t.Add("A");
        t.Add("Sub");
        t.rows[t.Add("P")].ratePercent = "5";
        t.Add("D");
        t.Add("B");
        t.Add("Other:Subtotal");  // not in the item table: known by its name
        t.Add("0");
        t.Item("Sub", kItemSubtotal);
        cases.push_back(
            {"subtotals stay and bound the sections", t, false, "|A|C|SubP|B|D|Other:Subtotal|0"});
    }
    {
        Table t;
        t.Add("C");
        t.Add("", "0", qb::kLineBlank);
        t.Add("", "0", qb::kLineDescOnly);
        t.Add("A");
        cases.push_back(
            {"blank and description lines stay with the line above", t, true, "|A|C--"});
        cases.push_back({"or sort by their own keys", t, false, "|-|-|A|C"});
    }
    for (const Case& c : cases) {
        SortSettings settings = ByItem(c.keepBlank);
        EXPECT_EQ(Layout(c.table.Plan(settings), c.table), c.expected) << c.name;
    }
}

TEST(SortPlan, BlankLines) {
    Table t;
    t.Add("B");
    t.rows[t.Add("D")].ratePercent = "10";
    t.Add("A");
    struct Case {
        BlankLines where;
        int count;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {BlankLines::None, 2, "|A|BD"},      {BlankLines::Before, 0, "|A|BD"},
        {BlankLines::After, 0, "|A|BD"},     {BlankLines::Before, 1, "_|A_|BD"},
        {BlankLines::After, 2, "|A__|BD__"}, {BlankLines::Before, -3, "|A|BD"},
    };
    for (const Case& c : cases) {
        SortSettings s = ByItem();
        s.blankLines = c.where;
        s.blankCount = c.count;
        EXPECT_EQ(Layout(t.Plan(s), t), c.expected) << static_cast<int>(c.where) << c.count;
    }
}

TEST(SortPlan, DebugLines) {
    Table t;
    t.Add("B");
    t.Group("K", {"m"});
    std::vector<std::string> seen;
    const SortPlan plan =
        BuildSortPlan(t.rows, 0, t.rows.size(), ByItem(), t.Lookup(), qb::TxnKind::Invoice, "T1",
                      [&](const std::string& s) { seen.push_back(s); });
    const std::vector<std::string> expected = {
        "Do back Ground Taxes Etc - LineCollection count 2",
        "DBG, Line 0",
        "DBG, NExt Line",
        "DBG, Line 1",
        "DBG, NExt Line",
        "Do Back Ground Sort count=2",
        "Do Back Groupd End of Sort",
        "Fill AR With Line Weights Entered ",
        "Fill AR With Line Weights Exit 0",
    };
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(plan.debugLines, expected);
}

TEST(SortWeights, LineWeights) {
    Table t;
    t.Item("Bolt", kItemInventory, "", {{"Color", "x"}, {"NetWt", "1.333"}});
    t.Item("Nut", kItemInventory, "", {{"NetWt", "0.5 lb"}});
    t.Item("Labor", kItemService);
    t.rows[t.Add("Bolt")].quantity = "2.5";
    t.rows[t.Add("Labor")].quantity = "3";    // no weight field: 0
    t.rows[t.Add("Unknown")].quantity = "3";  // not in the lists: 0
    t.Add("", "0", qb::kLineBlank);           // nothing to weigh
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
                                        "T1|L5|LineWt|2", "T1|L6|LineWt|0.5"}));
    EXPECT_DOUBLE_EQ(plan.weightTotal, 5.83);
    EXPECT_EQ(plan.debugLines.back(), "Fill AR With Line Weights Exit 5.83");

    for (qb::TxnKind kind : {qb::TxnKind::Estimate, qb::TxnKind::SalesReceipt})
        EXPECT_EQ(t.Plan(s, kind).weights.size(), 5u);
    EXPECT_TRUE(t.Plan(s, qb::TxnKind::SalesOrder).weights.empty());
    s.netWeightTotalField.clear();
    EXPECT_TRUE(t.Plan(s).weights.empty());
}

// Random line tables and settings: the plan holds every row once, keeps units contiguous and
// leaves subtotals in place (SortProperty checks the sections' sums through qbsim).
TEST(SortPlan, RandomTablesKeepTheirInvariants) {
    std::mt19937 rng(20261114);
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    const std::vector<std::string> fields = {"",         "Amount", "Item Name", "Item Full Name",
                                             "Desc",     "Class",  "Qty",       "Price",
                                             "Tax Code", "Other1", "Other2",    "Color"};
    for (int round = 0; round < 500; ++round) {
        Table t;
        t.Item("Sub", kItemSubtotal);
        t.Item("Pct", kItemDiscount, "-10%");
        const int entries = pick(16);
        for (int e = 0; e < entries; ++e) {
            const int kind = pick(10);
            std::size_t row;
            if (kind == 0) {
                row = t.Group("G" + std::to_string(pick(4)),
                              std::vector<std::string>(1 + pick(3), "M"));
            } else if (kind == 1) {
                row = t.Add("", "0", pick(2) ? qb::kLineBlank : qb::kLineDescOnly);
            } else if (kind == 2) {
                row = t.Add(pick(2) ? "Pct" : "Any", std::to_string(-pick(5)));
                if (t.rows[row].itemFullName == "Any") t.rows[row].ratePercent = "-5";
            } else if (kind == 3) {
                row = t.Add("Sub");
            } else {
                row = t.Add("Parts:I" + std::to_string(pick(5)), std::to_string(pick(100)));
            }
            TxnLine& line = t.rows[row];
            line.desc = std::string(1, static_cast<char>('a' + pick(3)));
            line.quantity = std::to_string(pick(12));
            line.salesTaxCodeFullName = pick(2) ? "" : "Tax";
            line.customFields = {{"Color", pick(2) ? "red" : "Blue"}};
        }
        SortSettings s;
        for (int l = pick(5); l > 0; --l)
            s.levels.push_back(
                {fields[static_cast<std::size_t>(pick(12))], pick(2) == 1, pick(2) == 1});
        s.keepBlankItems = pick(2);
        s.blankLines = static_cast<BlankLines>(pick(3));
        s.blankCount = pick(3);
        const SortPlan plan = t.Plan(s);
        SCOPED_TRACE("round " + std::to_string(round));

        // The rows in their new order, groups expanded as the write-back appends them.
        std::vector<std::size_t> order;
        std::vector<std::size_t> topOrder;
        for (const PlanStep& step : plan.steps) {
            if (step.kind == PlanStep::Kind::Blank) continue;
            topOrder.push_back(step.row);
            order.push_back(step.row);
            for (std::size_t i = step.row + 1;
                 t.rows[step.row].IsGroup() && i < t.rows.size() && t.rows[i].group == step.row;
                 ++i)
                order.push_back(i);
        }
        std::vector<int> seen(t.rows.size(), 0);
        for (std::size_t r : order) ++seen[r];
        ASSERT_EQ(seen, std::vector<int>(t.rows.size(), 1));

        const std::vector<std::size_t> top = TopLevelRows(t.rows, 0, t.rows.size());
        const ItemLookup items = t.Lookup();
        std::vector<std::size_t> newIndex(t.rows.size());
        for (std::size_t i = 0; i < topOrder.size(); ++i) newIndex[topOrder[i]] = i;
        for (std::size_t p = 0; p < top.size(); ++p) {
            const RowRole role = ClassifyRow(t.rows[top[p]], items);
            if (role == RowRole::Subtotal) {
                EXPECT_EQ(newIndex[top[p]], p);
            }
            const bool attached =
                role == RowRole::Discount || (role == RowRole::BlankOrDesc && s.keepBlankItems);
            if (attached && p > 0) {
                // Directly after the line above, with no blank line between.
                const auto it =
                    std::find_if(plan.steps.begin(), plan.steps.end(), [&](const PlanStep& st) {
                        return st.kind == PlanStep::Kind::Row && st.row == top[p];
                    });
                ASSERT_NE(it, plan.steps.begin());
                EXPECT_EQ(std::prev(it)->kind, PlanStep::Kind::Row);
                EXPECT_EQ(std::prev(it)->row, top[p - 1]);
            }
        }
    }
}

}  // namespace
}  // namespace pelmark::sort
