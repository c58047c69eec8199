// RawStore.h: the floor set by the file system: the same bytes in a plain
// file, with no header, no search and no bookkeeping. An insert after the last
// record is one write() appending it; any other insert costs what rewriting
// the file costs (one read of every stored byte, one write of the merged size
// to a new file, a rename), without merging anything. Reads are one pread()
// of the byte range; the newest records and the count take an fstat() for the
// file size first.

#ifndef DATASTORE_BENCH_RAWSTORE_H_
#define DATASTORE_BENCH_RAWSTORE_H_

#include <vector>

#include "CandleStore.h"

class RawStore : public CandleStore {
 public:
  explicit RawStore(std::filesystem::path const& folder);
  ~RawStore() override;

  int ReadRange(int first, int count, Candle* out) override;
  int ReadLast(int count, Candle* out) override;
  int Count() override;
  bool merges() const override { return false; }

 protected:
  void Open() override;
  void Close() override;
  void InsertRecords(const Candle* candles, int count) override;

 private:
  std::filesystem::path path() const;
  int ReadAt(int first, int count, Candle* out);
  void Append(const Candle* candles, int count);
  void Rewrite(int added);

  int fd_ = -1;
  std::int32_t lastTime_ = 0;   // time of the newest record appended
  std::vector<Candle> buffer_;  // the whole file during a rewrite
};

#endif  // DATASTORE_BENCH_RAWSTORE_H_
