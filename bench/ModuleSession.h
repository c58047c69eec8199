// ModuleSession.h: the built data store library loaded through the reference
// host and driven as a terminal drives it: Initialize, the configuration and
// data folders (3128) in a folder of the session's own, with a pelto.cfg
// that sets the durability, the data provider (3012), 3007 and 3004 on start
// (with calls of the caller's just before and after 3007, to measure it),
// 6001 to open a candle symbol (a fixed one, or one named by the caller),
// synchronous inserts (6003) and gets (6005), posted gets (6006) and inserts
// (6004) whose completion calls come back to this host, and 3005 before the
// library is unloaded.
//
// Every session loads a fresh copy of the library, so that sessions one
// after the other in a process each start from the module's initial state.
//
// Guarantees: every completion call is kept with the time it arrived (taken
// when the host hands the call to the session, on the module's worker
// thread), the records it delivered and the time of the first of them.
//
// REQUIRES: one thread drives a session (its own calls are not serialised);
// the folder exists and outlives the session; one session at a time per folder.
// Thread-safety: completions may arrive on any thread; the waiting and
// reading members take the session's lock.

#ifndef DATASTORE_BENCH_MODULESESSION_H_
#define DATASTORE_BENCH_MODULESESSION_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Candles.h"
#include "ModuleHost.h"

using Clock = std::chrono::steady_clock;

// Keys "Durability" and "SyncInterval" of the configuration's DATASTORE section.
struct Durability {
  int level = 1;              // 0 no sync, 1 syncs at checkpoints, 2 every insert durable
  int syncIntervalMs = 1000;  // longest wait of a change for its checkpoint
};

class ModuleSession {
 public:
  static constexpr unsigned int kGetDone = 9201;     // completion code of posted gets
  static constexpr unsigned int kInsertDone = 9202;  // completion code of posted inserts

  // One completion call.
  struct Completion {
    unsigned int code = 0;       // kGetDone or kInsertDone
    Clock::time_point at;        // when the call arrived
    std::int32_t count = 0;      // records delivered (gets) or inserted (inserts)
    std::int32_t firstTime = 0;  // time of the first delivered record (gets)
  };

  // Called on the constructing thread just before 3007 and just after it
  // returns; either may be empty.
  struct StartHooks {
    std::function<void()> before;
    std::function<void()> after;
  };

  // Loads the library and starts it; throws std::runtime_error on failure.
  explicit ModuleSession(std::filesystem::path const& folder, Durability durability = {},
                         StartHooks hooks = {});
  ~ModuleSession();  // 3005, then unloads
  ModuleSession(const ModuleSession&) = delete;
  ModuleSession& operator=(const ModuleSession&) = delete;

  // Opens (creates) the one-minute candle symbol; throws when refused.
  HostWord OpenCandles();
  // Opens (creates) the one-minute candle symbol whose name and code are
  // `name`; throws when refused. REQUIRES: name is ASCII, at most
  // kHostNameField - 1 characters.
  HostWord OpenCandles(std::string const& name);
  // Inserts `count` candles (6003); throws when refused.
  void Insert(HostWord handle, const Candle* candles, int count);
  // Gets up to `capacity` candles into out (6005); returns how many were delivered.
  int Get(GET_SYMBOL_DATA_REQUEST request, Candle* out, int capacity);
  // The number of records a request selects (6007).
  int Count(GET_SYMBOL_DATA_REQUEST request);
  // Posts a get of up to `capacity` candles into out; returns how long the post took.
  Clock::duration PostGet(GET_SYMBOL_DATA_REQUEST request, Candle* out, int capacity);
  // Posts an insert of `count` candles; returns how long the post took.
  Clock::duration PostInsert(HostWord handle, const Candle* candles, int count);
  // Waits until `total` completion calls have arrived since the start;
  // throws when they do not within kCompletionWait.
  void WaitForCompletions(std::size_t total);
  // The completion call number `index` (0 is the first).
  Completion CompletionAt(std::size_t index) const;

 private:
  int Receive(unsigned int message, HostArg a);
  void Send(unsigned int message, HostArg a, HostArg b, const char* what);

  std::filesystem::path library_;        // this session's copy of the library
  ModuleHost host_;                      // loads the library, answers it, receives completions
  mutable std::mutex mu_;                // guards completions_
  std::condition_variable arrived_;      // signalled on every completion
  std::vector<Completion> completions_;  // in arrival order
};

#endif  // DATASTORE_BENCH_MODULESESSION_H_
