#include "ModuleStore.h"

#include <limits>

namespace {}  // namespace

ModuleStore::ModuleStore(std::filesystem::path const& folder, Durability durability)
    : CandleStore("engine", folder, 1), durability_(durability) {
  OpenEmpty();
}

ModuleStore::~ModuleStore() { Close(); }

void ModuleStore::Open() {
  session_ = std::make_unique<ModuleSession>(workFolder(), durability_);
  handle_ = session_->OpenCandles();
}

void ModuleStore::Close() { session_.reset(); }

void ModuleStore::InsertRecords(const Candle* candles, int count) {
  session_->Insert(handle_, candles, count);
}

int ModuleStore::ReadRange(int first, int count, Candle* out) {
  // A time range also delivers the last record before its first time, so
  // asking from just after record `first` starts the result at `first`.
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle_;
  request.mode = kGetTimeRange;
  request.firstTime = TimeOf(first) + 1;
  request.lastTime = TimeOf(first + count);
  return session_->Get(request, out, count);
}

int ModuleStore::ReadLast(int count, Candle* out) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle_;
  request.mode = kGetNewest;
  return session_->Get(request, out, count);
}

int ModuleStore::Count() {
  // The oldest "as many as there are" records: counted without reading any.
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle_;
  request.mode = kGetOldest;
  request.count = std::numeric_limits<std::int32_t>::max();
  return session_->Count(request);
}
