#include "WritePath.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <limits>
#include <stdexcept>
#include <utility>

#include "Candles.h"
#include "ModuleSession.h"
#include "SqliteStore.h"

namespace {

namespace fs = std::filesystem;
using benchmark::State;

constexpr int kThousand = 1'000;
constexpr int kMillion = 1'000'000;
constexpr int kSmall = 10 * kThousand;  // candles of the smallest file
constexpr int kMedium = kMillion;       // of the middle one
constexpr int kLarge = 50 * kMillion;   // of the largest: 1.2 GB
constexpr std::int32_t kHistoryStep =
    30;                           // seconds between stored candles: 50M of them fit an int32 time
constexpr int kChunk = kMillion;  // candles per insert while a file is built
constexpr std::int32_t kFarTime =
    std::numeric_limits<std::int32_t>::max();  // mid inserts land before it
constexpr double kSustainedSeconds = 10.0;     // ten checkpoints at the default SyncInterval
constexpr double kSyncedSeconds = 3.0;         // inserts that each wait for the disk
constexpr int kWarmUp = 100;  // untimed changes first: a session's first search reads the file
constexpr int kPostedTurn = kThousand;  // posted inserts between waits for their completions
constexpr int kSyncedTurn = 10;         // synchronous inserts in a row, per store
constexpr int kRangeCount = kThousand;  // records of a range read
constexpr int kReadPositions = 4'096;   // random range starts of the warm reads, used in turn
constexpr int kColdReads = 5;           // fresh sessions; the summary takes the median
constexpr int kIndexingReads =
    10'000;  // the index grows a step per search: these complete it for 50M
constexpr std::uintmax_t kGiB = std::uintmax_t{1} << 30;
constexpr std::uintmax_t kLargeRoom = 5 * kGiB;  // free bytes the 50M files need
constexpr mode_t kFileMode = 0644;
constexpr double kMaxFormingBarToRaw = 3.0;
constexpr double kMaxFlatGrowth = 1.5;  // larger files' update cost, to the 10k file's
constexpr double kMaxMidInsertToRaw = 5.0;
constexpr double kMaxSingleAppendToRaw = 3.0;
constexpr double kMaxSyncedInsertToRaw = 2.0;
constexpr double kMinGroupCommitSpeedup = 10.0;  // posted Durability 2 inserts, to SQLite's
constexpr double kMaxFirstReadToWarm = 10.0;

enum Level : int { kNoSync = 0, kSyncPoints = 1, kEveryInsert = 2 };  // "Durability"

std::int32_t HistoryTime(std::int64_t index) {
  return static_cast<std::int32_t>((index + 1) * kHistoryStep);
}

std::string SizeName(int count) {
  return count >= kMillion ? std::to_string(count / kMillion) + "M"
                           : std::to_string(count / kThousand) + "k";
}

std::string Name(const char* kind, const char* store, int size = 0) {
  std::string name = std::string(kind) + '/' + store;
  if (size > 0) name += '/' + SizeName(size);
  return name;
}

void Fail(std::string const& what) { throw std::runtime_error(what + ": " + std::strerror(errno)); }

// Calls sink with the history's candles, kChunk at a time.
void ForEachChunk(int count, std::function<void(const Candle*, int)> const& sink) {
  std::vector<Candle> chunk;
  for (int first = 0; first < count; first += kChunk) {
    chunk.clear();
    for (int i = first; i < std::min(count, first + kChunk); ++i) {
      chunk.push_back(BaseCandles()[i % kBaseCount]);
      chunk.back().time = HistoryTime(i);
    }
    sink(chunk.data(), static_cast<int>(chunk.size()));
  }
}

// A store as a case sees it during one run.
class Target {
 public:
  virtual ~Target() = default;
  virtual void Insert(Candle const& candle) = 0;
  // The newest `count` records, oldest first; fewer when it holds fewer.
  virtual std::vector<Candle> Newest(int count) = 0;
};

using Opener = std::function<std::unique_ptr<Target>()>;

// The library in a session of its own, at one durability level.
class EngineTarget : public Target {
 public:
  EngineTarget(fs::path const& folder, int level)
      : session_(folder, Durability{level}), handle_(session_.OpenCandles()) {}

  void Insert(Candle const& candle) override { session_.Insert(handle_, &candle, 1); }

  std::vector<Candle> Newest(int count) override {
    GET_SYMBOL_DATA_REQUEST request{};
    request.handle = handle_;
    request.mode = kGetNewest;
    std::vector<Candle> out(count);
    out.resize(session_.Get(request, out.data(), count));
    return out;
  }

  // Records [first, first + count) of the history; returns how many were delivered.
  int ReadRange(int first, Candle* out) {
    GET_SYMBOL_DATA_REQUEST request{};
    request.handle = handle_;
    request.mode = kGetTimeRange;
    request.firstTime = HistoryTime(first) + 1;  // the record before the first time comes too
    request.lastTime = HistoryTime(first + kRangeCount);
    return session_.Get(request, out, kRangeCount);
  }

  void Post(Candle const& candle) { session_.PostInsert(handle_, &candle, 1); }
  void WaitForCompletions(std::size_t total) { session_.WaitForCompletions(total); }

 private:
  ModuleSession session_;
  HostWord handle_;
};

// The same change made to a plain file of records with one positioned write
// at its end: over the last record (the same time), before it with the last
// record moved up (an earlier time) or after it; with `sync`, fdatasync()
// after each.
class RawTarget : public Target {
 public:
  RawTarget(fs::path const& path, bool sync)
      : fd_(open(path.c_str(), O_RDWR | O_CREAT, kFileMode)), sync_(sync) {
    struct stat status;
    if (fd_ < 0 || fstat(fd_, &status) != 0) Fail("raw: open " + path.string());
    size_ = status.st_size;
    if (size_ > 0) ReadAt(size_ - kCandleSize, &last_, kCandleSize);
  }
  ~RawTarget() override { close(fd_); }

  void Insert(Candle const& candle) override {
    if (size_ > 0 && candle.time == last_.time) {
      WriteAt(size_ - kCandleSize, &candle, kCandleSize);
      last_ = candle;
    } else if (size_ > 0 && candle.time < last_.time) {
      const Candle both[] = {candle, last_};
      WriteAt(size_ - kCandleSize, both, sizeof(both));
      size_ += kCandleSize;
    } else {
      WriteAt(size_, &candle, kCandleSize);
      size_ += kCandleSize;
      last_ = candle;
    }
    if (sync_ && fdatasync(fd_) != 0) Fail("raw: fdatasync");
  }

  std::vector<Candle> Newest(int count) override {
    count = std::min<off_t>(count, size_ / kCandleSize);
    std::vector<Candle> out(count);
    ReadAt(size_ - off_t{count} * kCandleSize, out.data(), out.size() * kCandleSize);
    return out;
  }

 private:
  void WriteAt(off_t offset, const void* data, std::size_t n) {
    if (pwrite(fd_, data, n, offset) != static_cast<ssize_t>(n)) Fail("raw: pwrite");
  }
  void ReadAt(off_t offset, void* out, std::size_t n) {
    if (pread(fd_, out, n, offset) != static_cast<ssize_t>(n)) Fail("raw: pread");
  }

  int fd_;
  bool sync_;
  off_t size_ = 0;  // bytes of the file
  Candle last_{};   // its last record
};

// SQLite from its base records (or empty), one transaction per record.
class SqliteTarget : public Target {
 public:
  SqliteTarget(SqliteStore& store, bool empty) : store_(store) {
    if (empty) {
      store_.MakeEmpty();
    } else {
      store_.RestoreBase();
    }
  }
  void Insert(Candle const& candle) override { store_.Insert(&candle, 1); }
  std::vector<Candle> Newest(int count) override {
    std::vector<Candle> out(count);
    out.resize(store_.ReadLast(count, out.data()));
    return out;
  }

 private:
  SqliteStore& store_;
};

// A history of candles in the library's folder and in a raw file, built on
// first use; the cases change both, and their next runs go on from there.
class Files {
 public:
  Files(fs::path folder, int history) : folder_(std::move(folder)), history_(history) {}
  int history() const { return history_; }
  fs::path const& engine() {
    Build();
    return engineFolder_;
  }
  fs::path const& raw() {
    Build();
    return rawFile_;
  }

 private:
  void Build() {
    if (built_) return;
    fs::create_directories(engineFolder_);
    {
      ModuleSession session(engineFolder_, Durability{kNoSync});
      const HostWord handle = session.OpenCandles();
      ForEachChunk(history_, [&](const Candle* candles, int count) {
        session.Insert(handle, candles, count);
      });
    }
    const int fd = open(rawFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kFileMode);
    if (fd < 0) Fail("raw: open " + rawFile_.string());
    ForEachChunk(history_, [&](const Candle* candles, int count) {
      const std::size_t bytes = std::size_t(count) * kCandleSize;
      if (write(fd, candles, bytes) != static_cast<ssize_t>(bytes)) Fail("raw: write");
    });
    // The new files go to the disk now, not in the background of the measurements.
    if (syncfs(fd) != 0) Fail("raw: syncfs");
    close(fd);
    built_ = true;
  }

  const fs::path folder_;
  const fs::path engineFolder_ = folder_ / "engine";
  const fs::path rawFile_ = folder_ / "raw.bin";
  const int history_;
  bool built_ = false;
};

// Untimed warm-up changes, then one change per iteration.
template <typename Change>
void Sustain(State& state, Change change) {
  for (int i = 0; i < kWarmUp; ++i) change();
  for (auto _ : state) change();
}

// One record at a time from `time` on, one second apart.
void InsertFrom(State& state, Target& target, std::int32_t time) {
  Candle candle = BaseCandles().front();
  Sustain(state, [&] {
    candle.time = time++;
    target.Insert(candle);
  });
}

// The newest record again and again, its volume growing as a forming bar's does.
void FormingBar(State& state, Target& target) {
  Candle bar = target.Newest(1).at(0);
  Sustain(state, [&] {
    ++bar.volume;
    target.Insert(bar);
  });
}

// Records between the last two: a newest record far ahead, added once,
// stays last while the records before it go on.
void MidInsert(State& state, Target& target) {
  Candle far = target.Newest(1).at(0);
  if (far.time != kFarTime) {
    far.time = kFarTime;
    target.Insert(far);
  }
  InsertFrom(state, target, target.Newest(2).at(0).time + 1);
}

// The time of a record after the newest one.
std::int32_t NextTime(Target& target) {
  const std::vector<Candle> newest = target.Newest(1);
  return newest.empty() ? kHistoryStep : newest[0].time + 1;
}

void AppendSingle(State& state, Target& target) { InsertFrom(state, target, NextTime(target)); }

// Appends one record per operation after the newest of a target; a turn is
// `count` operations.
class Appender {
 public:
  explicit Appender(Target& target) : target_(target), candle_(BaseCandles().front()) {
    candle_.time = NextTime(target);
  }
  virtual ~Appender() = default;
  virtual void Turn(int count) {
    for (int i = 0; i < count; ++i) target_.Insert(Next());
  }

 protected:
  Candle Next() {
    const Candle candle = candle_;
    ++candle_.time;
    return candle;
  }

 private:
  Target& target_;
  Candle candle_;  // the next record
};

// Posted appends (6004): a turn posts them and waits for their completions.
class PostingAppender : public Appender {
 public:
  explicit PostingAppender(EngineTarget& engine) : Appender(engine), engine_(engine) {}
  void Turn(int count) override {
    for (int i = 0; i < count; ++i) engine_.Post(Next());
    posted_ += count;
    engine_.WaitForCompletions(posted_);
  }

 private:
  EngineTarget& engine_;
  std::size_t posted_ = 0;  // since the session began
};

struct Contender {
  std::string name;  // the benchmark whose time it stands for
  Appender& appender;
  int turn;  // operations per turn
};

// Two stores in alternating turns, each turn timed, so that both meet the
// same disk (its sync latency varies with other work); each one's seconds per
// operation go to a counter named after its benchmark.
void Alternate(State& state, Contender a, Contender b) {
  double seconds[2] = {};
  for (auto _ : state) {
    int i = 0;
    for (Contender* c : {&a, &b}) {
      const Clock::time_point start = Clock::now();
      c->appender.Turn(c->turn);
      seconds[i++] += std::chrono::duration<double>(Clock::now() - start).count();
    }
  }
  const double turns = static_cast<double>(state.iterations());
  state.counters[a.name] = seconds[0] / (turns * a.turn);
  state.counters[b.name] = seconds[1] / (turns * b.turn);
}

void ReadOrFail(State& state, EngineTarget& engine, int first, Candle* out) {
  if (engine.ReadRange(first, out) != kRangeCount || out[0].time != HistoryTime(first)) {
    state.SkipWithError("a range read delivered wrong records");
  }
}

// Each iteration opens a fresh session (untimed) and times its first read.
void FirstRange(State& state, Files& files) {
  std::vector<Candle> out(kRangeCount);
  const fs::path& folder = files.engine();
  for (auto _ : state) {
    state.PauseTiming();
    {
      EngineTarget engine(folder, kSyncPoints);
      state.ResumeTiming();
      ReadOrFail(state, engine, files.history() / 2, out.data());
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
}

void WarmRange(State& state, Files& files) {
  EngineTarget engine(files.engine(), kSyncPoints);
  const std::vector<int> starts = ReadStarts(files.history(), kRangeCount, kReadPositions);
  std::vector<Candle> out(kRangeCount);
  std::size_t next = 0;
  for (int i = 0; i < kIndexingReads; ++i)
    ReadOrFail(state, engine, starts[next++ % starts.size()], out.data());
  for (auto _ : state) ReadOrFail(state, engine, starts[next++ % starts.size()], out.data());
}

// Registers a case whose failures end it with an error instead of the program.
template <typename Run>
benchmark::internal::Benchmark* Add(std::string const& name, Run run) {
  return benchmark::RegisterBenchmark(name.c_str(),
                                      [run](State& state) {
                                        try {
                                          run(state);
                                        } catch (std::exception const& error) {
                                          state.SkipWithError(error.what());
                                        }
                                      })
      ->UseRealTime()
      ->Unit(benchmark::kMicrosecond);
}

void AddTimed(std::string const& name, void (*kase)(State&, Target&), Opener open, double seconds) {
  Add(name, [kase, open](State& state) { kase(state, *open()); })->MinTime(seconds);
}

Opener Engine(Files& files, int level) {
  return [&files, level] { return std::make_unique<EngineTarget>(files.engine(), level); };
}

Opener Raw(Files& files, bool sync) {
  return [&files, sync] { return std::make_unique<RawTarget>(files.raw(), sync); };
}

Opener Sqlite(SqliteStore& store, bool empty) {
  return [&store, empty] { return std::make_unique<SqliteTarget>(store, empty); };
}

}  // namespace

struct WritePath::Stores {
  explicit Stores(fs::path const& root)
      : small(root / "small", kSmall),
        medium(root / "medium", kMedium),
        large(root / "large", kLarge),
        mid(root / "mid", kMedium),
        appends(root / "appends", 0),
        synced(root / "synced", 0),
        posted(root / "posted", 0),
        sqliteSmall(root, "sqlite_10k", kBaseCount / kSmall),
        sqliteMedium(root, "sqlite_1M"),
        sqliteFull(root, "sqlite_full", 1, "FULL") {}

  Files small, medium, large;  // forming bars
  Files mid, appends, synced, posted;
  SqliteStore sqliteSmall, sqliteMedium, sqliteFull;
};

WritePath::WritePath(fs::path const& folder)
    : stores_(std::make_unique<Stores>(folder / "write_path")) {
  const std::uintmax_t room = fs::space(folder).available;
  if (room < kLargeRoom) {
    skipped_ = "the " + SizeName(kLarge) +
               "-candle cases are skipped: " + std::to_string(room / kGiB) +
               " GiB free, they need " + std::to_string(kLargeRoom / kGiB);
  }
}

WritePath::~WritePath() = default;

void WritePath::Register(std::ostream& out) {
  Stores& s = *stores_;
  std::vector<Files*> sizes = {&s.small, &s.medium};
  if (skipped_.empty()) sizes.push_back(&s.large);
  for (Files* files : sizes) {
    const int size = files->history();
    AddTimed(Name("forming_bar", "engine_d0", size), FormingBar, Engine(*files, kNoSync),
             kSustainedSeconds);
    AddTimed(Name("forming_bar", "engine_d1", size), FormingBar, Engine(*files, kSyncPoints),
             kSustainedSeconds);
    AddTimed(Name("forming_bar", "raw", size), FormingBar, Raw(*files, false), kSustainedSeconds);
  }
  AddTimed(Name("forming_bar", "sqlite", kSmall), FormingBar, Sqlite(s.sqliteSmall, false),
           kSustainedSeconds);
  AddTimed(Name("forming_bar", "sqlite", kMedium), FormingBar, Sqlite(s.sqliteMedium, false),
           kSustainedSeconds);
  AddTimed(Name("mid_insert", "engine_d1"), MidInsert, Engine(s.mid, kSyncPoints),
           kSustainedSeconds);
  AddTimed(Name("mid_insert", "raw"), MidInsert, Raw(s.mid, false), kSustainedSeconds);
  AddTimed(Name("mid_insert", "sqlite"), MidInsert, Sqlite(s.sqliteMedium, false),
           kSustainedSeconds);
  AddTimed(Name("append_single", "engine_d1"), AppendSingle, Engine(s.appends, kSyncPoints),
           kSustainedSeconds);
  AddTimed(Name("append_single", "raw"), AppendSingle, Raw(s.appends, false), kSustainedSeconds);
  AddTimed(Name("append_single", "sqlite"), AppendSingle, Sqlite(s.sqliteMedium, true),
           kSustainedSeconds);
  Files& synced = s.synced;
  Add("synced_insert", [&synced](State& state) {
    EngineTarget engine(synced.engine(), kEveryInsert);
    RawTarget raw(synced.raw(), true);
    Appender engineAppender(engine), rawAppender(raw);
    Alternate(state, {Name("synced_insert", "engine_d2"), engineAppender, kSyncedTurn},
              {Name("synced_insert", "raw_fdatasync"), rawAppender, kSyncedTurn});
  })->MinTime(kSyncedSeconds);
  Files& posted = s.posted;
  SqliteStore& full = s.sqliteFull;
  Add("group_commit", [&posted, &full](State& state) {
    EngineTarget engine(posted.engine(), kEveryInsert);
    SqliteTarget sqlite(full, true);
    PostingAppender engineAppender(engine);
    Appender sqliteAppender(sqlite);
    Alternate(state, {Name("group_commit", "engine_d2"), engineAppender, kPostedTurn},
              {Name("group_commit", "sqlite_full"), sqliteAppender, kSyncedTurn});
  })->MinTime(kSyncedSeconds);
  if (!skipped_.empty()) {
    out << skipped_ << "\n";
    return;
  }
  Files& large = s.large;
  Add(Name("first_range", "engine", kLarge), [&large](State& state) { FirstRange(state, large); })
      ->Iterations(1)
      ->Repetitions(kColdReads)
      ->DisplayAggregatesOnly(true);
  Add(Name("warm_range", "engine", kLarge), [&large](State& state) { WarmRange(state, large); });
}

std::vector<RatioTarget> WritePath::Targets() const {
  std::vector<RatioTarget> targets;
  const std::pair<const char*, const char*> levels[] = {{"engine_d0", "0"}, {"engine_d1", "1"}};
  for (auto const& [engine, level] : levels) {
    const std::string durability = std::string(", Durability ") + level;
    for (int size : {kSmall, kMedium, kLarge}) {
      targets.push_back(
          {"forming bar, " + SizeName(size) + durability + ": engine / raw pwrite 24 B",
           Name("forming_bar", engine, size), Name("forming_bar", "raw", size),
           Name("forming_bar", "sqlite", size), kMaxFormingBarToRaw});
    }
    for (int size : {kMedium, kLarge}) {
      targets.push_back({"forming bar" + durability + ": " + SizeName(size) + " / 10k",
                         Name("forming_bar", engine, size), Name("forming_bar", engine, kSmall), "",
                         kMaxFlatGrowth});
    }
  }
  targets.push_back({"one between the last two of 1M, Durability 1: engine / raw pwrite 48 B",
                     Name("mid_insert", "engine_d1"), Name("mid_insert", "raw"),
                     Name("mid_insert", "sqlite"), kMaxMidInsertToRaw});
  targets.push_back({"append one record per insert, Durability 1: engine / raw write 24 B",
                     Name("append_single", "engine_d1"), Name("append_single", "raw"),
                     Name("append_single", "sqlite"), kMaxSingleAppendToRaw});
  targets.push_back({"Durability 2, synchronous insert (6003): engine / raw write + fdatasync",
                     Name("synced_insert", "engine_d2"), Name("synced_insert", "raw_fdatasync"), "",
                     kMaxSyncedInsertToRaw});
  targets.push_back({"Durability 2, posted inserts (6004), throughput: engine / SQLite",
                     Name("group_commit", "sqlite_full"), Name("group_commit", "engine_d2"), "",
                     kMinGroupCommitSpeedup, true});
  targets.push_back({"range read 1,000 of 50M: first after opening / warm",
                     Name("first_range", "engine", kLarge), Name("warm_range", "engine", kLarge),
                     "", kMaxFirstReadToWarm});
  return targets;
}

void WritePath::PrintNotes(std::ostream& out) const {
  out << "SQLite in the write-path rows: " << stores_->sqliteMedium.settings() << "; "
      << stores_->sqliteFull.settings() << " (the Durability 2 throughput row)\n";
  if (!skipped_.empty()) out << skipped_ << "\n";
}
