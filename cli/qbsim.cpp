// The qbsim command line: answers a qbXML request from a company file as QuickBooks would.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "sim/company.h"
#include "sim/processor.h"

namespace {

using namespace pelmark::sim;

const char* const kUsage =
    "usage: qbsim <command> COMPANY.xml\n"
    "commands:\n"
    "  request COMPANY.xml   read one qbXML request on standard input, write QuickBooks' answer\n"
    "                        on standard output, and save the company when the request changed "
    "it\n";

// Exit statuses, so scripts can tell the failures apart.
enum Exit { kOk = 0, kUsageError = 1, kBadCompany = 2, kBadRequest = 3, kSaveFailed = 4 };

int Request(const std::vector<std::string>& args) {
    if (args.size() != 1) {
        std::fputs(kUsage, stderr);
        return kUsageError;
    }
    const std::string& path = args[0];
    Company company;
    LoadResult loaded = company.LoadFile(path);
    if (!loaded.ok()) {
        std::fprintf(stderr, "qbsim: %s: %s\n", path.c_str(), loaded.ToString().c_str());
        return kBadCompany;
    }
    std::string request((std::istreambuf_iterator<char>(std::cin)),
                        std::istreambuf_iterator<char>());
    ProcessResult result = ProcessRequest(company, request);
    if (!result.ok) {
        std::fprintf(stderr, "qbsim: the request was refused (HRESULT 0x%08X): %s\n",
                     static_cast<unsigned>(result.hresult), result.message.c_str());
        return kBadRequest;
    }
    if (result.changed) {
        SaveResult saved = company.SaveFile(path);
        if (!saved.ok) {
            std::fprintf(stderr, "qbsim: %s: %s\n", path.c_str(), saved.description.c_str());
            return kSaveFailed;
        }
    }
    std::fwrite(result.response.data(), 1, result.response.size(), stdout);
    return std::fflush(stdout) == 0 ? kOk : kSaveFailed;
}

struct Command {
    const char* name;
    int (*run)(const std::vector<std::string>& args);
};

const Command kCommands[] = {
    {"request", Request},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(kUsage, stderr);
        return kUsageError;
    }
    std::vector<std::string> args(argv + 2, argv + argc);
    for (const Command& c : kCommands) {
        if (std::strcmp(argv[1], c.name) == 0) return c.run(args);
    }
    std::fprintf(stderr, "qbsim: unknown command \"%s\"\n%s", argv[1], kUsage);
    return kUsageError;
}
