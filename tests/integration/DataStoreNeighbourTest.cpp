// Users of one data folder in processes of their own, as terminals share a
// data folder: a writer appending millions of records while a reader loops
// over the same symbol, a second writer, `cjd repair` against a running
// writer, and twenty thousand symbols under a descriptor limit of 1024.
// Each process is a store_process (StoreProcess.cpp) started in a folder of
// its own under the test's tree, so that each has its own file log.

#include <gmock/gmock.h>

#include <QProcess>
#include <map>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kSymbolFile[] = "EUR%2FUSD_I1_EURUSD.cjd";  // the file of SymbolParams{}
constexpr std::chrono::milliseconds kChildLimit{90000};    // longest wait for a child's line or end
constexpr std::chrono::milliseconds kReadPause{100};       // longest wait for more output at once
constexpr std::chrono::milliseconds kStablePause{50};      // between two looks at a folder's bytes
constexpr int kReaderWindow = 1000;                        // records of each of the reader's gets

// One writer and reader run: what the writer appends, how, and how often
// its checkpoints come. Small batches reach the reader at checkpoints only:
// their runs last several checkpoints.
struct StreamRun {
  long records;
  long batch;        // records of one insert: 10,000 go straight into the file, 40 through the log
  const char* mode;  // sync (6003) or posted (6004)
  int syncIntervalMs;  // SyncInterval
};
constexpr StreamRun kStreamRuns[] = {
    {4'000'000, 10'000, "sync", 1000},
    {4'000'000, 10'000, "posted", 5},
    {1'000'000, 40, "sync", 5},
    {2'000'000, 40, "posted", 100},
};
constexpr int kRuns = 40;  // ten of each kind

constexpr long kPausedRecords = 100'000;  // a writer that then waits, holding the folder
constexpr long kPausedBatch = 1'000;
constexpr long kSymbols = 20'000;          // symbols of the descriptor-limit test
constexpr long kOverLimitSymbols = 1'500;  // more than the limit lets open at once
constexpr long kRecordsEach = 3;
constexpr long kFileLimit = 1'024;  // RLIMIT_NOFILE of that child
constexpr char kTooManyOpen[] = R"(S[0-9]+_I1_S[0-9]+\.cjd: Too many open files)";

// What a finished child left: its exit status (-1 if it crashed or hung),
// its output and the numbers of its "result" line.
struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
  std::map<std::string, long> result;
};

std::map<std::string, long> ResultOf(const std::string& out) {
  std::map<std::string, long> numbers;
  const std::size_t line = out.rfind("result ");
  if (line == std::string::npos) return numbers;
  std::istringstream words(out.substr(line + std::strlen("result ")));
  for (std::string word; words >> word;) {
    const std::size_t equals = word.find('=');
    if (equals != std::string::npos)
      numbers[word.substr(0, equals)] = std::stol(word.substr(equals + 1));
  }
  return numbers;
}

// A program started in a folder of its own (with the temp folder of its file
// log), talked to by lines on its standard input and output.
class Child {
 public:
  Child(const char* program, const QStringList& arguments, const fs::path& folder) {
    fs::create_directories(folder / "temp");
    process_.setWorkingDirectory(QString::fromStdString(folder.string()));
    process_.start(program, arguments);
  }
  ~Child() {
    if (process_.state() == QProcess::NotRunning) return;
    process_.kill();
    process_.waitForFinished();
  }

  // Reads output lines until one is `wanted`; false at the end of the output or after kChildLimit.
  bool waitFor(const std::string& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + kChildLimit;
    for (;;) {
      while (process_.canReadLine()) {
        const std::string line = process_.readLine().trimmed().toStdString();
        out_ += line + '\n';
        if (line == wanted) return true;
      }
      if (process_.state() == QProcess::NotRunning || std::chrono::steady_clock::now() > deadline)
        return false;
      process_.waitForReadyRead(int(kReadPause.count()));
    }
  }
  void say(const char* line) {
    process_.write(line);
    process_.write("\n");
    process_.waitForBytesWritten();
  }
  Outcome finish() {  // closes its input and waits for its end
    process_.closeWriteChannel();
    Outcome outcome;
    const bool ended = process_.waitForFinished(int(kChildLimit.count()));
    if (ended && process_.exitStatus() == QProcess::NormalExit)
      outcome.status = process_.exitCode();
    outcome.out = out_ + process_.readAllStandardOutput().toStdString();
    outcome.err = process_.readAllStandardError().toStdString();
    outcome.result = ResultOf(outcome.out);
    return outcome;
  }

 private:
  QProcess process_;
  std::string out_;  // output lines read so far
};

// The files that differ between two snapshots of a folder's bytes, or are in one only.
std::vector<fs::path> Changed(const std::map<fs::path, std::string>& before,
                              const std::map<fs::path, std::string>& after) {
  std::vector<fs::path> changed;
  for (const auto& [path, bytes] : before) {
    if (!after.contains(path) || after.at(path) != bytes) changed.push_back(path);
  }
  for (const auto& [path, bytes] : after) {
    if (!before.contains(path)) changed.push_back(path);
  }
  return changed;
}

// Records that are not the series' record at their place, and records missing or beyond it.
long SeriesMismatches(const std::vector<Candle>& stored, long records) {
  long wrong = std::labs(long(stored.size()) - records);
  const std::size_t common = std::min<std::size_t>(stored.size(), std::size_t(records));
  for (std::size_t i = 0; i < common; ++i) {
    wrong += !(stored[i] == MakeCandle(std::int32_t(kFirstTime + long(i) * kStep)));
  }
  return wrong;
}

class DataStoreNeighbourTest : public DataStoreFixture {
 protected:
  QStringList Arguments(const char* role, const std::vector<long>& numbers,
                        const char* mode = "") const {
    QStringList arguments{role, QString::fromStdString(tree_.data().string()),
                          QString::fromStdString(tree_.config().string())};
    for (long number : numbers) arguments << QString::number(number);
    if (*mode != '\0') arguments << mode;
    return arguments;
  }
  fs::path Folder(const char* name) const { return tree_.root() / name; }
  fs::path SymbolFile() const { return tree_.providerFolder() / kSymbolFile; }
  Outcome RunCjd(const QStringList& arguments) const {
    return Child(CJD_PATH, arguments, Folder("cjd")).finish();
  }

  // Every file of the data folder with its bytes.
  std::map<fs::path, std::string> DataBytes() const {
    std::map<fs::path, std::string> bytes;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(tree_.data())) {
      if (entry.is_regular_file()) bytes[entry.path()] = ReadBytes(entry.path());
    }
    return bytes;
  }
  // The data folder's bytes once they stay the same between two looks (or kWaitLimit passed).
  std::map<fs::path, std::string> SettledDataBytes() const {
    const auto deadline = std::chrono::steady_clock::now() + kWaitLimit;
    std::map<fs::path, std::string> before = DataBytes();
    for (;;) {
      std::this_thread::sleep_for(kStablePause);
      std::map<fs::path, std::string> now = DataBytes();
      if (now == before || std::chrono::steady_clock::now() > deadline) return now;
      before = std::move(now);
    }
  }

  // The series as a fresh load of the library and `cjd check` find it; the module is stopped after.
  void ExpectSeriesStored(long records) {
    const Outcome check = RunCjd({"check", QString::fromStdString(SymbolFile().string())});
    EXPECT_EQ(check.status, 0) << check.out << check.err;
    EXPECT_THAT(check.out, HasSubstr("clean: " + std::to_string(records) + " records"));
    restart();
    EXPECT_EQ(SeriesMismatches(readAll<Candle>(open(SymbolParams{})), records), 0);
    host_.reset();
  }

  // A writer appending in a process, a reader looping in another, both on one symbol.
  void RunWriterAndReader(const StreamRun& run) {
    Child writer(STORE_PROCESS_PATH, Arguments("append", {run.records, run.batch}, run.mode),
                 Folder("writer"));
    ASSERT_TRUE(writer.waitFor("ready"));
    Child reader(STORE_PROCESS_PATH, Arguments("read", {run.records, kReaderWindow}),
                 Folder("reader"));
    ASSERT_TRUE(reader.waitFor("ready"));
    writer.say("go");
    ASSERT_TRUE(writer.waitFor("inserted"));
    Outcome written = writer.finish();
    EXPECT_EQ(written.status, 0) << written.err;
    EXPECT_EQ(written.result, (std::map<std::string, long>{{"refused", 0}}));
    Outcome read = reader.finish();
    EXPECT_EQ(read.status, 0) << read.err;
    EXPECT_EQ(read.result["final"], run.records) << read.err;
    EXPECT_GT(read.result["during"], 0) << "the reader never saw the writer under way";
    ExpectSeriesStored(run.records);
  }
};

// Every run: the writer (sync or posted, big or small batches, rare or
// frequent checkpoints) stores the whole series in order; the reader's
// counts never go down, its records are the series' own at their places,
// and it ends with the whole series.
TEST_F(DataStoreNeighbourTest, ReaderProcessFollowsAWriterProcessAndNoRecordIsLost) {
  long appended = 0;
  for (int run = 0; run < kRuns && !HasFailure(); ++run) {
    const StreamRun& kind = kStreamRuns[run % std::size(kStreamRuns)];
    SCOPED_TRACE("run " + std::to_string(run) + ": " + std::to_string(kind.records) +
                 " records in batches of " + std::to_string(kind.batch) + ", " + kind.mode +
                 ", SyncInterval " + std::to_string(kind.syncIntervalMs));
    fs::remove_all(tree_.data());
    tree_.writeConfig({"SyncInterval=" + std::to_string(kind.syncIntervalMs)});
    RunWriterAndReader(kind);
    appended += kind.records;
  }
  RecordProperty("records_appended", std::to_string(appended));
}

// A second process on the folder a writer holds only reads: inserts are
// refused with 1 (posted ones with 0) and the reason logged; it writes
// nothing; the writer's records stay exactly as the writer stored them.
TEST_F(DataStoreNeighbourTest, SecondWriterProcessIsRefusedAndTheFirstKeepsItsRecords) {
  tree_.writeConfig({"SyncInterval=5"});
  Child writer(STORE_PROCESS_PATH, Arguments("append", {kPausedRecords, kPausedBatch}, "sync"),
               Folder("writer"));
  ASSERT_TRUE(writer.waitFor("ready"));
  writer.say("go");
  ASSERT_TRUE(writer.waitFor("inserted"));
  const auto settled = SettledDataBytes();

  restart();
  const HostWord handle = open(SymbolParams{});
  EXPECT_EQ(insert(handle, Series(10, kFirstTime + kPausedRecords * kStep)), 1);
  EXPECT_EQ(insert(handle, Series(10, kFirstTime, 1)), 1);  // over the writer's records
  std::vector<Candle> posted = Series(10, kFirstTime + (kPausedRecords + 10) * kStep);
  EXPECT_EQ(postInsert(handle, posted), 0);
  EXPECT_EQ(SeriesMismatches(readAll<Candle>(handle), kPausedRecords), 0);
  const std::vector<ModuleHost::LogEntry> hostLog = host_->logs();
  EXPECT_TRUE(std::any_of(hostLog.begin(), hostLog.end(), [](const ModuleHost::LogEntry& entry) {
    return entry.text.find(u"Insert refused") != std::u16string::npos;
  }));
  host_.reset();
  EXPECT_THAT(Changed(settled, DataBytes()), IsEmpty());
  const std::string log = ReadBytes(tree_.log());
  EXPECT_THAT(log, HasSubstr("another writer holds the data folder"));
  EXPECT_THAT(log, HasSubstr("Insert refused (1 so far)"));

  Outcome written = writer.finish();
  EXPECT_EQ(written.status, 0) << written.err;
  EXPECT_EQ(ReadBytes(Folder("writer") / "temp" / "dataStore.log").find("refused"),
            std::string::npos);
  ExpectSeriesStored(kPausedRecords);
}

// `cjd repair` takes the folder's lock: while a module process holds it,
// the repair is refused, says why and changes nothing; once the writer
// stopped it runs and finds the file whole.
TEST_F(DataStoreNeighbourTest, RepairIsRefusedWhileAModuleProcessWrites) {
  const StreamRun& big = kStreamRuns[0];
  tree_.writeConfig({"SyncInterval=5"});
  Child writer(STORE_PROCESS_PATH, Arguments("append", {big.records, big.batch}, "sync"),
               Folder("writer"));
  ASSERT_TRUE(writer.waitFor("ready"));
  const QStringList repair{"repair", QString::fromStdString(SymbolFile().string())};
  writer.say("go");
  const Outcome duringInserts = RunCjd(repair);
  EXPECT_EQ(duringInserts.status, 1) << duringInserts.out;
  EXPECT_THAT(duringInserts.err, HasSubstr("a running module holds the data folder"));

  ASSERT_TRUE(writer.waitFor("inserted"));
  const auto settled = SettledDataBytes();
  const Outcome whileHeld = RunCjd(repair);
  EXPECT_EQ(whileHeld.status, 1) << whileHeld.out;
  EXPECT_THAT(whileHeld.err, HasSubstr("stop it first. Nothing was changed"));
  EXPECT_THAT(Changed(settled, DataBytes()), IsEmpty());

  Outcome written = writer.finish();
  EXPECT_EQ(written.status, 0) << written.err;
  const Outcome afterStop = RunCjd(repair);
  EXPECT_EQ(afterStop.status, 0) << afterStop.err;
  EXPECT_THAT(afterStop.out,
              HasSubstr("nothing to repair: " + std::to_string(big.records) + " whole records"));
  ExpectSeriesStored(big.records);
}

// With the default bound of open files, a process limited to 1024
// descriptors stores into 20,000 symbols and reads each back, before and
// after the library is loaded anew. Durability 0: the subject is the
// number of files, not syncs.
TEST_F(DataStoreNeighbourTest, TwentyThousandSymbolsUnderADescriptorLimit) {
  tree_.writeConfig({"Durability=0"});
  Child many(STORE_PROCESS_PATH, Arguments("many", {kSymbols, kRecordsEach, kFileLimit}),
             Folder("many"));
  const Outcome outcome = many.finish();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const std::map<std::string, long> expected{
      {"openRefused", 0}, {"insertRefused", 0},   {"stored", kSymbols}, {"readBack", kSymbols},
      {"readRefused", 0}, {"reloaded", kSymbols}, {"reloadRefused", 0}};
  EXPECT_EQ(outcome.result, expected) << outcome.out;
  EXPECT_EQ(tree_.symbolFiles().size(), std::size_t(kSymbols));
}

// OpenFiles above the descriptor limit: once the descriptors run out,
// opening a symbol answers 1 and both logs name the file and the system's
// reason; every symbol that was stored reads back whole.
TEST_F(DataStoreNeighbourTest, OpenFilesAboveTheDescriptorLimitIsReported) {
  tree_.writeConfig({"Durability=0", "OpenFiles=5000"});
  Child many(STORE_PROCESS_PATH, Arguments("many", {kOverLimitSymbols, kRecordsEach, kFileLimit}),
             Folder("many"));
  const Outcome outcome = many.finish();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  std::map<std::string, long> result = outcome.result;
  EXPECT_GT(result["stored"], 0);
  EXPECT_GT(result["openRefused"] + result["insertRefused"], 0);
  EXPECT_EQ(result["stored"] + result["openRefused"] + result["insertRefused"], kOverLimitSymbols);
  EXPECT_EQ(result["readBack"], result["stored"]);
  EXPECT_EQ(result["reloaded"], result["stored"]);
  EXPECT_THAT(outcome.err, ContainsRegex(std::string("host log: .*") + kTooManyOpen));
  EXPECT_THAT(ReadBytes(Folder("many") / "temp" / "dataStore.log"), ContainsRegex(kTooManyOpen));
}

}  // namespace
}  // namespace datastore_test
