// qbcom.dll, the request processor answered by qbsim, for the Windows tests: registering it in
// the Wine prefix on a company file, and qbXML sent through Pelmark's own COM transport.
#pragma once

#include <string>

#include "qb/transport.h"

namespace pelmark::test {

// Registers the server under QBXMLRP2.RequestProcessor on a company file (a Windows path), or
// removes it, as regsvr32 /n /i:FILE and regsvr32 /u would; false when the DLL refused.
bool RegisterQbCom(const std::string& companyFile);
bool UnregisterQbCom();

// Registered for the life of the object.
class QbComRegistration {
  public:
    explicit QbComRegistration(const std::string& companyFile) : ok_(RegisterQbCom(companyFile)) {}
    ~QbComRegistration() { UnregisterQbCom(); }
    QbComRegistration(const QbComRegistration&) = delete;
    QbComRegistration& operator=(const QbComRegistration&) = delete;
    bool ok() const { return ok_; }

  private:
    bool ok_;
};

// Copies samples/company.xml into `folder` (a Windows path ending in a separator) and returns
// the copy's path.
std::string CopySampleCompany(const std::string& folder);

// One message set of qbXML 7.0 around the requests, stopping on the first error.
std::string QbxmlRequest(const std::string& requests);

// Sends one message set through qb::MakeComTransport: connection, session on the company file
// QuickBooks has open, the request, end of session and connection. The result is the first
// failing call's, and `response` the answer.
qb::TransportResult AskThroughCom(const std::string& requests, std::string* response);

}  // namespace pelmark::test
