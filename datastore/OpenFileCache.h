// OpenFileCache.h: OpenFileCache, which bounds the data files held open.
//
// Guarantees: at most capacity() symbols hold an open data file between
// calls; Use opens a symbol's file when it is closed and, when that makes one
// too many, closes the least recently used one (its caches stay: reopening
// costs one open). A symbol holds at most one descriptor.
//
// REQUIRES: calls are serialised with every other use of the symbols (the
// data store's data mutex); a symbol is forgotten before it is destroyed.
// Thread-safety: none.

#ifndef DATASTORE_DATASTORE_OPENFILECACHE_H_
#define DATASTORE_DATASTORE_OPENFILECACHE_H_

#include <cstddef>
#include <list>
#include <unordered_map>

#include "Status.h"

class CSymbol;

class OpenFileCache {
 public:
  static constexpr std::size_t kDefaultCapacity = 256;  // "OpenFiles" when not configured

  explicit OpenFileCache(std::size_t capacity = kDefaultCapacity) : capacity_(capacity) {}
  OpenFileCache(const OpenFileCache&) = delete;
  OpenFileCache& operator=(const OpenFileCache&) = delete;

  // Makes the symbol's file open and the most recently used; the error of
  // opening it otherwise (the symbol is then not held).
  Status Use(CSymbol& symbol);
  void Forget(CSymbol* symbol);
  // REQUIRES: capacity >= 1.
  void setCapacity(std::size_t capacity);
  std::size_t capacity() const { return capacity_; }
  std::size_t openCount() const { return positions_.size(); }

 private:
  void CloseBeyondCapacity();

  std::size_t capacity_;         // files held open at most
  std::list<CSymbol*> recency_;  // most recently used first
  std::unordered_map<CSymbol*, std::list<CSymbol*>::iterator>
      positions_;  // each held symbol's place
};

#endif  // DATASTORE_DATASTORE_OPENFILECACHE_H_
