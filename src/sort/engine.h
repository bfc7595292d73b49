// The pure ordering core of the line sort: sort keys, ordering, movable units, blank lines and
// line weights, producing the plan that the write-back follows.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "app/items.h"
#include "qb/txn.h"

namespace pelmark {
struct App;
struct Journal;
namespace ui {
class Form;
}
}  // namespace pelmark

namespace pelmark::sort {

// "Item Full Name" and "Item Name" levels compare this many bytes at most.
inline constexpr std::size_t kItemNameWidth = 132;
// Levels beyond this many do not take part.
inline constexpr std::size_t kMaxSortLevels = 20;

// One sort level of the main form: the chosen field, and its two check boxes.
struct SortLevel {
    std::string field;  // "" (skipped), "Amount", "Item Name", ..., or a custom field name
    bool descending = false;
    bool caseSensitive = false;
};

enum class BlankLines { None, Before, After };

struct SortSettings {
    std::vector<SortLevel> levels;
    bool keepBlankItems = false;
    BlankLines blankLines = BlankLines::None;
    int blankCount = 0;               // blank lines per unit; below 1 adds none
    std::string netWeightField;       // the item custom field holding an item's net weight
    std::string netWeightTotalField;  // the line custom field receiving a line's weight; "" none
};

// The item of a full name (nullptr when unknown); the engine asks nothing else of the lists.
using ItemLookup = std::function<const ItemRec*(const std::string& fullName)>;
// Receives the engine's debug lines in the order they are written.
using DebugSink = std::function<void(const std::string&)>;

// ---- Keys (keys.cpp) -------------------------------------------------------------------------

// The levels that take part: non-empty names in order, at most kMaxSortLevels.
std::vector<SortLevel> ActiveLevels(const std::vector<SortLevel>& levels);

// The sort keys of a transaction's lines laid end to end in one buffer: key i is
// bytes[ends[i - 1], ends[i]) (from 0 for the first).
struct SortKeys {
    std::string bytes;
    std::vector<std::size_t> ends;
    std::size_t size() const { return ends.size(); }
    std::string_view operator[](std::size_t i) const {
        const std::size_t begin = i == 0 ? 0 : ends[i - 1];
        return std::string_view(bytes).substr(begin, ends[i] - begin);
    }
};

// Builds the keys of `lines` (the transaction's top-level lines, in incoming order; key i is
// lines[i]'s). Comparing two keys as unsigned bytes orders their lines level by level: Qty,
// Price and Amount as numbers ("1,000.50" is a number; blank after numbers and text that is not
// a number between them), every other level as text in the user's locale order (see
// collate.h); a descending level reversed. Equal keys keep their incoming order, as the plan
// sorts stably. The tax code is carried forward from the line above when empty. Writes
// "DBG, Line " and "DBG, NExt Line" per line when `debug` is given.
SortKeys BuildSortKeys(const std::vector<const qb::TxnLine*>& lines, const SortSettings& settings,
                       const DebugSink& debug = {});

// ---- Plan (plan.cpp) ---------------------------------------------------------------------------

// What moves as one unit and what stays:
//  - a line group (group row, member lines, closing row) moves as one unit keyed by its group row;
//  - a percentage discount moves with the line (or unit) directly above it;
//  - a subtotal line stays where it is: lines are sorted only within each section between two
//    subtotals; lines attached to a subtotal (a percentage discount after it) stay with it;
//  - with keepBlankItems, blank ("B") and description-only ("DO") lines stay attached to the
//    line above them; otherwise they sort by their keys like any other line.
struct PlanStep {
    enum class Kind { Row, Blank };
    Kind kind = Kind::Row;
    // Row: the line table index of a top-level row; a group row stands for its whole group
    // (the write-back appends the group with its members).
    std::size_t row = 0;
    bool unitStart = false;  // Row: the first row of a unit
};

struct WeightEntry {
    std::string txnID, txnLineID, field, value;
    std::string Text() const;  // TxnID|line id|field|value
};

struct SortPlan {
    std::vector<PlanStep> steps;
    std::vector<WeightEntry> weights;
    double weightTotal = 0;
    // The debug lines written, in order, but for the two of every line (those go to the sink only).
    std::vector<std::string> debugLines;
};

// Classification of a top-level row for the unit rules.
enum class RowRole { Ordinary, Group, Discount, Subtotal, BlankOrDesc };
RowRole ClassifyRow(const qb::TxnLine& row, const ItemLookup& items);

// The top-level rows of rows [first, first + count) of `table`: every row that is neither a
// member of a group nor a group's closing row.
std::vector<std::size_t> TopLevelRows(const std::vector<qb::TxnLine>& table, std::size_t first,
                                      std::size_t count);

// Orders the lines of one transaction (rows [first, first + count) of `table`) and returns the
// plan: the top-level rows in their new order with the blank lines, and the line weights of
// the kind. Debug lines go to `debug` as well as into the plan.
SortPlan BuildSortPlan(const std::vector<qb::TxnLine>& table, std::size_t first, std::size_t count,
                       const SortSettings& settings, const ItemLookup& items, qb::TxnKind kind,
                       const std::string& txnID, const DebugSink& debug = {});

// ---- Weights (weights.cpp) -----------------------------------------------------------------

// A number written with at most 2 decimals and no trailing zeros ("3.33", "5", "0").
std::string FormatWeight(double value);
// Reads the leading number of a text as Val does ("2.5kg" is 2.5, "" is 0).
double LeadingNumber(const std::string& text);

// "Fill AR With Line Weights": every line of the transaction (group members included) weighs
// its item's netWeightField times its quantity, rounded to 2 decimals; recorded in plan.weights
// when netWeightTotalField is set. Sales orders (and kinds without lines) are not weighed.
void FillLineWeights(const std::vector<qb::TxnLine>& table, std::size_t first, std::size_t count,
                     const SortSettings& settings, const ItemLookup& items, qb::TxnKind kind,
                     const std::string& txnID, SortPlan& plan, const DebugSink& debug = {});

// ---- The check after the modify (check.cpp) ---------------------------------------------------

// The rows the modify was built to produce, in order: a blank row for every blank line, and the
// queried rows of the plan (a group row followed by its member rows). Closing rows are left out.
std::vector<qb::TxnLine> ExpectedLines(const std::vector<qb::TxnLine>& table, const SortPlan& plan);

struct CheckOptions {
    // The line fields the kind's line modify takes (what the write-back copies).
    std::vector<const qb::TxnLineField*> fields;
    bool customFields = true;  // the lines' custom fields were written and are compared
    // Custom field values the run wrote on top of the queried ones (line weights), by the
    // expected row's index.
    std::vector<std::vector<qb::TxnCustomField>> extraFields;
};

// What differs between the expected rows and the rows that came back (closing rows ignored),
// and between the totals before and after. Empty when the transaction came back whole.
std::vector<std::string> CompareLines(const std::vector<qb::TxnLine>& expected,
                                      const std::vector<qb::TxnLine>& actual,
                                      const CheckOptions& options);
std::vector<std::string> CompareTotals(const qb::TxnHeader& before, const qb::TxnHeader& after);

// What the lines of one transaction (rows [first, first + count) of `table`) hold that the
// kind's line modify cannot carry, so that re-creating them would lose it: "line N (item):
// field value" each. Empty when the whole transaction can be written back.
std::vector<std::string> UnwritableFields(App& app, qb::TxnKind kind,
                                          const std::vector<qb::TxnLine>& table, std::size_t first,
                                          std::size_t count);

// The fields of TxnLineFields() that the kind's line modify takes.
std::vector<const qb::TxnLineField*> ModifiableLineFields(App& app, qb::TxnKind kind);

// ---- The sort body (writeBack.cpp) -------------------------------------------------------------

// One write-back: the lines of `table` in the order of `plan` replace the transaction's lines.
struct WriteBackJob {
    qb::TxnKind kind = qb::TxnKind::None;
    qb::TxnHeader before;  // its TxnID and the EditSequence to send; the totals to keep
    std::vector<qb::TxnLine> table;
    SortPlan plan;
    bool writeCustomFields = true;
    Journal* journal = nullptr;  // kept up to date as the write-back goes, when given
    bool show = true;            // ask QuickBooks to show it again (a batch opens no windows)
};

// The modify, the check of the lines that came back (no custom-field value is written when it
// fails), the custom fields, the check of the transaction queried again, and the display
// request (also after a failed modify). True when the transaction came back whole.
bool WriteBack(App& app, WriteBackJob& job);

// Sorts queried transaction `txnIndex` of app.qb.txn: plans the new order, journals the
// transaction, writes it back with one modify, writes the lines' custom fields and weights,
// re-queries the transaction and checks it against what was sent, and asks QuickBooks to show it
// again (unless not `show`: a batch opens no windows). With a preview hook, the new order is
// shown to it first and written only when it agrees. True when the modify went through and the
// transaction came back whole.
bool DoSortTrans(App& app, qb::TxnKind kind, std::size_t txnIndex = 0, bool show = true);

// ---- Application glue (settings.cpp) ---------------------------------------------------------

// Reads the sort settings from the main form model.
SortSettings ReadSortSettings(const ui::Form& mainForm);

// Plans the sort of queried transaction `txnIndex` of app.qb.txn with the items of the app and
// its debug log.
// `items` classifies the lines; by default the item list loaded at start-up.
SortPlan PlanTransactionSort(App& app, const ui::Form& mainForm, qb::TxnKind kind,
                             std::size_t txnIndex = 0, ItemLookup items = {});

}  // namespace pelmark::sort
