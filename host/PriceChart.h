// PriceChart.h: a price chart of a symbol's records, drawn with QPainter.
//
// Bars (records with Open, High, Low and Close views) are drawn as candles: a
// body from open to close and a wick from high to low, rising candles (close
// at or above open) in one colour and falling ones in another. Any other
// layout (ticks) is drawn as a line through its first view (Value). Records
// stand side by side in their order, one slot each, so that time without
// records takes no room. Below the plot a time axis labels a few records with
// their UTC time in a form chosen by the span shown; right of it a price axis
// labels a few round prices; above it stand the title, the record count and
// the first and last time.
//
// REQUIRES: a QGuiApplication for the text (fonts).
// Thread-safety: free functions without shared state.

#ifndef DATASTORE_HOST_PRICECHART_H_
#define DATASTORE_HOST_PRICECHART_H_

#include <QImage>
#include <QRect>
#include <QSize>
#include <QString>
#include <cstdint>
#include <vector>

#include "SymbolRequest.h"

class QPainter;

constexpr QSize kChartSize{960, 540};  // the picture of dshost chart

// One record as the chart draws it; a tick has all four prices alike.
struct ChartPoint {
  std::int32_t time;             // seconds since 1970, UTC
  float open, high, low, close;  // prices
};

struct ChartSeries {
  std::vector<ChartPoint> points;  // in record order
  bool candles = false;            // bars as candles; else a line of close
};

// The chart's title: the symbol's name, period and code.
QString ChartTitle(const QString& name, const QString& period, const QString& code);
// The records of layout as a series; records whose prices are not finite are
// left out. REQUIRES: records holds whole records of layout.
ChartSeries SeriesOf(const RecordLayout& layout, const std::vector<unsigned char>& records);

// The prices the price axis labels: the multiples between low and high of
// the step of 1, 2 or 5 times a power of ten nearest, by ratio, to
// (high - low) / wanted.
// REQUIRES: low < high, wanted >= 1.
std::vector<double> PriceTicks(double low, double high, int wanted);
// The QDateTime format of time labels over a span of that many seconds.
QString TimeFormat(std::int64_t span);

// Draws the chart into area: background, title, axes and the series. An
// empty series leaves a note in the plot.
void DrawChart(QPainter& painter, const QRect& area, const ChartSeries& series,
               const QString& title);
// The chart as a picture of the given size.
QImage ChartImage(const QSize& size, const ChartSeries& series, const QString& title);

#endif  // DATASTORE_HOST_PRICECHART_H_
