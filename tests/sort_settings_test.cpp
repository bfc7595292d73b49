// Tests of reading the sort settings from the main form and planning a queried transaction.
#include <gtest/gtest.h>

#include <algorithm>

#include "fakes/fakes.h"
#include "sort/engine.h"
#include "ui/frmMain.h"

namespace pelmark::sort {
namespace {

void Select(ui::Control& combo, const std::string& entry) {
    const auto it = std::find(combo.list.begin(), combo.list.end(), entry);
    ASSERT_NE(it, combo.list.end()) << entry;
    combo.listIndex = static_cast<int>(it - combo.list.begin());
}

TEST(SortSettings, ReadFromTheMainForm) {
    ui::Form form = ui::MakeMainFormModel();
    SortSettings s = ReadSortSettings(form);
    EXPECT_EQ(s.levels.size(), static_cast<std::size_t>(ui::kSortLevels));
    EXPECT_EQ(s.blankLines, BlankLines::None);

    Select(*form.Find("cboSortField", 1), "Desc");
    form.Find("chkSortDesc", 1)->value = 1;
    form.Find("chkSortCaseSensitive", 1)->value = 1;
    form.Find("chkKeepBlankItems")->value = 1;
    form.SetOption(*form.Find("optBlankLinesAfter"), true);
    form.Find("txtBlankLines")->text = " 99999";
    form.Find("cboCFNetWeight")->text = "NetWt";
    form.Find("cboCFItemNetWeightTotal")->text = "LineWt";
    s = ReadSortSettings(form);
    ASSERT_EQ(ActiveLevels(s.levels).size(), 1u);
    EXPECT_EQ(s.levels[1].field, "Desc");
    EXPECT_TRUE(s.levels[1].descending);
    EXPECT_TRUE(s.levels[1].caseSensitive);
    EXPECT_TRUE(s.keepBlankItems);
    EXPECT_EQ(s.blankLines, BlankLines::After);
    EXPECT_EQ(s.blankCount, 32767);  // kept as a 16-bit number
    EXPECT_EQ(s.netWeightField, "NetWt");
    EXPECT_EQ(s.netWeightTotalField, "LineWt");
}

TEST(SortSettings, PlansOneQueriedTransaction) {
    test::TestApp t;
    qb::TxnState& txn = t.app.qb.txn;
    for (const char* item : {"Q", "P", "C", "A", "B"}) {
        qb::TxnLine line;
        line.lineType = qb::kLineItem;
        line.itemFullName = item;
        txn.lines.push_back(line);
    }
    txn.txns.resize(2);
    txn.txns[0].lineCount = 2;
    txn.txns[1].firstLine = 2;
    txn.txns[1].lineCount = 3;
    txn.txns[1].txnID = "T2";
    ui::Form form = ui::MakeMainFormModel();
    Select(*form.Find("cboSortField", 0), "Item Full Name");
    const SortPlan plan = PlanTransactionSort(t.app, form, qb::TxnKind::Invoice, 1);
    std::vector<std::size_t> rows;
    for (const PlanStep& step : plan.steps) rows.push_back(step.row);
    EXPECT_EQ(rows, (std::vector<std::size_t>{3, 4, 2}));
    EXPECT_TRUE(PlanTransactionSort(t.app, form, qb::TxnKind::Invoice, 2).steps.empty());
}

}  // namespace
}  // namespace pelmark::sort
