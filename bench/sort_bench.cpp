// Costs of the sort: the engine against std::stable_sort of the same precomputed keys; a whole
// run against in-process qbsim with the clock's waits taken out, with its memory peak; and a
// batch, per transaction, in companies of growing size. The runs count qbsim's CPU time (its
// start and every call of the transport) apart from the client's.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "app/batch.h"
#include "app/context.h"
#include "app/prompts.h"
#include "app/registry.h"
#include "app/run.h"
#include "sim/processor.h"
#include "sim/simRun.h"
#include "sort/engine.h"
#include "ui/frmMain.h"

// Heap bytes in use and their peak, for the memory figure of a run.
namespace {
std::atomic<long long> gInUse{0}, gPeak{0};
}
void* operator new(std::size_t size) {
    void* p = std::malloc(size + 16);
    if (!p) throw std::bad_alloc();
    *static_cast<std::size_t*>(p) = size;
    const long long now = gInUse += static_cast<long long>(size);
    long long peak = gPeak.load();
    while (now > peak && !gPeak.compare_exchange_weak(peak, now)) {
    }
    return static_cast<char*>(p) + 16;
}
void operator delete(void* p) noexcept {
    if (!p) return;
    char* base = static_cast<char*>(p) - 16;
    gInUse -= static_cast<long long>(*reinterpret_cast<std::size_t*>(base));
    std::free(base);
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}

namespace {

using namespace pelmark;

const char* const kItems[] = {"Widget",  "Widget:Red", "Bracket 2in",  "Bolt M6",   "Labor",
                              "Freight", "Gasket Kit", "Cabinet Pull", "Packaging", "Rush Fee"};

// A line table of n item lines with varied items, descriptions and quantities.
std::vector<qb::TxnLine> Lines(std::size_t n) {
    std::mt19937 rng(7);
    std::vector<qb::TxnLine> table(n);
    for (std::size_t i = 0; i < n; ++i) {
        qb::TxnLine& l = table[i];
        l.lineType = qb::kLineItem;
        l.txnLineID = std::to_string(i);
        l.itemFullName = kItems[rng() % 10];
        l.desc = "Line " + std::to_string(rng() % 5000) + " of the order";
        l.quantity = std::to_string(rng() % 40);
        l.rate = "12.50";
        l.salesTaxCodeFullName = rng() % 2 ? "Tax" : "Non";
    }
    return table;
}

sort::SortSettings Settings() {
    sort::SortSettings s;
    s.levels = {{"Item Full Name", false, false}, {"Desc", true, false}, {"Qty", false, false}};
    return s;
}

void BM_SortEngine(benchmark::State& state) {
    const auto table = Lines(static_cast<std::size_t>(state.range(0)));
    const sort::SortSettings settings = Settings();
    for (auto _ : state) {
        sort::SortPlan plan =
            sort::BuildSortPlan(table, 0, table.size(), settings, {}, qb::TxnKind::Invoice, "T");
        benchmark::DoNotOptimize(plan.steps.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SortEngine)->Arg(10)->Arg(1000)->Arg(30000)->Unit(benchmark::kMicrosecond);

// The baseline: the same keys built once, then only std::stable_sort of their entries.
void BM_StableSortOfKeys(benchmark::State& state) {
    const auto table = Lines(static_cast<std::size_t>(state.range(0)));
    std::vector<const qb::TxnLine*> lines;
    for (const auto& l : table) lines.push_back(&l);
    const sort::SortKeys keys = sort::BuildSortKeys(lines, Settings());
    std::vector<std::string> entries;
    for (std::size_t i = 0; i < keys.size(); ++i) entries.emplace_back(keys[i]);
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<std::string> work = entries;
        state.ResumeTiming();
        std::stable_sort(work.begin(), work.end());
        benchmark::DoNotOptimize(work.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StableSortOfKeys)->Arg(10)->Arg(1000)->Arg(30000)->Unit(benchmark::kMicrosecond);

// Waits cost nothing: the run's own work is measured, not its pauses for QuickBooks.
class NoWaitClock : public Clock {
  public:
    LocalTime Now() override { return RealClock().Now(); }
    double Timer() override { return RealClock().Timer(); }
    void Sleep(int) override {}
};

double CpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// The transport with the CPU time spent inside it (qbsim answering) added to `spent`.
class TimedTransport : public qb::QbTransport {
  public:
    TimedTransport(qb::QbTransport& inner, double& spent) : inner_(inner), spent_(spent) {}
    qb::TransportResult OpenConnection(const std::string& id, const std::string& name) override {
        return Timed([&] { return inner_.OpenConnection(id, name); });
    }
    qb::TransportResult BeginSession(const std::string& file, int mode,
                                     std::string* ticket) override {
        return Timed([&] { return inner_.BeginSession(file, mode, ticket); });
    }
    qb::TransportResult ProcessRequest(const std::string& ticket, const std::string& request,
                                       std::string* response) override {
        return Timed([&] { return inner_.ProcessRequest(ticket, request, response); });
    }
    qb::TransportResult GetCurrentCompanyFileName(const std::string& ticket,
                                                  std::string* name) override {
        return Timed([&] { return inner_.GetCurrentCompanyFileName(ticket, name); });
    }
    qb::TransportResult EndSession(const std::string& ticket) override {
        return Timed([&] { return inner_.EndSession(ticket); });
    }
    qb::TransportResult CloseConnection() override {
        return Timed([&] { return inner_.CloseConnection(); });
    }

  private:
    template <class F>
    qb::TransportResult Timed(F call) {
        const double start = CpuSeconds();
        qb::TransportResult r = call();
        spent_ += CpuSeconds() - start;
        return r;
    }
    qb::QbTransport& inner_;
    double& spent_;
};

// `n` item lines of an invoice add, in an order that needs sorting.
std::string InvoiceLines(std::mt19937& rng, std::size_t n) {
    std::string lines;
    for (std::size_t i = 0; i < n; ++i)
        lines += "<InvoiceLineAdd><ItemRef><FullName>" + std::string(kItems[rng() % 10]) +
                 "</FullName></ItemRef><Desc>Line " + std::to_string(rng() % 5000) +
                 "</Desc><Quantity>" + std::to_string(1 + rng() % 40) +
                 "</Quantity><Rate>12.50</Rate><DataExt><OwnerID>0</OwnerID><DataExtName>Lot"
                 "</DataExtName><DataExtValue>L-" +
                 std::to_string(i) + "</DataExtValue></DataExt></InvoiceLineAdd>";
    return lines;
}

// The sample company with `invoices` more invoices (B0, B1, ...) of `lines` lines each, the
// first `dated` of them on 2030-01-15 and the rest on 2029-01-15, written to `path`; returns
// its text.
std::string MakeCompany(const std::string& path, std::size_t invoices, std::size_t lines,
                        std::size_t dated) {
    sim::Company company;
    company.LoadFile(PELMARK_SAMPLES_DIR "/company.xml");
    std::mt19937 rng(11);
    std::string adds;
    for (std::size_t i = 0; i < invoices; ++i)
        adds +=
            "<InvoiceAddRq><InvoiceAdd><CustomerRef><FullName>Baker Hardware</FullName>"
            "</CustomerRef><TxnDate>" +
            std::string(i < dated ? "2030" : "2029") + "-01-15</TxnDate><RefNumber>B" +
            std::to_string(i) + "</RefNumber>" + InvoiceLines(rng, lines) +
            "</InvoiceAdd></InvoiceAddRq>";
    sim::ProcessRequest(company,
                        "<?xml version=\"1.0\"?><?qbxml version=\"7.0\"?><QBXML><QBXMLMsgsRq "
                        "onError=\"stopOnError\">" +
                            adds + "</QBXMLMsgsRq></QBXML>");
    company.SaveFile(path);
    return company.ToXml();
}

// A data folder with the sample settings and a company; removed when done.
struct RunFolder {
    std::filesystem::path dir = std::filesystem::temp_directory_path() / "pelmark-bench-run";
    std::string companyPath = (dir / "company.xml").string();
    RunFolder() {
        std::filesystem::create_directories(dir);
        std::filesystem::copy_file(PELMARK_SAMPLES_DIR "/Pelmark.ini", dir / "Pelmark.ini",
                                   std::filesystem::copy_options::overwrite_existing);
    }
    ~RunFolder() { std::filesystem::remove_all(dir); }
    // The company as it was before the iteration, written with the timing paused.
    void Reset(benchmark::State& state, const std::string& company) const {
        state.PauseTiming();
        sim::Company fresh;
        fresh.LoadText(company);
        fresh.SaveFile(companyPath);
        state.ResumeTiming();
    }
};

// QuickBooks (qbsim, in process) with the window of `ref` open, and the application loaded;
// qbsim's CPU time is added to `qbsimSeconds`, its start to `startSeconds` when given (else to
// `qbsimSeconds` as well).
struct RunRig {
    ConsolePrompter prompter{kAnsYes, false, stderr};
    MemoryRegistry registry;
    NoWaitClock clock;
    sim::SimQuickBooks qb;
    std::unique_ptr<TimedTransport> timed;
    std::unique_ptr<App> app;
    RunRig(const RunFolder& folder, const char* ref, double& qbsimSeconds,
           double* startSeconds = nullptr) {
        const double start = CpuSeconds();
        qb = sim::StartSimQuickBooks(folder.companyPath, ref);
        (startSeconds ? *startSeconds : qbsimSeconds) += CpuSeconds() - start;
        timed = std::make_unique<TimedTransport>(*qb.transport, qbsimSeconds);
        app = std::make_unique<App>(Seams{&prompter, &RealEventPump(), &clock, &RealEnvironment(),
                                          &registry, &RealFileSystem(), timed.get(),
                                          qb.desktop.get()});
        app->folders.data = folder.dir.string() + "/";
        LoadMainForm(*app);
        app->frmMain.Find("txtDebugLevel")->text = "0";
    }
};

// CPU milliseconds per iteration and unit, as counters: the whole, qbsim's share and the rest.
void CpuCounters(benchmark::State& state, double total, double qbsim, double units) {
    using C = benchmark::Counter;
    state.counters["cpu_ms"] = C(total * 1e3 / units, C::kAvgIterations);
    state.counters["qbsim_ms"] = C(qbsim * 1e3 / units, C::kAvgIterations);
    state.counters["client_ms"] = C((total - qbsim) * 1e3 / units, C::kAvgIterations);
}

void BM_WholeRun(benchmark::State& state) {
    RunFolder folder;
    const std::string company =
        MakeCompany(folder.companyPath, 1, static_cast<std::size_t>(state.range(0)), 1);
    long long peak = 0;
    double total = 0, qbsim = 0;
    for (auto _ : state) {
        folder.Reset(state, company);
        const double start = CpuSeconds();
        const long long base = gInUse.load();
        gPeak = base;
        RunRig rig(folder, "B0", qbsim);
        if (!CmdGo(*rig.app)) state.SkipWithError("the run failed");
        peak = std::max(peak, gPeak.load() - base);
        total += CpuSeconds() - start;
    }
    CpuCounters(state, total, qbsim, 1);
    state.counters["peak_heap_MiB"] = static_cast<double>(peak) / (1024.0 * 1024.0);
}
BENCHMARK(BM_WholeRun)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(3);

// A batch of range(1) invoices of 20 lines in a company of range(0) such invoices (and the
// sample's own); the counters are per transaction of the batch, but for start_ms: qbsim's start
// (the simulated desktop reads the company), once per batch and apart from the rest.
void BM_Batch(benchmark::State& state) {
    const auto invoices = static_cast<std::size_t>(state.range(0));
    const auto batched = static_cast<std::size_t>(state.range(1));
    RunFolder folder;
    const std::string company = MakeCompany(folder.companyPath, invoices, 20, batched);
    double total = 0, qbsim = 0, started = 0;
    for (auto _ : state) {
        folder.Reset(state, company);
        RunRig rig(folder, "B0", qbsim, &started);
        const double start = CpuSeconds();
        std::string error;
        const std::vector<BatchItem> items = RunBatch(
            *rig.app, {qb::TxnKind::Invoice, "2030-01-01", "2030-12-31", "", false}, {}, error);
        total += CpuSeconds() - start;
        std::size_t sorted = 0;
        for (const BatchItem& i : items) sorted += i.result == "sorted";
        if (!error.empty() || sorted != batched) state.SkipWithError("the batch did not sort all");
    }
    CpuCounters(state, total, qbsim, static_cast<double>(batched));
    state.counters["start_ms"] =
        benchmark::Counter(started * 1e3, benchmark::Counter::kAvgIterations);
    state.counters["company_MiB"] = static_cast<double>(company.size()) / (1024.0 * 1024.0);
}
BENCHMARK(BM_Batch)
    ->Args({100, 100})
    ->Args({1000, 100})
    ->Args({3000, 100})
    ->Args({1000, 1000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

}  // namespace
