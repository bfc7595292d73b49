// Reads the sort settings from the main form and plans the sort of a queried transaction.
#include <charconv>
#include <cstdint>

#include "app/context.h"
#include "app/logs.h"
#include "qb/qbCommon.h"
#include "sort/engine.h"
#include "ui/form.h"

namespace pelmark::sort {

namespace {

// txtBlankLines is read as a number and kept as a 16-bit integer.
int BlankCount(const std::string& text) {
    std::size_t i = text.find_first_not_of(' ');
    if (i == std::string::npos) return 0;
    long value = 0;
    std::from_chars(text.data() + i, text.data() + text.size(), value);
    if (value < 0) return 0;
    return value > INT16_MAX ? INT16_MAX : static_cast<int>(value);
}

}  // namespace

SortSettings ReadSortSettings(const ui::Form& form) {
    SortSettings s;
    for (int i = 0; i < static_cast<int>(kMaxSortLevels) && form.Find("cboSortField", i); ++i)
        s.levels.push_back({form.ComboText("cboSortField", i), form.Checked("chkSortDesc", i),
                            form.Checked("chkSortCaseSensitive", i)});
    s.keepBlankItems = form.Checked("chkKeepBlankItems");
    if (form.Checked("optBlankLinesBefore"))
        s.blankLines = BlankLines::Before;
    else if (form.Checked("optBlankLinesAfter"))
        s.blankLines = BlankLines::After;
    s.blankCount = BlankCount(form.Text("txtBlankLines"));
    s.netWeightField = form.ComboText("cboCFNetWeight");
    s.netWeightTotalField = form.ComboText("cboCFItemNetWeightTotal");
    return s;
}

SortPlan PlanTransactionSort(App& app, const ui::Form& mainForm, qb::TxnKind kind,
                             std::size_t txnIndex, ItemLookup items) {
    const qb::TxnState& txn = app.qb.txn;
    if (txnIndex >= txn.txns.size()) return {};
    const qb::TxnHeader& header = txn.txns[txnIndex];
    if (!items) items = [&app](const std::string& fullName) { return qb::FindItem(app, fullName); };
    const DebugSink debug = [&app](const std::string& text) { DebugLog(app, text, 5); };
    return BuildSortPlan(txn.lines, header.firstLine, header.lineCount, ReadSortSettings(mainForm),
                         items, kind, header.txnID, debug);
}

}  // namespace pelmark::sort
