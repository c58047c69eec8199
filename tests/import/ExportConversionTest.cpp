// Converting one instrument: field maps, times, the symbol record, tick
// layout, hostile index records and the progress callback.
#include <gtest/gtest.h>

#include <QDateTime>
#include <array>
#include <chrono>

#include "DataPoint.h"
#include "ExportDirectory.h"
#include "ImportTestSupport.h"

namespace {

const QDate kDay(2015, 1, 2);
const std::int32_t kDaySeconds = 1420156800;                    // 2015-01-02 00:00 UTC
const std::int32_t kBarSeconds = kDaySeconds + 9 * 3600 + 1800;  // 09:30, the time of an intraday Row()

IndexEntry Entry(ExportIndexRecord const& record) {
  IndexEntry entry{};
  const QByteArray bytes = EncodeIndexRecord(record);
  std::memcpy(entry.bytes + 1, bytes.constData(), kIndexRecordSize);
  return entry;
}

template <typename Point>
std::vector<Point> PointsOf(ConvertedInstrument const& converted) {
  EXPECT_EQ(converted.pointSize, sizeof(Point));
  EXPECT_EQ(converted.points.size(), converted.pointCount * sizeof(Point));
  std::vector<Point> points(converted.points.size() / sizeof(Point));
  std::memcpy(static_cast<void*>(points.data()), converted.points.data(), points.size() * sizeof(Point));
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
  bool ConvertFile(ExportIndexRecord const& record, ConvertedInstrument& out, QString const& priceType = "Bid",
                   ConversionProgress const& progress = {}) {
    return ConvertInstrument(dir.path(), Entry(record), Entry(record), priceType, out, progress);
  }
  // Writes F1.dat with R = recordLength and converts it as `record` says.
  ConvertedInstrument Convert(ExportIndexRecord record, std::vector<std::vector<std::uint32_t>> const& rows,
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
    const auto candles =
        Candles(Convert({1, 4 * c.fields, c.fields, c.letter, 5, "EURUSD"}, {Row(intraday, c.fields)}));
    ASSERT_EQ(candles.size(), 1u);
    EXPECT_EQ(PricesOf(candles[0]), c.prices);
    EXPECT_EQ(candles[0].time, intraday ? kBarSeconds : kDaySeconds);
  }

  // Prices out of MBF range read as 0.
  const std::vector<std::uint32_t> outOfRange = {MbfDate(kDay), 0x01000000, MbfWord(1.5f), 0x02FFFFFF, 0};
  EXPECT_EQ(PricesOf(Candles(Convert({1, 28, 7, 'D', 0, "X"}, {outOfRange}))[0]), (Prices{0, 1.5f, 0, 0, 0}));
}

// ---------------------------------------------------------------------------
// Records and times.

TEST_F(ConversionTest, FilesWithoutAWholeRecordAreSkipped) {
  Convert({1, 28, 7, 'D', 0, "EURUSD"}, {}, false);  // the header record only
  EXPECT_EQ(Convert({1, 28, 7, 'D', 0, "EURUSD"}, {Row(false, 7)}).pointCount, 1);
  dir.Write("F1.dat", EncodeDataFile(28, {Row(false, 7)}) + QByteArray(27, '\x81'));  // a partial record
  ConvertedInstrument converted;
  ASSERT_TRUE(ConvertFile({1, 28, 7, 'D', 0, "X"}, converted));
  EXPECT_EQ(converted.pointCount, 1);
  EXPECT_EQ(converted.points.size(), 24u);

  // File number 0 is F0.dat; a missing file resets the output.
  dir.WriteData(0, 28, {Row(false, 7)});
  EXPECT_TRUE(ConvertFile({0, 28, 7, 'D', 0, "X"}, converted));
  EXPECT_FALSE(ConvertFile({9, 28, 7, 'D', 0, "X"}, converted));
  EXPECT_EQ(converted.pointCount, 0);
  EXPECT_TRUE(converted.points.empty());
}

TEST_F(ConversionTest, TimesAreLocalToLocal) {
  const std::vector<std::vector<std::uint32_t>> rows = {
      {MbfDate(QDate(2000, 1, 1)), MbfTime(QTime(0, 0, 1))},
      {MbfDate(QDate(2000, 7, 1)), MbfTime(QTime(12, 0))},
      {MbfDate(QDate(2000, 7, 1)), MbfTime(QTime(12, 0))},   // the same time twice
      {MbfDate(QDate(2000, 3, 26)), MbfTime(QTime(1, 30))},  // the day the clocks go forward
      {MbfDate(QDate(2000, 3, 26)), MbfTime(QTime(2, 30))},  // inside the gap
      {MbfDate(QDate(2000, 3, 26)), MbfTime(QTime(3, 30))},
  };
  Pin("CET-1CEST,M3.5.0,M10.5.0/3");
  const auto candles = Candles(Convert({1, 32, 8, 'I', 1, "EURUSD"}, rows));
  ASSERT_EQ(candles.size(), 6u);
  EXPECT_EQ(candles[0].time, 946684801);         // both ends in winter time
  EXPECT_EQ(candles[1].time, 962452800 - 3600);  // summer time is an hour further from 1970 local
  EXPECT_EQ(candles[2].time, candles[1].time);
  EXPECT_EQ(candles[3].time, 954030600 + 3600);  // 00:30 UTC
  EXPECT_EQ(candles[4].time, 0);                 // not a local moment
  EXPECT_EQ(candles[5].time, 954034200 + 3600);  // 01:30 UTC, one hour after the record before the gap
}

TEST_F(ConversionTest, UnreadableDatesAndTimes) {
  const auto candles = Candles(Convert({1, 32, 8, 'I', 1, "EURUSD"},
                                       {{MbfDate(kDay), MbfWord(246000.0f)},
                                        {MbfWord(1000230.0f), MbfTime(QTime(1, 0))},
                                        {0, MbfTime(QTime(1, 0))},
                                        {MbfWord(2991231.0f), 0}}));
  ASSERT_EQ(candles.size(), 4u);
  EXPECT_EQ(candles[0].time, kDaySeconds);  // an invalid time counts as midnight
  EXPECT_EQ(candles[1].time, 0);            // 30 February
  EXPECT_EQ(candles[2].time, QDateTime(QDate::currentDate(), QTime(1, 0), Qt::UTC).toSecsSinceEpoch());
  EXPECT_EQ(candles[3].time, 0);            // 2199 does not fit 32 bits
}

// ---------------------------------------------------------------------------
// The symbol record and the point layout.

std::string TextAt(SYMBOL_NAME_PERIOD const& request, int offset) {
  return reinterpret_cast<const char*>(&request) + offset;
}

TEST_F(ConversionTest, SymbolRecordOfADailyEntry) {
  const SYMBOL_NAME_PERIOD request = Convert({1, 28, 7, 'D', 3, "ABC DEF"}, {Row(false, 7)}).request;
  EXPECT_EQ(TextAt(request, 0), "CANDLE");
  EXPECT_EQ(TextAt(request, 255), "QUENDAL");
  EXPECT_EQ(TextAt(request, 510), "CANDLE_QUENDAL");
  EXPECT_EQ(WideText(&request.name), "ABC");
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
  for (char letter : {'X', '\0', 'i', 'd'}) Convert({1, 28, 7, letter, 0, "X"}, {Row(false, 7)}, false);

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

  // R = 3: not even a whole date.
  EXPECT_EQ(Candles(Convert({1, 3, 5, 'D', 0, "X"}, {{0}, {0}})).size(), 2u);

  // R = 255 with 8 fields: the mapped fields come from the record's start.
  candles = Candles(Convert({1, 255, 8, 'I', 5, "X"}, {Row(true, 63)}));
  EXPECT_EQ(PricesOf(candles[0]), (Prices{2.25f, 3.25f, 4.25f, 5.25f, 6.25f}));
}

// ---------------------------------------------------------------------------
// Progress.

TEST_F(ConversionTest, AMillionTicksReportProgressSparingly) {
  constexpr int kPoints = 1000000;
  QByteArray file = EncodeDataFile(32, {});
  file.reserve(std::int64_t{kPoints + 1} * 32);
  QDateTime moment(kDay, QTime(0, 0), Qt::UTC);
  for (int k = 0; k < kPoints; ++k) {
    if (k % 3 == 0) moment = moment.addSecs(1);  // three ticks per second
    file += EncodeDataRecord(32, {MbfDate(moment.date()), MbfTime(moment.time()), 0, 0, 0, MbfWord(1.25f),
                                  MbfWord(2.0f), 0});
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
