// DataStoreFixture.h: the data store library loaded through the reference host
// in a temporary tree of its own, as a terminal runs it, with the records that
// callers exchange with it and the observers the integration tests share.
//
// The tree of one test (the working directory while the test runs, so that
// the module's file log "./temp/dataStore.log" lands in it):
//   <root>/lib       fresh copies of the library, one per load, so that the
//                    module's static state starts fresh whatever ran before
//   <root>/config    the host's configuration folder (pelto.cfg)
//   <root>/data      the host's data folder; created by the module
//   <root>/temp      the module's file log

#ifndef DATASTORE_TESTS_INTEGRATION_DATASTOREFIXTURE_H_
#define DATASTORE_TESTS_INTEGRATION_DATASTOREFIXTURE_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "HostBoundary.h"
#include "ModuleHost.h"

namespace datastore_test {

namespace fs = std::filesystem;
namespace M = HostMessage;

constexpr char kProvider[] = "Test";
constexpr HostWord kModuleId = 0x5150;          // the handle the host assigns at registration
constexpr unsigned int kGetDone = 9101;         // completion code of posted gets
constexpr unsigned int kInsertDone = 9102;      // completion code of posted inserts
constexpr std::chrono::seconds kWaitLimit{10};  // longest wait for something that must happen
constexpr int kEveryRecord = std::numeric_limits<std::int32_t>::max();  // a count that counts all
constexpr std::int32_t kFirstTime = 1000;  // time of the first record of a series
constexpr std::int32_t kStep = 60;         // seconds between the records of a series

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

inline void PrintTo(const Candle& c, std::ostream* out) {
  *out << "{" << c.time << ": " << c.open << " " << c.high << " " << c.low << " " << c.close << " "
       << c.volume << "}";
}

// Packed fields are passed by value: gtest's macros bind references.
template <typename T>
T Unpacked(T field) {
  return field;
}

// A candle whose values all derive from its time and a tag.
inline Candle MakeCandle(std::int32_t time, float tag = 0) {
  const float base = static_cast<float>(time % 1000) + tag;
  return Candle{time, base, base + 2, base - 1, base + 1, tag + 7};
}

// count candles kStep apart, the first at first.
inline std::vector<Candle> Series(int count, std::int32_t first = kFirstTime, float tag = 0) {
  std::vector<Candle> candles;
  for (int i = 0; i < count; ++i) candles.push_back(MakeCandle(first + i * kStep, tag));
  return candles;
}

// What a caller names when it opens a symbol.
struct SymbolParams {
  std::u16string name = u"EUR/USD";
  char kind = 'I';
  std::int32_t length = 1;
  std::string code = "EURUSD";
  std::string provider = kProvider;
};

// Wide fields lie at odd offsets of packed records: copied as bytes.
inline void CopyWide(void* field, const std::u16string& text) {
  std::memcpy(field, text.data(),
              std::min<std::size_t>(text.size(), kHostWideNameUnits - 1) * sizeof(char16_t));
}

inline SYMBOL_NAME_PERIOD ToRecord(const SymbolParams& params) {
  SYMBOL_NAME_PERIOD record{};
  std::strncpy(record.provider, params.provider.c_str(), sizeof record.provider - 1);
  CopyWide(reinterpret_cast<char*>(&record) + offsetof(SYMBOL_NAME_PERIOD, name), params.name);
  std::strncpy(record.code, params.code.c_str(), sizeof record.code - 1);
  record.period.kind = params.kind;
  record.period.length = params.length;
  return record;
}

inline SYMBOL_NAME_PERIOD_PATH ToRecord(const SymbolParams& params, const fs::path& folder) {
  SYMBOL_NAME_PERIOD_PATH record{};
  record.symbol = ToRecord(params);
  CopyWide(reinterpret_cast<char*>(&record) + offsetof(SYMBOL_NAME_PERIOD_PATH, path),
           folder.u16string());
  return record;
}

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

inline std::string ReadBytes(const fs::path& file) {  // empty when it cannot be read
  std::ifstream in(file, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// The temporary tree of one test; see the top of this file. Removed with the object.
class TestTree {
 public:
  TestTree() {
    std::string pattern = (fs::temp_directory_path() / "datastore_test_XXXXXX").string();
    root_ = ::mkdtemp(pattern.data());
    for (const char* folder : {"lib", "config", "temp"}) fs::create_directories(root_ / folder);
  }
  ~TestTree() { fs::remove_all(root_); }
  TestTree(const TestTree&) = delete;
  TestTree& operator=(const TestTree&) = delete;

  std::string copyLibrary() {  // a fresh copy of the library
    const fs::path copy = root_ / "lib" / ("libdatastore_" + std::to_string(copies_++) + ".so");
    fs::copy_file(DATASTORE_MODULE_PATH, copy);
    return copy.string();
  }
  const fs::path& root() const { return root_; }
  fs::path config() const { return root_ / "config"; }
  fs::path data() const { return root_ / "data"; }
  fs::path providerFolder() const { return data() / kProvider; }
  fs::path log() const { return root_ / "temp" / "dataStore.log"; }

  // Writes config()/pelto.cfg: section DATASTORE with lines, CR LF line ends.
  void writeConfig(const std::vector<std::string>& lines) const {
    std::ofstream out(config() / "pelto.cfg", std::ios::binary);
    out << "[DATASTORE]\r\n";
    for (const std::string& line : lines) out << line << "\r\n";
  }

  // Every file and folder of the tree that lies in none of the folders given,
  // apart from the library copies, the configuration and the log.
  std::vector<fs::path> entriesOutside(std::vector<fs::path> allowed) const {
    allowed.insert(allowed.end(), {root_ / "lib", config(), log().parent_path()});
    const auto within = [](const fs::path& path, const fs::path& folder) {  // or folder itself
      const fs::path relative =
          path.lexically_normal().lexically_relative(folder.lexically_normal());
      return !relative.empty() && *relative.begin() != "..";
    };
    std::vector<fs::path> outside;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root_)) {
      const fs::path& path = entry.path();
      const auto covers = [&](const fs::path& folder) {  // inside, or a folder on the way
        return within(path, folder) || within(folder, path);
      };
      if (std::none_of(allowed.begin(), allowed.end(), covers)) outside.push_back(path);
    }
    return outside;
  }

  std::vector<fs::path> symbolFiles() const {  // every *.cjd of the tree, sorted
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root_)) {
      if (entry.is_regular_file() && entry.path().extension() == ".cjd")
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
  }

 private:
  fs::path root_;
  int copies_ = 0;  // library copies made
};

// Receives completion calls: its host's address is the completion context of
// the requests attached to it, so a call that reaches it proves that the
// module passed that context through. Keeps each call with a copy of the
// request copy it was handed and of that copy's records (candles); the copy is
// valid during the call only.
class CompletionSink {
 public:
  struct Completion {
    unsigned int message = 0;             // kGetDone or kInsertDone
    HostArg address = 0;                  // a: the module's copy of the request
    std::thread::id thread;               // calling thread
    GET_SYMBOL_DATA_REQUEST get{};        // the copy, for kGetDone
    INSERT_SYMBOL_DATA_REQUEST insert{};  // the copy, for kInsertDone
    std::vector<Candle> points;           // the copy's records
  };

  CompletionSink() {
    host_.setHandler([this](unsigned int message, HostArg a, HostArg) {
      Completion completion;
      completion.message = message;
      completion.address = a;
      completion.thread = std::this_thread::get_id();
      const Candle* points = nullptr;
      std::int32_t count = 0;
      if (message == kGetDone) {
        std::memcpy(&completion.get, reinterpret_cast<const void*>(a), sizeof completion.get);
        points = reinterpret_cast<const Candle*>(completion.get.buffer);
        count = completion.get.count;
      } else if (message == kInsertDone) {
        std::memcpy(&completion.insert, reinterpret_cast<const void*>(a), sizeof completion.insert);
        points = reinterpret_cast<const Candle*>(completion.insert.data);
        count = completion.insert.number;
      }
      if (points != nullptr && count > 0) completion.points.assign(points, points + count);
      std::unique_lock<std::mutex> lock(mu_);
      completions_.push_back(std::move(completion));
      holding_ = holdNext_;
      holdNext_ = false;
      changed_.notify_all();
      changed_.wait(lock, [this] { return !holding_; });
      return 0;
    });
  }
  ~CompletionSink() { release(); }

  HostWord context() { return reinterpret_cast<HostWord>(&host_); }
  template <typename Request>
  void attach(Request& request) {  // completion here, by kGetDone or kInsertDone
    request.completionContext = context();
    request.completionCode =
        std::is_same_v<Request, GET_SYMBOL_DATA_REQUEST> ? kGetDone : kInsertDone;
  }
  void holdNext() {  // the next call waits inside the sink until release()
    std::lock_guard<std::mutex> lock(mu_);
    holdNext_ = true;
  }
  bool waitHeld() {  // true once a call waits; false after kWaitLimit
    std::unique_lock<std::mutex> lock(mu_);
    return changed_.wait_for(lock, kWaitLimit, [this] { return holding_; });
  }
  void release() {
    std::lock_guard<std::mutex> lock(mu_);
    holdNext_ = false;
    holding_ = false;
    changed_.notify_all();
  }
  // True once count calls arrived; false after limit.
  bool waitFor(std::size_t count, std::chrono::seconds limit = kWaitLimit) {
    std::unique_lock<std::mutex> lock(mu_);
    return changed_.wait_for(lock, limit, [&] { return completions_.size() >= count; });
  }
  std::vector<Completion> completions() const {
    std::lock_guard<std::mutex> lock(mu_);
    return completions_;
  }

 private:
  ModuleHost host_;                      // never loads a module: only its address is used
  mutable std::mutex mu_;                // guards everything below
  std::condition_variable changed_;      // signalled on every change below
  std::vector<Completion> completions_;  // in arrival order
  bool holdNext_ = false;                // the next call is held
  bool holding_ = false;                 // a call waits for release()
};

inline int ThreadCount() {  // the threads of this process
  const fs::directory_iterator tasks("/proc/self/task");
  return static_cast<int>(std::distance(fs::begin(tasks), fs::end(tasks)));
}

inline bool WaitUntil(
    const std::function<bool()>& check) {  // false if check() is not true in kWaitLimit
  const auto deadline = std::chrono::steady_clock::now() + kWaitLimit;
  while (!check()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// The thread tid of this process waits on a lock or a condition: state 'S' in
// /proc/self/task/<tid>/stat, which reads "tid (name) state ...".
inline bool ThreadSleeps(pid_t tid) {
  const std::string stat = ReadBytes(fs::path("/proc/self/task") / std::to_string(tid) / "stat");
  const std::size_t nameEnd = stat.rfind(')');
  return nameEnd != std::string::npos && nameEnd + 2 < stat.size() && stat[nameEnd + 2] == 'S';
}

// Each test runs in a fresh tree, which is its working directory meanwhile,
// and talks to the module through the protocol helpers below.
class DataStoreFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    previousDirectory_ = fs::current_path();
    fs::current_path(tree_.root());
  }
  void TearDown() override {
    sink_.release();
    host_.reset();
    fs::current_path(previousDirectory_);
  }

  // Unloads the running copy, if any, and loads a fresh one with provider as
  // the host's current data provider.
  void load(const std::string& provider = kProvider) {
    host_.reset();
    host_ = std::make_unique<ModuleHost>();
    EXPECT_TRUE(host_->load(tree_.copyLibrary())) << host_->error();
    host_->setFolder(VD_FOLDER_CONFIG, tree_.config().u16string());
    host_->setFolder(VD_FOLDER_DATA, tree_.data().u16string());
    host_->setDataSource(provider);
    host_->setModuleHandle(kModuleId);
  }
  // The same, then starts it as a terminal does: Initialize, 3007, 3004.
  void restart(const std::string& provider = kProvider) {
    load(provider);
    host_->initialize();
    EXPECT_EQ(send(M::InitModule), 0);
    EXPECT_EQ(send(M::Start), 0);
  }

  int send(unsigned int message, HostArg a = 0, HostArg b = 0) {
    return host_->send(message, a, b);
  }
  int open(const SymbolParams& params, HostWord* handle) {  // 6001
    SYMBOL_NAME_PERIOD record = ToRecord(params);
    return send(M::OpenSymbol, Arg(&record), Arg(handle));
  }
  int openPath(const SymbolParams& params, const fs::path& folder, HostWord* handle) {  // 6008
    SYMBOL_NAME_PERIOD_PATH record = ToRecord(params, folder);
    return send(M::OpenSymbolPath, Arg(&record), Arg(handle));
  }
  HostWord open(const SymbolParams& params) {  // 6001; records a failure and gives 0 if refused
    HostWord handle = 0;
    EXPECT_EQ(open(params, &handle), 0);
    EXPECT_NE(handle, 0u);
    return handle;
  }
  template <typename Point>
  int insert(HostWord handle, std::vector<Point> points) {  // 6003
    INSERT_SYMBOL_DATA_REQUEST request = InsertRequest(handle, points);
    return send(M::InsertDataSend, Arg(&request));
  }
  int count(HostWord handle) {  // 6007 over every record; -1 if refused
    GET_SYMBOL_DATA_REQUEST request{};
    request.handle = handle;
    request.mode = kGetNewest;
    request.count = kEveryRecord;
    return send(M::GetDataCountSend, Arg(&request)) == 0 ? request.count : -1;
  }
  template <typename Point>
  std::vector<Point> get(HostWord handle, std::int32_t mode, int capacity) {  // 6005
    std::vector<Point> buffer(static_cast<std::size_t>(capacity));
    GET_SYMBOL_DATA_REQUEST request = GetRequest(handle, mode, buffer);
    EXPECT_EQ(send(M::GetDataSend, Arg(&request)), 0);
    buffer.resize(static_cast<std::size_t>(std::max(request.count, 0)));
    return buffer;
  }
  // Every stored record, oldest first, with room for one more to show that
  // nothing lies beyond.
  template <typename Point>
  std::vector<Point> readAll(HostWord handle) {
    return get<Point>(handle, kGetOldest, std::max(count(handle), 0) + 1);
  }
  // 6004 / 6006 of a request whose completion comes to sink_.
  int postInsert(HostWord handle, std::vector<Candle>& points) {
    INSERT_SYMBOL_DATA_REQUEST request = InsertRequest(handle, points);
    sink_.attach(request);
    return send(M::InsertDataPost, Arg(&request));
  }
  int postGet(HostWord handle, std::int32_t mode, std::vector<Candle>& buffer) {
    GET_SYMBOL_DATA_REQUEST request = GetRequest(handle, mode, buffer);
    sink_.attach(request);
    return send(M::GetDataPost, Arg(&request));
  }

  TestTree tree_;
  CompletionSink sink_;               // outlives the module: the worker may call it until unload
  std::unique_ptr<ModuleHost> host_;  // the loaded copy; unloads (after 3005) when reset
  fs::path previousDirectory_;        // restored after the test
};

}  // namespace datastore_test

#endif  // DATASTORE_TESTS_INTEGRATION_DATASTOREFIXTURE_H_
