#include "RequestQueue.h"

#include <algorithm>
#include <exception>
#include <vector>

namespace {

// Past the stop budget, a completion call that lasts longer holds the worker:
// the stop returns without it.
constexpr std::chrono::milliseconds kHeldCall{100};

}  // namespace

std::shared_ptr<RequestQueue> RequestQueue::Create(RequestServer* server, HostCallback completion) {
  std::shared_ptr<RequestQueue> queue(new RequestQueue(server, completion));
  // The worker holds the queue: a worker left in a completion call by Stop
  // still finds its state when the call returns.
  queue->worker_ = std::thread([queue] { queue->RunWorker(); });
  return queue;
}

RequestQueue::RequestQueue(RequestServer* server, HostCallback completion)
    : server_(server), completion_(completion) {}

// Runs once the worker has let go of the queue, so its thread is joined or
// detached already, or was never started.
RequestQueue::~RequestQueue() {
  if (worker_.joinable()) worker_.detach();
}

void RequestQueue::PostGet(QueuedGet copy) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    getQueue_.push_back(std::move(copy));
    ++getCount_;
  }
  requestCondition_.notify_all();
}

void RequestQueue::PostInsert(QueuedInsert copy) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    insertQueue_.push_back(std::move(copy));
    ++insertCount_;
  }
  requestCondition_.notify_all();
}

void RequestQueue::WakeForDueWork() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    dueWorkWaiting_ = true;
  }
  requestCondition_.notify_all();
}

int RequestQueue::getCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return getCount_;
}

int RequestQueue::insertCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return insertCount_;
}

void RequestQueue::RunWorker() {
  for (;;) {
    const bool stopping = WaitForWork();
    ServeQueued(stopping);
    if (stopping) break;
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    workerDone_ = true;
  }
  workerCondition_.notify_all();
}

// Sleeps until a request, a stop or the server's next due work; true once a
// stop is requested.
bool RequestQueue::WaitForWork() {
  if (StopRequested()) return true;
  const Clock::duration untilDue = server_->UntilWorkDue();
  std::unique_lock<std::mutex> lock(mutex_);
  auto ready = [this] {
    return stopRequested_ || dueWorkWaiting_ || getCount_ != 0 || insertCount_ != 0;
  };
  if (untilDue == Clock::duration::max()) {
    requestCondition_.wait(lock, ready);
  } else {
    requestCondition_.wait_for(lock, untilDue, ready);
  }
  dueWorkWaiting_ = false;
  return stopRequested_;
}

// Gets first, then the inserts found queued: stored, committed together,
// completed. Stopping, no get is served and no due work is done.
void RequestQueue::ServeQueued(bool stopping) {
  while (QueuedGet get = TakeGet()) {
    server_->ServeGet(*get.record);
    Complete(get.record->completionContext, get.record->completionCode, get.record.get());
  }
  std::vector<QueuedInsert> served;
  while (QueuedInsert insert = TakeInsert()) {
    server_->ServeInsert(*insert.record);
    served.push_back(std::move(insert));
  }
  if (!served.empty()) server_->CommitInserts();
  if (!stopping && !StopRequested()) server_->RunDueWork();
  for (QueuedInsert const& insert : served) {
    Complete(insert.record->completionContext, insert.record->completionCode, insert.record.get());
  }
}

bool RequestQueue::StopRequested() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return stopRequested_;
}

QueuedGet RequestQueue::TakeGet() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (stopRequested_ || getQueue_.empty()) return {};
  QueuedGet first = std::move(getQueue_.front());
  getQueue_.pop_front();
  --getCount_;
  return first;
}

QueuedInsert RequestQueue::TakeInsert() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (insertQueue_.empty() || (stopRequested_ && Clock::now() >= stopDeadline_)) return {};
  QueuedInsert first = std::move(insertQueue_.front());
  insertQueue_.pop_front();
  --insertCount_;
  return first;
}

void RequestQueue::Complete(HostWord context, std::uint32_t code, void* copy) {
  if (context == 0 || code == 0 || completion_ == nullptr) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (workerLeft_) return;
    inHostCall_ = true;
    hostCallStart_ = Clock::now();
  }
  workerCondition_.notify_all();
  try {
    completion_(reinterpret_cast<void*>(context), code, reinterpret_cast<HostArg>(copy), 0);
  } catch (std::exception const& exception) {
    ReportThrow(exception.what());
  } catch (...) {
    ReportThrow("not a standard exception");
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    inHostCall_ = false;
  }
  workerCondition_.notify_all();
}

// A worker that Stop has left behind reports nothing.
void RequestQueue::ReportThrow(const char* what) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (workerLeft_) return;
  }
  server_->ReportFailure(std::string("A completion call threw (") + what + "); the worker goes on");
}

RequestQueue::StopReport RequestQueue::Stop(std::chrono::milliseconds budget) {
  if (!worker_.joinable()) return {};
  std::unique_lock<std::mutex> lock(mutex_);
  stopRequested_ = true;
  stopDeadline_ = Clock::now() + budget;
  requestCondition_.notify_all();
  const bool done = WaitForWorker(lock);
  workerLeft_ = !done;
  lock.unlock();
  if (done) {
    worker_.join();
  } else {
    worker_.detach();
  }
  StopReport report = DropQueued();
  report.workerLeft = !done;
  return report;
}

// Until the worker is done, or the budget is spent while a completion call
// holds it. Past the budget a write in progress is still waited for, and so
// are completion calls that return within kHeldCall: the completions of the
// inserts written last come after the budget. A call that lasts longer, or
// that began before the budget ended and outlasts it, holds the worker.
bool RequestQueue::WaitForWorker(std::unique_lock<std::mutex>& lock) {
  workerCondition_.wait_until(lock, stopDeadline_, [this] { return workerDone_; });
  while (!workerDone_) {
    if (!inHostCall_) {
      workerCondition_.wait(lock, [this] { return workerDone_ || inHostCall_; });
      continue;
    }
    const Clock::time_point callStart = hostCallStart_;
    const Clock::time_point heldAfter = std::max(callStart + kHeldCall, stopDeadline_);
    const bool moved = workerCondition_.wait_until(lock, heldAfter, [this, callStart] {
      return workerDone_ || !inHostCall_ || hostCallStart_ != callStart;
    });
    if (!moved) return false;
  }
  return true;
}

RequestQueue::StopReport RequestQueue::DropQueued() {
  std::deque<QueuedGet> gets;
  std::deque<QueuedInsert> inserts;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    gets.swap(getQueue_);
    inserts.swap(insertQueue_);
    getCount_ = 0;
    insertCount_ = 0;
  }
  StopReport report;
  report.getsDropped = static_cast<int>(gets.size());
  report.insertsDropped = static_cast<int>(inserts.size());
  return report;
}
