// The export directory: MASTER entries, finding files whatever their case,
// date and time floats, first and last dates of data files.
#include <gtest/gtest.h>

#include <QFileInfo>

#include "ExportDirectory.h"
#include "ImportTestSupport.h"

namespace {

ExportIndexRecord Daily(int number, const char* symbol) { return {number, 28, 7, 'D', 0, symbol}; }

// ---------------------------------------------------------------------------
// MASTER.

TEST(ReadMasterTest, EntriesCarryTheirRecordFields) {
  ExportDir dir;
  dir.WriteMaster({{12, 28, 7, 'D', 0, "EURUSD"}, {200, 32, 8, 'I', 15, "ABC DEF"}, {3, 32, 8, 'I', -3, "X"}});
  const std::vector<IndexEntry> entries = ReadMaster(dir.path());
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].bytes[0], 0);
  EXPECT_EQ(entries[0].fileNumber(), 12);
  EXPECT_EQ(entries[0].recordLength(), 28);
  EXPECT_EQ(entries[0].fieldCount(), 7);
  EXPECT_EQ(entries[0].periodLetter(), 'D');
  EXPECT_EQ(entries[0].symbol(), "EURUSD           ");  // padded to 17 bytes
  EXPECT_EQ(entries[0].periodText(), "D");
  EXPECT_EQ(entries[1].fileNumber(), 200);
  EXPECT_EQ(entries[1].intradaySize(), 15);
  EXPECT_EQ(entries[1].periodText(), "I  15");
  EXPECT_EQ(entries[2].intradaySize(), -3);
  EXPECT_EQ(entries[2].periodText(), "I  -3");
}

TEST(ReadMasterTest, SymbolEndsAtZeroOrAfterSeventeenBytes) {
  ExportDir dir;
  QByteArray master = EncodeMasterHeader(2);
  QByteArray full = EncodeIndexRecord(Daily(1, "ABCDEFGHIJKLMNOPQ"));
  QByteArray cut = EncodeIndexRecord(Daily(2, "AB"));
  cut[36 + 2] = '\0';
  master += full + cut;
  dir.Write("MASTER", master);
  const std::vector<IndexEntry> entries = ReadMaster(dir.path());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].symbol(), "ABCDEFGHIJKLMNOPQ");
  EXPECT_EQ(entries[1].symbol(), "AB");
}

TEST(ReadMasterTest, CountsBelowOneGiveNoEntries) {
  ExportDir dir;
  for (int count : {0, -1, -32768}) {
    QByteArray master = EncodeMasterHeader(count) + EncodeIndexRecord(Daily(1, "EURUSD"));
    dir.Write("MASTER", master);
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
  EXPECT_EQ(entries[1].fileNumber(), 2);      // the part that is there
  EXPECT_EQ(entries[1].recordLength(), 28);
  EXPECT_EQ(entries[1].periodLetter(), 0);    // the part that is not
  EXPECT_EQ(entries[1].symbol(), "");
  const IndexEntry zero{};
  EXPECT_EQ(std::memcmp(entries[2].bytes, zero.bytes, kIndexEntrySize), 0);

  dir.Write("MASTER", QByteArray(1, '\x05'));  // half a count: the header is zero-filled
  const std::vector<IndexEntry> blank = ReadMaster(dir.path());
  ASSERT_EQ(blank.size(), 5u);
  EXPECT_EQ(std::memcmp(blank[4].bytes, zero.bytes, kIndexEntrySize), 0);
}

TEST(ReadMasterTest, NoMasterNoEntries) {
  ExportDir dir;
  EXPECT_FALSE(MasterExists(dir.path()));
  EXPECT_TRUE(ReadMaster(dir.path()).empty());
  EXPECT_TRUE(ReadMaster(dir.path() + "/absent").empty());
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
  dir.Write("F1.DAT", QByteArray(56, '\0'));
  EXPECT_TRUE(MasterExists(dir.path()));
  EXPECT_EQ(ReadMaster(dir.path()).size(), 1u);
  EXPECT_EQ(DataFilePath(dir.path(), 1), dir.FilePath("F1.DAT"));

  dir.Write("F1.dat", QByteArray(56, '\0'));
  EXPECT_EQ(DataFilePath(dir.path(), 1), dir.FilePath("F1.dat"));
  dir.WriteMaster({Daily(1, "EURUSD"), Daily(2, "GBPUSD")}, "MASTER");
  EXPECT_EQ(ReadMaster(dir.path()).size(), 2u);
}

TEST(FileCaseTest, MissingFileKeepsItsExactName) {
  ExportDir dir;
  dir.Write("F12.DAT", QByteArray(56, '\0'));
  EXPECT_EQ(DataFilePath(dir.path(), 12), dir.FilePath("F12.DAT"));
  EXPECT_EQ(DataFilePath(dir.path(), 1), dir.FilePath("F1.dat"));  // F12.DAT is not F1.dat
  EXPECT_FALSE(QFileInfo::exists(DataFilePath(dir.path(), 1)));
  EXPECT_EQ(DataFilePath(dir.path(), 0), dir.FilePath("F0.dat"));
}

// ---------------------------------------------------------------------------
// Date and time floats.

using DateFloatTest = PinnedTimeZone;

TEST_F(DateFloatTest, FullDates) {
  struct Case {
    int value;
    QDate date;
  };
  const Case cases[] = {
      {1000229, QDate(2000, 2, 29)}, {991231, QDate(1999, 12, 31)}, {1000101, QDate(2000, 1, 1)},
      {991332, QDate(1999, 1, 1)},   // month 13 and day 32 become 1
      {991200, QDate(1999, 12, 1)},  {10001011, QDate(2000, 1, 1)},  // seven or more digits: three of year
      {1370915, QDate(2037, 9, 15)},
  };
  for (Case const& c : cases) {
    bool ok = false;
    EXPECT_EQ(converIeeeToDate(MbfInteger(c.value), ok), c.date) << c.value;
    EXPECT_TRUE(ok) << c.value;
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
  struct Case {
    int value;
    QTime time;
  };
  const Case cases[] = {
      {93000, QTime(9, 30, 0)}, {7, QTime(0, 0, 7)},     {0, QTime(0, 0, 0)},     {930, QTime(0, 9, 30)},
      {1230, QTime(0, 12, 30)}, {235959, QTime(23, 59, 59)}, {75, QTime(0, 0, 59)},  // seconds above 59
      {1275, QTime(0, 12, 59)}, {12345678, QTime(0, 0, 0)},  // more than seven digits: midnight
  };
  for (Case const& c : cases) {
    bool ok = true;
    EXPECT_EQ(converIeeeToTime(MbfInteger(c.value), ok), c.time) << c.value;
    EXPECT_TRUE(ok) << c.value;
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
// First and last dates of a data file.

using RecordTimeTest = PinnedTimeZone;

TEST_F(RecordTimeTest, DailyAndIntraday) {
  ExportDir dir;
  dir.WriteData(1, 28, {{MbfDate(QDate(2015, 1, 2)), MbfWord(1.1f)}, {MbfDate(QDate(2015, 1, 5))},
                        {MbfDate(QDate(2016, 3, 9))}});
  dir.WriteData(2, 32, {{MbfDate(QDate(2024, 1, 2)), MbfTime(QTime(9, 30, 5))},
                        {MbfDate(QDate(2024, 1, 3)), MbfTime(QTime(17, 0))}});
  EXPECT_EQ(getFirstTime(28, 'D', dir.FilePath("F1.dat")), "02.01.15");
  EXPECT_EQ(getLastTime(28, 'D', dir.FilePath("F1.dat")), "09.03.16");
  EXPECT_EQ(getFirstTime(32, 'I', dir.FilePath("F2.dat")), "02.01.24 09:30:05");
  EXPECT_EQ(getLastTime(32, 'I', dir.FilePath("F2.dat")), "03.01.24 17:00:00");
}

TEST_F(RecordTimeTest, NothingToReadGivesEmptyText) {
  ExportDir dir;
  dir.WriteData(1, 28, {});
  dir.WriteData(2, 4, {{MbfDate(QDate(2024, 1, 2))}});  // one record, too short for a time
  for (QString name : {"F1.dat", "absent.dat"}) {
    EXPECT_EQ(getFirstTime(28, 'D', dir.FilePath(name)), "") << name.toStdString();
    EXPECT_EQ(getLastTime(28, 'D', dir.FilePath(name)), "") << name.toStdString();
  }
  EXPECT_EQ(getFirstTime(0, 'D', dir.FilePath("F1.dat")), "");
  EXPECT_EQ(getLastTime(-4, 'D', dir.FilePath("F1.dat")), "");
  EXPECT_EQ(getFirstTime(4, 'D', dir.FilePath("F2.dat")), "02.01.24");
  EXPECT_EQ(getFirstTime(4, 'I', dir.FilePath("F2.dat")), "");
}

}  // namespace
