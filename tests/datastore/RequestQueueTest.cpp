// The request queue on its own, with a server that records what the worker
// asks of it: the order of service, what a stop writes, drops and waits for,
// and completion calls that hold the worker or throw.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "RequestQueue.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kDone = 77;  // completion code of every test request
constexpr std::chrono::milliseconds kBudget{1000};

// Serves by recording "g<handle>" and "i<handle>"; a request whose handle is
// gate_ waits in the server until Open().
class RecordingServer : public RequestServer {
 public:
  void ServeGet(GET_SYMBOL_DATA_REQUEST& copy) override { Serve("g", copy.handle); }
  void ServeInsert(INSERT_SYMBOL_DATA_REQUEST& copy) override {
    Serve("i", copy.handle);
    std::this_thread::sleep_for(insertTime);
  }
  void CommitInserts() override { Note("commit"); }
  void RunDueWork() override {}
  Clock::duration UntilWorkDue() override { return Clock::duration::max(); }
  void ReportFailure(std::string const& text) override { Note("report: " + text); }

  void HoldAt(HostWord handle) { gate_ = handle; }
  void Open() {
    std::lock_guard<std::mutex> lock(mutex_);
    gate_ = 0;
    changed_.notify_all();
  }
  bool WaitFor(std::size_t entries) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, 5s, [&] { return log_.size() >= entries; });
  }
  std::vector<std::string> log() {
    std::lock_guard<std::mutex> lock(mutex_);
    return log_;
  }

  std::chrono::milliseconds insertTime{0};  // how long each insert takes

 private:
  void Serve(const char* kind, HostWord handle) {
    Note(kind + std::to_string(handle));
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return gate_ != handle; });
  }
  void Note(std::string const& entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    log_.push_back(entry);
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> log_;
  std::atomic<HostWord> gate_{0};
};

// The completion callback: counts calls; sleeps or throws when told to.
std::atomic<int> completions{0};
std::atomic<int> completionSleepMs{0};
std::atomic<bool> completionThrows{false};

int Completion(void*, unsigned int, HostArg, HostArg) {
  ++completions;
  std::this_thread::sleep_for(std::chrono::milliseconds(completionSleepMs.exchange(0)));
  if (completionThrows.exchange(false)) throw std::runtime_error("host failure");
  return 0;
}

template <typename Request>
QueuedCopy<Request> Copy(HostWord handle) {
  QueuedCopy<Request> copy{
      std::unique_ptr<Request, FreeDeleter>(static_cast<Request*>(std::calloc(1, sizeof(Request)))),
      std::unique_ptr<void, FreeDeleter>(std::malloc(1))};
  copy.record->handle = handle;
  copy.record->completionContext = 1;
  copy.record->completionCode = kDone;
  return copy;
}

class RequestQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    completions = 0;
    queue_ = RequestQueue::Create(&server_, &Completion);
  }
  void TearDown() override {
    server_.Open();
    queue_->Stop(kBudget);
  }

  RecordingServer server_;
  std::shared_ptr<RequestQueue> queue_;
};

TEST_F(RequestQueueTest, GetsBeforeInsertsEachInPostingOrderInsertsCommittedBeforeCompleted) {
  server_.HoldAt(1);
  queue_->PostGet(Copy<GET_SYMBOL_DATA_REQUEST>(1));
  ASSERT_TRUE(server_.WaitFor(1));
  queue_->PostInsert(Copy<INSERT_SYMBOL_DATA_REQUEST>(2));
  queue_->PostInsert(Copy<INSERT_SYMBOL_DATA_REQUEST>(3));
  queue_->PostGet(Copy<GET_SYMBOL_DATA_REQUEST>(4));
  queue_->PostGet(Copy<GET_SYMBOL_DATA_REQUEST>(5));
  server_.Open();
  ASSERT_TRUE(server_.WaitFor(6));
  EXPECT_EQ(server_.log(), (std::vector<std::string>{"g1", "g4", "g5", "i2", "i3", "commit"}));
  const RequestQueue::StopReport report = queue_->Stop(kBudget);
  EXPECT_EQ(completions, 5);
  EXPECT_EQ(report.getsDropped + report.insertsDropped, 0);
  EXPECT_FALSE(report.workerLeft);
}

// Stopping: the request being served ends, queued gets are dropped, queued
// inserts written while the budget lasts; a write in progress past the
// budget is waited for, and what the budget left is counted.
TEST_F(RequestQueueTest, StopWritesQueuedInsertsWithinTheBudgetAndDropsGets) {
  server_.HoldAt(1);
  queue_->PostGet(Copy<GET_SYMBOL_DATA_REQUEST>(1));
  ASSERT_TRUE(server_.WaitFor(1));
  queue_->PostGet(Copy<GET_SYMBOL_DATA_REQUEST>(2));
  for (HostWord handle = 10; handle < 20; ++handle)
    queue_->PostInsert(Copy<INSERT_SYMBOL_DATA_REQUEST>(handle));
  server_.insertTime = kBudget / 4;
  std::thread opener([&] {
    std::this_thread::sleep_for(kBudget / 3);
    server_.Open();
  });
  const auto start = Clock::now();
  const RequestQueue::StopReport report = queue_->Stop(kBudget);
  const auto took = Clock::now() - start;
  opener.join();
  const std::vector<std::string> log = server_.log();
  const int written =
      static_cast<int>(std::count_if(log.begin(), log.end(), [](auto& e) { return e[0] == 'i'; }));
  EXPECT_EQ(report.getsDropped, 1);
  EXPECT_EQ(report.insertsDropped, 10 - written);
  EXPECT_GE(written, 1);
  EXPECT_LT(written, 10);
  EXPECT_FALSE(report.workerLeft);
  EXPECT_GE(took, kBudget);                // the last write began before the budget ended
  EXPECT_LT(took, kBudget + kBudget / 2);  // and was not cut
  EXPECT_EQ(log.back(), "commit");
  EXPECT_EQ(completions, 1 + written);
}

// A completion call holding the worker past the budget does not hold the
// stop; once it returns, the worker makes no other call into the host.
TEST_F(RequestQueueTest, CompletionHeldPastTheBudgetLeavesTheWorkerBehind) {
  completionSleepMs = 3 * kBudget.count();
  queue_->PostGet(Copy<GET_SYMBOL_DATA_REQUEST>(1));
  queue_->PostGet(Copy<GET_SYMBOL_DATA_REQUEST>(2));
  ASSERT_TRUE(server_.WaitFor(1));
  const auto start = Clock::now();
  const RequestQueue::StopReport report = queue_->Stop(kBudget);
  EXPECT_LT(Clock::now() - start, 2 * kBudget);
  EXPECT_TRUE(report.workerLeft);
  std::weak_ptr<RequestQueue> left = queue_;
  queue_.reset();
  const auto deadline = Clock::now() + 5s;
  while (!left.expired() && Clock::now() < deadline) std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(left.expired()) << "the worker ends and lets the queue go";
  EXPECT_EQ(completions, 1);
  queue_ = RequestQueue::Create(&server_, &Completion);
}

TEST_F(RequestQueueTest, ThrowingCompletionIsReportedAndTheWorkerGoesOn) {
  completionThrows = true;
  queue_->PostInsert(Copy<INSERT_SYMBOL_DATA_REQUEST>(1));
  ASSERT_TRUE(server_.WaitFor(3));
  queue_->PostGet(Copy<GET_SYMBOL_DATA_REQUEST>(2));
  ASSERT_TRUE(server_.WaitFor(4));
  const std::vector<std::string> log = server_.log();
  EXPECT_EQ(log[2], "report: A completion call threw (host failure); the worker goes on");
  EXPECT_EQ(log[3], "g2");
}

}  // namespace
