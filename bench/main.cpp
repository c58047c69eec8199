// storage_bench: the data store library (loaded through the reference host),
// SQLite and raw file I/O on the same candle records, then the write path's
// single changes (WritePath.h), followed by a summary of ratios and targets.
//
// Takes Google Benchmark's options (e.g. --benchmark_filter=range_read).
// Stores live in a fresh folder under $TMPDIR (or /tmp), removed at the end.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "TemporaryFolder.h"
#include "Cases.h"
#include "Machine.h"
#include "ModuleStore.h"
#include "PerRecordStore.h"
#include "RawStore.h"
#include "SqliteStore.h"
#include "Summary.h"
#include "WritePath.h"

namespace {

namespace fs = std::filesystem;

constexpr char kFolderTemplate[] = "storage_bench.XXXXXX";

void Run(fs::path const& folder) {
  std::vector<std::unique_ptr<CandleStore>> stores;
  stores.push_back(std::make_unique<ModuleStore>(folder, Durability{}));
  auto sqlite = std::make_unique<SqliteStore>(folder);
  const std::string sqliteSettings = sqlite->settings();
  stores.push_back(std::move(sqlite));
  stores.push_back(std::make_unique<RawStore>(folder));
  stores.push_back(std::make_unique<PerRecordStore>(folder));
  RegisterCases(stores);
  WritePath writePath(folder);
  writePath.Register(std::cout);
  std::string loadAtStart = LoadAverage();
  CollectingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  PrintSummary(reporter.seconds(), writePath.Targets(), std::cout);
  std::cout << "\nSQLite in the case table: " << sqliteSettings << "\n";
  writePath.PrintNotes(std::cout);
  PrintMachine(folder, loadAtStart, std::cout);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
  try {
    TemporaryFolder folder(kFolderTemplate);
    Run(folder.path());
  } catch (std::exception const& error) {
    std::cerr << "storage_bench: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
  benchmark::Shutdown();
  return EXIT_SUCCESS;
}
