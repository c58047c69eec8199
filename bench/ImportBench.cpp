// import_bench: the module's import of an export directory as a user runs
// it, against a plain reader of the same files in the same run.
//
// export_generator writes 255 instruments of up to 5,000 records once (a
// mixed set: every period, some data files missing). Then rounds alternate:
//   - module: a fresh copy of the built library in a fresh data folder,
//     loaded through the reference host and started as a terminal starts it
//     (default durability); its menu entry opens the import dialog on the
//     directory, and OK is clicked with every row checked. The click runs
//     the conversion and posts the inserts; an insert of no records with a
//     completion call, posted after it, tells when the worker has written
//     them all. Timed from the click to that completion call; the dialog's
//     open-to-filled time and the click alone are shown beside it.
//   - plain: PlainImport.h into a fresh folder: read, convert, one write per
//     instrument, no fsync.
// Prints the median and fastest of each, records per second, and the target:
// module at most 2x the plain reader (medians). Runs in the process's time
// zone as given. Everything lives in a fresh folder under $TMPDIR (or /tmp),
// removed at the end. Takes no arguments.

#include <QApplication>
#include <QDialog>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Candles.h"
#include "ImportDialogDriver.h"
#include "Machine.h"
#include "ModuleHost.h"
#include "PlainImport.h"
#include "SymbolRequest.h"
#include "TemporaryFolder.h"
#include "TableText.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr char kFolderTemplate[] = "import_bench.XXXXXX";
constexpr int kInstruments = 255;
constexpr int kRecords = 5'000;
constexpr int kRounds = 5;         // alternating module and plain rounds
constexpr double kMaxRatio = 2.0;  // target: module / plain, medians

constexpr char kHostProvider[] = "Bench";  // data source the host reports (3012)
constexpr char kLanguage[] = "English";
constexpr char kOkKey[] = "C0049Ok";             // translation key of the dialog's OK
constexpr unsigned int kInsertDone = 7004;       // completion code of the closing insert
constexpr std::chrono::minutes kInsertWait{10};  // longest wait for it
constexpr char kOffscreenPlatform[] = "offscreen";

constexpr int kTitleWidth = 44;
constexpr int kColumnWidth = 12;
constexpr std::size_t kTextCapacity = 64;

void GenerateExport(fs::path const& folder) {
  const QStringList arguments = {
      QStringLiteral("--out"),         QString::fromStdString(folder.string()),
      QStringLiteral("--instruments"), QString::number(kInstruments),
      QStringLiteral("--records"),     QString::number(kRecords)};
  if (QProcess::execute(QStringLiteral(EXPORT_GENERATOR_PATH), arguments) != 0) {
    throw std::runtime_error("export_generator failed");
  }
}

// The completion call of the closing insert, made on the module's worker.
class InsertDone {
 public:
  int OnMessage(unsigned int message) {
    if (message != kInsertDone) return 0;
    std::lock_guard<std::mutex> lock(mu_);
    at_ = Clock::now();
    arrived_.notify_all();
    return 0;
  }

  Clock::time_point Wait() {
    std::unique_lock<std::mutex> lock(mu_);
    if (!arrived_.wait_for(lock, kInsertWait, [this] { return at_.has_value(); })) {
      throw std::runtime_error("the worker did not finish the imported inserts in time");
    }
    return *at_;
  }

 private:
  std::mutex mu_;                        // guards at_
  std::condition_variable arrived_;      // signalled when at_ is set
  std::optional<Clock::time_point> at_;  // when the call arrived
};

struct ModuleTimes {
  Seconds fill{};   // menu entry chosen to dialog filled
  Seconds click{};  // OK clicked until the click returns
  Seconds total{};  // OK clicked until the worker has written every insert
  int rows = 0;     // rows imported
};

// The symbol the importer stores a row under, as 6001 asks for it.
SYMBOL_NAME_PERIOD ImportedSymbol(ImportRow const& row) {
  SYMBOL_PERIOD period{};
  SYMBOL_NAME_PERIOD request{};
  std::string error;
  const std::u16string name = row.symbol.section(QLatin1Char(' '), 0, 0).toStdU16String();
  if (!ParsePeriod(QString(row.period).remove(QLatin1Char(' ')).toStdString(), &period, &error) ||
      !MakeSymbolRequest(kImportProvider, name, row.priceType.toStdString(), period, &request,
                         &error)) {
    throw std::runtime_error("cannot name an imported row: " + error);
  }
  return request;
}

// One module round: the library loaded and started in `folder`, its menu
// entry added; the destructor closes the dialog, stops and unloads it.
class ModuleRound {
 public:
  ModuleRound(fs::path const& exportFolder, fs::path const& folder)
      : library_(folder / "libdatastore.so") {
    fs::create_directories(folder / "config");
    fs::copy_file(DATASTORE_MODULE_PATH, library_);
    host_.setHandler(
        [this](unsigned int message, HostArg, HostArg) { return done_.OnMessage(message); });
    if (!host_.load(library_.string()))
      throw std::runtime_error("cannot load the module: " + host_.error());
    host_.setFolder(VD_FOLDER_CONFIG, (folder / "config").u16string());
    host_.setFolder(VD_FOLDER_DATA, (folder / "data").u16string());
    host_.setFolder(VD_FOLDER_IMPORT, exportFolder.u16string());
    host_.setWorkFolder((folder / "data").u16string());
    host_.setDataSource(kHostProvider);
    host_.setLanguages({{kLanguage, true}});
    host_.initialize();
    Send(HostMessage::InitModule, "initialise (3007)");
    Send(HostMessage::Start, "start (3004)");
    translator_.learn(host_);
    QCoreApplication::installTranslator(&translator_);
    host_.send(HostMessage::CreateMenu);
    if (host_.menuItems().empty())
      throw std::runtime_error("the module added no menu entry (3066)");
  }

  ~ModuleRound() {
    if (!dialog_.isNull()) dialog_->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::removeTranslator(&translator_);
    host_.send(HostMessage::Stop);
    host_.unload();
  }

  ModuleRound(const ModuleRound&) = delete;
  ModuleRound& operator=(const ModuleRound&) = delete;

  ModuleTimes Import() {
    ModuleTimes times;
    const Clock::time_point opened = Clock::now();
    host_.pressMenuItem(host_.menuItems().size() - 1);
    dialog_ = FindOpenDialog();
    times.fill = Clock::now() - opened;
    if (dialog_.isNull()) throw std::runtime_error("the module opened no dialog (5511)");
    QPushButton* ok = FindButton(dialog_, translator_.text(kOkKey));
    const std::vector<ImportRow> rows = CheckedRows(dialog_);
    if (ok == nullptr || !ok->isEnabled() || rows.empty())
      throw std::runtime_error("the dialog offers no import");
    times.rows = static_cast<int>(rows.size());

    const Clock::time_point clicked = Clock::now();
    ok->click();  // converts every row and posts its insert
    times.click = Clock::now() - clicked;
    AwaitInserts(rows.back());
    times.total = done_.Wait() - clicked;
    return times;
  }

 private:
  void Send(unsigned int message, const char* what) {
    if (host_.send(message) != 0)
      throw std::runtime_error(std::string("the module refused to ") + what);
  }

  // The worker serves posted inserts in order, so the completion of an
  // insert of no records posted now comes after every imported one.
  void AwaitInserts(ImportRow const& row) {
    SYMBOL_NAME_PERIOD request = ImportedSymbol(row);
    HostWord handle = 0;
    host_.send(HostMessage::OpenSymbol, reinterpret_cast<HostArg>(&request),
               reinterpret_cast<HostArg>(&handle));
    if (handle == 0) throw std::runtime_error("cannot open an imported symbol (6001)");
    if (host_.postInsert(handle, 0, nullptr, kInsertDone) != 0) {
      throw std::runtime_error("the closing insert was refused");
    }
  }

  const fs::path library_;     // this round's copy of the library
  InsertDone done_;            // outlives host_, whose worker calls it
  HostTranslator translator_;  // the module's default texts
  ModuleHost host_;
  QPointer<QDialog> dialog_;  // the module's dialog; it may delete itself
};

struct Results {
  std::vector<ModuleTimes> module;
  std::vector<Seconds> plain;
  PlainImportCounts counts;
};

ModuleTimes ModuleOnce(fs::path const& exportFolder, fs::path const& folder) {
  ModuleRound round(exportFolder, folder);
  return round.Import();
}

Seconds PlainOnce(fs::path const& exportFolder, fs::path const& folder, PlainImportCounts* counts) {
  fs::create_directories(folder);
  const Clock::time_point start = Clock::now();
  *counts = PlainImport(exportFolder, folder);
  return Clock::now() - start;
}

// Every round's folder stays until the end: files made just after thousands
// were deleted cost ext4 a long search for a free inode.
Results Measure(fs::path const& root) {
  const fs::path exportFolder = root / "export";
  GenerateExport(exportFolder);
  Results results;
  for (int round = 0; round < kRounds; ++round) {
    const std::string suffix = std::to_string(round);
    results.module.push_back(ModuleOnce(exportFolder, root / ("module." + suffix)));
    results.plain.push_back(PlainOnce(exportFolder, root / ("plain." + suffix), &results.counts));
  }
  return results;
}

struct Stats {
  double median = 0;  // seconds
  double fastest = 0;
};

Stats StatsOf(std::vector<Seconds> times) {
  std::sort(times.begin(), times.end());
  return {times[times.size() / 2].count(), times.front().count()};
}

Stats StatsOf(std::vector<ModuleTimes> const& times, Seconds ModuleTimes::*member) {
  std::vector<Seconds> picked;
  for (ModuleTimes const& t : times) picked.push_back(t.*member);
  return StatsOf(picked);
}

std::string Format(const char* format, double value) {
  char text[kTextCapacity];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

void PrintRow(std::string const& title, Stats const& stats, std::int64_t records,
              std::ostream& out) {
  out << Left(title, kTitleWidth) << Cell(Format("%.3f s", stats.median), kColumnWidth)
      << Cell(Format("%.3f s", stats.fastest), kColumnWidth)
      << Cell(records > 0 ? Format("%.3g", double(records) / stats.median) : "", kColumnWidth)
      << "\n";
}

void PrintResults(Results const& r, std::ostream& out) {
  const Stats total = StatsOf(r.module, &ModuleTimes::total);
  const Stats plain = StatsOf(r.plain);
  const std::int64_t records = r.counts.records;
  out << "\nSummary: import of " << kInstruments << " instruments x up to " << Thousands(kRecords)
      << " records: " << r.counts.instruments << " data files, "
      << Thousands(static_cast<int>(records))
      << " records; module rows imported: " << r.module.front().rows << "; " << kRounds
      << " alternating rounds\n\n"
      << Left("case", kTitleWidth) << Cell("median", kColumnWidth) << Cell("fastest", kColumnWidth)
      << Cell("records/s", kColumnWidth) << "\n";
  PrintRow("module: OK clicked to last insert written", total, records, out);
  PrintRow("  of which the click (conversion, posts)", StatsOf(r.module, &ModuleTimes::click), 0,
           out);
  PrintRow("module: dialog opened to filled", StatsOf(r.module, &ModuleTimes::fill), 0, out);
  PrintRow("plain reader: read, convert, one write each", plain, records, out);
  const double ratio = total.median / plain.median;
  out << "\nTargets\n\n"
      << Left("module / plain reader <= " + Format("%.0fx", kMaxRatio) + " (medians)", kTitleWidth)
      << Cell(Format("%.2fx", ratio), kColumnWidth) << "  "
      << (ratio <= kMaxRatio ? "met" : "MISSED")
      << "   (fastest: " << Format("%.2fx", total.fastest / plain.fastest) << ")\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    std::cerr << "usage: " << argv[0] << "\n";
    return EXIT_FAILURE;
  }
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", kOffscreenPlatform);
  QApplication application(argc, argv);
  try {
    TemporaryFolder folder(kFolderTemplate);
    const std::string loadAtStart = LoadAverage();
    const Results results = Measure(folder.path());
    PrintResults(results, std::cout);
    PrintMachine(folder.path(), loadAtStart, std::cout);
  } catch (std::exception const& error) {
    std::cerr << "import_bench: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
