#include "Candles.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <string>

namespace {

constexpr unsigned kPriceSeed = 1;
constexpr unsigned kUpsertSeed = 2;
constexpr unsigned kReadSeed = 3;
constexpr float kStartPrice = 1.1f;
constexpr float kMaxMove = 0.0005f;  // largest price move within one candle
constexpr float kMaxVolume = 500.0f;

Candle MakeCandle(std::int32_t time, float open, std::mt19937& random) {
  std::uniform_real_distribution<float> move(-kMaxMove, kMaxMove);
  std::uniform_real_distribution<float> volume(0.0f, kMaxVolume);
  float close = open + move(random);
  float high = std::max(open, close) + std::abs(move(random));
  float low = std::min(open, close) - std::abs(move(random));
  return Candle{time, open, high, low, close, volume(random)};
}

std::vector<Candle> MakeBaseCandles() {
  std::mt19937 random(kPriceSeed);
  std::vector<Candle> candles;
  candles.reserve(kBaseCount);
  float price = kStartPrice;
  for (int i = 0; i < kBaseCount; ++i) {
    candles.push_back(MakeCandle(TimeOf(i), price, random));
    price = candles.back().close;
  }
  return candles;
}

}  // namespace

std::vector<Candle> const& BaseCandles() {
  static const std::vector<Candle> candles = MakeBaseCandles();
  return candles;
}

std::vector<Candle> UpsertBatch(int stored, int count) {
  std::mt19937 random(kUpsertSeed);
  std::vector<int> indexes(stored);
  std::iota(indexes.begin(), indexes.end(), 0);
  std::shuffle(indexes.begin(), indexes.end(), random);
  // The first count/2 shuffled indexes are replaced, the next ones get a
  // candle just after them: distinct times either way.
  std::vector<Candle> batch;
  batch.reserve(count);
  for (int i = 0; i < count; ++i) {
    bool replaces = i < count / 2;
    std::int32_t time = TimeOf(indexes[i]) + (replaces ? 0 : kBetweenOffset);
    batch.push_back(MakeCandle(time, BaseCandles()[indexes[i]].open, random));
  }
  std::shuffle(batch.begin(), batch.end(), random);
  return batch;
}

std::vector<int> ReadStarts(int stored, int length, int count) {
  std::mt19937 random(kReadSeed);
  std::uniform_int_distribution<int> start(0, stored - length);
  std::vector<int> starts(count);
  for (int& s : starts) s = start(random);
  return starts;
}

std::string Thousands(int value) {
  constexpr std::size_t kGroup = 3;
  std::string digits = std::to_string(value);
  std::string grouped;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % kGroup == 0) grouped += ',';
    grouped += digits[i];
  }
  return grouped;
}
