// CandleStore.h: what every store under test offers the benchmark cases.
//
// A store lives in its own folder: "work" holds the store being measured,
// "base" a copy of it holding the base candles, made once and copied back
// whenever a case needs the base records again. Preparing a store is never
// part of a measurement.

#ifndef DATASTORE_BENCH_CANDLESTORE_H_
#define DATASTORE_BENCH_CANDLESTORE_H_

#include <filesystem>
#include <string>

#include "Candles.h"

class CandleStore {
 public:
  // `scale` divides every size of a case, for stores too slow for full sizes.
  CandleStore(std::string id, std::filesystem::path const& folder, int scale);
  virtual ~CandleStore() = default;
  CandleStore(const CandleStore&) = delete;
  CandleStore& operator=(const CandleStore&) = delete;

  std::string const& id() const { return id_; }
  int scale() const { return scale_; }
  int baseCount() const { return kBaseCount / scale_; }
  // True for a store that is measured on inserts only.
  virtual bool insertsOnly() const { return false; }
  // False for a store that does only the I/O of an insert among stored
  // records, without merging them, so that its count is not the merged one.
  virtual bool merges() const { return true; }

  // Untimed preparation: nothing stored, or the first baseCount() base candles.
  void MakeEmpty();
  void RestoreBase();

  // The measured operations.
  void Insert(const Candle* candles, int count);
  // Records [first, first + count) into out; returns how many were delivered.
  virtual int ReadRange(int first, int count, Candle* out) = 0;
  // The newest count records, oldest first; returns how many were delivered.
  virtual int ReadLast(int count, Candle* out) = 0;
  virtual int Count() = 0;

 protected:
  std::filesystem::path const& workFolder() const { return work_; }
  // Opens the store in workFolder(), creating it when the folder is empty.
  virtual void Open() = 0;
  // Closes it so that its files can be copied or removed.
  virtual void Close() = 0;
  virtual void InsertRecords(const Candle* candles, int count) = 0;
  // Fills an empty store with the base candles: InsertRecords unless a
  // store has a faster way to make the same files.
  virtual void LoadBase(const Candle* candles, int count) { InsertRecords(candles, count); }

  // Empties workFolder() and opens the store there; for the constructors of
  // subclasses, where Open() is theirs to call.
  void OpenEmpty();

 private:
  void BuildBase();

  std::string id_;              // names the store in results
  int scale_;                   // divisor of case sizes
  std::filesystem::path work_;  // the store being measured
  std::filesystem::path base_;  // the base copy, once built
  bool holdsBase_ = false;      // work_ equals base_
};

#endif  // DATASTORE_BENCH_CANDLESTORE_H_
