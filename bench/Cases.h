// Cases.h: the benchmark cases, each run on every store that offers it, and
// their registration with Google Benchmark under the name "<case>/<store>".

#ifndef DATASTORE_BENCH_CASES_H_
#define DATASTORE_BENCH_CASES_H_

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "CandleStore.h"

enum class CaseKind {
  Append,  // records after every stored one
  Upsert,  // records among stored ones
  Read,    // reading or counting stored records
};

struct CaseInfo {
  const char* id;     // first part of the benchmark name
  std::string title;  // for people, at full size
  CaseKind kind;
  void (*run)(benchmark::State&, CandleStore&);
  benchmark::TimeUnit unit;
  double maxToRaw;  // target: the engine's time at most this many times raw I/O's; 0: none
};

std::vector<CaseInfo> const& AllCases();

std::string BenchmarkName(CaseInfo const& info, std::string const& storeId);

// Registers every case for every store that offers it; the stores must
// outlive the run.
void RegisterCases(std::vector<std::unique_ptr<CandleStore>> const& stores);

#endif  // DATASTORE_BENCH_CASES_H_
