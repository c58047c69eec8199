// The cjd tool run as a program: each command's output and exit status on
// files written by the storage library, and on files damaged byte by byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <cstring>
#include <sstream>

#include "RecordCsv.h"
#include "StorageTestSupport.h"

namespace {

using ::testing::HasSubstr;

constexpr std::int32_t kStart = 1704164645;  // 2024-01-02T03:04:05Z
constexpr std::int32_t kStep = 300;
constexpr int kRecords = 3;
constexpr int kPartialBytes = 10;
constexpr std::size_t kCandleFirstRecord = 3103;  // D 514 (one description) + H 2323 + 266
constexpr char kJournalMagic[] = {'C', 'J', 'D', 'A', 'P', 'P', 'N', 'D'};

struct Outcome {
  int status = -1;     // exit code
  std::string out;     // standard output
  std::string err;     // standard error
};

Outcome Cjd(QStringList const& arguments, QString const& workingDirectory = QString()) {
  QProcess process;
  process.setWorkingDirectory(workingDirectory);
  process.start(CJD_PATH, arguments);
  process.waitForFinished();
  return {process.exitCode(), process.readAllStandardOutput().toStdString(),
          process.readAllStandardError().toStdString()};
}

void AppendBytes(std::string const& path, const void* bytes, std::size_t size) {
  QFile file(QString::fromStdString(path));
  ASSERT_TRUE(file.open(QIODevice::Append));
  ASSERT_EQ(file.write(static_cast<const char*>(bytes), qint64(size)), qint64(size));
}

void WriteFile(std::string const& path, std::string const& bytes) {
  QFile file(QString::fromStdString(path));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
  file.write(bytes.data(), qint64(bytes.size()));
}

class CjdTest : public ::testing::Test {
 protected:
  QString data() const { return dir.path() + "/data"; }

  // A symbol of the given period with kRecords records kStep apart.
  std::string MakeFile(const char* name, SYMBOL_PERIOD period, const char* provider = "Demo") {
    auto symbol = MakeSymbol(&owner, name, period, name, provider);
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
      for (int i = 0; i < kRecords; ++i) candles.push_back(Candle(kStart + i * kStep, 1.25f + i));
      symbol->InsertData(kRecords, reinterpret_cast<unsigned char*>(candles.data()));
    }
    return symbol->file()->path();
  }
  std::string MakeCandles() { return MakeFile("EURUSD", {'I', 5, 0}); }

  QTemporaryDir dir;
  TestOwner owner;
  std::vector<CCandleDataPoint> candles;  // what MakeFile stored, for candle periods
};

std::string CandleCsv(std::vector<CCandleDataPoint> const& records) {
  std::ostringstream out;
  WriteCsv(out, LayoutOf({'I', 5, 0}), reinterpret_cast<const unsigned char*>(records.data()), records.size());
  return out.str();
}

// --- info -------------------------------------------------------------------

TEST_F(CjdTest, InfoPrintsEveryHeaderField) {
  const std::string path = MakeCandles();
  const Outcome run = Cjd({"info", QString::fromStdString(path)});
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
  EXPECT_THAT(run.out, HasSubstr("file size: " + std::to_string(kCandleFirstRecord + kRecords * 24) + "\n"));
}

TEST_F(CjdTest, InfoShowsPartialRecordAndPendingAppend) {
  const std::string path = MakeCandles();
  const std::uint64_t cleanSize = FileBytes(path).size();
  const char junk[kPartialBytes] = {};
  AppendBytes(path, junk, sizeof junk);
  EXPECT_THAT(Cjd({"info", QString::fromStdString(path)}).out, HasSubstr("partial record bytes: 10\n"));

  unsigned char entry[sizeof kJournalMagic + sizeof cleanSize];
  std::memcpy(entry, kJournalMagic, sizeof kJournalMagic);
  std::memcpy(entry + sizeof kJournalMagic, &cleanSize, sizeof cleanSize);
  WriteFile(path + ".journal", std::string(reinterpret_cast<char*>(entry), sizeof entry));
  const Outcome run = Cjd({"info", QString::fromStdString(path)});
  EXPECT_THAT(run.out, HasSubstr("readers see the first " + std::to_string(cleanSize) + " bytes"));
  EXPECT_THAT(run.out, HasSubstr("partial record bytes: 0\n"));
  EXPECT_THAT(run.out, HasSubstr("whole records: 3\n"));
}

TEST_F(CjdTest, InfoRefusesFilesThatDoNotLoad) {
  const Outcome missing = Cjd({"info", dir.path() + "/none.cjd"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr("none.cjd: cannot open"));
  const std::string other = (dir.path() + "/other.cjd").toStdString();
  WriteFile(other, std::string(4000, 'x'));
  const Outcome foreign = Cjd({"info", QString::fromStdString(other)});
  EXPECT_EQ(foreign.status, 1);
  EXPECT_THAT(foreign.err, HasSubstr("not a data file of this version"));
  EXPECT_EQ(foreign.out, "");
}

// --- dump -------------------------------------------------------------------

TEST_F(CjdTest, DumpPrintsAnAlignedTableOfAllRecords) {
  const Outcome run = Cjd({"dump", QString::fromStdString(MakeCandles())});
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
  EXPECT_EQ(Cjd({"dump", path, "--csv", "--from", QString::number(kStart), "--to", QString::number(kStart + 3 * kStep)}).out,
            CandleCsv(candles));
}

// --- check ------------------------------------------------------------------

class CjdFileTest : public CjdTest {
 protected:
  void SetUp() override { path = MakeCandles(); }
  Outcome Check() { return Cjd({"check", QString::fromStdString(path)}); }
  void AppendCandle(std::int32_t time) {
    const CCandleDataPoint candle = Candle(time);
    AppendBytes(path, &candle, sizeof candle);
  }
  std::string path;
};

TEST_F(CjdFileTest, CleanFilePasses) {
  const Outcome run = Check();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "clean: 3 records\n");
}

TEST_F(CjdFileTest, ReportsAPartialRecord) {
  const char junk[kPartialBytes] = {};
  AppendBytes(path, junk, sizeof junk);
  const Outcome run = Check();
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "10 bytes of a partial record at the end\n1 problem\n");
}

TEST_F(CjdFileTest, ReportsRecordsOutOfOrder) {
  AppendCandle(kStart + kStep);
  AppendCandle(kStart + 10 * kStep);
  AppendCandle(kStart);
  const Outcome run = Check();
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out,
            "record 3: time 1704164945 is not after 1704165245\n"
            "record 5: time 1704164645 is not after 1704167645\n"
            "2 problems\n");
}

TEST_F(CjdFileTest, ReportsDuplicateTimes) {
  AppendCandle(kStart + 2 * kStep);
  const Outcome run = Check();
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("record 3: time 1704165245 repeats the time of record 2\n"));
}

TEST_F(CjdFileTest, ReportsAHeaderThatDoesNotLoad) {
  std::vector<unsigned char> bytes = FileBytes(path);
  bytes[258] = 0xff;  // D far beyond the end of the file
  WriteFile(path, std::string(bytes.begin(), bytes.end()));
  const Outcome run = Check();
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "header does not load: damaged header\n");
}

// --- ls ---------------------------------------------------------------------

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
  WriteFile((data() + "/Other/deep/broken.cjd").toStdString(), "short");
  const Outcome run = Cjd({"ls", "data"}, dir.path());
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("Demo      EURUSD"));
  EXPECT_THAT(run.out, HasSubstr("deep      Other/deep/broken.cjd  does not load: truncated header\n"));
  EXPECT_EQ(Cjd({"ls", dir.path() + "/none"}).status, 1);
}

// --- repair -----------------------------------------------------------------

TEST_F(CjdFileTest, RepairCutsAPartialRecord) {
  const std::vector<unsigned char> clean = FileBytes(path);
  const char junk[kPartialBytes] = {1, 2, 3};
  AppendBytes(path, junk, sizeof junk);
  const Outcome run = Cjd({"repair", QString::fromStdString(path)});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "cut 10 bytes of a partial record\n3 whole records remain\n");
  EXPECT_EQ(FileBytes(path), clean);
  EXPECT_EQ(Check().status, 0);
}

TEST_F(CjdFileTest, RepairRollsBackAPendingAppend) {
  const std::vector<unsigned char> clean = FileBytes(path);
  const std::uint64_t cleanSize = clean.size();
  AppendCandle(kStart + 10 * kStep);
  std::string entry(kJournalMagic, sizeof kJournalMagic);
  entry.append(reinterpret_cast<const char*>(&cleanSize), sizeof cleanSize);
  WriteFile(path + ".journal", entry);
  EXPECT_EQ(Check().status, 1);
  const Outcome run = Cjd({"repair", QString::fromStdString(path)});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "rolled back an interrupted append\n3 whole records remain\n");
  EXPECT_EQ(FileBytes(path), clean);
  EXPECT_EQ(Check().status, 0);
}

TEST_F(CjdFileTest, RepairLeavesACleanFileAlone) {
  const std::vector<unsigned char> clean = FileBytes(path);
  const Outcome run = Cjd({"repair", QString::fromStdString(path)});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "nothing to repair: 3 whole records\n");
  EXPECT_EQ(FileBytes(path), clean);
}

TEST_F(CjdFileTest, RepairRefusesWhatItCannotMakeSound) {
  AppendCandle(kStart);
  const char junk[kPartialBytes] = {};
  AppendBytes(path, junk, sizeof junk);
  const std::vector<unsigned char> unsorted = FileBytes(path);
  const Outcome run = Cjd({"repair", QString::fromStdString(path)});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("cannot repair: record times out of order (record 3: time 1704164645 is not after 1704165245; 1 in all)"));
  EXPECT_THAT(run.err, HasSubstr("the file is unchanged"));
  EXPECT_EQ(FileBytes(path), unsorted);

  WriteFile(path, "not a data file");
  const Outcome header = Cjd({"repair", QString::fromStdString(path)});
  EXPECT_EQ(header.status, 1);
  EXPECT_THAT(header.err, HasSubstr("header does not load"));
  EXPECT_EQ(FileBytes(path).size(), std::strlen("not a data file"));
}

// --- command line -----------------------------------------------------------

TEST(CjdCommandLineTest, HelpOnTheProgramAndEveryCommand) {
  const Outcome program = Cjd({"--help"});
  EXPECT_EQ(program.status, 0);
  EXPECT_THAT(program.out, HasSubstr("usage: cjd COMMAND"));
  for (const char* command : {"info", "dump", "check", "ls", "repair"}) {
    const Outcome run = Cjd({command, "--help"});
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_THAT(run.out, HasSubstr(std::string("usage: cjd ") + command)) << command;
  }
}

TEST(CjdCommandLineTest, BadArgumentsExitWith2) {
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
