#include "SqliteStore.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

constexpr char kFileName[] = "candles.db";
constexpr int kValueBytes = kCandleSize - sizeof(Candle::time);
constexpr int kTimeColumn = 0;
constexpr int kValueColumn = 1;
constexpr int kCountColumn = 0;
constexpr int kFirstParameter = 1;
constexpr int kSecondParameter = 2;

}  // namespace

SqliteStore::SqliteStore(std::filesystem::path const& folder, std::string id, int scale,
                         std::string synchronous)
    : CandleStore(std::move(id), folder, scale), synchronous_(std::move(synchronous)) {
  OpenEmpty();
}

std::string SqliteStore::settings() const {
  return id() + ": journal_mode=WAL, synchronous=" + synchronous_ +
         ", one transaction per insert call";
}

SqliteStore::~SqliteStore() { Close(); }

void SqliteStore::Check(int result, const char* what) {
  if (result == SQLITE_OK || result == SQLITE_DONE || result == SQLITE_ROW) return;
  throw std::runtime_error(std::string("sqlite: ") + what + ": " + sqlite3_errmsg(db_));
}

void SqliteStore::Execute(const char* sql) {
  Check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr), sql);
}

sqlite3_stmt* SqliteStore::Prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  Check(sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr), sql);
  return statement;
}

void SqliteStore::Open() {
  std::string path = (workFolder() / kFileName).string();
  Check(sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr),
        "open");
  Execute("PRAGMA journal_mode=WAL");
  Execute(("PRAGMA synchronous=" + synchronous_).c_str());
  Execute(
      "CREATE TABLE IF NOT EXISTS candles (time INTEGER PRIMARY KEY, value BLOB) WITHOUT ROWID");
  insert_ = Prepare("INSERT OR REPLACE INTO candles (time, value) VALUES (?, ?)");
  begin_ = Prepare("BEGIN");
  commit_ = Prepare("COMMIT");
  range_ = Prepare("SELECT time, value FROM candles WHERE time >= ? AND time < ? ORDER BY time");
  last_ = Prepare("SELECT time, value FROM candles ORDER BY time DESC LIMIT ?");
  count_ = Prepare("SELECT count(*) FROM candles");
}

void SqliteStore::Close() {
  for (sqlite3_stmt** statement : {&insert_, &begin_, &commit_, &range_, &last_, &count_}) {
    sqlite3_finalize(*statement);
    *statement = nullptr;
  }
  // The last connection's close checkpoints the WAL into the database file.
  sqlite3_close(db_);
  db_ = nullptr;
}

void SqliteStore::InsertRecords(const Candle* candles, int count) {
  Check(sqlite3_step(begin_), "begin");
  sqlite3_reset(begin_);
  for (int i = 0; i < count; ++i) {
    sqlite3_bind_int(insert_, kFirstParameter, candles[i].time);
    sqlite3_bind_blob(insert_, kSecondParameter, &candles[i].open, kValueBytes, SQLITE_STATIC);
    Check(sqlite3_step(insert_), "insert");
    sqlite3_reset(insert_);
  }
  Check(sqlite3_step(commit_), "commit");
  sqlite3_reset(commit_);
}

int SqliteStore::ReadRows(sqlite3_stmt* statement, Candle* out) {
  int rows = 0;
  int result;
  while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
    out[rows].time = sqlite3_column_int(statement, kTimeColumn);
    std::memcpy(&out[rows].open, sqlite3_column_blob(statement, kValueColumn), kValueBytes);
    ++rows;
  }
  sqlite3_reset(statement);
  Check(result, "select");
  return rows;
}

int SqliteStore::ReadRange(int first, int count, Candle* out) {
  sqlite3_bind_int(range_, kFirstParameter, TimeOf(first));
  sqlite3_bind_int(range_, kSecondParameter, TimeOf(first + count));
  return ReadRows(range_, out);
}

int SqliteStore::ReadLast(int count, Candle* out) {
  sqlite3_bind_int(last_, kFirstParameter, count);
  int rows = ReadRows(last_, out);
  std::reverse(out, out + rows);
  return rows;
}

int SqliteStore::Count() {
  Check(sqlite3_step(count_), "count");
  int rows = sqlite3_column_int(count_, kCountColumn);
  sqlite3_reset(count_);
  return rows;
}
