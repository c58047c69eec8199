// registry_bench: the symbol registry of the built data store library, loaded
// by the reference host as a terminal loads it (ModuleSession.h), with the
// default durability (1, SyncInterval 1000 ms), all in one run:
//   1. opening 20,000 new symbols (6001, distinct names, one provider; each
//      open makes the symbol's file and writes its header): the mean time per
//      open of the last thousand against the first thousand, and the whole
//      against raw calls making the same 20,000 files in another folder of
//      the same file system (open with O_CREAT, one write of as many bytes as
//      the library's header takes, close);
//   2. opening each of them again (6001, random order): the mean time per
//      open against SQLite finding the same names, in the same order, in a
//      table keyed by name (a prepared SELECT); each takes turns, twice;
//   3. 3007 with the 20,000 files stored (the store of step 1 stopped, a new
//      session on the same folder, the page cache warm): its time against raw
//      calls listing the provider folder and reading each file's header
//      (open, read, close), median of turns; and the heap (mallinfo2) and
//      resident memory it adds, less what 3007 adds on an empty folder, per
//      stored symbol;
//   4. a synchronous get (6005) of the newest 100 of a 100,000-candle symbol,
//      paced reads, while a feed posts (6004) the forming bar of another
//      symbol (its newest candle again with a new volume) 10 times a second:
//      the module's worker stores it and runs the log's checkpoints, both
//      under the data mutex the read takes. The slowest read against the
//      slowest on the idle store (no insert, no checkpoint), phases taking
//      turns; p50 and p99 beside.
// Ends with the targets and the machine. Everything lives in a fresh folder
// under $TMPDIR (or /tmp), removed at the end. Takes no arguments.

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Candles.h"
#include "Machine.h"
#include "ModuleSession.h"
#include "TemporaryFolder.h"
#include "TableText.h"

namespace {

namespace fs = std::filesystem;
using Seconds = std::chrono::duration<double>;

constexpr char kFolderTemplate[] = "registry_bench.XXXXXX";
constexpr char kProviderFolder[] = "Bench";  // ModuleSession's provider
constexpr char kStoredSuffix[] = ".cjd";
constexpr char kPeriodPart[] = "_I1_";  // one-minute candles in a file name
constexpr int kSymbols = 20'000;        // symbols opened, then stored
constexpr int kEdgeOpens = 1'000;       // the first and the last opens compared
constexpr int kReopenTurns = 2;         // passes of each, in turn
constexpr unsigned kOrderSeed = 11;     // the random order of the second opens
constexpr int kStartTurns = 3;          // 3007 and raw listings, in turn
constexpr mode_t kFileMode = 0644;
constexpr int kNameParameter = 1;  // of the SQLite statements
constexpr int kHandleParameter = 2;
constexpr int kHandleColumn = 0;
constexpr int kReadCandles = 100'000;  // the symbol read in step 4
constexpr int kNewest = 100;           // candles of each read
constexpr int kFeedCandles = 1'000;    // the symbol whose forming bar is updated
constexpr int kRounds = 4;             // idle and busy phases, in turn
constexpr int kReadsPerPhase = 5'000;  // so 20,000 reads of each kind
constexpr auto kReadInterval = std::chrono::microseconds(500);  // a phase lasts 2.5 s
constexpr auto kFeedInterval = std::chrono::milliseconds(100);  // 10 updates a second
constexpr auto kSettle =
    std::chrono::milliseconds(1'500);                   // past SyncInterval: the checkpoint is done
constexpr auto kStall = std::chrono::milliseconds(10);  // an open this slow waited for a checkpoint
constexpr float kVolumeStep = 1.0f;      // the forming bar's volume grows by this per update
constexpr double kMaxLastToFirst = 1.5;  // targets
constexpr double kMaxCreateToRaw = 2.0;
constexpr double kMaxReopenToSqlite = 3.0;
constexpr double kMaxStartToRaw = 1.5;
constexpr double kMaxBytesPerSymbol = 1024.0;
constexpr double kMaxBusyToIdle = 2.0;
constexpr double kMedian = 0.5;
constexpr double kP99 = 0.99;
constexpr double kThousand = 1000.0;
constexpr int kTitleWidth = 66;
constexpr int kValueWidth = 12;
constexpr int kBoundWidth = 10;
constexpr std::size_t kTextCapacity = 64;  // of one formatted number

// ---------------------------------------------------------------- formatting

std::string Printf(const char* format, double value, const char* suffix) {
  char text[kTextCapacity];
  std::snprintf(text, sizeof(text), format, value, suffix);
  return text;
}

std::string FormatTime(double seconds) {
  const char* units[] = {"s", "ms", "us", "ns"};
  int unit = 0;
  while (seconds < 1.0 && unit + 1 < static_cast<int>(std::size(units))) {
    seconds *= kThousand;
    ++unit;
  }
  return Printf("%.3g %s", seconds, units[unit]);
}

std::string FormatTime(Clock::duration time) { return FormatTime(Seconds(time).count()); }
std::string FormatRatio(double ratio) { return Printf("%.3g%s", ratio, "x"); }
std::string FormatBytes(double bytes) { return Printf("%.0f %s", bytes, "B"); }

// --------------------------------------------------------------- statistics

double Mean(std::vector<Clock::duration>::const_iterator first,
            std::vector<Clock::duration>::const_iterator last) {
  const Clock::duration sum = std::accumulate(first, last, Clock::duration::zero());
  return Seconds(sum).count() / static_cast<double>(last - first);
}

Clock::duration At(std::vector<Clock::duration> times, double share) {
  std::sort(times.begin(), times.end());
  return times[std::size_t(share * double(times.size() - 1))];
}

template <typename T>
T Median(std::vector<T> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// ------------------------------------------------------------- the symbols

std::string SymbolName(int index) {
  char text[kTextCapacity];
  std::snprintf(text, sizeof(text), "S%05d", index);
  return text;
}

std::vector<std::string> SymbolNames() {
  std::vector<std::string> names;
  for (int i = 0; i < kSymbols; ++i) names.push_back(SymbolName(i));
  return names;
}

// The file the library makes for a symbol whose name and code are `name`.
std::string StoredFileName(std::string const& name) {
  return name + kPeriodPart + name + kStoredSuffix;
}

std::vector<int> RandomOrder() {
  std::vector<int> order(kSymbols);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(kOrderSeed));
  return order;
}

fs::path ProviderFolder(fs::path const& session) { return session / "data" / kProviderFolder; }

// ------------------------------------------------ step 1: new symbols, raw

struct CreateResults {
  std::vector<Clock::duration> opens;  // each open, in order
  Clock::duration whole{};             // all of them
  Clock::duration lastCheckpoint{};    // what an open kSettle after the last one waited for
  std::vector<HostWord> handles;       // by symbol index
  Clock::duration raw{};               // the raw calls making the same files
  std::size_t headerBytes = 0;         // what each file holds
};

void CreateRawFile(std::string const& path, std::vector<unsigned char> const& header) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
  if (fd < 0) throw std::runtime_error("cannot create " + path);
  const bool written =
      ::write(fd, header.data(), header.size()) == static_cast<ssize_t>(header.size());
  ::close(fd);
  if (!written) throw std::runtime_error("cannot write " + path);
}

Clock::duration CreateRawFiles(fs::path const& folder, std::vector<std::string> const& names,
                               std::vector<unsigned char> const& header) {
  fs::create_directories(folder);
  const std::string prefix = folder.string() + "/";
  const Clock::time_point start = Clock::now();
  for (std::string const& name : names) CreateRawFile(prefix + StoredFileName(name), header);
  return Clock::now() - start;
}

void OpenNewSymbols(ModuleSession& session, std::vector<std::string> const& names,
                    CreateResults& results) {
  const Clock::time_point start = Clock::now();
  for (std::string const& name : names) {
    const Clock::time_point before = Clock::now();
    results.handles.push_back(session.OpenCandles(name));
    results.opens.push_back(Clock::now() - before);
  }
  results.whole = Clock::now() - start;
}

// The checkpoint falls due within SyncInterval of the last change; an open
// made after that waits for the data mutex until the checkpoint ends, so
// the files the last opens made are synced when it returns.
Clock::duration WaitUntilQuiet(ModuleSession& session, std::string const& name) {
  std::this_thread::sleep_for(kSettle);
  const Clock::time_point start = Clock::now();
  session.OpenCandles(name);
  return Clock::now() - start;
}

// How many opens took at least kStall, and how long they took together.
std::pair<int, Clock::duration> Stalls(std::vector<Clock::duration> const& opens) {
  std::pair<int, Clock::duration> stalls{0, Clock::duration::zero()};
  for (Clock::duration open : opens) {
    if (open < kStall) continue;
    ++stalls.first;
    stalls.second += open;
  }
  return stalls;
}

// ---------------------------------------- step 2: open again, and SQLite

// The names in a table keyed by name, looked up by a prepared SELECT.
class NameTable {
 public:
  NameTable(fs::path const& folder, std::vector<std::string> const& names) {
    fs::create_directories(folder);
    Check(sqlite3_open_v2((folder / "names.db").c_str(), &db_,
                          SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr),
          "open");
    Execute("PRAGMA journal_mode=WAL");
    Execute("PRAGMA synchronous=OFF");
    Execute("CREATE TABLE symbols (name TEXT PRIMARY KEY, handle INTEGER) WITHOUT ROWID");
    Fill(names);
    Check(
        sqlite3_prepare_v2(db_, "SELECT handle FROM symbols WHERE name = ?", -1, &select_, nullptr),
        "prepare");
  }
  ~NameTable() {
    sqlite3_finalize(select_);
    sqlite3_close(db_);
  }
  NameTable(const NameTable&) = delete;
  NameTable& operator=(const NameTable&) = delete;

  // The handle stored for name; throws when it is not found.
  std::int64_t Find(std::string const& name) {
    sqlite3_bind_text(select_, kNameParameter, name.data(), static_cast<int>(name.size()),
                      SQLITE_STATIC);
    if (sqlite3_step(select_) != SQLITE_ROW) throw std::runtime_error("sqlite: no row for " + name);
    const std::int64_t handle = sqlite3_column_int64(select_, kHandleColumn);
    sqlite3_reset(select_);
    return handle;
  }

 private:
  void Check(int result, const char* what) {
    if (result == SQLITE_OK || result == SQLITE_DONE) return;
    throw std::runtime_error(std::string("sqlite: ") + what + ": " + sqlite3_errmsg(db_));
  }
  void Execute(const char* sql) { Check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr), sql); }

  void Fill(std::vector<std::string> const& names) {
    sqlite3_stmt* insert = nullptr;
    Check(sqlite3_prepare_v2(db_, "INSERT INTO symbols (name, handle) VALUES (?, ?)", -1, &insert,
                             nullptr),
          "prepare");
    Execute("BEGIN");
    for (std::size_t i = 0; i < names.size(); ++i) {
      sqlite3_bind_text(insert, kNameParameter, names[i].data(), static_cast<int>(names[i].size()),
                        SQLITE_STATIC);
      sqlite3_bind_int64(insert, kHandleParameter, static_cast<std::int64_t>(i));
      Check(sqlite3_step(insert), "insert");
      sqlite3_reset(insert);
    }
    Execute("COMMIT");
    sqlite3_finalize(insert);
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
};

struct ReopenResults {
  double library = 0;  // seconds per open, mean of every turn
  double sqlite = 0;   // seconds per lookup
};

Clock::duration ReopenAll(ModuleSession& session, std::vector<std::string> const& names,
                          std::vector<int> const& order, std::vector<HostWord> const& handles) {
  std::vector<HostWord> got(order.size());
  const Clock::time_point start = Clock::now();
  for (std::size_t i = 0; i < order.size(); ++i)
    got[i] = session.OpenCandles(names[std::size_t(order[i])]);
  const Clock::duration took = Clock::now() - start;
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (got[i] != handles[std::size_t(order[i])])
      throw std::runtime_error("an open gave another handle");
  }
  return took;
}

Clock::duration LookUpAll(NameTable& table, std::vector<std::string> const& names,
                          std::vector<int> const& order) {
  std::int64_t sum = 0;
  const Clock::time_point start = Clock::now();
  for (int index : order) sum += table.Find(names[std::size_t(index)]);
  const Clock::duration took = Clock::now() - start;
  if (sum != std::int64_t{kSymbols} * (kSymbols - 1) / 2)
    throw std::runtime_error("sqlite found other rows");
  return took;
}

ReopenResults Reopen(ModuleSession& session, std::vector<std::string> const& names,
                     std::vector<HostWord> const& handles, fs::path const& sqliteFolder) {
  NameTable table(sqliteFolder, names);
  const std::vector<int> order = RandomOrder();
  Clock::duration library{}, sqlite{};
  for (int turn = 0; turn < kReopenTurns; ++turn) {
    library += ReopenAll(session, names, order, handles);
    sqlite += LookUpAll(table, names, order);
  }
  const double opens = double(kReopenTurns) * kSymbols;
  return {Seconds(library).count() / opens, Seconds(sqlite).count() / opens};
}

// ---------------------------------------------- step 3: 3007 on stored files

// Bytes in use on the heap (mallinfo2, every arena) and resident bytes.
struct Memory {
  double heap = 0;
  double resident = 0;
};

Memory MemoryNow() {
  const struct mallinfo2 info = mallinfo2();
  Memory memory;
  memory.heap = double(info.uordblks + info.hblkhd);
  std::ifstream statm("/proc/self/statm");
  long pages = 0, residentPages = 0;
  statm >> pages >> residentPages;
  memory.resident = double(residentPages) * double(sysconf(_SC_PAGESIZE));
  return memory;
}

struct StartCost {
  Clock::duration took{};  // of 3007
  Memory added;            // after 3007 less before
};

StartCost MeasureStart(fs::path const& folder) {
  StartCost cost;
  Memory before;
  Clock::time_point start;
  ModuleSession::StartHooks hooks{
      [&] {
        malloc_trim(0);  // freed pages leave: 3007's own show in the resident size
        before = MemoryNow();
        start = Clock::now();
      },
      [&] {
        cost.took = Clock::now() - start;
        const Memory after = MemoryNow();
        cost.added = {after.heap - before.heap, after.resident - before.resident};
      }};
  ModuleSession session(folder, {}, hooks);
  return cost;
}

// Lists the folder and reads the header of every stored file: open, read, close.
Clock::duration ReadRawHeaders(fs::path const& folder, std::size_t headerBytes) {
  std::vector<unsigned char> header(headerBytes);
  const std::string prefix = folder.string() + "/";
  const std::string suffix = kStoredSuffix;
  int files = 0;
  const Clock::time_point start = Clock::now();
  DIR* listing = ::opendir(folder.c_str());
  if (listing == nullptr) throw std::runtime_error("cannot list " + folder.string());
  while (const dirent* entry = ::readdir(listing)) {
    const std::string name = entry->d_name;
    if (name.size() <= suffix.size() ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
      continue;
    const int fd = ::open((prefix + name).c_str(), O_RDONLY | O_CLOEXEC);
    const bool read =
        fd >= 0 && ::read(fd, header.data(), header.size()) == static_cast<ssize_t>(header.size());
    if (fd >= 0) ::close(fd);
    if (!read) throw std::runtime_error("cannot read the header of " + name);
    ++files;
  }
  ::closedir(listing);
  const Clock::duration took = Clock::now() - start;
  if (files != kSymbols)
    throw std::runtime_error("the provider folder holds another number of files");
  return took;
}

struct StartResults {
  Clock::duration stored{};  // 3007 with kSymbols files, median
  Clock::duration empty{};   // 3007 on an empty folder, median
  Clock::duration raw{};     // the raw listing and header reads, median
  Memory storedAdded;        // medians
  Memory emptyAdded;
  double HeapPerSymbol() const { return (storedAdded.heap - emptyAdded.heap) / kSymbols; }
  double ResidentPerSymbol() const {
    return (storedAdded.resident - emptyAdded.resident) / kSymbols;
  }
};

StartResults MeasureStarts(fs::path const& storedSession, fs::path const& emptySession,
                           std::size_t headerBytes) {
  std::vector<Clock::duration> stored, empty, raw;
  std::vector<double> storedHeap, storedResident, emptyHeap, emptyResident;
  for (int turn = 0; turn < kStartTurns; ++turn) {
    raw.push_back(ReadRawHeaders(ProviderFolder(storedSession), headerBytes));
    const StartCost withFiles = MeasureStart(storedSession);
    const StartCost without = MeasureStart(emptySession / std::to_string(turn));
    stored.push_back(withFiles.took);
    storedHeap.push_back(withFiles.added.heap);
    storedResident.push_back(withFiles.added.resident);
    empty.push_back(without.took);
    emptyHeap.push_back(without.added.heap);
    emptyResident.push_back(without.added.resident);
  }
  return {Median(stored),
          Median(empty),
          Median(raw),
          {Median(storedHeap), Median(storedResident)},
          {Median(emptyHeap), Median(emptyResident)}};
}

// ------------------------------------------- step 4: reads under a feed

struct ReadResults {
  std::vector<Clock::duration> idle;  // every read on the idle store
  std::vector<Clock::duration> busy;  // every read while the feed runs
  int posts = 0;                      // forming-bar updates posted
};

class ReadsUnderFeed {
 public:
  explicit ReadsUnderFeed(fs::path const& folder)
      : session_(folder), read_(session_.OpenCandles("READ")), feed_(session_.OpenCandles("FEED")) {
    session_.Insert(read_, BaseCandles().data(), kReadCandles);
    session_.Insert(feed_, BaseCandles().data(), kFeedCandles);
    forming_ = BaseCandles()[kFeedCandles - 1];
  }

  ReadResults Measure() {
    std::this_thread::sleep_for(kSettle);
    ReadResults results;
    for (int round = 0; round < kRounds; ++round) {
      Phase(false, results.idle);
      Phase(true, results.busy);
      session_.WaitForCompletions(std::size_t(posts_));
      std::this_thread::sleep_for(kSettle);
    }
    results.posts = posts_;
    return results;
  }

 private:
  // Paced reads; with the feed on, a forming-bar update is posted whenever one is due.
  void Phase(bool feed, std::vector<Clock::duration>& times) {
    const Clock::time_point start = Clock::now();
    Clock::time_point nextPost = start;
    for (int i = 0; i < kReadsPerPhase; ++i) {
      std::this_thread::sleep_until(start + i * kReadInterval);
      if (feed && Clock::now() >= nextPost) {
        PostFormingBar();
        nextPost += kFeedInterval;
      }
      times.push_back(ReadNewest());
    }
  }

  void PostFormingBar() {
    forming_.volume += kVolumeStep;
    session_.PostInsert(feed_, &forming_, 1);
    ++posts_;
  }

  Clock::duration ReadNewest() {
    GET_SYMBOL_DATA_REQUEST request{};
    request.handle = read_;
    const Clock::time_point before = Clock::now();
    const int got = session_.Get(request, buffer_.data(), kNewest);
    const Clock::duration took = Clock::now() - before;
    if (got != kNewest || buffer_.front().time != TimeOf(kReadCandles - kNewest)) {
      throw std::runtime_error("a read delivered other candles");
    }
    return took;
  }

  ModuleSession session_;
  HostWord read_;     // kReadCandles candles, read
  HostWord feed_;     // kFeedCandles candles, its newest updated
  Candle forming_{};  // the feed's newest candle
  std::vector<Candle> buffer_ = std::vector<Candle>(kNewest);
  int posts_ = 0;  // completions to wait for
};

// ------------------------------------------------------------------ results

struct Results {
  CreateResults create;
  ReopenResults reopen;
  StartResults start;
  ReadResults reads;
};

void PrintOpenWindow(std::string const& title, std::vector<Clock::duration> const& opens,
                     std::size_t first, std::ostream& out) {
  const auto begin = opens.begin() + static_cast<std::ptrdiff_t>(first);
  const std::vector<Clock::duration> window(begin, begin + kEdgeOpens);
  out << "  " << Left(title, kTitleWidth - 2) << "mean "
      << FormatTime(Mean(window.begin(), window.end())) << ", median "
      << FormatTime(At(window, kMedian)) << ", p99 " << FormatTime(At(window, kP99)) << ", slowest "
      << FormatTime(At(window, 1.0)) << "\n";
}

void PrintReads(std::string const& title, std::vector<Clock::duration> const& times,
                std::ostream& out) {
  out << "  " << Left(title, kTitleWidth - 2) << "p50 " << FormatTime(At(times, kMedian))
      << ", p99 " << FormatTime(At(times, kP99)) << ", slowest " << FormatTime(At(times, 1.0))
      << "\n";
}

void PrintMeasurements(Results const& r, std::ostream& out) {
  const std::string symbols = Thousands(kSymbols);
  out << "\n1. " << symbols << " new symbols opened (6001), each making its file ("
      << r.create.headerBytes << " bytes of header)\n";
  PrintOpenWindow("first " + Thousands(kEdgeOpens) + " opens:", r.create.opens, 0, out);
  PrintOpenWindow("last " + Thousands(kEdgeOpens) + " opens:", r.create.opens,
                  kSymbols - kEdgeOpens, out);
  const auto [stalls, stalled] = Stalls(r.create.opens);
  out << "  " << Left("all opens:", kTitleWidth - 2) << FormatTime(r.create.whole) << " ("
      << FormatTime(Seconds(r.create.whole).count() / kSymbols)
      << " each); raw open(O_CREAT) + write + close: " << FormatTime(r.create.raw) << "\n"
      << "  " << Left("opens of " + FormatTime(kStall) + " or more:", kTitleWidth - 2) << stalls
      << ", together " << FormatTime(stalled) << "\n"
      << "  "
      << Left("an open " + FormatTime(kSettle) + " after the last (waits for its checkpoint):",
              kTitleWidth - 2)
      << FormatTime(r.create.lastCheckpoint) << "\n"
      << "\n2. " << symbols << " open symbols opened again (6001), random order, " << kReopenTurns
      << " passes taking turns with SQLite\n"
      << "  " << Left("per open:", kTitleWidth - 2) << FormatTime(r.reopen.library)
      << "; SQLite SELECT by name (WITHOUT ROWID, name PRIMARY KEY): "
      << FormatTime(r.reopen.sqlite) << "\n"
      << "\n3. 3007 (start), median of " << kStartTurns << " turns, page cache warm\n"
      << "  " << Left("with " + symbols + " stored files:", kTitleWidth - 2)
      << FormatTime(r.start.stored) << "; on an empty folder: " << FormatTime(r.start.empty)
      << "; raw list + open/read/close: " << FormatTime(r.start.raw) << "\n"
      << "  " << Left("heap added (mallinfo2):", kTitleWidth - 2)
      << FormatBytes(r.start.storedAdded.heap) << " with the files, "
      << FormatBytes(r.start.emptyAdded.heap)
      << " without: " << FormatBytes(r.start.HeapPerSymbol()) << " per symbol\n"
      << "  " << Left("resident memory added:", kTitleWidth - 2)
      << FormatBytes(r.start.storedAdded.resident) << " with the files, "
      << FormatBytes(r.start.emptyAdded.resident)
      << " without: " << FormatBytes(r.start.ResidentPerSymbol()) << " per symbol\n"
      << "\n4. get newest " << kNewest << " of " << Thousands(kReadCandles)
      << " (6005), one read every " << std::chrono::microseconds(kReadInterval).count() << " us, "
      << kRounds << " idle and " << kRounds << " busy phases of " << Thousands(kReadsPerPhase)
      << " reads in turn\n";
  PrintReads("idle store:", r.reads.idle, out);
  PrintReads("forming bar posted (6004) 10 times a second:", r.reads.busy, out);
  const Clock::duration idleSlowest = At(r.reads.idle, 1.0);
  const auto slower = std::count_if(r.reads.busy.begin(), r.reads.busy.end(),
                                    [&](Clock::duration read) { return read > idleSlowest; });
  out << "  (" << r.reads.posts
      << " updates posted; the worker stores them and runs the log's checkpoints; " << slower
      << " busy reads slower than the idle slowest)\n";
}

// One target as printed.
struct Line {
  std::string title;
  std::string measured, against;
  std::string ratio, bound;
  bool met;
};

Line RatioLine(std::string title, double measured, double against, double limit) {
  const double ratio = measured / against;
  return {std::move(title),   FormatTime(measured),       FormatTime(against),
          FormatRatio(ratio), "<= " + FormatRatio(limit), ratio <= limit};
}

std::vector<Line> TargetLines(Results const& r) {
  const std::vector<Clock::duration>& opens = r.create.opens;
  const double first = Mean(opens.begin(), opens.begin() + kEdgeOpens);
  const double last = Mean(opens.end() - kEdgeOpens, opens.end());
  const double perSymbol = r.start.HeapPerSymbol();
  const std::string edge = Thousands(kEdgeOpens);
  const std::string symbols = Thousands(kSymbols);
  return {
      RatioLine("new symbols: mean open, last " + edge + " / first " + edge, last, first,
                kMaxLastToFirst),
      RatioLine("new symbols: all " + symbols + " opens / raw create + write + close",
                Seconds(r.create.whole).count(), Seconds(r.create.raw).count(), kMaxCreateToRaw),
      RatioLine("open again: mean 6001 / SQLite SELECT by name", r.reopen.library, r.reopen.sqlite,
                kMaxReopenToSqlite),
      RatioLine("3007 with " + symbols + " stored / raw list + read headers",
                Seconds(r.start.stored).count(), Seconds(r.start.raw).count(), kMaxStartToRaw),
      {"3007: heap added per stored symbol (less an empty folder's)", FormatBytes(perSymbol), "",
       "", "<= " + FormatBytes(kMaxBytesPerSymbol), perSymbol <= kMaxBytesPerSymbol},
      RatioLine("get newest 100, slowest: forming bar updated / idle",
                Seconds(At(r.reads.busy, 1.0)).count(), Seconds(At(r.reads.idle, 1.0)).count(),
                kMaxBusyToIdle),
  };
}

void PrintTargets(Results const& r, std::ostream& out) {
  out << "\nTargets\n\n"
      << Left("target", kTitleWidth) << Cell("measured", kValueWidth)
      << Cell("against", kValueWidth) << Cell("ratio", kBoundWidth) << Cell("target", kBoundWidth)
      << "  result\n";
  for (Line const& line : TargetLines(r)) {
    out << Left(line.title, kTitleWidth) << Cell(line.measured, kValueWidth)
        << Cell(line.against, kValueWidth) << Cell(line.ratio, kBoundWidth)
        << Cell(line.bound, kBoundWidth) << "  " << (line.met ? "met" : "NOT MET") << "\n";
  }
}

// ---------------------------------------------------------------- the run

Results RunAll(fs::path const& folder) {
  const std::vector<std::string> names = SymbolNames();
  const fs::path stored = folder / "stored";
  Results results;
  {
    ModuleSession session(stored);
    OpenNewSymbols(session, names, results.create);
    results.create.lastCheckpoint = WaitUntilQuiet(session, names.front());
    results.create.headerBytes =
        fs::file_size(ProviderFolder(stored) / StoredFileName(names.front()));
    const std::vector<unsigned char> header(results.create.headerBytes);
    results.create.raw = CreateRawFiles(folder / "raw", names, header);
    results.reopen = Reopen(session, names, results.create.handles, folder / "sqlite");
  }
  results.start = MeasureStarts(stored, folder / "empty", results.create.headerBytes);
  ReadsUnderFeed reads(folder / "reads");
  results.reads = reads.Measure();
  return results;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    std::cerr << "usage: " << argv[0] << "\n";
    return EXIT_FAILURE;
  }
  try {
    TemporaryFolder folder(kFolderTemplate);
    const std::string loadAtStart = LoadAverage();
    const Results results = RunAll(folder.path());
    PrintMeasurements(results, std::cout);
    PrintTargets(results, std::cout);
    std::cout << "\nTimes are real time on one thread; other work on the machine skews them, the "
                 "slowest reads most.\n";
    PrintMachine(folder.path(), loadAtStart, std::cout);
  } catch (std::exception const& error) {
    std::cerr << "registry_bench: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
