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
// Beside the company file lies its change log, "<company>.log", so that a change costs what
// changed and not the whole file (SimTransport saves every request set that changes anything):
//
//   <QBSimLog base="GENERATION" size="BYTES"/>     first line: the base file it continues
//   <QBSimChange>                                   one record per save, oldest first
//     <QBSimSettings .../>                          the settings after the save, when any
//     <InvoiceRet>...</InvoiceRet>                  every object the save changed or added, whole
//     <QBSimRemove kind="QBSimFault"/>              an element the save took away
//   </QBSimChange>                                  the record's commit mark, ended by a newline
//
// The base file's root carries generation="GENERATION", a random number each full save writes
// anew. A log whose header does not name the base's generation and size is left over from before
// the base was written (a full save, a hand edit, an edit without the generation) and is ignored;
// so is a last record without its commit mark (the writer died in the middle of it). Loading
// applies the records in order: an object replaces the one of its kind and TxnID or ListID, or is
// added at the end. A full save writes the base (temporary file and rename) and then deletes the
// log, so a crash at any instant leaves the old state or the new one.
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
    bool logged = false;  // the change went to the log; the base file is as it was
};

// The change log of a company file.
std::string LogPathOf(const std::string& companyPath);

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
    // The base file and its change log. With `bytes`, the base file's text as read is kept there.
    LoadResult LoadFile(const std::string& path, std::string* bytes = nullptr);
    // After LoadFile or a save of `path`: applies the records another process appended to the
    // log since. Reload when the log is not the one read before (the base was written anew).
    enum class Tail { Same, Applied, Reload };
    Tail ReadLogTail(const std::string& path);
    // The log's stamp as last read or written (not ok when there was none).
    const FileStamp& LogStamp() const { return logStamp_; }
    // Whether the log holds records (a full save folds them into the base).
    bool HasLog() const { return logRecords_ > 0; }
    // Writes a temporary file beside `path` and renames it over `path`, so that a crash or a
    // killed process leaves either the old company or the new one, never a part of one. The new
    // file's write time is set back by more than kStampGrain, with a random fraction of a second:
    // any later write of the file (in place, or another save) stamps it with another time, so
    // its stamp tells alone whether it is still the file saved (see SimTransport::FileChanged).
    // The base file gets a new generation, and the log is deleted.
    SaveResult SaveFile(const std::string& path);
    // Saves what changed since `path` was loaded or saved: one record appended to its log. A full
    // save instead when the log has grown past half the base, when the base has no generation or
    // is another file, or when a change cannot be told by object (MarkModified, an object
    // without an ID).
    SaveResult SaveChanges(const std::string& path);
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

    // Changing the stored objects: adds a copy at the end, puts a copy in place of `old`, takes
    // one away. Each returns the stored node and keeps the lookups' index and the log up to date.
    pugi::xml_node Append(pugi::xml_node object);
    pugi::xml_node Replace(pugi::xml_node old, pugi::xml_node object);
    void Remove(pugi::xml_node object);

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

    // Whether anything changed since the last load or ClearModified. MarkModified is for a change
    // made without Touch: the next SaveChanges writes the whole file.
    bool Modified() const { return modified_; }
    void MarkModified() { modified_ = untracked_ = true; }
    void ClearModified() { modified_ = false; }
    void KeepModified(bool was) { modified_ = modified_ || was; }

  private:
    struct Index;
    pugi::xml_node Settings() const;
    pugi::xml_node MakeSettings();
    std::uint32_t TakeCounter();
    const Index& Indexed() const;
    void Dirty(pugi::xml_node object);
    LoadResult Parse(std::string_view xml, std::string* generation);
    std::string LogHeader() const;
    void ForgetLog();

    std::string SaveText();

    std::unique_ptr<pugi::xml_document> doc_;
    mutable std::unique_ptr<Index> index_;
    bool modified_ = false;
    bool reuseSaved_ = false;
    // The file the company was last loaded from or saved to, its base's generation and size, how
    // far its log was read (0: no usable log) and how many records that holds.
    std::string path_, generation_;
    std::uint64_t baseSize_ = 0, logEnd_ = 0;
    std::size_t logRecords_ = 0;
    FileStamp logStamp_;
    // What changed since: the top-level objects (Touch, Append, Replace), and the elements taken
    // away as (name, ID); untracked_ when a change cannot be told that way.
    std::vector<pugi::xml_node> dirty_;
    std::vector<std::pair<std::string, std::string>> removed_;
    bool untracked_ = false;
    bool replaying_ = false;  // applying the log: nothing to record
    // Each object's text at the last save, by kind, ID and EditSequence.
    mutable std::unordered_map<std::string, std::string> saved_;
    mutable std::size_t saveSize_ = 0;
};

}  // namespace pelmark::sim
