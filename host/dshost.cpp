// dshost: the reference host as a program. Loads a module file as a terminal
// does and drives it with one command per run: Initialize, InitModule (3007),
// Start (3004), the command's own messages, then Stop (3005).

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QMainWindow>
#include <QMenuBar>
#include <QPointer>
#include <QPushButton>
#include <QString>
#include <QTemporaryDir>
#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "ImportDialogDriver.h"
#include "ModuleHost.h"
#include "RecordCsv.h"
#include "SymbolRequest.h"

namespace {

constexpr int kExitUsage = 2;                        // bad arguments
constexpr int kExitFailure = 1;                      // the command failed
constexpr const char* kModuleEnvironment = "DATASTORE_MODULE";
constexpr const char* kModuleFileName = "libdatastore.so";
constexpr const char* kDefaultProvider = "dshost";   // data source the host reports
constexpr const char* kCurrentLanguage = "English";  // the only language the host offers
constexpr std::size_t kSymbolOperands = 2;           // SYMBOL PERIOD
constexpr std::size_t kHelpWidth = 79;               // columns of --help text
constexpr int kHelpIndent = 6;                       // columns before an entry's text

// Modes of GET_SYMBOL_DATA_REQUEST.
constexpr std::int32_t kModeNewest = 0;              // the last count records
constexpr std::int32_t kModeRange = 1;               // records between two times
constexpr std::int32_t kModeOldest = 2;              // the first count records
constexpr std::int32_t kEveryRecord = std::numeric_limits<std::int32_t>::max();  // count of "all"
constexpr std::int32_t kEarliest = std::numeric_limits<std::int32_t>::min();    // --from default
constexpr std::int32_t kLatest = std::numeric_limits<std::int32_t>::max();      // --to default

// Completion code of a posted insert: no message of the host's own, so the
// host hands the completion call to its user handler.
constexpr unsigned int kInsertDoneMessage = 7004;
constexpr std::chrono::seconds kInsertWait{60};      // longest wait for that call

// The module's import dialog.
constexpr const char* kImportProvider = "QUENDAL";   // provider of the symbols its importer opens
constexpr const char* kOkKey = "C0049Ok";            // translation key of its OK button
constexpr const char* kImportedProperty = "importedInstruments";  // the dialog's count of imported instruments
constexpr std::uint32_t kReportLogLevel = 3;         // host log level of the module's reports
constexpr const char* kModulesMenu = "&Modules";     // gui's menu of the modules' entries
constexpr int kWindowWidth = 640;                    // gui's main window
constexpr int kWindowHeight = 400;
constexpr const char* kOffscreenPlatform = "offscreen";

// What a command needs of the user interface.
enum class Display {
  kNone,       // no widgets: a QCoreApplication
  kOffscreen,  // widgets nobody sees: the offscreen platform unless QT_QPA_PLATFORM names one
  kScreen,     // widgets on the user's screen
};

struct Arguments {
  const char* command = nullptr;                     // the command's name
  std::map<std::string, std::string> options;        // "--module" -> value
  std::vector<std::string> operands;                 // what follows the command name
};

struct Command {
  const char* name;                                  // first operand
  const char* synopsis;                              // what follows the name in a usage line
  const char* summary;                               // what it does
  std::vector<std::string> options;                  // value options of its own
  std::size_t operands;                              // operands it needs after its name
  int (*run)(const Arguments& arguments);
  Display display = Display::kNone;                  // the application it runs in
};

struct OptionHelp {
  const char* name;                                  // "--module"
  const char* value;                                 // "PATH"
  const char* text;                                  // what it does
};

const std::vector<std::string> kGlobalOptions = {"--module", "--data", "--config", "--provider"};

const OptionHelp kOptionHelp[] = {
    {"--module", "PATH",
     "module file; default: $DATASTORE_MODULE, else ../" DSHOST_INSTALL_LIBDIR
     "/libdatastore.so next to dshost, else the build tree's"},
    {"--data", "DIR",
     "data folder the host hands out (3128, type 100), also as import and work folder; "
     "default: the current folder, for info a temporary folder removed on exit"},
    {"--config", "DIR",
     "configuration folder, where the module reads pelto.cfg (3128, type 2); "
     "default: the data folder"},
    {"--provider", "NAME",
     "data provider: the host reports it (3012) and names it in symbol requests; "
     "default: dshost"},
    {"--code", "C",
     "the symbol's code (its file name part); default: SYMBOL without every character "
     "that is not an ASCII letter or digit"},
    {"--last", "N", "the newest N records"},
    {"--first", "N", "the oldest N records"},
    {"--from", "T",
     "records from T on, led by the last record before T (the module's time range); "
     "default: the earliest time"},
    {"--to", "T", "records before T; default: the latest time"},
};

constexpr const char* kNotes =
    "SYMBOL is the instrument's name, such as EUR/USD.\n"
    "PERIOD is I0 (ticks), I<n> (intraday bars of length n), D, W, M or Y.\n"
    "T is an epoch number or an ISO 8601 UTC time such as 2024-01-02T03:04:05Z.\n"
    "Records are CSV: time,epoch and then Value,Volume for ticks or\n"
    "Open,High,Low,Close,Volume for bars.\n";

int UsageError(const std::string& message, const char* command = nullptr) {
  std::fprintf(stderr, "dshost: %s\nRun 'dshost %s%s--help' for usage.\n", message.c_str(),
               command == nullptr ? "" : command, command == nullptr ? "" : " ");
  return kExitUsage;
}

int Failure(const std::string& message) {
  std::fprintf(stderr, "dshost: %s\n", message.c_str());
  return kExitFailure;
}

// Failure for the steps of a command, which answer whether they succeeded.
bool StepFailed(const std::string& message) {
  Failure(message);
  return false;
}

std::string Utf8(const QString& text) { return text.toStdString(); }
std::string Utf8(const std::u16string& text) { return Utf8(QString::fromStdU16String(text)); }

std::string Option(const Arguments& arguments, const std::string& name,
                   const std::string& fallback = "") {
  const auto it = arguments.options.find(name);
  return it == arguments.options.end() ? fallback : it->second;
}

bool Has(const Arguments& arguments, const std::string& name) {
  return arguments.options.count(name) != 0;
}

// A fixed 8-bit field as printable text: bytes outside ASCII as \xNN.
std::string Printable(const char* field, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size && field[i] != 0; ++i) {
    const auto byte = static_cast<unsigned char>(field[i]);
    if (std::isprint(byte)) {
      text += static_cast<char>(byte);
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
      text += escaped;
    }
  }
  return text;
}

std::string ModulePath(const Arguments& arguments) {
  if (Has(arguments, "--module")) return Option(arguments, "--module");
  if (const char* environment = std::getenv(kModuleEnvironment)) return environment;
  const QString installed = QDir(QCoreApplication::applicationDirPath())
                                .filePath(QStringLiteral("../" DSHOST_INSTALL_LIBDIR "/") +
                                          QString::fromLatin1(kModuleFileName));
  if (QFileInfo::exists(installed)) return Utf8(QDir::cleanPath(installed));
  return DSHOST_BUILD_MODULE;
}

std::u16string AbsoluteFolder(const QString& folder) {
  return QDir::cleanPath(QDir(folder).absolutePath()).toStdU16String();
}

// Loads the module and sets the host's answers: the data folder is --data,
// else defaultData. Returns false after printing the problem.
bool LoadModule(const Arguments& arguments, const QString& defaultData, ModuleHost* host) {
  const QString data = Has(arguments, "--data")
                           ? QString::fromLocal8Bit(Option(arguments, "--data"))
                           : defaultData;
  const QString config = Has(arguments, "--config")
                             ? QString::fromLocal8Bit(Option(arguments, "--config"))
                             : data;
  if (data.isEmpty() || config.isEmpty()) return StepFailed("a folder option is empty");
  if (!host->load(ModulePath(arguments))) return StepFailed(host->error());
  host->setFolder(VD_FOLDER_CONFIG, AbsoluteFolder(config));
  host->setFolder(VD_FOLDER_DATA, AbsoluteFolder(data));
  host->setFolder(VD_FOLDER_IMPORT, AbsoluteFolder(data));
  host->setWorkFolder(AbsoluteFolder(data));
  host->setDataSource(Option(arguments, "--provider", kDefaultProvider));
  host->setLanguages({{kCurrentLanguage, true}});
  return true;
}

// Loads, initialises and starts the module for a data command.
bool StartModule(const Arguments& arguments, ModuleHost* host) {
  if (!LoadModule(arguments, QDir::currentPath(), host)) return false;
  host->initialize();
  host->send(HostMessage::InitModule);
  host->send(HostMessage::Start);
  return true;
}

// ---------------------------------------------------------------------------
// info

void PrintInfo(const MODULE_INFO& info) {
  std::printf("Module information\n");
  std::printf("  name          %s\n", Printable(info.name, sizeof info.name).c_str());
  std::printf("  description   %s\n", Printable(info.description, sizeof info.description).c_str());
  std::printf("  number1       %u\n", info.number1);
  std::printf("  number2       %u\n", info.number2);
  std::printf("  number3       %u\n", info.number3);
  std::printf("  kind          %u\n", info.kind);
  std::printf("  context name  %s\n", Printable(info.contextName, sizeof info.contextName).c_str());
  std::printf("  extra         %u\n", info.extra);
}

void PrintCalls(const ModuleHost& host, std::thread::id hostThread) {
  const auto calls = host.calls();
  std::printf("Host calls (%zu)\n", calls.size());
  for (const auto& call : calls) {
    std::printf("  %4u %-22s a=%#llx b=%#llx%s\n", call.message,
                ModuleHost::messageName(call.message), static_cast<unsigned long long>(call.a),
                static_cast<unsigned long long>(call.b),
                call.thread == hostThread ? "" : "  (module thread)");
  }
}

void PrintRecords(const ModuleHost& host) {
  const auto logs = host.logs();
  std::printf("Log records (%zu)\n", logs.size());
  for (const auto& entry : logs) {
    std::printf("  %s type %u level %u: %s\n", Utf8(entry.module).c_str(), entry.type,
                entry.level, Utf8(entry.text).c_str());
  }
  const auto translations = host.translations();
  std::printf("Translations (%zu)\n", translations.size());
  for (const auto& t : translations) {
    std::printf("  %s  %-16s \"%s\"\n", t.context.c_str(), t.key.c_str(), t.text.c_str());
  }
  const auto created = host.createdEvents();
  std::printf("Events created (%zu)\n", created.size());
  for (const auto& event : created) {
    std::printf("  %s  handle %#llx\n", event.name.c_str(),
                static_cast<unsigned long long>(event.handle));
  }
  const auto subscriptions = host.subscriptions();
  std::printf("Subscriptions (%zu)\n", subscriptions.size());
  for (const auto& s : subscriptions) {
    std::printf("  %s  module handle %#llx  module %#llx\n", s.name.c_str(),
                static_cast<unsigned long long>(s.moduleHandle),
                static_cast<unsigned long long>(s.module));
  }
  const auto emits = host.emits();
  std::printf("Events emitted (%zu)\n", emits.size());
  for (const auto& emitted : emits) {
    std::printf("  %s  handle %#llx  sender %#llx\n",
                Printable(emitted.event.name, sizeof emitted.event.name).c_str(),
                static_cast<unsigned long long>(emitted.handle),
                static_cast<unsigned long long>(emitted.event.sender));
  }
}

int RunInfo(const Arguments& arguments) {
  QTemporaryDir temporary;
  ModuleHost host;
  if (!LoadModule(arguments, temporary.path(), &host)) return kExitFailure;
  std::printf("Module file   %s\n", ModulePath(arguments).c_str());
  PrintInfo(host.info());
  host.initialize();
  for (unsigned int message : {HostMessage::InitModule, HostMessage::Start, HostMessage::Stop}) {
    const int result = host.send(message);
    std::printf("Sent %s (%u): %d\n", ModuleHost::messageName(message), message, result);
  }
  PrintCalls(host, std::this_thread::get_id());
  PrintRecords(host);
  return 0;
}

// ---------------------------------------------------------------------------
// Symbols and their records

struct Target {
  SYMBOL_NAME_PERIOD request{};                      // sent with 6001
  RecordLayout layout;                               // of the symbol's records
};

// SYMBOL PERIOD [--code C] [--provider NAME] into *target.
bool ParseTarget(const Arguments& arguments, Target* target, std::string* error) {
  SYMBOL_PERIOD period{};
  if (!ParsePeriod(arguments.operands[1], &period, error)) return false;
  const std::u16string name = QString::fromLocal8Bit(arguments.operands[0]).toStdU16String();
  const std::string code = Option(arguments, "--code", DefaultCode(name));
  target->layout = LayoutOf(period);
  return MakeSymbolRequest(Option(arguments, "--provider", kDefaultProvider), name, code, period,
                           &target->request, error);
}

struct Selection {
  std::int32_t mode = kModeOldest;                   // GET_SYMBOL_DATA_REQUEST mode
  std::int32_t firstTime = 0;                        // kModeRange
  std::int32_t lastTime = 0;                         // kModeRange, exclusive
  std::int32_t count = kEveryRecord;                 // kModeNewest, kModeOldest
};

bool ParseCount(const std::string& option, const std::string& text, std::int32_t* count,
                std::string* error) {
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, *count);
  if (status == std::errc() && stop == end && *count >= 0) return true;
  *error = option + " wants a count from 0 to " + std::to_string(kEveryRecord) + ", not '" +
           text + "'";
  return false;
}

bool ParseBound(const Arguments& arguments, const std::string& option, std::int32_t fallback,
                std::int32_t* time, std::string* error) {
  *time = fallback;
  return !Has(arguments, option) || ParseTime(Option(arguments, option), time, error);
}

// [--last N | --first N | --from T --to T] into *selection; all records by default.
bool ParseSelection(const Arguments& arguments, Selection* selection, std::string* error) {
  const bool range = Has(arguments, "--from") || Has(arguments, "--to");
  if (Has(arguments, "--last") + Has(arguments, "--first") + range > 1) {
    *error = "choose one of --last, --first and --from/--to";
    return false;
  }
  if (range) {
    selection->mode = kModeRange;
    return ParseBound(arguments, "--from", kEarliest, &selection->firstTime, error) &&
           ParseBound(arguments, "--to", kLatest, &selection->lastTime, error);
  }
  if (Has(arguments, "--last")) {
    selection->mode = kModeNewest;
    return ParseCount("--last", Option(arguments, "--last"), &selection->count, error);
  }
  if (Has(arguments, "--first")) {
    return ParseCount("--first", Option(arguments, "--first"), &selection->count, error);
  }
  return true;
}

// The operands and options of get and count.
bool ParseQuery(const Arguments& arguments, Target* target, Selection* selection,
                std::string* error) {
  return ParseTarget(arguments, target, error) && ParseSelection(arguments, selection, error);
}

// Opens the symbol with 6001. Returns false after printing the problem.
bool OpenSymbol(ModuleHost& host, Target& target, HostWord* handle) {
  *handle = 0;
  const int result = host.send(HostMessage::OpenSymbol, reinterpret_cast<HostArg>(&target.request),
                               reinterpret_cast<HostArg>(handle));
  if (result == 0 && *handle != 0) return true;
  return StepFailed("the module did not open the symbol (6001 returned " +
                    std::to_string(result) + ")");
}

GET_SYMBOL_DATA_REQUEST MakeGetRequest(HostWord handle, const Selection& selection) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.mode = selection.mode;
  request.firstTime = selection.firstTime;
  request.lastTime = selection.lastTime;
  request.count = selection.count;
  return request;
}

// The number of records the selection holds (6007).
bool CountRecords(ModuleHost& host, HostWord handle, const Selection& selection,
                  std::int32_t* count) {
  GET_SYMBOL_DATA_REQUEST request = MakeGetRequest(handle, selection);
  const int result = host.send(HostMessage::GetDataCountSend, reinterpret_cast<HostArg>(&request));
  if (result != 0) {
    return StepFailed("the module refused to count (6007 returned " + std::to_string(result) + ")");
  }
  *count = std::max<std::int32_t>(request.count, 0);
  return true;
}

// Up to count records of the selection (6005) into *records.
bool GetRecords(ModuleHost& host, HostWord handle, const Selection& selection, std::int32_t count,
                const RecordLayout& layout, std::vector<unsigned char>* records) {
  records->assign(static_cast<std::size_t>(count) * layout.recordSize(), 0);
  GET_SYMBOL_DATA_REQUEST request = MakeGetRequest(handle, selection);
  request.count = count;
  request.buffer = reinterpret_cast<HostWord>(records->data());
  const int result = host.send(HostMessage::GetDataSend, reinterpret_cast<HostArg>(&request));
  if (result != 0) {
    return StepFailed("the module refused to get (6005 returned " + std::to_string(result) + ")");
  }
  const std::int32_t delivered = std::clamp<std::int32_t>(request.count, 0, count);
  records->resize(static_cast<std::size_t>(delivered) * layout.recordSize());
  return true;
}

// The symbol and selection of a get or a count, opened in a started module.
struct OpenQuery {
  Target target;           // the symbol and its record layout
  Selection selection;     // which records
  ModuleHost host;         // the started module
  HostWord handle = 0;     // the opened symbol
  std::int32_t count = 0;  // records in the selection
};

// Parses the query, starts the module, opens the symbol and counts the
// selection; returns the exit code of a failure, or 0.
int StartQuery(const Arguments& arguments, OpenQuery* query) {
  std::string error;
  if (!ParseQuery(arguments, &query->target, &query->selection, &error)) {
    return UsageError(error, arguments.command);
  }
  const bool opened = StartModule(arguments, &query->host) &&
                      OpenSymbol(query->host, query->target, &query->handle) &&
                      CountRecords(query->host, query->handle, query->selection, &query->count);
  return opened ? 0 : kExitFailure;
}

int RunGet(const Arguments& arguments) {
  OpenQuery query;
  if (const int failed = StartQuery(arguments, &query)) return failed;
  const RecordLayout& layout = query.target.layout;
  std::vector<unsigned char> records;
  if (!GetRecords(query.host, query.handle, query.selection, query.count, layout, &records)) {
    return kExitFailure;
  }
  query.host.send(HostMessage::Stop);
  WriteCsv(std::cout, layout, records.data(), records.size() / layout.recordSize());
  return 0;
}

int RunCount(const Arguments& arguments) {
  OpenQuery query;
  if (const int failed = StartQuery(arguments, &query)) return failed;
  query.host.send(HostMessage::Stop);
  std::printf("%d\n", query.count);
  return 0;
}

// The completion calls of posted inserts, which the module makes on its
// worker thread.
class InsertCompletion {
 public:
  // The host's handler for messages without an answer of its own.
  int onMessage(unsigned int message, HostArg record) {
    if (message != kInsertDoneMessage) return 0;
    std::lock_guard<std::mutex> lock(mu_);
    number_ = reinterpret_cast<const INSERT_SYMBOL_DATA_REQUEST*>(record)->number;
    arrived_ = true;
    done_.notify_all();
    return 0;
  }

  // Waits up to kInsertWait for the next call; false when it did not come.
  bool wait(std::int32_t* number) {
    std::unique_lock<std::mutex> lock(mu_);
    if (!done_.wait_for(lock, kInsertWait, [this] { return arrived_; })) return false;
    arrived_ = false;
    *number = number_;
    return true;
  }

 private:
  std::mutex mu_;                                    // guards the members below
  std::condition_variable done_;                     // signalled with arrived_
  bool arrived_ = false;                             // a call came and was not waited for
  std::int32_t number_ = 0;                          // records the module inserted
};

// The host's handler: completion calls go to completion.
void HandleCompletions(ModuleHost& host, InsertCompletion& completion) {
  host.setHandler([&completion](unsigned int message, HostArg a, HostArg) {
    return completion.onMessage(message, a);
  });
}

std::string NoCompletion() {
  return "no completion of the insert within " + std::to_string(kInsertWait.count()) +
         " s (the module drops inserts while writing is disabled)";
}

int RunInsert(const Arguments& arguments) {
  Target target;
  std::string error;
  std::vector<unsigned char> records;
  if (!ParseTarget(arguments, &target, &error)) return UsageError(error, arguments.command);
  if (!ReadCsv(std::cin, target.layout, &records, &error)) return Failure(error);
  const std::size_t number = records.size() / target.layout.recordSize();
  if (number > static_cast<std::size_t>(kEveryRecord)) return Failure("too many records");
  InsertCompletion completion;  // outlives the host, whose destructor stops the worker
  ModuleHost host;
  HandleCompletions(host, completion);
  HostWord handle = 0;
  if (!StartModule(arguments, &host) || !OpenSymbol(host, target, &handle)) return kExitFailure;
  host.postInsert(handle, static_cast<std::int32_t>(number), records.data(), kInsertDoneMessage);
  std::int32_t inserted = 0;
  if (!completion.wait(&inserted)) return Failure(NoCompletion());
  host.send(HostMessage::Stop);
  std::printf("inserted %d records\n", inserted);
  return 0;
}

// ---------------------------------------------------------------------------
// import, gui, screenshot: the module's import dialog

// The request the importer opens a row's symbol with: the whole symbol as
// name, the row's price type as code, the importer's provider.
bool ImportedSymbolOf(const ImportRow& row, Target* target, std::string* error) {
  const std::string period = Utf8(QString(row.period).remove(QLatin1Char(' ')));
  SYMBOL_PERIOD parsed{};
  if (!ParsePeriod(period, &parsed, error)) return false;
  target->layout = LayoutOf(parsed);
  return MakeSymbolRequest(kImportProvider, row.symbol.trimmed().toStdU16String(),
                           row.priceType.toLocal8Bit().toStdString(), parsed, &target->request, error);
}

// Waits until the worker has written every insert posted so far. The
// importer posts its inserts (6004) without completion calls, and Stop (3005)
// drops the queued ones. The worker serves inserts one at a time in the order
// they were posted, whereas a posted get overtakes queued inserts (gets are
// served first), so only an insert can follow them: the completion of an
// insert of no records, which changes nothing, posted after the import to
// the first row's symbol.
bool AwaitPostedInserts(ModuleHost& host, const std::vector<ImportRow>& rows, InsertCompletion& completion) {
  for (const ImportRow& row : rows) {
    Target target;
    std::string error;
    HostWord handle = 0;
    if (!ImportedSymbolOf(row, &target, &error)) continue;
    if (!OpenSymbol(host, target, &handle)) return false;
    host.postInsert(handle, 0, nullptr, kInsertDoneMessage);
    std::int32_t ignored = 0;
    return completion.wait(&ignored) || StepFailed(NoCompletion());
  }
  return true;
}

// Prints what the module told the host log from entry `first` on: the
// import's report (one line per instrument, then a summary) to standard
// output, its failures to standard error.
void PrintModuleLog(const ModuleHost& host, std::size_t first) {
  const std::vector<ModuleHost::LogEntry> logs = host.logs();
  for (std::size_t k = first; k < logs.size(); ++k) {
    const std::string text = Utf8(QString::fromStdU16String(logs[k].text));
    std::fprintf(logs[k].level == kReportLogLevel ? stdout : stderr, "%s\n", text.c_str());
  }
  std::fflush(stdout);
}

// Starts the module for its import dialog: from then on the host shows the
// module's default texts (3019), then the module adds its menu entry (3066).
// The dialog starts in importFolder (3128, VD_FOLDER_IMPORT); an empty one
// keeps the data folder.
bool StartImportMenu(const Arguments& arguments, const QString& importFolder, ModuleHost* host,
                     HostTranslator* translator) {
  if (!StartModule(arguments, host)) return false;
  if (!importFolder.isEmpty()) host->setFolder(VD_FOLDER_IMPORT, AbsoluteFolder(importFolder));
  translator->learn(*host);
  QCoreApplication::installTranslator(translator);
  host->send(HostMessage::CreateMenu);
  return !host->menuItems().empty() || StepFailed("the module added no menu entry (3066)");
}

// Chooses the module's menu entry (5511); returns the dialog it opened, or null.
QDialog* OpenImportDialog(ModuleHost& host) {
  host.pressMenuItem(host.menuItems().size() - 1);
  QDialog* dialog = FindOpenDialog();
  if (dialog == nullptr) StepFailed("the module opened no dialog (5511)");
  return dialog;
}

// The dialog's code is the module's: a closed dialog is deleted before the
// library is unloaded.
void CloseDialog(QDialog* dialog) {
  dialog->close();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// The operand naming a folder or file, as Qt takes it.
QString PathOperand(const Arguments& arguments, std::size_t index) {
  return QString::fromLocal8Bit(arguments.operands[index]);
}

// The import's arguments: the importer's provider unless one is given, so
// that get with --provider QUENDAL finds what it stored.
Arguments ImportArguments(const Arguments& arguments) {
  Arguments withProvider = arguments;
  withProvider.options.emplace("--provider", kImportProvider);
  return withProvider;
}

// Presses OK with every row checked, as they start, waits until the worker
// has written what the import posted, and prints the module's report. Fails
// when the folder has nothing to import (OK stays disabled) or nothing was
// imported.
int RunImport(const Arguments& given) {
  const Arguments arguments = ImportArguments(given);
  const QString folder = PathOperand(arguments, 0);
  InsertCompletion completion;
  HostTranslator translator;
  ModuleHost host;
  HandleCompletions(host, completion);
  if (!StartImportMenu(arguments, folder, &host, &translator)) return kExitFailure;
  const std::size_t firstLog = host.logs().size();
  QDialog* dialog = OpenImportDialog(host);
  if (dialog == nullptr) return kExitFailure;
  QPushButton* ok = FindButton(dialog, translator.text(kOkKey));
  if (ok == nullptr || !ok->isEnabled()) {
    CloseDialog(dialog);
    PrintModuleLog(host, firstLog);
    host.send(HostMessage::Stop);
    return Failure("nothing to import in " + Utf8(folder) + " (the dialog's OK stays disabled)");
  }
  const std::vector<ImportRow> rows = CheckedRows(dialog);
  ok->click();  // imports, then shows the report
  const int imported = dialog->property(kImportedProperty).toInt();
  CloseDialog(dialog);
  if (!AwaitPostedInserts(host, rows, completion)) return kExitFailure;
  PrintModuleLog(host, firstLog);
  host.send(HostMessage::Stop);
  return imported > 0 ? 0 : Failure("no instrument was imported from " + Utf8(folder));
}

// After each import through the dialog, waits for the worker and prints the
// report. The module connected OK first, so its import has run when this
// slot is called.
void ReportImportsOf(QDialog* dialog, ModuleHost& host, InsertCompletion& completion,
                     const HostTranslator& translator) {
  QPushButton* ok = FindButton(dialog, translator.text(kOkKey));
  if (ok == nullptr) return;
  auto firstLog = std::make_shared<std::size_t>(host.logs().size());  // the next report's first line
  QObject::connect(ok, &QPushButton::clicked, ok, [dialog = QPointer<QDialog>(dialog), firstLog, &host, &completion] {
    if (dialog.isNull() || !AwaitPostedInserts(host, CheckedRows(dialog), completion)) return;
    PrintModuleLog(host, *firstLog);
    *firstLog = host.logs().size();
  });
}

QString MenuText(const mm_menu_item& item) {
  char16_t text[kHostWideNameUnits];
  std::memcpy(text, &item.text, sizeof text);
  return QString::fromUtf16(text, std::find(std::begin(text), std::end(text), 0) - text);
}

// The menu of the modules' entries (5508); choosing one sends 5511. The
// dialog it opens is modal, so an entry is never chosen while it is open.
void AddModulesMenu(QMainWindow& window, ModuleHost& host, InsertCompletion& completion,
                    const HostTranslator& translator) {
  QMenu* menu = window.menuBar()->addMenu(QString::fromLatin1(kModulesMenu));
  const std::vector<mm_menu_item> items = host.menuItems();
  for (std::size_t index = 0; index < items.size(); ++index) {
    QObject::connect(menu->addAction(MenuText(items[index])), &QAction::triggered, &window,
                     [index, &host, &completion, &translator] {
                       host.pressMenuItem(index);
                       if (QDialog* dialog = FindOpenDialog()) {
                         ReportImportsOf(dialog, host, completion, translator);
                       }
                     });
  }
}

// The host's main window (3502 answers its window id) until it is closed.
int RunGui(const Arguments& arguments) {
  InsertCompletion completion;
  HostTranslator translator;
  ModuleHost host;
  QMainWindow window;  // with any dialog of the module's on it, gone before the host unloads it
  window.setWindowTitle(QStringLiteral("dshost"));
  window.resize(kWindowWidth, kWindowHeight);
  auto* label = new QLabel(QStringLiteral("Module: %1\n\nThe Modules menu holds its entries.")
                               .arg(QString::fromStdString(ModulePath(arguments))));
  label->setAlignment(Qt::AlignCenter);
  window.setCentralWidget(label);
  HandleCompletions(host, completion);
  host.setMainWindowId(static_cast<HostWord>(window.winId()));
  if (!StartImportMenu(arguments, QString(), &host, &translator)) return kExitFailure;
  AddModulesMenu(window, host, completion, translator);
  window.show();
  const int result = QApplication::exec();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  host.send(HostMessage::Stop);
  return result;
}

// Saves a picture of the dialog open on the folder.
int RunScreenshot(const Arguments& arguments) {
  const QString file = PathOperand(arguments, 1);
  HostTranslator translator;
  ModuleHost host;
  if (!StartImportMenu(arguments, PathOperand(arguments, 0), &host, &translator)) {
    return kExitFailure;
  }
  QDialog* dialog = OpenImportDialog(host);
  if (dialog == nullptr) return kExitFailure;
  QCoreApplication::processEvents();  // lays out the table's cell widgets
  const bool saved = dialog->grab().save(file);
  CloseDialog(dialog);
  host.send(HostMessage::Stop);
  return saved ? 0 : Failure("cannot write " + Utf8(file));
}

// ---------------------------------------------------------------------------
// Command line

const std::vector<Command>& Commands() {
  static const std::vector<Command> kCommands = {
      {"info", "",
       "load the module, print its information, send InitModule, Start and Stop, "
       "and print every call it made to the host",
       {}, 0, &RunInfo},
      {"get", "SYMBOL PERIOD [--code C] [--last N | --first N | --from T --to T]",
       "print the symbol's records as CSV (6007, then 6005); all of them by default",
       {"--code", "--last", "--first", "--from", "--to"}, kSymbolOperands, &RunGet},
      {"count", "SYMBOL PERIOD [--code C] [--last N | --first N | --from T --to T]",
       "print how many records the selection holds (6007); all of them by default",
       {"--code", "--last", "--first", "--from", "--to"}, kSymbolOperands, &RunCount},
      {"insert", "SYMBOL PERIOD [--code C] < CSV",
       "insert the records of the CSV on standard input (6004, posted) and print how many; "
       "its header names epoch or time and every value column, in any order",
       {"--code"}, kSymbolOperands, &RunInsert},
      {"import", "EXPORT_DIR",
       "open the module's import dialog on the folder's index (MASTER, EMASTER, XMASTER; "
       "3066, 5511), press OK with every instrument checked, wait until the worker has "
       "written them, and print the module's report: a line per instrument with its name, "
       "period, price type and points stored, or why it was skipped; exit 1 when nothing "
       "was imported. The provider defaults to the importer's, QUENDAL: read the symbols "
       "back with get --provider QUENDAL",
       {}, 1, &RunImport, Display::kOffscreen},
      {"gui", "",
       "open a main window whose Modules menu holds the module's entry (3066); choosing it "
       "opens the import dialog (5511); each import is reported as by import; runs until the "
       "window is closed",
       {}, 0, &RunGui, Display::kScreen},
      {"screenshot", "EXPORT_DIR FILE",
       "open the import dialog on the folder and save a picture of it (PNG for FILE.png)",
       {}, 2, &RunScreenshot, Display::kOffscreen},
  };
  return kCommands;
}

const OptionHelp& HelpOf(const std::string& option) {
  return *std::find_if(std::begin(kOptionHelp), std::end(kOptionHelp),
                       [&option](const OptionHelp& help) { return option == help.name; });
}

// Prints text indented by kHelpIndent, broken between words within kHelpWidth.
void PrintWrapped(std::string_view text) {
  std::string line;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t space = std::min(text.find(' ', start), text.size());
    const std::string_view word = text.substr(start, space - start);
    if (!line.empty() && kHelpIndent + line.size() + 1 + word.size() > kHelpWidth) {
      std::printf("%*s%s\n", kHelpIndent, "", line.c_str());
      line.clear();
    }
    line += (line.empty() ? "" : " ") + std::string(word);
    start = space + 1;
  }
  std::printf("%*s%s\n", kHelpIndent, "", line.c_str());
}

void PrintOptions(const std::vector<std::string>& options) {
  for (const std::string& option : options) {
    const OptionHelp& help = HelpOf(option);
    std::printf("  %s %s\n", help.name, help.value);
    PrintWrapped(help.text);
  }
}

// The command's name and what follows it on its usage line.
std::string Synopsis(const Command& command) {
  std::string line = command.name;
  if (*command.synopsis != 0) line += std::string(" ") + command.synopsis;
  return line;
}

void PrintUsage() {
  std::printf("Usage: dshost [OPTIONS] COMMAND [ARGUMENTS]\n\nCommands:\n");
  for (const Command& command : Commands()) {
    std::printf("  %s\n", Synopsis(command).c_str());
    PrintWrapped(command.summary);
  }
  std::printf("\nOptions of every command:\n");
  PrintOptions(kGlobalOptions);
  std::printf("  --help\n");
  PrintWrapped("print this text; after a command, that command's usage");
  std::printf("\n%s", kNotes);
}

void PrintCommandUsage(const Command& command) {
  std::printf("Usage: dshost [OPTIONS] %s\n\n", Synopsis(command).c_str());
  PrintWrapped(command.summary);
  if (!command.options.empty()) {
    std::printf("\nOptions:\n");
    PrintOptions(command.options);
  }
  std::printf("\nOptions of every command:\n");
  PrintOptions(kGlobalOptions);
  // The notes explain SYMBOL, PERIOD and T.
  if (std::string_view(command.synopsis).find("SYMBOL") != std::string_view::npos) {
    std::printf("\n%s", kNotes);
  }
}

const Command* FindCommand(const std::string& name) {
  for (const Command& command : Commands()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

// The application the command runs in, or null after printing why there is
// none. A platform named by QT_QPA_PLATFORM is always used.
std::unique_ptr<QCoreApplication> MakeApplication(Display display, int& argc, char** argv) {
  const bool platformChosen = !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
  if (display == Display::kNone) return std::make_unique<QCoreApplication>(argc, argv);
  if (display == Display::kOffscreen && !platformChosen) {
    qputenv("QT_QPA_PLATFORM", kOffscreenPlatform);
  }
  if (display == Display::kScreen && !platformChosen && qEnvironmentVariableIsEmpty("DISPLAY") &&
      qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
    Failure("no screen: set DISPLAY or WAYLAND_DISPLAY (or QT_QPA_PLATFORM)");
    return nullptr;
  }
  return std::make_unique<QApplication>(argc, argv);
}

bool IsHelp(const std::string& argument) { return argument == "--help" || argument == "-h"; }

bool Accepts(const Command* command, const std::string& option) {
  const auto known = [&option](const std::vector<std::string>& options) {
    return std::find(options.begin(), options.end(), option) != options.end();
  };
  return known(kGlobalOptions) || (command != nullptr && known(command->options));
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const Command* command = nullptr;
  Arguments arguments;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& argument = args[i];
    if (IsHelp(argument) || (command == nullptr && argument == "help")) {
      command == nullptr ? PrintUsage() : PrintCommandUsage(*command);
      return 0;
    }
    if (argument.starts_with("--")) {
      if (!Accepts(command, argument)) {
        return UsageError("unknown option " + argument, command ? command->name : nullptr);
      }
      if (i + 1 == args.size()) {
        return UsageError(argument + " needs a value", command ? command->name : nullptr);
      }
      arguments.options[argument] = args[++i];
    } else if (command == nullptr) {
      command = FindCommand(argument);
      if (command == nullptr) return UsageError("unknown command '" + argument + "'");
      arguments.command = command->name;
    } else {
      arguments.operands.push_back(argument);
    }
  }
  if (command == nullptr) return UsageError("no command given");
  if (arguments.operands.size() != command->operands) {
    return UsageError("usage: dshost [OPTIONS] " + Synopsis(*command), command->name);
  }
  const auto application = MakeApplication(command->display, argc, argv);
  if (application == nullptr) return kExitFailure;
  try {
    return command->run(arguments);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "dshost: the module threw: %s\n", e.what());
  } catch (...) {
    std::fprintf(stderr, "dshost: the module threw an unknown exception\n");
  }
  return kExitFailure;
}
