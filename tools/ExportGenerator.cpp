// export_generator: writes an export directory the way other programs make
// them, for demos and tests: a lower-case "master" index and beside it an
// "emaster" with long names for file numbers 1 to 255, an "xmaster" for file
// numbers from 256 on, upper-case "F<n>.DAT" data files of MBF floats
// ("F<n>.MWD" from 256 on), symbols padded with spaces, daily records of 7
// fields (R = 28), intraday and tick records of 8 fields (R = 32), ticks that
// share their second, and, on request, index entries whose data files are
// missing and data files with a zero tail or a header count that disagrees
// with their records.
//
//   export_generator --out DIR [--sample] [--instruments N]
//                    [--instrument SYMBOL,PERIOD[,FIELDS[,PRICE[,NAME]]]]... [--missing N]...
//                    [--records N] [--seed S] [--master-name NAME] [--no-emaster]
//                    [--data-case upper|lower|exact] [--tail N]
//                    [--header-count-extra N | --header-count-zero] [--list]
//
// The EMASTER and XMASTER are named in lower case when the index name has no
// upper-case letter (the default "master"), else in upper case.
//
// --list prints one tab-separated line per instrument (after a '#' header):
// file number, data file name ("-" when missing), index file (MASTER or
// XMASTER), symbol, period (D, W, M, Y, I<size>), fields, R, records, first
// and last moment (yyyy-MM-ddThh:mm:ss), first and last close (%.9g, exact
// as floats), long name.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <cstdio>
#include <optional>
#include <random>
#include <vector>

#include "ExportPlans.h"
#include "ExportWriter.h"

namespace {

constexpr int kMaxInstruments = 2000;
constexpr int kDefaultRecords = 200;
const QString kEmasterName = QStringLiteral("emaster");
const QString kXmasterName = QStringLiteral("xmaster");

// What the command line asks for besides the plans.
struct Settings {
  QString out;                    // the directory
  QString masterName;             // of the MASTER
  QString dataCase;               // "upper", "lower" or "exact"
  int records = kDefaultRecords;  // per instrument, at most
  unsigned seed = 1;
  int tail = 0;                    // zero records after every data file's records
  std::optional<int> headerExtra;  // header count records + 1 + this
  bool headerZero = false;         // header count 0
  bool emaster = true;             // write the EMASTER
  bool list = false;               // print the listing
};

bool InXmaster(int number) { return number > kMasterMaxFileNumber; }

// The EMASTER's or XMASTER's name, in the case of the MASTER's.
QString CompanionName(QString const& masterName, QString const& lowerName) {
  return masterName == masterName.toLower() ? lowerName : lowerName.toUpper();
}

QString DataFileName(QString const& dataCase, int number) {
  if (InXmaster(number)) {
    return dataCase == QLatin1String("lower") ? QStringLiteral("f%1.mwd").arg(number)
                                              : QStringLiteral("F%1.MWD").arg(number);
  }
  if (dataCase == QLatin1String("lower")) return QStringLiteral("f%1.dat").arg(number);
  if (dataCase == QLatin1String("exact")) return QStringLiteral("F%1.dat").arg(number);
  return QStringLiteral("F%1.DAT").arg(number);
}

DataFileShape ShapeOf(Settings const& settings, int rows) {
  DataFileShape shape{settings.tail, std::nullopt};
  if (settings.headerZero) shape.headerCount = 0;
  if (settings.headerExtra) shape.headerCount = rows + 1 + *settings.headerExtra;
  return shape;
}

QString MomentText(QDateTime const& moment) {
  return moment.toString(QStringLiteral("yyyy-MM-ddThh:mm:ss"));
}

void PrintListingHeader() {
  std::printf(
      "# number\tfile\tindex\tsymbol\tperiod\tfields\trecord_length\trecords\t"
      "first_time\tlast_time\tfirst_close\tlast_close\tname\n");
}

void PrintListing(int number, QString const& file, Plan const& plan, std::vector<Bar> const& bars) {
  const QByteArray moments =
      bars.empty()
          ? "-\t-"
          : (MomentText(bars.front().moment) + '\t' + MomentText(bars.back().moment)).toLatin1();
  char closes[64] = "-\t-";
  if (!bars.empty())
    std::snprintf(closes, sizeof closes, "%.9g\t%.9g", bars.front().close, bars.back().close);
  std::printf("%d\t%s\t%s\t%s\t%s\t%d\t%d\t%zu\t%s\t%s\t%s\n", number,
              plan.missing ? "-" : qPrintable(file), InXmaster(number) ? "XMASTER" : "MASTER",
              plan.symbol.constData(), qPrintable(PeriodText(plan.period)), plan.fields,
              plan.fields * kMbfFieldSize, bars.size(), moments.constData(), closes,
              plan.name.constData());
}

// Writes the data files and the index files; false on the first failure.
bool WriteDirectory(Settings const& settings, std::vector<Plan> const& plans) {
  std::mt19937 random(settings.seed);
  std::vector<ExportIndexRecord> master, xmaster;
  if (settings.list) PrintListingHeader();
  for (std::size_t k = 0; k < plans.size(); ++k) {
    Plan const& plan = plans[k];
    const int number = static_cast<int>(k) + 1;
    const int recordLength = plan.fields * kMbfFieldSize;
    const QString file = DataFileName(settings.dataCase, number);
    std::vector<Bar> bars;
    if (!plan.missing) {
      bars = Bars(plan, settings.records, random);
      std::vector<std::vector<std::uint32_t>> rows;
      for (Bar const& bar : bars) rows.push_back(RecordWords(plan, bar));
      const QByteArray bytes =
          EncodeDataFile(recordLength, rows, ShapeOf(settings, int(rows.size())));
      if (!WriteFileBytes(settings.out + QLatin1Char('/') + file, bytes)) return false;
    }
    ExportIndexRecord record{number,           recordLength, plan.fields, plan.period.letter,
                             plan.period.size, plan.symbol,  plan.name};
    if (!bars.empty()) {
      record.firstDate = bars.front().moment.date();
      record.lastDate = bars.back().moment.date();
    }
    (InXmaster(number) ? xmaster : master).push_back(record);
    if (settings.list) PrintListing(number, file, plan, bars);
  }
  const QString dir = settings.out + QLatin1Char('/');
  if (!WriteFileBytes(dir + settings.masterName, EncodeMaster(master))) return false;
  if (settings.emaster && !WriteFileBytes(dir + CompanionName(settings.masterName, kEmasterName),
                                          EncodeEmaster(master))) {
    return false;
  }
  return xmaster.empty() || WriteFileBytes(dir + CompanionName(settings.masterName, kXmasterName),
                                           EncodeXmaster(xmaster));
}

int Usage(QCommandLineParser const& parser, const char* problem) {
  std::fprintf(stderr, "export_generator: %s\n%s", problem, qPrintable(parser.helpText()));
  return 2;
}

// A flag without `value`, else an option taking one with its default.
QCommandLineOption Option(const char* name, const char* help, const char* value = nullptr,
                          QString const& fallback = {}) {
  if (value == nullptr) return QCommandLineOption(QLatin1String(name), QLatin1String(help));
  return QCommandLineOption(QLatin1String(name), QLatin1String(help), QLatin1String(value),
                            fallback);
}

// A non-negative integer option; nothing when it is bad.
std::optional<int> Count(QCommandLineParser const& parser, QCommandLineOption const& option) {
  bool ok = false;
  const int value = parser.value(option).toInt(&ok);
  return ok && value >= 0 ? std::optional<int>(value) : std::nullopt;
}

}  // namespace

int main(int argc, char* argv[]) {
  QCoreApplication application(argc, argv);
  QCommandLineParser parser;
  parser.setApplicationDescription(
      QStringLiteral("Writes an export directory: MASTER, EMASTER, XMASTER and F<n> data files."));
  parser.addHelpOption();
  const auto outOption = Option("out", "Directory to write (created).", "DIR");
  const auto sampleOption =
      Option("sample",
             "Daily EURUSD, GBPUSD, USDCHF, EURUSD I5 and ticks, and USDJPY without a data file.");
  const auto instrumentsOption =
      Option("instruments",
             "N instruments (1 to 2000) of mixed periods and fields; file numbers "
             "from 256 on go to XMASTER.",
             "N");
  const auto instrumentOption =
      Option("instrument",
             "One instrument: SYMBOL,PERIOD[,FIELDS[,PRICE[,NAME]]], PERIOD one of "
             "D W M Y I<minutes> (I0: ticks).",
             "INSTRUMENT");
  const auto missingOption = Option("missing", "Write no data file for file number N.", "N");
  const auto recordsOption =
      Option("records", "Data records per instrument (fewer when the period reaches 2038).", "N",
             QString::number(kDefaultRecords));
  const auto seedOption = Option("seed", "Random seed.", "S", "1");
  const auto masterOption = Option(
      "master-name", "Name of the MASTER; EMASTER and XMASTER follow its case.", "NAME", "master");
  const auto noEmasterOption = Option("no-emaster", "Write no EMASTER.");
  const auto caseOption =
      Option("data-case",
             "Data file names: upper (F1.DAT, F256.MWD), lower (f1.dat, f256.mwd) or exact "
             "(F1.dat, F256.MWD).",
             "CASE", "upper");
  const auto tailOption =
      Option("tail", "N zero records after the records of every data file.", "N", "0");
  const auto extraOption = Option("header-count-extra", "Header counts of records + 1 + N.", "N");
  const auto zeroOption = Option("header-count-zero", "Header counts of 0.");
  const auto listOption = Option("list", "Print what was written.");
  parser.addOptions({outOption, sampleOption, instrumentsOption, instrumentOption, missingOption,
                     recordsOption, seedOption, masterOption, noEmasterOption, caseOption,
                     tailOption, extraOption, zeroOption, listOption});
  parser.process(application);

  std::vector<Plan> plans;
  if (parser.isSet(sampleOption)) plans = SamplePlans();
  bool ok = true;
  if (parser.isSet(instrumentsOption)) {
    const int count = parser.value(instrumentsOption).toInt(&ok);
    if (!ok || count < 1 || count > kMaxInstruments)
      return Usage(parser, "--instruments takes 1 to 2000");
    for (Plan const& plan : MixedPlans(count)) plans.push_back(plan);
  }
  for (QString const& text : parser.values(instrumentOption)) {
    const std::optional<Plan> plan = ParsePlan(text);
    if (!plan) return Usage(parser, "bad --instrument");
    plans.push_back(*plan);
  }
  if (plans.empty() || plans.size() > std::size_t{kMaxInstruments}) {
    return Usage(parser, "give 1 to 2000 instruments (--sample, --instruments, --instrument)");
  }
  for (QString const& text : parser.values(missingOption)) {
    const int number = text.toInt(&ok);
    if (!ok || number < 1 || number > static_cast<int>(plans.size()))
      return Usage(parser, "bad --missing");
    plans[number - 1].missing = true;
  }

  Settings settings;
  const std::optional<int> records = Count(parser, recordsOption);
  if (!records) return Usage(parser, "bad --records");
  settings.records = *records;
  settings.seed = parser.value(seedOption).toUInt(&ok);
  if (!ok) return Usage(parser, "bad --seed");
  settings.dataCase = parser.value(caseOption);
  if (!QStringList{QStringLiteral("upper"), QStringLiteral("lower"), QStringLiteral("exact")}
           .contains(settings.dataCase)) {
    return Usage(parser, "bad --data-case");
  }
  settings.masterName = parser.value(masterOption);
  const QString lowerMaster = settings.masterName.toLower();
  if (settings.masterName.isEmpty() || lowerMaster == kEmasterName || lowerMaster == kXmasterName) {
    return Usage(parser, "bad --master-name");
  }
  const std::optional<int> tail = Count(parser, tailOption);
  if (!tail) return Usage(parser, "bad --tail");
  settings.tail = *tail;
  if (parser.isSet(extraOption)) {
    if (parser.isSet(zeroOption))
      return Usage(parser, "give --header-count-extra or --header-count-zero");
    settings.headerExtra = Count(parser, extraOption);
    if (!settings.headerExtra) return Usage(parser, "bad --header-count-extra");
  }
  settings.headerZero = parser.isSet(zeroOption);
  settings.emaster = !parser.isSet(noEmasterOption);
  settings.list = parser.isSet(listOption);
  settings.out = parser.value(outOption);
  if (settings.out.isEmpty()) return Usage(parser, "--out is required");
  if (!QDir().mkpath(settings.out)) {
    std::fprintf(stderr, "export_generator: cannot create %s\n", qPrintable(settings.out));
    return 1;
  }
  if (!WriteDirectory(settings, plans)) {
    std::fprintf(stderr, "export_generator: cannot write into %s\n", qPrintable(settings.out));
    return 1;
  }
  return 0;
}
