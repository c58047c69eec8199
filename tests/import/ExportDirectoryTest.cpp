// The export directory: MASTER entries, finding files whatever their case,
// date and time floats, first and last dates of data files.
#include <gtest/gtest.h>

#include "ExportDirectory.h"
#include "ExportIndex.h"
#include "ImportTestSupport.h"

namespace {

ExportIndexRecord Daily(int number, const char* symbol) { return {number, 28, 7, 'D', 0, symbol}; }

// "n R fields letter size [symbol] period text"; a zero letter shows as '-'.
std::string Describe(IndexEntry const& e) {
  const char letter = e.periodLetter == 0 ? '-' : e.periodLetter;
  return QString::asprintf("%d %d %d %c %d ", e.fileNumber, e.recordLength, e.fieldCount, letter,
                           e.intradaySize)
      .append("[" + e.symbol + "] " + e.periodText())
      .toStdString();
}

// ---------------------------------------------------------------------------
// MASTER.

TEST(ReadMasterTest, EntriesCarryTheirRecordFieldsAndWholeTrimmedSymbols) {
  ExportDir dir;
  QByteArray master = EncodeMaster({{12, 28, 7, 'D', 0, "EURUSD"},
                                    {200, 32, 8, 'I', 15, "BRK A"},
                                    {3, 32, 8, 'I', -3, " BRK B"},
                                    Daily(4, "EURUSD"),
                                    Daily(5, "ABCDEFGHIJKLMNOPQ"),
                                    Daily(6, "AB")});
  master[master.size() - kIndexSymbolSize + 2] = '\0';  // the last symbol ends at a zero byte
  dir.Write("MASTER", master);
  dir.WriteData(12, 28, {});
  const std::vector<IndexEntry> entries = ReadExportIndex(dir.path());
  ASSERT_EQ(entries.size(), 6u);
  EXPECT_EQ(Describe(entries[0]), "12 28 7 D 0 [EURUSD] D");
  EXPECT_EQ(Describe(entries[1]), "200 32 8 I 15 [BRK A] I  15");  // spaces inside are kept
  EXPECT_EQ(Describe(entries[2]), "3 32 8 I -3 [BRK B] I  -3");    // leading ones are not
  EXPECT_EQ(entries[4].symbol, "ABCDEFGHIJKLMNOPQ");
  EXPECT_EQ(entries[5].symbol, "AB");
  EXPECT_EQ(entries[0].dataFile, dir.FilePath("F12.dat"));
  EXPECT_EQ(entries[1].dataFile, "");  // none
  EXPECT_EQ(entries[0].dataFileName(), "F12.dat");
  for (IndexEntry const& entry : entries) EXPECT_EQ(entry.source, IndexFile::kMaster);
}

TEST(ReadMasterTest, MissingEmptyAndShortFiles) {
  ExportDir dir;
  EXPECT_FALSE(IndexExists(dir.path()));
  EXPECT_TRUE(ReadExportIndex(dir.path()).empty());
  EXPECT_TRUE(ReadExportIndex(dir.path() + "/absent").empty());
  for (int count : {0, -1, -32768}) {
    dir.Write("MASTER", EncodeMasterHeader(count) + EncodeIndexRecord(Daily(1, "EURUSD")));
    EXPECT_TRUE(ReadExportIndex(dir.path()).empty()) << count;
  }
  dir.Write("MASTER", QByteArray());
  EXPECT_TRUE(ReadExportIndex(dir.path()).empty());

  // Records the file lacks are zero-filled; one cut short keeps the bytes it has.
  const QByteArray cut = EncodeIndexRecord(Daily(2, "GBPUSD")).left(10);
  dir.Write("MASTER", EncodeMasterHeader(3) + EncodeIndexRecord(Daily(1, "EURUSD")) + cut);
  std::vector<IndexEntry> entries = ReadExportIndex(dir.path());
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].fileNumber, 1);
  EXPECT_EQ(Describe(entries[1]), "2 28 7 - 0 [] ");
  EXPECT_EQ(Describe(entries[2]), "0 0 0 - 0 [] ");

  dir.Write("MASTER", QByteArray(1, '\x05'));  // half a count: the header is zero-filled
  entries = ReadExportIndex(dir.path());
  ASSERT_EQ(entries.size(), 5u);
  EXPECT_EQ(Describe(entries[4]), "0 0 0 - 0 [] ");
}

// ---------------------------------------------------------------------------
// EMASTER and XMASTER.

ExportIndexRecord Named(ExportIndexRecord record, const char* name) {
  record.name = name;
  return record;
}

TEST(ReadExportIndexTest, EmasterLendsLongNamesOnlyWhereItAgreesWithMaster) {
  ExportDir dir;
  const std::vector<ExportIndexRecord> master = {Daily(1, "BRK A"), Daily(2, "BRK B"),
                                                 Daily(3, "SPY")};
  dir.WriteMaster(master);
  std::vector<ExportIndexRecord> emaster = {Named(master[0], "Berkshire A"), Named(master[1], ""),
                                            Named(Daily(3, "QQQ"), "Another symbol")};
  QByteArray bytes = EncodeEmaster(emaster);
  bytes[192 + 3] = '\x7F';                  // a u8 file number with a stray byte after it
  bytes.replace(2 * 192 + 32, 5, "B cls");  // a short name stands in for a missing long one
  dir.Write("EMASTER", bytes);
  std::vector<IndexEntry> entries = ReadExportIndex(dir.path());
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].fullName, "Berkshire A");
  EXPECT_EQ(entries[1].fullName.left(5), "B cls");
  EXPECT_EQ(entries[2].fullName, "");  // another symbol under that number

  emaster.pop_back();  // a stale EMASTER of another count is ignored
  dir.Write("EMASTER", EncodeEmaster(emaster));
  for (IndexEntry const& entry : ReadExportIndex(dir.path()))
    EXPECT_EQ(entry.fullName, "") << entry.symbol.toStdString();
}

TEST(ReadExportIndexTest, XmasterEntriesFollowMastersWithTheirFieldSets) {
  ExportDir dir;
  dir.WriteMaster({Daily(1, "EURUSD")});
  ExportIndexRecord intraday{256, 0, 8, 'I', 5, "BRK B"};
  intraday.name = "Berkshire Hathaway Class B";
  ExportIndexRecord daily{300, 0, 5, 'D', 0, "  SPY"};
  ExportIndexRecord odd{301, 0, 0, 'W', 0, "ODD"};
  odd.fieldBits = 0x0F;  // date, high, low, close
  dir.Write("xmaster", EncodeXmaster({intraday, daily, odd}));
  dir.Write("f256.mwd", QByteArray(64, '\0'));
  const std::vector<IndexEntry> entries = ReadExportIndex(dir.path());
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0].source, IndexFile::kMaster);
  EXPECT_EQ(Describe(entries[1]), "256 32 8 I 5 [BRK B] I  5");
  EXPECT_EQ(entries[1].fullName, "Berkshire Hathaway Class B");
  EXPECT_EQ(entries[1].source, IndexFile::kXmaster);
  EXPECT_EQ(entries[1].dataFileName(), "F256.MWD");
  EXPECT_EQ(entries[1].dataFile, dir.FilePath("f256.mwd"));
  EXPECT_EQ(Describe(entries[2]), "300 20 5 D 0 [SPY] D");
  EXPECT_EQ(entries[2].dataFile, "");
  EXPECT_EQ(Describe(entries[3]), "301 16 4 W 0 [ODD] W");
}

TEST(ReadExportIndexTest, XmasterIsReadOnlyAsFarAsItIsThere) {
  ExportDir dir;
  dir.WriteMaster({Daily(1, "EURUSD")});
  const QByteArray records =
      EncodeXmasterRecord({256, 0, 6, 'D', 0, "A"}) + EncodeXmasterRecord({257, 0, 6, 'D', 0, "B"});
  const std::pair<QByteArray, std::size_t> cases[] = {
      {EncodeXmasterHeader(2, 258) + records, 3},
      {EncodeXmasterHeader(40, 258) + records, 3},           // a count beyond the file
      {EncodeXmasterHeader(2, 258) + records.left(200), 2},  // a record cut short
      {EncodeXmasterHeader(0, 256) + records, 1},
      {QByteArray("]\xFEXN") + EncodeXmasterHeader(2, 258).mid(4) + records, 1},  // wrong magic
      {EncodeXmasterHeader(2, 258).left(100), 1},
  };
  for (auto const& [bytes, entries] : cases) {
    dir.Write("XMASTER", bytes);
    EXPECT_EQ(ReadExportIndex(dir.path()).size(), entries) << bytes.size();
  }
  dir.Write("MASTER", QByteArray());  // XMASTER alone is an index too
  dir.Write("XMASTER", EncodeXmasterHeader(2, 258) + records);
  EXPECT_TRUE(IndexExists(dir.path()));
  EXPECT_EQ(ReadExportIndex(dir.path()).size(), 2u);
}

// ---------------------------------------------------------------------------
// Files whatever their case.

TEST(FileCaseTest, ExactNamesFirstThenAnyCase) {
  ExportDir dir;
  dir.WriteMaster({Daily(1, "EURUSD")}, "master");
  dir.Write("F12.DAT", QByteArray(56, '\0'));
  dir.Write("f300.mwd", QByteArray(56, '\0'));
  auto find = [&dir](const char* name) { return ExportFolder(dir.path()).Find(name); };
  EXPECT_EQ(find("F1.dat"), "");  // missing: not F12.DAT
  EXPECT_EQ(find("F12.dat"), dir.FilePath("F12.DAT"));
  EXPECT_EQ(find("F300.MWD"), dir.FilePath("f300.mwd"));
  dir.Write("F1.DAT", QByteArray(56, '\0'));
  EXPECT_TRUE(IndexExists(dir.path()));
  EXPECT_EQ(ReadExportIndex(dir.path()).at(0).dataFile, dir.FilePath("F1.DAT"));

  dir.Write("F1.dat", QByteArray(56, '\0'));
  EXPECT_EQ(find("F1.dat"), dir.FilePath("F1.dat"));
  EXPECT_EQ(find("f1.DAT"), dir.FilePath("F1.DAT"));  // the first in name order
  dir.WriteMaster({Daily(1, "EURUSD"), Daily(2, "GBPUSD")}, "MASTER");
  EXPECT_EQ(ReadExportIndex(dir.path()).size(), 2u);
}

// ---------------------------------------------------------------------------
// Date and time floats.

// Dates decode to a day or to nothing: never today, never 1970.
TEST(DateFloatTest, Dates) {
  using namespace std::chrono;
  const std::pair<float, std::optional<year_month_day>> cases[] = {
      {MbfInteger(1000229), 2000y / 2 / 29},
      {MbfInteger(991231), 1999y / 12 / 31},
      {MbfInteger(991332), 1999y / 1 / 1},  // month 13 and day 32 become 1
      {MbfInteger(991200), 1999y / 12 / 1},
      {MbfInteger(10001011), 2000y / 1 / 1},  // seven or more digits: three of year
      {MbfInteger(1370915), 2037y / 9 / 15},
      {MbfInteger(-991231), 1801y / 12 / 31},  // the sign takes the first of three year characters
      {0.0f, std::nullopt},
      {AsFloat(0x01000000), std::nullopt},       // a refused word counts as 0
      {MbfInteger(12345), std::nullopt},         // five digits
      {MbfInteger(1000230), std::nullopt},       // 30 February
      {MbfInteger(990229), std::nullopt},        // 1999 is no leap year
      {AsFloat(MbfWord(3.0e9f)), std::nullopt},  // beyond an int
  };
  for (auto const& [mbf, date] : cases) EXPECT_EQ(ExportDate(mbf), date) << Bits(mbf);
}

TEST(DateFloatTest, Times) {
  const std::pair<int, std::optional<int>> cases[] = {
      {93000, 9 * 3600 + 30 * 60},
      {7, 7},
      {0, 0},
      {930, 9 * 60 + 30},
      {235959, 86399},
      {75, 59},
      {1275, 12 * 60 + 59},  // seconds above 59
      {12345678, 0},         // more than seven digits: midnight
      {246000, std::nullopt},
      {1234567, std::nullopt},
      {6000, std::nullopt},
      {996000, std::nullopt},
      {-5, std::nullopt},
      {-930, std::nullopt},
      {-5930, std::nullopt},
  };
  for (auto const& [value, seconds] : cases)
    EXPECT_EQ(ExportTimeOfDay(MbfInteger(value)), seconds) << value;
}

TEST(DateFloatTest, UtcSecondsFitThirtyTwoBits) {
  using namespace std::chrono;
  EXPECT_EQ(UtcSeconds(1970y / 1 / 1, 0), 0);
  EXPECT_EQ(UtcSeconds(2024y / 2 / 29, 86399), 1709251199);
  EXPECT_EQ(UtcSeconds(2038y / 1 / 19, 3 * 3600 + 14 * 60 + 7), INT32_MAX);
  EXPECT_EQ(UtcSeconds(2038y / 1 / 19, 3 * 3600 + 14 * 60 + 8), std::nullopt);
  EXPECT_EQ(UtcSeconds(1901y / 12 / 13, 20 * 3600 + 45 * 60 + 52), INT32_MIN);
  EXPECT_EQ(UtcSeconds(1901y / 12 / 13, 20 * 3600 + 45 * 60 + 51), std::nullopt);
}

// ---------------------------------------------------------------------------
// First and last dates of a data file. Their values are checked on every
// generated instrument and in the import dialog's table.

using RecordTimeTest = PinnedTimeZone;

TEST_F(RecordTimeTest, NothingToReadGivesEmptyText) {
  ExportDir dir;
  dir.WriteData(1, 28, {});
  dir.WriteData(2, 4, {{MbfDate(QDate(2024, 1, 2))}});  // one record, too short for a time
  for (QString name : {"F1.dat", "absent.dat"}) {
    EXPECT_EQ(getFirstTime(28, 'D', dir.FilePath(name)) + getLastTime(28, 'D', dir.FilePath(name)),
              "")
        << name.toStdString();
  }
  EXPECT_EQ(getFirstTime(0, 'D', dir.FilePath("F1.dat")), "");
  EXPECT_EQ(getLastTime(-4, 'D', dir.FilePath("F1.dat")), "");
  EXPECT_EQ(getFirstTime(4, 'D', dir.FilePath("F2.dat")), "02.01.24");
  EXPECT_EQ(getFirstTime(4, 'I', dir.FilePath("F2.dat")), "");
}

// The first and last counted records, whatever follows them; a date that does
// not decode shows nothing, never today.
TEST_F(RecordTimeTest, DatesOfTheCountedRecords) {
  ExportDir dir;
  const QByteArray file =
      EncodeDataFile(32, {{MbfDate(QDate(2024, 1, 2)), MbfTime(QTime(9, 5))},
                          {MbfDate(QDate(2024, 1, 3)), MbfTime(QTime(17, 0, 1))}});
  dir.Write("F1.dat", WithHeaderCount(file + QByteArray(3 * 32, '\0'), 3));  // a zero-filled tail
  dir.Write("F2.dat", WithHeaderCount(file + QByteArray(31, '\x7F'), 0));    // a partial record
  dir.Write("F3.dat", WithHeaderCount(file, 2));  // the last one uncounted
  dir.Write("F4.dat", EncodeDataFile(32, {{0, 0}}));
  for (const char* name : {"F1.dat", "F2.dat"}) {
    EXPECT_EQ(getFirstTime(32, 'I', dir.FilePath(name)), "02.01.24 09:05:00");
    EXPECT_EQ(getLastTime(32, 'I', dir.FilePath(name)), "03.01.24 17:00:01") << name;
  }
  EXPECT_EQ(getLastTime(32, 'D', dir.FilePath("F3.dat")), "02.01.24");
  const DataFileSpan span = ReadDataFileSpan(dir.FilePath("F1.dat"), 32, 'D');
  EXPECT_EQ(span.records, 2);
  EXPECT_EQ(span.first + "|" + span.last, "02.01.24|03.01.24");
  EXPECT_EQ(getFirstTime(32, 'D', dir.FilePath("F4.dat")), "");
}

}  // namespace
