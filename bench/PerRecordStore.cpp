#include "PerRecordStore.h"

PerRecordStore::PerRecordStore(std::filesystem::path const& folder)
    : EngineStore("per_record", folder, kScale) {}

void PerRecordStore::LoadBase(const Candle* candles, int count) {
  EngineStore::InsertRecords(candles, count);
}

void PerRecordStore::InsertRecords(const Candle* candles, int count) {
  for (int i = 0; i < count; ++i) InsertOne(candles[i]);
}

void PerRecordStore::InsertOne(Candle const& candle) {
  int total = file().GetDataPointCount();  // also positions at record 0
  if (total == 0) {
    file().Write(&candle, kCandleSize);
    return;
  }
  int index = file().GetDataPointIndex(candle.time);
  if (index < total) {
    InsertBefore(index, candle, total);
  } else {
    AppendOrReplaceLast(candle, total);
  }
}

void PerRecordStore::InsertBefore(int index, Candle const& candle, int total) {
  tail_.resize(total - index);
  unsigned int tailBytes = tail_.size() * kCandleSize;
  file().SeekToDataPoint(index);
  file().Read(tail_.data(), tailBytes);
  file().SeekToDataPoint(index);
  file().Write(&candle, kCandleSize);
  if (tail_.front().time != candle.time) file().Write(tail_.data(), tailBytes);
}

void PerRecordStore::AppendOrReplaceLast(Candle const& candle, int total) {
  Candle last;
  file().SeekToDataPoint(total - 1);
  file().Read(&last, kCandleSize);
  if (last.time == candle.time) file().SeekToDataPoint(total - 1);
  file().Write(&candle, kCandleSize);
}
