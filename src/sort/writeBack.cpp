// The sort body after the order is known: the modify that re-lists every line in the new order,
// the lines' custom fields and weights, the check of what came back, and the display request.
#include <map>

#include "app/context.h"
#include "app/logs.h"
#include "app/run.h"
#include "qb/qbCommon.h"
#include "sort/engine.h"
#include "sort/preview.h"

namespace pelmark::sort {

namespace {

// The custom-field values of the new lines: the queried lines' own values and the weights,
// matched to the lines the modify's answer gives back, position by position.
struct LineValues {
    std::vector<qb::DataExtOptions> writes;
    // By expected row: the weights written over the queried values, for the check.
    std::vector<std::vector<qb::TxnCustomField>> weights;
};

LineValues NewLineValues(const std::vector<qb::TxnLine>& expected,
                         const std::vector<qb::TxnLine>& answered, const SortPlan& plan,
                         const std::string& txnID, const qb::TxnKindInfo& k) {
    LineValues v;
    v.weights.resize(expected.size());
    std::map<std::string, std::vector<const WeightEntry*>> weightsByLine;
    for (const WeightEntry& w : plan.weights) weightsByLine[w.txnLineID].push_back(&w);

    std::vector<const qb::TxnLine*> rows;
    for (const qb::TxnLine& row : answered)
        if (!row.IsGroupEnd()) rows.push_back(&row);
    for (std::size_t i = 0; i < expected.size() && i < rows.size(); ++i) {
        const qb::TxnLine& was = expected[i];
        const std::string& newID = rows[i]->txnLineID;
        if (was.lineType == qb::kLineBlank || newID.empty()) continue;
        std::vector<qb::TxnCustomField> values = was.customFields;
        if (auto w = weightsByLine.find(was.txnLineID);
            !was.txnLineID.empty() && w != weightsByLine.end())
            for (const WeightEntry* e : w->second) {
                v.weights[i].push_back({e->field, e->value});
                bool replaced = false;
                for (qb::TxnCustomField& f : values)
                    if (f.name == e->field) f.value = e->value, replaced = true;
                if (!replaced) values.push_back({e->field, e->value});
            }
        // The new line may hold its item's values already (QuickBooks gives a new line the
        // item's custom fields): one that is right stays, another is written over (the add
        // falls back to a modify), and one the line did not have is deleted.
        const std::vector<qb::TxnCustomField>& held = rows[i]->customFields;
        auto valueIn = [](const std::vector<qb::TxnCustomField>& in, const std::string& name) {
            for (const qb::TxnCustomField& f : in)
                if (f.name == name && !f.value.empty()) return &f.value;
            return static_cast<const std::string*>(nullptr);
        };
        auto write = [&](const std::string& name, const std::string& value) {
            qb::DataExtOptions o;
            o.fieldName = name;
            o.value = value;
            o.txnID = txnID;
            o.kind = k.name;
            o.lineID = newID;
            o.fallBackToMod = true;
            o.deleteWhenEmpty = value.empty();
            v.writes.push_back(std::move(o));
        };
        for (const qb::TxnCustomField& f : values) {
            const std::string* has = valueIn(held, f.name);
            if (!f.value.empty() && (!has || *has != f.value)) write(f.name, f.value);
        }
        for (const qb::TxnCustomField& f : held)
            if (!f.value.empty() && !valueIn(values, f.name)) write(f.name, "");
    }
    return v;
}

// Whether a custom field is assigned to items: QuickBooks then gives each new line its item's
// value, which the modify's answer does not show (a modify names no OwnerID).
bool ItemFieldsDefined(const App& app) {
    for (const qb::DataExtDef& d : app.qb.dataExtDefs)
        for (const std::string& to : d.assignToObject)
            if (to == "Item") return true;
    return false;
}

// The lines the modify made: from a query with their custom fields when items carry custom
// fields, otherwise (or when that query fails) from the modify's answer.
std::vector<qb::TxnLine> AnsweredLines(App& app, qb::TxnKind kind,
                                       const qb::DoRequestResult& modified,
                                       const std::string& txnID) {
    std::vector<qb::TxnLine> answered;
    if (ItemFieldsDefined(app) && !app.frmMain.Checked("chkSKIPCFs")) {
        qb::TxnQueryOptions query;
        query.txnID = txnID;
        if (qb::TxnQuerySub(app, kind, query) && app.qb.txn.txns.size() == 1)
            return app.qb.txn.lines;
    }
    if (modified.responseSet && modified.responseSet->ResponseList().Count() > 0) {
        const qb::View ret = qb::ReturnedTxn(modified.responseSet->ResponseList().GetAt(0), kind);
        if (ret) qb::ReadTxn(app, kind, ret, answered);
    }
    return answered;
}

// Writes the values, all in one request set or one request each. False when one failed.
bool WriteCustomFields(App& app, const std::vector<qb::DataExtOptions>& writes) {
    if (app.frmMain.Checked("chkCombineCFs")) return qb::DataExtAddTxns(app, writes);
    bool ok = true;
    for (const qb::DataExtOptions& o : writes) ok = qb::DataExtAddTxn(app, o) && ok;
    return ok;
}

// The check: the transaction queried again must hold what was sent.
std::vector<std::string> CheckTransaction(App& app, qb::TxnKind kind, const qb::TxnHeader& before,
                                          const std::vector<qb::TxnLine>& expected,
                                          const CheckOptions& options) {
    qb::TxnQueryOptions query;
    query.txnID = before.txnID;
    if (!qb::TxnQuerySub(app, kind, query) || app.qb.txn.txns.size() != 1)
        return {"the transaction could not be queried again after the modify"};
    const qb::TxnHeader& after = app.qb.txn.txns.front();
    const std::vector<qb::TxnLine> lines(
        app.qb.txn.lines.begin() + static_cast<std::ptrdiff_t>(after.firstLine),
        app.qb.txn.lines.begin() + static_cast<std::ptrdiff_t>(after.firstLine + after.lineCount));
    std::vector<std::string> problems = CompareLines(expected, lines, options);
    for (std::string& p : CompareTotals(before, after)) problems.push_back(std::move(p));
    return problems;
}

void ReportCheck(App& app, const std::vector<std::string>& problems) {
    app.run.checkProblems = problems;
    if (problems.empty()) {
        DebugLog(app, "Do Back Ground, Check after Mod OK", 3);
        return;
    }
    std::string text = "The transaction in QuickBooks is not what Pelmark sent:";
    for (const std::string& p : problems) {
        DebugLog(app, "ERROR\tCheck after Mod\t" + p, 1);
        text += "\n" + p;
    }
    ShowStatus(app, "Check after Mod failed");
    WriteErr(app, "ERROR\t" + OneLine(text));
    ShowMessage(app, text);
}

}  // namespace

bool DoSortTrans(App& app, qb::TxnKind kind, std::size_t txnIndex, bool show) {
    const qb::TxnKindInfo& k = qb::KindInfo(kind);
    qb::TxnState& txn = app.qb.txn;
    if (txnIndex >= txn.txns.size()) return false;
    // The query's rows and header, kept: the check queries the transaction again.
    const qb::TxnHeader before = txn.txns[txnIndex];
    const std::vector<qb::TxnLine> table = txn.lines;

    const SortPlan plan = PlanTransactionSort(app, app.frmMain, kind, txnIndex);
    if (app.previewHook &&
        !app.previewHook(PreviewRows(table, before.firstLine, before.lineCount, plan))) {
        ShowStatus(app, "The new order was not written");
        // QuickBooks had the window closed for the sort; it shows the transaction as it was.
        qb::TxnDisplayModSub(app, kind, before.txnID);
        return false;
    }

    DebugLog(app, "Do Back Ground Doing Order Mod Sub ", 5);
    qb::TxnModHead head;
    head.txnID = before.txnID;
    head.editSequence = before.editSequence;
    if (!qb::TxnModSub(app, kind, head)) {
        DebugLog(app, "Do Sort Trans - Order Mod failed ", 1);
        return false;
    }
    for (const PlanStep& step : plan.steps) {
        const bool appended = step.kind == PlanStep::Kind::Blank
                                  ? qb::AppendBlankLine(app, kind)
                                  : qb::AppendQueriedLine(app, kind, table, step.row);
        if (!appended) {
            DebugLog(app, "Do Sort Trans - Order Mod failed ", 1);
            return false;
        }
        if (step.kind == PlanStep::Kind::Row)
            txn.currentLineID = qb::RunLineID(kind, table[step.row].txnLineID);
    }
    DebugLog(app, "DBG, After Appeneds", 5);

    ShowStatus(app, "Sending Modify to QB");
    qb::DoRequestOptions send;
    send.callerLabel = "MOD";
    qb::DoRequestResult modified = qb::DoRequest(app, send);
    DebugLog(app, "Do Back Ground, Back from QB Do ", 5);
    if (!modified.ok) return false;

    const std::vector<qb::TxnLine> expected = ExpectedLines(table, plan);
    std::vector<qb::TxnLine> answered = AnsweredLines(app, kind, modified, before.txnID);
    const LineValues values = NewLineValues(expected, answered, plan, before.txnID, k);

    CheckOptions check;
    bool customFieldsFailed = false;
    check.fields = ModifiableLineFields(app, kind);
    check.extraFields = values.weights;
    ShowStatus(app, "Setting up Custom Fields ");
    if (app.frmMain.Checked("chkSKIPCFs")) {
        ShowStatus(app, "Skipping Custom Fields");
        DebugLog(app, "Skipping the Custom Fields", 3);
        check.customFields = false;
    } else {
        ShowStatus(app, "Doing Custom Fields ");
        customFieldsFailed = !WriteCustomFields(app, values.writes);
        if (customFieldsFailed) DebugLog(app, "Custom field update / Data Ext failed ", 1);
        DebugLog(app, "Do Back Ground, Do data ext mods ", 5);
    }

    const std::vector<std::string> problems = CheckTransaction(app, kind, before, expected, check);
    // A lost answer to a custom-field request does not mean the values are missing: the check
    // reads them back, so the message says what it found.
    if (customFieldsFailed) {
        ShowMessage(app,
                    std::string("Custom field update / Data Ext failed ") +
                        (problems.empty() ? "- but the check after the modify found every value in "
                                            "place; nothing is missing."
                                          : "- the check after the modify found the differences "
                                            "reported next; Undo restores the transaction."));
    }
    ReportCheck(app, problems);

    if (show) {
        ShowStatus(app, "Sending Display Trans to QB");
        qb::TxnDisplayModSub(app, kind, before.txnID);
    }
    DebugLog(app, "Do Back Ground, Exit After Display Txn Mod", 5);
    DebugLog(app, "Do Sort Trans exit ", 5);
    return problems.empty();
}

}  // namespace pelmark::sort
