#include "OpenFileCache.h"

#include "Symbol.h"

Status OpenFileCache::Use(CSymbol& symbol) {
  const auto held = positions_.find(&symbol);
  if (held != positions_.end()) {
    recency_.splice(recency_.begin(), recency_, held->second);
  }
  Status status = symbol.Open();
  if (!status.ok()) {
    Forget(&symbol);
    return status;
  }
  if (held == positions_.end()) {
    recency_.push_front(&symbol);
    positions_.emplace(&symbol, recency_.begin());
  }
  CloseBeyondCapacity();
  return status;
}

void OpenFileCache::Forget(CSymbol* symbol) {
  const auto held = positions_.find(symbol);
  if (held == positions_.end()) return;
  recency_.erase(held->second);
  positions_.erase(held);
}

void OpenFileCache::setCapacity(std::size_t capacity) {
  capacity_ = capacity;
  CloseBeyondCapacity();
}

void OpenFileCache::CloseBeyondCapacity() {
  while (positions_.size() > capacity_) {
    CSymbol* oldest = recency_.back();
    oldest->ReleaseFile();
    Forget(oldest);
  }
}
