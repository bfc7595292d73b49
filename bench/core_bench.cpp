// Costs of the application core on hot paths: trace lines below and above the debug level,
// and reading a large item list.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "app/context.h"
#include "app/items.h"
#include "app/logs.h"
#include "app/prompts.h"
#include "app/registry.h"

namespace {

using namespace pelmark;

struct BenchApp {
    ConsolePrompter prompter{kAnsYes, false, stderr};
    MemoryRegistry registry;
    std::filesystem::path dir = std::filesystem::temp_directory_path() / "pelmark-bench";
    App app{Seams{&prompter, &RealEventPump(), &RealClock(), &RealEnvironment(), &registry,
                  &RealFileSystem()}};
    BenchApp() {
        std::filesystem::create_directories(dir);
        app.folders.data = dir.string() + "/";
    }
    ~BenchApp() { std::filesystem::remove_all(dir); }
};

// A trace above the chosen level must cost little more than the level comparison.
void BM_DebugLogFiltered(benchmark::State& state) {
    BenchApp b;
    b.app.frmMain.Find("txtDebugLevel")->text = "1";
    for (auto _ : state) DebugLog(b.app, "Read Ini Entered ", 5);
}
BENCHMARK(BM_DebugLogFiltered);

void BM_DebugLogWritten(benchmark::State& state) {
    BenchApp b;
    b.app.frmMain.Find("txtDebugLevel")->text = "5";
    for (auto _ : state) DebugLog(b.app, "Read Ini Entered ", 5);
}
BENCHMARK(BM_DebugLogWritten);

void BM_ReadItemsIIF(benchmark::State& state) {
    BenchApp b;
    {
        std::ofstream out(b.dir / "Items.iif", std::ios::binary);
        out << "!INVITEM\tNAME\tINVITEMTYPE\tDESC\tPRICE\tCOST\tSALESTAXCODE\r\n";
        for (int i = 0; i < state.range(0); ++i)
            out << "INVITEM\tParts:Item " << i << "\tPART\tDescription " << i << "\t" << i
                << ".25\t1.00\tTax\r\n";
    }
    for (auto _ : state) {
        b.app.items.Clear();
        ReadItemsIIF(b.app);
        benchmark::DoNotOptimize(b.app.items.count());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_ReadItemsIIF)->Arg(1000)->Arg(30000);

}  // namespace

BENCHMARK_MAIN();
