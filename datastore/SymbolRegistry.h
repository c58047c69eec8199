// SymbolRegistry.h: SymbolRegistry, every symbol of the data store by the
// folder that holds its file and by what an open request names, the set of
// handles given out, and the cache of open data files.
//
// Guarantees:
//   - Find gives the symbol the match rules give: within the request's folder
//     (the exact string), the first registered symbol whose name, code,
//     provider and period kind equal the request's, and its period length too
//     for intraday ("I"). It is one hash lookup whatever the count;
//   - Contains is one hash lookup;
//   - stored files registered by AddStoredFiles cost only their header's read
//     and a few hundred bytes each until a request finds them; then their
//     symbol is loaded from the file;
//   - the registry owns its symbols; they stay until Clear.
//
// REQUIRES: Find, Add, AddStoredFiles and Clear are serialised with every use
// of the symbols (they read files: the data store's data mutex); Contains
// and count from the host's thread.
// Thread-safety: none.

#ifndef DATASTORE_DATASTORE_SYMBOLREGISTRY_H_
#define DATASTORE_DATASTORE_SYMBOLREGISTRY_H_

#include <QString>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "HostBoundary.h"
#include "OpenFileCache.h"
#include "Status.h"

class CSymbol;
class SymbolOwner;

// What the match rules compare.
struct SymbolKey {
  QString folder;           // the request's path, exactly
  std::u16string name;      // UTF-16 units
  std::string code;         // bytes
  std::u16string provider;  // UTF-16 units
  char kind = 0;            // period kind
  std::int32_t length = 0;  // period length for "I", else 0

  static SymbolKey Of(QString const& folder, SYMBOL_NAME_PERIOD const& request);
  static SymbolKey Of(QString const& folder, CSymbol const& symbol);
  bool operator==(SymbolKey const&) const = default;
};

struct SymbolKeyHash {
  std::size_t operator()(SymbolKey const& key) const;
};

class SymbolRegistry {
 public:
  // Called for a stored file that is not registered, with the reason.
  using RefusalSink = std::function<void(QString const& path, Status const& why)>;

  // owner: given to every symbol loaded from a stored file.
  SymbolRegistry(SymbolOwner* owner, std::size_t openFiles);
  ~SymbolRegistry();
  SymbolRegistry(const SymbolRegistry&) = delete;
  SymbolRegistry& operator=(const SymbolRegistry&) = delete;

  // The symbol the match rules give, or null. A stored file found here is
  // loaded; when that fails *status says why and null is returned.
  CSymbol* Find(QString const& folder, SYMBOL_NAME_PERIOD const& request, Status* status);
  // Registers a symbol under folder; a symbol whose key another already has
  // is registered (its handle is valid) but Find keeps giving the first.
  CSymbol* Add(QString const& folder, std::unique_ptr<CSymbol> symbol);
  // Registers the "*.cjd" files of folder (no links, no folders), in the
  // order of their names ignoring case, from their headers; the count added.
  int AddStoredFiles(QString const& folder, RefusalSink const& refused);
  bool Contains(const void* handle) const { return handle != nullptr && owned_.count(handle) != 0; }
  // The symbol's file open, through the cache (see OpenFileCache.h).
  Status Use(CSymbol& symbol) { return openFiles_.Use(symbol); }
  void Clear();

  // Symbols registered, loaded or not.
  std::size_t count() const { return entries_.size() + unreachable_; }
  OpenFileCache& openFiles() { return openFiles_; }

 private:
  struct Entry {
    CSymbol* symbol = nullptr;  // null: not loaded yet
    std::string storedPath;     // the file to load it from
  };
  CSymbol* Load(Entry& entry, Status* status);

  SymbolOwner* owner_;                                           // not owned
  std::unordered_map<SymbolKey, Entry, SymbolKeyHash> entries_;  // the first symbol of each key
  std::unordered_map<const void*, std::unique_ptr<CSymbol>>
      owned_;                    // every loaded symbol, by handle
  std::size_t unreachable_ = 0;  // registered after another of their key
  OpenFileCache openFiles_;      // the files held open
};

#endif  // DATASTORE_DATASTORE_SYMBOLREGISTRY_H_
