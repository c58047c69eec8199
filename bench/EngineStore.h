// EngineStore.h: the storage engine used directly, without the module and its
// write-ahead log: one candle symbol (five float views, one-minute intraday
// period) created in the store's folder. The base of PerRecordStore.

#ifndef DATASTORE_BENCH_ENGINESTORE_H_
#define DATASTORE_BENCH_ENGINESTORE_H_

#include <memory>

#include "CandleStore.h"
#include "Symbol.h"

class EngineStore : public CandleStore {
 public:
  ~EngineStore() override;

  int ReadRange(int first, int count, Candle* out) override;
  int ReadLast(int count, Candle* out) override;
  int Count() override;

 protected:
  EngineStore(std::string id, std::filesystem::path const& folder, int scale);

  void Open() override;
  void Close() override;
  void InsertRecords(const Candle* candles, int count) override;
  CSDTFile& file() { return *symbol_->file(); }

 private:
  class WritingOwner : public SymbolOwner {
   public:
    bool IsWriteEnabled() const override { return true; }
  };

  int Get(GET_SYMBOL_DATA_REQUEST& request, Candle* out);

  WritingOwner owner_;
  std::unique_ptr<CSymbol> symbol_;  // null while closed
};

#endif  // DATASTORE_BENCH_ENGINESTORE_H_
