// Costs of the sort: the engine against std::stable_sort of the same precomputed keys, and a
// whole run against in-process qbsim with the clock's waits taken out, with its memory peak.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <random>
#include <string>
#include <vector>

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

// The sample company with one invoice of n lines added, written to `path`.
std::string MakeCompany(const std::string& path, std::size_t n) {
    sim::Company company;
    company.LoadFile(PELMARK_SAMPLES_DIR "/company.xml");
    std::string lines;
    std::mt19937 rng(11);
    for (std::size_t i = 0; i < n; ++i)
        lines += "<InvoiceLineAdd><ItemRef><FullName>" + std::string(kItems[rng() % 10]) +
                 "</FullName></ItemRef><Desc>Line " + std::to_string(rng() % 5000) +
                 "</Desc><Quantity>" + std::to_string(1 + rng() % 40) +
                 "</Quantity><Rate>12.50</Rate><DataExt><OwnerID>0</OwnerID><DataExtName>Lot"
                 "</DataExtName><DataExtValue>L-" +
                 std::to_string(i) + "</DataExtValue></DataExt></InvoiceLineAdd>";
    sim::ProcessRequest(company,
                        "<?xml version=\"1.0\"?><?qbxml version=\"7.0\"?><QBXML><QBXMLMsgsRq "
                        "onError=\"stopOnError\"><InvoiceAddRq><InvoiceAdd><CustomerRef><FullName>"
                        "Baker Hardware</FullName></CustomerRef><RefNumber>BENCH</RefNumber>" +
                            lines + "</InvoiceAdd></InvoiceAddRq></QBXMLMsgsRq></QBXML>");
    company.SaveFile(path);
    return company.ToXml();
}

void BM_WholeRun(benchmark::State& state) {
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() / "pelmark-bench-run";
    fs::create_directories(dir);
    const std::string companyPath = (dir / "company.xml").string();
    const std::string company = MakeCompany(companyPath, static_cast<std::size_t>(state.range(0)));
    fs::copy_file(PELMARK_SAMPLES_DIR "/Pelmark.ini", dir / "Pelmark.ini",
                  fs::copy_options::overwrite_existing);
    ConsolePrompter prompter{kAnsYes, false, stderr};
    MemoryRegistry registry;
    NoWaitClock clock;
    long long peak = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            sim::Company fresh;
            fresh.LoadText(company);
            fresh.SaveFile(companyPath);
        }
        state.ResumeTiming();
        const long long base = gInUse.load();
        gPeak = base;
        sim::SimQuickBooks qb = sim::StartSimQuickBooks(companyPath, "BENCH");
        App app(Seams{&prompter, &RealEventPump(), &clock, &RealEnvironment(), &registry,
                      &RealFileSystem(), qb.transport.get(), qb.desktop.get()});
        app.folders.data = dir.string() + "/";
        LoadMainForm(app);
        app.frmMain.Find("txtDebugLevel")->text = "0";
        if (!CmdGo(app)) state.SkipWithError("the run failed");
        peak = std::max(peak, gPeak.load() - base);
    }
    state.counters["peak_heap_MiB"] = static_cast<double>(peak) / (1024.0 * 1024.0);
    fs::remove_all(dir);
}
BENCHMARK(BM_WholeRun)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
