// Synchronous and posted requests, and what the worker asks of the store.
#include <cstdlib>
#include <functional>
#include <cstring>

#include "DataStoreModule.h"

namespace {

constexpr char kPostUnknownSymbol[] = "Error in CDataStoreModule::InsertSymbolDataPost CP2";
constexpr char kPostBufferFailed[] = "Error in CDataStoreModule::InsertSymbolDataPost CP3";
constexpr coreLogMsgLevel kFailureLevel = LOG_LEVEL_4;  // the host log's level of errors

CSymbol* SymbolOf(HostWord handle) { return reinterpret_cast<CSymbol*>(handle); }

// Bytes of count points of the symbol; 0 for a negative count.
std::size_t PointBytes(CSymbol const& symbol, int count) {
  return count > 0 ? std::size_t(count) * symbol.GetDataPointSize() : 0;
}

// A copy of the caller's record and of `bytes` of its points (when given),
// both from malloc; the buffer has at least one byte, so that an empty
// request still has one. Empty when either allocation fails.
template <typename Request>
QueuedCopy<Request> CopyRequest(Request const& request, HostWord callerPoints, std::size_t bytes) {
  QueuedCopy<Request> copy{
      std::unique_ptr<Request, FreeDeleter>(static_cast<Request*>(std::malloc(sizeof(Request)))),
      std::unique_ptr<void, FreeDeleter>(std::malloc(bytes > 0 ? bytes : 1))};
  if (!copy.record || !copy.points) return {};
  *copy.record = request;
  if (callerPoints != 0)
    std::memcpy(copy.points.get(), reinterpret_cast<void*>(callerPoints), bytes);
  return copy;
}

}  // namespace

// Both threads report: the file log and the host log each take a lock.
void CDataStoreModule::ReportFailure(std::string const& text) {
  const QString line = QString::fromLocal8Bit(text.c_str());
  DsLog(line, MESS_ERROR);
  static std::mutex hostLogMutex;
  std::lock_guard<std::mutex> lock(hostLogMutex);
  GetLog()->ShowLogInfo(LOG_TYPE_1, kFailureLevel, line);
}

void CDataStoreModule::LogStatus(Status const& status) {
  if (!status.ok()) ReportFailure(status.ToString());
}

// The checkpoint's syncs run with the data mutex released: reads of open
// files go on; changes wait for the change mutex.
void CDataStoreModule::CheckpointIfDue(ChangeLock& lock) {
  if (!writeLog_) return;
  LogStatus(writeLog_->CheckpointIfDue([&lock](std::function<Status()> const& syncs) {
    lock.data.unlock();
    Status status = syncs();
    lock.data.lock();
    return status;
  }));
}

// The symbol's file open (through the registry's cache). A reader's symbol
// whose file the writer has not made yet reads as empty until it exists.
Status CDataStoreModule::UseSymbol(CSymbol& symbol) {
  Status status = registry_.Use(symbol);
  if (!status.ok() && symbol.writeDisabled() && !fileSystem_->Exists(symbol.file()->path()))
    return Status();
  return status;
}

// A file to open is a change: the change mutex is taken first.
Status CDataStoreModule::UseForReading(CSymbol& symbol, std::unique_lock<std::mutex>& data) {
  if (symbol.file() != nullptr && symbol.file()->IsOpenAsAsked()) return UseSymbol(symbol);
  data.unlock();
  std::lock_guard<std::mutex> change(changeMutex_);
  data.lock();
  return UseSymbol(symbol);
}

bool CDataStoreModule::LogHasUnapplied() {
  std::lock_guard<std::mutex> lock(dataMutex_);
  return writeLog_ && writeLog_->HasUnapplied();
}

// A get or a count, on whichever thread asks; failures are logged.
void CDataStoreModule::ReadSymbol(GET_SYMBOL_DATA_REQUEST& request, bool countOnly) {
  std::unique_lock<std::mutex> lock(dataMutex_);
  CSymbol* symbol = SymbolOf(request.handle);
  Status status = UseForReading(*symbol, lock);
  if (status.ok() && countOnly) symbol->GetDataCount(&request, &status);
  if (status.ok() && !countOnly) symbol->GetData(&request, &status);
  LogStatus(status);
}

int CDataStoreModule::GetSymbolDataSend(GET_SYMBOL_DATA_REQUEST* request) {
  LogMessage("GetSymbolDataSend");
  if (request->handle == 0) return 1;
  ReadSymbol(*request, false);
  return 0;
}

int CDataStoreModule::GetSymbolDataCountSend(GET_SYMBOL_DATA_REQUEST* request) {
  LogMessage("GetSymbolDataCountSend");
  if (request->handle == 0) return 1;
  ReadSymbol(*request, true);
  return 0;
}

// 1 when the records were not stored (the log says why).
int CDataStoreModule::InsertSymbolDataSend(INSERT_SYMBOL_DATA_REQUEST* request) {
  LogMessage("InsertSymbolDataSend");
  ChangeLock lock(*this);
  CSymbol* symbol = SymbolOf(request->handle);
  Status status = UseSymbol(*symbol);
  if (status.ok())
    status = symbol->InsertData(request->number, reinterpret_cast<unsigned char*>(request->data));
  LogStatus(status);
  CommitLog();
  CheckpointIfDue(lock);
  return status.ok() ? 0 : 1;
}

// The copy gets a buffer of its own, as large as the count it asks for, so the
// worker can never write beyond it; the caller's buffer is only read.
int CDataStoreModule::GetSymbolDataPost(GET_SYMBOL_DATA_REQUEST* request) {
  LogMessage("GetSymbolDataPost");
  const std::size_t bytes = PointBytes(*SymbolOf(request->handle), request->count);
  QueuedGet copy = CopyRequest(*request, request->buffer, bytes);
  if (!copy) return 1;
  copy.record->buffer = reinterpret_cast<HostWord>(copy.points.get());
  requests_->PostGet(std::move(copy));
  return 0;
}

int CDataStoreModule::InsertSymbolDataPost(INSERT_SYMBOL_DATA_REQUEST* request) {
  LogMessage("InsertSymbolDataPost");
  if (!isExistSymbol(reinterpret_cast<void*>(request->handle)))
    throw AddDataException(kPostUnknownSymbol);
  const std::size_t bytes = PointBytes(*SymbolOf(request->handle), request->number);
  QueuedInsert copy = CopyRequest(*request, request->data, bytes);
  if (!copy) throw AddDataException(kPostBufferFailed);
  copy.record->data = reinterpret_cast<HostWord>(copy.points.get());
  if (request->data == 0) copy.record->number = 0;
  requests_->PostInsert(std::move(copy));
  return 0;
}

void CDataStoreModule::ServeGet(GET_SYMBOL_DATA_REQUEST& copy) { ReadSymbol(copy, false); }

// Stores the records; the worker completes the request once it is durable.
void CDataStoreModule::ServeInsert(INSERT_SYMBOL_DATA_REQUEST& copy) {
  ChangeLock lock(*this);
  CSymbol* symbol = SymbolOf(copy.handle);
  Status status = UseSymbol(*symbol);
  if (status.ok())
    status = symbol->InsertData(copy.number, reinterpret_cast<unsigned char*>(copy.data));
  LogStatus(status);
}

// With Durability 2 the inserts served since the last commit become durable
// together.
void CDataStoreModule::CommitLog() {
  if (writeLog_) LogStatus(writeLog_->Commit());
}

void CDataStoreModule::CommitInserts() {
  ChangeLock lock(*this);
  CommitLog();
}

void CDataStoreModule::RunDueWork() {
  ChangeLock lock(*this);
  CheckpointIfDue(lock);
}

std::chrono::steady_clock::duration CDataStoreModule::UntilWorkDue() {
  std::lock_guard<std::mutex> lock(dataMutex_);
  return writeLog_ ? writeLog_->UntilDue() : std::chrono::steady_clock::duration::max();
}
