// The host message interface of the data store.
#include <cstring>

#include "Convertor.h"
#include "DataStoreModule.h"
#include "HostFolders.h"

namespace {

constexpr char kRegistrationKind[] = "DATASTORE";
constexpr char kRegistrationMaker[] = "QUENDAL";
constexpr char kRegistrationName[] = "Datastore Unique Name";
constexpr char kGameModeEvent[] = "Quendal Game Mode";
constexpr char kDataStoreEvent[] = "DataStoreEvent";
constexpr char kStartLine[] = "Start datastore module";

bool IsSymbolMessage(unsigned int message) {
  return message >= HostMessage::OpenSymbol && message <= HostMessage::OpenSymbolPath;
}

}  // namespace

int CDataStoreModule::ReceiveMessageWrap(void* context, unsigned int message, HostArg a,
                                         HostArg b) {
  CModule::ReceiveMessageWrap(context, message, a, b);
  try {
    return Dispatch(message, a, b);
  } catch (AddDataException const& exception) {
    // Compat: a failed insert is logged and answered 0, as hosts expect.
    DsLog(QString::fromLocal8Bit(exception.what()), MESS_CRITICAL);
    return 0;
  }
}

int CDataStoreModule::Dispatch(unsigned int message, HostArg a, HostArg b) {
  if (IsSymbolMessage(message)) {
    if (!running_) return 1;
    const bool pendingBefore = LogHasUnapplied();
    const int answer = HandleSymbolMessage(message, a, b);
    // The worker times the checkpoint of the interval this message started.
    if (!pendingBefore && LogHasUnapplied()) requests_->WakeForDueWork();
    return answer;
  }
  switch (message) {
    case HostMessage::InitModule: InitModule(); return 0;
    case HostMessage::Start: StartModule(); return 0;
    case HostMessage::Stop:
      EventDataStoreEmit();
      StopRequestThread();
      CloseStore();
      return 0;
    case HostMessage::ReceiveEvent: return coreReceiveEvent(a);
    case HostMessage::CreateMenu: CreateImportMenu(); return 0;
    case HostMessage::MenuItemPressed:
      if (convertor_ != nullptr) convertor_->pressMenuItem(reinterpret_cast<mm_menu_item*>(a));
      return 0;
    default: return 0;  // Compat: an unknown message is answered 0, not refused
  }
}

// Symbol requests: refused in game mode, inserts refused while writing is
// disabled; a null record or a handle the registry does not hold gets 1.
int CDataStoreModule::HandleSymbolMessage(unsigned int message, HostArg a, HostArg b) {
  // Compat: in game mode every symbol request answers 0 and does nothing.
  if (gameMode_ == 1) return 0;
  const bool insert =
      message == HostMessage::InsertDataSend || message == HostMessage::InsertDataPost;
  if (insert && !writeEnabled_) return RefuseInsert(message == HostMessage::InsertDataSend);
  if (a == 0) return 1;
  void* record = reinterpret_cast<void*>(a);
  auto handleOf = [record]() { return reinterpret_cast<void*>(*static_cast<HostWord*>(record)); };
  switch (message) {
    case HostMessage::OpenSymbol:
      if (b == 0) return 1;
      return OpenSymbol(static_cast<SYMBOL_NAME_PERIOD*>(record), reinterpret_cast<void**>(b));
    case HostMessage::OpenSymbolPath:
      if (b == 0) return 1;
      return OpenSymbol(static_cast<SYMBOL_NAME_PERIOD_PATH*>(record), reinterpret_cast<void**>(b),
                        true);
    case HostMessage::CloseSymbol: return CloseSymbol(record);
    case HostMessage::InsertDataPost:
      return InsertSymbolDataPost(static_cast<INSERT_SYMBOL_DATA_REQUEST*>(record));
    default: break;
  }
  if (!isExistSymbol(handleOf())) return 1;
  switch (message) {
    case HostMessage::InsertDataSend:
      return InsertSymbolDataSend(static_cast<INSERT_SYMBOL_DATA_REQUEST*>(record));
    case HostMessage::GetDataSend:
      return GetSymbolDataSend(static_cast<GET_SYMBOL_DATA_REQUEST*>(record));
    case HostMessage::GetDataPost:
      return GetSymbolDataPost(static_cast<GET_SYMBOL_DATA_REQUEST*>(record));
    default: return GetSymbolDataCountSend(static_cast<GET_SYMBOL_DATA_REQUEST*>(record));
  }
}

// With "EnableWrite" off an insert is answered 0 and stores nothing. An
// instance that cannot write the folder because another does says so: the
// first refusal and every thousandth are logged; a synchronous insert gets 1.
int CDataStoreModule::RefuseInsert(bool synchronous) {
  if (readOnlyReason_.isEmpty()) return 0;  // Compat: "EnableWrite" 0 answers 0, not an error
  constexpr long kRefusalsPerLine = 1000;
  if (insertsRefused_++ % kRefusalsPerLine == 0) {
    ReportFailure(QStringLiteral("Insert refused (%1 so far): %2")
                      .arg(insertsRefused_)
                      .arg(readOnlyReason_)
                      .toLocal8Bit()
                      .toStdString());
  }
  return synchronous ? 1 : 0;
}

void CDataStoreModule::Register() {
  REGISTRATION_RECORD record{};
  std::strcpy(record.kind, kRegistrationKind);
  std::strcpy(record.maker, kRegistrationMaker);
  std::strcpy(record.uniqueName, kRegistrationName);
  record.context2 = reinterpret_cast<HostWord>(context2());
  record.moduleOrHandle = reinterpret_cast<HostWord>(this);
  CallHost(HostMessage::RegisterModule, reinterpret_cast<HostArg>(&record), 0);
  hostId_ = record.moduleOrHandle;
  setModuleHandle(record.moduleOrHandle);
}

// A 3007 while running (a second one, or a host that unloaded the library
// without 3005 and loads it again) first stops what runs.
void CDataStoreModule::InitModule() {
  if (running_) {
    DsLog(QStringLiteral("Initialised again without a stop: stopping first"), MESS_CRITICAL);
    StopRequestThread();
    CloseStore();
  }
  Register();
  CreateFolders();
  pGlobalCore = context();
  addDateToTranslate();
  EventDataStoreGetHandle();
}

void CDataStoreModule::StartModule() {
  pGlobalCore = context();
  subscribeEvent(kGameModeEvent);
  DsLog(QString::fromLatin1(kStartLine), MESS_CRITICAL);
}

// The worker finishes what it serves, stores the queued inserts while the
// budget lasts and ends; its thread is joined unless a completion call holds
// it past the budget.
void CDataStoreModule::StopRequestThread() {
  if (!requests_) return;
  const RequestQueue::StopReport report = requests_->Stop(kStopBudget);
  requests_.reset();
  if (report.getsDropped > 0 || report.insertsDropped > 0) {
    ReportFailure(QStringLiteral("Stop: %1 queued get(s) and %2 queued insert(s) dropped")
                      .arg(report.getsDropped)
                      .arg(report.insertsDropped)
                      .toLocal8Bit()
                      .toStdString());
  }
  if (report.workerLeft) {
    DsLog(QStringLiteral(
              "Stop: a completion call holds the worker past %1 ms; it ends when the call returns")
              .arg(kStopBudget.count()),
          MESS_CRITICAL);
  }
}

// Everything reaches the data files; the symbols, the log and the lock go.
void CDataStoreModule::CloseStore() {
  ChangeLock lock(*this);
  CloseWriteLog();
  running_ = false;
  KeepFileLogOpen(false);
}

// One convertor serves every menu request; it adds its entry to the host's menu.
void CDataStoreModule::CreateImportMenu() {
  if (convertor_ == nullptr) convertor_ = new CConvertor(this, this);
  convertor_->setHostContext(context());
  convertor_->setFolders({[this] { return GetWorkFolderFromMain(this, context()); },
                          [this] { return GetPathByFolderType(this, VD_FOLDER_IMPORT); }});
  convertor_->CreateMenuConvertor();
  convertor_->UpdatePath();
}

void CDataStoreModule::subscribeEvent(const char* name) {
  EVENT_SUBSCRIPTION_RECORD record{};
  CopyHostName(record.name, kHostNameField, QString::fromLatin1(name));
  record.moduleHandle = hostId_;
  record.module = reinterpret_cast<HostWord>(this);
  record.minusOne = -1;
  CallHost(HostMessage::SubscribeEvent, reinterpret_cast<HostArg>(&record), 0);
}

void CDataStoreModule::EventDataStoreGetHandle() {
  EVENT_CREATION_RECORD record{};
  CopyHostName(record.name, kHostNameField, QString::fromLatin1(kDataStoreEvent));
  CallHost(HostMessage::CreateEvent, reinterpret_cast<HostArg>(&record), 0);
  eventHandle_ = record.handle;
  eventSender_.sender = hostId_;
}

void CDataStoreModule::EventDataStoreEmit() {
  CallHost(HostMessage::EmitEvent, static_cast<HostArg>(eventHandle_),
           reinterpret_cast<HostArg>(&eventSender_));
}

int CDataStoreModule::coreReceiveEvent(HostArg address) {
  const auto* record = reinterpret_cast<const INCOMING_EVENT_RECORD*>(address);
  if (record == nullptr || record->addressedHostId != hostId_) return 1;
  if (record->addressedModule != reinterpret_cast<HostWord>(this)) return 0;
  if (record->eventCode == kEventGameModeStarts) gameMode_ = 1;
  if (record->eventCode == kEventGameModeEnds) gameMode_ = 0;
  return 0;
}
