// plain_host.cpp: a host terminal in plain C++ (no Qt, no project library)
// that drives the data store module through its four exports only. It shows
//   - loading: dlopen(RTLD_NOW | RTLD_LOCAL), dlsym of the four exports;
//   - the callback handed to Initialize: registration (3000), data provider
//     (3012), folders (3128), log sink (3205), event creation (3112), and the
//     completion calls of posted requests, which come from the module's worker;
//   - a session: 3007 (initialise), 3004 (start), 6001 (open a symbol), 6003
//     (insert at once), 6004 (post an insert), 6007 and 6005 (count and read
//     back), 3005 (stop), dlclose.
// It is also a test driver (options in kUsage): it repeats that cycle, checks
// every answer and every record read back, and exits 0 only when all held.
// Every run appends to one series on one symbol, record k made from k, so what
// is read back is checked whole, including what earlier runs stored.

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "HostBoundary.h"

namespace {

namespace fs = std::filesystem;
namespace M = HostMessage;
using Clock = std::chrono::steady_clock;
using Ms = std::chrono::milliseconds;

constexpr char kProvider[] = "PlainHost";  // our 3012 answer; the symbol's folder
constexpr char16_t kSymbolName[] = u"EURUSD";
constexpr char kSymbolCode[] = "EURUSD";
constexpr char kPeriodKind = 'I';                // intraday bars ...
constexpr std::int32_t kPeriodLength = 1;        // ... of one minute
constexpr std::int32_t kFirstTime = 1704067200;  // 2024-01-01T00:00:00Z
constexpr std::int32_t kStep = 60;               // seconds between bars
constexpr int kSyncBatch = 10;                   // candles per 6003
constexpr int kPostBatch = 5;                    // candles per 6004
constexpr int kPostsPerRound = 3;                // 6004 per round (1 with a slow completion)
constexpr unsigned int kInsertDone = 9001;       // completion code of our posted inserts
constexpr HostWord kModuleHandle = 0x100;        // our 3000 answer
constexpr HostWord kEventHandle = 1;             // our 3112 answer
constexpr std::int32_t kOldestFirst = 2;         // get mode: the oldest count records
constexpr std::int32_t kCountAll = INT32_MAX;    // a 6007 capacity that counts every record
constexpr Ms kCompletionWait{10000};             // longest wait for a completion call
constexpr int kExitFailed = 1, kExitUsage = 2;
constexpr char kUsage[] =
    "usage: plain_host LIBRARY DATAFOLDER [options]\n"
    "  --cycles N            N cycles of load, start, insert, stop, unload (default 1)\n"
    "  --slow-completion MS  each cycle's first completion call sleeps MS ms; one post per round\n"
    "  --stop-within-ms MS   every 3005 must return within MS ms\n"
    "  --restart             in each cycle, 3005 then 3007 and 3004 again, and more inserts\n"
    "  --no-stop             unload without 3005, a posted insert still queued\n"
    "  --bad-input           symbol messages before 3007 and after 3005, 3005 twice\n"
    "  --expect-stored N     the folder must hold N records when the run begins\n";

#pragma pack(push, 1)
struct Candle {  // a record of every period but ticks: 24 bytes
  std::int32_t time;
  float open, high, low, close, volume;
  bool operator==(const Candle&) const = default;
};
#pragma pack(pop)

std::vector<Candle> Series(int first, int count) {  // records first .. first + count - 1
  std::vector<Candle> candles;
  for (int k = first; k < first + count; ++k) {
    const float v = static_cast<float>(k);
    candles.push_back({kFirstTime + k * kStep, v, v + 2, v - 1, v + 1, v + 3});
  }
  return candles;
}

std::atomic<int> gFailures{0};

void Check(bool ok, const std::string& what) {
  if (ok) return;
  ++gFailures;
  std::fprintf(stderr, "FAILED: %s\n", what.c_str());
}

HostArg Arg(const void* record) { return reinterpret_cast<HostArg>(record); }  // a message argument
HostWord Word(const void* address) {
  return reinterpret_cast<HostWord>(address);
}  // a record field
template <typename Record>
Record* As(HostArg address) {
  return reinterpret_cast<Record*>(address);
}

void CopyText(char* field, std::size_t size, const char* text) {
  std::strncpy(field, text, size - 1);
  field[size - 1] = 0;
}

// ---- The host side ---------------------------------------------------------
// The module keeps our callback and its context until the process exits, and
// a completion call may still run during the exit: gHost is never destroyed.
struct HostState {
  fs::path dataFolder;       // our 3128 answer for every folder type (no pelto.cfg there: defaults)
  int slowCompletionMs = 0;  // how long a held completion call sleeps
  std::atomic<bool> holdNext = false;   // the next completion call sleeps slowCompletionMs
  std::mutex mu;                        // guards the members below
  std::condition_variable changed;      // a completion call entered or returned
  std::vector<std::int32_t> completed;  // first time of each completed insert, in order
  int returned = 0;                     // completion calls that returned
};
HostState& gHost = *new HostState;

int PrintLogRecord(LogRecord* record) {  // our 3205 sink; its texts are UTF-16
  std::string text;
  for (auto* unit = reinterpret_cast<const char16_t*>(record->text); unit && *unit; ++unit) {
    text += *unit < 0x80 ? static_cast<char>(*unit) : '?';
  }
  std::fprintf(stderr, "host log: %s\n", text.c_str());
  return 0;
}

// A posted insert was stored; the module hands us its copy for this call only.
int CompleteInsert(HostState& host, const INSERT_SYMBOL_DATA_REQUEST& copy) {
  std::unique_lock<std::mutex> lock(host.mu);
  host.completed.push_back(copy.number > 0 ? reinterpret_cast<const Candle*>(copy.data)->time : 0);
  const bool hold = host.holdNext.exchange(false);
  host.changed.notify_all();
  lock.unlock();
  if (hold) std::this_thread::sleep_for(Ms(host.slowCompletionMs));
  lock.lock();
  ++host.returned;
  host.changed.notify_all();
  return 0;
}

// The callback handed to Initialize. context is what we gave Initialize, or
// for a completion call the request's completionContext: both are &gHost.
int HostCallbackFunction(void* context, unsigned int message, HostArg a, HostArg b) {
  HostState& host = *static_cast<HostState*>(context);
  switch (message) {
    case M::RegisterModule: As<REGISTRATION_RECORD>(a)->moduleOrHandle = kModuleHandle; break;
    case M::GetDataSource:
      CopyText(As<SOURCE_RECORD>(b)->provider, kHostNameField, kProvider);
      break;
    case M::GetFolder:
      hostfield::SetWideText(As<char>(a) + offsetof(FOLDER_REQUEST_RECORD, path),
                             host.dataFolder.u16string(), kFolderPathUnits);
      break;
    case M::GetLogSink: *As<HostWord>(a) = reinterpret_cast<HostWord>(&PrintLogRecord); break;
    case M::CreateEvent: As<EVENT_CREATION_RECORD>(a)->handle = kEventHandle; break;
    case kInsertDone: return CompleteInsert(host, *As<INSERT_SYMBOL_DATA_REQUEST>(a));
    default: break;  // nothing more to give: languages, formatters, translations, events
  }
  return 0;
}

// ---- The module side -------------------------------------------------------

struct Module {
  void* library = nullptr;
  InitializeFunction initialize = nullptr;
  ReceiveMessageFunction receive = nullptr;

  int send(unsigned int message, HostArg a = 0, HostArg b = 0) const {
    return receive(&gHost, message, a, b);
  }
};

bool Load(const std::string& path, Module& module) {
  module.library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  const auto find = [&](const char* name) {
    return module.library ? dlsym(module.library, name) : nullptr;
  };
  module.initialize = reinterpret_cast<InitializeFunction>(find(kExportInitialize));
  module.receive = reinterpret_cast<ReceiveMessageFunction>(find(kExportReceiveMessage));
  const bool all =
      module.initialize && module.receive && find(kExportGetModuleInfo) && find(kExportGetModule);
  Check(all, "dlopen " + path + " and its four exports " + (module.library ? "" : dlerror()));
  return all;
}

SYMBOL_NAME_PERIOD SymbolRecord() {
  SYMBOL_NAME_PERIOD record{};
  CopyText(record.provider, sizeof record.provider, kProvider);
  hostfield::SetWideText(&record.name, kSymbolName);
  CopyText(record.code, sizeof record.code, kSymbolCode);
  record.period.kind = kPeriodKind;
  record.period.length = kPeriodLength;
  return record;
}

// Without a completion context and code: no completion call.
INSERT_SYMBOL_DATA_REQUEST InsertRequest(HostWord handle, const std::vector<Candle>& candles) {
  return {handle, static_cast<std::int32_t>(candles.size()), Word(candles.data()), 0, 0};
}

// The oldest count records (mode 2; times unused), into buffer.
GET_SYMBOL_DATA_REQUEST GetRequest(HostWord handle, std::int32_t count, Candle* buffer) {
  return {handle, kOldestFirst, 0, 0, count, Word(buffer), 0, 0};
}

int CountStored(const Module& module, HostWord handle) {  // -1 if refused
  GET_SYMBOL_DATA_REQUEST request = GetRequest(handle, kCountAll, nullptr);
  return module.send(M::GetDataCountSend, Arg(&request)) == 0 ? request.count : -1;
}

// The symbol holds the first `expected` records of the series and nothing more.
void CheckStored(const Module& module, HostWord handle, int expected) {
  const int counted = CountStored(module, handle);
  Check(counted == expected,
        "6007 counts " + std::to_string(counted) + " records, not " + std::to_string(expected));
  std::vector<Candle> buffer(static_cast<std::size_t>(expected) + 1);  // room for one too many
  GET_SYMBOL_DATA_REQUEST request =
      GetRequest(handle, static_cast<std::int32_t>(buffer.size()), buffer.data());
  Check(module.send(M::GetDataSend, Arg(&request)) == 0, "6005 answers 0");
  buffer.resize(static_cast<std::size_t>(std::max(request.count, 0)));
  Check(buffer == Series(0, expected),
        "6005 reads back the " + std::to_string(expected) + " records inserted");
}

// ---- The session -----------------------------------------------------------

struct Run {
  std::string library;  // from the command line ...
  int cycles = 1;
  int stopWithinMs = 0;   // 0: no limit
  int expectStored = -1;  // -1: whatever the folder holds
  bool restart = false, noStop = false, badInput = false;
  int stored = -1;                   // records the symbol must hold; -1 until first opened
  HostWord handle = 0;               // the symbol's handle of the last round
  std::vector<std::int32_t> posted;  // first time of each insert posted with a completion call
  Clock::duration slowestStop{};
};

// 6003 stores at once; 6004 copies the records and queues them, and the
// completion call, when asked for, comes from the worker once they are stored.
void Insert(const Module& module, Run& run, unsigned int message, bool completion = false) {
  std::vector<Candle> candles =
      Series(run.stored, message == M::InsertDataSend ? kSyncBatch : kPostBatch);
  INSERT_SYMBOL_DATA_REQUEST request = InsertRequest(run.handle, candles);
  if (completion) {
    request.completionContext = Word(&gHost);
    request.completionCode = kInsertDone;
    run.posted.push_back(candles.front().time);
  }
  Check(module.send(message, Arg(&request)) == 0, std::to_string(message) + " answers 0");
  run.stored += static_cast<int>(candles.size());
}

// Waits until done() holds; false if it does not within limit. done() runs under gHost.mu.
template <typename Condition>
bool AwaitHost(Ms limit, Condition done) {
  std::unique_lock<std::mutex> lock(gHost.mu);
  return gHost.changed.wait_for(lock, limit, done);
}

std::ptrdiff_t Entries(
    const fs::path& folder) {  // the folder and all in it; 0 if it does not exist
  std::error_code error;
  return fs::exists(folder, error) ? 1 + std::distance(fs::recursive_directory_iterator(folder), {})
                                   : 0;
}

// Outside 3007..3005 every symbol message answers 1 and makes no file.
void SymbolMessagesRefused(const Module& module, HostWord handle, const char* when) {
  const std::ptrdiff_t before = Entries(gHost.dataFolder);
  SYMBOL_NAME_PERIOD symbol = SymbolRecord();
  std::vector<Candle> candles = Series(0, 1);
  INSERT_SYMBOL_DATA_REQUEST insert = InsertRequest(handle, candles);
  GET_SYMBOL_DATA_REQUEST get = GetRequest(handle, 1, candles.data());
  HostWord opened = 0;
  const struct {
    unsigned int message;
    HostArg a, b;
  } requests[] = {{M::OpenSymbol, Arg(&symbol), Arg(&opened)},
                  {M::InsertDataSend, Arg(&insert), 0},
                  {M::InsertDataPost, Arg(&insert), 0},
                  {M::GetDataSend, Arg(&get), 0},
                  {M::GetDataPost, Arg(&get), 0},
                  {M::GetDataCountSend, Arg(&get), 0}};
  for (const auto& request : requests) {
    Check(module.send(request.message, request.a, request.b) == 1,
          std::to_string(request.message) + " " + when + " answers 1");
  }
  Check(opened == 0 && Entries(gHost.dataFolder) == before, std::string("nothing made ") + when);
}

void Stop(const Module& module, Run& run) {
  const Clock::time_point start = Clock::now();
  Check(module.send(M::Stop) == 0, "3005 answers 0");
  const Clock::duration took = Clock::now() - start;
  run.slowestStop = std::max(run.slowestStop, took);
  Check(run.stopWithinMs == 0 || took <= Ms(run.stopWithinMs),
        "3005 returned within " + std::to_string(run.stopWithinMs) + " ms");
}

// Starts the module (3007, 3004), opens the symbol, checks what it holds,
// inserts at once and by posts, waits for the completion calls and checks
// that everything reads back.
void RunRound(const Module& module, Run& run) {
  Check(module.send(M::InitModule) == 0 && module.send(M::Start) == 0, "3007 and 3004 answer 0");
  SYMBOL_NAME_PERIOD symbol = SymbolRecord();
  run.handle = 0;
  Check(module.send(M::OpenSymbol, Arg(&symbol), Arg(&run.handle)) == 0 && run.handle != 0,
        "6001 opens the symbol");
  if (run.stored < 0) {
    run.stored = std::max(CountStored(module, run.handle), 0);
    Check(run.expectStored < 0 || run.stored == run.expectStored,
          "the folder holds " + std::to_string(run.stored) + " records, not " +
              std::to_string(run.expectStored));
  }
  CheckStored(module, run.handle, run.stored);
  Insert(module, run, M::InsertDataSend);
  // A held completion call holds the worker: later posts would wait behind it.
  const int posts = gHost.slowCompletionMs > 0 ? 1 : kPostsPerRound;
  for (int i = 0; i < posts; ++i) Insert(module, run, M::InsertDataPost, true);
  Check(AwaitHost(kCompletionWait, [&] { return gHost.completed == run.posted; }),
        "a completion call for every posted insert, in order");
  CheckStored(module, run.handle, run.stored);
}

bool RunCycle(Run& run) {
  Module module;
  if (!Load(run.library, module)) return false;
  module.initialize(&HostCallbackFunction, nullptr, &gHost, nullptr);
  if (run.badInput) SymbolMessagesRefused(module, run.handle, "before 3007");
  gHost.holdNext = gHost.slowCompletionMs > 0;
  RunRound(module, run);
  if (run.restart) {
    Stop(module, run);
    RunRound(module, run);
  }
  if (run.noStop) {
    // Queued behind a held completion call, if any: the next cycle's 3007 or
    // the process's exit stops the module, which stores it.
    Insert(module, run, M::InsertDataPost);
  } else {
    Stop(module, run);
  }
  if (run.badInput && !run.noStop) {
    Stop(module, run);
    Check(module.send(M::Start) == 0, "3004 after 3005 answers 0");
    SymbolMessagesRefused(module, run.handle, "after 3005");
  }
  dlclose(module.library);
  return true;
}

bool ParseOptions(int argc, char** argv, Run& run) {
  if (argc < 3) return false;
  run.library = argv[1];
  gHost.dataFolder = fs::absolute(argv[2]);
  for (int i = 3; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool valued = i + 1 < argc;
    if (arg == "--restart")
      run.restart = true;
    else if (arg == "--no-stop")
      run.noStop = true;
    else if (arg == "--bad-input")
      run.badInput = true;
    else if (arg == "--cycles" && valued)
      run.cycles = std::atoi(argv[++i]);
    else if (arg == "--slow-completion" && valued)
      gHost.slowCompletionMs = std::atoi(argv[++i]);
    else if (arg == "--stop-within-ms" && valued)
      run.stopWithinMs = std::atoi(argv[++i]);
    else if (arg == "--expect-stored" && valued)
      run.expectStored = std::atoi(argv[++i]);
    else
      return false;
  }
  return run.cycles >= 1 && gHost.slowCompletionMs >= 0 && run.stopWithinMs >= 0;
}

}  // namespace

int main(int argc, char** argv) {
  Run run;
  if (!ParseOptions(argc, argv, run)) {
    std::fputs(kUsage, stderr);
    return kExitUsage;
  }
  const Clock::time_point start = Clock::now();
  for (int cycle = 0; cycle < run.cycles; ++cycle) {
    if (!RunCycle(run)) break;
  }
  const auto took = std::chrono::duration_cast<Ms>(Clock::now() - start).count();
  // A completion call that 3005 left behind returns before we exit. Without
  // 3005 a held call is still to come: the module's stop at exit waits for it.
  Check(run.noStop ||
            AwaitHost(Ms(gHost.slowCompletionMs) + kCompletionWait,
                      [] { return gHost.returned == static_cast<int>(gHost.completed.size()); }),
        "every completion call returned");
  std::printf(
      "%s: %d cycle(s) in %lld ms; slowest 3005: %lld ms; %d records stored; %d failed checks\n",
      gFailures == 0 ? "OK" : "FAILED", run.cycles, static_cast<long long>(took),
      static_cast<long long>(std::chrono::duration_cast<Ms>(run.slowestStop).count()), run.stored,
      gFailures.load());
  return gFailures == 0 ? 0 : kExitFailed;
}
