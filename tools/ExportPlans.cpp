// Plans and bars of export_generator.

#include "ExportPlans.h"

#include <QDate>
#include <QStringList>
#include <QTime>
#include <algorithm>
#include <cmath>
#include <iterator>

#include "ExportWriter.h"
#include "Period.h"

namespace {

constexpr int kDailyFields = 7;        // date, O, H, L, C, V, open interest
constexpr int kIntradayFields = 8;     // date, time, O, H, L, C, V, open interest
constexpr int kMinDailyFields = 5;     // date, H, L, C, V
constexpr int kMinIntradayFields = 6;  // date, time, H, L, C, V
constexpr char kEndOfPeriodLetters[] = "DWMY";
constexpr int kMaxIntradaySize = 32767;
constexpr int kMinPlanParts = 2;  // SYMBOL,PERIOD
constexpr int kMaxPlanParts = 5;  // ...,FIELDS,PRICE,NAME

// Moments: every period starts somewhere plausible and stops before 2038,
// where 32-bit times end.
const QDate kLastDate(2037, 12, 31);
const QDate kDailyStart(2015, 1, 2);
const QDate kWeeklyStart(2000, 1, 7);
const QDate kMonthlyStart(1990, 1, 31);
const QDate kYearlyStart(1970, 12, 31);
const QDate kIntradayStart(2024, 1, 2);
constexpr int kLastWeekday = 5;  // Friday
constexpr int kSecondsPerMinute = 60;
constexpr unsigned kTickStepSeconds = 3;  // 0, 1 or 2 seconds between ticks; 0 repeats the time

// Prices: a random walk kept on a grid of decimals that fits the price.
constexpr double kStepFraction = 0.004;   // largest move of a close, relative
constexpr double kRangeFraction = 0.001;  // largest reach of high and low beyond open and close
constexpr double kFloorFraction = 0.2;    // a close never falls below this part of the start
constexpr unsigned kUnitSteps = 1000000;  // resolution of a random fraction
constexpr unsigned kTickVolumes = 10;
constexpr unsigned kBarVolumeBase = 100;
constexpr unsigned kBarVolumes = 9901;
constexpr int kMissingEvery = 50;  // in a mixed set, every 50th data file is missing

struct Pair {
  const char* symbol;
  double price;
  const char* name;
};
// Sample prices: most near 1.0 to 1.5 (MBF exponent 0x81), some below 1
// (0x80), and larger ones for other exponents.
constexpr Pair kPairs[] = {
    {"EURUSD", 1.10, "Euro vs US Dollar"},
    {"GBPUSD", 1.27, "British Pound vs US Dollar"},
    {"USDCHF", 0.88, "US Dollar vs Swiss Franc"},
    {"AUDUSD", 0.66, "Australian Dollar vs US Dollar"},
    {"USDCAD", 1.35, "US Dollar vs Canadian Dollar"},
    {"USDJPY", 148.0, "US Dollar vs Japanese Yen"},
    {"NZDUSD", 0.61, "New Zealand Dollar vs US Dollar"},
    {"XAUUSD", 2030.0, "Gold vs US Dollar"},
};

constexpr Period kMixedPeriods[] = {{'D', 0}, {'W', 0},  {'M', 0},  {'Y', 0}, {'I', 1},
                                    {'I', 5}, {'I', 15}, {'I', 60}, {'I', 0}};
constexpr int kDailyFieldChoices[] = {7, 5, 6};
constexpr int kIntradayFieldChoices[] = {8, 6, 7};

int DefaultFields(Period period) { return IsIntraday(period) ? kIntradayFields : kDailyFields; }

// "daily", "weekly", "monthly", "yearly", "<n>-minute" or "ticks".
QByteArray PeriodWords(Period period) {
  switch (period.letter) {
    case 'D': return "daily";
    case 'W': return "weekly";
    case 'M': return "monthly";
    case 'Y': return "yearly";
    default: return period.size == 0 ? "ticks" : QByteArray::number(period.size) + "-minute";
  }
}

// The pair's name when the symbol is a known pair, else the symbol, followed
// by the period in words.
QByteArray DefaultName(QByteArray const& symbol, Period period) {
  const auto pair = std::find_if(std::begin(kPairs), std::end(kPairs),
                                 [&](Pair const& p) { return symbol == p.symbol; });
  return (pair != std::end(kPairs) ? QByteArray(pair->name) : symbol) + ' ' + PeriodWords(period);
}

Plan SamplePlan(const char* symbol, Period period, double price, bool missing) {
  return {symbol, DefaultName(symbol, period), period, DefaultFields(period), price, missing};
}

// ---------------------------------------------------------------------------
// Moments.

QDate LastDayOfMonth(QDate date) {
  return QDate(date.year(), date.month(), 1).addMonths(1).addDays(-1);
}

QDate NextDate(char letter, QDate date) {
  switch (letter) {
    case 'W': return date.addDays(7);
    case 'M': return LastDayOfMonth(QDate(date.year(), date.month(), 1).addMonths(1));
    case 'Y': return date.addYears(1);
    default: {
      QDate next = date.addDays(1);
      while (next.dayOfWeek() > kLastWeekday) next = next.addDays(1);
      return next;
    }
  }
}

QDate FirstDate(char letter) {
  switch (letter) {
    case 'W': return kWeeklyStart;
    case 'M': return kMonthlyStart;
    case 'Y': return kYearlyStart;
    default: return kDailyStart;
  }
}

QDateTime NextMoment(Period period, QDateTime const& moment, std::mt19937& random) {
  const int seconds = period.size > 0 ? period.size * kSecondsPerMinute
                                      : static_cast<int>(random() % kTickStepSeconds);
  QDateTime next = moment.addSecs(seconds);
  while (next.date().dayOfWeek() > kLastWeekday)
    next = QDateTime(next.date().addDays(1), QTime(0, 0), Qt::UTC);
  return next;
}

// Up to `count` moments of the period, none after kLastDate.
std::vector<QDateTime> Moments(Period period, int count, std::mt19937& random) {
  std::vector<QDateTime> moments;
  QDateTime moment(IsIntraday(period) ? kIntradayStart : FirstDate(period.letter), QTime(0, 0),
                   Qt::UTC);
  while (static_cast<int>(moments.size()) < count && moment.date() <= kLastDate) {
    moments.push_back(moment);
    moment = IsIntraday(period)
                 ? NextMoment(period, moment, random)
                 : QDateTime(NextDate(period.letter, moment.date()), QTime(0, 0), Qt::UTC);
  }
  return moments;
}

// ---------------------------------------------------------------------------
// Prices.

class PriceWalk {
 public:
  PriceWalk(double start, bool ticks, std::mt19937& random)
      : scale_(start < 10     ? 1e5
               : start < 1000 ? 1e3
                              : 1e2),
        floor_(Round(start * kFloorFraction)),
        close_(Round(start)),
        ticks_(ticks),
        random_(random) {}

  Bar Next(QDateTime const& moment) {
    const double open = close_;
    if (started_) close_ = std::max(floor_, Round(open * (1 + (Fraction() - 0.5) * kStepFraction)));
    started_ = true;
    const double high = Round(std::max(open, close_) * (1 + Fraction() * kRangeFraction));
    const double low =
        std::max(floor_, Round(std::min(open, close_) * (1 - Fraction() * kRangeFraction)));
    const unsigned volume =
        ticks_ ? 1 + random_() % kTickVolumes : kBarVolumeBase + random_() % kBarVolumes;
    return {moment, float(open), float(high), float(low), float(close_), float(volume)};
  }

 private:
  double Round(double value) const { return std::round(value * scale_) / scale_; }
  double Fraction() { return double(random_() % (kUnitSteps + 1)) / kUnitSteps; }

  const double scale_;    // decimals kept: 5 below 10, 3 below 1000, else 2
  const double floor_;    // lowest close
  double close_;          // of the last bar
  bool started_ = false;  // the first bar opens and closes at the start
  const bool ticks_;      // volumes of ticks are small
  std::mt19937& random_;
};

std::optional<Period> ParsePeriod(QString const& text) {
  if (text.size() == 1 && QByteArray(kEndOfPeriodLetters).contains(text[0].toLatin1())) {
    return Period{text[0].toLatin1(), 0};
  }
  bool ok = false;
  const int size = text.mid(1).toInt(&ok);
  if (!text.startsWith(QLatin1Char(period::kIntraday)) || !ok || size < 0 ||
      size > kMaxIntradaySize)
    return std::nullopt;
  return Period{period::kIntraday, size};
}

}  // namespace

bool IsIntraday(Period period) { return period.letter == period::kIntraday; }

QString PeriodText(Period period) {
  return QString(QLatin1Char(period.letter)) +
         (IsIntraday(period) ? QString::number(period.size) : QString());
}

std::vector<Plan> SamplePlans() {
  return {
      SamplePlan("EURUSD", {'D', 0}, 1.10, false), SamplePlan("GBPUSD", {'D', 0}, 1.27, false),
      SamplePlan("USDCHF", {'D', 0}, 0.88, false), SamplePlan("EURUSD", {'I', 5}, 1.09, false),
      SamplePlan("EURUSD", {'I', 0}, 1.09, false), SamplePlan("USDJPY", {'D', 0}, 148.0, true),
  };
}

// From the 73rd on, the symbols and names carry the round's number so that
// no symbol and period repeats.
std::vector<Plan> MixedPlans(int count) {
  constexpr int periods = std::size(kMixedPeriods);
  constexpr int pairs = std::size(kPairs);
  std::vector<Plan> plans;
  for (int k = 0; k < count; ++k) {
    const Period period = kMixedPeriods[k % periods];
    const Pair& pair = kPairs[(k / periods) % pairs];
    const int round = k / (periods * pairs);
    const int choice = (k / periods) % std::size(kDailyFieldChoices);
    QByteArray symbol(pair.symbol);
    QByteArray name = QByteArray(pair.name) + ' ' + PeriodWords(period);
    if (round > 0) {
      symbol += QByteArray::number(round + 1);
      name += " #" + QByteArray::number(round + 1);
    }
    const int fields =
        IsIntraday(period) ? kIntradayFieldChoices[choice] : kDailyFieldChoices[choice];
    plans.push_back(
        {symbol, name, period, fields, pair.price, k % kMissingEvery == kMissingEvery - 1});
  }
  return plans;
}

std::optional<Plan> ParsePlan(QString const& text) {
  const QStringList parts = text.split(QLatin1Char(','));
  if (parts.size() < kMinPlanParts || parts.size() > kMaxPlanParts) return std::nullopt;
  const QByteArray symbol = parts[0].toLatin1();
  const std::optional<Period> period = ParsePeriod(parts[1]);
  if (symbol.isEmpty() || symbol.size() > kMasterSymbolSize || symbol.contains('\t') || !period)
    return std::nullopt;
  Plan plan{symbol, DefaultName(symbol, *period), *period, DefaultFields(*period), kPairs[0].price,
            false};
  bool ok = true;
  if (parts.size() > 2 && !parts[2].isEmpty()) plan.fields = parts[2].toInt(&ok);
  const int fewest = IsIntraday(*period) ? kMinIntradayFields : kMinDailyFields;
  if (!ok || plan.fields < fewest || plan.fields > DefaultFields(*period)) return std::nullopt;
  if (parts.size() > 3 && !parts[3].isEmpty()) plan.price = parts[3].toDouble(&ok);
  if (!ok || !(plan.price > 0)) return std::nullopt;
  if (parts.size() > 4 && !parts[4].isEmpty()) plan.name = parts[4].toLatin1();
  if (plan.name.size() > kEmasterLongNameSize || plan.name.contains('\t')) return std::nullopt;
  return plan;
}

std::vector<Bar> Bars(Plan const& plan, int records, std::mt19937& random) {
  const bool ticks = IsIntraday(plan.period) && plan.period.size == 0;
  PriceWalk walk(plan.price, ticks, random);
  std::vector<Bar> bars;
  for (QDateTime const& moment : Moments(plan.period, records, random))
    bars.push_back(walk.Next(moment));
  return bars;
}

std::vector<std::uint32_t> RecordWords(Plan const& plan, Bar const& bar) {
  std::vector<std::uint32_t> words{MbfDate(bar.moment.date())};
  if (IsIntraday(plan.period)) words.push_back(MbfTime(bar.moment.time()));
  const int withoutOpen = IsIntraday(plan.period) ? kMinIntradayFields : kMinDailyFields;
  if (plan.fields > withoutOpen) words.push_back(MbfWord(bar.open));
  for (float value : {bar.high, bar.low, bar.close, bar.volume}) words.push_back(MbfWord(value));
  while (static_cast<int>(words.size()) < plan.fields) words.push_back(0);  // open interest
  return words;
}
