// DataStoreFixture.h: the data store library loaded through the reference host
// in a temporary tree of its own, as a terminal runs it, with the records that
// callers exchange with it and the observers the integration tests share.
//
// The tree of one test (the working directory while the test runs, so that
// the module's file log "./temp/dataStore.log" lands in it):
//   <root>/lib*.so   fresh copies of the library, one per load
//   <root>/config    the host's configuration folder (pelto.cfg)
//   <root>/data      the host's data folder; created by the module
//   <root>/temp      the module's file log

#ifndef DATASTORE_TESTS_INTEGRATION_DATASTOREFIXTURE_H_
#define DATASTORE_TESTS_INTEGRATION_DATASTOREFIXTURE_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "HostBoundary.h"
#include "LibraryCopy.h"
#include "ModuleHost.h"

namespace datastore_test {

namespace fs = std::filesystem;

constexpr char kProvider[] = "Test";
constexpr char kGameModeEvent[] = "Quendal Game Mode";
constexpr char kDataStoreEvent[] = "DataStoreEvent";
constexpr HostWord kModuleId = 0x5150;          // the handle the host assigns at registration
constexpr unsigned int kGetDone = 9101;         // completion code of posted gets
constexpr unsigned int kInsertDone = 9102;      // completion code of posted inserts
constexpr std::chrono::seconds kWaitLimit{10};  // longest wait for something that must happen
constexpr int kEveryRecord = std::numeric_limits<std::int32_t>::max();  // a count that counts all
constexpr std::int32_t kFirstTime = 1000;       // time of the first record of a series
constexpr std::int32_t kStep = 60;              // seconds between the records of a series

enum GetMode : std::int32_t {
  kNewest = 0,     // the last count records
  kTimeRange = 1,  // the records between two times
  kOldest = 2,     // the first count records
};

// Records exactly as a caller hands them to the store.
#pragma pack(push, 1)
struct Candle {  // every period but ticks
  std::int32_t time;
  float open, high, low, close, volume;
  bool operator==(const Candle&) const = default;
};
struct Tick {  // intraday period of length 0
  std::int32_t time;
  float value, volume;
  bool operator==(const Tick&) const = default;
};
#pragma pack(pop)
void PrintTo(const Candle& candle, std::ostream* out);
void PrintTo(const Tick& tick, std::ostream* out);

// Packed fields are passed by value: gtest's macros bind references.
template <typename T>
T Unpacked(T field) {
  return field;
}

// A candle whose values all derive from its time and a tag.
Candle MakeCandle(std::int32_t time, float tag = 0);
// count candles kStep apart, the first at first.
std::vector<Candle> Series(int count, std::int32_t first = kFirstTime, float tag = 0);

// What a caller names when it opens a symbol.
struct SymbolParams {
  std::u16string name = u"EUR/USD";
  char kind = 'I';
  std::int32_t length = 1;
  std::string code = "EURUSD";
  std::string provider = kProvider;
};
SYMBOL_NAME_PERIOD ToRecord(const SymbolParams& params);
SYMBOL_NAME_PERIOD_PATH ToRecord(const SymbolParams& params, const fs::path& folder);

template <typename Point>
GET_SYMBOL_DATA_REQUEST GetRequest(HostWord handle, std::int32_t mode, std::vector<Point>& buffer) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.mode = mode;
  request.count = static_cast<std::int32_t>(buffer.size());
  request.buffer = reinterpret_cast<HostWord>(buffer.data());
  return request;
}

template <typename Point>
INSERT_SYMBOL_DATA_REQUEST InsertRequest(HostWord handle, std::vector<Point>& points) {
  INSERT_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.number = static_cast<std::int32_t>(points.size());
  request.data = reinterpret_cast<HostWord>(points.data());
  return request;
}

template <typename Record>
HostArg Arg(Record* record) {
  return reinterpret_cast<HostArg>(record);
}

// The temporary tree of one test; see the top of this file.
class TestTree {
 public:
  TestTree();
  std::string copyLibrary();  // a fresh copy of the library
  const fs::path& root() const { return files_.dir(); }
  fs::path config() const { return root() / "config"; }
  fs::path data() const { return root() / "data"; }
  fs::path providerFolder() const { return data() / kProvider; }
  fs::path log() const { return root() / "temp" / "dataStore.log"; }
  // Writes config()/pelto.cfg: section DATASTORE with lines, CR LF line ends.
  void writeConfig(const std::vector<std::string>& lines) const;
  // Every file and folder of the tree that lies in none of the folders given,
  // apart from the library copies, the configuration and the log.
  std::vector<fs::path> entriesOutside(const std::vector<fs::path>& folders) const;
  std::vector<fs::path> symbolFiles() const;  // every *.cjd of the tree, sorted

 private:
  LibraryCopy files_;  // the root; removed with the object
  int copies_ = 0;     // library copies made
};

// One loaded copy of the library, answered by a reference host.
class DataStoreSession {
 public:
  DataStoreSession(TestTree& tree, const std::string& provider);
  ~DataStoreSession();  // unloads; the host sends 3005 first if the module still runs
  DataStoreSession(const DataStoreSession&) = delete;
  DataStoreSession& operator=(const DataStoreSession&) = delete;

  ModuleHost& host() { return host_; }
  HostWord moduleAddress() { return reinterpret_cast<HostWord>(host_.moduleObject()); }
  void start();  // Initialize, then 3007 and 3004, as a terminal starts a module
  int send(unsigned int message, HostArg a = 0, HostArg b = 0) { return host_.send(message, a, b); }

  int open(const SymbolParams& params, HostWord* handle);                              // 6001
  int openPath(const SymbolParams& params, const fs::path& folder, HostWord* handle);  // 6008
  HostWord open(const SymbolParams& params);  // 6001; records a failure and gives 0 if refused

  template <typename Point>
  int insert(HostWord handle, std::vector<Point> points) {  // 6003
    INSERT_SYMBOL_DATA_REQUEST request = InsertRequest(handle, points);
    return send(HostMessage::InsertDataSend, Arg(&request));
  }
  int count(HostWord handle);  // 6007 over every record; -1 if refused
  template <typename Point>
  std::vector<Point> get(HostWord handle, std::int32_t mode, int capacity) {  // 6005
    std::vector<Point> buffer(static_cast<std::size_t>(capacity));
    GET_SYMBOL_DATA_REQUEST request = GetRequest(handle, mode, buffer);
    EXPECT_EQ(send(HostMessage::GetDataSend, Arg(&request)), 0);
    buffer.resize(static_cast<std::size_t>(std::max(request.count, 0)));
    return buffer;
  }
  // Every stored record, oldest first, with room for one more to show that
  // nothing lies beyond.
  template <typename Point>
  std::vector<Point> readAll(HostWord handle) {
    return get<Point>(handle, kOldest, std::max(count(handle), 0) + 1);
  }

 private:
  ModuleHost host_;  // loads the copy; its destructor unloads it
};

// Receives completion calls: its host's address is the completion context of
// the requests attached to it, so a call that reaches it proves that the
// module passed that context through. Keeps each call with a copy of the
// request copy it was handed and of that copy's records (candles).
class CompletionSink {
 public:
  struct Completion {
    unsigned int message = 0;             // kGetDone or kInsertDone
    HostArg address = 0;                  // a: the module's copy of the request
    HostArg b = 0;
    std::thread::id thread;               // calling thread
    GET_SYMBOL_DATA_REQUEST get{};        // the copy, for kGetDone
    INSERT_SYMBOL_DATA_REQUEST insert{};  // the copy, for kInsertDone
    std::vector<Candle> points;           // the copy's records
  };

  CompletionSink();
  ~CompletionSink();  // releases a held call
  CompletionSink(const CompletionSink&) = delete;
  CompletionSink& operator=(const CompletionSink&) = delete;

  HostWord context() { return reinterpret_cast<HostWord>(&host_); }
  void attach(GET_SYMBOL_DATA_REQUEST& request);     // completion by kGetDone here
  void attach(INSERT_SYMBOL_DATA_REQUEST& request);  // completion by kInsertDone here
  void holdNext();   // the next call waits inside the sink until release()
  bool waitHeld();   // true once a call waits; false after kWaitLimit
  void release();
  // True once count calls arrived; false after limit.
  bool waitFor(std::size_t count, std::chrono::seconds limit = kWaitLimit);
  std::vector<Completion> completions() const;

 private:
  int receive(unsigned int message, HostArg a, HostArg b);

  ModuleHost host_;                      // never loads a module: only its address is used
  mutable std::mutex mu_;                // guards everything below
  std::condition_variable changed_;      // signalled on every change below
  std::vector<Completion> completions_;  // in arrival order
  bool holdNext_ = false;                // the next call is held
  bool holding_ = false;                 // a call waits for release()
};

int ThreadCount();  // the threads of this process
// The same, once runtimes that start a helper thread along with the first
// thread of the process (ThreadSanitizer does) have done so.
int BaselineThreadCount();
bool WaitUntil(const std::function<bool()>& check);  // false if check() is not true in kWaitLimit
bool ThreadSleeps(pid_t tid);  // the thread tid of this process waits on a lock or a condition
std::string ReadBytes(const fs::path& file);  // empty when it cannot be read

// Each test runs in a fresh tree, which is its working directory meanwhile.
class DataStoreFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  // Unloads the running copy, if any, and starts a fresh one with provider
  // as the host's current data provider.
  DataStoreSession& restart(const std::string& provider = kProvider);
  // 6004 / 6006 of a request whose completion comes to sink_.
  int postInsert(HostWord handle, std::vector<Candle>& points);
  int postGet(HostWord handle, std::int32_t mode, std::vector<Candle>& buffer);

  TestTree tree_;
  CompletionSink sink_;  // outlives the session: the worker may call it until unload
  std::unique_ptr<DataStoreSession> session_;
  fs::path previousDirectory_;  // restored after the test
};

}  // namespace datastore_test

#endif  // DATASTORE_TESTS_INTEGRATION_DATASTOREFIXTURE_H_
