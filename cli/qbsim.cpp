// The qbsim command line: answers a qbXML request from a company file as QuickBooks would.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "sim/company.h"
#include "sim/companyLock.h"
#include "sim/processor.h"
#include "sim/show.h"

namespace {

using namespace pelmark::sim;

const char* const kUsage =
    "usage: qbsim <command> COMPANY.xml [options]\n"
    "commands:\n"
    "  show COMPANY.xml --ref NUMBER [--kind KIND]\n"
    "                        the transaction's lines as a table (KIND: invoice, estimate,\n"
    "                        sales order, sales receipt; default: the first with that number)\n"
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
    std::string request((std::istreambuf_iterator<char>(std::cin)),
                        std::istreambuf_iterator<char>());
    CompanyLock lock(path);  // load, answer and save as one step among concurrent processes
    Company company;
    LoadResult loaded = company.LoadFile(path);
    if (!loaded.ok()) {
        std::fprintf(stderr, "qbsim: %s: %s\n", path.c_str(), loaded.ToString().c_str());
        return kBadCompany;
    }
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

int Show(const std::vector<std::string>& args) {
    std::string path, ref, kind;
    bool refGiven = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const bool hasValue = i + 1 < args.size();
        if (args[i] == "--ref" && hasValue) {
            ref = args[++i];
            refGiven = true;
        } else if (args[i] == "--kind" && hasValue) {
            kind = args[++i];
        } else if (path.empty() && args[i].rfind("--", 0) != 0) {
            path = args[i];
        } else {
            std::fprintf(stderr, "qbsim: unknown argument: %s\n%s", args[i].c_str(), kUsage);
            return kUsageError;
        }
    }
    if (path.empty() || !refGiven) {
        std::fputs(kUsage, stderr);
        return kUsageError;
    }
    if (!kind.empty() && SalesKindName(kind).empty()) {
        std::fprintf(stderr, "qbsim: %s is no sales transaction kind\n", kind.c_str());
        return kUsageError;
    }
    Company company;
    LoadResult loaded = company.LoadFile(path);
    if (!loaded.ok()) {
        std::fprintf(stderr, "qbsim: %s: %s\n", path.c_str(), loaded.ToString().c_str());
        return kBadCompany;
    }
    std::optional<TxnRef> txn = FindSalesTxn(company, ref, kind);
    if (!txn) {
        std::fprintf(stderr, "qbsim: no %s numbered %s in %s\n",
                     kind.empty() ? "transaction" : kind.c_str(), ref.c_str(), path.c_str());
        return kBadRequest;
    }
    std::fputs(TxnTable(company, *txn).c_str(), stdout);
    return kOk;
}

struct Command {
    const char* name;
    int (*run)(const std::vector<std::string>& args);
};

const Command kCommands[] = {
    {"request", Request},
    {"show", Show},
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
