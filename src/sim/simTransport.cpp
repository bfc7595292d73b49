// SimTransport: connection, session and request calls answered by qbsim's request processor.
#include "sim/simTransport.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <system_error>

#include "sim/companyLock.h"
#include "sim/processor.h"

namespace pelmark::sim {

namespace fs = std::filesystem;

namespace {

qb::TransportResult Fail(const char* call, std::uint32_t hresult, const std::string& detail) {
    return {false, hresult, qb::DescribeHresult(call, hresult, detail)};
}

bool SameFile(const std::string& a, const std::string& b) {
    std::error_code ec;
    if (fs::equivalent(fs::path(a), fs::path(b), ec)) return true;
    return fs::weakly_canonical(fs::path(a), ec) == fs::weakly_canonical(fs::path(b), ec);
}

}  // namespace

SimTransport::SimTransport(std::string companyPath) : path_(std::move(companyPath)) {}

qb::TransportResult SimTransport::OpenConnection(const std::string& /*appID*/,
                                                 const std::string& appName) {
    appName_ = appName;
    connected_ = true;
    return {};
}

qb::TransportResult SimTransport::BeginSession(const std::string& companyFile, int openMode,
                                               std::string* ticket) {
    const char* call = "BeginSession";
    if (!connected_) return Fail(call, kHrUnexpected, "(no connection: call OpenConnection first)");
    if (!ticket_.empty()) return Fail(call, kHrUnexpected, "(a session is already open)");
    if (openMode < qb::kOpenSingleUser || openMode > qb::kOpenDoNotCare) {
        return Fail(call, kHrInvalidArg, "(open mode " + std::to_string(openMode) + ")");
    }
    // An empty name means the company QuickBooks has open, which is qbsim's one file.
    if (!companyFile.empty() && !SameFile(companyFile, path_)) {
        return Fail(call, kHrOtherFileOpen,
                    "(open: " + path_ + "; asked for: " + companyFile + ")");
    }
    if (qb::TransportResult loaded = Load(call); !loaded.ok) return loaded;
    // Tickets look like QuickBooks' own: a GUID in braces.
    std::random_device random;
    char text[48];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%04X-%08X%04X}", random(), random() & 0xFFFF,
                  ++sessions_ & 0xFFFF, random() & 0xFFFF, random(), random() & 0xFFFF);
    ticket_ = text;
    if (ticket) *ticket = ticket_;
    return {};
}

qb::TransportResult SimTransport::CheckTicket(const char* call, const std::string& ticket) const {
    if (!connected_) return Fail(call, kHrUnexpected, "(no connection: call OpenConnection first)");
    if (ticket_.empty()) return Fail(call, kHrUnexpected, "(no session: call BeginSession first)");
    if (ticket != ticket_) return Fail(call, kHrUnexpected, "(the ticket is not the session's)");
    return {};
}

qb::TransportResult SimTransport::ProcessRequest(const std::string& ticket,
                                                 const std::string& request,
                                                 std::string* response) {
    const char* call = "ProcessRequest";
    if (qb::TransportResult r = CheckTicket(call, ticket); !r.ok) return r;
    // Read, answer and save under the company's lock, so that runs in other processes neither
    // overwrite this change nor are overwritten by it.
    CompanyLock lock(path_);
    if (qb::TransportResult r = Refresh(call); !r.ok) return r;
    const std::string fault = TakeFault();
    const bool faultSaves = !fault.empty();
    if (fault == "error") {
        // Only the spent fault leaves the file; the request never reached QuickBooks.
        if (SaveResult saved = company_.SaveChanges(path_); saved.ok) Remember(saved);
        return Fail(call, kHrServerGone, "(qbsim: QuickBooks closed)");
    }
    ProcessResult result = sim::ProcessRequest(company_, request, fault == "status");
    if (!result.ok) return Fail(call, result.hresult, result.message);
    if (result.changed || faultSaves) {
        SaveResult saved = company_.SaveChanges(path_);
        if (!saved.ok) {
            company_ = Company();  // the change was not kept: read the file again next time
            return Fail(call, kHrFail,
                        "(qbsim could not save the company: " + saved.description + ")");
        }
        company_.ClearModified();
        // What was just written under the lock is what the file holds: no need to read it back.
        Remember(saved);
    }
    if (fault == "lost") return Fail(call, kHrServerGone, "(qbsim: the answer was lost)");
    if (response) *response = std::move(result.response);
    return {};
}

qb::TransportResult SimTransport::GetCurrentCompanyFileName(const std::string& ticket,
                                                            std::string* fileName) {
    if (qb::TransportResult r = CheckTicket("GetCurrentCompanyFileName", ticket); !r.ok) return r;
    std::error_code ec;
    fs::path absolute = fs::absolute(fs::path(path_), ec);
    if (fileName) *fileName = ec ? path_ : absolute.string();
    return {};
}

qb::TransportResult SimTransport::EndSession(const std::string& ticket) {
    if (qb::TransportResult r = CheckTicket("EndSession", ticket); !r.ok) return r;
    ticket_.clear();
    return {};
}

qb::TransportResult SimTransport::CloseConnection() {
    if (!connected_) {
        return Fail("CloseConnection", kHrUnexpected, "(no connection: call OpenConnection first)");
    }
    // Closing the connection ends a session left open, as the request processor does.
    ticket_.clear();
    connected_ = false;
    // A company at rest is one file: the log this connection wrote goes into the base, so that
    // whoever reads the company file next (a person, a test) sees every change in it.
    if (company_.HasLog()) {
        CompanyLock lock(path_);
        if (Refresh("CloseConnection").ok && company_.HasLog()) {
            if (SaveResult saved = company_.SaveFile(path_); saved.ok) Remember(saved);
        }
    }
    return {};
}

// Before each request: the company as it is on disk, read again when another process wrote the
// base file, or only the records it added to the log.
qb::TransportResult SimTransport::Refresh(const char* call) {
    if (!FileChanged() && company_.ReadLogTail(path_) != Company::Tail::Reload) return {};
    return Load(call);
}

qb::TransportResult SimTransport::Load(const char* call) {
    // The stamp before the read: a write in between makes the next request read the file again.
    const std::int64_t taken = FileClockNow();
    const FileStamp stamp = StampOf(path_);
    std::string bytes;
    LoadResult loaded = company_.LoadFile(path_, &bytes);
    if (loaded.status == LoadStatus::NotFound) {
        return Fail(call, kHrCouldNotStart, "(qbsim: no company file " + path_ + ")");
    }
    if (!loaded.ok()) {
        return Fail(
            call, kHrCannotOpenFile,
            "(qbsim: " + path_ + " is not a usable company file: " + loaded.ToString() + ")");
    }
    // Every change qbsim makes gives the object a new EditSequence, so saves may reuse the text
    // of the objects that kept theirs: a save costs what changed, not the whole company.
    company_.ReuseSavedText(true);
    known_ = std::move(bytes);
    stamp_ = stamp;
    stampTaken_ = taken;
    return {};
}

void SimTransport::Remember(SaveResult& saved) {
    if (saved.logged) return;  // the base file is as it was
    stampTaken_ = FileClockNow();
    known_ = std::move(saved.written);
    stamp_ = saved.stamp;
}

std::string SimTransport::TakeFault() {
    const std::vector<pugi::xml_node> faults = company_.Objects(kFaultName);
    if (faults.empty()) {
        faultCount_ = 0;
        return {};
    }
    const pugi::xml_node fault = faults.front();
    if (++faultCount_ < fault.attribute("request").as_int()) return {};
    std::string kind = fault.attribute("kind").value();
    company_.Remove(fault);
    faultCount_ = 0;
    return kind;
}

// Whether another process (a second run, the COM fixture, the screen of the fake QuickBooks) or a
// test wrote the company since this transport last read or saved it. This runs before every
// request, so it must not cost the file's size: every save renames a new file in with a write
// time of its own (Company::SaveFile), so the file's stamp (identity, size, write time) alone
// answers, except when the stamp is no older than the file system's time grain at the moment it
// was taken: then a write in place within the same tick, keeping the size (an EditSequence
// counted up), may have left the stamp as it was, and the bytes are compared as well. This is
// git's answer to its "racily clean" index entries (Documentation/technical/racy-git.txt).
bool SimTransport::FileChanged() {
    if (!company_.IsLoaded()) return true;
    const std::int64_t taken = FileClockNow();
    const FileStamp now = StampOf(path_);
    if (!now.ok || now != stamp_) return true;
    if (stamp_.written <= stampTaken_ - kStampGrain) return false;
    if (!ReadFile(buffer_) || buffer_ != known_) return true;
    // Unchanged when read; once its time is older than the grain, the stamp alone decides.
    stampTaken_ = taken;
    return false;
}

// The file in one piece into a buffer kept between requests.
bool SimTransport::ReadFile(std::string& bytes) const {
    std::ifstream in(fs::path(path_), std::ios::binary | std::ios::ate);
    const std::streamoff size = in ? static_cast<std::streamoff>(in.tellg()) : -1;
    if (size < 0) return false;
    in.seekg(0);
    bytes.resize(static_cast<std::size_t>(size));
    if (!in.read(bytes.data(), size)) return false;
    // A file that grew while it was read: the rest as well.
    if (in.peek() != std::ifstream::traits_type::eof())
        bytes.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

}  // namespace pelmark::sim
