// export_generator: writes an export directory (a MASTER index and F<n> data
// files of MBF floats) the way other programs make them, for demos and tests:
// a lower-case "master", upper-case "F<n>.DAT", symbols padded with spaces,
// daily records of 7 fields (R = 28), intraday and tick records of 8 fields
// (R = 32), ticks that share their second, and, on request, index entries
// whose data files are missing.
//
//   export_generator --out DIR [--sample] [--instruments N]
//                    [--instrument SYMBOL,PERIOD[,FIELDS[,PRICE]]]... [--missing N]...
//                    [--records N] [--seed S] [--master-name NAME]
//                    [--data-case upper|lower|exact] [--list]
//
// --list prints one tab-separated line per index entry (after a '#' header):
// file number, data file name ("-" when missing), symbol, period (D, W, M, Y,
// I<size>), fields, R, records, first and last moment
// (yyyy-MM-ddThh:mm:ss), first and last close (%.9g, exact as floats).

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <random>
#include <vector>

#include "ExportWriter.h"

namespace {

constexpr int kMaxInstruments = 255;          // file numbers are one byte
constexpr int kDefaultRecords = 200;
constexpr int kDailyFields = 7;               // date, O, H, L, C, V, open interest
constexpr int kIntradayFields = 8;            // date, time, O, H, L, C, V, open interest
constexpr int kMinDailyFields = 5;            // date, H, L, C, V
constexpr int kMinIntradayFields = 6;         // date, time, H, L, C, V
constexpr char kIntraday = 'I';
constexpr char kEndOfPeriodLetters[] = "DWMY";
constexpr int kMaxIntradaySize = 32767;

// Moments: every period starts somewhere plausible and stops before 2038,
// where 32-bit times end.
const QDate kLastDate(2037, 12, 31);
const QDate kDailyStart(2015, 1, 2);
const QDate kWeeklyStart(2000, 1, 7);
const QDate kMonthlyStart(1990, 1, 31);
const QDate kYearlyStart(1970, 12, 31);
const QDate kIntradayStart(2024, 1, 2);
constexpr int kLastWeekday = 5;               // Friday
constexpr int kSecondsPerMinute = 60;
constexpr unsigned kTickStepSeconds = 3;      // 0, 1 or 2 seconds between ticks; 0 repeats the time

// Prices: a random walk kept on a grid of decimals that fits the price.
constexpr double kStepFraction = 0.004;       // largest move of a close, relative
constexpr double kRangeFraction = 0.001;      // largest reach of high and low beyond open and close
constexpr double kFloorFraction = 0.2;        // a close never falls below this part of the start
constexpr unsigned kUnitSteps = 1000000;      // resolution of a random fraction
constexpr unsigned kTickVolumes = 10;
constexpr unsigned kBarVolumeBase = 100;
constexpr unsigned kBarVolumes = 9901;
constexpr int kMissingEvery = 50;             // in a mixed set, every 50th data file is missing

struct Pair {
  const char* symbol;
  double price;
};
// Sample prices: most near 1.0 to 1.5 (MBF exponent 0x81), some below 1
// (0x80), and larger ones for other exponents.
constexpr Pair kPairs[] = {
    {"EURUSD", 1.10}, {"GBPUSD", 1.27}, {"USDCHF", 0.88}, {"AUDUSD", 0.66},
    {"USDCAD", 1.35}, {"USDJPY", 148.0}, {"NZDUSD", 0.61}, {"XAUUSD", 2030.0},
};

struct Period {
  char letter;
  int size;  // minutes for 'I'; 0: ticks
};
constexpr Period kMixedPeriods[] = {{'D', 0}, {'W', 0}, {'M', 0}, {'Y', 0}, {'I', 1},
                                    {'I', 5}, {'I', 15}, {'I', 60}, {'I', 0}};
constexpr int kDailyFieldChoices[] = {7, 5, 6};
constexpr int kIntradayFieldChoices[] = {8, 6, 7};

struct Plan {
  QByteArray symbol;
  Period period;
  int fields;
  double price;   // first close
  bool missing;   // the index lists it, no data file is written
};

struct Bar {
  QDateTime moment;  // as written; no time zone
  float open, high, low, close, volume;
};

bool IsIntraday(Period period) { return period.letter == kIntraday; }
int DefaultFields(Period period) { return IsIntraday(period) ? kIntradayFields : kDailyFields; }

// ---------------------------------------------------------------------------
// Moments.

QDate LastDayOfMonth(QDate date) { return QDate(date.year(), date.month(), 1).addMonths(1).addDays(-1); }

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
  const int seconds = period.size > 0 ? period.size * kSecondsPerMinute : static_cast<int>(random() % kTickStepSeconds);
  QDateTime next = moment.addSecs(seconds);
  while (next.date().dayOfWeek() > kLastWeekday) next = QDateTime(next.date().addDays(1), QTime(0, 0), Qt::UTC);
  return next;
}

// Up to `count` moments of the period, none after kLastDate.
std::vector<QDateTime> Moments(Period period, int count, std::mt19937& random) {
  std::vector<QDateTime> moments;
  QDateTime moment(IsIntraday(period) ? kIntradayStart : FirstDate(period.letter), QTime(0, 0), Qt::UTC);
  while (static_cast<int>(moments.size()) < count && moment.date() <= kLastDate) {
    moments.push_back(moment);
    moment = IsIntraday(period) ? NextMoment(period, moment, random)
                                : QDateTime(NextDate(period.letter, moment.date()), QTime(0, 0), Qt::UTC);
  }
  return moments;
}

// ---------------------------------------------------------------------------
// Prices.

class PriceWalk {
 public:
  PriceWalk(double start, bool ticks, std::mt19937& random)
      : scale_(start < 10 ? 1e5 : start < 1000 ? 1e3 : 1e2),
        floor_(Round(start * kFloorFraction)),
        close_(Round(start)),
        ticks_(ticks),
        random_(random) {}

  Bar Next(QDateTime const& moment) {
    const double open = close_;
    if (started_) close_ = std::max(floor_, Round(open * (1 + (Fraction() - 0.5) * kStepFraction)));
    started_ = true;
    const double high = Round(std::max(open, close_) * (1 + Fraction() * kRangeFraction));
    const double low = std::max(floor_, Round(std::min(open, close_) * (1 - Fraction() * kRangeFraction)));
    const unsigned volume = ticks_ ? 1 + random_() % kTickVolumes : kBarVolumeBase + random_() % kBarVolumes;
    return {moment, float(open), float(high), float(low), float(close_), float(volume)};
  }

 private:
  double Round(double value) const { return std::round(value * scale_) / scale_; }
  double Fraction() { return double(random_() % (kUnitSteps + 1)) / kUnitSteps; }

  const double scale_;
  const double floor_;
  double close_;
  bool started_ = false;
  const bool ticks_;
  std::mt19937& random_;
};

// The MBF words of one record, in the order its field count implies.
std::vector<std::uint32_t> RecordWords(Plan const& plan, Bar const& bar) {
  std::vector<std::uint32_t> words{MbfDate(bar.moment.date())};
  if (IsIntraday(plan.period)) words.push_back(MbfTime(bar.moment.time()));
  const int withoutOpen = IsIntraday(plan.period) ? kMinIntradayFields : kMinDailyFields;
  if (plan.fields > withoutOpen) words.push_back(MbfWord(bar.open));
  for (float value : {bar.high, bar.low, bar.close, bar.volume}) words.push_back(MbfWord(value));
  while (static_cast<int>(words.size()) < plan.fields) words.push_back(0);  // open interest
  return words;
}

// ---------------------------------------------------------------------------
// Plans.

std::vector<Plan> SamplePlans() {
  return {
      {"EURUSD", {'D', 0}, kDailyFields, 1.10, false},
      {"GBPUSD", {'D', 0}, kDailyFields, 1.27, false},
      {"USDCHF", {'D', 0}, kDailyFields, 0.88, false},
      {"EURUSD", {'I', 5}, kIntradayFields, 1.09, false},
      {"EURUSD", {'I', 0}, kIntradayFields, 1.09, false},
      {"USDJPY", {'D', 0}, kDailyFields, 148.0, true},
  };
}

// Pairs by periods, field counts varied; from the 73rd on the symbols carry a
// number so that no symbol and period repeats.
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
    if (round > 0) symbol += QByteArray::number(round + 1);
    const int fields = IsIntraday(period) ? kIntradayFieldChoices[choice] : kDailyFieldChoices[choice];
    plans.push_back({symbol, period, fields, pair.price, k % kMissingEvery == kMissingEvery - 1});
  }
  return plans;
}

std::optional<Period> ParsePeriod(QString const& text) {
  if (text.size() == 1 && QByteArray(kEndOfPeriodLetters).contains(text[0].toLatin1())) {
    return Period{text[0].toLatin1(), 0};
  }
  bool ok = false;
  const int size = text.mid(1).toInt(&ok);
  if (!text.startsWith(QLatin1Char(kIntraday)) || !ok || size < 0 || size > kMaxIntradaySize) return std::nullopt;
  return Period{kIntraday, size};
}

// SYMBOL,PERIOD[,FIELDS[,PRICE]]
std::optional<Plan> ParsePlan(QString const& text) {
  const QStringList parts = text.split(QLatin1Char(','));
  if (parts.size() < 2 || parts.size() > 4) return std::nullopt;
  const QByteArray symbol = parts[0].toLatin1();
  const std::optional<Period> period = ParsePeriod(parts[1]);
  if (symbol.isEmpty() || symbol.size() > kMasterSymbolSize || symbol.contains('\t') || !period) return std::nullopt;
  Plan plan{symbol, *period, DefaultFields(*period), kPairs[0].price, false};
  bool ok = true;
  if (parts.size() > 2 && !parts[2].isEmpty()) plan.fields = parts[2].toInt(&ok);
  const int fewest = IsIntraday(*period) ? kMinIntradayFields : kMinDailyFields;
  if (!ok || plan.fields < fewest || plan.fields > DefaultFields(*period)) return std::nullopt;
  if (parts.size() > 3) plan.price = parts[3].toDouble(&ok);
  if (!ok || !(plan.price > 0)) return std::nullopt;
  return plan;
}

// ---------------------------------------------------------------------------
// Output.

QString PeriodText(Period period) {
  return QString(QLatin1Char(period.letter)) + (IsIntraday(period) ? QString::number(period.size) : QString());
}

QString MomentText(QDateTime const& moment) { return moment.toString(QStringLiteral("yyyy-MM-ddThh:mm:ss")); }

void PrintListingHeader() {
  std::printf("# number\tfile\tsymbol\tperiod\tfields\trecord_length\trecords\t"
              "first_time\tlast_time\tfirst_close\tlast_close\n");
}

void PrintListing(int number, QString const& file, Plan const& plan, std::vector<Bar> const& bars) {
  const QByteArray moments = bars.empty() ? "-\t-" : (MomentText(bars.front().moment) + '\t' +
                                                      MomentText(bars.back().moment)).toLatin1();
  char closes[64] = "-\t-";
  if (!bars.empty()) std::snprintf(closes, sizeof closes, "%.9g\t%.9g", bars.front().close, bars.back().close);
  std::printf("%d\t%s\t%s\t%s\t%d\t%d\t%zu\t%s\t%s\n", number, plan.missing ? "-" : qPrintable(file),
              plan.symbol.constData(), qPrintable(PeriodText(plan.period)), plan.fields,
              plan.fields * kMbfFieldSize, bars.size(), moments.constData(), closes);
}

QString DataFileName(QString const& dataCase, int number) {
  if (dataCase == QLatin1String("lower")) return QStringLiteral("f%1.dat").arg(number);
  if (dataCase == QLatin1String("exact")) return QStringLiteral("F%1.dat").arg(number);
  return QStringLiteral("F%1.DAT").arg(number);
}

// Writes the data files and the index; false on the first failure.
bool WriteDirectory(QString const& out, QString const& masterName, QString const& dataCase,
                    std::vector<Plan> const& plans, int records, unsigned seed, bool list) {
  std::mt19937 random(seed);
  std::vector<ExportIndexRecord> index;
  if (list) PrintListingHeader();
  for (std::size_t k = 0; k < plans.size(); ++k) {
    Plan const& plan = plans[k];
    const int number = static_cast<int>(k) + 1;
    const int recordLength = plan.fields * kMbfFieldSize;
    index.push_back({number, recordLength, plan.fields, plan.period.letter, plan.period.size, plan.symbol});
    std::vector<Bar> bars;
    if (!plan.missing) {
      const bool ticks = IsIntraday(plan.period) && plan.period.size == 0;
      PriceWalk walk(plan.price, ticks, random);
      std::vector<std::vector<std::uint32_t>> rows;
      for (QDateTime const& moment : Moments(plan.period, records, random)) {
        bars.push_back(walk.Next(moment));
        rows.push_back(RecordWords(plan, bars.back()));
      }
      const QString file = DataFileName(dataCase, number);
      if (!WriteFileBytes(out + QLatin1Char('/') + file, EncodeDataFile(recordLength, rows))) return false;
    }
    if (list) PrintListing(number, DataFileName(dataCase, number), plan, bars);
  }
  return WriteFileBytes(out + QLatin1Char('/') + masterName, EncodeMaster(index));
}

int Usage(QCommandLineParser const& parser, const char* problem) {
  std::fprintf(stderr, "export_generator: %s\n%s", problem, qPrintable(parser.helpText()));
  return 2;
}

}  // namespace

int main(int argc, char* argv[]) {
  QCoreApplication application(argc, argv);
  QCommandLineParser parser;
  parser.setApplicationDescription(QStringLiteral("Writes an export directory: MASTER and F<n> data files."));
  parser.addHelpOption();
  const QCommandLineOption outOption(QStringLiteral("out"), QStringLiteral("Directory to write (created)."),
                                     QStringLiteral("DIR"));
  const QCommandLineOption sampleOption(QStringLiteral("sample"),
                                        QStringLiteral("Daily EURUSD, GBPUSD, USDCHF, EURUSD I5 and ticks, "
                                                       "and USDJPY without a data file."));
  const QCommandLineOption instrumentsOption(QStringLiteral("instruments"),
                                             QStringLiteral("N instruments of mixed periods and fields."),
                                             QStringLiteral("N"));
  const QCommandLineOption instrumentOption(QStringLiteral("instrument"),
                                            QStringLiteral("One instrument: SYMBOL,PERIOD[,FIELDS[,PRICE]], "
                                                           "PERIOD one of D W M Y I<minutes> (I0: ticks)."),
                                            QStringLiteral("INSTRUMENT"));
  const QCommandLineOption missingOption(QStringLiteral("missing"),
                                         QStringLiteral("Write no data file for file number N."),
                                         QStringLiteral("N"));
  const QCommandLineOption recordsOption(QStringLiteral("records"),
                                         QStringLiteral("Data records per instrument (fewer when the period "
                                                        "reaches 2038)."),
                                         QStringLiteral("N"), QString::number(kDefaultRecords));
  const QCommandLineOption seedOption(QStringLiteral("seed"), QStringLiteral("Random seed."), QStringLiteral("S"),
                                      QStringLiteral("1"));
  const QCommandLineOption masterOption(QStringLiteral("master-name"), QStringLiteral("Name of the index file."),
                                        QStringLiteral("NAME"), QStringLiteral("master"));
  const QCommandLineOption caseOption(QStringLiteral("data-case"),
                                      QStringLiteral("Data file names: upper (F1.DAT), lower (f1.dat) or "
                                                     "exact (F1.dat)."),
                                      QStringLiteral("CASE"), QStringLiteral("upper"));
  const QCommandLineOption listOption(QStringLiteral("list"), QStringLiteral("Print what was written."));
  parser.addOptions({outOption, sampleOption, instrumentsOption, instrumentOption, missingOption, recordsOption,
                     seedOption, masterOption, caseOption, listOption});
  parser.process(application);

  std::vector<Plan> plans;
  if (parser.isSet(sampleOption)) plans = SamplePlans();
  bool ok = true;
  if (parser.isSet(instrumentsOption)) {
    const int count = parser.value(instrumentsOption).toInt(&ok);
    if (!ok || count < 1 || count > kMaxInstruments) return Usage(parser, "--instruments takes 1 to 255");
    for (Plan const& plan : MixedPlans(count)) plans.push_back(plan);
  }
  for (QString const& text : parser.values(instrumentOption)) {
    const std::optional<Plan> plan = ParsePlan(text);
    if (!plan) return Usage(parser, "bad --instrument");
    plans.push_back(*plan);
  }
  if (plans.empty() || plans.size() > std::size_t{kMaxInstruments}) {
    return Usage(parser, "give 1 to 255 instruments (--sample, --instruments, --instrument)");
  }
  for (QString const& text : parser.values(missingOption)) {
    const int number = text.toInt(&ok);
    if (!ok || number < 1 || number > static_cast<int>(plans.size())) return Usage(parser, "bad --missing");
    plans[number - 1].missing = true;
  }
  const int records = parser.value(recordsOption).toInt(&ok);
  if (!ok || records < 0) return Usage(parser, "bad --records");
  const unsigned seed = parser.value(seedOption).toUInt(&ok);
  if (!ok) return Usage(parser, "bad --seed");
  const QString dataCase = parser.value(caseOption);
  if (!QStringList{QStringLiteral("upper"), QStringLiteral("lower"), QStringLiteral("exact")}.contains(dataCase)) {
    return Usage(parser, "bad --data-case");
  }
  const QString out = parser.value(outOption);
  if (out.isEmpty()) return Usage(parser, "--out is required");
  if (!QDir().mkpath(out)) {
    std::fprintf(stderr, "export_generator: cannot create %s\n", qPrintable(out));
    return 1;
  }
  if (!WriteDirectory(out, parser.value(masterOption), dataCase, plans, records, seed, parser.isSet(listOption))) {
    std::fprintf(stderr, "export_generator: cannot write into %s\n", qPrintable(out));
    return 1;
  }
  return 0;
}
