#include "ModuleSession.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

namespace M = HostMessage;
namespace fs = std::filesystem;

constexpr char kProvider[] = "Bench";
constexpr char kCandles[] = "CANDLES";  // name and code of the fixed symbol
constexpr SYMBOL_PERIOD kOneMinute{'I', 1, 0};
constexpr HostWord kModuleHandle = 0xB0;               // what the host assigns at registration
constexpr std::chrono::seconds kCompletionWait{120};   // longest wait for posted requests
constexpr std::size_t kExpectedCompletions = 1 << 16;  // room reserved for completion records

HostArg Arg(const void* record) { return reinterpret_cast<HostArg>(record); }

// A copy of the library that no session of this process has loaded yet.
fs::path CopyLibrary(fs::path const& folder) {
  static std::atomic<int> copies{0};
  fs::create_directories(folder / "lib");
  fs::path copy = folder / "lib" / ("libdatastore." + std::to_string(copies++) + ".so");
  fs::copy_file(DATASTORE_MODULE_PATH, copy, fs::copy_options::overwrite_existing);
  return copy;
}

// The host's pelto.cfg: section DATASTORE, CR LF line ends as the module reads them.
void WriteConfiguration(fs::path const& folder, Durability durability) {
  fs::create_directories(folder);
  std::ofstream out(folder / "pelto.cfg", std::ios::binary | std::ios::trunc);
  out << "[DATASTORE]\r\nDurability=" << durability.level
      << "\r\nSyncInterval=" << durability.syncIntervalMs << "\r\n";
  if (!out) throw std::runtime_error("cannot write the configuration in " + folder.string());
}

// The name field takes the ASCII name widened; the code field the name as is.
SYMBOL_NAME_PERIOD CandleSymbol(std::string const& name) {
  SYMBOL_NAME_PERIOD record{};
  std::strncpy(record.provider, kProvider, sizeof(record.provider) - 1);
  const std::size_t length = std::min(name.size(), sizeof(record.code) - 1);
  std::copy_n(name.begin(), length, record.name);
  std::strncpy(record.code, name.c_str(), sizeof(record.code) - 1);
  record.period = kOneMinute;
  return record;
}

}  // namespace

ModuleSession::ModuleSession(fs::path const& folder, Durability durability, StartHooks hooks)
    : library_(CopyLibrary(folder)) {
  completions_.reserve(kExpectedCompletions);
  if (!host_.load(library_.string()))
    throw std::runtime_error("cannot load the module: " + host_.error());
  WriteConfiguration(folder / "config", durability);
  host_.setFolder(VD_FOLDER_CONFIG, (folder / "config").u16string());
  host_.setFolder(VD_FOLDER_DATA, (folder / "data").u16string());
  host_.setDataSource(kProvider);
  host_.setModuleHandle(kModuleHandle);
  host_.setHandler(
      [this](unsigned int message, HostArg a, HostArg) { return Receive(message, a); });
  host_.initialize();
  if (hooks.before) hooks.before();
  Send(M::InitModule, 0, 0, "initialise (3007)");
  if (hooks.after) hooks.after();
  Send(M::Start, 0, 0, "start (3004)");
}

ModuleSession::~ModuleSession() {
  host_.send(M::Stop);
  host_.unload();
  std::error_code ignored;
  fs::remove(library_, ignored);
}

void ModuleSession::Send(unsigned int message, HostArg a, HostArg b, const char* what) {
  if (host_.send(message, a, b) != 0)
    throw std::runtime_error(std::string("the module refused to ") + what);
}

HostWord ModuleSession::OpenCandles() { return OpenCandles(kCandles); }

HostWord ModuleSession::OpenCandles(std::string const& name) {
  SYMBOL_NAME_PERIOD record = CandleSymbol(name);
  HostWord handle = 0;
  Send(M::OpenSymbol, Arg(&record), Arg(&handle), "open the symbol (6001)");
  return handle;
}

void ModuleSession::Insert(HostWord handle, const Candle* candles, int count) {
  INSERT_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.number = count;
  request.data = reinterpret_cast<HostWord>(candles);
  Send(M::InsertDataSend, Arg(&request), 0, "insert (6003)");
}

int ModuleSession::Get(GET_SYMBOL_DATA_REQUEST request, Candle* out, int capacity) {
  request.count = capacity;
  request.buffer = reinterpret_cast<HostWord>(out);
  Send(M::GetDataSend, Arg(&request), 0, "get (6005)");
  return request.count;
}

int ModuleSession::Count(GET_SYMBOL_DATA_REQUEST request) {
  Send(M::GetDataCountSend, Arg(&request), 0, "count (6007)");
  return request.count;
}

Clock::duration ModuleSession::PostGet(GET_SYMBOL_DATA_REQUEST request, Candle* out, int capacity) {
  request.count = capacity;
  request.buffer = reinterpret_cast<HostWord>(out);
  request.completionContext = reinterpret_cast<HostWord>(&host_);
  request.completionCode = kGetDone;
  const Clock::time_point start = Clock::now();
  const int result = host_.send(M::GetDataPost, Arg(&request));
  const Clock::duration took = Clock::now() - start;
  if (result != 0) throw std::runtime_error("the module refused a posted get (6006)");
  return took;
}

Clock::duration ModuleSession::PostInsert(HostWord handle, const Candle* candles, int count) {
  const Clock::time_point start = Clock::now();
  const int result = host_.postInsert(handle, count, candles, kInsertDone);
  const Clock::duration took = Clock::now() - start;
  if (result != 0) throw std::runtime_error("the module refused a posted insert (6004)");
  return took;
}

// The module's copy of the request, and its records, live during this call only.
int ModuleSession::Receive(unsigned int message, HostArg a) {
  Completion completion{message, Clock::now()};
  if (message == kGetDone && a != 0) {
    GET_SYMBOL_DATA_REQUEST copy;
    std::memcpy(&copy, reinterpret_cast<const void*>(a), sizeof(copy));
    completion.count = copy.count;
    if (copy.count > 0)
      std::memcpy(&completion.firstTime, reinterpret_cast<const void*>(copy.buffer),
                  sizeof(std::int32_t));
  } else if (message == kInsertDone && a != 0) {
    INSERT_SYMBOL_DATA_REQUEST copy;
    std::memcpy(&copy, reinterpret_cast<const void*>(a), sizeof(copy));
    completion.count = copy.number;
  } else {
    return 0;
  }
  std::lock_guard<std::mutex> lock(mu_);
  completions_.push_back(completion);
  arrived_.notify_all();
  return 0;
}

void ModuleSession::WaitForCompletions(std::size_t total) {
  {
    std::unique_lock<std::mutex> lock(mu_);
    if (!arrived_.wait_for(lock, kCompletionWait, [&] { return completions_.size() >= total; })) {
      throw std::runtime_error("posted requests were not completed in time");
    }
  }
  // The host keeps a copy of every call; a long run of posts would pile them up.
  host_.clearRecords();
}

ModuleSession::Completion ModuleSession::CompletionAt(std::size_t index) const {
  std::lock_guard<std::mutex> lock(mu_);
  return completions_.at(index);
}
