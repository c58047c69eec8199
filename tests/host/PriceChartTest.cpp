// The chart's scale and drawing, and the symbols the data window reads from
// file names.

#include <gtest/gtest.h>

#include <QColor>
#include <QPainter>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <tuple>

#include "PriceChart.h"
#include "SymbolFiles.h"

namespace {

// Every tick lies in the range, the steps are equal and of the form 1, 2 or 5
// times a power of ten, and their number is near the one wanted.
TEST(PriceChartTest, PriceTicksAreRoundAndInRange) {
  const std::tuple<double, double, int> kRanges[] = {
      {1.0845, 1.0912, 6}, {-3, 7, 5}, {100, 100.0001, 4}, {0.5, 98765, 6}, {2, 3, 1}};
  for (const auto& [low, high, wanted] : kRanges) {
    SCOPED_TRACE(std::to_string(low) + ".." + std::to_string(high));
    const std::vector<double> ticks = PriceTicks(low, high, wanted);
    ASSERT_GE(ticks.size(), 1u);
    EXPECT_LE(ticks.size(), std::size_t(2 * wanted + 1));
    for (double tick : ticks) {
      EXPECT_GE(tick, low);
      EXPECT_LE(tick, high);
    }
    if (ticks.size() < 2) continue;
    const double power = std::pow(10.0, std::floor(std::log10(ticks[1] - ticks[0]) + 1e-9));
    const double mantissa = std::round((ticks[1] - ticks[0]) / power);
    EXPECT_TRUE(mantissa == 1 || mantissa == 2 || mantissa == 5) << mantissa;
    const double step = mantissa * power;
    for (std::size_t i = 0; i < ticks.size(); ++i) {
      EXPECT_NEAR(ticks[i] / step, std::round(ticks[0] / step) + double(i), 1e-6) << "equal steps";
    }
  }
}

// Views are found by name in any order; records without finite prices are
// left out; a layout without Open, High, Low and Close is a line.
TEST(PriceChartTest, SeriesReadsViewsByName) {
  const RecordLayout shuffled{{"Volume", "Close", "Low", "High", "Open"}};
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<std::pair<std::int32_t, std::vector<float>>> kRecords = {
      {10, {7, 1.5f, 0.5f, 2, 1}}, {20, {7, nan, 0.5f, 2, 1}}, {30, {7, 1, 0.25f, 3, 2}}};
  std::vector<unsigned char> records;
  for (const auto& [time, values] : kRecords) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&time);
    records.insert(records.end(), bytes, bytes + sizeof time);
    bytes = reinterpret_cast<const unsigned char*>(values.data());
    records.insert(records.end(), bytes, bytes + values.size() * sizeof(float));
  }
  const ChartSeries bars = SeriesOf(shuffled, records);
  EXPECT_TRUE(bars.candles);
  ASSERT_EQ(bars.points.size(), 2u);
  EXPECT_EQ(bars.points[1].time, 30);
  EXPECT_EQ(std::make_tuple(bars.points[1].open, bars.points[1].high, bars.points[1].low,
                            bars.points[1].close),
            std::make_tuple(2.0f, 3.0f, 0.25f, 1.0f));

  const RecordLayout ticks{{"Value", "Volume"}};
  const std::vector<unsigned char> tick(records.begin(), records.begin() + ticks.recordSize());
  const ChartSeries line = SeriesOf(ticks, tick);
  EXPECT_FALSE(line.candles);
  ASSERT_EQ(line.points.size(), 1u);
  EXPECT_EQ(line.points[0].close, 7.0f);
}

// The saturated colour that covers most pixels of the image's part.
QRgb MainColour(const QImage& image, const QRect& part) {
  std::map<QRgb, int> counts;
  for (int y = part.top(); y <= part.bottom(); ++y) {
    for (int x = part.left(); x <= part.right(); ++x) {
      if (QColor(image.pixel(x, y)).hsvSaturation() > 128) ++counts[image.pixel(x, y)];
    }
  }
  const auto most =
      std::max_element(counts.begin(), counts.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  return most == counts.end() ? 0 : most->first;
}

// A rising candle and a falling one fill their halves of the picture in two colours.
TEST(PriceChartTest, RisingAndFallingCandlesDiffer) {
  ChartSeries series;
  series.candles = true;
  series.points = {{0, 1, 4, 1, 4}, {86400, 4, 4, 1, 1}};
  const QImage image = ChartImage(kChartSize, series, QStringLiteral("X D C"));
  ASSERT_EQ(image.size(), kChartSize);
  const int half = image.width() / 2;
  const QRgb rising = MainColour(image, QRect(0, 0, half, image.height()));
  const QRgb falling = MainColour(image, QRect(half, 0, half, image.height()));
  EXPECT_NE(rising, 0u);
  EXPECT_NE(falling, 0u);
  EXPECT_NE(rising, falling);
}

// Names and codes may hold '_' and escapes; other names are no symbols.
TEST(DataWindowFileNames, NamePeriodAndCodeOfAFileName) {
  const std::tuple<const char*, const char*, const char*, const char*> kNames[] = {
      {"EURUSD_D_Bid.cjd", "EURUSD", "D", "Bid"},
      {"BRK A_I15_Bid.cjd", "BRK A", "I15", "Bid"},
      {"ES_Z4_I0_ESZ4.cjd", "ES_Z4", "I0", "ESZ4"},
      {"EUR%2FUSD_W_100%25.cjd", "EUR/USD", "W", "100%"},
      {"X_D_D_Y.cjd", "X_D", "D", "Y"},
      {"A_M_B_C.cjd", "A", "M", "B_C"},
  };
  for (const auto& [file, name, period, code] : kNames) {
    StoredSymbol symbol;
    ASSERT_TRUE(ParseSymbolFileName(QString::fromUtf8(file), &symbol)) << file;
    EXPECT_EQ(symbol.name, QString::fromUtf8(name)) << file;
    EXPECT_EQ(symbol.period, period) << file;
    EXPECT_EQ(symbol.code, code) << file;
  }
  for (const char* file :
       {"EURUSD.cjd", "EURUSD_D_.cjd", "_D_Bid.cjd", "X_Q_Bid.cjd", "X_I_Bid.cjd", "X_D_Bid.txt"}) {
    StoredSymbol symbol;
    EXPECT_FALSE(ParseSymbolFileName(QString::fromUtf8(file), &symbol)) << file;
  }
}

}  // namespace
