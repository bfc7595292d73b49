// A sort run rig: the test application on qbsim over a copy of a company file, with the
// simulated desktop showing a transaction, and a transport that can tamper with requests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/run.h"
#include "fakes/fakes.h"
#include "sim/simRun.h"

namespace pelmark::test {

inline const std::string kSampleCompany = std::string(PELMARK_SOURCE_DIR) + "/samples/company.xml";
inline const std::string kSampleSettings = std::string(PELMARK_SOURCE_DIR) + "/samples/Pelmark.ini";

// qbsim over the rig's company file; `edit` may change a request before it goes.
class TamperingTransport : public sim::SimTransport {
  public:
    using SimTransport::SimTransport;
    qb::TransportResult ProcessRequest(const std::string& ticket, const std::string& request,
                                       std::string* response) override;

    std::function<std::string(const std::string&)> edit;
    int stopAt = 0;  // the request at which the program is stopped (Stopped is thrown); 0 never
    std::vector<std::string> requests;
};

// Thrown by the transport at its stopAt request: the process ended there.
struct Stopped {};

struct SortRig {
    // QuickBooks with `ref` open (the first sales transaction when empty), over a copy of
    // `company`, and Pelmark started on the sample settings and loaded.
    explicit SortRig(const std::string& ref, const std::string& kind = {},
                     const std::string& company = kSampleCompany);

    // Shows another transaction of the same company, as the user would open it.
    void Open(const std::string& ref, const std::string& kind = {});
    bool Go() { return CmdGo(app); }
    // The sort levels: field names, with "-" in front for a descending level.
    void Levels(const std::vector<std::string>& fields);
    void Check(const std::string& name, bool on);
    void Set(const std::string& name, const std::string& text);

    sim::Company Company() const;
    std::string Table() const;  // qbsim's table of the open transaction
    // Items of the open transaction's lines in order ("" for blank and description lines;
    // group members follow their group as "  item").
    std::vector<std::string> Items() const;
    bool Shown(const std::string& text) const;  // a message box showed a text containing it
    bool InDebugLog(const std::string& text) const;
    int DisplayRequests() const;
    // The open transaction field for field: its XML without what QuickBooks renews on every
    // save (TxnLineID, EditSequence, TimeModified).
    std::string Content() const;
    // Puts <QBSimFault request="K" kind=.../> into the company file.
    void Fault(int request, const std::string& kind);

    TestApp t;
    App& app;
    std::string companyPath;
    sim::SimQuickBooks qb;
    std::unique_ptr<TamperingTransport> transport;
};

}  // namespace pelmark::test
