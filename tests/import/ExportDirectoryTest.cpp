// The export directory: MASTER entries, finding files whatever their case,
// date and time floats, first and last dates of data files.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "ExportDirectory.h"
#include "ImportTestSupport.h"

namespace {

ExportIndexRecord Daily(int number, const char* symbol) { return {number, 28, 7, 'D', 0, symbol}; }

// "n R fields letter size [symbol] period text"; a zero letter shows as '-'.
std::string Describe(IndexEntry const& e) {
  const QString letter = e.periodLetter() == 0 ? QStringLiteral("-") : QString(QLatin1Char(e.periodLetter()));
  return QStringLiteral("%1 %2 %3 %4 %5 [%6] %7")
      .arg(e.fileNumber())
      .arg(e.recordLength())
      .arg(e.fieldCount())
      .arg(letter)
      .arg(e.intradaySize())
      .arg(e.symbol(), e.periodText())
      .toStdString();
}

bool IsZero(IndexEntry const& entry) {
  return std::all_of(std::begin(entry.bytes), std::end(entry.bytes), [](unsigned char b) { return b == 0; });
}

// ---------------------------------------------------------------------------
// MASTER.

TEST(ReadMasterTest, EntriesCarryTheirRecordFields) {
  ExportDir dir;
  dir.WriteMaster({{12, 28, 7, 'D', 0, "EURUSD"}, {200, 32, 8, 'I', 15, "ABC DEF"}, {3, 32, 8, 'I', -3, "X"}});
  const std::vector<IndexEntry> entries = ReadMaster(dir.path());
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].bytes[0], 0);
  EXPECT_EQ(Describe(entries[0]), "12 28 7 D 0 [EURUSD           ] D");  // padded to 17 bytes
  EXPECT_EQ(Describe(entries[1]), "200 32 8 I 15 [ABC DEF          ] I  15");
  EXPECT_EQ(Describe(entries[2]), "3 32 8 I -3 [X                ] I  -3");
}

TEST(ReadMasterTest, SymbolEndsAtZeroOrAfterSeventeenBytes) {
  ExportDir dir;
  QByteArray cut = EncodeIndexRecord(Daily(2, "AB"));
  cut[36 + 2] = '\0';
  dir.Write("MASTER", EncodeMasterHeader(2) + EncodeIndexRecord(Daily(1, "ABCDEFGHIJKLMNOPQ")) + cut);
  const std::vector<IndexEntry> entries = ReadMaster(dir.path());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].symbol(), "ABCDEFGHIJKLMNOPQ");
  EXPECT_EQ(entries[1].symbol(), "AB");
}

TEST(ReadMasterTest, NoFileEmptyFileOrCountBelowOneGiveNoEntries) {
  ExportDir dir;
  EXPECT_FALSE(MasterExists(dir.path()));
  EXPECT_TRUE(ReadMaster(dir.path()).empty());
  EXPECT_TRUE(ReadMaster(dir.path() + "/absent").empty());
  for (int count : {0, -1, -32768}) {
    dir.Write("MASTER", EncodeMasterHeader(count) + EncodeIndexRecord(Daily(1, "EURUSD")));
    EXPECT_TRUE(ReadMaster(dir.path()).empty()) << count;
  }
  dir.Write("MASTER", QByteArray());
  EXPECT_TRUE(ReadMaster(dir.path()).empty());
}

TEST(ReadMasterTest, ShortFileGivesZeroFilledEntries) {
  ExportDir dir;
  const QByteArray second = EncodeIndexRecord(Daily(2, "GBPUSD"));
  dir.Write("MASTER", EncodeMasterHeader(3) + EncodeIndexRecord(Daily(1, "EURUSD")) + second.left(10));
  const std::vector<IndexEntry> entries = ReadMaster(dir.path());
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].fileNumber(), 1);
  EXPECT_EQ(Describe(entries[1]), "2 28 7 - 0 [] ");  // the part that is there, zeros for the rest
  EXPECT_TRUE(IsZero(entries[2]));

  dir.Write("MASTER", QByteArray(1, '\x05'));  // half a count: the header is zero-filled
  const std::vector<IndexEntry> blank = ReadMaster(dir.path());
  ASSERT_EQ(blank.size(), 5u);
  EXPECT_TRUE(IsZero(blank[4]));
}

TEST(FindIndexEntryTest, FirstEntryWithBothTexts) {
  ExportDir dir;
  dir.WriteMaster({{1, 28, 7, 'D', 0, "EURUSD"}, {2, 32, 8, 'I', 5, "EURUSD"}, {3, 28, 5, 'D', 0, "EURUSD"}});
  const std::vector<IndexEntry> entries = ReadMaster(dir.path());
  EXPECT_EQ(FindIndexEntry(entries, "EURUSD           ", "D"), 0);
  EXPECT_EQ(FindIndexEntry(entries, "EURUSD           ", "I  5"), 1);
  EXPECT_EQ(FindIndexEntry(entries, "EURUSD           ", "I5"), -1);
  EXPECT_EQ(FindIndexEntry(entries, "EURUSD", "D"), -1);
}

// ---------------------------------------------------------------------------
// Files whatever their case.

TEST(FileCaseTest, ExactNamesFirstThenAnyCase) {
  ExportDir dir;
  dir.WriteMaster({Daily(1, "EURUSD")}, "master");
  dir.Write("F12.DAT", QByteArray(56, '\0'));
  EXPECT_EQ(DataFilePath(dir.path(), 1), dir.FilePath("F1.dat"));  // missing: the exact name, not F12.DAT
  EXPECT_EQ(DataFilePath(dir.path(), 0), dir.FilePath("F0.dat"));
  EXPECT_EQ(DataFilePath(dir.path(), 12), dir.FilePath("F12.DAT"));
  dir.Write("F1.DAT", QByteArray(56, '\0'));
  EXPECT_TRUE(MasterExists(dir.path()));
  EXPECT_EQ(ReadMaster(dir.path()).size(), 1u);
  EXPECT_EQ(DataFilePath(dir.path(), 1), dir.FilePath("F1.DAT"));

  dir.Write("F1.dat", QByteArray(56, '\0'));
  EXPECT_EQ(DataFilePath(dir.path(), 1), dir.FilePath("F1.dat"));
  dir.WriteMaster({Daily(1, "EURUSD"), Daily(2, "GBPUSD")}, "MASTER");
  EXPECT_EQ(ReadMaster(dir.path()).size(), 2u);
}

// ---------------------------------------------------------------------------
// Date and time floats.

using DateFloatTest = PinnedTimeZone;

TEST_F(DateFloatTest, FullDates) {
  const std::pair<int, QDate> cases[] = {
      {1000229, QDate(2000, 2, 29)}, {991231, QDate(1999, 12, 31)},
      {991332, QDate(1999, 1, 1)},   // month 13 and day 32 become 1
      {991200, QDate(1999, 12, 1)},  {10001011, QDate(2000, 1, 1)},  // seven or more digits: three of year
      {1370915, QDate(2037, 9, 15)},
  };
  for (auto const& [value, date] : cases) {
    bool ok = false;
    EXPECT_EQ(converIeeeToDate(MbfInteger(value), ok), date) << value;
    EXPECT_TRUE(ok) << value;
  }
}

TEST_F(DateFloatTest, FallbacksToToday) {
  bool ok = false;
  EXPECT_EQ(converIeeeToDate(0.0f, ok), QDate::currentDate());
  EXPECT_FALSE(ok);  // zero leaves ok as it was
  EXPECT_EQ(converIeeeToDate(AsFloat(0x01000000), ok), QDate::currentDate());  // refused word counts as 0
  EXPECT_FALSE(ok);
  EXPECT_EQ(converIeeeToDate(MbfInteger(12345), ok), QDate::currentDate());  // five digits
  EXPECT_TRUE(ok);
}

TEST_F(DateFloatTest, ImpossibleAndUnprintableDates) {
  bool ok = false;
  EXPECT_FALSE(converIeeeToDate(MbfInteger(1000230), ok).isValid());  // 30 February
  EXPECT_TRUE(ok);
  EXPECT_FALSE(converIeeeToDate(MbfInteger(990229), ok).isValid());   // 1999 is no leap year
  EXPECT_FALSE(converIeeeToDate(AsFloat(MbfWord(3.0e9f)), ok).isValid());  // beyond an int
  EXPECT_FALSE(ok);
}

TEST_F(DateFloatTest, Times) {
  const std::pair<int, QTime> cases[] = {
      {93000, QTime(9, 30, 0)},     {7, QTime(0, 0, 7)},     {0, QTime(0, 0, 0)},   {930, QTime(0, 9, 30)},
      {235959, QTime(23, 59, 59)},  {75, QTime(0, 0, 59)},   {1275, QTime(0, 12, 59)},  // seconds above 59
      {12345678, QTime(0, 0, 0)},  // more than seven digits: midnight
  };
  for (auto const& [value, time] : cases) {
    bool ok = true;
    EXPECT_EQ(converIeeeToTime(MbfInteger(value), ok), time) << value;
    EXPECT_TRUE(ok) << value;
  }
  bool ok = false;
  EXPECT_EQ(converIeeeToTime(MbfInteger(93000), ok), QTime(9, 30));
  EXPECT_FALSE(ok);  // success leaves ok as it was
}

TEST_F(DateFloatTest, InvalidTimes) {
  for (int value : {246000, 1234567, 6000, 996000, -5, -930, -5930}) {
    bool ok = true;
    EXPECT_TRUE(converIeeeToTime(MbfInteger(value), ok).isNull()) << value;
    EXPECT_FALSE(ok) << value;
  }
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
    EXPECT_EQ(getFirstTime(28, 'D', dir.FilePath(name)) + getLastTime(28, 'D', dir.FilePath(name)), "")
        << name.toStdString();
  }
  EXPECT_EQ(getFirstTime(0, 'D', dir.FilePath("F1.dat")), "");
  EXPECT_EQ(getLastTime(-4, 'D', dir.FilePath("F1.dat")), "");
  EXPECT_EQ(getFirstTime(4, 'D', dir.FilePath("F2.dat")), "02.01.24");
  EXPECT_EQ(getFirstTime(4, 'I', dir.FilePath("F2.dat")), "");
}

}  // namespace
