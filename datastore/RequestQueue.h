// RequestQueue.h: RequestQueue, the posted requests of the data store and the
// worker thread that serves them.
//
// Guarantees:
//   - gets are served before inserts, each queue in posting order; the
//     inserts found queued together are stored, committed once
//     (RequestServer::CommitInserts), then completed;
//   - every queued copy and its buffer are freed exactly once, whether served,
//     dropped or still queued when the queue goes;
//   - a completion call that throws is caught and reported; the worker goes on;
//   - Stop: the worker finishes what it serves (a write is never cut), drops
//     the queued gets, stores the queued inserts until the budget is spent and
//     drops the rest; Stop counts what was dropped. When Stop returns the
//     worker's system thread has ended (joined), unless a completion call
//     holds it past the budget: then the worker is left to return from that
//     call, makes no other call and ends by itself. It keeps this object
//     alive until then (hence shared_ptr).
//
// REQUIRES: Create, Post*, Wake and Stop are called from one thread (the
// host's); the server outlives every worker (the module object, which is
// never unloaded while one may run).
// Thread-safety: the queues, counts and flags are guarded by one mutex; the
// server's calls come from the worker only.

#ifndef DATASTORE_DATASTORE_REQUESTQUEUE_H_
#define DATASTORE_DATASTORE_REQUESTQUEUE_H_

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "HostBoundary.h"

// What the worker asks of the data store.
class RequestServer {
 public:
  virtual ~RequestServer() = default;
  virtual void ServeGet(GET_SYMBOL_DATA_REQUEST& copy) = 0;
  virtual void ServeInsert(INSERT_SYMBOL_DATA_REQUEST& copy) = 0;
  // After a batch of inserts is stored, before its completion calls.
  virtual void CommitInserts() = 0;
  // Between batches: work that falls due with time (the log's checkpoint).
  virtual void RunDueWork() = 0;
  virtual std::chrono::steady_clock::duration UntilWorkDue() = 0;
  virtual void ReportFailure(std::string const& text) = 0;
};

struct FreeDeleter {
  void operator()(void* block) const noexcept { std::free(block); }
};

// A posted request's copy and its points, both from malloc.
template <typename Request>
struct QueuedCopy {
  std::unique_ptr<Request, FreeDeleter> record;  // the module's copy
  std::unique_ptr<void, FreeDeleter> points;     // its own buffer, at least one byte
  explicit operator bool() const { return record != nullptr; }
};
using QueuedGet = QueuedCopy<GET_SYMBOL_DATA_REQUEST>;
using QueuedInsert = QueuedCopy<INSERT_SYMBOL_DATA_REQUEST>;

class RequestQueue : public std::enable_shared_from_this<RequestQueue> {
 public:
  using Clock = std::chrono::steady_clock;

  // What Stop did.
  struct StopReport {
    int getsDropped = 0;      // queued gets never served
    int insertsDropped = 0;   // queued inserts the budget left unwritten
    bool workerLeft = false;  // a completion call held the worker past the budget
  };

  // A queue whose worker runs at once. completion: the host callback that
  // completion calls go to (null: none are made).
  static std::shared_ptr<RequestQueue> Create(RequestServer* server, HostCallback completion);
  ~RequestQueue();
  RequestQueue(const RequestQueue&) = delete;
  RequestQueue& operator=(const RequestQueue&) = delete;

  // Queue a copy (REQUIRES: record and points are set) and wake the worker.
  void PostGet(QueuedGet copy);
  void PostInsert(QueuedInsert copy);
  // Wakes the worker so that it times work that has just fallen due.
  void WakeForDueWork();
  // See the top of this file. Once only; later calls report nothing.
  StopReport Stop(std::chrono::milliseconds budget);

  int getCount() const;
  int insertCount() const;

 private:
  RequestQueue(RequestServer* server, HostCallback completion);
  void RunWorker();
  bool WaitForWork();
  void ServeQueued(bool stopping);
  bool StopRequested() const;
  void ReportThrow(const char* what);
  QueuedGet TakeGet();
  QueuedInsert TakeInsert();
  void Complete(HostWord context, std::uint32_t code, void* copy);
  bool WaitForWorker(std::unique_lock<std::mutex>& lock);
  StopReport DropQueued();

  RequestServer* const server_;               // serves the requests; not owned
  const HostCallback completion_;             // where completion calls go
  mutable std::mutex mutex_;                  // guards everything below
  std::condition_variable requestCondition_;  // wakes the worker
  std::condition_variable workerCondition_;   // wakes Stop
  std::deque<QueuedGet> getQueue_;            // posted gets, oldest first
  int insertCount_ = 0;                       // entries in insertQueue_
  std::deque<QueuedInsert> insertQueue_;      // posted inserts, oldest first
  int getCount_ = 0;                          // entries in getQueue_
  bool dueWorkWaiting_ = false;               // WakeForDueWork since the worker last looked
  bool stopRequested_ = false;                // the worker winds down
  Clock::time_point stopDeadline_;            // end of the stop budget
  bool inHostCall_ = false;                   // the worker is in a completion call
  Clock::time_point hostCallStart_;           // when that call began
  bool workerLeft_ = false;                   // Stop returned without it: no more host calls
  bool workerDone_ = false;                   // the worker's loop has returned
  std::thread worker_;                        // joined or detached by Stop
};

#endif  // DATASTORE_DATASTORE_REQUESTQUEUE_H_
