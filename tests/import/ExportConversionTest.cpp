// Converting one instrument: field maps, record counts, UTC times, skipped
// records, the symbol record, tick layout, hostile index records and the
// progress callback.
#include <gtest/gtest.h>

#include <QDateTime>
#include <QFileInfo>
#include <array>
#include <chrono>

#include "DataPoint.h"
#include "ExportConversion.h"
#include "ExportDirectory.h"
#include "ImportTestSupport.h"

namespace {

const QDate kDay(2015, 1, 2);
const std::int32_t kDaySeconds = 1420156800;  // 2015-01-02 00:00 UTC
const std::int32_t kBarSeconds =
    kDaySeconds + 9 * 3600 + 1800;  // 09:30, the time of an intraday Row()

// The entry a MASTER record gives, its data file in dir.
IndexEntry Entry(ExportDir const& dir, ExportIndexRecord const& record) {
  IndexEntry entry;
  entry.fileNumber = record.fileNumber;
  entry.recordLength = record.recordLength;
  entry.fieldCount = record.fieldCount;
  entry.periodLetter = record.period;
  entry.intradaySize = record.intradaySize;
  entry.symbol = QString::fromLatin1(record.symbol);
  const QString file = dir.FilePath(entry.dataFileName());
  if (QFileInfo::exists(file)) entry.dataFile = file;
  return entry;
}

template <typename Point>
std::vector<Point> PointsOf(ConvertedInstrument const& converted) {
  EXPECT_EQ(converted.pointSize, sizeof(Point));
  EXPECT_EQ(converted.points.size(), converted.pointCount * sizeof(Point));
  std::vector<Point> points(converted.points.size() / sizeof(Point));
  std::memcpy(static_cast<void*>(points.data()), converted.points.data(),
              points.size() * sizeof(Point));
  return points;
}
constexpr auto Candles = &PointsOf<CCandleDataPoint>;

using Prices = std::array<float, 5>;  // open, high, low, close, volume
Prices PricesOf(CCandleDataPoint const& c) { return {c.open, c.high, c.low, c.close, c.volume}; }

const Prices kNoPrices{0, 0, 0, 0, 0};

// Distinct values per field: field k holds 0.25 + k (price fields) so that
// every map shows where it read from.
std::vector<std::uint32_t> Row(bool intraday, int fields) {
  std::vector<std::uint32_t> row{MbfDate(kDay)};
  if (intraday) row.push_back(MbfTime(QTime(9, 30)));
  while (int(row.size()) < fields) row.push_back(MbfWord(0.25f + float(row.size())));
  return row;
}

class ConversionTest : public PinnedTimeZone {
 protected:
  // Converts the file of `record` with its own layout.
  bool ConvertFile(ExportIndexRecord const& record, ConvertedInstrument& out,
                   QString const& priceType = "Bid", ConversionProgress const& progress = {}) {
    return ConvertInstrument(Entry(dir, record), priceType, out, progress) ==
           ConversionOutcome::kConverted;
  }
  // Writes F1.dat with R = recordLength and converts it as `record` says.
  ConvertedInstrument Convert(ExportIndexRecord record,
                              std::vector<std::vector<std::uint32_t>> const& rows,
                              bool expectConverted = true) {
    record.fileNumber = 1;
    dir.WriteData(1, record.recordLength, rows);
    ConvertedInstrument converted;
    EXPECT_EQ(ConvertFile(record, converted), expectConverted);
    return converted;
  }
  ExportDir dir;
};

// ---------------------------------------------------------------------------
// Field maps.

TEST_F(ConversionTest, FieldMapsByLetterAndFieldCount) {
  struct Case {
    char letter;
    int fields;
    Prices prices;  // the value of field k is 0.25 + k
  };
  const Case cases[] = {
      {'D', 5, {3.25f, 1.25f, 2.25f, 3.25f, 4.25f}},  // no open: open = close
      {'D', 6, {1.25f, 2.25f, 3.25f, 4.25f, 5.25f}},
      {'D', 7, {1.25f, 2.25f, 3.25f, 4.25f, 5.25f}},
      {'W', 7, {1.25f, 2.25f, 3.25f, 4.25f, 5.25f}},
      {'M', 5, {3.25f, 1.25f, 2.25f, 3.25f, 4.25f}},
      {'Y', 6, {1.25f, 2.25f, 3.25f, 4.25f, 5.25f}},
      {'D', 4, kNoPrices},  // no map: time only
      {'D', 8, kNoPrices},
      {'I', 6, {4.25f, 2.25f, 3.25f, 4.25f, 5.25f}},
      {'I', 7, {2.25f, 3.25f, 4.25f, 5.25f, 6.25f}},
      {'I', 8, {2.25f, 3.25f, 4.25f, 5.25f, 6.25f}},
      {'I', 5, kNoPrices},
      {'I', 9, kNoPrices},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.letter << c.fields);
    const bool intraday = c.letter == 'I';
    const auto candles = Candles(
        Convert({1, 4 * c.fields, c.fields, c.letter, 5, "EURUSD"}, {Row(intraday, c.fields)}));
    ASSERT_EQ(candles.size(), 1u);
    EXPECT_EQ(PricesOf(candles[0]), c.prices);
    EXPECT_EQ(candles[0].time, intraday ? kBarSeconds : kDaySeconds);
  }

  // Prices out of MBF range read as 0.
  const std::vector<std::uint32_t> outOfRange = {MbfDate(kDay), 0x01000000, MbfWord(1.5f),
                                                 0x02FFFFFF, 0};
  EXPECT_EQ(PricesOf(Candles(Convert({1, 28, 7, 'D', 0, "X"}, {outOfRange}))[0]),
            (Prices{0, 1.5f, 0, 0, 0}));
}

// ---------------------------------------------------------------------------
// Records and times.

TEST_F(ConversionTest, RecordsAreThoseTheHeaderCountsAndTheFileHolds) {
  const ExportIndexRecord daily{1, 28, 7, 'D', 0, "EURUSD"};
  const std::vector<std::vector<std::uint32_t>> three(3, Row(false, 7));
  const QByteArray file = EncodeDataFile(28, three);
  const QByteArray zeroTail(5 * 28, '\0');
  struct Case {
    QByteArray bytes;
    int points;
  };
  const Case cases[] = {
      {WithHeaderCount(file, 4), 3},
      {WithHeaderCount(file, 0), 3},                           // 0: the file's size decides
      {WithHeaderCount(file, 3), 2},                           // fewer counted than held
      {WithHeaderCount(file, 40), 3},                          // more counted than held
      {WithHeaderCount(file + zeroTail, 4), 3},                // a zero-filled tail is not data
      {WithHeaderCount(file + QByteArray(27, '\x81'), 0), 3},  // a partial record is not read
      {WithHeaderCount(file, 1), 0},                           // none counted
      {EncodeDataFile(28, {}), 0},                             // the header record only
  };
  for (Case const& c : cases) {
    dir.Write("F1.dat", c.bytes);
    ConvertedInstrument converted;
    EXPECT_EQ(ConvertInstrument(Entry(dir, daily), "Bid", converted),
              c.points > 0 ? ConversionOutcome::kConverted : ConversionOutcome::kNoRecords);
    EXPECT_EQ(converted.pointCount, c.points) << c.bytes.size();
    EXPECT_EQ(converted.points.size(), std::size_t(c.points) * 24);
    EXPECT_EQ(converted.skippedRecords, 0);
  }
  EXPECT_EQ(CountedRecords(28 * 70001, 28, 4465), 70000);  // a u16 count wrapped past 65,535
  EXPECT_EQ(CountedRecords(28 * 70001, 28, 4465 + 7), 70000);
  EXPECT_EQ(CountedRecords(28 * 70001, 28, 4465 - 7), 70000 - 7);

  // File number 0 is F0.dat; a missing file resets the output.
  dir.WriteData(0, 28, {Row(false, 7)});
  ConvertedInstrument converted;
  EXPECT_TRUE(ConvertFile({0, 28, 7, 'D', 0, "X"}, converted));
  EXPECT_EQ(ConvertInstrument(Entry(dir, {9, 28, 7, 'D', 0, "X"}), "Bid", converted),
            ConversionOutcome::kMissingFile);
  EXPECT_EQ(converted.pointCount, 0);
  EXPECT_TRUE(converted.points.empty());
}

// The same records give the same seconds under every zone: dates and times
// are UTC. Berlin's clocks go forward at 02:00 on 2024-03-31; Amman's at
// midnight before 2022-02-25.
TEST_F(ConversionTest, TimesAreUtcUnderAnyZone) {
  std::vector<std::vector<std::uint32_t>> rows;
  for (int minute = 0; minute < 60; minute += 5) {
    rows.push_back({MbfDate(QDate(2024, 3, 31)), MbfTime(QTime(2, minute))});
  }
  rows.push_back({MbfDate(QDate(2022, 2, 25)), MbfTime(QTime(0, 0))});
  rows.push_back({MbfDate(QDate(2024, 7, 15)), MbfTime(QTime(0, 0))});
  std::vector<std::int32_t> expected;
  for (int minute = 0; minute < 60; minute += 5) expected.push_back(1711850400 + minute * 60);
  expected.push_back(1645747200);
  expected.push_back(1721001600);
  for (const char* zone :
       {"UTC", "Europe/Berlin", "Asia/Amman", "CET-1CEST,M3.5.0,M10.5.0/3", ""}) {
    Pin(zone);
    const auto candles = Candles(Convert({1, 32, 8, 'I', 5, "EURUSD"}, rows));
    std::vector<std::int32_t> times;
    for (auto const& candle : candles) times.push_back(candle.time);
    EXPECT_EQ(times, expected) << zone;
  }
}

// Records whose date or time does not decode are counted, never stored.
TEST_F(ConversionTest, UndecodableRecordsAreSkippedAndCounted) {
  const std::vector<std::vector<std::uint32_t>> rows = {
      {MbfDate(kDay), MbfWord(246000.0f)},          // hour 24
      {MbfWord(1000230.0f), MbfTime(QTime(1, 0))},  // 30 February
      {0, MbfTime(QTime(1, 0))},                    // no date
      {MbfWord(12345.0f), MbfTime(QTime(1, 0))},    // five digits
      {MbfWord(2991231.0f), 0},                     // 2199 does not fit 32 bits
      {MbfDate(kDay), MbfTime(QTime(9, 30))},
      {MbfDate(kDay), MbfWord(1234567.0f)},  // seven digits
  };
  const ConvertedInstrument converted = Convert({1, 32, 8, 'I', 1, "EURUSD"}, rows);
  EXPECT_EQ(converted.skippedRecords, 6);
  const auto candles = Candles(converted);
  ASSERT_EQ(candles.size(), 1u);
  EXPECT_EQ(candles[0].time, kBarSeconds);

  ConvertedInstrument none;
  dir.WriteData(1, 32, {rows[0], rows[2]});
  EXPECT_EQ(ConvertInstrument(Entry(dir, {1, 32, 8, 'I', 1, "X"}), "Bid", none),
            ConversionOutcome::kUnreadableRecords);
  EXPECT_EQ(none.skippedRecords, 2);
  EXPECT_TRUE(none.points.empty());
}

// ---------------------------------------------------------------------------
// The symbol record and the point layout.

std::string TextAt(SYMBOL_NAME_PERIOD const& request, int offset) {
  return reinterpret_cast<const char*>(&request) + offset;
}

TEST_F(ConversionTest, SymbolRecordOfADailyEntry) {
  const SYMBOL_NAME_PERIOD request = Convert({1, 28, 7, 'D', 3, "BRK A"}, {Row(false, 7)}).request;
  EXPECT_EQ(TextAt(request, 0), "CANDLE");
  EXPECT_EQ(TextAt(request, 255), "QUENDAL");
  EXPECT_EQ(TextAt(request, 510), "CANDLE_QUENDAL");
  EXPECT_EQ(WideText(&request.name), "BRK A");  // the whole name
  EXPECT_EQ(TextAt(request, 1275), "Bid");
  const auto* bytes = reinterpret_cast<const unsigned char*>(&request);
  EXPECT_EQ(bytes[1530], 'D');
  EXPECT_EQ(int{request.period.length}, 0);  // the size counts for 'I' only
  EXPECT_EQ(int{request.period.extra}, 0);
  EXPECT_EQ(std::memcmp(bytes + 1531, "\0\0\0\0\0\0\0\0", 8), 0);

  // A price type longer than its field is cut to fit.
  ConvertedInstrument converted;
  ASSERT_TRUE(ConvertFile({1, 28, 7, 'D', 0, "EURUSD"}, converted, QString(300, 'x')));
  EXPECT_EQ(TextAt(converted.request, 1275), std::string(254, 'x'));
}

TEST_F(ConversionTest, IntradaySizeZeroGivesTicks) {
  const auto ticks = Convert({1, 32, 8, 'I', 0, "EURUSD"}, {Row(true, 8), Row(true, 8)});
  EXPECT_EQ(ticks.request.period.kind, 'I');
  EXPECT_EQ(int{ticks.request.period.length}, 0);
  const auto points = PointsOf<TickDataPoint>(ticks);
  ASSERT_EQ(points.size(), 2u);
  EXPECT_EQ(points[1].time, kBarSeconds);
  EXPECT_EQ(points[1].value, 5.25f);   // close, field 5
  EXPECT_EQ(points[1].volume, 6.25f);  // volume, field 6
}

// ---------------------------------------------------------------------------
// Index records that do not describe their files.

TEST_F(ConversionTest, HostileIndexRecordsStayInsideTheirBuffers) {
  // R = 0 and letters without a map are skipped.
  Convert({1, 0, 7, 'D', 0, "X"}, {}, false);
  for (char letter : {'X', '\0', 'i', 'd'}) {
    dir.WriteData(1, 28, {Row(false, 7)});
    ConvertedInstrument converted;
    EXPECT_EQ(ConvertInstrument(Entry(dir, {1, 28, 7, letter, 0, "X"}), "Bid", converted),
              ConversionOutcome::kPeriodNotImported);
  }

  // R = 255 with 2 fields: the time and zeros.
  auto candles = Candles(Convert({1, 255, 2, 'D', 0, "X"}, {Row(false, 63), Row(false, 63)}));
  ASSERT_EQ(candles.size(), 2u);
  EXPECT_EQ(candles[1].time, kDaySeconds);
  EXPECT_EQ(PricesOf(candles[1]), kNoPrices);

  // 0, 8 and 255 fields in R = 8: the time, and zeros for prices beyond the record.
  for (int fields : {0, 8, 255}) {
    candles = Candles(Convert({1, 8, fields, 'I', 5, "X"}, {Row(true, 2), Row(true, 2)}));
    ASSERT_EQ(candles.size(), 2u);
    EXPECT_EQ(candles[0].time, kBarSeconds);
    EXPECT_EQ(PricesOf(candles[0]), kNoPrices);
  }

  // R = 3: not even a whole date, so nothing decodes.
  EXPECT_EQ(Convert({1, 3, 5, 'D', 0, "X"}, {{0}, {0}}, false).skippedRecords, 2);

  // R = 255 with 8 fields: the mapped fields come from the record's start.
  candles = Candles(Convert({1, 255, 8, 'I', 5, "X"}, {Row(true, 63)}));
  EXPECT_EQ(PricesOf(candles[0]), (Prices{2.25f, 3.25f, 4.25f, 5.25f, 6.25f}));
}

// ---------------------------------------------------------------------------
// Progress.

TEST_F(ConversionTest, AMillionTicksReportProgressSparingly) {
  constexpr int kPoints = 1000000;
  QByteArray file = EncodeDataFile(32, {}, {.headerCount = 0});  // more records than a u16 counts
  file.reserve(std::int64_t{kPoints + 1} * 32);
  QDateTime moment(kDay, QTime(0, 0), Qt::UTC);
  for (int k = 0; k < kPoints; ++k) {
    if (k % 3 == 0) moment = moment.addSecs(1);  // three ticks per second
    file += EncodeDataRecord(32, {MbfDate(moment.date()), MbfTime(moment.time()), 0, 0, 0,
                                  MbfWord(1.25f), MbfWord(2.0f), 0});
  }
  dir.Write("F1.dat", file);

  std::vector<std::int64_t> reports;
  ConvertedInstrument converted;
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(ConvertFile({1, 32, 8, 'I', 0, "EURUSD"}, converted, "Bid",
                          [&](std::int64_t bytes) { reports.push_back(bytes); }));
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(converted.pointCount, kPoints);
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports.back(), std::int64_t{kPoints + 1} * 32);
  EXPECT_LE(reports.size(), std::size_t(elapsed / std::chrono::milliseconds(50)) + 2);
  EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
  TickDataPoint last;
  std::memcpy(&last, converted.points.data() + converted.points.size() - sizeof last, sizeof last);
  EXPECT_EQ(last.time, moment.toSecsSinceEpoch());
  EXPECT_EQ(last.value, 1.25f);
}

}  // namespace
