// PerRecordStore.h: the plain insert algorithm, one record at a time, on the
// engine's own file access: for each record a lower-bound search by time,
// then either an append (replacing the last record when its time is equal)
// or a read of the whole tail, the record written in place and the tail
// written after it. It is quadratic, so it runs on smaller sizes (scale).

#ifndef DATASTORE_BENCH_PERRECORDSTORE_H_
#define DATASTORE_BENCH_PERRECORDSTORE_H_

#include <vector>

#include "EngineStore.h"

class PerRecordStore : public EngineStore {
 public:
  static constexpr int kScale = 10;  // sizes are a tenth of the other stores'

  explicit PerRecordStore(std::filesystem::path const& folder);
  bool insertsOnly() const override { return true; }

 protected:
  void InsertRecords(const Candle* candles, int count) override;
  void LoadBase(const Candle* candles, int count) override;

 private:
  void InsertOne(Candle const& candle);
  void InsertBefore(int index, Candle const& candle, int total);
  void AppendOrReplaceLast(Candle const& candle, int total);

  std::vector<Candle> tail_;  // records moved up by an insert
};

#endif  // DATASTORE_BENCH_PERRECORDSTORE_H_
