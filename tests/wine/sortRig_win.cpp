// The end-to-end harness: company copy, fake QuickBooks, qbcom, settings, the run and its checks.
#include "wine/sortRig_win.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <pugixml.hpp>

#include "app/wideText.h"
#include "sim/company.h"
#include "sim/simDesktop.h"
#include "wine/qbcom_win.h"

namespace pelmark::test {
namespace {

struct RigKind {
    const char* key;          // fakeqb's
    const char* companyKind;  // the company file's
    const char* title;        // the window's
};
const RigKind kRigKinds[] = {
    {"invoice", "Invoice", "Create Invoices"},
    {"estimate", "Estimate", "Create Estimates"},
    {"salesorder", "SalesOrder", "Create Sales Orders"},
    {"salesreceipt", "SalesReceipt", "Enter Sales Receipts"},
};

std::string ReadBytes(const std::string& path) {
    std::FILE* f = _wfopen(WideFromUtf8(path).c_str(), L"rb");
    if (!f) return {};
    std::string data;
    char buffer[65536];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) data.append(buffer, n);
    std::fclose(f);
    return data;
}

sim::Company LoadCompany(const std::string& path) {
    sim::Company c;
    c.LoadFile(path);
    return c;
}

// "12.50" and "12.5" are one amount: plain decimals compare by value (IDs such as
// "8000002E-1609484400" are left as they are).
std::string Canonical(const std::string& text) {
    size_t digits = text.find_first_not_of("-");
    if (digits > 1 || digits == std::string::npos ||
        text.find_first_not_of("0123456789.", digits) != std::string::npos ||
        text.find('.') != text.rfind('.'))
        return text;
    double value = std::strtod(text.c_str(), nullptr);
    char out[64];
    std::snprintf(out, sizeof out, "%.6f", value);
    return out;
}

// An element as text, its children in a fixed order, so that two lines with the same fields
// compare equal whatever order QuickBooks stores them in.
std::string Flatten(pugi::xml_node e) {
    if (!e.first_child().type() || e.first_child().type() == pugi::node_pcdata)
        return std::string(e.name()) + "=" + Canonical(e.child_value());
    std::vector<std::string> parts;
    for (pugi::xml_node c : e.children())
        if (c.type() == pugi::node_element && std::string_view(c.name()) != "TxnLineID")
            parts.push_back(Flatten(c));
    std::sort(parts.begin(), parts.end());
    std::string text = std::string(e.name()) + "{";
    for (const std::string& p : parts) text += p + ";";
    return text + "}";
}

}  // namespace

CommandResult RunCommand(const std::wstring& commandLine, int timeoutMs) {
    CommandResult result;
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return result;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    HANDLE nul = CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                             OPEN_EXISTING, 0, nullptr);
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = nul;
    si.hStdOutput = writeEnd;
    si.hStdError = writeEnd;
    HANDLE job = MakeKillOnCloseJob();
    std::wstring cmd = commandLine;
    PROCESS_INFORMATION pi = {};
    result.started =
        CreateProcessW(nullptr, cmd.data(), nullptr, nullptr, TRUE,
                       CREATE_SUSPENDED | CREATE_NO_WINDOW, nullptr, nullptr, &si, &pi);
    CloseHandle(writeEnd);
    if (nul != INVALID_HANDLE_VALUE) CloseHandle(nul);
    if (result.started) {
        if (job) AssignProcessToJobObject(job, pi.hProcess);
        ResumeThread(pi.hThread);
        auto drain = [&] {
            DWORD available = 0, got = 0;
            char buffer[4096];
            while (PeekNamedPipe(readEnd, nullptr, 0, nullptr, &available, nullptr) &&
                   available > 0 && ReadFile(readEnd, buffer, sizeof buffer, &got, nullptr) &&
                   got > 0)
                result.output.append(buffer, got);
        };
        // The pipe is read while the program runs, so that it never blocks on a full pipe.
        bool ended = WaitUntil(
            [&] {
                drain();
                return WaitForSingleObject(pi.hProcess, 0) == WAIT_OBJECT_0;
            },
            timeoutMs);
        if (!ended) {
            result.timedOut = true;
            TerminateProcess(pi.hProcess, 1);
            WaitForSingleObject(pi.hProcess, 5000);
        }
        drain();
        DWORD code = 0;
        GetExitCodeProcess(pi.hProcess, &code);
        result.exitCode = code;
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    }
    CloseHandle(readEnd);
    if (job) CloseHandle(job);
    return result;
}

DesktopSortRig::DesktopSortRig(const Options& options) {
    const RigKind* kind = nullptr;
    for (const RigKind& k : kRigKinds)
        if (options.kind == k.key) kind = &k;
    if (!kind) return;
    companyKind_ = kind->companyKind;
    title_ = kind->title;

    companyPath_ = CopySampleCompany(dir_.path());
    original_ = ReadBytes(companyPath_);
    dataDir_ = dir_.path() + "data\\";
    std::filesystem::create_directories(WideFromUtf8(dataDir_));
    for (const char* name : {"Pelmark.ini", "Items.iif"})
        std::filesystem::copy_file(WindowsPath(std::string(PELMARK_SOURCE_DIR "/samples/") + name),
                                   WideFromUtf8(dataDir_ + name),
                                   std::filesystem::copy_options::overwrite_existing);
    settingsPath_ = dataDir_ + "Pelmark.ini";

    sim::Company company = LoadCompany(companyPath_);
    txnID_ = sim::TxnIDByRefNumber(company, companyKind_, options.refNumber);
    for (const sim::DisplayRequest& r : company.DisplayRequests())
        lastDisplay_ = std::max(lastDisplay_, r.sequence);
    itemsBefore_ = Items();
    tuplesBefore_ = LineTuples();

    if (options.registered)
        RegisterQbCom(companyPath_);
    else
        UnregisterQbCom();
    if (options.quickBooksRunning) {
        std::vector<std::string> args{
            "--company-file", companyPath_, "--open",
            options.kind + ":" + options.refNumber + options.openSettings};
        args.insert(args.end(), options.moreArgs.begin(), options.moreArgs.end());
        qb_ = std::make_unique<FakeQbProgram>(args);
    }
}

DesktopSortRig::~DesktopSortRig() {
    qb_.reset();
    UnregisterQbCom();
}

CommandResult DesktopSortRig::RunCli(const std::string& answer, int timeoutMs) const {
    std::wstring cmd = QuoteArg(WindowsPath(PELMARK_CLI_EXE)) + L" sort --settings " +
                       QuoteArg(WideFromUtf8(settingsPath_)) + L" --data-dir " +
                       QuoteArg(WideFromUtf8(dataDir_)) + L" --answer " + WideFromUtf8(answer);
    return RunCommand(cmd, timeoutMs);
}

std::vector<std::string> DesktopSortRig::Items() const {
    std::vector<std::string> items;
    auto txn = sim::ReadTxnForScreen(LoadCompany(companyPath_), companyKind_, txnID_);
    if (txn)
        for (const sim::ScreenLine& l : txn->lines) items.push_back(l.item);
    return items;
}

std::vector<std::string> DesktopSortRig::LineTuples() const {
    sim::Company company = LoadCompany(companyPath_);
    std::vector<std::string> tuples;
    const std::string lineRet = companyKind_ + "LineRet";
    for (pugi::xpath_node line :
         company.FindTxn(companyKind_, txnID_).select_nodes(("descendant::" + lineRet).c_str()))
        tuples.push_back(Flatten(line.node()));
    std::sort(tuples.begin(), tuples.end());
    return tuples;
}

bool DesktopSortRig::CompanyUnchanged() const {
    return ReadBytes(companyPath_) == original_ && ReadBytes(sim::LogPathOf(companyPath_)).empty();
}

bool DesktopSortRig::Displayed() const {
    for (const sim::DisplayRequest& r : LoadCompany(companyPath_).DisplayRequests())
        if (r.sequence > lastDisplay_ && r.txnType == companyKind_ && r.txnID == txnID_)
            return true;
    return false;
}

}  // namespace pelmark::test
