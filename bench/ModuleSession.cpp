#include "ModuleSession.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

namespace M = HostMessage;
namespace fs = std::filesystem;

constexpr char kProvider[] = "Bench";
constexpr char kCode[] = "CANDLES";
constexpr char16_t kName[] = u"CANDLES";
constexpr SYMBOL_PERIOD kOneMinute{'I', 1, 0};
constexpr HostWord kModuleHandle = 0xB0;                 // what the host assigns at registration
constexpr std::chrono::seconds kCompletionWait{120};     // longest wait for posted requests
constexpr std::size_t kExpectedCompletions = 1 << 16;    // room reserved for completion records

HostArg Arg(const void* record) { return reinterpret_cast<HostArg>(record); }

SYMBOL_NAME_PERIOD CandleSymbol() {
  SYMBOL_NAME_PERIOD record{};
  std::strncpy(record.provider, kProvider, sizeof(record.provider) - 1);
  std::copy(std::begin(kName), std::end(kName), record.name);
  std::strncpy(record.code, kCode, sizeof(record.code) - 1);
  record.period = kOneMinute;
  return record;
}

}  // namespace

ModuleSession::ModuleSession(fs::path const& folder) {
  completions_.reserve(kExpectedCompletions);
  if (!host_.load(DATASTORE_MODULE_PATH)) throw std::runtime_error("cannot load the module: " + host_.error());
  fs::create_directories(folder / "config");
  host_.setFolder(VD_FOLDER_CONFIG, (folder / "config").u16string());
  host_.setFolder(VD_FOLDER_DATA, (folder / "data").u16string());
  host_.setDataSource(kProvider);
  host_.setModuleHandle(kModuleHandle);
  host_.setHandler([this](unsigned int message, HostArg a, HostArg) { return Receive(message, a); });
  host_.initialize();
  Send(M::InitModule, 0, 0, "initialise (3007)");
  Send(M::Start, 0, 0, "start (3004)");
}

ModuleSession::~ModuleSession() {
  host_.send(M::Stop);
  host_.unload();
}

void ModuleSession::Send(unsigned int message, HostArg a, HostArg b, const char* what) {
  if (host_.send(message, a, b) != 0) throw std::runtime_error(std::string("the module refused to ") + what);
}

HostWord ModuleSession::OpenCandles() {
  SYMBOL_NAME_PERIOD record = CandleSymbol();
  HostWord handle = 0;
  Send(M::OpenSymbol, Arg(&record), Arg(&handle), "open the symbol (6001)");
  return handle;
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
    if (copy.count > 0) std::memcpy(&completion.firstTime, reinterpret_cast<const void*>(copy.buffer), sizeof(std::int32_t));
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
  std::unique_lock<std::mutex> lock(mu_);
  if (!arrived_.wait_for(lock, kCompletionWait, [&] { return completions_.size() >= total; })) {
    throw std::runtime_error("posted requests were not completed in time");
  }
}

ModuleSession::Completion ModuleSession::CompletionAt(std::size_t index) const {
  std::lock_guard<std::mutex> lock(mu_);
  return completions_.at(index);
}
