// The seam through which every qbXML message reaches QuickBooks: the SDK's request processor
// over COM on Windows, or qbsim, the QuickBooks stand-in, in process.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace pelmark::qb {

// The request processor's connection type and open modes.
inline constexpr int kConnLocalQBD = 1;
enum OpenMode : int { kOpenSingleUser = 0, kOpenMultiUser = 1, kOpenDoNotCare = 2 };

// The outcome of one call. A failure carries the HRESULT (or the stand-in's code) and a message
// in plain words naming the call; the core never sees a COM error of its own.
struct TransportResult {
    bool ok = true;
    uint32_t hresult = 0;
    std::string message;
};

class QbTransport {
  public:
    virtual ~QbTransport() = default;
    virtual TransportResult OpenConnection(const std::string& appID,
                                           const std::string& appName) = 0;
    // companyFile empty: the company file QuickBooks has open.
    virtual TransportResult BeginSession(const std::string& companyFile, int openMode,
                                         std::string* ticket) = 0;
    virtual TransportResult ProcessRequest(const std::string& ticket, const std::string& request,
                                           std::string* response) = 0;
    virtual TransportResult GetCurrentCompanyFileName(const std::string& ticket,
                                                      std::string* fileName) = 0;
    virtual TransportResult EndSession(const std::string& ticket) = 0;
    virtual TransportResult CloseConnection() = 0;
};

// Plain words for the request processor's HRESULTs ("QuickBooks is not running", ...), with the
// failing call and the code; used by the COM transport and its tests.
std::string DescribeHresult(const std::string& call, uint32_t hresult,
                            const std::string& systemText = {});

#ifdef _WIN32
// The SDK's request processor (QBXMLRP2.RequestProcessor), late-bound through IDispatch.
std::unique_ptr<QbTransport> MakeComTransport();
#endif

}  // namespace pelmark::qb
