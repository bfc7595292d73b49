// Sorts the transactions of a date range one after another through the single-sort path.
#include "app/batch.h"

#include <cstdio>

#include "app/context.h"
#include "app/text.h"
#include "sort/engine.h"

namespace pelmark {

namespace {

bool IsIsoDate(const std::string& text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return false;
    for (std::size_t i : {0, 1, 2, 3, 5, 6, 8, 9})
        if (text[i] < '0' || text[i] > '9') return false;
    const int month = std::stoi(text.substr(5, 2)), day = std::stoi(text.substr(8, 2));
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

// The plan keeps every row where it is and adds nothing.
bool AlreadyInOrder(const sort::SortPlan& plan, const std::vector<std::size_t>& top) {
    if (plan.steps.size() != top.size()) return false;
    for (std::size_t i = 0; i < top.size(); ++i)
        if (plan.steps[i].kind != sort::PlanStep::Kind::Row || plan.steps[i].row != top[i])
            return false;
    return true;
}

}  // namespace

std::optional<qb::TxnKind> BatchKind(const std::string& name) {
    const std::string n = Lower(name);
    if (n == "invoice") return qb::TxnKind::Invoice;
    if (n == "estimate") return qb::TxnKind::Estimate;
    if (n == "salesorder") return qb::TxnKind::SalesOrder;
    if (n == "salesreceipt") return qb::TxnKind::SalesReceipt;
    return std::nullopt;
}

std::string CheckBatchOptions(const BatchOptions& o) {
    for (const std::string* date : {&o.from, &o.to})
        if (!IsIsoDate(*date))
            return "The date \"" + *date + "\" is not a date written as YYYY-MM-DD";
    // ISO dates of equal length compare as text in date order.
    if (o.to < o.from)
        return "The date range ends (" + o.to + ") before it starts (" + o.from + ")";
    return {};
}

std::vector<BatchItem> RunBatch(App& app, const BatchOptions& options,
                                const BatchProgress& progress, std::string& error) {
    std::vector<BatchItem> items;
    error = CheckBatchOptions(options);
    if (!error.empty()) return items;
    qb::TxnQueryOptions list;
    list.customer = options.customer;
    list.txnDateFrom = options.from;
    list.txnDateTo = options.to;
    list.includeLineItems = false;
    const bool listed = qb::TxnQuerySub(app, options.kind, list);
    if (!listed && app.qb.txn.statusCode != qb::kStatusNoMatch) {
        error = "QuickBooks did not list the transactions" +
                (options.customer.empty() ? std::string()
                                          : " (is \"" + options.customer + "\" a customer?)") +
                (app.run.lastError.empty() ? "" : ": " + OneLine(app.run.lastError));
        return items;
    }
    std::vector<std::pair<std::string, std::string>> found;  // TxnID, number
    if (listed)
        for (const qb::TxnHeader& h : app.qb.txn.txns) found.emplace_back(h.txnID, h.refNumber);

    for (const auto& [txnID, number] : found) {
        BatchItem& item = items.emplace_back();
        item.refNumber = number;
        // Queried again just before its modify, so the EditSequence sent is QuickBooks' latest;
        // one changed since is refused by QuickBooks (3200) and reported, not overwritten.
        qb::TxnQueryOptions one;
        one.txnID = txnID;
        app.run.lastError.clear();
        if (!qb::TxnQuerySub(app, options.kind, one) || app.qb.txn.txns.size() != 1) {
            item.result = "not found again: changed or deleted meanwhile";
            item.failed = true;
        } else {
            const qb::TxnHeader& h = app.qb.txn.txns[0];
            item.lines = h.lineCount;
            const sort::SortPlan plan =
                sort::PlanTransactionSort(app, app.frmMain, options.kind, 0);
            if (AlreadyInOrder(plan,
                               sort::TopLevelRows(app.qb.txn.lines, h.firstLine, h.lineCount))) {
                item.result = "already in order";
            } else if (options.dryRun) {
                item.result = "would be sorted";
            } else if (sort::DoSortTrans(app, options.kind, 0, false)) {
                item.result = "sorted";
            } else {
                item.failed = true;
                item.result = "failed: " + OneLine(app.run.lastError.empty() ? app.run.status
                                                                             : app.run.lastError);
            }
        }
        if (progress && !progress(items.size(), found.size(), item)) break;
    }
    return items;
}

std::string BatchTable(const std::vector<BatchItem>& items) {
    std::string out = "number          lines  result\n";
    for (const BatchItem& i : items) {
        char row[64];
        std::snprintf(row, sizeof row, "%-15s %5zu  ", i.refNumber.c_str(), i.lines);
        out += row + i.result + "\n";
    }
    return out;
}

}  // namespace pelmark
