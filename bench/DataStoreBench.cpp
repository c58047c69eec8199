// datastore_bench: posted requests through the built data store library,
// loaded by the reference host as a terminal loads it (ModuleSession.h):
//   - the time from posting a get (6006) to its completion call on an idle
//     module, for the newest 100 candles and for a time range of 1,000, of
//     1,000,000 stored;
//   - how long a post (6004, 6006) takes to return on an idle module, and
//     while the worker is busy with a long insert (1,000,000 candles posted
//     just before): a post that waited for the data mutex would return only
//     when the insert ends.
// Ends with the targets and the machine. Stores live in a fresh folder under
// $TMPDIR (or /tmp), removed at the end. Takes no arguments.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TemporaryFolder.h"
#include "Candles.h"
#include "Machine.h"
#include "ModuleSession.h"
#include "TableText.h"

namespace {

namespace fs = std::filesystem;
using Micros = std::chrono::duration<double, std::micro>;

constexpr char kFolderTemplate[] = "datastore_bench.XXXXXX";
constexpr int kNewestCount = 100;      // candles of a get of the newest
constexpr int kRangeCount = 1'000;     // candles of a time-range get
constexpr int kReadPositions = 4'096;  // random range starts, used in turn
constexpr int kWarmUpGets =
    20;  // untimed gets of each kind first (the first range indexes the file)
constexpr int kTimedGets = 2'000;   // timed gets of each kind
constexpr int kTimedPosts = 1'000;  // timed idle posts of each kind
constexpr auto kIdlePause =
    std::chrono::microseconds(200);        // before each timed idle post: the worker sleeps
constexpr int kBusyPosts = 200;            // posts of each kind while the long insert runs
constexpr double kMaxGetMicros = 50.0;     // target: median post to completion of an idle get
constexpr double kMaxBusyPostShare = 0.1;  // target: slowest busy post, as a share of the insert
constexpr double kPercentile = 0.9;        // the upper percentile reported
constexpr int kTitleWidth = 58;
constexpr int kColumnWidth = 11;
constexpr std::size_t kTextCapacity = 64;  // of one formatted number

struct Stats {
  double median = 0;  // microseconds
  double upper = 0;   // the kPercentile percentile
  double slowest = 0;
};

Stats StatsOf(std::vector<Clock::duration> times) {
  std::sort(times.begin(), times.end());
  auto at = [&](double share) {
    return Micros(times[std::size_t(share * double(times.size() - 1))]).count();
  };
  return {at(0.5), at(kPercentile), at(1.0)};
}

std::string Micro(double micros) {
  char text[kTextCapacity];
  std::snprintf(text, sizeof(text), micros < 1000 ? "%.3g us" : "%.4g ms",
                micros < 1000 ? micros : micros / 1000);
  return text;
}

// Candles with the values of the base candles and times kTimeStep apart from `first`.
std::vector<Candle> CandlesFrom(std::int32_t first, int count) {
  std::vector<Candle> candles(BaseCandles().begin(), BaseCandles().begin() + count);
  for (int i = 0; i < count; ++i) candles[i].time = first + i * kTimeStep;
  return candles;
}

GET_SYMBOL_DATA_REQUEST Newest(HostWord handle) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.mode = kGetNewest;
  return request;
}

// A time range also delivers the last record before its first time, so
// asking from just after record `first` starts the result at `first`.
GET_SYMBOL_DATA_REQUEST Range(HostWord handle, int first) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.mode = kGetTimeRange;
  request.firstTime = TimeOf(first) + 1;
  request.lastTime = TimeOf(first + kRangeCount);
  return request;
}

struct Results {
  Stats newestGet, rangeGet;  // post to completion, idle
  Stats idleGetPost, idleInsertPost;
  Stats busyGetPost, busyInsertPost;
  double fill = 0;            // the first insert of kBaseCount, post to completion
  double longInsert = 0;      // the insert the busy posts ran against, post to completion
  double longInsertPost = 0;  // how long posting it took (the module copies the candles)
  int busyPosts = 0;          // posts made while it ran
  int postsBeforeItsEnd = 0;  // of them, those that returned before its completion call
};

class Run {
 public:
  explicit Run(fs::path const& folder) : session_(folder), handle_(session_.OpenCandles()) {}

  Results Measure() {
    Results results;
    results.fill = InsertAndWait(BaseCandles().data(), kBaseCount);
    next_ = TimeOf(kBaseCount);
    for (int i = 0; i < kWarmUpGets; ++i) {
      GetAndWait(Newest(handle_), kNewestCount, TimeOf(kBaseCount - kNewestCount));
      GetAndWait(Range(handle_, i), kRangeCount, TimeOf(i));
    }
    results.newestGet = NewestGets();
    results.rangeGet = RangeGets();
    IdlePosts(results);
    BusyPosts(results);
    return results;
  }

 private:
  // Post to completion of one get, checked against the records it must deliver.
  Clock::duration GetAndWait(GET_SYMBOL_DATA_REQUEST const& request, int count,
                             std::int32_t firstTime) {
    std::this_thread::sleep_for(kIdlePause);
    const Clock::time_point start = Clock::now();
    session_.PostGet(request, buffer_.data(), count);
    const ModuleSession::Completion done = Next();
    if (done.code != ModuleSession::kGetDone || done.count != count ||
        done.firstTime != firstTime) {
      throw std::runtime_error("a posted get delivered other records");
    }
    return done.at - start;
  }

  double InsertAndWait(const Candle* candles, int count) {
    const Clock::time_point start = Clock::now();
    session_.PostInsert(handle_, candles, count);
    const ModuleSession::Completion done = Next();
    if (done.code != ModuleSession::kInsertDone || done.count != count)
      throw std::runtime_error("an insert went wrong");
    return Micros(done.at - start).count();
  }

  // The worker may serve a get posted just after the long insert first.
  ModuleSession::Completion LongInsertAmong(std::size_t first) const {
    for (std::size_t i = first; i < completions_; ++i) {
      const ModuleSession::Completion done = session_.CompletionAt(i);
      if (done.code == ModuleSession::kInsertDone && done.count == kBaseCount) return done;
    }
    throw std::runtime_error("the long insert did not complete");
  }

  ModuleSession::Completion Next() {
    session_.WaitForCompletions(++completions_);
    return session_.CompletionAt(completions_ - 1);
  }

  Stats NewestGets() {
    std::vector<Clock::duration> times;
    for (int i = 0; i < kTimedGets; ++i) {
      times.push_back(GetAndWait(Newest(handle_), kNewestCount, TimeOf(kBaseCount - kNewestCount)));
    }
    return StatsOf(times);
  }

  Stats RangeGets() {
    const std::vector<int> starts = ReadStarts(kBaseCount, kRangeCount, kReadPositions);
    std::vector<Clock::duration> times;
    for (int i = 0; i < kTimedGets; ++i) {
      const int first = starts[std::size_t(i) % starts.size()];
      times.push_back(GetAndWait(Range(handle_, first), kRangeCount, TimeOf(first)));
    }
    return StatsOf(times);
  }

  // Each post waits for its completion, so the worker is idle when it is made.
  void IdlePosts(Results& results) {
    std::vector<Clock::duration> gets, inserts;
    for (int i = 0; i < kTimedPosts; ++i) {
      std::this_thread::sleep_for(kIdlePause);
      gets.push_back(session_.PostGet(Newest(handle_), buffer_.data(), kNewestCount));
      Next();
      const std::vector<Candle> one = CandlesFrom(next_, 1);
      next_ += kTimeStep;
      std::this_thread::sleep_for(kIdlePause);
      inserts.push_back(session_.PostInsert(handle_, one.data(), 1));
      Next();
    }
    results.idleGetPost = StatsOf(gets);
    results.idleInsertPost = StatsOf(inserts);
  }

  // The long insert is posted, then gets and one-candle inserts in turn
  // while it runs; every completion is awaited at the end. The long insert
  // puts a candle between every two stored ones, so it rewrites the file.
  void BusyPosts(Results& results) {
    const std::vector<Candle> batch = CandlesFrom(TimeOf(0) + kBetweenOffset, kBaseCount);
    std::vector<Candle> ones = CandlesFrom(next_, kBusyPosts);
    const Clock::time_point posting = Clock::now();
    session_.PostInsert(handle_, batch.data(), kBaseCount);
    const Clock::time_point posted = Clock::now();
    std::vector<Clock::duration> gets, inserts;
    std::vector<Clock::time_point> returned;
    for (int i = 0; i < kBusyPosts; ++i) {
      gets.push_back(session_.PostGet(Newest(handle_), buffer_.data(), kNewestCount));
      returned.push_back(Clock::now());
      inserts.push_back(session_.PostInsert(handle_, &ones[std::size_t(i)], 1));
      returned.push_back(Clock::now());
    }
    const std::size_t first = completions_;
    completions_ += 1 + 2 * kBusyPosts;
    session_.WaitForCompletions(completions_);
    const ModuleSession::Completion longInsert = LongInsertAmong(first);
    results.busyGetPost = StatsOf(gets);
    results.busyInsertPost = StatsOf(inserts);
    results.longInsert = Micros(longInsert.at - posted).count();
    results.longInsertPost = Micros(posted - posting).count();
    results.busyPosts = static_cast<int>(returned.size());
    results.postsBeforeItsEnd =
        static_cast<int>(std::count_if(returned.begin(), returned.end(),
                                       [&](Clock::time_point at) { return at < longInsert.at; }));
  }

  ModuleSession session_;
  HostWord handle_;
  std::vector<Candle> buffer_ =
      std::vector<Candle>(kRangeCount);  // where gets are asked to deliver
  std::size_t completions_ = 0;          // completion calls awaited so far
  std::int32_t next_ = 0;                // time of the next candle appended
};

void PrintRow(std::string const& title, Stats const& stats, std::ostream& out) {
  out << Left(title, kTitleWidth) << Cell(Micro(stats.median), kColumnWidth)
      << Cell(Micro(stats.upper), kColumnWidth) << Cell(Micro(stats.slowest), kColumnWidth) << "\n";
}

void PrintTarget(std::string const& what, std::string const& measured, bool met,
                 std::ostream& out) {
  out << Left(what, kTitleWidth + kColumnWidth) << Cell(measured, kColumnWidth) << "  "
      << (met ? "met" : "MISSED") << "\n";
}

void PrintResults(Results const& r, std::ostream& out) {
  const std::string stored = " of " + Thousands(kBaseCount);
  out << "\nSummary: one request's real time; idle = each post waits for the completion of the one "
         "before and"
      << " then " << std::chrono::microseconds(kIdlePause).count()
      << " us, so the worker sleeps when it is made\n\n"
      << Left("case", kTitleWidth) << Cell("median", kColumnWidth) << Cell("p90", kColumnWidth)
      << Cell("slowest", kColumnWidth) << "\n";
  PrintRow("get newest " + std::to_string(kNewestCount) + stored + ": post to completion",
           r.newestGet, out);
  PrintRow("get range " + Thousands(kRangeCount) + stored + ": post to completion", r.rangeGet,
           out);
  const std::string newest = "(get newest " + std::to_string(kNewestCount) + ")";
  PrintRow("post 6006 " + newest + ", idle: until it returns", r.idleGetPost, out);
  PrintRow("post 6004 (insert 1 candle), idle: until it returns", r.idleInsertPost, out);
  PrintRow("post 6006 " + newest + ", during the long insert", r.busyGetPost, out);
  PrintRow("post 6004 (insert 1 candle), during the long insert", r.busyInsertPost, out);
  out << "\nfirst fill: insert " << Thousands(kBaseCount)
      << " (6004), post to completion: " << Micro(r.fill) << "\n"
      << "long insert: " << Thousands(kBaseCount)
      << " between the stored ones (6004, a merge that rewrites the file),"
      << " post to completion: " << Micro(r.longInsert)
      << "; posting it (the module copies the candles): " << Micro(r.longInsertPost) << "\n"
      << "posts made during the long insert that returned before its completion call: "
      << r.postsBeforeItsEnd << " of " << r.busyPosts << "\n\nTargets\n\n";
  PrintTarget("get newest " + std::to_string(kNewestCount) +
                  ": median post to completion <= " + Micro(kMaxGetMicros),
              Micro(r.newestGet.median), r.newestGet.median <= kMaxGetMicros, out);
  PrintTarget("get range " + Thousands(kRangeCount) +
                  ": median post to completion <= " + Micro(kMaxGetMicros),
              Micro(r.rangeGet.median), r.rangeGet.median <= kMaxGetMicros, out);
  const double slowest = std::max(r.busyGetPost.slowest, r.busyInsertPost.slowest);
  const bool neverWaits =
      r.postsBeforeItsEnd == r.busyPosts && slowest < kMaxBusyPostShare * r.longInsert;
  PrintTarget("posts never wait for the data mutex: all return before the insert ends, slowest < " +
                  std::to_string(int(kMaxBusyPostShare * 100)) + "% of it",
              Micro(slowest), neverWaits, out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    std::cerr << "usage: " << argv[0] << "\n";
    return EXIT_FAILURE;
  }
  try {
    TemporaryFolder folder(kFolderTemplate);
    const std::string loadAtStart = LoadAverage();
    Results results;
    {
      Run run(folder.path());
      results = run.Measure();
    }
    PrintResults(results, std::cout);
    PrintMachine(folder.path(), loadAtStart, std::cout);
  } catch (std::exception const& error) {
    std::cerr << "datastore_bench: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
