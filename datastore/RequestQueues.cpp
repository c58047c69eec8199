// Synchronous and posted requests, and the worker that serves posted ones.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "DataStoreModule.h"
#include "RequestsThread.h"
#include "WorkerSync.h"

namespace {

constexpr char kPostCopyFailed[] = "Error in CDataStoreModule::InsertSymbolDataPost CP1";
constexpr char kPostUnknownSymbol[] = "Error in CDataStoreModule::InsertSymbolDataPost CP2";
constexpr char kPostBufferFailed[] = "Error in CDataStoreModule::InsertSymbolDataPost CP3";

CSymbol* SymbolOf(HostWord handle) { return reinterpret_cast<CSymbol*>(handle); }

// Bytes of count points of the symbol; 0 for a negative count.
std::size_t PointBytes(CSymbol const& symbol, int count) {
  return count > 0 ? std::size_t(count) * symbol.GetDataPointSize() : 0;
}

// A buffer of at least one byte, so that an empty request still has one.
void* AllocateBuffer(std::size_t bytes) { return std::malloc(bytes > 0 ? bytes : 1); }

}  // namespace

void CDataStoreModuleRequestsThread::run() { module_->RequestsThread(); }

std::mutex& CDataStoreModule::dataMutex() { return sync_->dataMutex; }

void CDataStoreModule::LogStatus(Status const& status) const {
  if (!status.ok()) DsLog(QString::fromLocal8Bit(status.ToString().c_str()), MESS_ERROR);
}

// REQUIRES: the data mutex is held.
void CDataStoreModule::CheckpointIfDue() {
  if (writeLog_) LogStatus(writeLog_->CheckpointIfDue());
}

// With Durability 2 the inserts served since the last commit become durable
// together. REQUIRES: the data mutex is held.
void CDataStoreModule::CommitInserts() {
  if (writeLog_) LogStatus(writeLog_->Commit());
}

std::chrono::steady_clock::duration CDataStoreModule::UntilCheckpointDue() {
  std::lock_guard<std::mutex> lock(dataMutex());
  return writeLog_ ? writeLog_->UntilDue() : std::chrono::steady_clock::duration::max();
}

int CDataStoreModule::GetSymbolDataSend(GET_SYMBOL_DATA_REQUEST* request) {
  LogMessage("GetSymbolDataSend");
  if (request->handle == 0) return 1;
  std::lock_guard<std::mutex> lock(dataMutex());
  Status status;
  SymbolOf(request->handle)->GetData(request, &status);
  LogStatus(status);
  return 0;
}

int CDataStoreModule::GetSymbolDataCountSend(GET_SYMBOL_DATA_REQUEST* request) {
  LogMessage("GetSymbolDataCountSend");
  if (request->handle == 0) return 1;
  std::lock_guard<std::mutex> lock(dataMutex());
  Status status;
  SymbolOf(request->handle)->GetDataCount(request, &status);
  LogStatus(status);
  return 0;
}

int CDataStoreModule::InsertSymbolDataSend(INSERT_SYMBOL_DATA_REQUEST* request) {
  LogMessage("InsertSymbolDataSend");
  std::lock_guard<std::mutex> lock(dataMutex());
  LogStatus(SymbolOf(request->handle)->InsertData(request->number, reinterpret_cast<unsigned char*>(request->data)));
  CommitInserts();
  CheckpointIfDue();
  return 0;
}

bool CDataStoreModule::LogHasUnapplied() {
  std::lock_guard<std::mutex> lock(dataMutex());
  return writeLog_ && writeLog_->HasUnapplied();
}

// The worker times the checkpoint of the interval a message on the host's
// thread started.
void CDataStoreModule::WakeWorkerForCheckpoint() {
  std::lock_guard<std::mutex> lock(sync_->queueMutex);
  sync_->checkpointDue = true;
  sync_->requestCondition.notify_all();
}

// The copy gets a buffer of its own, as large as the count it asks for, so the
// worker can never write beyond it; the caller's buffer is only read.
int CDataStoreModule::GetSymbolDataPost(GET_SYMBOL_DATA_REQUEST* request) {
  LogMessage("GetSymbolDataPost");
  const std::size_t bytes = PointBytes(*SymbolOf(request->handle), request->count);
  auto* copy = static_cast<GET_SYMBOL_DATA_REQUEST*>(std::malloc(sizeof(GET_SYMBOL_DATA_REQUEST)));
  void* buffer = AllocateBuffer(bytes);
  if (copy == nullptr || buffer == nullptr) {
    std::free(copy);
    std::free(buffer);
    return 1;
  }
  *copy = *request;
  if (request->buffer != 0) std::memcpy(buffer, reinterpret_cast<void*>(request->buffer), bytes);
  copy->buffer = reinterpret_cast<HostWord>(buffer);
  {
    std::lock_guard<std::mutex> lock(sync_->queueMutex);
    getQueue_.push_back(copy);
    ++getCount_;
  }
  sync_->requestCondition.notify_all();
  return 0;
}

int CDataStoreModule::InsertSymbolDataPost(INSERT_SYMBOL_DATA_REQUEST* request) {
  LogMessage("InsertSymbolDataPost");
  auto* copy = static_cast<INSERT_SYMBOL_DATA_REQUEST*>(std::malloc(sizeof(INSERT_SYMBOL_DATA_REQUEST)));
  if (copy == nullptr) throw AddDataException(kPostCopyFailed);
  if (!isExistSymbol(reinterpret_cast<void*>(request->handle))) {
    std::free(copy);
    throw AddDataException(kPostUnknownSymbol);
  }
  *copy = *request;
  const std::size_t bytes = PointBytes(*SymbolOf(request->handle), request->number);
  void* data = AllocateBuffer(bytes);
  if (data == nullptr) {
    std::free(copy);
    throw AddDataException(kPostBufferFailed);
  }
  if (request->data != 0) std::memcpy(data, reinterpret_cast<void*>(request->data), bytes);
  copy->data = reinterpret_cast<HostWord>(data);
  if (request->data == 0) copy->number = 0;
  {
    std::lock_guard<std::mutex> lock(sync_->queueMutex);
    insertQueue_.push_back(copy);
    ++insertCount_;
  }
  sync_->requestCondition.notify_all();
  return 0;
}

// Gets are drained before inserts; each queue in posting order. The inserts
// found queued are stored, made durable together (Durability 2) and then
// completed. Between requests the worker runs the log's checkpoints when they
// fall due. A stop request ends the loop after the request being served.
void CDataStoreModule::RequestsThread() {
  for (;;) {
    const auto untilDue = UntilCheckpointDue();
    {
      std::unique_lock<std::mutex> lock(sync_->queueMutex);
      auto ready = [this] {
        return sync_->stopRequested || sync_->checkpointDue || getCount_ != 0 || insertCount_ != 0;
      };
      if (untilDue == std::chrono::steady_clock::duration::max()) {
        sync_->requestCondition.wait(lock, ready);
      } else {
        sync_->requestCondition.wait_for(lock, untilDue, ready);
      }
      if (sync_->stopRequested) return;
      sync_->checkpointDue = false;
    }
    while (GET_SYMBOL_DATA_REQUEST* copy = TakeFirst(getQueue_, getCount_)) Serve(copy);
    std::vector<INSERT_SYMBOL_DATA_REQUEST*> served;
    while (INSERT_SYMBOL_DATA_REQUEST* copy = TakeFirst(insertQueue_, insertCount_)) {
      Serve(copy);
      served.push_back(copy);
    }
    {
      std::lock_guard<std::mutex> lock(dataMutex());
      if (!served.empty()) CommitInserts();
      CheckpointIfDue();
    }
    for (INSERT_SYMBOL_DATA_REQUEST* copy : served) Complete(copy->completionContext, copy->completionCode, copy);
    for (INSERT_SYMBOL_DATA_REQUEST* copy : served) {
      std::free(reinterpret_cast<void*>(copy->data));
      std::free(copy);
    }
  }
}

template <typename Request>
Request* CDataStoreModule::TakeFirst(std::deque<Request*>& queue, int& count) {
  std::lock_guard<std::mutex> lock(sync_->queueMutex);
  if (sync_->stopRequested || queue.empty()) return nullptr;
  Request* first = queue.front();
  queue.pop_front();
  --count;
  return first;
}

void CDataStoreModule::Serve(GET_SYMBOL_DATA_REQUEST* copy) {
  {
    std::lock_guard<std::mutex> lock(dataMutex());
    Status status;
    SymbolOf(copy->handle)->GetData(copy, &status);
    LogStatus(status);
  }
  Complete(copy->completionContext, copy->completionCode, copy);
  std::free(reinterpret_cast<void*>(copy->buffer));
  std::free(copy);
}

// Stores the records; the worker completes the request once it is durable.
void CDataStoreModule::Serve(INSERT_SYMBOL_DATA_REQUEST* copy) {
  std::lock_guard<std::mutex> lock(dataMutex());
  LogStatus(SymbolOf(copy->handle)->InsertData(copy->number, reinterpret_cast<unsigned char*>(copy->data)));
}

void CDataStoreModule::Complete(HostWord context, std::uint32_t code, void* copy) {
  if (context == 0 || code == 0 || callback() == nullptr) return;
  callback()(reinterpret_cast<void*>(context), code, reinterpret_cast<HostArg>(copy), 0);
}

void CDataStoreModule::DropQueued() {
  std::lock_guard<std::mutex> lock(sync_->queueMutex);
  for (GET_SYMBOL_DATA_REQUEST* copy : getQueue_) {
    std::free(reinterpret_cast<void*>(copy->buffer));
    std::free(copy);
  }
  for (INSERT_SYMBOL_DATA_REQUEST* copy : insertQueue_) {
    std::free(reinterpret_cast<void*>(copy->data));
    std::free(copy);
  }
  getQueue_.clear();
  insertQueue_.clear();
  getCount_ = 0;
  insertCount_ = 0;
}
