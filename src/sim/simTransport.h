// SimTransport: the transport seam answered in process by qbsim over a company file, with the
// request processor's order of calls and its failures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "qb/transport.h"
#include "sim/company.h"

namespace pelmark::sim {

// HRESULTs the stand-in answers with. Which code the request processor gives for calls out of
// order is not documented; qbsim uses its "unexpected error", as the COM transport does for
// calls without a connection.
inline constexpr std::uint32_t kHrUnexpected = 0x80040402;      // calls out of order
inline constexpr std::uint32_t kHrCouldNotStart = 0x80040408;   // the company file is missing
inline constexpr std::uint32_t kHrCannotOpenFile = 0x8004040A;  // the company file is malformed
inline constexpr std::uint32_t kHrOtherFileOpen = 0x80040417;   // BeginSession names another file
inline constexpr std::uint32_t kHrInvalidArg = 0x80070057;
inline constexpr std::uint32_t kHrFail = 0x80004005;
// RPC_S_SERVER_UNAVAILABLE: what the request processor's COM call gives when QuickBooks closed
// while a request was on its way.
inline constexpr std::uint32_t kHrServerGone = 0x800706BA;

// QuickBooks "running" with one company file open: the file at `companyPath`. Each request set
// is answered from the file as it is on disk (it is read again when it changed since, or only
// the records another process added to its change log), and a request set that changes the
// company is saved at once, atomically, as one record of the log; closing the connection folds
// the log into the file.
//
// A company file may hold <QBSimFault request="K" kind="error|lost|status"/> directly under
// QBSimCompany: the K-th request set received from when the element was first seen, counting
// from 1, fails once and the element is removed from the file. error: the transport fails before
// anything is applied (QuickBooks closed). lost: the set is applied and saved, then the
// transport fails (the answer never arrives). status: every request of the set is answered with
// QuickBooks' save error (kStatusSaveError) and nothing changes.
class SimTransport : public qb::QbTransport {
  public:
    explicit SimTransport(std::string companyPath);

    qb::TransportResult OpenConnection(const std::string& appID,
                                       const std::string& appName) override;
    qb::TransportResult BeginSession(const std::string& companyFile, int openMode,
                                     std::string* ticket) override;
    qb::TransportResult ProcessRequest(const std::string& ticket, const std::string& request,
                                       std::string* response) override;
    qb::TransportResult GetCurrentCompanyFileName(const std::string& ticket,
                                                  std::string* fileName) override;
    qb::TransportResult EndSession(const std::string& ticket) override;
    qb::TransportResult CloseConnection() override;

    // The company as last read or written.
    const Company& company() const { return company_; }
    const std::string& appName() const { return appName_; }

  private:
    qb::TransportResult CheckTicket(const char* call, const std::string& ticket) const;
    qb::TransportResult Load(const char* call);
    qb::TransportResult Refresh(const char* call);
    void Remember(SaveResult& saved);
    bool ReadFile(std::string& bytes) const;
    bool FileChanged();
    // The fault that fires on this request set ("" for none); removes it from the file.
    std::string TakeFault();

    std::string path_;
    std::string appName_;
    Company company_;
    bool connected_ = false;
    std::string ticket_;  // empty when no session is open
    unsigned sessions_ = 0;
    std::string known_;            // the file's bytes as last loaded or saved
    FileStamp stamp_;              // its stamp then
    std::int64_t stampTaken_ = 0;  // when the stamp was taken (or last confirmed by the bytes)
    mutable std::string buffer_;   // the file's bytes as last read to compare with known_
    int faultCount_ = 0;           // request sets since the fault in the file was first seen
};

}  // namespace pelmark::sim
