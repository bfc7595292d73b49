// Sorting every sales transaction of a kind in a date range through the SDK alone: each one
// queried, planned, written, checked and journaled as a single sort is, with no screen.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qb/txn.h"

namespace pelmark {

struct App;

struct BatchOptions {
    qb::TxnKind kind = qb::TxnKind::Invoice;
    std::string from, to;  // transaction dates, yyyy-mm-dd
    std::string customer;  // full name; "" for every customer
    bool dryRun = false;   // plan and report, write nothing
};

struct BatchItem {
    std::string refNumber;
    std::size_t lines = 0;
    std::string result;  // "sorted", "already in order", "would be sorted", or why it failed
    bool failed = false;
};

// The kind named on the command line ("invoice", "estimate", "salesorder", "salesreceipt").
std::optional<qb::TxnKind> BatchKind(const std::string& name);
// Why the options cannot run ("" when they can): a malformed or reversed date range.
std::string CheckBatchOptions(const BatchOptions& options);

// Called after each transaction with the count done, the total and its result; false stops the
// batch before the next transaction.
using BatchProgress = std::function<bool(std::size_t done, std::size_t total, const BatchItem&)>;

// Runs the batch against the QuickBooks session of `app` (loaded by LoadMainForm), with the
// sort levels of its main form. `error` receives why nothing could be done (the query failed).
std::vector<BatchItem> RunBatch(App& app, const BatchOptions& options,
                                const BatchProgress& progress, std::string& error);

// The results as a table for a terminal: number, lines, result.
std::string BatchTable(const std::vector<BatchItem>& items);

}  // namespace pelmark
