// SqliteStore.h: the peer: SQLite with one table for the symbol,
//   CREATE TABLE candles (time INTEGER PRIMARY KEY, value BLOB) WITHOUT ROWID
// where value holds the candle's 20 value bytes as stored by the engine.
// The blob is the fairer layout for SQLite: five REAL columns would store
// 8-byte doubles (twice the payload), convert every value twice and fetch
// five columns per row, all work the engine does not do. Writes use prepared
// statements, INSERT OR REPLACE and one transaction per insert call (a batch
// or a single record), with journal_mode=WAL and the given synchronous
// setting (OFF unless said otherwise); reads use prepared SELECTs.

#ifndef DATASTORE_BENCH_SQLITESTORE_H_
#define DATASTORE_BENCH_SQLITESTORE_H_

#include <sqlite3.h>

#include "CandleStore.h"

class SqliteStore : public CandleStore {
 public:
  // `synchronous`: the value of PRAGMA synchronous ("OFF", "NORMAL", "FULL").
  SqliteStore(std::filesystem::path const& folder, std::string id = "sqlite", int scale = 1,
              std::string synchronous = "OFF");
  ~SqliteStore() override;

  // The settings as the summaries print them.
  std::string settings() const;

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

  std::string synchronous_;  // PRAGMA synchronous
  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* commit_ = nullptr;
  sqlite3_stmt* range_ = nullptr;
  sqlite3_stmt* last_ = nullptr;
  sqlite3_stmt* count_ = nullptr;
};

#endif  // DATASTORE_BENCH_SQLITESTORE_H_
