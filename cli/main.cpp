// The pelmark command line: the sort run without the main window, against qbsim and the
// simulated desktop, or on Windows against live QuickBooks and the real screen.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include "app/batch.h"
#include "app/context.h"
#include "app/journal.h"
#include "app/prompts.h"
#include "app/registry.h"
#include "app/run.h"
#include "app/settings.h"
#include "app/text.h"
#include "app/version.h"
#include "qb/transport.h"
#include "screen/WindowsStuff.h"
#include "screen/desktop.h"
#include "sim/simRun.h"
#include "sort/preview.h"
#include "ui/frmMain.h"

namespace {

using namespace pelmark;

const char* const kUsage =
    "usage: pelmark <command> [options]\n"
    "commands:\n"
    "  sort               sort the transaction open in QuickBooks (one press of Sort)\n"
    "  demo               copy the sample company, sort an invoice and show it before and after\n"
    "  screen             print what Pelmark sees of QuickBooks on the screen, one key: value a\n"
    "                     line (exit 0 when QuickBooks and one transaction window were found)\n"
    "  batch              sort every transaction of --kind dated --from .. --to (through the\n"
    "                     SDK alone), optionally of one --customer; a table of results at the end\n"
    "  undo               put the last sorted transaction back as its journal holds it\n"
    "  journal            list the sort journals of the data folder (time, kind, number, state)\n"
    "  version            print the program version\n"
    "options:\n"
    "  --company FILE     sort against qbsim over this company file, on a simulated desktop\n"
    "                     (required except on Windows, where without it the run goes to the\n"
    "                     QuickBooks that is running and to the real screen)\n"
    "  --ref NUMBER       the transaction whose window the simulated desktop shows (default:\n"
    "                     the first sales transaction of the company)\n"
    "  --settings FILE    the settings file to sort with (copied into the data folder)\n"
    "  --data-dir DIR     keep settings and logs in DIR\n"
    "  --answer yes|no    how questions are answered (default no)\n"
    "  --journal FILE     undo: the journal to undo (default: the newest sort's)\n"
    "  --trace-qbxml DIR  write every qbXML request and response of the run to DIR\n"
    "  --dry-run          print the new order (batch: what would be sorted) and write nothing\n"
    "  --kind K --from YYYY-MM-DD --to YYYY-MM-DD [--customer NAME]   what batch sorts\n"
    "                     (K: invoice, estimate, salesorder or salesreceipt)\n"
    "  --samples DIR      where the sample files are (default: the source tree's samples)\n";

struct Args {
    std::string command;
    std::string dataDir, company, ref, settings, traceDir, journal;
    std::string kind, from, to, customer;  // batch
    bool refGiven = false;
    bool dryRun = false;
    std::string samples = PELMARK_SAMPLES_DIR;
    int answer = kAnsNo;
    std::string error;
};

// The options that take a value, and where each value goes.
struct ValueOption {
    const char* name;
    std::string Args::*field;
};
const ValueOption kValueOptions[] = {
    {"--data-dir", &Args::dataDir},
    {"--samples", &Args::samples},
    {"--company", &Args::company},
    {"--ref", &Args::ref},
    {"--settings", &Args::settings},
    {"--kind", &Args::kind},
    {"--from", &Args::from},
    {"--to", &Args::to},
    {"--customer", &Args::customer},
    {"--journal", &Args::journal},
    {"--trace-qbxml", &Args::traceDir},
};

Args Parse(int argc, char** argv) {
    Args a;
    for (int i = 1; i < argc; ++i) {
        std::string s = argv[i];
        auto value = [&](const char* name) -> std::string {
            if (i + 1 >= argc) {
                if (a.error.empty()) a.error = std::string(name) + " needs a value";
                return {};
            }
            return argv[++i];
        };
        const auto option = std::find_if(std::begin(kValueOptions), std::end(kValueOptions),
                                         [&](const ValueOption& o) { return s == o.name; });
        if (option != std::end(kValueOptions)) {
            a.*(option->field) = value(option->name);
            a.refGiven = a.refGiven || s == "--ref";
        } else if (s == "--dry-run") {
            a.dryRun = true;
        } else if (s == "--answer") {
            std::string v = Lower(value("--answer"));
            if (v == "yes")
                a.answer = kAnsYes;
            else if (v == "no")
                a.answer = kAnsNo;
            else if (a.error.empty())
                a.error = "--answer takes yes or no";
        } else if (s == "-h" || s == "--help") {
            a.command = "help";
        } else if (!s.empty() && s[0] != '-' && a.command.empty()) {
            a.command = s;
        } else if (a.error.empty()) {
            a.error = "unknown argument: " + s;
        }
    }
    return a;
}

// Where the command line keeps its data when no folder is given: on Windows the program's own
// folder rules decide; elsewhere the user's data folder.
std::string DefaultDataDir() {
#ifdef _WIN32
    return {};
#else
    const char* xdg = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    std::string base = xdg && *xdg ? xdg : std::string(home ? home : "/tmp") + "/.local/share";
    return base + "/" + kCompanyName + "/" + kProductName + "/";
#endif
}

// Every request and response of the run as numbered files, for support: 0001-request.xml,
// 0001-response.xml, ...
class TracingTransport : public qb::QbTransport {
  public:
    TracingTransport(qb::QbTransport& inner, FileSystem& files, std::string dir)
        : inner_(inner), files_(files), dir_(AddBackslash(std::move(dir))) {}
    bool Ready() { return files_.MakeDir(dir_).ok(); }

    qb::TransportResult OpenConnection(const std::string& id, const std::string& name) override {
        return inner_.OpenConnection(id, name);
    }
    qb::TransportResult BeginSession(const std::string& file, int mode,
                                     std::string* ticket) override {
        return inner_.BeginSession(file, mode, ticket);
    }
    qb::TransportResult ProcessRequest(const std::string& ticket, const std::string& request,
                                       std::string* response) override {
        char number[16];
        std::snprintf(number, sizeof number, "%04d", ++count_);
        files_.WriteAll(dir_ + number + "-request.xml", request);
        qb::TransportResult r = inner_.ProcessRequest(ticket, request, response);
        files_.WriteAll(dir_ + number + "-response.xml",
                        r.ok ? *response : "failed: " + r.message + "\n");
        return r;
    }
    qb::TransportResult GetCurrentCompanyFileName(const std::string& ticket,
                                                  std::string* file) override {
        return inner_.GetCurrentCompanyFileName(ticket, file);
    }
    qb::TransportResult EndSession(const std::string& ticket) override {
        return inner_.EndSession(ticket);
    }
    qb::TransportResult CloseConnection() override { return inner_.CloseConnection(); }

  private:
    qb::QbTransport& inner_;
    FileSystem& files_;
    std::string dir_;
    int count_ = 0;
};

bool Fail(const std::string& text) {
    std::fprintf(stderr, "pelmark: %s\n", text.c_str());
    return false;
}

// The data folder with a settings file and an item list: the given settings file, else the
// one already there, else the sample's.
bool PrepareDataFolder(FileSystem& fs, const Args& args, const std::string& dataDir) {
    if (dataDir.empty()) return true;
    if (!fs.MakeDir(dataDir).ok()) return Fail("cannot make the data folder " + dataDir);
    // Without a writable data folder there would be no logs and no journal, so no way back.
    const std::string probe = AddBackslash(dataDir) + "Pelmark.write-test";
    if (FileResult w = fs.WriteAll(probe, "x"); !w.ok()) {
        return Fail("the data folder " + dataDir + " cannot be written (" + w.error +
                    "): there would be no logs and no journal to undo a sort with, so nothing "
                    "was sorted; give a folder you can write with --data-dir");
    }
    fs.Remove(probe);
    const std::string ini = AddBackslash(dataDir) + "Pelmark.ini";
    std::string from = args.settings;
    if (from.empty() && !fs.Exists(ini)) from = AddBackslash(args.samples) + "Pelmark.ini";
    std::error_code same;
    if (!from.empty() && !std::filesystem::equivalent(from, ini, same)) {
        FileResult r = fs.Copy(from, ini);
        if (!r.ok())
            return Fail("cannot copy the settings file " + from + " to " + ini + ": " + r.error);
    }
    const std::string items = AddBackslash(dataDir) + "Items.iif";
    if (!fs.Exists(items)) fs.Copy(AddBackslash(args.samples) + "Items.iif", items);
    return true;
}

HouseKeeperOptions StartOptions(const std::string& dataDir) {
    std::string exe = RunningProgramPath();
    size_t cut = exe.find_last_of("\\/");
    HouseKeeperOptions opt;
    opt.programFolder = cut == std::string::npos ? std::string() : exe.substr(0, cut + 1);
    opt.exeName = cut == std::string::npos ? exe : exe.substr(cut + 1);
    opt.dataFolder = dataDir;
    return opt;
}

BatchOptions BatchOptionsOf(const Args& args) {
    BatchOptions o;
    o.kind = BatchKind(args.kind).value_or(qb::TxnKind::None);
    o.from = args.from;
    o.to = args.to;
    o.customer = args.customer;
    o.dryRun = args.dryRun;
    return o;
}

// The batch after start-up: a progress bar on a terminal, then the table of results.
bool RunBatchCommand(const Args& args, App& app) {
    const bool terminal = isatty(fileno(stdout));
    app.statusHook = nullptr;  // one line per transaction says more than the run's steps
    std::string error;
    const std::vector<BatchItem> items = RunBatch(
        app, BatchOptionsOf(args),
        [terminal](std::size_t done, std::size_t total, const BatchItem&) {
            if (terminal) {
                const int width = 40, filled = static_cast<int>(done * width / total);
                std::printf("\r[%s%s] %zu/%zu", std::string(filled, '#').c_str(),
                            std::string(width - filled, ' ').c_str(), done, total);
                if (done == total) std::printf("\n");
                std::fflush(stdout);
            }
            return true;
        },
        error);
    if (!error.empty()) {
        app.run.lastError = error;
        return false;
    }
    std::printf("%s", BatchTable(items).c_str());
    std::size_t failed = 0;
    for (const BatchItem& i : items) failed += i.failed;
    std::printf("%zu transactions, %zu failed\n", items.size(), failed);
    app.run.lastError = failed ? std::to_string(failed) + " of the transactions failed" : "";
    return failed == 0;
}

struct SortOutcome {
    int exitCode = 1;
    std::string debugLog;
    int roundTrips = 0;
};

// One press of Sort (or of Undo last sort): start-up, the main form's load, the command, and
// QuickBooks showing the transaction again.
SortOutcome RunSort(const Args& args, const std::string& dataDir, bool undo = false) {
    SortOutcome out;
    FileSystem& fs = RealFileSystem();
    if (!PrepareDataFolder(fs, args, dataDir)) return out;

    sim::SimQuickBooks simQb;
    std::unique_ptr<qb::QbTransport> liveTransport;
    std::unique_ptr<screen::Desktop> liveDesktop;
    qb::QbTransport* transport = nullptr;
    screen::Desktop* desktop = nullptr;
    if (!args.company.empty()) {
        simQb = sim::StartSimQuickBooks(args.company, args.ref);
        if (!simQb.error.empty()) {
            Fail(simQb.error);
            return out;
        }
        transport = simQb.transport.get();
        desktop = simQb.desktop.get();
        std::printf("QuickBooks (qbsim) shows %s %s\n", simQb.txn.kind.c_str(),
                    simQb.txn.refNumber.c_str());
    } else {
#ifdef _WIN32
        liveTransport = qb::MakeComTransport();
        liveDesktop = screen::MakeWin32Desktop();
        transport = liveTransport.get();
        desktop = liveDesktop.get();
#else
        Fail("--company is needed: QuickBooks runs only on Windows");
        return out;
#endif
    }
    std::unique_ptr<TracingTransport> tracing;
    if (!args.traceDir.empty()) {
        tracing = std::make_unique<TracingTransport>(*transport, fs, args.traceDir);
        if (!tracing->Ready()) {
            Fail("cannot make the trace folder " + args.traceDir);
            return out;
        }
        transport = tracing.get();
    }

    ConsolePrompter prompter(args.answer);
    Seams seams{&prompter, &RealEventPump(), &RealClock(), &RealEnvironment(), &RealRegistry(),
                &fs,       transport,        desktop};
    App app(seams);
    app.statusHook = [](const std::string& text) {
        std::printf("  %s\n", text.c_str());
        std::fflush(stdout);
    };
    try {
        Main(app, StartOptions(dataDir));
        LoadMainForm(app);
        if (args.company.empty() && args.refGiven)
            if (ui::Control* ref = app.frmMain.Find("txtRefNo")) ref->text = args.ref;
        bool previewed = false;
        if (args.dryRun)
            app.previewHook = [&previewed](const std::vector<sort::PreviewRow>& rows) {
                std::printf("The new order (dry run, nothing is written):\n%s",
                            sort::PreviewTable(rows).c_str());
                previewed = true;
                return false;
            };
        UndoOptions undoOptions;
        undoOptions.journal = args.journal;
        const bool ok = undo                      ? CmdUndo(app, undoOptions)
                        : args.command == "batch" ? RunBatchCommand(args, app)
                                                  : CmdGo(app) || previewed;
        out.roundTrips = app.run.roundTrips;
        out.debugLog = app.common.debug.open ? app.common.debug.path : "";
        if (!args.company.empty() && sim::ShowDisplayedTransactions(simQb, args.company) > 0)
            std::printf("QuickBooks shows %s %s again\n", simQb.txn.kind.c_str(),
                        simQb.txn.refNumber.c_str());
        if (!ok) {
            std::string why = !app.run.lastError.empty() ? app.run.lastError : app.run.status;
            Fail(std::string(undo ? "undo" : "the sort") + " did not complete: " + OneLine(why));
        }
        out.exitCode = ok ? 0 : 1;
        CloseAll(app);
    } catch (const ProgramEnd& end) {
        std::fprintf(stderr, "pelmark: the program ended: %s\n",
                     OneLine(app.run.lastError).c_str());
        out.exitCode = end.code ? end.code : 1;
    }
    return out;
}

int Sort(const Args& args, bool undo) {
#ifndef _WIN32
    if (args.company.empty()) {
        Fail(args.command + " needs --company FILE: QuickBooks runs only on Windows");
        return 2;
    }
#endif
    const SortOutcome out =
        RunSort(args, args.dataDir.empty() ? DefaultDataDir() : AddBackslash(args.dataDir), undo);
    if (!out.debugLog.empty()) std::printf("debug log: %s\n", out.debugLog.c_str());
    return out.exitCode;
}

int Batch(const Args& args) {
#ifndef _WIN32
    if (args.company.empty())
        return Fail("batch needs --company FILE: QuickBooks runs only on Windows"), 2;
#endif
    if (!BatchKind(args.kind))
        return Fail("--kind takes invoice, estimate, salesorder or salesreceipt"), 2;
    if (const std::string why = CheckBatchOptions(BatchOptionsOf(args)); !why.empty())
        return Fail(why), 2;
    const SortOutcome out =
        RunSort(args, args.dataDir.empty() ? DefaultDataDir() : AddBackslash(args.dataDir));
    return out.exitCode;
}

// The journals, newest first: what `undo --journal` can be given.
int ListJournalFiles(const Args& args) {
    ConsolePrompter prompter(kAnsNo);
    Seams seams{&prompter,       &RealEventPump(),  &RealClock(), &RealEnvironment(),
                &RealRegistry(), &RealFileSystem(), nullptr,      nullptr};
    App app(seams);
    app.folders.data = AddBackslash(args.dataDir.empty() ? DefaultDataDir() : args.dataDir);
    const std::vector<Journal> journals = ListJournals(app);
    if (journals.empty()) std::printf("no journals in %s\n", JournalFolder(app).c_str());
    for (const Journal& j : journals)
        std::printf("%s  %-12s %-10s %-14s %s\n", j.time.empty() ? "-" : j.time.c_str(),
                    j.kind.c_str(), j.refNumber.c_str(), j.state.c_str(), j.path.c_str());
    return 0;
}

int Demo(Args args) {
    const std::string dataDir =
        AddBackslash(args.dataDir.empty() ? DefaultDataDir() + "demo" : args.dataDir);
    FileSystem& fs = RealFileSystem();
    if (!fs.MakeDir(dataDir).ok()) return Fail("cannot make the data folder " + dataDir), 1;
    args.company = dataDir + "company.xml";
    if (!fs.Copy(AddBackslash(args.samples) + "company.xml", args.company).ok())
        return Fail("cannot copy the sample company into " + dataDir), 1;
    if (args.settings.empty()) args.settings = AddBackslash(args.samples) + "Pelmark.ini";
    if (!args.refGiven) args.ref = "3001";

    auto show = [&](const char* when) {
        sim::Company company;
        if (!company.LoadFile(args.company).ok()) return;
        if (std::optional<sim::TxnRef> txn = sim::FindSalesTxn(company, args.ref))
            std::printf("\n%s:\n%s\n", when, sim::TxnTable(company, *txn).c_str());
    };
    std::printf("%s %s demo: sorting with %s\n", kProductName, VersionText().c_str(),
                args.settings.c_str());
    show("Before");
    const SortOutcome out = RunSort(args, dataDir);
    show("After");
    std::printf("company file:  %s\n", args.company.c_str());
    std::printf("settings file: %sPelmark.ini\n", dataDir.c_str());
    if (!out.debugLog.empty()) std::printf("debug log:     %s\n", out.debugLog.c_str());
    std::printf("error log:     %sErr.Log\n", dataDir.c_str());
    std::printf("round trips to QuickBooks: %d\n", out.roundTrips);
    std::printf("%s\n", out.exitCode == 0 ? "sorted" : "the sort did not complete");
    return out.exitCode;
}

// What Pelmark sees on the screen, for support: nothing is typed into QuickBooks and nothing is
// asked of it through the SDK.
int Screen(const Args& args) {
    sim::SimQuickBooks simQb;
    std::unique_ptr<screen::Desktop> liveDesktop;
    screen::Desktop* desktop = nullptr;
    if (!args.company.empty()) {
        simQb = sim::StartSimQuickBooks(args.company, args.ref);
        if (!simQb.error.empty()) return Fail(simQb.error), 2;
        desktop = simQb.desktop.get();
    } else {
#ifdef _WIN32
        liveDesktop = screen::MakeWin32Desktop();
        desktop = liveDesktop.get();
#else
        return Fail("screen needs --company FILE: QuickBooks runs only on Windows"), 2;
#endif
    }
    ConsolePrompter prompter(args.answer);
    Seams seams{&prompter,       &RealEventPump(),  &RealClock(), &RealEnvironment(),
                &RealRegistry(), &RealFileSystem(), nullptr,      desktop};
    App app(seams);
    bool found = false;
    for (const std::string& line : screen::DescribeScreen(app, found))
        std::printf("%s\n", line.c_str());
    return found ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Args args = Parse(argc, argv);
    if (!args.error.empty()) {
        std::fprintf(stderr, "pelmark: %s\n%s", args.error.c_str(), kUsage);
        return 2;
    }
    if (args.command.empty() || args.command == "help") {
        std::fputs(kUsage, args.command.empty() ? stderr : stdout);
        return args.command.empty() ? 2 : 0;
    }
    if (args.command == "version") {
        std::printf("%s %s\n", kProductName, VersionText().c_str());
        return 0;
    }
    if (args.command == "sort" || args.command == "undo") return Sort(args, args.command == "undo");
    if (args.command == "batch") return Batch(args);
    if (args.command == "journal") return ListJournalFiles(args);
    if (args.command == "demo") return Demo(args);
    if (args.command == "screen") return Screen(args);
    std::fprintf(stderr, "pelmark: unknown command: %s\n%s", args.command.c_str(), kUsage);
    return 2;
}
