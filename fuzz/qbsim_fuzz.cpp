// qbsim's request processor on the sample company: any message set gets a response or a refusal.
// The company is loaded again only after a request changed it, so most inputs cost one request.
#include <cstdlib>

#include "fuzzInput.h"
#include "sim/processor.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static pelmark::sim::Company company;
    static bool changed = true;
    if (changed && !company.LoadFile(PELMARK_SOURCE_DIR "/samples/company.xml").ok()) std::abort();
    pelmark::sim::ProcessResult r =
        pelmark::sim::ProcessRequest(company, pelmark::fuzz::Text(data, size));
    changed = r.changed || company.Modified();
    return 0;
}
