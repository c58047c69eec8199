// The data commands: info, and get, count, insert and chart on one symbol.

#include <QImage>
#include <QTemporaryDir>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <iostream>
#include <limits>
#include <thread>

#include "Commands.h"
#include "HostSession.h"
#include "PriceChart.h"
#include "RecordCsv.h"
#include "SymbolQuery.h"

namespace {

constexpr std::int32_t kEarliest = std::numeric_limits<std::int32_t>::min();  // --from default
constexpr std::int32_t kLatest = std::numeric_limits<std::int32_t>::max();    // --to default

// ---------------------------------------------------------------------------
// info

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
    std::printf("  %s type %u level %u: %s\n", Utf8(entry.module).c_str(), entry.type, entry.level,
                Utf8(entry.text).c_str());
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

// ---------------------------------------------------------------------------
// The symbol and the selection of get, count, insert and chart

std::u16string SymbolName(const Arguments& arguments) {
  return QString::fromLocal8Bit(arguments.operands[0]).toStdU16String();
}

std::string Code(const Arguments& arguments) {
  return Option(arguments, "--code", DefaultCode(SymbolName(arguments)));
}

// SYMBOL PERIOD [--code C] [--provider NAME] into *target.
bool ParseTarget(const Arguments& arguments, Target* target, std::string* error) {
  SYMBOL_PERIOD period{};
  if (!ParsePeriod(arguments.operands[1], &period, error)) return false;
  target->layout = LayoutOf(period);
  return MakeSymbolRequest(Option(arguments, "--provider", kDefaultProvider), SymbolName(arguments),
                           Code(arguments), period, &target->request, error);
}

bool ParseCount(const std::string& option, const std::string& text, std::int32_t* count,
                std::string* error) {
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, *count);
  if (status == std::errc() && stop == end && *count >= 0) return true;
  *error =
      option + " wants a count from 0 to " + std::to_string(kEveryRecord) + ", not '" + text + "'";
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
    selection->mode = kGetTimeRange;
    return ParseBound(arguments, "--from", kEarliest, &selection->firstTime, error) &&
           ParseBound(arguments, "--to", kLatest, &selection->lastTime, error);
  }
  if (Has(arguments, "--last")) {
    selection->mode = kGetNewest;
    return ParseCount("--last", Option(arguments, "--last"), &selection->count, error);
  }
  if (Has(arguments, "--first")) {
    return ParseCount("--first", Option(arguments, "--first"), &selection->count, error);
  }
  return true;
}

// The operands and options of get, count and chart; the exit code of a usage
// error, or 0.
int ParseQuery(const Arguments& arguments, Target* target, Selection* selection) {
  std::string error;
  const bool parsed =
      ParseTarget(arguments, target, &error) && ParseSelection(arguments, selection, &error);
  return parsed ? 0 : UsageError(error, arguments.command);
}

// Starts the module and reads the selection's records as get does: 6001,
// 6007, 6005, then Stop.
bool ReadSelection(const Arguments& arguments, Target& target, const Selection& selection,
                   std::vector<unsigned char>* records) {
  ModuleHost host;
  std::string error;
  if (!StartModule(arguments, &host)) return false;
  if (!ReadRecords(host, target, selection, records, &error)) return StepFailed(error);
  host.send(HostMessage::Stop);
  return true;
}

QString TitleOf(const Arguments& arguments) {
  return ChartTitle(QString::fromStdU16String(SymbolName(arguments)),
                    QString::fromStdString(arguments.operands[1]),
                    QString::fromStdString(Code(arguments)));
}

}  // namespace

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

int RunGet(const Arguments& arguments) {
  Target target;
  Selection selection;
  std::vector<unsigned char> records;
  if (const int failed = ParseQuery(arguments, &target, &selection)) return failed;
  if (!ReadSelection(arguments, target, selection, &records)) return kExitFailure;
  WriteCsv(std::cout, target.layout, records.data(), records.size() / target.layout.recordSize());
  return 0;
}

int RunCount(const Arguments& arguments) {
  Target target;
  Selection selection;
  if (const int failed = ParseQuery(arguments, &target, &selection)) return failed;
  ModuleHost host;
  HostWord handle = 0;
  std::int32_t count = 0;
  std::string error;
  if (!StartModule(arguments, &host)) return kExitFailure;
  if (!OpenSymbol(host, target, &handle, &error) ||
      !CountRecords(host, handle, selection, &count, &error)) {
    return Failure(error);
  }
  host.send(HostMessage::Stop);
  std::printf("%d\n", count);
  return 0;
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
  if (!StartModule(arguments, &host)) return kExitFailure;
  if (!OpenSymbol(host, target, &handle, &error)) return Failure(error);
  host.postInsert(handle, static_cast<std::int32_t>(number), records.data(), kInsertDoneMessage);
  std::int32_t inserted = 0;
  if (!completion.wait(&inserted)) return Failure(NoCompletion());
  host.send(HostMessage::Stop);
  std::printf("inserted %d records\n", inserted);
  return 0;
}

int RunChart(const Arguments& arguments) {
  Target target;
  Selection selection;
  std::vector<unsigned char> records;
  if (const int failed = ParseQuery(arguments, &target, &selection)) return failed;
  if (!Has(arguments, "--out")) return UsageError("chart needs --out FILE", arguments.command);
  if (!ReadSelection(arguments, target, selection, &records)) return kExitFailure;
  if (records.empty()) {
    return Failure("no records of " + arguments.operands[0] + " " + arguments.operands[1] +
                   " with code " + Code(arguments) + " to draw");
  }
  const QString file = QString::fromLocal8Bit(Option(arguments, "--out"));
  const QImage image = ChartImage(kChartSize, SeriesOf(target.layout, records), TitleOf(arguments));
  return image.save(file) ? 0 : Failure("cannot write " + Utf8(file));
}
