// The QuickBooks SDK layer (the qbCommon module): session, request execution, list queries and
// custom fields over qbXML.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/items.h"
#include "qb/qbxml.h"
#include "qb/qbxmlResponse.h"
#include "qb/transport.h"
#include "qb/txn.h"

namespace pelmark {
struct App;
}

namespace pelmark::qb {

// The program's name for QuickBooks in progress texts and messages (UTF-8).
inline constexpr const char* kQuickBooks = "QuickBooks\xC2\xAE";
// The owner of the custom fields that QuickBooks users define themselves.
inline constexpr const char* kOwnerUser = "0";

// Status codes the program acts on.
inline constexpr int kStatusOK = 0;
inline constexpr int kStatusNoMatch = 1;          // a query found nothing
inline constexpr int kStatusPartial = 500;        // some data could not be returned
inline constexpr int kStatusNotFound = 3120;      // the object named cannot be found
inline constexpr int kStatusNoPermission = 3260;  // the user may not see some fields

// Error numbers of the program's own, in the range COM leaves to an interface's own codes
// (FACILITY_ITF, from 0x0200 on): problems found before or after QuickBooks was asked.
inline constexpr uint32_t kErrNoSession = 0x80040201;    // no connection, session or request set
inline constexpr uint32_t kErrBadResponse = 0x80040202;  // an answer that cannot be read
inline constexpr uint32_t kErrBadRequest = 0x80040203;   // a request that cannot be written

// The request sets made at QBOpen: the default one, three more, and the custom-field one.
enum RequestSetId : std::size_t {
    kRsDefault = 0,
    kRsSecond = 1,
    kRsThird = 2,
    kRsFourth = 3,
    kRsDataExt = 4,
    kRequestSetCount = 5
};

struct CompanyInfo {
    std::string name, legalName;
    std::string state;           // State, or Province for "CA"
    std::string businessNumber;  // "CA" only
};

struct CustomerRec {
    std::string name, fullName, listID, editSequence;
    bool isActive = true;
};

struct TemplateRec {
    std::string name, listID, templateType;  // templateType: "Invoice", "Estimate", ...
    bool isActive = true;
};

// One custom-field definition of the company (DataExtDefRet).
struct DataExtDef {
    std::string ownerID, name, type;  // type: "STR255TYPE", "AMTTYPE", ...
    std::vector<std::string> assignToObject;
};

// Module state of qbCommon: one per application.
struct QbState {
    // Session. connectionOpen and ticket say what QBClose still has to end; sessionOpen is set
    // only when QBOpen went through to its end.
    bool sessionOpen = false;
    bool connectionOpen = false;
    bool sessionBegun = false;
    std::string ticket;
    bool closeRegistered = false;
    std::string appName;
    std::string companyFileName;
    CompanyInfo company;
    std::string paySalesTax;
    std::string hostProductName, hostMajorVersion, hostMinorVersion;
    double highestQbxmlVersion = 0;
    std::string highestQbxmlVersionText;
    std::string requestMajorVersion, requestMinorVersion;
    std::optional<int> cannotModifyInvoices;  // answer to the "does not support" message
    bool lineCustomFieldsSupported = true;
    // Element names the item reader asks for when permissions limit what it may see.
    std::vector<std::string> itemFieldNames;

    std::array<std::optional<MsgSetRequest>, kRequestSetCount> requestSets;

    // What the latest request brought back.
    std::optional<ResponseSet> lastResponseSet;
    Response currentResponse;
    int lastStatusCode = 0;
    std::string lastStatusMessage;
    std::string lastTxnID, lastEditSequence;
    int roundTrips = 0;  // request sets sent to QuickBooks since the count was last cleared
    View invoiceRet, estimateRet, salesOrderRet, salesReceiptRet;
    std::string storedErrorText;

    // The queried transactions, their line table and the modify requests being built.
    TxnState txn;

    std::vector<DataExtDef> dataExtDefs;

    // Lists. Items go to App::items; this is their index by full name.
    std::vector<CustomerRec> customers;
    std::vector<TemplateRec> templates;
    std::map<std::string, std::size_t, NoCaseLess> itemsByFullName;

    // Where progress texts ("Getting Items from QuickBooks®") go: the main form's status label
    // when the form sets it; the debug log otherwise.
};

// "True" / "False", as the traces write flags.
inline const char* BoolText(bool value) {
    return value ? "True" : "False";
}

// ---- Session (session.cpp) ------------------------------------------------------------

// Opens connection and session once per run, chooses the qbXML version, makes the request
// sets, reads the company and its custom-field definitions. True when the session is open.
// A failure is reported through the continue-or-terminate prompt and leaves it closed.
bool QBOpen(App& app, int openMode = kOpenDoNotCare);
// Ends session and connection; the next QBOpen opens them again.
void QBClose(App& app);
// Ends the session after QuickBooks failed to take a request (it was closed, the company was
// changed), so that the next QBOpen connects again instead of failing the same way.
void QBCloseAfterFailure(App& app);
// Opens QuickBooks and loads customers, templates and items, as the main form does at start.
// False when QuickBooks could not be opened (nothing is loaded then).
bool QBInit(App& app);
void ParseCompanyQueryRs(App& app, const Response& response, const std::string& country);

// The request major and minor version for a host's highest qbXML version text: never above
// 13.0. "16.0" -> {"13","0"}, "7.1" -> {"7","1"}, "6.0" -> {"6","0"}, "2" -> {"2","0"}.
std::pair<std::string, std::string> ChooseRequestVersion(const std::string& highestText);
// The application name the connection is opened under.
std::string ApplicationName();
// A request set of the session; nullptr before QBOpen made them.
MsgSetRequest* RequestSet(App& app, RequestSetId id = kRsDefault);

// ---- Requests (request.cpp) -----------------------------------------------------------

// One round trip, nothing judged: the session manager's DoRequests. The queries that read
// their own responses use it; everything else goes through DoRequest.
struct SendResult {
    bool ok = false;
    uint32_t error = 0;       // the transport's HRESULT, or kErrNoSession / kErrBadResponse ...
    std::string description;  // in plain words, naming what failed
    std::string requestXml;
    std::string responseText;  // as it came back, also when it could not be read
    ResponseSet responseSet;
};
SendResult DoRequests(App& app, const MsgSetRequest& request);

struct DoRequestOptions {
    std::string callerLabel;           // "Invoice Mod": prefixes the failure prompt
    MsgSetRequest* request = nullptr;  // nullptr: the default request set
    bool keepOwnResponse = false;      // true: the response is not kept as the last one
    bool clearStoredError = false;
    bool showErrors = true;
};

struct DoRequestResult {
    bool ok = true;
    std::string statusText;  // one " Status: Code = ..." line per response examined
    std::string customerListID;
    std::string editSequence;
    std::optional<ResponseSet> responseSet;
};

// Sends a prepared request set (or a qbXML string) and judges every response: a non-zero
// status whose severity is not exactly "Info" fails, and the walk stops there.
DoRequestResult DoRequest(App& app, const DoRequestOptions& options);

// The failure prompt of DoRequest: the caller label and the status text, continue or end.
void ReportRequestFailure(App& app, const std::string& callerLabel, const std::string& statusText);
// An error handler's report: "<label> Err=<number> <description>", traced and put through the
// continue-or-terminate prompt under the level word ("INFO", "ERROR").
void ReportError(App& app, const std::string& level, const std::string& label, uint32_t number,
                 const std::string& description);
std::string ErrNumberText(uint32_t number);  // "0x80040416"

struct SetFieldOptions {
    bool allowEmpty = false;        // an empty value clears the field (SetEmpty)
    bool convertLineFeeds = false;  // each line feed is sent as the two characters "\l"
};
// Sets one request field. The value is cut to the field's maximum length in characters, and
// the caller's variable is cut with it. Errors are ignored: a field the request cannot take
// is left unset.
void SetFieldValue(Field& field, std::string& value, SetFieldOptions options = {});
void SetFieldValue(Node& parent, std::string_view path, std::string& value,
                   SetFieldOptions options = {});
inline void SetFieldValue(Node& parent, std::string_view path, std::string&& value,
                          SetFieldOptions options = {}) {
    SetFieldValue(parent, path, value, options);
}

// A response field as text: the element at `path` below `parent` (the parent itself when the
// path is empty); "" when it is absent.
std::string GetFieldString(const View& parent, std::string_view path = {}, bool asString = false);
// FullName of a reference (ItemRef, ClassRef, ...); "" when absent.
std::string GetRefFullName(const View& ref);
// Appends a repeatable leaf (OwnerID, TxnID, ...) holding the value, unless it is empty.
void AddIfNotEmpty(Node& parent, std::string_view name, const std::string& value);

struct SalesModHead {
    std::string txnID, editSequence;
    std::string shipMethod;  // empty: left unset
};
// Fills TxnID, EditSequence and ShipMethodRef of a modify (the InvoiceMod aggregate, ...); the
// modify is sent later, with its lines. False when a field could not be set (reported).
bool SalesCommonModSub(App& app, Node& mod, const SalesModHead& head);

// ---- Lists (lists.cpp) ----------------------------------------------------------------

// Item query into App::items; fullLoad empties the table first. `name` narrows the query to
// one item full name (empty: all items).
bool ItemQuerySub(App& app, bool fullLoad = true, const std::string& name = {});
// One item query naming every given item by ListID: the items as QuickBooks has them now, in
// the answer's order (an ID QuickBooks does not know is simply missing). Nothing when the query
// failed (reported). The item table of the app is left as it is.
std::optional<std::vector<ItemRec>> ItemsByListID(App& app, const std::vector<std::string>& ids);
// Reads one returned item (ItemServiceRet, ...) into App::items; false when it was skipped.
bool ParseItemRet(App& app, const View& itemRet);
bool CustomerQuerySub(App& app, const std::string& fullName = {});
bool TemplateQuerySub(App& app, const std::string& hostMajorVersion = {});
// Rebuilds the index by full name after App::items was filled (also by the IIF reader).
void IndexItems(App& app);
// The item of that full name, without regard to case; nullptr when unknown.
const ItemRec* FindItem(const App& app, const std::string& fullName);

// ---- Custom fields (dataExt.cpp) ------------------------------------------------------

struct DataExtOptions {
    std::string ownerID = kOwnerUser;
    std::string value;
    std::string fieldName;
    std::string txnID;
    std::string kind;    // TxnDataExtType: "Invoice", "Estimate", "SalesOrder", "SalesReceipt"
    std::string lineID;  // TxnLineID of a line field; empty for a field of the transaction
    // A failed add is tried once more as a modify: the field may hold a value already (one the
    // item gave a new line).
    bool fallBackToMod = false;
    bool deleteWhenEmpty = false;  // an empty value deletes the field's value
};

bool DataExtAddTxn(App& app, const DataExtOptions& options);
bool DataExtDelTxn(App& app, const DataExtOptions& options);
// The combined form: every value as a custom-field add (an empty value with deleteWhenEmpty as a
// delete) in one request set, and the adds refused with fallBackToMod once more as modifies in a
// second one: a new line may hold its item's value already.
bool DataExtAddTxns(App& app, const std::vector<DataExtOptions>& values);
// Reads the custom-field definitions from the answer to a DataExtDefQueryRq.
void FillDataExts(App& app, const ResponseSet& responseSet);

}  // namespace pelmark::qb
