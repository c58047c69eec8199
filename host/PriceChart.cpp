#include "PriceChart.h"

#include <QDateTime>
#include <QFontMetrics>
#include <QPainter>
#include <QPolygonF>
#include <QTimeZone>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

namespace {

// Layout, in pixels.
constexpr int kMargin = 8;             // around everything
constexpr int kTitleHeight = 28;       // the title line
constexpr int kTimeAxisHeight = 24;    // below the plot
constexpr int kPriceAxisWidth = 76;    // right of the plot
constexpr int kTickLength = 4;         // of an axis mark
constexpr double kBodyShare = 0.7;     // of a slot a candle's body takes
constexpr double kMinBodyWidth = 1.0;  // of a body in a crowded chart
constexpr double kLineWidth = 1.5;     // of the tick line
constexpr double kTitleScale = 1.25;   // title font against the labels'

// Scale.
constexpr int kPriceLabels = 6;                 // price labels wanted
constexpr int kTimeLabels = 6;                  // time labels at most
constexpr double kPricePadding = 0.05;          // share of the price range added above and below
constexpr double kFlatPadding = 0.01;           // share of the price added around a flat series
constexpr double kZeroPadding = 1.0;            // added around a flat series at zero
constexpr double kNiceSteps[] = {1, 2, 5, 10};  // mantissas of a price step
constexpr int kMaxDecimals = 9;                 // of a price label

// Spans of time, in seconds, and the label form from each on.
constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kYear = 365 * kDay;
struct TimeForm {
  std::int64_t fromSpan;  // seconds shown, at least
  const char* format;     // QDateTime format
};
constexpr TimeForm kTimeForms[] = {
    {4 * kYear, "yyyy"},    {120 * kDay, "yyyy-MM"}, {3 * kDay, "yyyy-MM-dd"},
    {kHour, "MM-dd hh:mm"}, {0, "hh:mm:ss"},
};
constexpr char kExtentFormat[] = "yyyy-MM-dd hh:mm:ss";  // of the first and last time

const QColor kBackground(Qt::white);
const QColor kFrame(0xB0, 0xB0, 0xB0);
const QColor kGrid(0xEC, 0xEC, 0xEC);
const QColor kText(0x30, 0x30, 0x30);
const QColor kRising(0x26, 0xA2, 0x69);
const QColor kFalling(0xE0, 0x1B, 0x24);
const QColor kLine(0x1C, 0x71, 0xD8);

// Index of the view, or -1.
int ViewIndex(const RecordLayout& layout, const char* name) {
  const auto it = std::find(layout.views.begin(), layout.views.end(), name);
  return it == layout.views.end() ? -1 : static_cast<int>(it - layout.views.begin());
}

float ViewValue(const unsigned char* record, int view) {
  float value = 0;
  std::memcpy(&value, record + kRecordTimeBytes + view * kRecordValueBytes, sizeof value);
  return value;
}

bool Finite(const ChartPoint& point) {
  return std::isfinite(point.open) && std::isfinite(point.high) && std::isfinite(point.low) &&
         std::isfinite(point.close);
}

// Maps prices to the plot's height.
struct PriceScale {
  double low, high;  // at the bottom and the top of the plot
  QRectF plot;       // where the series is drawn

  double y(double price) const {
    return plot.bottom() - (price - low) / (high - low) * plot.height();
  }
};

PriceScale ScaleOf(const ChartSeries& series, const QRectF& plot) {
  double low = series.points.front().low, high = series.points.front().high;
  for (const ChartPoint& point : series.points) {
    low = std::min<double>(low, point.low);
    high = std::max<double>(high, point.high);
  }
  const double flat = high == 0 ? kZeroPadding : std::abs(high) * kFlatPadding;
  const double padding = high > low ? (high - low) * kPricePadding : flat;
  return {low - padding, high + padding, plot};
}

// The x of a record's slot centre.
double SlotCenter(const QRectF& plot, std::size_t count, std::size_t index) {
  return plot.left() + (index + 0.5) * plot.width() / count;
}

int Decimals(double step) {
  return std::clamp(static_cast<int>(-std::floor(std::log10(step))), 0, kMaxDecimals);
}

QString TimeLabel(std::int32_t time, const QString& format) {
  return QDateTime::fromSecsSinceEpoch(time, QTimeZone::utc()).toString(format);
}

// The series' extent, right of the title.
QString Extent(const ChartSeries& series) {
  if (series.points.empty()) return QString();
  const QString format = QString::fromLatin1(kExtentFormat);
  return QStringLiteral("%1 records, %2 to %3 UTC")
      .arg(series.points.size())
      .arg(TimeLabel(series.points.front().time, format),
           TimeLabel(series.points.back().time, format));
}

void DrawTitle(QPainter& painter, const QRect& area, const QString& title,
               const ChartSeries& series) {
  const QRect line(area.left() + kMargin, area.top() + kMargin, area.width() - 2 * kMargin,
                   kTitleHeight);
  painter.setPen(kText);
  painter.drawText(line, Qt::AlignRight | Qt::AlignVCenter, Extent(series));
  QFont font = painter.font();
  font.setBold(true);
  font.setPointSizeF(font.pointSizeF() * kTitleScale);
  painter.save();
  painter.setFont(font);
  painter.drawText(line, Qt::AlignLeft | Qt::AlignVCenter, title);
  painter.restore();
}

void DrawPriceAxis(QPainter& painter, const PriceScale& scale) {
  const QRectF& plot = scale.plot;
  const std::vector<double> ticks = PriceTicks(scale.low, scale.high, kPriceLabels);
  const int decimals = Decimals(ticks.size() > 1 ? ticks[1] - ticks[0] : scale.high - scale.low);
  const int textHeight = painter.fontMetrics().height();
  for (double price : ticks) {
    const double y = scale.y(price);
    painter.setPen(kGrid);
    painter.drawLine(QPointF(plot.left(), y), QPointF(plot.right(), y));
    painter.setPen(kText);
    painter.drawLine(QPointF(plot.right(), y), QPointF(plot.right() + kTickLength, y));
    const QRectF label(plot.right() + 2 * kTickLength, y - textHeight / 2.0, kPriceAxisWidth,
                       textHeight);
    painter.drawText(label, Qt::AlignLeft | Qt::AlignVCenter,
                     QString::number(price, 'f', decimals));
  }
}

// Labels up to kTimeLabels records spread evenly, leaving out a label that
// repeats the one before or would touch it.
void DrawTimeAxis(QPainter& painter, const QRectF& plot, const ChartSeries& series) {
  const std::size_t count = series.points.size();
  const QString format =
      TimeFormat(std::int64_t(series.points.back().time) - series.points.front().time);
  const std::size_t labels = std::min<std::size_t>(kTimeLabels, count);
  const QFontMetrics metrics = painter.fontMetrics();
  QString previous;
  double freeFrom = plot.left();  // where the next label may start
  for (std::size_t k = 0; k < labels; ++k) {
    const std::size_t index = labels == 1 ? 0 : k * (count - 1) / (labels - 1);
    const QString text = TimeLabel(series.points[index].time, format);
    const double x = SlotCenter(plot, count, index);
    const double width = metrics.horizontalAdvance(text) + 2 * kTickLength;
    const double left = std::clamp(x - width / 2, plot.left(), plot.right() - width);
    if (text == previous || left < freeFrom) continue;
    painter.setPen(kGrid);
    painter.drawLine(QPointF(x, plot.top()), QPointF(x, plot.bottom()));
    painter.setPen(kText);
    painter.drawLine(QPointF(x, plot.bottom()), QPointF(x, plot.bottom() + kTickLength));
    painter.drawText(
        QRectF(left, plot.bottom() + kTickLength, width, kTimeAxisHeight - kTickLength),
        Qt::AlignCenter, text);
    previous = text;
    freeFrom = left + width;
  }
}

void DrawCandles(QPainter& painter, const PriceScale& scale, const ChartSeries& series) {
  const std::size_t count = series.points.size();
  const double body = std::max(kMinBodyWidth, scale.plot.width() / count * kBodyShare);
  for (std::size_t i = 0; i < count; ++i) {
    const ChartPoint& point = series.points[i];
    const QColor& colour = point.close >= point.open ? kRising : kFalling;
    const double x = SlotCenter(scale.plot, count, i);
    painter.setPen(colour);
    painter.drawLine(QPointF(x, scale.y(point.high)), QPointF(x, scale.y(point.low)));
    const double top = scale.y(std::max(point.open, point.close));
    const double bottom = scale.y(std::min(point.open, point.close));
    painter.fillRect(QRectF(x - body / 2, top, body, std::max(bottom - top, kMinBodyWidth)),
                     colour);
  }
}

void DrawLine(QPainter& painter, const PriceScale& scale, const ChartSeries& series) {
  const std::size_t count = series.points.size();
  QPolygonF line;
  for (std::size_t i = 0; i < count; ++i) {
    line << QPointF(SlotCenter(scale.plot, count, i), scale.y(series.points[i].close));
  }
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(kLine, kLineWidth));
  count == 1 ? painter.drawPoint(line.front()) : painter.drawPolyline(line);
}

}  // namespace

QString ChartTitle(const QString& name, const QString& period, const QString& code) {
  return QStringLiteral("%1   %2   %3").arg(name, period, code);
}

ChartSeries SeriesOf(const RecordLayout& layout, const std::vector<unsigned char>& records) {
  const int open = ViewIndex(layout, "Open"), high = ViewIndex(layout, "High");
  const int low = ViewIndex(layout, "Low"), close = ViewIndex(layout, "Close");
  ChartSeries series;
  series.candles = open >= 0 && high >= 0 && low >= 0 && close >= 0;
  const std::size_t size = layout.recordSize();
  if (!series.candles && layout.views.empty()) return series;
  for (std::size_t offset = 0; offset + size <= records.size(); offset += size) {
    const unsigned char* record = records.data() + offset;
    ChartPoint point{};
    std::memcpy(&point.time, record, sizeof point.time);
    if (series.candles) {
      point.open = ViewValue(record, open);
      point.high = ViewValue(record, high);
      point.low = ViewValue(record, low);
      point.close = ViewValue(record, close);
    } else {
      point.open = point.high = point.low = point.close = ViewValue(record, 0);
    }
    if (Finite(point)) series.points.push_back(point);
  }
  return series;
}

std::vector<double> PriceTicks(double low, double high, int wanted) {
  const double rough = (high - low) / wanted;
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  const auto distance = [rough, power](double mantissa) {
    return std::abs(std::log(mantissa * power / rough));
  };
  const double* nice =
      std::min_element(std::begin(kNiceSteps), std::end(kNiceSteps),
                       [&](double a, double b) { return distance(a) < distance(b); });
  const double step = *nice * power;
  std::vector<double> ticks;
  for (double k = std::ceil(low / step); k * step <= high; ++k) ticks.push_back(k * step);
  return ticks;
}

QString TimeFormat(std::int64_t span) {
  const TimeForm* form = std::find_if(std::begin(kTimeForms), std::end(kTimeForms),
                                      [span](const TimeForm& f) { return span >= f.fromSpan; });
  return QString::fromLatin1(form->format);
}

void DrawChart(QPainter& painter, const QRect& area, const ChartSeries& series,
               const QString& title) {
  painter.save();
  painter.fillRect(area, kBackground);
  DrawTitle(painter, area, title, series);
  const QRectF plot(area.left() + kMargin, area.top() + kMargin + kTitleHeight,
                    area.width() - 2 * kMargin - kPriceAxisWidth,
                    area.height() - 2 * kMargin - kTitleHeight - kTimeAxisHeight);
  if (series.points.empty()) {
    painter.setPen(kText);
    painter.drawText(plot, Qt::AlignCenter, QStringLiteral("no records"));
  } else {
    const PriceScale scale = ScaleOf(series, plot);
    DrawPriceAxis(painter, scale);
    DrawTimeAxis(painter, plot, series);
    series.candles ? DrawCandles(painter, scale, series) : DrawLine(painter, scale, series);
  }
  painter.setRenderHint(QPainter::Antialiasing, false);
  painter.setPen(kFrame);
  painter.setBrush(Qt::NoBrush);
  painter.drawRect(plot);
  painter.restore();
}

QImage ChartImage(const QSize& size, const ChartSeries& series, const QString& title) {
  QImage image(size, QImage::Format_RGB32);
  QPainter painter(&image);
  DrawChart(painter, image.rect(), series, title);
  return image;
}
