// CrashStateTest.cpp: the states a power cut may leave while inserts run
// through the write-ahead log, and while recovery runs. A scenario's file
// operations are recorded (RecordingFileSystem.h); for a crash after each of
// them the explorer builds the states a weak disk allows from what no sync
// has made durable yet: each 512-byte sector a write touched holds the bytes
// of the file's last sync or of the first k writes to it since (write-back
// sends a sector as the page cache holds it at that moment), a size change
// may persist without its data (zeros), and a file made since its folder's
// last sync may be missing. Each state is recovered as the writer's start
// does it; then every data file must hold, byte for byte, the records after
// one prefix of the inserts, one that keeps all the last checkpoint (level 1)
// or Commit (level 2) made durable. At each crash point the first state whose
// recovery has work to do is explored again with crashes during recovery.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CjdTestFiles.h"
#include "RecordingFileSystem.h"
#include "WriteAheadLog.h"

namespace {

using cjdtest::Bytes;
using cjdtest::DurableOp;
using Files = std::map<std::string, Bytes>;               // a folder: name to bytes
using FolderRecords = std::vector<std::optional<Bytes>>;  // per kFileNames; none: not made yet

constexpr std::uint64_t kSector = 512;
constexpr unsigned int kRecordSize = 24;  // candle records
constexpr int kStoredRecords = 300;
constexpr std::int32_t kFirstTime = 1'000'000'000;
constexpr std::int32_t kTimeStep = 60;
constexpr int kSmallAppend = 5;  // records
constexpr int kLargeAppend = int(WriteAheadLog::kDirectAppendBytes / kRecordSize) + 1;
constexpr std::size_t kMiddleRecords = 3;
constexpr std::uint64_t kExhaustiveStates = 64;  // more choices at a crash point than this: sampled
constexpr int kSampledStates = 48;  // per crash point, besides "nothing kept" and "all kept"
constexpr int kSampledDuringRecovery = 10;  // the same, at a crash point of a recovery
constexpr int kMaxReports = 5;              // bad states described in full
constexpr std::uint32_t kSeed = 20240917;
const std::vector<std::string> kFileNames = {"a.cjd", "b.cjd",
                                             "NEW_I15_NEW.cjd"};  // the last one made by 'n'
constexpr std::uint64_t kHeaderEnd = cjd::HeaderEnd(0, 5);
constexpr std::uint64_t kFirstRecord =
    cjd::FirstRecordOffset(cjd::DescriptionAreaOffset(0), cjd::HeaderSize(5));
constexpr char kMixed[] = "each file holds a prefix of the inserts, but not the same one";

struct Range {
  int lo, hi;  // the inserts a state holds: a prefix of at least lo and at most hi
};

// A whole file in one read (a byte at a time is slow under the sanitizers).
Bytes ReadWhole(std::string const& path) {
  Bytes bytes(std::filesystem::file_size(path));
  std::ifstream(path, std::ios::binary)
      .read(reinterpret_cast<char*>(bytes.data()), std::streamsize(bytes.size()));
  return bytes;
}

Files Snapshot(std::string const& folder) {
  Files files;
  for (auto const& entry : std::filesystem::directory_iterator(folder))
    files[entry.path().filename().string()] = ReadWhole(entry.path().string());
  return files;
}

void Materialise(std::string const& folder, Files const& files) {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  for (auto const& [name, bytes] : files) cjdtest::WriteFileBytes(folder + "/" + name, bytes);
}

std::string OpText(DurableOp const& op) {
  static const char* const kKinds[] = {"create", "write",       "truncate",
                                       "sync",   "sync folder", "sync file system"};
  std::string text = std::string(kKinds[op.kind]) + " '" + op.path + "'";
  if (op.kind == DurableOp::kWrite)
    text += " @" + std::to_string(op.offset) + " +" + std::to_string(op.bytes.size());
  return op.kind == DurableOp::kTruncate ? text + " to " + std::to_string(op.offset) : text;
}

// Steps: 'a' small append, 'A' append of at least kDirectAppendBytes, 'r'
// replace the newest record, 'm' insert between stored records, 'b' insert
// before the first one, 'n' make the new file; each followed by its file's
// index. "|" is a checkpoint.
Bytes MakeBatch(char kind, Bytes const& stored, std::mt19937& rng) {
  const std::vector<std::int32_t> times = cjdtest::TimesOf(stored, kRecordSize);
  const std::int32_t last = times.empty() ? kFirstTime : times.back();
  std::vector<std::int32_t> batch;
  if (kind == 'a' || kind == 'A')
    batch =
        cjdtest::TimesFrom(last + kTimeStep, kind == 'a' ? kSmallAppend : kLargeAppend, kTimeStep);
  if (kind == 'r') batch = {last};
  if (kind == 'b') batch = {times.front() - 2 * kTimeStep, times.front() - kTimeStep};
  for (std::size_t i = times.size() / 2; kind == 'm' && batch.size() < kMiddleRecords; ++i)
    batch.push_back(times[i] + (times[i + 1] - times[i]) / 2);
  return cjdtest::MakeRecords(batch, kRecordSize, rng);
}

// A scenario run once, its operations recorded from the clean start on.
struct Recording {
  Files base;                                // the folder after the clean start
  std::vector<DurableOp> ops;                // since then
  std::vector<FolderRecords> after;          // after[i]: the records once i inserts are done
  std::vector<int> started;                  // operations made before insert i began
  std::vector<std::pair<int, int>> durable;  // (operations made, inserts durable from then on)
  std::vector<Bytes> headers;                // per file: its first kHeaderEnd bytes

  Range At(int point) const {  // what a crash after `point` operations may leave
    Range range{0, 0};
    for (auto [made, inserts] : durable)
      range.lo = made <= point ? std::max(range.lo, inserts) : range.lo;
    range.hi = int(
        std::count_if(started.begin(), started.end(), [point](int made) { return made < point; }));
    return range;
  }
};

bool RunStep(char kind, std::string const& path, cjdtest::TestOwner& owner,
             std::optional<Bytes>& records, std::mt19937& rng) {
  if (kind == 'n') {
    auto symbol = cjdtest::MakeSymbol(&owner, "NEW", {'I', 15, 0}, "NEW", "");
    records = Bytes{};
    return symbol->Create(QString::fromStdString(DirectoryOf(path) + "/")) == 0 &&
           symbol->file()->path() == path;
  }
  Bytes batch = MakeBatch(kind, *records, rng);
  records = cjdtest::MergeByTime(*records, batch, kRecordSize);
  std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
  return symbol != nullptr &&
         symbol->InsertData(int(batch.size() / kRecordSize), batch.data()).ok();
}

Recording Record(std::string const& folder, std::string const& steps, DurabilitySettings settings) {
  Recording recording;
  std::mt19937 rng(kSeed);
  FolderRecords now(kFileNames.size());
  std::filesystem::create_directory(folder);
  for (std::size_t file = 0; file < 2; ++file) {
    now[file] = cjdtest::MakeRecords(cjdtest::TimesFrom(kFirstTime, kStoredRecords, kTimeStep),
                                     kRecordSize, rng);
    cjdtest::WriteFileBytes(folder + "/" + kFileNames[file],
                            cjdtest::HeaderFields{}.File(*now[file]));
  }
  cjdtest::RecordingFileSystem fileSystem(folder);
  std::unique_ptr<WriteAheadLog> log;
  EXPECT_TRUE(WriteAheadLog::Open(fileSystem, folder, settings, &log).ok());
  recording.base = Snapshot(folder);
  recording.after.push_back(now);
  cjdtest::TestOwner owner(true, &fileSystem, log.get());
  fileSystem.recording = true;
  std::istringstream words(steps);
  for (std::string step; words >> step;) {
    if (step != "|") {
      const std::size_t file = std::size_t(step[1] - '0');
      recording.started.push_back(int(fileSystem.ops.size()));
      EXPECT_TRUE(RunStep(step[0], folder + "/" + kFileNames[file], owner, now[file], rng)) << step;
      recording.after.push_back(now);
    }
    if (step != "|" && settings.level < DurabilitySettings::kEveryInsert) continue;
    const Status status = step == "|" ? log->Checkpoint() : log->Commit();
    EXPECT_TRUE(status.ok()) << step << ": " << status.ToString();
    recording.durable.emplace_back(int(fileSystem.ops.size()), int(recording.started.size()));
  }
  fileSystem.recording = false;
  recording.ops = std::move(fileSystem.ops);
  for (std::string const& name : kFileNames) {
    const Bytes bytes =
        std::filesystem::exists(folder + "/" + name) ? ReadWhole(folder + "/" + name) : Bytes{};
    recording.headers.emplace_back(
        bytes.begin(), bytes.begin() + long(std::min<std::uint64_t>(bytes.size(), kHeaderEnd)));
  }
  return recording;
}

// What a crash at one point may keep of one file. Its choices: per sector
// written since its last sync, how many of those writes the sector holds;
// which of its sizes persisted; for a file made since its folder's last sync,
// whether it is there (1) or not (0).
struct Pending {
  std::string name;
  Bytes durable;                          // as of its last sync
  bool exists = false;                    // in the base, or made
  bool mayVanish = false;                 // made since its folder's last sync
  std::vector<int> ops;                   // writes and truncates since its last sync
  std::map<std::uint64_t, int> sectorOf;  // sector number to its choice
  std::vector<int> sectorWrites;          // per such choice: the pending writes touching the sector
  std::vector<std::uint64_t> sizes;       // the durable size, then each pending change
  std::vector<int> sizeOps;               // the operation of each size (-1: the durable one)

  std::size_t Choices() const { return sectorWrites.size() + (mayVanish ? 2 : 1); }
  int Radix(std::size_t choice) const {
    if (choice < sectorWrites.size()) return sectorWrites[choice] + 1;
    return choice == sectorWrites.size() ? int(sizes.size()) : 2;
  }
};

bool Changes(DurableOp const& op, std::string const& name) {
  return op.path == name && (op.kind == DurableOp::kWrite || op.kind == DurableOp::kTruncate);
}

template <typename Visit>
void ForEachSector(DurableOp const& op, Visit visit) {
  const std::uint64_t end = op.offset + op.bytes.size();
  for (std::uint64_t sector = op.offset / kSector;
       op.kind == DurableOp::kWrite && sector * kSector < end; ++sector)
    visit(sector, std::max(op.offset, sector * kSector), std::min(end, (sector + 1) * kSector));
}

// Puts a write's bytes of the sectors `keep` allows into the file.
template <typename Keep>
void Apply(Bytes& bytes, DurableOp const& op, Keep keep) {
  if (op.kind == DurableOp::kTruncate) bytes.resize(op.offset);
  ForEachSector(op, [&](std::uint64_t sector, std::uint64_t from, std::uint64_t to) {
    if (!keep(sector)) return;
    bytes.resize(std::max<std::uint64_t>(bytes.size(), to));
    std::copy(op.bytes.begin() + long(from - op.offset), op.bytes.begin() + long(to - op.offset),
              bytes.begin() + long(from));
  });
}

Pending PendingAt(std::string const& name, Files const& base, std::vector<DurableOp> const& ops,
                  int point) {
  Pending file;
  file.name = name;
  const std::string folder =
      name.find('/') == std::string::npos ? "" : name.substr(0, name.rfind('/'));
  int lastSync = -1, made = -1, folderSynced = -1;
  for (int i = 0; i < point; ++i) {
    DurableOp const& op = ops[std::size_t(i)];
    const bool all = op.kind == DurableOp::kSyncAll;
    folderSynced =
        all || (op.kind == DurableOp::kSyncDirectory && op.path == folder) ? i : folderSynced;
    made = op.kind == DurableOp::kCreate && op.path == name ? i : made;
    lastSync = all || (op.kind == DurableOp::kSync && op.path == name) ? i : lastSync;
  }
  const auto found = base.find(name);
  file.exists = found != base.end() || made >= 0;
  file.mayVanish = found == base.end() && made > folderSynced;
  if (found != base.end()) file.durable = found->second;
  for (int i = 0; i < lastSync; ++i)
    if (Changes(ops[std::size_t(i)], name))
      Apply(file.durable, ops[std::size_t(i)], [](std::uint64_t) { return true; });
  file.sizes = {file.durable.size()};
  file.sizeOps = {-1};
  for (int i = lastSync + 1; i < point; ++i) {
    DurableOp const& op = ops[std::size_t(i)];
    if (!Changes(op, name)) continue;
    file.ops.push_back(i);
    const std::uint64_t size = file.sizes.back();
    const std::uint64_t next =
        op.kind == DurableOp::kTruncate ? op.offset : std::max(size, op.offset + op.bytes.size());
    if (next != size) {
      file.sizes.push_back(next);
      file.sizeOps.push_back(i);
    }
    ForEachSector(op, [&file](std::uint64_t sector, std::uint64_t, std::uint64_t) {
      const auto [at, added] = file.sectorOf.try_emplace(sector, int(file.sectorWrites.size()));
      if (added) file.sectorWrites.push_back(0);
      ++file.sectorWrites[std::size_t(at->second)];
    });
  }
  return file;
}

// The file as its choices leave it, with their description; none when missing.
std::optional<Bytes> Build(Pending const& file, std::vector<DurableOp> const& ops,
                           const int* choices, std::string& described) {
  const std::size_t sizeChoice = file.sectorWrites.size();
  int kept = 0;  // sectors holding all their writes
  for (std::size_t i = 0; i < sizeChoice; ++i) kept += choices[i] == file.sectorWrites[i] ? 1 : 0;
  const bool missing = !file.exists || (file.mayVanish && choices[sizeChoice + 1] == 0);
  described += file.name +
               (missing ? " missing; "
                        : ": " + std::to_string(kept) + "/" + std::to_string(sizeChoice) +
                              " sectors new, size " +
                              std::to_string(file.sizes[std::size_t(choices[sizeChoice])]) + "; ");
  if (missing) return std::nullopt;
  Bytes bytes = file.durable;
  std::vector<int> met(sizeChoice, 0);  // pending writes of each sector so far
  for (int i : file.ops) {
    DurableOp const& op = ops[std::size_t(i)];
    if (op.kind == DurableOp::kTruncate && i > file.sizeOps[std::size_t(choices[sizeChoice])])
      continue;
    Apply(bytes, op, [&](std::uint64_t sector) {
      const int choice = file.sectorOf.at(sector);
      return met[std::size_t(choice)]++ < choices[choice];
    });
  }
  bytes.resize(file.sizes[std::size_t(choices[sizeChoice])]);
  return bytes;
}

class Explorer {
 public:
  Explorer(Recording const& recording, DurabilitySettings settings, std::string folder)
      : recording_(recording), settings_(settings), folder_(std::move(folder)) {
    for (FolderRecords const& records : recording.after)
      for (std::optional<Bytes> const& file : records)
        for (std::size_t at = 0; file && at < file->size(); at += kRecordSize)
          known_.emplace(file->begin() + long(at), file->begin() + long(at + kRecordSize));
  }

  // Crashes after each of `ops`, made on `base`; `context`: the crash state
  // whose recovery they are, or empty.
  void ExploreRun(Files const& base, std::vector<DurableOp> const& ops,
                  std::function<Range(int)> const& rangeAt, std::string const& context = "") {
    for (int point = 0; point <= int(ops.size()); ++point) {
      nestedHere_ = nestedHere_ && !context.empty();
      const std::string where =
          context + (context.empty() ? "crash after op " : "\n  then recovery crashed after op ") +
          std::to_string(point) + (point > 0 ? " (" + OpText(ops[point - 1]) + ")" : "");
      ExplorePoint(base, ops, point, rangeAt(point), where, !context.empty());
    }
  }

  int explored = 0;                // distinct states checked
  int exploredDuringRecovery = 0;  // of them, crashes during recovery
  int bad = 0;                     // states that broke a guarantee
  int mixed = 0;                   // of them, whole files from different points of the inserts

 private:
  void ExplorePoint(Files const& base, std::vector<DurableOp> const& ops, int point, Range range,
                    std::string const& where, bool duringRecovery) {
    std::set<std::string> names;
    for (auto const& entry : base) names.insert(entry.first);
    for (int i = 0; i < point; ++i)
      if (ops[std::size_t(i)].kind == DurableOp::kCreate) names.insert(ops[std::size_t(i)].path);
    std::vector<Pending> files;
    std::vector<int> radices;
    for (std::string const& name : names) {
      files.push_back(PendingAt(name, base, ops, point));
      for (std::size_t i = 0; i < files.back().Choices(); ++i)
        radices.push_back(files.back().Radix(i));
    }
    std::vector<int> choices(radices.size());
    const auto visit = [&] {
      Files state;
      std::string described;
      const int* at = choices.data();
      for (Pending const& file : files) {
        if (std::optional<Bytes> bytes = Build(file, ops, at, described))
          state[file.name] = std::move(*bytes);
        at += file.Choices();
      }
      Check(state, range, where + "; kept " + described, !duringRecovery);
    };
    std::uint64_t total = 1;
    for (int radix : radices)
      total = std::min<std::uint64_t>(total * std::uint64_t(radix), kExhaustiveStates + 1);
    for (std::uint64_t n = 0; total <= kExhaustiveStates && n < total; ++n) {
      for (std::size_t i = 0, rest = n; i < radices.size(); rest /= std::size_t(radices[i]), ++i)
        choices[i] = int(rest % std::size_t(radices[i]));
      visit();
    }
    if (total <= kExhaustiveStates) return;
    visit();  // nothing kept
    for (std::size_t i = 0; i < radices.size(); ++i) choices[i] = radices[i] - 1;
    visit();  // all kept
    for (int sample = duringRecovery ? kSampledDuringRecovery : kSampledStates; sample > 0;
         --sample) {
      const double keep = std::uniform_real_distribution<double>(0, 1)(rng_);
      for (std::size_t i = 0; i < radices.size(); ++i) {
        const bool all = std::bernoulli_distribution(keep)(rng_);
        choices[i] = all ? radices[i] - 1
                         : std::uniform_int_distribution<int>(0, std::max(0, radices[i] - 2))(rng_);
      }
      visit();
    }
  }

  // Recovers the state and checks it; at most one state per crash point,
  // whose recovery has work to do, gets crashes during its recovery explored.
  void Check(Files const& state, Range range, std::string const& where, bool mayNest) {
    std::size_t key = std::size_t(range.lo) * 65599 + std::size_t(range.hi);
    for (auto const& [name, bytes] : state)
      key = key * 31 + std::hash<std::string_view>()(name) +
            std::hash<std::string_view>()(
                std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    if (!seen_.insert(key).second) return;
    Materialise(folder_, state);
    cjdtest::RecordingFileSystem fileSystem(folder_);
    fileSystem.recording = mayNest && !nestedHere_;
    std::unique_ptr<WriteAheadLog> log;
    RecoveryReport report;
    const Status status = WriteAheadLog::Open(fileSystem, folder_, settings_, &log, &report);
    log.reset();
    ++explored;
    exploredDuringRecovery += mayNest ? 0 : 1;
    const std::string problem =
        status.ok() ? Verdict(range) : "recovery failed: " + status.ToString();
    mixed += problem == kMixed ? 1 : 0;
    if (!problem.empty() && bad++ < kMaxReports) ADD_FAILURE() << where << "\n  " << problem;
    if (!fileSystem.recording || !status.ok() || report.framesReplayed + report.filesCut == 0)
      return;
    nestedHere_ = true;
    const std::vector<DurableOp> ops = std::move(fileSystem.ops);
    ExploreRun(
        state, ops, [range](int) { return range; }, where);
  }

  // Empty when every file holds the records after one prefix of the inserts
  // in range; otherwise what is wrong.
  std::string Verdict(Range range) const {
    std::string problem;
    std::vector<int> holdAll(std::size_t(range.hi - range.lo + 1), 1);
    for (std::size_t file = 0; file < kFileNames.size(); ++file) {
      const std::string path = folder_ + "/" + kFileNames[file];
      const bool exists = std::filesystem::exists(path);
      const Bytes raw = exists ? ReadWhole(path) : Bytes{};
      cjdtest::TestOwner owner(false);
      std::unique_ptr<CSymbol> symbol = exists ? cjdtest::OpenSymbol(owner, path) : nullptr;
      const std::optional<Bytes> read =
          symbol ? std::optional(cjdtest::AllRecords(*symbol)) : std::nullopt;
      bool any = false;
      for (int inserts = range.lo; inserts <= range.hi; ++inserts) {
        const bool holds = Holds(exists ? &raw : nullptr, read, file, inserts);
        holdAll[std::size_t(inserts - range.lo)] &= holds ? 1 : 0;
        any = any || holds;
      }
      if (!any) problem += ShowFile(exists ? &raw : nullptr, read, file, range);
    }
    const bool common = std::find(holdAll.begin(), holdAll.end(), 1) != holdAll.end();
    return problem.empty() && !common ? kMixed : problem;
  }

  // The file (null: missing) is the header, zeros, then the records after
  // that many inserts, which is also what reading it as a symbol gives. An
  // empty file is one a crash left while it was being made: opening it
  // makes it new, as if it were missing.
  bool Holds(const Bytes* raw, std::optional<Bytes> const& read, std::size_t file,
             int inserts) const {
    std::optional<Bytes> const& want = recording_.after[std::size_t(inserts)][file];
    Bytes const& header = recording_.headers[file];
    if (raw != nullptr && raw->empty()) raw = nullptr;
    if (!want || !raw) return !want && !raw;
    if (read != want) return false;
    if (want->empty() && *raw == header) return true;
    return raw->size() == kFirstRecord + want->size() &&
           std::equal(header.begin(), header.end(), raw->begin()) &&
           std::all_of(raw->begin() + long(kHeaderEnd), raw->begin() + long(kFirstRecord),
                       [](auto c) { return c == 0; }) &&
           std::equal(want->begin(), want->end(), raw->begin() + long(kFirstRecord));
  }

  std::string ShowFile(const Bytes* raw, std::optional<Bytes> const& read, std::size_t file,
                       Range range) const {
    std::string text = kFileNames[file] + ": ";
    if (raw == nullptr || !read)
      return text +
             (raw ? "header refused, " + std::to_string(raw->size()) + " bytes; " : "missing; ");
    int unknown = 0;
    for (std::size_t at = 0; at < read->size(); at += kRecordSize)
      unknown +=
          known_.count(Bytes(read->begin() + long(at), read->begin() + long(at + kRecordSize))) ? 0
                                                                                                : 1;
    text += std::to_string(raw->size()) + " bytes, " + std::to_string(read->size() / kRecordSize) +
            " records (" + std::to_string(unknown) + " never stored, " +
            (cjdtest::TimesAscend(*read, kRecordSize) ? "" : "NOT ") +
            "sorted); the records after " + std::to_string(range.lo) + " to " +
            std::to_string(range.hi) + " inserts number";
    for (int inserts = range.lo; inserts <= range.hi; ++inserts) {
      std::optional<Bytes> const& want = recording_.after[std::size_t(inserts)][file];
      text += want ? " " + std::to_string(want->size() / kRecordSize) : " (no file)";
    }
    return text + "; ";
  }

  Recording const& recording_;         // the scenario
  const DurabilitySettings settings_;  // recovery runs with them
  const std::string folder_;           // where states are recovered
  std::set<Bytes> known_;              // every record stored or inserted
  std::set<std::size_t> seen_;         // states checked, with their ranges
  std::mt19937 rng_{kSeed};            // samples of large choice sets
  bool nestedHere_ = false;            // crashes of a recovery explored at this crash point
};

struct Scenario {
  const char* name;
  const char* steps;
  int level;                            // DurabilitySettings::level
  std::size_t syncEachFileAtMost = 16;  // 0: every checkpoint syncs the whole file system
};

void PrintTo(Scenario const& scenario, std::ostream* out) {
  *out << scenario.name << " \"" << scenario.steps << '"';
}

class CrashStateTest : public ::testing::TestWithParam<Scenario> {};

TEST_P(CrashStateTest, EveryStateRecoversToAPrefixOfTheInserts) {
  cjdtest::ScratchDir dir;
  DurabilitySettings settings;
  settings.level = GetParam().level;
  settings.syncEachFileAtMost = GetParam().syncEachFileAtMost;
  const Recording recording = Record(dir.File("run"), GetParam().steps, settings);
  ASSERT_FALSE(HasFailure());
  Explorer explorer(recording, settings, dir.File("state"));
  explorer.ExploreRun(recording.base, recording.ops,
                      [&recording](int point) { return recording.At(point); });
  std::cout << GetParam().name << ": " << recording.ops.size() << " operations; explored "
            << explorer.explored << " crash states (" << explorer.exploredDuringRecovery
            << " during recovery), " << explorer.bad << " bad (" << explorer.mixed
            << " of them whole files from different points)\n";
  RecordProperty("explored", explorer.explored);
  EXPECT_EQ(explorer.bad, 0);
}

// Between checkpoints: small appends and a replace wait in the log; two
// direct appends with a frame between them; a first frame that overwrites
// the old log beyond its first page, and a replace inside an extent appended
// before; direct appends to both files, then a middle insert and a replace
// that land inside them; small appends. Then a file made under the log.
INSTANTIATE_TEST_SUITE_P(
    Scenarios, CrashStateTest,
    ::testing::Values(
        Scenario{"InsertsSyncPoints", "a0 r0 | A0 b1 A0 | b1 r0 m1 | A1 A0 m0 r1 | a1 a0", 1},
        Scenario{"InsertsEveryCommit", "a0 r0 | A0 b1 A0 | b1 r0 m1 | A1 A0 m0 r1 | a1 a0", 2},
        Scenario{"NewFileSyncPoints", "n2 a2 A2 | r2 m2 b2 a0", 1},
        Scenario{"NewFileEveryCommit", "n2 A2 r2 | a2 m2", 2},
        Scenario{"NewFileFileSystemSyncs", "n2 a2 A0 | r2 m1 b2 a0", 1, 0}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
