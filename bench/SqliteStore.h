// SqliteStore.h: the peer: SQLite with one table for the symbol,
//   CREATE TABLE candles (time INTEGER PRIMARY KEY, value BLOB) WITHOUT ROWID
// where value holds the candle's 20 value bytes as stored by the engine.
// The blob is the fairer layout for SQLite: five REAL columns would store
// 8-byte doubles (twice the payload), convert every value twice and fetch
// five columns per row, all work the engine does not do. Writes use prepared
// statements, INSERT OR REPLACE and one transaction per batch, with
// synchronous=OFF and journal_mode=WAL; reads use prepared SELECTs.

#ifndef DATASTORE_BENCH_SQLITESTORE_H_
#define DATASTORE_BENCH_SQLITESTORE_H_

#include <sqlite3.h>

#include "CandleStore.h"

class SqliteStore : public CandleStore {
 public:
  explicit SqliteStore(std::filesystem::path const& folder);
  ~SqliteStore() override;

  int ReadRange(int first, int count, Candle* out) override;
  int ReadLast(int count, Candle* out) override;
  int Count() override;

 protected:
  void Open() override;
  void Close() override;
  void InsertRecords(const Candle* candles, int count) override;

 private:
  void Execute(const char* sql);
  sqlite3_stmt* Prepare(const char* sql);
  void Check(int result, const char* what);
  // Steps `statement` to its end, copying (time, value) rows into out.
  int ReadRows(sqlite3_stmt* statement, Candle* out);

  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* commit_ = nullptr;
  sqlite3_stmt* range_ = nullptr;
  sqlite3_stmt* last_ = nullptr;
  sqlite3_stmt* count_ = nullptr;
};

#endif  // DATASTORE_BENCH_SQLITESTORE_H_
