// The sales transactions in the SDK layer: the kind table, the queries that read a transaction
// into the line table, the modify builders with their line appends, and the display request.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qb/qbxml.h"
#include "qb/qbxmlResponse.h"

namespace pelmark {
struct App;
}

namespace pelmark::qb {

struct QbState;

// ---- The kind table -----------------------------------------------------------------------

enum class TxnKind { None, Invoice, Estimate, SalesOrder, SalesReceipt, PurchaseOrder };
inline constexpr std::size_t kTxnKindCount = 6;

// Everything that differs between the kinds. The names of the qbXML elements, the texts of the
// traces and messages, and the window title the kind is chosen by. Purchase orders are
// recognised on the screen and can be displayed, but are never queried or modified: their query
// and modify names are nullptr.
struct TxnKindInfo {
    TxnKind kind;
    const char* name;         // TxnDisplayModType and TxnDataExtType: "Invoice"; "" for None
    const char* windowTitle;  // "Create Invoices"
    const char* kindWord;     // "No Invoice ": the not-found report of the run
    const char* queryRq;      // "InvoiceQueryRq"
    const char* retName;      // "InvoiceRet"
    const char* lineRet;      // "InvoiceLineRet"
    const char* groupRet;     // "InvoiceLineGroupRet"
    const char* queryLabel;   // "Invoice Query Sub ": traces and messages of the query
    const char* notFound;     // "No invoices were found within  range"
    const char* modRq;        // "InvoiceModRq"
    const char* mod;          // "InvoiceMod"
    const char* lineMod;      // "InvoiceLineMod"
    const char* groupMod;     // "InvoiceLineGroupMod"
    const char* modLabel;     // "Invoice Mod": the caller label DoRequest reports under
    View QbState::*ret;       // the returned-transaction variable; nullptr when none
    // Only invoices keep the queried TxnLineID in the run's current line identifier; the other
    // kinds keep "-1" there.
    bool keepsLineID;
};

const TxnKindInfo& KindInfo(TxnKind kind);
// What the run's current line identifier holds for a queried line of the kind.
std::string RunLineID(TxnKind kind, const std::string& txnLineID);

// ---- The line table -----------------------------------------------------------------------

// Line types.
inline constexpr const char* kLineItem = "I";       // an item line (the default)
inline constexpr const char* kLineBlank = "B";      // neither item nor description
inline constexpr const char* kLineDescOnly = "DO";  // a description without an item
inline constexpr const char* kLineGroup = "G";      // the line group itself, before its lines
inline constexpr const char* kLineGroupEnd = "--^gRoup^desC--";  // after the lines of a group

inline constexpr std::size_t kNoGroup = static_cast<std::size_t>(-1);
// More rounds than this in the line walk of one query stop it.
inline constexpr int kLineWalkLimit = 30000;

struct TxnCustomField {
    std::string name, value;
};

// One row of the line table: a line, a line group, or the closing row of a group. Every field
// the line of any kind returns up to qbXML 13.0 is kept as its text ("" when absent, and always
// absent when the session's version is older than the field), so that the write-back can copy
// it as it came. A group row keeps its ItemGroupRef in the item fields; its
// closing row repeats the group's item and description.
struct TxnLine {
    std::string lineType;
    std::size_t txnIndex = 0;      // which returned transaction the row belongs to
    std::size_t group = kNoGroup;  // the group row of a group's lines and of its closing row
    View ret;                      // the queried line or group; null for a closing row

    std::string txnLineID;
    std::string itemListID, itemFullName;
    std::string desc;
    std::string quantity, unitOfMeasure;
    std::string overrideUOMSetListID, overrideUOMSetFullName;
    std::string rate, ratePercent;                     // one or none of the two
    std::string priceLevelListID, priceLevelFullName;  // in the modify only, from later versions
    std::string classListID, classFullName;
    std::string amount;
    std::string inventorySiteListID, inventorySiteFullName;                  // 10.0
    std::string inventorySiteLocationListID, inventorySiteLocationFullName;  // 12.0
    std::string serialNumber, lotNumber;  // 11.0; one or none of the two
    std::string serviceDate;
    std::string salesTaxCodeListID, salesTaxCodeFullName;
    std::string isTaxable;
    std::string markupRate, markupRatePercent;  // estimates
    std::string overrideItemAccountListID, overrideItemAccountFullName;
    std::string invoiced, isManuallyClosed;  // sales orders
    std::string other1, other2;
    std::string isPrintItemsInGroup, totalAmount;  // groups
    std::vector<TxnCustomField> customFields;      // the line's DataExtRet, in order

    bool IsGroup() const { return lineType == kLineGroup; }
    bool IsGroupEnd() const { return lineType == kLineGroupEnd; }
};

// A field of the line table: its path below a line ("ItemRef/FullName"), below a line group
// (nullptr: a group has no such field) and its row member. The query reads every field by this
// table and the write-back copies every field by it but the TxnLineID, which it sets to -1.
struct TxnLineField {
    const char* linePath;
    const char* groupPath;
    std::string TxnLine::*member;
    // A new line's TxnLineID is QuickBooks' to give (the write-back sends -1).
    bool Copied() const { return member != &TxnLine::txnLineID; }
};
std::span<const TxnLineField> TxnLineFields();

// The header of one returned transaction. Totals are absent where the kind has none (invoices
// have no TotalAmount; only invoices have BalanceRemaining).
struct TxnHeader {
    View ret;
    std::string txnID, editSequence, refNumber, txnDate;
    std::string customerListID, customerFullName;
    std::string templateListID, templateFullName;
    std::string shipMethodFullName;
    std::string subtotal, salesTaxTotal, totalAmount, balanceRemaining;
    std::vector<TxnCustomField> customFields;
    std::size_t firstLine = 0, lineCount = 0;  // its rows in the line table
};

// Where a modify builder left its request, so that the line step can find it again. The request
// set may have been cleared since; KeptMod checks that it still holds this very request.
struct KeptMod {
    MsgSetRequest* set = nullptr;
    std::size_t index = 0;
    const Node* request = nullptr;
};

// The transaction part of the qbCommon module state.
struct TxnState {
    std::string kindCode;  // "CC" once a query ran
    std::vector<TxnHeader> txns;
    std::vector<TxnLine> lines;
    int statusCode = kNoStatus;  // of the latest query's response
    std::string currentLineID;   // the run's current line identifier
    std::array<KeptMod, kTxnKindCount> mods{};
};

// ---- Queries (txnQuery.cpp) -----------------------------------------------------------------

struct TxnQueryOptions {
    std::string refNumber{};
    std::string customer{};  // full name; narrows the number (and the dates) to that customer
    std::string txnID{};     // when given, the only filter
    // A TxnID found for the number earlier: asked for in place of the number when no customer
    // is given.
    std::string numberTxnID{};
    bool includeLineItems = true;
    // Date ranges, used only when neither TxnID nor number is given: "yyyy-mm-dd" (modified
    // dates may carry a time), "m/d/yyyy" or "m/d/yy"; empty for an open end.
    std::string modifiedFrom{}, modifiedTo{};
    std::string txnDateFrom{}, txnDateTo{};
    int maxReturned = 0;  // with the date or customer filters; 0: no limit
};

// Queries the transactions of the kind into QbState::txn (headers, line table, status) and
// keeps the last one in the kind's returned-transaction variable. True when QuickBooks answered
// with status 0 and the line walk ran to its end; the headers say how many were found.
bool TxnQuerySub(App& app, TxnKind kind, const TxnQueryOptions& options);

// Reads one returned transaction (a query's or a modify's answer) into `lines`: its header and
// its rows appended to the table.
TxnHeader ReadTxn(App& app, TxnKind kind, const View& ret, std::vector<TxnLine>& lines);
// The first transaction of the kind a response returned; a null view when none.
View ReturnedTxn(const Response& response, TxnKind kind);

// Sends the request set and gives its first response. A failure to send, or an answer without
// a response, is reported as "<label> Err=..." under the level word and gives nothing.
std::optional<Response> SendForFirstResponse(App& app, const MsgSetRequest& set,
                                             const std::string& level, const std::string& label);

// A date text as qbXML writes it: "yyyy-mm-dd" (a time after it is kept) from that form or from
// "m/d/yyyy" and "m/d/yy" (years below 50 are 20yy); "" when it is no date.
std::string QbxmlDate(std::string_view text);

// ---- Modify and display (txnMod.cpp) --------------------------------------------------------

struct TxnModHead {
    std::string txnID{}, editSequence{};
    std::string shipMethod{};  // ShipMethodRef FullName; empty, or an estimate: left unset
    // The further header value: the TemplateRef FullName the transaction is shown with. Sending
    // the template it has changes nothing; empty leaves it unset.
    std::string templateName{};
};

// Starts the kind's modify in the default request set (cleared first) and keeps it for the line
// step, which sends it with the lines. False when it could not be built (reported); a kind
// without a modify is reported as "Order Mod not supported ".
bool TxnModSub(App& app, TxnKind kind, const TxnModHead& head);

// The kind's modify aggregate (InvoiceMod, ...) that TxnModSub left; nullptr when there is none
// or its request set no longer holds it.
Node* KeptModify(App& app, TxnKind kind);

enum class LineObject { Line, Group };
// Appends a new line (InvoiceLineMod) or line group (InvoiceLineGroupMod) to the kept modify of
// the kind, or a line to `group` when given, and returns it for filling. nullptr, reported,
// when the kind has no modify ("Order Mod not supported ") or none was started ("Mod failed").
Node* AppendLineObjects(App& app, TxnKind kind, LineObject object = LineObject::Line,
                        Node* group = nullptr);

struct LineCopyOptions {
    bool convertLineFeeds = false;  // send each line feed of the description as "\l"
};
// Fills an appended line (or line group) from a row of the line table: TxnLineID -1 first, then
// every field the row holds that this line of the modify accepts, cut to its maximum length. A
// blank row becomes a blank line.
void CopyLineFields(Node& lineMod, const TxnLine& row, LineCopyOptions options = {});
// A blank line: TxnLineID -1 and an empty description, nothing else.
void SetBlankLine(Node& lineMod);

// Appends row `row` of `table` to the kept modify as a new line; a group row is appended as a
// group with its own lines, a closing row adds nothing. False when nothing could be appended.
bool AppendQueriedLine(App& app, TxnKind kind, const std::vector<TxnLine>& table, std::size_t row,
                       LineCopyOptions options = {});
bool AppendBlankLine(App& app, TxnKind kind);

// Asks QuickBooks to show the transaction again. Nothing is sent for the None kind or an empty
// TxnID. A failure is reported as "Txn Display Mod Failed " with the status text; the run goes on
// either way (the transaction is saved; the user can open it again).
void TxnDisplayModSub(App& app, TxnKind kind, const std::string& txnID);

}  // namespace pelmark::qb
