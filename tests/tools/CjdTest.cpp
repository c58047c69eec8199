// The cjd tool run as a program: each command's output and exit status on
// files written by the storage library, and on files damaged byte by byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <cstring>
#include <functional>
#include <sstream>

#include "CjdTestFiles.h"
#include "FolderLock.h"
#include "LogRecovery.h"
#include "RecordCsv.h"

namespace {

using cjdtest::Bytes;
using ::testing::HasSubstr;

constexpr std::int32_t kStart = 1704164645;  // 2024-01-02T03:04:05Z
constexpr std::int32_t kStep = 300;
constexpr int kRecords = 3;

struct Outcome {
  int status = -1;  // exit code
  std::string out;
  std::string err;
};

Outcome Cjd(QStringList const& arguments, QString const& workingDirectory = QString()) {
  QProcess process;
  process.setWorkingDirectory(workingDirectory);
  process.start(CJD_PATH, arguments);
  process.waitForFinished();
  return {process.exitCode(), process.readAllStandardOutput().toStdString(),
          process.readAllStandardError().toStdString()};
}

Outcome Cjd(const char* command, std::string const& path) {
  return Cjd({command, QString::fromStdString(path)});
}

void Append(std::string const& path, Bytes const& bytes) {
  Bytes all = cjdtest::ReadFileBytes(path);
  all.insert(all.end(), bytes.begin(), bytes.end());
  cjdtest::WriteFileBytes(path, all);
}

void AppendCandles(std::string const& path, std::vector<std::int32_t> const& times) {
  for (std::int32_t time : times) {
    const CCandleDataPoint candle = cjdtest::Candle(time);
    const auto* bytes = reinterpret_cast<const unsigned char*>(&candle);
    Append(path, Bytes(bytes, bytes + sizeof candle));
  }
}

using Batch = std::vector<CCandleDataPoint>;

// `count` candles kStep apart from `first`.
Batch Candles(std::int32_t first, int count) {
  Batch batch;
  for (int i = 0; i < count; ++i) batch.push_back(cjdtest::Candle(first + i * kStep, 5.0f + i));
  return batch;
}

// Inserts the batches through the data folder's log in a process that then
// dies: the log holds their changes, no checkpoint put them into the file.
void InsertAndDie(QString const& folder, std::string const& path, std::vector<Batch> batches) {
  const pid_t pid = fork();
  if (pid == 0) {
    std::unique_ptr<WriteAheadLog> log;
    bool done = WriteAheadLog::Open(FileSystem::Default(), folder.toStdString(), {}, &log).ok();
    cjdtest::TestOwner owner(true, nullptr, log.get());
    std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
    for (Batch& batch : batches) {
      done = done &&
             symbol->InsertData(int(batch.size()), reinterpret_cast<unsigned char*>(batch.data()))
                 .ok();
    }
    _exit(done ? EXIT_SUCCESS : EXIT_FAILURE);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) << "status " << status;
}

class CjdTest : public ::testing::Test {
 protected:
  QString data() const { return dir.path() + "/data"; }
  std::string logPath() const { return (data() + "/" + wal::kLogFileName).toStdString(); }

  // A symbol of the given period with one description and kRecords records
  // kStep apart.
  std::string MakeFile(const char* name, SYMBOL_PERIOD period, const char* provider = "Demo") {
    auto symbol = cjdtest::MakeSymbol(&owner, name, period, name, provider);
    auto description = std::make_unique<STRING_DESCRIPTION>();
    std::strcpy(description->name, "source");
    std::strcpy(description->value, "test");
    symbol->descriptions().push_back(std::move(description));
    const QString folder = data() + "/" + provider;
    QDir().mkpath(folder);
    EXPECT_EQ(symbol->Create(folder), 0);
    symbol->Open();
    if (period.kind == 'I' && period.length == 0) {
      std::vector<TickDataPoint> ticks;
      for (int i = 0; i < kRecords; ++i) ticks.push_back({kStart + i * kStep, 1.5f + i, 7});
      symbol->InsertData(kRecords, reinterpret_cast<unsigned char*>(ticks.data()));
    } else {
      for (int i = 0; i < kRecords; ++i)
        candles.push_back(cjdtest::Candle(kStart + i * kStep, 1.25f + i));
      symbol->InsertData(kRecords, reinterpret_cast<unsigned char*>(candles.data()));
    }
    return symbol->file()->path();
  }
  std::string MakeCandles() { return MakeFile("EURUSD", {'I', 5, 0}); }

  QTemporaryDir dir;
  cjdtest::TestOwner owner;
  std::vector<CCandleDataPoint> candles;  // what MakeFile stored, for candle periods
};

TEST_F(CjdTest, InfoPrintsEveryHeaderField) {
  const Outcome run = Cjd("info", MakeCandles());
  EXPECT_EQ(run.status, 0);
  for (const char* line :
       {"type: Component Jet Data File\n", "version: 1\n", "description area offset (D): 514\n",
        "descriptions: 1\n", "  description 0: source = test\n", "header size (H): 2323\n",
        "views: 5\n", "  view 0: float Open\n", "  view 4: float Volume\n", "name: EURUSD\n",
        "title: EURUSD\n", "period: I5 (kind I, length 5)\n", "provider: Demo\n", "code: EURUSD\n",
        "point size: 0.0001\n", "record size: 24\n", "first record offset: 3103\n",
        "file size: 3175\n"}) {
    EXPECT_THAT(run.out, HasSubstr(line));
  }
}

// The table of every record, and the CSV of the selected ones, the same CSV
// as dshost prints.
TEST_F(CjdTest, DumpPrintsTheRecordsAsATableOrTheCsvOfTheHost) {
  const QString path = QString::fromStdString(MakeCandles());
  const Outcome table = Cjd({"dump", path});
  EXPECT_EQ(table.status, 0);
  EXPECT_EQ(table.out,
            "time                  epoch       Open  High  Low    Close  Volume\n"
            "2024-01-02T03:04:05Z  1704164645  0.25  2.25  -0.75  1.25   10\n"
            "2024-01-02T03:09:05Z  1704164945  1.25  3.25  0.25   2.25   10\n"
            "2024-01-02T03:14:05Z  1704165245  2.25  4.25  1.25   3.25   10\n");
  const struct {
    QStringList options;
    int begin, end;  // the records printed
  } kSelections[] = {
      {{}, 0, 3},
      {{"--first", "2"}, 0, 2},
      {{"--last", "1"}, 2, 3},
      {{"--first", "10"}, 0, 3},
      {{"--last", "0"}, 3, 3},
      // From the last record before --from up to, not including, --to.
      {{"--from", QString::number(kStart + kStep + 1), "--to", "2024-01-02T03:14:05Z"}, 1, 2},
      {{"--from", QString::number(kStart), "--to", QString::number(kStart + 3 * kStep)}, 0, 3},
  };
  for (const auto& s : kSelections) {
    SCOPED_TRACE(s.options.join(' ').toStdString());
    const Outcome run = Cjd(QStringList{"dump", path, "--csv"} + s.options);
    EXPECT_EQ(run.status, 0);
    std::ostringstream csv;
    WriteCsv(csv, LayoutOf({'I', 5, 0}),
             reinterpret_cast<const unsigned char*>(candles.data() + s.begin), s.end - s.begin);
    EXPECT_EQ(run.out, csv.str());
  }
  EXPECT_EQ(Cjd({"dump", QString::fromStdString(MakeFile("GBPUSD", {'I', 0, 0})), "--csv"}).out,
            "time,epoch,Value,Volume\n"
            "2024-01-02T03:04:05Z,1704164645,1.5,7\n"
            "2024-01-02T03:09:05Z,1704164945,2.5,7\n"
            "2024-01-02T03:14:05Z,1704165245,3.5,7\n");
}

// What info and check report of each damage, and what repair makes of it: a
// repaired file is the clean file again, a refused one is left as it was;
// info and check change nothing.
TEST_F(CjdTest, CheckReportsAndRepairMendsOrRefuses) {
  const std::string path = MakeCandles();
  const Bytes clean = cjdtest::ReadFileBytes(path);
  const Bytes partial(10, 1);
  const std::string cleanSize = std::to_string(clean.size());
  // An append large enough to go straight into the file, its last byte then
  // changed: its checksum in the log no longer holds.
  const int directRecords = int(WriteAheadLog::kDirectAppendBytes / sizeof(CCandleDataPoint)) + 1;
  const std::string directBytes = std::to_string(directRecords * sizeof(CCandleDataPoint));
  const struct {
    const char* what;
    std::function<void()> damage;
    std::string info;   // a part of its output (of the errors when the header does not load)
    std::string check;  // its whole output; it exits 0 only on a clean file
    int repairStatus;
    std::string repair;  // a part of its output (of the errors when it refuses)
  } cases[] = {
      {"clean", [] {},
       "file size: " + cleanSize +
           "\nwhole records: 3\npartial record bytes: 0\nlog: none pending\n",
       "clean: 3 records\n", 0, "nothing to repair: 3 whole records\n"},
      {"partial record", [&] { Append(path, partial); },
       "whole records: 3\npartial record bytes: 10\n",
       "10 bytes of a partial record at the end\n1 problem\n", 0,
       "cut 10 bytes of a partial record\n3 whole records remain\n"},
      {"unfinished append in the log",
       [&] {
         InsertAndDie(data(), path, {Candles(kStart + 3 * kStep, directRecords)});
         Bytes bytes = cjdtest::ReadFileBytes(path);
         bytes.back() ^= 1;
         cjdtest::WriteFileBytes(path, bytes);
       },
       " on disk, " + cleanSize +
           " as readers see it\nwhole records: 3\npartial record bytes: 0\nlog: the " +
           directBytes + " bytes after byte " + cleanSize +
           " are an unfinished append; recovery cuts them\n",
       "clean: 3 records\n", 0,
       "log: recovered 1 file of the data folder: 1 file cut back after an unfinished append\n"
       "3 whole records remain\n"},
      {"zero-time records and a partial record",
       [&] {
         Append(path, Bytes(sizeof(CCandleDataPoint), 0));
         AppendCandles(path, {0});
         Append(path, partial);
       },
       "whole records: 5\npartial record bytes: 10\n",
       "10 bytes of a partial record at the end\n2 zero-time records at the end\n2 problems\n", 0,
       "cut 10 bytes of a partial record\nremoved 2 zero-time records at the end\n3 whole records "
       "remain\n"},
      {"out of order and a partial record",
       [&] {
         AppendCandles(path, {kStart + kStep, kStart + 10 * kStep, kStart});
         Append(path, partial);
       },
       "whole records: 6\npartial record bytes: 10\n",
       "10 bytes of a partial record at the end\n"
       "record 3: time 1704164945 is not after 1704165245\n"
       "record 5: time 1704164645 is not after 1704167645\n"
       "3 problems\n",
       1,
       "cannot repair: record times out of order (record 3: time 1704164945 is not after "
       "1704165245; 2 in all); "
       "nothing was cut\n"},
      {"zero time before the end",
       [&] {
         AppendCandles(path, {0, kStart + 10 * kStep});
       },
       "whole records: 5\n", "record 3: time 0 is not after 1704165245\n1 problem\n", 1,
       "cannot repair: record times out of order (record 3: time 0 is not after 1704165245; 1 in "
       "all)"},
      {"repeated time", [&] { AppendCandles(path, {kStart + 2 * kStep}); }, "whole records: 4\n",
       "record 3: time 1704165245 repeats the time of record 2\n1 problem\n", 1,
       "cannot repair: record times out of order (record 3: time 1704165245 repeats the time of "
       "record 2; 1 in all)"},
      {"description offset past the end",
       [&] {
         Bytes bytes = clean;
         bytes[cjd::kDescriptionAreaOffsetField] = 0xff;
         cjdtest::WriteFileBytes(path, bytes);
       },
       "the header is damaged", "header does not load: the header is damaged\n", 1,
       "header does not load"},
      {"another kind of file", [&] { cjdtest::WriteFileBytes(path, Bytes(4000, 'x')); },
       "not a data file of this type and version",
       "header does not load: not a data file of this type and version\n", 1,
       "header does not load"},
      {"no file", [&] { std::filesystem::remove(path); }, path + ": No such file or directory",
       "header does not load: No such file or directory\n", 1, "header does not load"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove(logPath());
    cjdtest::WriteFileBytes(path, clean);
    c.damage();
    const Bytes damaged = cjdtest::ReadFileBytes(path);
    const Outcome info = Cjd("info", path);
    const bool loads = !c.check.starts_with("header does not load");
    EXPECT_EQ(info.status, loads ? 0 : 1);
    EXPECT_THAT(loads ? info.out : info.err, HasSubstr(c.info));
    if (!loads) {
      EXPECT_EQ(info.out, "");
    }
    const Outcome check = Cjd("check", path);
    EXPECT_EQ(check.status, c.check.starts_with("clean:") ? 0 : 1);
    EXPECT_EQ(check.out, c.check);
    EXPECT_EQ(cjdtest::ReadFileBytes(path), damaged);
    const Outcome repair = Cjd("repair", path);
    EXPECT_EQ(repair.status, c.repairStatus);
    EXPECT_THAT(c.repairStatus == 0 ? repair.out : repair.err, HasSubstr(c.repair));
    EXPECT_EQ(cjdtest::ReadFileBytes(path), c.repairStatus == 0 ? clean : damaged);
  }
}

// Inserts the log still holds: shown by info, dump and check without a byte
// of the file or the log changed; repair applies them unless a running
// module holds the folder, and leaves the log empty.
TEST_F(CjdTest, ShowsTheChangesOfTheLogAndRepairAppliesThem) {
  const std::string path = MakeCandles();
  const Bytes file = cjdtest::ReadFileBytes(path);
  const Batch appended = Candles(kStart + 3 * kStep, 1), replaced = Candles(kStart + kStep, 1);
  InsertAndDie(data(), path, {appended, replaced});
  const Bytes log = cjdtest::ReadFileBytes(logPath());
  const Batch shown = {candles[0], replaced[0], candles[2], appended[0]};
  std::ostringstream csv;
  WriteCsv(csv, LayoutOf({'I', 5, 0}), reinterpret_cast<const unsigned char*>(shown.data()),
           shown.size());
  const std::string onDisk = std::to_string(file.size());
  const std::string readers = std::to_string(file.size() + sizeof(CCandleDataPoint));
  EXPECT_THAT(Cjd("info", path).out,
              HasSubstr("file size: " + onDisk + " on disk, " + readers +
                        " as readers see it\nwhole records: 4\npartial record bytes: 0\n"
                        "log: 2 changes not yet in the file are shown\n"));
  EXPECT_EQ(Cjd({"dump", QString::fromStdString(path), "--csv"}).out, csv.str());
  EXPECT_EQ(Cjd("check", path).out, "clean: 4 records\n");
  EXPECT_THAT(Cjd({"ls", data()}).out,
              HasSubstr("EURUSD  4        2024-01-02T03:04:05Z  2024-01-02T03:19:05Z\n"));
  EXPECT_EQ(cjdtest::ReadFileBytes(path), file);
  EXPECT_EQ(cjdtest::ReadFileBytes(logPath()), log);
  EXPECT_FALSE(std::filesystem::exists((data() + "/" + FolderLock::kLockFileName).toStdString()));

  std::unique_ptr<FolderLock> lock;
  ASSERT_TRUE(FolderLock::Acquire(data().toStdString(), &lock).ok());
  const Outcome refused = Cjd("repair", path);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr("a running module holds the data folder"));
  EXPECT_EQ(cjdtest::ReadFileBytes(path), file);
  EXPECT_EQ(cjdtest::ReadFileBytes(logPath()), log);
  lock.reset();

  const Outcome repair = Cjd("repair", path);
  EXPECT_EQ(repair.status, 0);
  EXPECT_EQ(
      repair.out,
      "log: recovered 1 file of the data folder: 2 frames replayed\n4 whole records remain\n");
  EXPECT_THAT(Cjd("info", path).out, HasSubstr("file size: " + readers + "\nwhole records: 4\n"));
  EXPECT_EQ(Cjd({"dump", QString::fromStdString(path), "--csv"}).out, csv.str());
  std::unique_ptr<RandomAccessFile> logFile;
  wal::LogContents contents;
  ASSERT_TRUE(FileSystem::Default().Open(logPath(), OpenMode::ReadOnly, &logFile).ok());
  ASSERT_TRUE(wal::ReadLog(*logFile, &contents).ok());
  EXPECT_TRUE(contents.frames.empty());
}

// Every provider folder, with files that do not load and the reason.
TEST_F(CjdTest, ListsEveryFileOfADataFolder) {
  MakeCandles();
  MakeFile("Gold", {'D', 0, 0}, "Other");
  EXPECT_EQ(Cjd({"ls", data()}).status, 0);
  QDir(data()).mkpath("Other/deep");
  cjdtest::WriteFileBytes((data() + "/Other/deep/broken.cjd").toStdString(),
                          {'s', 'h', 'o', 'r', 't'});
  const Outcome run = Cjd({"ls", "data"}, dir.path());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out,
            "provider  name                   period  code    records  first                 last\n"
            "Demo      EURUSD                 I5      EURUSD  3        2024-01-02T03:04:05Z  "
            "2024-01-02T03:14:05Z\n"
            "Other     Gold                   D       Gold    3        2024-01-02T03:04:05Z  "
            "2024-01-02T03:14:05Z\n"
            "deep      Other/deep/broken.cjd  does not load: the file is shorter than a header\n");
  EXPECT_EQ(Cjd({"ls", dir.path() + "/none"}).status, 1);
}

TEST(CjdCommandLineTest, HelpOnEveryCommandAndBadArgumentsExitWith2) {
  for (const char* command : {"", "info", "dump", "check", "ls", "repair"}) {
    const Outcome run = Cjd(*command ? QStringList{command, "--help"} : QStringList{"--help"});
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_THAT(run.out, HasSubstr(std::string("usage: cjd ") + (*command ? command : "COMMAND")))
        << command;
  }
  const std::vector<QStringList> bad = {
      {},
      {"frobnicate"},
      {"info"},
      {"info", "a.cjd", "b.cjd"},
      {"check", "a.cjd", "--bogus"},
      {"dump", "a.cjd", "--first"},
      {"dump", "a.cjd", "--first", "x"},
      {"dump", "a.cjd", "--last", "-1"},
      {"dump", "a.cjd", "--first", "1", "--last", "1"},
      {"dump", "a.cjd", "--from", "100"},
      {"dump", "a.cjd", "--from", "yesterday", "--to", "100"},
      {"dump", "a.cjd", "--csv", "--csv"},
      {"ls"},
  };
  for (QStringList const& arguments : bad) {
    const Outcome run = Cjd(arguments);
    EXPECT_EQ(run.status, 2) << arguments.join(' ').toStdString();
    EXPECT_NE(run.err, "") << arguments.join(' ').toStdString();
  }
}

}  // namespace
