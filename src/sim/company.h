// qbsim's company file: the QuickBooks objects of one company, kept as the Ret elements that
// QuickBooks returns for them, plus the stand-in's own switches, loaded and saved as XML.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sim/fileStamp.h"

namespace pelmark::sim {

// The company file looks like this (any element may be pasted from a real QuickBooks response):
//
//   <QBSimCompany>
//     <QBSimSettings restrictedUser="false" nextID="80000100" clock="2024-05-01T09:30:00-05:00">
//       <TxnDisplay sequence="7" txnType="Invoice" txnID="1F4-1711980000"
//                   time="2024-05-01T09:30:00-05:00"/>   (none or more; see below)
//     </QBSimSettings>
//     <HostRet>...</HostRet>                 exactly one
//     <CompanyRet>...</CompanyRet>           exactly one
//     <DataExtDefRet>...</DataExtDefRet>     custom field and private data definitions
//     <CustomerRet>, <ItemServiceRet> (and every other Item*Ret), <SalesTaxCodeRet>,
//     <TemplateRet>, <InvoiceRet>, <EstimateRet>, <SalesOrderRet>, <SalesReceiptRet>, ...
//     <QBSimFault request="K" kind="error|lost|status"/>   none or one (see SimTransport)
//   </QBSimCompany>
//
// QBSimSettings (optional, all attributes optional):
//   restrictedUser  "true": the QuickBooks user lacks the permission to see every item and sales
//                   tax code field, so those queries get status 3260 unless IncludeRetElement
//                   limits what they return.
//   nextID          hexadecimal counter for the first part of new IDs ("80000100").
//   clock           a fixed time for TimeModified and EditSequence, so runs are repeatable.
//
// TxnDisplay (inside QBSimSettings): a transaction a TxnDisplayModRq asked QuickBooks to show,
// which the simulated desktop opens in a transaction window. sequence counts the requests from 1
// (a window that has shown number N waits for a higher one); txnType is the request's
// TxnDisplayModType ("Invoice", "Estimate", "SalesOrder", "SalesReceipt"); time is when it was
// asked. The last kDisplayHistory requests are kept, oldest first.
inline constexpr const char* kRootName = "QBSimCompany";
inline constexpr const char* kSettingsName = "QBSimSettings";
// A fault to inject (see SimTransport): <QBSimFault request="K" kind="error|lost|status"/>.
inline constexpr const char* kFaultName = "QBSimFault";

// The item kinds QuickBooks returns to ItemQueryRq, all in one list (one ListID space).
inline constexpr std::string_view kItemRets[] = {
    "ItemServiceRet",           "ItemNonInventoryRet", "ItemOtherChargeRet",   "ItemInventoryRet",
    "ItemInventoryAssemblyRet", "ItemFixedAssetRet",   "ItemSubtotalRet",      "ItemDiscountRet",
    "ItemPaymentRet",           "ItemSalesTaxRet",     "ItemSalesTaxGroupRet", "ItemGroupRet"};
// The sales transactions the sort works on ("Invoice" -> InvoiceRet, InvoiceLineRet, ...).
inline constexpr std::string_view kTxnKinds[] = {"Invoice", "Estimate", "SalesOrder",
                                                 "SalesReceipt"};

inline constexpr std::size_t kDisplayHistory = 16;

// One TxnDisplay record.
struct DisplayRequest {
    long sequence = 0;
    std::string txnType, txnID, time;
};

enum class LoadStatus {
    Ok,
    NotFound,    // no such file
    Unreadable,  // the file could not be read
    Malformed,   // not XML, or not a company qbsim can use
};

struct LoadResult {
    LoadStatus status = LoadStatus::Ok;
    int line = 0, column = 0;  // 1-based; 0 when the problem has no position
    std::string description;
    bool ok() const { return status == LoadStatus::Ok; }
    // "line 12, column 5: <description>", or the description alone.
    std::string ToString() const;
};

struct SaveResult {
    bool ok = true;
    std::string description;
    std::string written;  // the bytes written, when ok
    FileStamp stamp;      // the file's stamp just after the save
};

// ASCII case-insensitive equality: QuickBooks matches names without regard to case.
bool SameText(std::string_view a, std::string_view b);
// The text of the named child element ("" when absent).
std::string ChildText(pugi::xml_node node, const char* name);
// FullName where the object kind has one, else Name (ItemGroupRet, ItemSubtotalRet, ...).
std::string FullNameOf(pugi::xml_node object);
// OwnerIDs compare without case and braces: QuickBooks stores GUIDs in capitals.
bool SameOwner(std::string_view a, std::string_view b);

class Company {
  public:
    Company();
    ~Company();
    Company(Company&&) noexcept;
    Company& operator=(Company&&) noexcept;
    Company(const Company&) = delete;
    Company& operator=(const Company&) = delete;

    // Replace the company with the one in the text or file. On failure the company stays as it
    // was and the result names the line and the reason.
    LoadResult LoadText(std::string_view xml);
    // With `bytes`, the file's text as read is kept there.
    LoadResult LoadFile(const std::string& path, std::string* bytes = nullptr);
    // Writes a temporary file beside `path` and renames it over `path`, so that a crash or a
    // killed process leaves either the old company or the new one, never a part of one. The new
    // file's write time is set back by more than kStampGrain, with a random fraction of a second:
    // any later write of the file (in place, or another save) stamps it with another time, so
    // its stamp tells alone whether it is still the file saved (see SimTransport::FileChanged).
    SaveResult SaveFile(const std::string& path) const;
    std::string ToXml() const;
    bool IsLoaded() const;
    // With `reuse`, a save takes the text of a stored object (a ListID or TxnID, and an
    // EditSequence) from the save before when its kind, ID and EditSequence are the same, so a
    // save serialises only what changed. QuickBooks gives an object a new EditSequence with every
    // change, and qbsim's request processor does the same (Touch); code that changes objects
    // another way must not turn this on. Debug builds check every such save against ToXml.
    void ReuseSavedText(bool reuse) { reuseSaved_ = reuse; }

    bool RestrictedUser() const;

    pugi::xml_node Root() const;
    pugi::xml_node Host() const;         // HostRet
    pugi::xml_node CompanyInfo() const;  // CompanyRet
    // Every stored object of one Ret kind, in file order.
    std::vector<pugi::xml_node> Objects(std::string_view retName) const;
    // Every item of any kind, in file order.
    std::vector<pugi::xml_node> Items() const;
    // A list object of the given Ret kinds by ListID (exact) or full name (any case).
    pugi::xml_node FindByListID(const std::vector<std::string_view>& retNames,
                                std::string_view listID) const;
    pugi::xml_node FindByFullName(const std::vector<std::string_view>& retNames,
                                  std::string_view fullName) const;
    // A transaction of a kind ("Invoice") by TxnID; a line or line group of it by TxnLineID,
    // lines inside groups included.
    pugi::xml_node FindTxn(std::string_view kind, std::string_view txnID) const;
    static pugi::xml_node FindTxnLine(pugi::xml_node txn, std::string_view txnLineID);

    // New IDs in QuickBooks' style: a hexadecimal counter, "-", and a 10-digit time. The lines of
    // a transaction share the transaction's time part, as QuickBooks' line IDs do.
    std::string NewListID();
    std::string NewTxnID();
    std::string NewTxnLineID(std::string_view txnID);
    // The current time as QuickBooks writes it ("2024-05-01T09:30:00-05:00"), and in seconds
    // since 1970 for EditSequence.
    std::string Now() const;
    std::int64_t NowSeconds() const;
    // Marks an object as changed the way QuickBooks does: new TimeModified and EditSequence.
    void Touch(pugi::xml_node object);

    // The TxnDisplay records, oldest first; RecordDisplay adds one with the next sequence number.
    std::vector<DisplayRequest> DisplayRequests() const;
    void RecordDisplay(std::string_view txnType, std::string_view txnID);

    // Whether anything changed since the last load or ClearModified.
    bool Modified() const { return modified_; }
    void MarkModified() { modified_ = true; }
    void ClearModified() { modified_ = false; }

  private:
    pugi::xml_node Settings() const;
    pugi::xml_node MakeSettings();
    std::uint32_t TakeCounter();

    std::string SaveText() const;

    std::unique_ptr<pugi::xml_document> doc_;
    bool modified_ = false;
    bool reuseSaved_ = false;
    // Each object's text at the last save, by kind, ID and EditSequence.
    mutable std::unordered_map<std::string, std::string> saved_;
    mutable std::size_t saveSize_ = 0;
};

}  // namespace pelmark::sim
