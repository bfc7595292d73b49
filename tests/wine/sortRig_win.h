// The harness for running Pelmark end to end under Wine: a copy of the sample company, the fake
// QuickBooks showing one of its transactions, qbcom answering for QuickBooks from the same copy,
// a settings file, the command run and waited for, and checks on the company file afterwards.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fakes.h"
#include "wine/fakeqb_win.h"

namespace pelmark::test {

struct CommandResult {
    bool started = false;
    bool timedOut = false;  // ended by the harness
    unsigned long exitCode = 0;
    std::string output;  // standard output and error, as they came
};

// Runs a command line with no input and waits for it, at most `timeoutMs`.
CommandResult RunCommand(const std::wstring& commandLine, int timeoutMs);

class DesktopSortRig {
  public:
    struct Options {
        Options(std::string kind_, std::string refNumber_)
            : kind(std::move(kind_)), refNumber(std::move(refNumber_)) {}
        std::string kind;          // fakeqb's kind: invoice, estimate, salesorder, salesreceipt
        std::string refNumber;     // of a transaction of that kind in samples/company.xml
        std::string openSettings;  // after the --open, e.g. ";stubborn"
        std::vector<std::string> moreArgs;  // more fakeqb arguments (another --open ...)
        bool quickBooksRunning = true;      // fakeqb is started
        bool registered = true;             // qbcom is registered on the copy
    };
    explicit DesktopSortRig(const Options& options);
    ~DesktopSortRig();
    DesktopSortRig(const DesktopSortRig&) = delete;
    DesktopSortRig& operator=(const DesktopSortRig&) = delete;

    // pelmark-cli.exe sort --settings FILE --data-dir DIR --answer ANSWER
    CommandResult RunCli(const std::string& answer, int timeoutMs = 180000) const;

    // Null when QuickBooks is not running.
    FakeQbProgram* quickBooks() const { return qb_.get(); }
    // The transaction's window title ("Create Invoices").
    const std::string& windowTitle() const { return title_; }

    // The transaction as the company file holds it now: the item full names of its rows in
    // order, and every line's fields (without its TxnLineID) as sorted texts, one per line.
    std::vector<std::string> Items() const;
    std::vector<std::string> LineTuples() const;
    const std::vector<std::string>& itemsBefore() const { return itemsBefore_; }
    const std::vector<std::string>& tuplesBefore() const { return tuplesBefore_; }
    // The company file is byte for byte what it was before the run.
    bool CompanyUnchanged() const;
    // A display request for the transaction was recorded since the rig was set up.
    bool Displayed() const;

  private:
    TempDir dir_;
    std::string companyPath_, dataDir_, settingsPath_, original_;
    std::string companyKind_, txnID_, title_;
    long lastDisplay_ = 0;
    std::vector<std::string> itemsBefore_, tuplesBefore_;
    std::unique_ptr<FakeQbProgram> qb_;
};

}  // namespace pelmark::test
