// The sales transaction kinds, and the one query that reads a transaction of any kind with its
// lines into the line table.
#include <algorithm>
#include <cstdio>

#include "app/context.h"
#include "app/logs.h"
#include "app/text.h"
#include "qb/qbCommon.h"

namespace pelmark::qb {

namespace {

const TxnKindInfo kKinds[kTxnKindCount] = {
    {TxnKind::None, "", "", "", nullptr, nullptr, nullptr, nullptr, "", "", nullptr, nullptr,
     nullptr, nullptr, "", nullptr, false},
    {TxnKind::Invoice, "Invoice", "Create Invoices", "No Invoice ", "InvoiceQueryRq", "InvoiceRet",
     "InvoiceLineRet", "InvoiceLineGroupRet", "Invoice Query Sub ",
     "No invoices were found within  range", "InvoiceModRq", "InvoiceMod", "InvoiceLineMod",
     "InvoiceLineGroupMod", "Invoice Mod", &QbState::invoiceRet, true},
    {TxnKind::Estimate, "Estimate", "Create Estimates", "Estimate ", "EstimateQueryRq",
     "EstimateRet", "EstimateLineRet", "EstimateLineGroupRet", "Estimate Query Sub ",
     "No Estimates were found within  range", "EstimateModRq", "EstimateMod", "EstimateLineMod",
     "EstimateLineGroupMod", "Estimate Mod", &QbState::estimateRet, false},
    {TxnKind::SalesOrder, "SalesOrder", "Create Sales Orders", "Sales Order ", "SalesOrderQueryRq",
     "SalesOrderRet", "SalesOrderLineRet", "SalesOrderLineGroupRet", "Sales Order Query Sub ",
     "No SalesOrders were found within  range", "SalesOrderModRq", "SalesOrderMod",
     "SalesOrderLineMod", "SalesOrderLineGroupMod", "SalesOrder Mod", &QbState::salesOrderRet,
     false},
    {TxnKind::SalesReceipt, "SalesReceipt", "Enter Sales Receipts", "SalesReceipt ",
     "SalesReceiptQueryRq", "SalesReceiptRet", "SalesReceiptLineRet", "SalesReceiptLineGroupRet",
     "SalesReceipt Query Sub ", "No SalesReceipts were found within  range", "SalesReceiptModRq",
     "SalesReceiptMod", "SalesReceiptLineMod", "SalesReceiptLineGroupMod", "SalesReceipt Mod",
     &QbState::salesReceiptRet, false},
    {TxnKind::PurchaseOrder, "PurchaseOrder", "Create Purchase Orders", "Purchase Order ", nullptr,
     nullptr, nullptr, nullptr, "", "", nullptr, nullptr, nullptr, nullptr, "", nullptr, false},
};

// Every field a line or line group of the four kinds returns up to qbXML 13.0 and the line modify
// carries, and those the line modify takes that the query never returns (PriceLevelRef,
// OverrideItemAccountRef). TaxAmount is left out: it is "not in QBD" in the reference.
const TxnLineField kLineFields[] = {
    {"TxnLineID", "TxnLineID", &TxnLine::txnLineID},
    {"ItemRef/ListID", "ItemGroupRef/ListID", &TxnLine::itemListID},
    {"ItemRef/FullName", "ItemGroupRef/FullName", &TxnLine::itemFullName},
    {"Desc", "Desc", &TxnLine::desc},
    {"Quantity", "Quantity", &TxnLine::quantity},
    {"UnitOfMeasure", "UnitOfMeasure", &TxnLine::unitOfMeasure},
    {"OverrideUOMSetRef/ListID", "OverrideUOMSetRef/ListID", &TxnLine::overrideUOMSetListID},
    {"OverrideUOMSetRef/FullName", "OverrideUOMSetRef/FullName", &TxnLine::overrideUOMSetFullName},
    {"Rate", nullptr, &TxnLine::rate},
    {"RatePercent", nullptr, &TxnLine::ratePercent},
    {"PriceLevelRef/ListID", nullptr, &TxnLine::priceLevelListID},
    {"PriceLevelRef/FullName", nullptr, &TxnLine::priceLevelFullName},
    {"ClassRef/ListID", nullptr, &TxnLine::classListID},
    {"ClassRef/FullName", nullptr, &TxnLine::classFullName},
    {"Amount", nullptr, &TxnLine::amount},
    {"InventorySiteRef/ListID", nullptr, &TxnLine::inventorySiteListID},
    {"InventorySiteRef/FullName", nullptr, &TxnLine::inventorySiteFullName},
    {"InventorySiteLocationRef/ListID", nullptr, &TxnLine::inventorySiteLocationListID},
    {"InventorySiteLocationRef/FullName", nullptr, &TxnLine::inventorySiteLocationFullName},
    {"SerialNumber", nullptr, &TxnLine::serialNumber},
    {"LotNumber", nullptr, &TxnLine::lotNumber},
    {"ServiceDate", "ServiceDate", &TxnLine::serviceDate},
    {"SalesTaxCodeRef/ListID", nullptr, &TxnLine::salesTaxCodeListID},
    {"SalesTaxCodeRef/FullName", nullptr, &TxnLine::salesTaxCodeFullName},
    {"IsTaxable", nullptr, &TxnLine::isTaxable},
    {"MarkupRate", nullptr, &TxnLine::markupRate},
    {"MarkupRatePercent", nullptr, &TxnLine::markupRatePercent},
    {"OverrideItemAccountRef/ListID", nullptr, &TxnLine::overrideItemAccountListID},
    {"OverrideItemAccountRef/FullName", nullptr, &TxnLine::overrideItemAccountFullName},
    {"Invoiced", nullptr, &TxnLine::invoiced},
    {"IsManuallyClosed", nullptr, &TxnLine::isManuallyClosed},
    {"Other1", nullptr, &TxnLine::other1},
    {"Other2", nullptr, &TxnLine::other2},
    {nullptr, "IsPrintItemsInGroup", &TxnLine::isPrintItemsInGroup},
    {nullptr, "TotalAmount", &TxnLine::totalAmount},
};

struct HeaderField {
    const char* path;
    std::string TxnHeader::*member;
};
const HeaderField kHeaderFields[] = {
    {"TxnID", &TxnHeader::txnID},
    {"EditSequence", &TxnHeader::editSequence},
    {"RefNumber", &TxnHeader::refNumber},
    {"TxnDate", &TxnHeader::txnDate},
    {"CustomerRef/ListID", &TxnHeader::customerListID},
    {"CustomerRef/FullName", &TxnHeader::customerFullName},
    {"TemplateRef/ListID", &TxnHeader::templateListID},
    {"TemplateRef/FullName", &TxnHeader::templateFullName},
    {"ShipMethodRef/FullName", &TxnHeader::shipMethodFullName},
    {"Subtotal", &TxnHeader::subtotal},
    {"SalesTaxTotal", &TxnHeader::salesTaxTotal},
    {"TotalAmount", &TxnHeader::totalAmount},
    {"BalanceRemaining", &TxnHeader::balanceRemaining},
};

// The custom fields of a transaction or line. The system compares the upper-cased names with
// "DOMAINE", "VINTAGE" and "SIZE" but keeps those and every other name alike, so no name is
// singled out here.
std::vector<TxnCustomField> ReadCustomFields(const View& parent) {
    std::vector<TxnCustomField> fields;
    for (const View& ext : parent.Children("DataExtRet"))
        fields.push_back({ext.GetValue("DataExtName"), ext.GetValue("DataExtValue")});
    return fields;
}

TxnLine ReadLine(const View& element, bool group) {
    TxnLine row;
    row.ret = element;
    for (const TxnLineField& f : kLineFields) {
        const char* path = group ? f.groupPath : f.linePath;
        if (path) row.*f.member = GetFieldString(element, path);
    }
    row.customFields = ReadCustomFields(element);
    if (group) {
        row.lineType = kLineGroup;
    } else if (!row.itemFullName.empty() || !row.itemListID.empty()) {
        row.lineType = kLineItem;
    } else {
        row.lineType = row.desc.empty() ? kLineBlank : kLineDescOnly;
    }
    return row;
}

// The walk over the lines of the returned transactions, with its round guard.
struct LineWalk {
    App& app;
    const TxnKindInfo& kind;
    std::vector<TxnLine>& out;
    int rounds = 0;
    bool stopped = false;

    // Counts a round; false (reported once) when the guard is passed.
    bool Round() {
        if (++rounds <= kLineWalkLimit) return true;
        QbState& qb = app.qb;
        qb.storedErrorText = std::string(kind.queryLabel) + "Next Line Loop encountered";
        DebugLog(app, qb.storedErrorText, 1);
        ContinueOrTerminate(app, "ERROR\t" + qb.storedErrorText);
        stopped = true;
        return false;
    }

    void Add(TxnLine row, std::size_t txnIndex) {
        row.txnIndex = txnIndex;
        if (!row.IsGroupEnd()) app.qb.txn.currentLineID = RunLineID(kind.kind, row.txnLineID);
        out.push_back(std::move(row));
    }

    void Group(const View& element, std::size_t txnIndex) {
        const std::size_t groupRow = out.size();
        TxnLine group = ReadLine(element, true);
        TxnLine end;
        end.lineType = kLineGroupEnd;
        end.group = groupRow;
        end.itemListID = group.itemListID;
        end.itemFullName = group.itemFullName;
        end.desc = group.desc;
        Add(std::move(group), txnIndex);
        for (const View& line : element.Children(kind.lineRet)) {
            if (!Round()) return;
            TxnLine row = ReadLine(line, false);
            row.group = groupRow;
            Add(std::move(row), txnIndex);
        }
        Add(std::move(end), txnIndex);
    }

    void Lines(const View& ret, std::size_t txnIndex) {
        for (const View& element : ret.Children()) {
            const std::string name = element.Name();
            const bool group = name == kind.groupRet;
            if (!group && name != kind.lineRet) continue;
            if (!Round()) return;
            if (group) {
                Group(element, txnIndex);
                if (stopped) return;
            } else {
                Add(ReadLine(element, false), txnIndex);
            }
        }
    }
};

TxnHeader ReadHeader(const View& ret) {
    TxnHeader h;
    h.ret = ret;
    for (const HeaderField& f : kHeaderFields) h.*f.member = GetFieldString(ret, f.path);
    h.customFields = ReadCustomFields(ret);
    return h;
}

// The returned transactions of a query's answer: a list, or the one object itself.
std::vector<View> Returned(const Response& response, const char* retName) {
    View detail = response.Detail();
    if (detail.IsNull()) return {};
    if (detail.Name() == retName) return {detail};
    return detail.Children(retName);
}

struct DateFilter {
    const char* question;  // "Modified From Date ("
    const char* fromPath;
    const char* toPath;
};
const DateFilter kModifiedDates = {"Modified From Date (",
                                   "ModifiedDateRangeFilter/FromModifiedDate",
                                   "ModifiedDateRangeFilter/ToModifiedDate"};
const DateFilter kTxnDates = {"Txn From Date (", "TxnDateRangeFilter/FromTxnDate",
                              "TxnDateRangeFilter/ToTxnDate"};

std::string DateOrThrow(const Node& query, const std::string& text) {
    if (text.empty()) return "";
    std::string date = QbxmlDate(text);
    if (date.empty()) {
        throw QbxmlError(QbxmlErrorKind::BadValue, query.Path(), "\"" + text + "\" is not a date");
    }
    return date;
}

// A reversed range asks whether to go on with the from-date alone, as the question says: the
// to-date is dropped, since with it QuickBooks could find nothing. No ends the program.
void SetDateRange(App& app, Node& query, const DateFilter& filter, const std::string& fromText,
                  const std::string& toText) {
    const std::string from = DateOrThrow(query, fromText);
    std::string to = DateOrThrow(query, toText);
    if (!from.empty() && !to.empty() && to < from) {
        const std::string question = filter.question + fromText + ")> To Date (" + toText +
                                     "), only From Date used. Click YES to Continue NO to "
                                     "terminate. ";
        DebugLog(app, question, 5);
        if (ShowMessage(app, question, kMbYesNo | kMbQuestion) == kAnsNo) CloseEnd(app, 1);
        to.clear();
    }
    if (!from.empty()) query.Field(filter.fromPath).SetValue(from);
    if (!to.empty()) query.Field(filter.toPath).SetValue(to);
}

// The customer's transactions only: the entity filter. It may stand beside the date and
// number-range filters, but not beside the RefNumber list.
void SetCustomerAndLimit(Node& query, const TxnQueryOptions& o) {
    if (!o.customer.empty()) query.Append("EntityFilter/FullName").SetValue(o.customer);
    if (o.maxReturned > 0) query.Field("MaxReturned").SetValue(o.maxReturned);
}

// The filters, in the order of precedence: the TxnID alone; without TxnID and number the date
// ranges (and the customer); the number alone, or with the customer as a range of that one
// number, since the 7.0 query has no exact-number filter beside the entity filter. When both
// date ranges are given both are checked, and the transaction-date range, set last, is the one
// sent: the two exclude each other.
void SetFilters(App& app, Node& query, const TxnQueryOptions& o) {
    if (!o.txnID.empty()) {
        query.Append("TxnID").SetValue(o.txnID);
        return;
    }
    if (o.refNumber.empty()) {
        SetDateRange(app, query, kModifiedDates, o.modifiedFrom, o.modifiedTo);
        SetDateRange(app, query, kTxnDates, o.txnDateFrom, o.txnDateTo);
        SetCustomerAndLimit(query, o);
        return;
    }
    if (o.customer.empty()) {
        if (!o.numberTxnID.empty()) {
            query.Append("TxnID").SetValue(o.numberTxnID);
        } else {
            query.Append("RefNumber").SetValue(o.refNumber);
        }
        return;
    }
    SetCustomerAndLimit(query, o);
    query.Field("RefNumberRangeFilter/FromRefNumber").SetValue(o.refNumber);
    query.Field("RefNumberRangeFilter/ToRefNumber").SetValue(o.refNumber);
}

// Status handling of the query: true for status 0. Status 1 leaves the not-found text for the
// caller; any other status is shown, unless its severity is "warn" in lower case (QuickBooks
// writes "Warn", so in practice every one is shown).
bool StatusOK(App& app, const TxnKindInfo& k, const Response& response) {
    const int code = response.StatusCode();
    app.qb.txn.statusCode = code;
    if (code == kStatusOK) return true;
    if (code == kStatusNoMatch) {
        app.qb.storedErrorText = k.notFound;
        DebugLog(app, std::string(k.queryLabel) + k.notFound, 5);
        return false;
    }
    const std::string severity = response.StatusSeverity();
    const std::string text = "Error occured.  Status Code = " + std::to_string(code) +
                             ", Status Message = " + response.StatusMessage() +
                             ", Status Severity = " + severity;
    DebugLog(app, std::string(k.queryLabel) + text, 5);
    if (severity != "warn") ShowMessage(app, text, kMbExclamation, "Message from QuickBooks");
    return false;
}

bool Digits(std::string_view s, std::size_t min, std::size_t max) {
    if (s.size() < min || s.size() > max) return false;
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

}  // namespace

const TxnKindInfo& KindInfo(TxnKind kind) {
    return kKinds[static_cast<std::size_t>(kind)];
}

std::string RunLineID(TxnKind kind, const std::string& txnLineID) {
    return KindInfo(kind).keepsLineID ? txnLineID : "-1";
}

std::span<const TxnLineField> TxnLineFields() {
    return kLineFields;
}

std::string QbxmlDate(std::string_view text) {
    const std::string t = Trim(text);
    if (t.size() >= 10 && Digits(t.substr(0, 4), 4, 4) && t[4] == '-' &&
        Digits(t.substr(5, 2), 2, 2) && t[7] == '-' && Digits(t.substr(8, 2), 2, 2))
        return t;
    std::vector<std::string> parts = Split(t, '/');
    if (parts.size() != 3 || !Digits(parts[0], 1, 2) || !Digits(parts[1], 1, 2) ||
        (!Digits(parts[2], 2, 2) && !Digits(parts[2], 4, 4)))
        return "";
    const int month = std::stoi(parts[0]), day = std::stoi(parts[1]);
    int year = std::stoi(parts[2]);
    if (parts[2].size() == 2) year += year < 50 ? 2000 : 1900;
    if (month < 1 || month > 12 || day < 1 || day > 31) return "";
    char out[16];
    std::snprintf(out, sizeof out, "%04d-%02d-%02d", year, month, day);
    return out;
}

std::optional<Response> SendForFirstResponse(App& app, const MsgSetRequest& set,
                                             const std::string& level, const std::string& label) {
    SendResult sent = DoRequests(app, set);
    if (!sent.ok) {
        ReportError(app, level, label, sent.error, sent.description);
        return std::nullopt;
    }
    Response response = sent.responseSet.ResponseList().GetAt(0);
    if (response.IsNull()) {
        ReportError(app, level, label, kErrBadResponse,
                    "QuickBooks answered none of the 1 requests sent");
        return std::nullopt;
    }
    return response;
}

bool TxnQuerySub(App& app, TxnKind kind, const TxnQueryOptions& o) {
    const TxnKindInfo& k = KindInfo(kind);
    const std::string label = k.queryLabel;
    DebugLog(app,
             label + o.refNumber + ", " + o.customer + ", " + o.txnID + ", " + o.txnDateFrom + "-" +
                 o.txnDateTo,
             5);
    QbState& qb = app.qb;
    TxnState& txn = qb.txn;
    txn.kindCode = "CC";
    txn.txns.clear();
    txn.lines.clear();
    txn.statusCode = kNoStatus;
    if (!k.queryRq) {
        DebugLog(app, "Txn Query Sub no query for " + std::string(k.windowTitle), 1);
        return false;
    }
    if (!QBOpen(app)) return false;

    MsgSetRequest& set = *RequestSet(app);
    set.ClearRequests();
    // The query goes out under continueOnError; the set's own mode is restored once it is sent,
    // so that the modify and list requests built in it later keep theirs.
    const OnError setMode = set.attributes.onError;
    set.attributes.onError = OnError::continueOnError;
    const std::string handler = Trim(label);
    try {
        Node& query = set.Append(k.queryRq);
        // Owner "0" brings the custom fields of the transaction and its lines.
        if (query.Supports("OwnerID")) query.Append("OwnerID").SetValue(kOwnerUser);
        SetFilters(app, query, o);
        if (o.includeLineItems) query.Field("IncludeLineItems").SetValue(true);
    } catch (const QbxmlError& e) {
        set.attributes.onError = setMode;
        ReportError(app, "INFO", handler, kErrBadRequest, e.what());
        return false;
    }

    std::optional<Response> response = SendForFirstResponse(app, set, "INFO", handler);
    set.attributes.onError = setMode;
    if (!response || !StatusOK(app, k, *response)) return false;

    std::vector<View> rets = Returned(*response, k.retName);
    DebugLog(app, label + "count=" + std::to_string(rets.size()), 5);
    LineWalk walk{app, k, txn.lines};
    for (std::size_t i = 0; i < rets.size(); ++i) {
        DebugLog(app, "invndx=" + std::to_string(i), 5);
        qb.*k.ret = rets[i];
        TxnHeader header = ReadHeader(rets[i]);
        header.firstLine = txn.lines.size();
        walk.Lines(rets[i], i);
        header.lineCount = txn.lines.size() - header.firstLine;
        txn.txns.push_back(std::move(header));
        // A table cut short must not be written back: the lines missing from it would be
        // deleted by the modify.
        if (walk.stopped) return false;
    }
    if (o.includeLineItems && txn.lines.empty()) {
        const std::string text = label + "Line Count <=0";
        DebugLog(app, text, 5);
        ShowMessage(app, text);
    }
    DebugLog(app, label + "Exit OK", 5);
    return true;
}

TxnHeader ReadTxn(App& app, TxnKind kind, const View& ret, std::vector<TxnLine>& lines) {
    TxnHeader header = ReadHeader(ret);
    LineWalk walk{app, KindInfo(kind), lines};
    header.firstLine = lines.size();
    walk.Lines(ret, 0);
    header.lineCount = lines.size() - header.firstLine;
    return header;
}

View ReturnedTxn(const Response& response, TxnKind kind) {
    std::vector<View> rets = Returned(response, KindInfo(kind).retName);
    return rets.empty() ? View() : rets.front();
}

}  // namespace pelmark::qb
