// qbsim's request processor: answers a qbXML request message set from the company the way
// QuickBooks' own request processor does, changing the company where a request asks for it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "sim/company.h"

namespace pelmark::sim {

// The request processor's HRESULT for a message set QuickBooks cannot take at all: not XML, not
// qbXML, an unknown request, or elements the qbXML reference does not allow where they stand.
inline constexpr std::uint32_t kHrParseError = 0x80040400;
inline constexpr const char* kParseErrorText =
    "QuickBooks found an error when parsing the provided XML text stream.";

struct ProcessResult {
    // False when the message set was refused as a whole (no response at all); hresult and
    // message then say why, the message naming the line of the request where it could.
    bool ok = true;
    std::uint32_t hresult = 0;
    std::string message;
    std::string response;  // the QBXMLMsgsRs document when ok
    bool changed = false;  // the company was changed; the caller saves it
};

// QuickBooks' status for a change it could not save ("There was an error when saving ...": the
// 3180 texts quoted in shared/qbxml/real/SOURCES.md, and Intuit's status-code table).
inline constexpr int kStatusSaveError = 3180;

// Answers every request of the message set in order. Changes are made to `company` in memory
// as each request is answered; a request that fails changes nothing, but QuickBooks has no
// rollback, so under stopOnError the requests before a failed one stand.
// With `failSave`, every request is answered with kStatusSaveError and nothing changes.
ProcessResult ProcessRequest(Company& company, std::string_view requestXml, bool failSave = false);

}  // namespace pelmark::sim
