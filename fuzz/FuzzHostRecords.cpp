// fuzz_host_records: the records a host hands the module. The input is a
// sequence of messages, each a selector byte and the bytes of its record,
// sent through the module object's message handler as the host would send
// them; buffers and data the records point to are the sizes the records
// state. The module is initialised once, with a small host that answers the
// folders (scratch folders) and the data provider.
//
// Every input ends with game mode off and the worker's queues served, so
// that inputs do not leak into each other. A file that appears outside the
// data folder (in the current folder, a scratch folder of its own) ends the
// run: no request may name one there. Corpus and artifact paths given to
// this target must be absolute, since it changes its current folder.

#include <sys/resource.h>
#include <unistd.h>

#include <QString>
#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "DataStoreModule.h"
#include "FuzzInputs.h"
#include "FuzzSupport.h"
#include "UnicodeString.h"

namespace {

constexpr HostWord kModuleHandle = 0x5EED;  // what the host assigns at registration
constexpr char kProvider[] = "Fuzz";
constexpr std::uint32_t kDoneCode = 0xD0E;     // completion code of the closing requests
constexpr int kMaxRecords = 4096;              // most records a get's buffer or an insert holds
constexpr std::size_t kMaxStringBytes = 4096;  // largest string a record points to
constexpr std::size_t kPathUnits = kFolderPathUnits - 1;

using namespace hostinput;

constexpr unsigned int kGetMessages[] = {HostMessage::GetDataSend, HostMessage::GetDataPost,
                                         HostMessage::GetDataCountSend};
constexpr unsigned int kInsertMessages[] = {HostMessage::InsertDataSend,
                                            HostMessage::InsertDataPost};

// The host's side: its context, its folders and the completions it waits for.
struct Host {
  fuzzsupport::ScratchDir root{"fuzz-host"};
  std::string config = root.File("config");
  std::string data = root.File("data");
  std::string outside = root.File("current");  // the process's current folder
  std::mutex mutex;
  std::condition_variable completed;
  int completions = 0;
  int doneContext = 0;  // its address marks the closing requests
};

Host& TheHost() {
  static Host host;
  return host;
}

void CopyPath(char16_t* out, std::string const& path) {
  const QString text = QString::fromStdString(path);
  std::copy_n(reinterpret_cast<const char16_t*>(text.utf16()),
              std::min<qsizetype>(text.size(), kPathUnits), out);
}

int AnswerFolder(FOLDER_REQUEST_RECORD* record) {
  Host& host = TheHost();
  if (record->folderType == VD_FOLDER_CONFIG) {
    CopyPath(record->path, host.config);
    return 0;
  }
  if (record->folderType == VD_FOLDER_DATA) {
    CopyPath(record->path, host.data);
    return 0;
  }
  return 1;
}

void NoteCompletion() {
  Host& host = TheHost();
  {
    std::lock_guard<std::mutex> lock(host.mutex);
    ++host.completions;
  }
  host.completed.notify_all();
}

int HostCallback(void* context, unsigned int message, HostArg a, HostArg b) {
  Host& host = TheHost();
  if (context == &host.doneContext && message == kDoneCode) NoteCompletion();
  if (context != &host) return 0;  // a completion call with the record's own context
  switch (message) {
    case HostMessage::RegisterModule:
      reinterpret_cast<REGISTRATION_RECORD*>(a)->moduleOrHandle = kModuleHandle;
      return 0;
    case HostMessage::GetFolder: return AnswerFolder(reinterpret_cast<FOLDER_REQUEST_RECORD*>(a));
    case HostMessage::GetDataSource:
      std::strcpy(reinterpret_cast<SOURCE_RECORD*>(b)->provider, kProvider);
      return 0;
    case HostMessage::GetDateTimeFormatters: return 1;
    default: return 0;
  }
}

int Send(unsigned int message, const void* a, const void* b = nullptr) {
  return pDSModule->ReceiveMessageWrap(&TheHost(), message, reinterpret_cast<HostArg>(a),
                                       reinterpret_cast<HostArg>(b));
}

HostWord OpenBaseSymbol() {
  SYMBOL_NAME_PERIOD request{};
  std::strcpy(request.provider, kProvider);
  std::copy_n(u"FuzzBase", std::size(u"FuzzBase"), request.name);
  std::strcpy(request.code, "FUZZ");
  request.period.kind = 'I';
  HostWord handle = 0;
  if (Send(HostMessage::OpenSymbol, &request, &handle) != 0 || handle == 0) std::abort();
  return handle;
}

// Starts the module as a host does, once per process.
HostWord StartModule() {
  Host& host = TheHost();
  std::filesystem::create_directories(host.config);
  std::filesystem::create_directories(host.data);
  std::filesystem::create_directories(host.outside);
  if (chdir(host.outside.c_str()) != 0) std::abort();
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  pDSModule->InitializeWrap(HostCallback, HostCallback, &host, &host);
  Send(HostMessage::InitModule, nullptr);
  Send(HostMessage::Start, nullptr);
  return OpenBaseSymbol();
}

// The input, taken from the front; what is missing reads as zeros.
class InputCursor {
 public:
  InputCursor(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool AtEnd() const { return at_ >= size_; }
  std::uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  template <typename Record>
  Record Take() {
    Record record{};
    TakeInto(&record, sizeof record);
    return record;
  }
  // Exactly `bytes` bytes on the heap, so that reads beyond them are caught.
  std::unique_ptr<std::uint8_t[]> TakeBlock(std::size_t bytes) {
    std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[bytes]());
    TakeInto(block.get(), bytes);
    return block;
  }
  std::size_t Left() const { return size_ - std::min(at_, size_); }

 private:
  void TakeInto(void* out, std::size_t bytes) {
    const std::size_t taken = std::min(bytes, Left());
    std::memcpy(out, data_ + at_, taken);
    at_ += taken;
  }

  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

struct Session {
  HostWord baseHandle = 0;
  HostWord lastOpened = 0;
};

HostWord ChooseHandle(Session const& session, std::uint8_t choice, HostWord given) {
  switch (choice % kHandleChoices) {
    case kLastOpened: return session.lastOpened != 0 ? session.lastOpened : session.baseHandle;
    case kBaseSymbol: return session.baseHandle;
    default: return given;
  }
}

// Record size of the symbol a handle names; a candle's for a handle the
// module does not hold (it must refuse it anyway).
unsigned int RecordSize(HostWord handle) {
  if (!pDSModule->isExistSymbol(reinterpret_cast<void*>(handle))) return sizeof(CCandleDataPoint);
  return reinterpret_cast<CSymbol*>(handle)->GetDataPointSize();
}

template <typename Record>
void Open(InputCursor& input, Session& session, unsigned int message) {
  const std::uint8_t nulls = input.Byte();
  auto record = input.Take<Record>();
  HostWord handle = 0;
  const bool nullRecord = (nulls & kNullRecord) != 0;
  const bool nullSlot = (nulls & kNullHandleSlot) != 0;
  Send(message, nullRecord ? nullptr : &record, nullSlot ? nullptr : &handle);
  if (pDSModule->isExistSymbol(reinterpret_cast<void*>(handle))) session.lastOpened = handle;
}

void Get(InputCursor& input, Session const& session) {
  const unsigned int message = kGetMessages[input.Byte() % std::size(kGetMessages)];
  const std::uint8_t choice = input.Byte();
  auto request = input.Take<GET_SYMBOL_DATA_REQUEST>();
  request.handle = ChooseHandle(session, choice, request.handle);
  request.count = std::min(request.count, kMaxRecords);
  const std::size_t bytes = std::size_t(std::max(request.count, 0)) * RecordSize(request.handle);
  std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[bytes]());
  request.buffer = reinterpret_cast<HostWord>(buffer.get());
  Send(message, &request);
}

void Insert(InputCursor& input, Session const& session) {
  const unsigned int message = kInsertMessages[input.Byte() % std::size(kInsertMessages)];
  const std::uint8_t choice = input.Byte();
  auto request = input.Take<INSERT_SYMBOL_DATA_REQUEST>();
  request.handle = ChooseHandle(session, choice, request.handle);
  const unsigned int recordSize = RecordSize(request.handle);
  const auto available =
      static_cast<std::int32_t>(std::min<std::size_t>(input.Left() / recordSize, kMaxRecords));
  request.number = std::min(request.number, available);
  std::unique_ptr<std::uint8_t[]> data =
      input.TakeBlock(std::size_t(std::max(request.number, 0)) * recordSize);
  request.data = reinterpret_cast<HostWord>(data.get());
  Send(message, &request);
}

void Event(InputCursor& input) {
  const bool addressed = (input.Byte() & 1) != 0;
  auto record = input.Take<INCOMING_EVENT_RECORD>();
  if (addressed) {
    record.addressedHostId = kModuleHandle;
    record.addressedModule = reinterpret_cast<HostWord>(pDSModule);
  }
  Send(HostMessage::ReceiveEvent, &record);
}

void Close(InputCursor& input, Session const& session) {
  const std::uint8_t choice = input.Byte();
  const auto given = input.Take<HostWord>();
  pDSModule->ReceiveMessageWrap(&TheHost(), HostMessage::CloseSymbol,
                                static_cast<HostArg>(ChooseHandle(session, choice, given)), 0);
}

void HostString(InputCursor& input) {
  const bool nullData = (input.Byte() & 1) != 0;
  auto record = input.Take<coreUncStringType>();
  // The data holds length x charSize bytes and, read as 16-bit units, length units.
  const std::size_t unitBytes = std::max<std::size_t>(record.charSize, sizeof(char16_t));
  record.length = std::uint32_t(
      std::min<std::size_t>(record.length, std::min(input.Left(), kMaxStringBytes) / unitBytes));
  std::unique_ptr<std::uint8_t[]> data = input.TakeBlock(record.length * unitBytes);
  record.data = nullData ? 0 : reinterpret_cast<HostWord>(data.get());
  CUnicodeString text(&record);
  CUnicodeString copy(text);
  copy.toUnicode();
  text.toUnicodeC();
}

void Run(InputCursor& input, Session& session) {
  switch (input.Byte() % kOperationCount) {
    case kOpenSymbol: return Open<SYMBOL_NAME_PERIOD>(input, session, HostMessage::OpenSymbol);
    case kOpenSymbolPath:
      return Open<SYMBOL_NAME_PERIOD_PATH>(input, session, HostMessage::OpenSymbolPath);
    case kGet: return Get(input, session);
    case kInsert: return Insert(input, session);
    case kEvent: return Event(input);
    case kClose: return Close(input, session);
    default: return HostString(input);
  }
}

void WaitForCompletions(int count) {
  Host& host = TheHost();
  std::unique_lock<std::mutex> lock(host.mutex);
  host.completed.wait(lock, [&host, count] { return host.completions >= count; });
}

// Game mode off, then an empty insert and an empty get of the base symbol:
// the worker serves each queue in order, so when both are complete every
// request of this input has been served.
void Settle(Session const& session) {
  Host& host = TheHost();
  INCOMING_EVENT_RECORD event{};
  event.addressedHostId = kModuleHandle;
  event.addressedModule = reinterpret_cast<HostWord>(pDSModule);
  event.eventCode = kEventGameModeEnds;
  Send(HostMessage::ReceiveEvent, &event);

  int expected = 0;
  {
    std::lock_guard<std::mutex> lock(host.mutex);
    expected = host.completions;
  }
  // An empty posted request of the base symbol, waited for.
  auto postEmpty = [&](auto request, unsigned int message) {
    request.handle = session.baseHandle;
    request.completionContext = reinterpret_cast<HostWord>(&host.doneContext);
    request.completionCode = kDoneCode;
    Send(message, &request);
    WaitForCompletions(++expected);
  };
  postEmpty(INSERT_SYMBOL_DATA_REQUEST{}, HostMessage::InsertDataPost);
  postEmpty(GET_SYMBOL_DATA_REQUEST{}, HostMessage::GetDataPost);
}

void CheckNothingOutside() {
  if (std::filesystem::is_empty(TheHost().outside)) return;
  std::fprintf(stderr, "a request made files outside the data folder, in %s\n",
               TheHost().outside.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const HostWord baseHandle = StartModule();
  Session session;
  session.baseHandle = baseHandle;
  InputCursor input(data, size);
  while (!input.AtEnd()) Run(input, session);
  Settle(session);
  CheckNothingOutside();
  return 0;
}
