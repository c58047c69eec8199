// Candles.h: the candle records that every store under test receives, and
// the random batches and read positions, all made from fixed seeds so that
// every store sees exactly the same work; counts as the summaries print them.

#ifndef DATASTORE_BENCH_CANDLES_H_
#define DATASTORE_BENCH_CANDLES_H_

#include <cstdint>
#include <string>
#include <vector>

#pragma pack(push, 1)
// One candle exactly as the engine stores it: time, open, high, low, close, volume.
struct Candle {
  std::int32_t time;
  float open;
  float high;
  float low;
  float close;
  float volume;
};
#pragma pack(pop)

constexpr int kCandleSize = sizeof(Candle);
static_assert(kCandleSize == 24);

constexpr int kBaseCount = 1'000'000;               // candles of a full store
constexpr std::int32_t kFirstTime = 1'600'000'000;  // time of the first candle
constexpr std::int32_t kTimeStep = 60;              // one-minute candles
constexpr std::int32_t kBetweenOffset =
    kTimeStep / 2;  // added to a candle's time: a time before the next

constexpr std::int32_t TimeOf(int index) { return kFirstTime + index * kTimeStep; }

// kBaseCount candles, at TimeOf(0), TimeOf(1), ...
std::vector<Candle> const& BaseCandles();

// `count` candles for a store holding the first `stored` base candles, in
// random order with distinct times: half replace stored times, half fall
// between two stored times.
std::vector<Candle> UpsertBatch(int stored, int count);

// `count` random first indexes of runs of `length` records among `stored`.
std::vector<int> ReadStarts(int stored, int length, int count);

// 1234567 as "1,234,567".
std::string Thousands(int value);

#endif  // DATASTORE_BENCH_CANDLES_H_
