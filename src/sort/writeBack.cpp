// The sort body after the order is known: the journal, the modify that re-lists every line in
// the new order, the check of the lines that came back before any custom-field write, the lines'
// custom fields and weights, the check of the transaction, and the display request.
#include <algorithm>
#include <map>
#include <optional>

#include "app/context.h"
#include "app/journal.h"
#include "app/logs.h"
#include "app/run.h"
#include "qb/qbCommon.h"
#include "sort/engine.h"
#include "sort/preview.h"

namespace pelmark::sort {

namespace {

// The custom-field values of the new lines: the queried lines' own values and the weights, on
// the lines the modify's answer gives back. The answer's lines were compared with those sent
// field by field first, so the same position is the same line.
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

void ReportCheck(App& app, const std::vector<std::string>& problems, const std::string& advice) {
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
    text += "\n" + advice;
    ShowStatus(app, "Check after Mod failed");
    WriteErr(app, "ERROR\t" + OneLine(text));
    ShowMessage(app, text);
}

// Records a step in the journal; a journal that can no longer be written is reported, the run
// goes on (the one written before the modify already holds the transaction).
void Record(App& app, Journal* journal, const char* state, const std::string& editSequence) {
    if (!journal) return;
    journal->state = state;
    if (!editSequence.empty()) journal->editSequenceAfter = editSequence;
    std::string error;
    if (!SaveJournal(app, *journal, error)) DebugLog(app, "ERROR\tJournal\t" + error, 1);
}

const char* const kPressUndo =
    "No custom-field value was written. Press \"Undo last sort\" to bring the transaction back "
    "as it was before the sort.";

// The lines of the sort's journal: what Undo needs besides the transaction itself.
void JournalPlan(Journal& j, const std::vector<qb::TxnLine>& table, const SortPlan& plan,
                 const SortSettings& settings, bool skipCustomFields) {
    for (const SortLevel& l : settings.levels)
        if (!l.field.empty())
            j.settings.push_back("level=" + l.field + (l.descending ? " descending" : "") +
                                 (l.caseSensitive ? " case" : ""));
    const char* const where[] = {"none", "before", "after"};
    j.settings.push_back(std::string("blank lines=") +
                         where[static_cast<int>(settings.blankLines)] + " x" +
                         std::to_string(settings.blankCount));
    j.settings.push_back(std::string("keep blank items=") + (settings.keepBlankItems ? "1" : "0"));
    j.settings.push_back(std::string("skip custom fields=") + (skipCustomFields ? "1" : "0"));
    for (const PlanStep& step : plan.steps)
        j.order.push_back(step.kind == PlanStep::Kind::Blank ? "blank" : table[step.row].txnLineID);
    for (const qb::TxnLine& row : table)
        for (const qb::TxnCustomField& f : row.customFields)
            if (!f.value.empty())
                j.customFields.push_back(row.txnLineID + "|" + f.name + "|" + f.value);
}

// Skip Custom Flds copying re-creates the lines without their values: asks before that.
bool SkippingCustomFieldsAllowed(App& app, const std::vector<qb::TxnLine>& table,
                                 const qb::TxnHeader& txn) {
    std::size_t values = 0, lines = 0;
    for (std::size_t i = txn.firstLine; i < txn.firstLine + txn.lineCount; ++i) {
        std::size_t n = 0;
        for (const qb::TxnCustomField& f : table[i].customFields) n += !f.value.empty();
        values += n;
        lines += n > 0;
    }
    if (values == 0) return true;
    const std::string text = std::to_string(values) + " custom-field values on " +
                             std::to_string(lines) +
                             " lines will be removed (Skip Custom Flds copying is checked). Sort "
                             "anyway?";
    if (ShowMessage(app, text, kMbYesNo | kMbQuestion) == kAnsYes) return true;
    ShowStatus(app, "Not sorted: the custom-field values were kept, nothing changed");
    app.run.lastError = text;
    return false;
}

// Stops the sort before anything is written.
bool Refuse(App& app, const std::string& text) {
    app.run.lastError = text;
    ShowStatus(app, "Not sorted: nothing was changed");
    DebugLog(app, "ERROR\t" + OneLine(text), 1);
    WriteErr(app, "ERROR\t" + OneLine(text));
    ShowMessage(app, text);
    return false;
}

// The items of the transaction's lines as QuickBooks has them now (one query naming them all),
// by the lines' item names: an item made or changed since start-up (or since Items.iif was
// written) is a subtotal or a discount only if QuickBooks says so. Nothing when an item is
// unknown to QuickBooks or the query failed (reported).
std::optional<std::map<std::string, ItemRec, NoCaseLess>> LineItems(
    App& app, const std::vector<qb::TxnLine>& table, const qb::TxnHeader& txn) {
    std::vector<std::string> ids;
    for (std::size_t i = txn.firstLine; i < txn.firstLine + txn.lineCount; ++i)
        if (const std::string& id = table[i].itemListID;
            !id.empty() && std::find(ids.begin(), ids.end(), id) == ids.end())
            ids.push_back(id);
    const std::optional<std::vector<ItemRec>> answer = qb::ItemsByListID(app, ids);
    if (!answer) return std::nullopt;
    std::map<std::string, ItemRec, NoCaseLess> byName;
    for (std::size_t i = txn.firstLine, shown = 0; i < txn.firstLine + txn.lineCount; ++i) {
        const qb::TxnLine& row = table[i];
        shown += !row.IsGroupEnd();
        if (row.itemListID.empty() || row.IsGroupEnd()) continue;
        auto item = std::find_if(answer->begin(), answer->end(),
                                 [&](const ItemRec& r) { return r.listID == row.itemListID; });
        if (item == answer->end()) {
            Refuse(app, "Line " + std::to_string(shown) + " holds the item " + row.itemFullName +
                            ", which QuickBooks does not know (any more). Nothing was changed.");
            return std::nullopt;
        }
        byName[row.itemFullName] = *item;
    }
    return byName;
}

}  // namespace

bool WriteBack(App& app, WriteBackJob& job) {
    const qb::TxnKind kind = job.kind;
    const qb::TxnKindInfo& k = qb::KindInfo(kind);
    const qb::TxnHeader& before = job.before;
    const std::vector<qb::TxnLine>& table = job.table;
    const SortPlan& plan = job.plan;
    auto showAgain = [&] {
        if (job.show) {
            ShowStatus(app, "Sending Display Trans to QB");
            qb::TxnDisplayModSub(app, kind, before.txnID);
        }
        DebugLog(app, "Do Back Ground, Exit After Display Txn Mod", 5);
    };

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
            app.qb.txn.currentLineID = qb::RunLineID(kind, table[step.row].txnLineID);
    }
    DebugLog(app, "DBG, After Appeneds", 5);

    ShowStatus(app, "Sending Modify to QB");
    qb::DoRequestOptions send;
    send.callerLabel = "MOD";
    qb::DoRequestResult modified = qb::DoRequest(app, send);
    DebugLog(app, "Do Back Ground, Back from QB Do ", 5);
    if (!modified.ok) {
        // QuickBooks may have saved it even so when only its answer was lost.
        showAgain();
        ShowStatus(app,
                   "The modify failed: QuickBooks did not confirm it. If the transaction "
                   "changed, press \"Undo last sort\"; otherwise sort again.");
        return false;
    }

    const std::vector<qb::TxnLine> expected = ExpectedLines(table, plan);
    std::vector<qb::TxnLine> answered = AnsweredLines(app, kind, modified, before.txnID);
    std::string editSequence;
    if (modified.responseSet && modified.responseSet->ResponseList().Count() > 0)
        editSequence = qb::ReturnedTxn(modified.responseSet->ResponseList().GetAt(0), kind)
                           .GetValue("EditSequence");
    Record(app, job.journal, kJournalModified, editSequence);

    // The lines that came back are checked before any custom-field value goes to them: a value
    // on the wrong line cannot be taken back.
    CheckOptions check;
    bool customFieldsFailed = false;
    check.fields = ModifiableLineFields(app, kind);
    check.customFields = false;
    if (std::vector<std::string> problems = CompareLines(expected, answered, check);
        !problems.empty()) {
        ReportCheck(app, problems, kPressUndo);
        Record(app, job.journal, kJournalFailed, {});
        showAgain();
        return false;
    }
    const LineValues values = NewLineValues(expected, answered, plan, before.txnID, k);
    check.extraFields = values.weights;
    ShowStatus(app, "Setting up Custom Fields ");
    if (!job.writeCustomFields) {
        ShowStatus(app, "Skipping Custom Fields");
        DebugLog(app, "Skipping the Custom Fields", 3);
    } else {
        check.customFields = true;
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
    ReportCheck(
        app, problems,
        "Press \"Undo last sort\" to bring the transaction back as it was before the sort.");
    Record(app, job.journal, problems.empty() ? kJournalDone : kJournalFailed,
           app.qb.txn.txns.size() == 1 ? app.qb.txn.txns.front().editSequence : std::string());
    showAgain();
    DebugLog(app, "Do Sort Trans exit ", 5);
    return problems.empty();
}

bool DoSortTrans(App& app, qb::TxnKind kind, std::size_t txnIndex, bool show) {
    const qb::TxnKindInfo& k = qb::KindInfo(kind);
    qb::TxnState& txn = app.qb.txn;
    if (txnIndex >= txn.txns.size()) return false;
    WriteBackJob job;
    job.kind = kind;
    job.show = show;
    // The query's rows and header, kept: the check queries the transaction again.
    job.before = txn.txns[txnIndex];
    job.table = txn.lines;
    job.writeCustomFields = !app.frmMain.Checked("chkSKIPCFs");
    if (!job.writeCustomFields && !SkippingCustomFieldsAllowed(app, job.table, job.before))
        return false;
    // The modify deletes every line and makes it again: what it cannot carry would be lost.
    if (const std::vector<std::string> lost =
            UnwritableFields(app, kind, job.table, job.before.firstLine, job.before.lineCount);
        !lost.empty()) {
        std::string text = std::string("Pelmark did not sort ") + k.name + " " +
                           job.before.refNumber +
                           ": its lines hold what a sort cannot write back, so it would be lost:";
        for (const std::string& l : lost) text += "\n" + l;
        return Refuse(app, text + "\nNothing was changed.");
    }
    const auto items = LineItems(app, job.table, job.before);
    if (!items) return false;
    job.plan = PlanTransactionSort(app, app.frmMain, kind, txnIndex,
                                   [&items](const std::string& name) -> const ItemRec* {
                                       auto it = items->find(name);
                                       return it == items->end() ? nullptr : &it->second;
                                   });
    if (app.previewHook && !app.previewHook(PreviewRows(job.table, job.before.firstLine,
                                                        job.before.lineCount, job.plan))) {
        ShowStatus(app, "The new order was not written");
        // QuickBooks had the window closed for the sort; it shows the transaction as it was.
        if (show) qb::TxnDisplayModSub(app, kind, job.before.txnID);
        return false;
    }

    // The journal holds the transaction as queried before anything is sent: without it there is
    // no way back, so the sort does not start.
    Journal journal;
    journal.company = app.qb.companyFileName;
    journal.kind = k.name;
    journal.txnID = job.before.txnID;
    journal.refNumber = job.before.refNumber;
    journal.editSequence = job.before.editSequence;
    journal.transaction = job.before.ret.ToXMLString();
    JournalPlan(journal, job.table, job.plan, ReadSortSettings(app.frmMain),
                !job.writeCustomFields);
    if (std::string error; !SaveJournal(app, journal, error)) {
        const std::string text =
            "Pelmark could not write its journal, so it did not sort (nothing "
            "was changed): " +
            error;
        app.run.lastError = text;
        ShowStatus(app, "Not sorted: no journal");
        WriteErr(app, "ERROR\t" + text);
        ShowMessage(app, text);
        return false;
    }
    app.run.journalPath = journal.path;
    job.journal = &journal;
    DebugLog(app, "Journal written: " + journal.path, 3);
    return WriteBack(app, job);
}

}  // namespace pelmark::sort
