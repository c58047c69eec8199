// Synchronous and posted requests, and the worker that serves posted ones.
#include <cstdlib>
#include <cstring>

#include "DataStoreModule.h"
#include "RequestsThread.h"
#include "WorkerSync.h"

namespace {

constexpr char kPostCopyFailed[] = "Error in CDataStoreModule::InsertSymbolDataPost CP1";
constexpr char kPostUnknownSymbol[] = "Error in CDataStoreModule::InsertSymbolDataPost CP2";
constexpr char kPostBufferFailed[] = "Error in CDataStoreModule::InsertSymbolDataPost CP3";

CSymbol* SymbolOf(HostWord handle) { return reinterpret_cast<CSymbol*>(handle); }

// Storage reports failures through its file object; the module's log gets them.
// REQUIRES: the data mutex is held.
void LogStorageFailure(CSymbol& symbol) {
  if (symbol.file() == nullptr) return;
  const std::string error = symbol.file()->TakeLastError();
  if (!error.empty()) DsLog(QString::fromLocal8Bit(error.c_str()), MESS_ERROR);
}

// Bytes of count points of the symbol; 0 for a negative count.
std::size_t PointBytes(CSymbol const& symbol, int count) {
  return count > 0 ? std::size_t(count) * symbol.GetDataPointSize() : 0;
}

// A buffer of at least one byte, so that an empty request still has one.
void* AllocateBuffer(std::size_t bytes) { return std::malloc(bytes > 0 ? bytes : 1); }

}  // namespace

void CDataStoreModuleRequestsThread::run() { module_->RequestsThread(); }

std::mutex& CDataStoreModule::dataMutex() { return sync_->dataMutex; }

int CDataStoreModule::GetSymbolDataSend(GET_SYMBOL_DATA_REQUEST* request) {
  LogMessage("GetSymbolDataSend");
  if (request->handle == 0) return 1;
  std::lock_guard<std::mutex> lock(dataMutex());
  SymbolOf(request->handle)->GetData(request);
  LogStorageFailure(*SymbolOf(request->handle));
  return 0;
}

int CDataStoreModule::GetSymbolDataCountSend(GET_SYMBOL_DATA_REQUEST* request) {
  LogMessage("GetSymbolDataCountSend");
  if (request->handle == 0) return 1;
  std::lock_guard<std::mutex> lock(dataMutex());
  SymbolOf(request->handle)->GetDataCount(request);
  LogStorageFailure(*SymbolOf(request->handle));
  return 0;
}

int CDataStoreModule::InsertSymbolDataSend(INSERT_SYMBOL_DATA_REQUEST* request) {
  LogMessage("InsertSymbolDataSend");
  std::lock_guard<std::mutex> lock(dataMutex());
  SymbolOf(request->handle)->InsertData(request->number, reinterpret_cast<unsigned char*>(request->data));
  LogStorageFailure(*SymbolOf(request->handle));
  return 0;
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

// Gets are drained before inserts; each queue in posting order. A stop
// request ends the loop after the request being served.
void CDataStoreModule::RequestsThread() {
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(sync_->queueMutex);
      sync_->requestCondition.wait(lock, [this] {
        return sync_->stopRequested || getCount_ != 0 || insertCount_ != 0;
      });
      if (sync_->stopRequested) return;
    }
    while (GET_SYMBOL_DATA_REQUEST* copy = TakeFirst(getQueue_, getCount_)) Serve(copy);
    while (INSERT_SYMBOL_DATA_REQUEST* copy = TakeFirst(insertQueue_, insertCount_)) Serve(copy);
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
    SymbolOf(copy->handle)->GetData(copy);
    LogStorageFailure(*SymbolOf(copy->handle));
  }
  Complete(copy->completionContext, copy->completionCode, copy);
  std::free(reinterpret_cast<void*>(copy->buffer));
  std::free(copy);
}

void CDataStoreModule::Serve(INSERT_SYMBOL_DATA_REQUEST* copy) {
  {
    std::lock_guard<std::mutex> lock(dataMutex());
    SymbolOf(copy->handle)->InsertData(copy->number, reinterpret_cast<unsigned char*>(copy->data));
    LogStorageFailure(*SymbolOf(copy->handle));
  }
  Complete(copy->completionContext, copy->completionCode, copy);
  std::free(reinterpret_cast<void*>(copy->data));
  std::free(copy);
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
