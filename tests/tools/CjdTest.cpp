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
#include "FaultyFileSystem.h"
#include "RecordCsv.h"

namespace {

using cjdtest::Bytes;
using ::testing::HasSubstr;

constexpr std::int32_t kStart = 1704164645;  // 2024-01-02T03:04:05Z
constexpr std::int32_t kStep = 300;
constexpr int kRecords = 3;
constexpr std::size_t kCandleSize = sizeof(CCandleDataPoint);
constexpr std::size_t kPartialBytes = 10;
constexpr std::size_t kCandleFirstRecord = 3103;  // D 514 (one description) + H 2323 + 266
constexpr int kRecordsWrite = 2;  // an append writes its journal entry, then its records

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

Outcome Cjd(const char* command, std::string const& path) { return Cjd({command, QString::fromStdString(path)}); }

std::vector<CCandleDataPoint> CandlesAt(std::vector<std::int32_t> const& times) {
  std::vector<CCandleDataPoint> candles;
  for (std::int32_t time : times) candles.push_back(cjdtest::Candle(time));
  return candles;
}

void Append(std::string const& path, Bytes const& bytes) {
  cjdtest::WriteFileBytes(path, cjdtest::Concatenated(cjdtest::ReadFileBytes(path), bytes));
}

void AppendCandles(std::string const& path, std::vector<std::int32_t> const& times) {
  const std::vector<CCandleDataPoint> candles = CandlesAt(times);
  const auto* bytes = reinterpret_cast<const unsigned char*>(candles.data());
  Append(path, Bytes(bytes, bytes + candles.size() * kCandleSize));
}

// Appends three candles in a process that dies half-way through writing
// them: the file ends in an interrupted append, one and a half records.
void DieDuringAppend(std::string const& path) {
  const pid_t pid = fork();
  if (pid == 0) {
    cjdtest::FaultyFileSystem fileSystem;
    cjdtest::TestOwner owner(true, &fileSystem);
    std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
    std::vector<CCandleDataPoint> candles = CandlesAt({kStart + 10 * kStep, kStart + 11 * kStep, kStart + 12 * kStep});
    fileSystem.Arm({.failWrite = kRecordsWrite, .writeHalf = true, .dieAtWrite = true});
    if (symbol != nullptr) symbol->InsertData(3, reinterpret_cast<unsigned char*>(candles.data()));
    _exit(EXIT_SUCCESS);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == cjdtest::kDiedAtWrite) << "status " << status;
}

std::string CandleCsv(std::vector<CCandleDataPoint> const& records) {
  std::ostringstream out;
  WriteCsv(out, LayoutOf({'I', 5, 0}), reinterpret_cast<const unsigned char*>(records.data()), records.size());
  return out.str();
}

class CjdTest : public ::testing::Test {
 protected:
  QString data() const { return dir.path() + "/data"; }

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
      for (int i = 0; i < kRecords; ++i) candles.push_back(cjdtest::Candle(kStart + i * kStep, 1.25f + i));
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
        "descriptions: 1\n", "  description 0: source = test\n", "header size (H): 2323\n", "views: 5\n",
        "  view 0: float Open\n", "  view 4: float Volume\n", "name: EURUSD\n", "title: EURUSD\n",
        "period: I5 (kind I, length 5)\n", "provider: Demo\n", "code: EURUSD\n", "point size: 0.0001\n",
        "record size: 24\n", "first record offset: 3103\n", "whole records: 3\n",
        "partial record bytes: 0\n", "append journal: none pending\n"}) {
    EXPECT_THAT(run.out, HasSubstr(line));
  }
  EXPECT_THAT(run.out, HasSubstr("file size: " + std::to_string(kCandleFirstRecord + kRecords * kCandleSize)));
}

TEST_F(CjdTest, InfoShowsPartialRecordAndPendingAppend) {
  const std::string path = MakeCandles();
  const Bytes clean = cjdtest::ReadFileBytes(path);
  Append(path, Bytes(kPartialBytes));
  EXPECT_THAT(Cjd("info", path).out, HasSubstr("partial record bytes: 10\n"));
  cjdtest::WriteFileBytes(path, clean);
  DieDuringAppend(path);
  const Outcome run = Cjd("info", path);
  EXPECT_THAT(run.out, HasSubstr("readers see the first " + std::to_string(clean.size()) + " bytes"));
  EXPECT_THAT(run.out, HasSubstr("partial record bytes: 0\n"));
  EXPECT_THAT(run.out, HasSubstr("whole records: 3\n"));
}

TEST_F(CjdTest, InfoRefusesFilesThatDoNotLoad) {
  const Outcome missing = Cjd({"info", dir.path() + "/none.cjd"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr("none.cjd: cannot open"));
  const std::string other = (dir.path() + "/other.cjd").toStdString();
  cjdtest::WriteFileBytes(other, Bytes(4000, 'x'));
  const Outcome foreign = Cjd("info", other);
  EXPECT_EQ(foreign.status, 1);
  EXPECT_THAT(foreign.err, HasSubstr("not a data file of this version"));
  EXPECT_EQ(foreign.out, "");
}

TEST_F(CjdTest, DumpPrintsAnAlignedTableOfAllRecords) {
  const Outcome run = Cjd("dump", MakeCandles());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "time                  epoch       Open  High  Low    Close  Volume\n"
            "2024-01-02T03:04:05Z  1704164645  0.25  2.25  -0.75  1.25   10\n"
            "2024-01-02T03:09:05Z  1704164945  1.25  3.25  0.25   2.25   10\n"
            "2024-01-02T03:14:05Z  1704165245  2.25  4.25  1.25   3.25   10\n");
}

TEST_F(CjdTest, DumpCsvIsTheCsvOfTheHost) {
  const QString path = QString::fromStdString(MakeCandles());
  EXPECT_EQ(Cjd({"dump", path, "--csv"}).out, CandleCsv(candles));
  const Outcome ticks = Cjd({"dump", QString::fromStdString(MakeFile("GBPUSD", {'I', 0, 0})), "--csv"});
  EXPECT_EQ(ticks.status, 0);
  EXPECT_EQ(ticks.out,
            "time,epoch,Value,Volume\n"
            "2024-01-02T03:04:05Z,1704164645,1.5,7\n"
            "2024-01-02T03:09:05Z,1704164945,2.5,7\n"
            "2024-01-02T03:14:05Z,1704165245,3.5,7\n");
}

TEST_F(CjdTest, DumpSelectsFirstLastAndTimeRange) {
  const QString path = QString::fromStdString(MakeCandles());
  using Slice = std::vector<CCandleDataPoint>;
  EXPECT_EQ(Cjd({"dump", path, "--csv", "--first", "2"}).out, CandleCsv(Slice(candles.begin(), candles.begin() + 2)));
  EXPECT_EQ(Cjd({"dump", path, "--csv", "--last", "1"}).out, CandleCsv(Slice(candles.end() - 1, candles.end())));
  EXPECT_EQ(Cjd({"dump", path, "--csv", "--first", "10"}).out, CandleCsv(candles));
  EXPECT_EQ(Cjd({"dump", path, "--csv", "--last", "0"}).out, CandleCsv({}));
  // From the last record before --from up to, not including, --to.
  const QString from = QString::number(kStart + kStep + 1);
  EXPECT_EQ(Cjd({"dump", path, "--csv", "--from", from, "--to", "2024-01-02T03:14:05Z"}).out,
            CandleCsv(Slice(candles.begin() + 1, candles.begin() + 2)));
  const QString end = QString::number(kStart + 3 * kStep);
  EXPECT_EQ(Cjd({"dump", path, "--csv", "--from", QString::number(kStart), "--to", end}).out, CandleCsv(candles));
}

// What check reports of each damage, and what repair makes of it: a repaired
// file is the clean file again, a refused one is left as it was.
TEST_F(CjdTest, CheckReportsAndRepairMendsOrRefuses) {
  const std::string path = MakeCandles();
  const Bytes clean = cjdtest::ReadFileBytes(path);
  const Bytes partial(kPartialBytes, 1);
  const struct {
    const char* what;
    std::function<void()> damage;
    std::string check;  // its whole output; it exits 0 only on a clean file
    int repairStatus;
    std::string repair;  // a part of its output (of the errors when it refuses)
  } cases[] = {
      {"clean", [] {}, "clean: 3 records\n", 0, "nothing to repair: 3 whole records\n"},
      {"partial record", [&] { Append(path, partial); },
       "10 bytes of a partial record at the end\n1 problem\n", 0,
       "cut 10 bytes of a partial record\n3 whole records remain\n"},
      {"interrupted append",
       [&] { DieDuringAppend(path); },
       "an interrupted append is pending: the file is " + std::to_string(clean.size() + 3 * kCandleSize / 2) +
           " bytes, readers see " + std::to_string(clean.size()) + "\n1 problem\n",
       0, "rolled back an interrupted append\n3 whole records remain\n"},
      {"out of order and a partial record",
       [&] {
         AppendCandles(path, {kStart + kStep, kStart + 10 * kStep, kStart});
         Append(path, partial);
       },
       "10 bytes of a partial record at the end\n"
       "record 3: time 1704164945 is not after 1704165245\n"
       "record 5: time 1704164645 is not after 1704167645\n"
       "3 problems\n",
       1,
       "cannot repair: record times out of order (record 3: time 1704164945 is not after 1704165245; 2 in all); "
       "the file is unchanged\n"},
      {"repeated time", [&] { AppendCandles(path, {kStart + 2 * kStep}); },
       "record 3: time 1704165245 repeats the time of record 2\n1 problem\n", 1,
       "cannot repair: record times out of order (record 3: time 1704165245 repeats the time of record 2; 1 in all)"},
      {"description offset past the end",
       [&] {
         Bytes bytes = clean;
         bytes[cjd::kDescriptionAreaOffsetField] = 0xff;
         cjdtest::WriteFileBytes(path, bytes);
       },
       "header does not load: damaged header\n", 1, "header does not load"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    cjdtest::WriteFileBytes(path, clean);
    c.damage();
    const Bytes damaged = cjdtest::ReadFileBytes(path);
    const Outcome check = Cjd("check", path);
    EXPECT_EQ(check.status, c.check.starts_with("clean:") ? 0 : 1);
    EXPECT_EQ(check.out, c.check);
    const Outcome repair = Cjd("repair", path);
    EXPECT_EQ(repair.status, c.repairStatus);
    EXPECT_THAT(c.repairStatus == 0 ? repair.out : repair.err, HasSubstr(c.repair));
    EXPECT_EQ(cjdtest::ReadFileBytes(path), c.repairStatus == 0 ? clean : damaged);
  }
}

TEST_F(CjdTest, ListsEveryProviderFolder) {
  MakeCandles();
  MakeFile("Gold", {'D', 0, 0}, "Other");
  const Outcome run = Cjd({"ls", data()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "provider  name    period  code    records  first                 last\n"
            "Demo      EURUSD  I5      EURUSD  3        2024-01-02T03:04:05Z  2024-01-02T03:14:05Z\n"
            "Other     Gold    D       Gold    3        2024-01-02T03:04:05Z  2024-01-02T03:14:05Z\n");
}

TEST_F(CjdTest, ListsFilesThatDoNotLoadWithTheReason) {
  MakeCandles();
  QDir(data()).mkpath("Other/deep");
  cjdtest::WriteFileBytes((data() + "/Other/deep/broken.cjd").toStdString(), {'s', 'h', 'o', 'r', 't'});
  const Outcome run = Cjd({"ls", "data"}, dir.path());
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("Demo      EURUSD"));
  EXPECT_THAT(run.out, HasSubstr("deep      Other/deep/broken.cjd  does not load: truncated header\n"));
  EXPECT_EQ(Cjd({"ls", dir.path() + "/none"}).status, 1);
}

TEST(CjdCommandLineTest, HelpOnTheProgramAndEveryCommand) {
  for (const char* command : {"", "info", "dump", "check", "ls", "repair"}) {
    const QStringList arguments = *command ? QStringList{command, "--help"} : QStringList{"--help"};
    const Outcome run = Cjd(arguments);
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_THAT(run.out, HasSubstr(std::string("usage: cjd ") + (*command ? command : "COMMAND"))) << command;
  }
}

TEST(CjdCommandLineTest, BadArgumentsExitWith2) {
  const std::vector<QStringList> bad = {
      {}, {"frobnicate"}, {"info"}, {"info", "a.cjd", "b.cjd"}, {"check", "a.cjd", "--bogus"},
      {"dump", "a.cjd", "--first"}, {"dump", "a.cjd", "--first", "x"}, {"dump", "a.cjd", "--last", "-1"},
      {"dump", "a.cjd", "--first", "1", "--last", "1"}, {"dump", "a.cjd", "--from", "100"},
      {"dump", "a.cjd", "--from", "yesterday", "--to", "100"}, {"dump", "a.cjd", "--csv", "--csv"}, {"ls"},
  };
  for (QStringList const& arguments : bad) {
    const Outcome run = Cjd(arguments);
    EXPECT_EQ(run.status, 2) << arguments.join(' ').toStdString();
    EXPECT_NE(run.err, "") << arguments.join(' ').toStdString();
  }
}

}  // namespace
