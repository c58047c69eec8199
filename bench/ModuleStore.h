// ModuleStore.h: the data store as a terminal uses it: the built library
// loaded through the reference host (ModuleSession.h), one candle symbol,
// synchronous inserts (6003), gets (6005) and counts (6007), its data files
// changed through the folder's write-ahead log at the given durability.
// Closing the store stops the module, which checkpoints the log into the
// data files; that is never part of a measurement.

#ifndef DATASTORE_BENCH_MODULESTORE_H_
#define DATASTORE_BENCH_MODULESTORE_H_

#include <memory>

#include "CandleStore.h"
#include "ModuleSession.h"

class ModuleStore : public CandleStore {
 public:
  ModuleStore(std::filesystem::path const& folder, Durability durability);
  ~ModuleStore() override;

  int ReadRange(int first, int count, Candle* out) override;
  int ReadLast(int count, Candle* out) override;
  int Count() override;

 protected:
  void Open() override;
  void Close() override;
  void InsertRecords(const Candle* candles, int count) override;

 private:
  Durability durability_;                   // written to the session's configuration
  std::unique_ptr<ModuleSession> session_;  // null while closed
  HostWord handle_ = 0;                     // the candle symbol
};

#endif  // DATASTORE_BENCH_MODULESTORE_H_
