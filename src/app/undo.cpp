// Undo last sort: the journaled transaction written back by the sort's own write-back and check.
#include "app/context.h"
#include "app/journal.h"
#include "app/logs.h"
#include "app/run.h"
#include "app/text.h"
#include "qb/qbCommon.h"
#include "sort/engine.h"

namespace pelmark {

namespace {

bool Refuse(App& app, const std::string& text) {
    app.run.lastError = text;
    ShowStatus(app, "Undo: nothing was written");
    DebugLog(app, "ERROR\tUndo\t" + text, 1);
    WriteErr(app, "ERROR\t" + OneLine(text));
    ShowMessage(app, text);
    return false;
}

qb::TxnKind KindByName(const std::string& name) {
    for (qb::TxnKind k : {qb::TxnKind::Invoice, qb::TxnKind::Estimate, qb::TxnKind::SalesOrder,
                          qb::TxnKind::SalesReceipt})
        if (name == qb::KindInfo(k).name) return k;
    return qb::TxnKind::None;
}

// The sort this program made last, while it can still be undone; otherwise the newest journal of
// a sort that can be undone. Journals are named to the second, so another run's sort in the same
// second could otherwise be taken for this one's.
std::string NewestJournal(App& app) {
    if (const std::string& own = app.run.journalPath; !own.empty()) {
        const JournalRead r = LoadJournal(app, own);
        if (r.ok && r.journal.state != kJournalUndone) return own;
    }
    for (const Journal& j : ListJournals(app))
        if (j.state != kJournalUndone) return j.path;
    return {};
}

bool Undo(App& app, const UndoOptions& options) {
    const std::string path = options.journal.empty() ? NewestJournal(app) : options.journal;
    if (path.empty())
        return Refuse(app, "There is no sort to undo: no journal in " + JournalFolder(app));
    const JournalRead read = LoadJournal(app, path);
    const std::string name = path.substr(path.find_last_of("\\/") + 1);
    if (!read.ok)
        return Refuse(app, "The journal " + name + " cannot be used: " + read.error +
                               ". Nothing was written.");
    Journal journal = read.journal;
    const qb::TxnKind kind = KindByName(journal.kind);
    qb::ResponseParseResult parsed = qb::ParseXmlFragment(journal.transaction);
    if (kind == qb::TxnKind::None || !parsed.ok() ||
        parsed.root.Name() != qb::KindInfo(kind).retName)
        return Refuse(app, "The journal " + name + " cannot be used: it holds no " + journal.kind +
                               ". Nothing was written.");
    if (!qb::QBOpen(app))
        return Refuse(app, "QuickBooks could not be opened. Nothing was written.");
    if (!EqualsNoCase(app.qb.companyFileName, journal.company))
        return Refuse(app, "The journal " + name + " is of the company file " + journal.company +
                               ", but QuickBooks has " + app.qb.companyFileName +
                               " open. Nothing was written.");

    sort::WriteBackJob job;
    job.kind = kind;
    job.before = qb::ReadTxn(app, kind, parsed.root, job.table);
    const std::string about = journal.kind + " " + journal.refNumber;
    qb::TxnQueryOptions query;
    query.txnID = journal.txnID;
    if (!qb::TxnQuerySub(app, kind, query) || app.qb.txn.txns.size() != 1)
        return Refuse(app, about + " was not found in QuickBooks. Nothing was written.");
    const std::string current = app.qb.txn.txns.front().editSequence;
    if (current == journal.editSequence) {
        ShowStatus(app, "Undo: " + about + " is as it was before the sort; nothing to undo");
        journal.state = kJournalUndone;
        std::string error;
        SaveJournal(app, journal, error);
        return true;
    }
    if (current != journal.editSequenceAfter) {
        const std::string text =
            about +
            " was changed in QuickBooks after the sort (or the sort did not finish). Undo "
            "puts it back as it was before the sort; changes made to it since are lost. "
            "Undo anyway?";
        if (ShowMessage(app, text, kMbYesNo | kMbQuestion) != kAnsYes)
            return Refuse(app, about +
                                   " was changed in QuickBooks after the sort; Undo was not "
                                   "confirmed. Nothing was written.");
    }
    job.before.editSequence = current;
    for (std::size_t row :
         sort::TopLevelRows(job.table, job.before.firstLine, job.before.lineCount))
        job.plan.steps.push_back({sort::PlanStep::Kind::Row, row, true});
    job.journal = &journal;
    ShowStatus(app, "Undo: writing back " + about + " from " + name);
    if (!sort::WriteBack(app, job)) return false;
    journal.state = kJournalUndone;
    std::string error;
    if (!SaveJournal(app, journal, error)) DebugLog(app, "ERROR\tJournal\t" + error, 1);
    ShowStatus(app, "Undo done: " + about + " is as it was before the sort");
    return true;
}

}  // namespace

bool CmdUndo(App& app, const UndoOptions& options) {
    RunState& run = app.run;
    if (run.running) return false;
    run.running = true;
    run.checkProblems.clear();
    run.lastError.clear();
    bool ok = false;
    try {
        ok = Undo(app, options);
    } catch (...) {
        run.running = false;
        throw;
    }
    run.running = false;
    return ok;
}

}  // namespace pelmark
