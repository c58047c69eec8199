#include "Cases.h"

#include <algorithm>

namespace {

constexpr int kBatchSize = 100;             // records per insert when appending in batches
constexpr int kUpsertCount = 10'000;        // records of the random batch at full size
constexpr int kRangeLength = 1'000;         // records of a range read
constexpr int kLastCount = 100;             // newest records read
constexpr int kReadPositions = 4'096;       // random range starts, used in turn
constexpr int kRepetitions = 3;             // the summary takes the median
constexpr double kMaxOneInsertToRaw = 1.5;  // targets, engine to raw I/O
constexpr double kMaxBatchesToRaw = 2.0;
constexpr double kMaxReadToRaw = 2.0;
constexpr double kNoTarget = 0.0;

void ExpectCount(benchmark::State& state, CandleStore& store, int expected) {
  if (store.Count() != expected) state.SkipWithError("the store holds a wrong number of records");
}

void AppendInOneInsert(benchmark::State& state, CandleStore& store) {
  int count = store.baseCount();
  for (auto _ : state) {
    state.PauseTiming();
    store.MakeEmpty();
    state.ResumeTiming();
    store.Insert(BaseCandles().data(), count);
  }
  ExpectCount(state, store, count);
  state.SetItemsProcessed(state.iterations() * count);
}

void AppendInBatches(benchmark::State& state, CandleStore& store) {
  int count = store.baseCount();
  for (auto _ : state) {
    state.PauseTiming();
    store.MakeEmpty();
    state.ResumeTiming();
    for (int first = 0; first < count; first += kBatchSize) {
      store.Insert(BaseCandles().data() + first, std::min(kBatchSize, count - first));
    }
  }
  ExpectCount(state, store, count);
  state.SetItemsProcessed(state.iterations() * count);
}

void UpsertRandom(benchmark::State& state, CandleStore& store) {
  std::vector<Candle> batch = UpsertBatch(store.baseCount(), kUpsertCount / store.scale());
  int count = static_cast<int>(batch.size());
  for (auto _ : state) {
    state.PauseTiming();
    store.RestoreBase();
    state.ResumeTiming();
    store.Insert(batch.data(), count);
  }
  // Half of the batch replaces stored records, half is new.
  if (store.merges()) ExpectCount(state, store, store.baseCount() + count / 2);
  state.SetItemsProcessed(state.iterations() * count);
}

void ReadRange(benchmark::State& state, CandleStore& store) {
  store.RestoreBase();
  std::vector<int> starts = ReadStarts(store.baseCount(), kRangeLength, kReadPositions);
  std::vector<Candle> out(kRangeLength);
  std::size_t next = 0;
  for (auto _ : state) {
    int first = starts[next++ % starts.size()];
    int read = store.ReadRange(first, kRangeLength, out.data());
    if (read != kRangeLength || out.front().time != TimeOf(first) ||
        out.back().time != TimeOf(first + read - 1)) {
      state.SkipWithError("a range read delivered wrong records");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kRangeLength);
}

void ReadLast(benchmark::State& state, CandleStore& store) {
  store.RestoreBase();
  std::vector<Candle> out(kLastCount);
  int expectedFirst = store.baseCount() - kLastCount;
  for (auto _ : state) {
    int read = store.ReadLast(kLastCount, out.data());
    if (read != kLastCount || out.front().time != TimeOf(expectedFirst)) {
      state.SkipWithError("reading the newest records delivered wrong records");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kLastCount);
}

void CountAll(benchmark::State& state, CandleStore& store) {
  store.RestoreBase();
  for (auto _ : state) {
    if (store.Count() != store.baseCount()) {
      state.SkipWithError("a wrong count");
      break;
    }
  }
}

}  // namespace

std::vector<CaseInfo> const& AllCases() {
  static const std::string stored = Thousands(kBaseCount);
  static const std::vector<CaseInfo> cases = {
      {"append_one_insert", "append " + stored + " in one insert", CaseKind::Append,
       AppendInOneInsert, benchmark::kMillisecond, kMaxOneInsertToRaw},
      {"append_batches", "append " + stored + " in batches of " + Thousands(kBatchSize),
       CaseKind::Append, AppendInBatches, benchmark::kMillisecond, kMaxBatchesToRaw},
      {"upsert_random", "upsert " + Thousands(kUpsertCount) + " random into " + stored,
       CaseKind::Upsert, UpsertRandom, benchmark::kMillisecond, kNoTarget},
      {"range_read", "range read " + Thousands(kRangeLength) + " of " + stored, CaseKind::Read,
       ReadRange, benchmark::kMicrosecond, kMaxReadToRaw},
      {"read_last", "last " + Thousands(kLastCount) + " of " + stored, CaseKind::Read, ReadLast,
       benchmark::kMicrosecond, kMaxReadToRaw},
      {"count", "count " + stored, CaseKind::Read, CountAll, benchmark::kMicrosecond,
       kMaxReadToRaw},
  };
  return cases;
}

std::string BenchmarkName(CaseInfo const& info, std::string const& storeId) {
  return std::string(info.id) + "/" + storeId;
}

void RegisterCases(std::vector<std::unique_ptr<CandleStore>> const& stores) {
  for (CaseInfo const& c : AllCases()) {
    for (auto const& store : stores) {
      if (store->insertsOnly() && c.kind == CaseKind::Read) continue;
      CandleStore* target = store.get();
      auto run = c.run;
      benchmark::RegisterBenchmark(BenchmarkName(c, store->id()).c_str(),
                                   [run, target](benchmark::State& state) { run(state, *target); })
          ->UseRealTime()
          ->Unit(c.unit)
          ->Repetitions(kRepetitions)
          ->DisplayAggregatesOnly(true);
    }
  }
}
