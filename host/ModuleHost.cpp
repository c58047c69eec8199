#include "ModuleHost.h"

#include <dlfcn.h>

#include <QDateTime>
#include <QString>
#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <utility>

namespace {

// The host that owns each log sink slot, or null.
std::array<std::atomic<ModuleHost*>, ModuleHost::kSinkSlots> gSinkOwners{};

struct RecordView {
  const void* data = nullptr;  // start of the record in the module's memory
  std::size_t size = 0;        // bytes
};

// The record a message carries, or an empty view for messages without one.
RecordView RecordOf(unsigned int message, HostArg a, HostArg b) {
  namespace M = HostMessage;
  const void* pa = reinterpret_cast<const void*>(a);
  const void* pb = reinterpret_cast<const void*>(b);
  switch (message) {
    case M::RegisterModule: return {pa, sizeof(REGISTRATION_RECORD)};
    case M::GetInterface:
    case M::GetMainMenu: return {pa, sizeof(INTERFACE_REQUEST_RECORD)};
    case M::GetDataSource: return {pb, sizeof(SOURCE_RECORD)};
    case M::InsertTranslation: return {pa, sizeof(TRANSLATION_INSERT_RECORD)};
    case M::SubscribeEvent: return {pa, sizeof(EVENT_SUBSCRIPTION_RECORD)};
    case M::UnsubscribeAll: return {pa, sizeof(EVENT_UNSUBSCRIPTION_RECORD)};
    case M::CreateEvent: return {pa, sizeof(EVENT_CREATION_RECORD)};
    case M::EmitEvent: return {pb, sizeof(VDEvent)};
    case M::GetLanguageCount:
    case M::GetLanguages: return {pa, sizeof(LANGUAGE_LIST_RECORD)};
    case M::GetFolder: return {pa, sizeof(FOLDER_REQUEST_RECORD)};
    case M::GetLogSink:
    case M::GetMainWindowId: return {pa, sizeof(HostWord)};
    case M::GetDateTimeFormatters: return {pa, sizeof(DATETIME_FORMATTER_RECORD)};
    case M::GetWorkFolder: return {pa, kWorkFolderUnits * sizeof(char16_t)};
    case M::UseWorkFolder: return {pa, sizeof(std::int32_t)};
    case M::SetMenuParent: return {pa, sizeof(MENU_PARENT_RECORD)};
    case M::AddMenuItem: return {pa, sizeof(mm_menu_item)};
    default: return {};
  }
}

std::vector<unsigned char> CopyRecord(RecordView view) {
  if (view.data == nullptr) return {};
  const auto* bytes = static_cast<const unsigned char*>(view.data);
  return std::vector<unsigned char>(bytes, bytes + view.size);
}

// The text of a fixed 8-bit field, which need not be NUL-terminated.
std::string FieldText(const char* field, std::size_t size) {
  return std::string(field, strnlen(field, size));
}

// Copies text into a fixed 8-bit field, always NUL-terminated.
void SetField(char* field, std::size_t size, const std::string& text) {
  const std::size_t n = std::min(text.size(), size - 1);
  std::memcpy(field, text.data(), n);
  field[n] = 0;
}

// Copies text into a UTF-16 buffer of units units, always NUL-terminated.
void SetWide(char16_t* buffer, std::size_t units, const std::u16string& text) {
  const std::size_t n = std::min(text.size(), units - 1);
  std::copy_n(text.data(), n, buffer);
  buffer[n] = 0;
}

std::u16string WideOrEmpty(HostWord address) {
  const auto* text = reinterpret_cast<const char16_t*>(address);
  return text == nullptr ? std::u16string() : std::u16string(text);
}

void FormatQDateTime(const void* dateTime, const void* format, void* result) {
  *static_cast<QString*>(result) =
      static_cast<const QDateTime*>(dateTime)->toString(*static_cast<const QString*>(format));
}

void FormatTimeValue(long time, const void* format, bool, void* result) {
  *static_cast<QString*>(result) =
      QDateTime::fromSecsSinceEpoch(time).toString(*static_cast<const QString*>(format));
}

template <typename Record>
Record* As(HostArg address) {
  return reinterpret_cast<Record*>(address);
}

}  // namespace

struct ModuleHost::Answer {
  int result = 0;            // returned when neither member below is set
  Handler handler;           // the user handler answers
  ExceptionFactory thrower;  // the callback throws what this makes
};

ModuleHost::ModuleHost() : sinkSlot_(AcquireSinkSlot(this)) {}

ModuleHost::~ModuleHost() {
  unload();
  ReleaseSinkSlot(sinkSlot_);
}

bool ModuleHost::load(const std::string& path) {
  if (loaded()) {
    error_ = "a module is already loaded; cannot load " + path;
    return false;
  }
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) {
    error_ = "module file not found: " + path;
    return false;
  }
  library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library_ == nullptr) {
    error_ = "cannot load module " + path + ": " + dlerror();
    return false;
  }
  const std::pair<const char*, void**> wanted[] = {
      {kExportGetModule, reinterpret_cast<void**>(&exports_.getModule)},
      {kExportInitialize, reinterpret_cast<void**>(&exports_.initialize)},
      {kExportReceiveMessage, reinterpret_cast<void**>(&exports_.receiveMessage)},
      {kExportGetModuleInfo, reinterpret_cast<void**>(&exports_.getModuleInfo)},
  };
  for (const auto& [name, slot] : wanted) {
    *slot = dlsym(library_, name);
    if (*slot == nullptr) {
      error_ = std::string("module ") + path + " does not export " + name;
      dlclose(library_);
      library_ = nullptr;
      exports_ = Exports();
      return false;
    }
  }
  error_.clear();
  return true;
}

void ModuleHost::unload() {
  if (library_ == nullptr) return;
  bool running;
  {
    std::lock_guard<std::mutex> lock(mu_);
    running = running_;
  }
  if (running) {
    try {
      send(HostMessage::Stop);
    } catch (...) {
      // The library is closed all the same; unload() also runs in the destructor.
    }
  }
  dlclose(library_);
  library_ = nullptr;
  exports_ = Exports();
}

void ModuleHost::initialize() {
  HostWord context2;
  {
    std::lock_guard<std::mutex> lock(mu_);
    context2 = context2_;
  }
  exports_.initialize(&ModuleHost::Callback, nullptr, this, reinterpret_cast<void*>(context2));
}

int ModuleHost::send(unsigned int message, HostArg a, HostArg b) {
  if (message == HostMessage::InitModule || message == HostMessage::Stop) {
    std::lock_guard<std::mutex> lock(mu_);
    running_ = message == HostMessage::InitModule;
  }
  return exports_.receiveMessage(this, message, a, b);
}

int ModuleHost::postInsert(HostWord handle, std::int32_t number, const void* data,
                           unsigned int completionCode) {
  INSERT_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.number = number;
  request.data = reinterpret_cast<HostWord>(data);
  // The module hands the completion context to the host callback as its
  // context, so it must be this host.
  request.completionContext = reinterpret_cast<HostWord>(this);
  request.completionCode = completionCode;
  return send(HostMessage::InsertDataPost, reinterpret_cast<HostArg>(&request));
}

int ModuleHost::moduleInfo(MODULE_INFO* out) { return exports_.getModuleInfo(out); }

MODULE_INFO ModuleHost::info() {
  MODULE_INFO record{};
  exports_.getModuleInfo(&record);
  return record;
}

void* ModuleHost::moduleObject() { return exports_.getModule(); }

int ModuleHost::raiseEvent(const std::string& name, std::int32_t eventCode) {
  std::vector<Subscription> targets;
  {
    std::lock_guard<std::mutex> lock(mu_);
    std::copy_if(subscriptions_.begin(), subscriptions_.end(), std::back_inserter(targets),
                 [&](const Subscription& s) { return s.name == name; });
  }
  for (const Subscription& target : targets) {
    INCOMING_EVENT_RECORD record{};
    record.addressedHostId = target.moduleHandle;
    record.addressedModule = target.module;
    record.eventCode = eventCode;
    raiseEventRaw(record);
  }
  return static_cast<int>(targets.size());
}

int ModuleHost::raiseEventRaw(const INCOMING_EVENT_RECORD& record) {
  INCOMING_EVENT_RECORD copy = record;
  return send(HostMessage::ReceiveEvent, reinterpret_cast<HostArg>(&copy), 0);
}

int ModuleHost::pressMenuItem(std::size_t index) {
  mm_menu_item item;
  {
    std::lock_guard<std::mutex> lock(mu_);
    item = menuItems_.at(index);
  }
  return send(HostMessage::MenuItemPressed, reinterpret_cast<HostArg>(&item), 0);
}

// ---------------------------------------------------------------------------
// Configuration.

void ModuleHost::setContext2(HostWord value) {
  std::lock_guard<std::mutex> lock(mu_);
  context2_ = value;
}

void ModuleHost::setModuleHandle(HostWord handle) {
  std::lock_guard<std::mutex> lock(mu_);
  moduleHandle_ = handle;
}

void ModuleHost::setLanguages(std::vector<Language> languages) {
  std::lock_guard<std::mutex> lock(mu_);
  languages_ = std::move(languages);
}

void ModuleHost::setDateTimeFormatters(bool provide) {
  std::lock_guard<std::mutex> lock(mu_);
  provideFormatters_ = provide;
}

void ModuleHost::setInterface(const std::string& first, const std::string& second,
                              const std::string& third, HostWord value) {
  std::lock_guard<std::mutex> lock(mu_);
  interfaces_[InterfaceKey(first, second, third)] = value;
}

void ModuleHost::setFolder(std::uint32_t type, const std::u16string& path) {
  std::lock_guard<std::mutex> lock(mu_);
  folders_[type] = path;
}

void ModuleHost::setDataSource(const std::string& provider) {
  std::lock_guard<std::mutex> lock(mu_);
  provider_ = provider;
}

void ModuleHost::setWorkFolder(const std::u16string& path) {
  std::lock_guard<std::mutex> lock(mu_);
  workFolder_ = path;
}

void ModuleHost::setUseWorkFolder(std::int32_t value) {
  std::lock_guard<std::mutex> lock(mu_);
  useWorkFolder_ = value;
}

void ModuleHost::setMainWindowId(HostWord id) {
  std::lock_guard<std::mutex> lock(mu_);
  mainWindowId_ = id;
}

void ModuleHost::setHandler(Handler handler) {
  std::lock_guard<std::mutex> lock(mu_);
  handler_ = std::move(handler);
}

void ModuleHost::throwOn(unsigned int message, std::exception_ptr exception) {
  throwOn(message, [exception] { return exception; });
}

void ModuleHost::throwOn(unsigned int message, ExceptionFactory factory) {
  std::lock_guard<std::mutex> lock(mu_);
  throws_[message] = std::move(factory);
}

void ModuleHost::clearThrow(unsigned int message) {
  std::lock_guard<std::mutex> lock(mu_);
  throws_.erase(message);
}

// ---------------------------------------------------------------------------
// Records.

std::vector<ModuleHost::Call> ModuleHost::calls() const {
  std::lock_guard<std::mutex> lock(mu_);
  return calls_;
}

std::vector<ModuleHost::Call> ModuleHost::calls(unsigned int message) const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<Call> result;
  std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(result),
               [message](const Call& call) { return call.message == message; });
  return result;
}

std::vector<unsigned int> ModuleHost::messages() const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<unsigned int> result;
  for (const Call& call : calls_) result.push_back(call.message);
  return result;
}

std::vector<ModuleHost::LogEntry> ModuleHost::logs() const {
  std::lock_guard<std::mutex> lock(mu_);
  return logs_;
}

std::vector<ModuleHost::Translation> ModuleHost::translations() const {
  std::lock_guard<std::mutex> lock(mu_);
  return translations_;
}

std::vector<ModuleHost::CreatedEvent> ModuleHost::createdEvents() const {
  std::lock_guard<std::mutex> lock(mu_);
  return createdEvents_;
}

std::vector<ModuleHost::Subscription> ModuleHost::subscriptions() const {
  std::lock_guard<std::mutex> lock(mu_);
  return subscriptions_;
}

std::vector<ModuleHost::Emit> ModuleHost::emits() const {
  std::lock_guard<std::mutex> lock(mu_);
  return emits_;
}

std::vector<mm_menu_item> ModuleHost::menuItems() const {
  std::lock_guard<std::mutex> lock(mu_);
  return menuItems_;
}

void ModuleHost::clearRecords() {
  std::lock_guard<std::mutex> lock(mu_);
  calls_.clear();
  logs_.clear();
  translations_.clear();
  createdEvents_.clear();
  emits_.clear();
}

HostLogSink ModuleHost::logSink() const { return SinkOf(sinkSlot_); }

const char* ModuleHost::messageName(unsigned int message) { return HostMessageName(message); }

// ---------------------------------------------------------------------------
// The callback.

int ModuleHost::Callback(void* context, unsigned int message, HostArg a, HostArg b) {
  return static_cast<ModuleHost*>(context)->handle(message, a, b);
}

int ModuleHost::handle(unsigned int message, HostArg a, HostArg b) {
  Answer reply;
  {
    std::lock_guard<std::mutex> lock(mu_);
    calls_.push_back(
        Call{message, a, b, std::this_thread::get_id(), CopyRecord(RecordOf(message, a, b))});
    const auto thrower = throws_.find(message);
    if (thrower != throws_.end()) {
      reply.thrower = thrower->second;
    } else {
      reply = answer(message, a, b);
    }
  }
  if (reply.thrower) std::rethrow_exception(reply.thrower());
  if (reply.handler) return reply.handler(message, a, b);
  return reply.result;
}

ModuleHost::Answer ModuleHost::answer(unsigned int message, HostArg a, HostArg b) {
  namespace M = HostMessage;
  Answer reply;
  const RecordView record = RecordOf(message, a, b);
  if (record.size != 0 && record.data == nullptr) {
    reply.result = 1;  // a known message without its record: refused
    return reply;
  }
  switch (message) {
    case M::RegisterModule: registerModule(As<REGISTRATION_RECORD>(a)); break;
    case M::GetInterface:
    case M::GetMainMenu: answerInterface(As<INTERFACE_REQUEST_RECORD>(a)); break;
    case M::GetDataSource: answerDataSource(As<SOURCE_RECORD>(b)); break;
    case M::InsertTranslation: {
      const auto* r = As<TRANSLATION_INSERT_RECORD>(a);
      translations_.push_back({FieldText(r->context, kTranslationField),
                               FieldText(r->key, kTranslationField),
                               FieldText(r->text, kTranslationField)});
      break;
    }
    case M::SubscribeEvent: subscribe(As<EVENT_SUBSCRIPTION_RECORD>(a)); break;
    case M::UnsubscribeAll: unsubscribeAll(As<EVENT_UNSUBSCRIPTION_RECORD>(a)); break;
    case M::CreateEvent: createEvent(As<EVENT_CREATION_RECORD>(a)); break;
    case M::EmitEvent: emits_.push_back({static_cast<HostWord>(a), *As<VDEvent>(b)}); break;
    case M::GetLanguageCount:
    case M::GetLanguages: answerLanguages(message, As<LANGUAGE_LIST_RECORD>(a)); break;
    case M::GetFolder: reply.result = answerFolder(As<FOLDER_REQUEST_RECORD>(a)); break;
    case M::GetLogSink: *As<HostWord>(a) = reinterpret_cast<HostWord>(SinkOf(sinkSlot_)); break;
    case M::GetDateTimeFormatters:
      if (provideFormatters_) {
        As<DATETIME_FORMATTER_RECORD>(a)->qDateTimeFormatter =
            reinterpret_cast<HostWord>(&FormatQDateTime);
        As<DATETIME_FORMATTER_RECORD>(a)->timeValueFormatter =
            reinterpret_cast<HostWord>(&FormatTimeValue);
      }
      break;
    case M::GetMainWindowId:
      if (mainWindowId_) *As<HostWord>(a) = *mainWindowId_;
      break;
    case M::GetWorkFolder: reply.result = answerWorkFolder(As<char16_t>(a)); break;
    case M::UseWorkFolder:
      if (useWorkFolder_) *As<std::int32_t>(a) = *useWorkFolder_;
      break;
    case M::RefreshMenu:
    case M::SetMenuParent: break;
    case M::AddMenuItem: addMenuItem(As<mm_menu_item>(a)); break;
    default: reply.handler = handler_; break;
  }
  return reply;
}

void ModuleHost::registerModule(REGISTRATION_RECORD* record) {
  record->moduleOrHandle = moduleHandle_ ? *moduleHandle_ : nextModuleHandle_++;
}

void ModuleHost::answerInterface(const INTERFACE_REQUEST_RECORD* record) {
  const InterfaceKey key(FieldText(record->first, kHostNameField),
                         FieldText(record->second, kHostNameField),
                         FieldText(record->third, kHostNameField));
  const auto it = interfaces_.find(key);
  if (it != interfaces_.end() && record->resultSlot != 0) {
    *reinterpret_cast<HostWord*>(record->resultSlot) = it->second;
  }
}

void ModuleHost::answerDataSource(SOURCE_RECORD* record) {
  if (!provider_.empty()) SetField(record->provider, kHostNameField, provider_);
}

void ModuleHost::subscribe(const EVENT_SUBSCRIPTION_RECORD* record) {
  subscriptions_.push_back(
      {FieldText(record->name, kHostNameField), record->moduleHandle, record->module});
}

void ModuleHost::unsubscribeAll(const EVENT_UNSUBSCRIPTION_RECORD* record) {
  std::erase_if(subscriptions_, [record](const Subscription& s) {
    return s.moduleHandle == record->moduleHandle && s.module == record->module;
  });
}

void ModuleHost::createEvent(EVENT_CREATION_RECORD* record) {
  record->handle = nextEventHandle_++;
  createdEvents_.push_back({FieldText(record->name, kHostNameField), record->handle});
}

void ModuleHost::answerLanguages(unsigned int message, LANGUAGE_LIST_RECORD* record) {
  if (message == HostMessage::GetLanguageCount) {
    record->count = static_cast<std::int32_t>(languages_.size());
    return;
  }
  auto* entries = reinterpret_cast<LANGUAGE_ENTRY*>(record->entries);
  if (entries == nullptr || record->count <= 0) return;
  const std::size_t n = std::min(languages_.size(), static_cast<std::size_t>(record->count));
  for (std::size_t i = 0; i < n; ++i) {
    SetField(entries[i].name, kHostNameField, languages_[i].name);
    entries[i].isCurrent = languages_[i].current ? 1 : 0;
  }
}

int ModuleHost::answerFolder(FOLDER_REQUEST_RECORD* record) {
  const auto it = folders_.find(record->folderType);
  if (it == folders_.end()) return 1;
  SetWide(record->path, kFolderPathUnits, it->second);
  return 0;
}

int ModuleHost::answerWorkFolder(char16_t* buffer) {
  if (!workFolder_) return 1;
  SetWide(buffer, kWorkFolderUnits, *workFolder_);
  return 0;
}

void ModuleHost::addMenuItem(mm_menu_item* item) {
  item->itemId = nextMenuItemId_++;
  menuItems_.push_back(*item);
}

// ---------------------------------------------------------------------------
// Log sinks.

template <int Slot>
int ModuleHost::SinkTrampoline(LogRecord* record) {
  return DeliverLog(Slot, record);
}

int ModuleHost::DeliverLog(int slot, const LogRecord* record) {
  ModuleHost* host = gSinkOwners[slot].load();
  if (host == nullptr || record == nullptr) return 1;
  LogEntry entry{WideOrEmpty(record->moduleName), record->msgType, record->msgLevel,
                 WideOrEmpty(record->text), std::this_thread::get_id()};
  std::lock_guard<std::mutex> lock(host->mu_);
  host->logs_.push_back(std::move(entry));
  return 0;
}

HostLogSink ModuleHost::SinkOf(int slot) {
  static const auto kSinks = []<int... Slots>(std::integer_sequence<int, Slots...>) {
    return std::array<HostLogSink, kSinkSlots>{&SinkTrampoline<Slots>...};
  }
  (std::make_integer_sequence<int, kSinkSlots>{});
  return slot < 0 ? nullptr : kSinks[slot];
}

int ModuleHost::AcquireSinkSlot(ModuleHost* host) {
  for (int slot = 0; slot < kSinkSlots; ++slot) {
    ModuleHost* expected = nullptr;
    if (gSinkOwners[slot].compare_exchange_strong(expected, host)) return slot;
  }
  return -1;
}

void ModuleHost::ReleaseSinkSlot(int slot) {
  if (slot >= 0) gSinkOwners[slot].store(nullptr);
}
