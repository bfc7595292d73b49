// The sort journal: one readable file per sort in the data folder, written before the modify,
// from which Undo writes the transaction back as it was.
#pragma once

#include <string>
#include <vector>

namespace pelmark {

struct App;

// How many journals are kept when the setting is empty or not a number.
inline constexpr int kJournalsKeptDefault = 100;

inline constexpr const char* kJournalPlanned = "planned";    // written, the modify not sent yet
inline constexpr const char* kJournalModified = "modified";  // the modify went through
inline constexpr const char* kJournalDone = "done";          // the check passed
inline constexpr const char* kJournalFailed = "check failed";
inline constexpr const char* kJournalUndone = "undone";

struct Journal {
    std::string path;  // where it is kept ("" until saved)
    std::string time;  // local time of the sort, "yyyy-mm-dd hh:mm:ss"
    std::string company;
    std::string kind;  // "Invoice", "Estimate", "SalesOrder", "SalesReceipt"
    std::string txnID, refNumber;
    std::string editSequence;       // as queried before the sort
    std::string editSequenceAfter;  // as QuickBooks gave it last during the sort; "" unknown
    std::string state = kJournalPlanned;
    std::vector<std::string> settings;      // the sort settings, one per entry
    std::vector<std::string> order;         // the planned lines: a TxnLineID or "blank"
    std::vector<std::string> customFields;  // "TxnLineID|name|value" of every line
    std::string transaction;                // the queried transaction element, as it came
};

// The file's text: readable lines, the transaction, and a checksum line that tells a journal
// cut short or edited from a whole one.
std::string JournalText(const Journal& journal);
struct JournalRead {
    bool ok = false;
    std::string error;  // in the system's words
    Journal journal;
};
JournalRead ParseJournal(const std::string& text);

// The folder of the journals (inside the data folder).
std::string JournalFolder(const App& app);
// Writes the journal whole (a temporary file flushed to disk, then renamed over the journal),
// naming a new file on its first save, and keeps only the newest journals of the setting.
// False (with the reason in `error`) when it could not be written.
bool SaveJournal(App& app, Journal& journal, std::string& error);
JournalRead LoadJournal(App& app, const std::string& path);
// Every journal of the folder, newest first; unreadable ones listed with state "damaged".
std::vector<Journal> ListJournals(App& app);

}  // namespace pelmark
