// store_process: one user of a data folder, in a process of its own, for the
// tests of neighbouring processes on one folder. Loads the library through
// the reference host (Initialize, 3007, 3004), plays the role its command
// line names, stops it (3005) and says what it saw on standard output; its
// file log lands in ./temp of its working directory.
//
//   store_process append DATA CONFIG RECORDS BATCH sync|posted
//     opens the test symbol, prints "ready", waits for a line, inserts the
//     series of RECORDS records in batches, prints "inserted", waits for a
//     line or the end of input, then stops.
//   store_process read DATA CONFIG RECORDS WINDOW
//     prints "ready" after its first open, then loops open, count, get the
//     newest and the oldest WINDOW records, checking each answer against the
//     series, until a line or the end of input; then waits for the whole
//     series to be readable.
//   store_process many DATA CONFIG SYMBOLS RECORDS FILE_LIMIT
//     under a descriptor limit of FILE_LIMIT, opens SYMBOLS symbols and
//     inserts RECORDS records into each, reads each back, then reads each
//     again after stopping and loading the library anew.
//
// The last line is "result key=value ...". Every problem, and every record
// of the host log, is printed to standard error; the exit status is 0 when
// there was no problem.

#include <poll.h>
#include <sys/resource.h>

#include <QString>
#include <atomic>
#include <iostream>
#include <map>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

constexpr unsigned int kPostedDone = 7104;         // completion code of the writer's posted inserts
constexpr std::chrono::seconds kPostedLimit{120};  // longest wait for every posted insert
constexpr std::chrono::seconds kSettleLimit{10};   // longest wait for the reader to see the series
constexpr std::chrono::milliseconds kPollPause{20};  // between two looks at something awaited
constexpr int kExitProblem = 1;
constexpr int kExitUsage = 2;
constexpr std::size_t kProblemsShown = 20;  // problems printed at most, of one kind

struct Options {
  fs::path data;
  fs::path config;
  std::vector<long> numbers;  // the role's numeric arguments
  std::string mode;           // append: sync or posted
};

// Counts and prints problems; the exit status comes from it.
class Problems {
 public:
  void add(const std::string& text) {
    if (shown_[text.substr(0, text.find(':'))]++ < kProblemsShown) std::cerr << text << '\n';
    ++count_;
  }
  int exitStatus() const { return count_ == 0 ? 0 : kExitProblem; }
  long count() const { return count_; }

 private:
  long count_ = 0;
  std::map<std::string, std::size_t> shown_;  // by the text before its first ':'
};

// The library, loaded and started as a terminal does.
class Store {
 public:
  explicit Store(const Options& options) {
    if (!host_.load(DATASTORE_MODULE_PATH)) throw std::runtime_error(host_.error());
    host_.setFolder(VD_FOLDER_CONFIG, options.config.u16string());
    host_.setFolder(VD_FOLDER_DATA, options.data.u16string());
    host_.setDataSource(kProvider);
    host_.setModuleHandle(kModuleId);
    host_.setHandler([this](unsigned int message, HostArg, HostArg) {
      if (message == kPostedDone) ++postedDone_;
      return 0;
    });
    host_.initialize();
    send(M::InitModule);
    send(M::Start);
  }
  ~Store() {  // stops the module and prints its host log
    send(M::Stop);
    for (const ModuleHost::LogEntry& entry : host_.logs()) {
      std::cerr << "host log: " << QString::fromStdU16String(entry.text).toStdString() << '\n';
    }
  }

  int send(unsigned int message, HostArg a = 0) { return host_.send(message, a, 0); }
  HostWord open(const SymbolParams& params) {  // 0 when refused
    SYMBOL_NAME_PERIOD record = ToRecord(params);
    HostWord handle = 0;
    return host_.send(M::OpenSymbol, Arg(&record), Arg(&handle)) == 0 ? handle : 0;
  }
  int insert(HostWord handle, std::vector<Candle>& points) {
    INSERT_SYMBOL_DATA_REQUEST request = InsertRequest(handle, points);
    return send(M::InsertDataSend, Arg(&request));
  }
  int post(HostWord handle, std::vector<Candle>& points) {
    return host_.postInsert(handle, std::int32_t(points.size()), points.data(), kPostedDone);
  }
  bool waitPosted(long posted) {
    const auto deadline = std::chrono::steady_clock::now() + kPostedLimit;
    while (postedDone_ < posted && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(kPollPause);
    }
    return postedDone_ == posted;
  }
  int count(HostWord handle) {  // -1 when refused
    GET_SYMBOL_DATA_REQUEST request{};
    request.handle = handle;
    request.count = kEveryRecord;
    return send(M::GetDataCountSend, Arg(&request)) == 0 ? request.count : -1;
  }
  std::vector<Candle> get(HostWord handle, std::int32_t mode, int capacity) {
    std::vector<Candle> buffer(std::size_t(std::max(capacity, 0)));
    GET_SYMBOL_DATA_REQUEST request = GetRequest(handle, mode, buffer);
    if (send(M::GetDataSend, Arg(&request)) != 0) request.count = 0;
    buffer.resize(std::size_t(std::max(request.count, 0)));
    return buffer;
  }
  std::vector<Candle> readAll(HostWord handle) {
    return get(handle, kGetOldest, std::max(count(handle), 0) + 1);
  }

 private:
  std::atomic<long> postedDone_{0};  // completion calls of posted inserts; outlives host_
  ModuleHost host_;
};

// The series the writer appends: record i at kFirstTime + i * kStep.
std::vector<Candle> SeriesPart(long first, long count) {
  return Series(int(count), std::int32_t(kFirstTime + first * kStep));
}

// The index of the record in the series; -1 when it is none of its records.
long SeriesIndex(const Candle& point) {
  const long offset = long(point.time) - kFirstTime;
  if (offset < 0 || offset % kStep != 0 || !(point == MakeCandle(point.time))) return -1;
  return offset / kStep;
}

// The points are the series' records from first on, without a gap.
bool Consecutive(const std::vector<Candle>& points, long first) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (SeriesIndex(points[i]) != first + long(i)) return false;
  }
  return true;
}

bool InputWaits() {  // a line or the end of standard input is there
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) > 0;
}

void WaitForLine() {
  std::string line;
  std::getline(std::cin, line);
}

int Append(const Options& options) {
  const long records = options.numbers.at(0);
  const long batchSize = options.numbers.at(1);
  const bool posted = options.mode == "posted";
  Problems problems;
  long refused = 0;
  {
    Store store(options);
    const HostWord handle = store.open(SymbolParams{});
    if (handle == 0) problems.add("open: refused");
    std::cout << "ready" << std::endl;
    WaitForLine();
    long batches = 0;
    for (long first = 0; first < records; first += batchSize, ++batches) {
      std::vector<Candle> batch = SeriesPart(first, std::min(batchSize, records - first));
      refused += (posted ? store.post(handle, batch) : store.insert(handle, batch)) != 0;
    }
    if (posted && !store.waitPosted(batches)) problems.add("posted: completion calls missing");
    std::cout << "inserted" << std::endl;
    WaitForLine();
  }
  std::cout << "result refused=" << refused << std::endl;
  return problems.exitStatus();
}

// The reader's checks: every answer holds records of the series where they
// belong, and no answer shows fewer records than one before it.
class SeriesReader {
 public:
  SeriesReader(Store& store, long records, int window, Problems& problems)
      : store_(store), records_(records), window_(window), problems_(problems) {}

  void pass() {  // open, count, newest, oldest
    const HostWord handle = store_.open(SymbolParams{});
    if (handle == 0) return problems_.add("open: refused");
    const long counted = store_.count(handle);
    if (counted < seen_ || counted > records_) {
      problems_.add("count: " + std::to_string(counted) + " after " + std::to_string(seen_));
    }
    seen_ = std::max(seen_, counted);
    during_ += counted > 0 && counted < records_;
    ++passes_;
    checkNewest(store_.get(handle, kGetNewest, window_));
    checkOldest(store_.get(handle, kGetOldest, window_));
  }
  // Looks until the whole series is there, or kSettleLimit passed.
  void settle() {
    const auto deadline = std::chrono::steady_clock::now() + kSettleLimit;
    while (seen_ < records_ && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(kPollPause);
      pass();
    }
  }
  long seen() const { return seen_; }
  long passes() const { return passes_; }
  long during() const { return during_; }

 private:
  long expectedSize() const { return std::min<long>(window_, seen_); }
  void checkNewest(const std::vector<Candle>& newest) {
    const long first = newest.empty() ? 0 : SeriesIndex(newest.front());
    const long end = first + long(newest.size());
    if (long(newest.size()) < expectedSize() || first < 0 || !Consecutive(newest, first) ||
        end < seen_) {
      problems_.add("newest: " + std::to_string(newest.size()) + " records from " +
                    std::to_string(first) + " while " + std::to_string(seen_) + " were seen");
    }
    seen_ = std::max(seen_, end);
  }
  void checkOldest(const std::vector<Candle>& oldest) {
    if (long(oldest.size()) < expectedSize() || !Consecutive(oldest, 0)) {
      problems_.add("oldest: " + std::to_string(oldest.size()) +
                    " records, not the first of the series");
    }
  }

  Store& store_;
  const long records_;  // the writer's whole series
  const int window_;    // records asked for by each get
  Problems& problems_;
  long seen_ = 0;  // records known to be stored: no answer may show fewer
  long passes_ = 0;
  long during_ = 0;  // passes that counted part of the series
};

int Read(const Options& options) {
  Problems problems;
  long seen = 0, passes = 0, during = 0;
  {
    Store store(options);
    SeriesReader reader(store, options.numbers.at(0), int(options.numbers.at(1)), problems);
    reader.pass();
    std::cout << "ready" << std::endl;
    while (!InputWaits()) reader.pass();
    reader.settle();
    seen = reader.seen();
    passes = reader.passes();
    during = reader.during();
  }
  std::cout << "result passes=" << passes << " during=" << during << " final=" << seen
            << " problems=" << problems.count() << std::endl;
  return problems.exitStatus();
}

SymbolParams ManySymbol(long index) {
  const std::string code = "S" + std::to_string(index);
  return SymbolParams{.name = std::u16string(code.begin(), code.end()), .code = code};
}

std::vector<Candle> ManyRecords(long index, long records) {
  return Series(int(records), kFirstTime, float(index));  // tagged: a mix-up of files shows
}

// Reads back every stored symbol: counts those read whole, and refusals.
void ReadBack(Store& store, const std::vector<long>& stored, long records, Problems& problems,
              long* whole, long* refused) {
  for (long index : stored) {
    const HostWord handle = store.open(ManySymbol(index));
    if (handle == 0) {
      ++*refused;
    } else if (store.readAll(handle) == ManyRecords(index, records)) {
      ++*whole;
    } else {
      problems.add("read back: symbol " + std::to_string(index) + " does not hold its records");
    }
  }
}

int Many(const Options& options) {
  const long symbols = options.numbers.at(0);
  const long records = options.numbers.at(1);
  const rlimit limit{rlim_t(options.numbers.at(2)), rlim_t(options.numbers.at(2))};
  Problems problems;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
    problems.add("setrlimit: " + std::string(std::strerror(errno)));
    return problems.exitStatus();
  }
  long openRefused = 0, insertRefused = 0, readBack = 0, readRefused = 0, reloaded = 0,
       reloadRefused = 0;
  std::vector<long> stored;
  {
    Store store(options);
    for (long index = 0; index < symbols; ++index) {
      std::vector<Candle> points = ManyRecords(index, records);
      const HostWord handle = store.open(ManySymbol(index));
      if (handle == 0) {
        ++openRefused;
      } else if (store.insert(handle, points) != 0) {
        ++insertRefused;
      } else {
        stored.push_back(index);
      }
    }
    ReadBack(store, stored, records, problems, &readBack, &readRefused);
  }
  {
    Store store(options);
    ReadBack(store, stored, records, problems, &reloaded, &reloadRefused);
  }
  std::cout << "result openRefused=" << openRefused << " insertRefused=" << insertRefused
            << " stored=" << stored.size() << " readBack=" << readBack
            << " readRefused=" << readRefused << " reloaded=" << reloaded
            << " reloadRefused=" << reloadRefused << std::endl;
  return problems.exitStatus();
}

}  // namespace
}  // namespace datastore_test

int main(int argc, char** argv) {
  using namespace datastore_test;
  const std::map<std::string, int (*)(const Options&)> roles{
      {"append", Append}, {"read", Read}, {"many", Many}};
  constexpr int kFixedArguments = 4;  // program, role, data, config
  if (argc < kFixedArguments || roles.count(argv[1]) == 0) {
    std::cerr << "usage: store_process append|read|many DATA CONFIG NUMBER... [sync|posted]\n";
    return kExitUsage;
  }
  Options options{argv[2], argv[3], {}, {}};
  for (int i = kFixedArguments; i < argc; ++i) {
    char* end = nullptr;
    const long number = std::strtol(argv[i], &end, 10);
    if (*end == '\0')
      options.numbers.push_back(number);
    else
      options.mode = argv[i];
  }
  try {
    return roles.at(argv[1])(options);
  } catch (const std::exception& error) {  // a missing argument, a library that does not load
    std::cerr << error.what() << '\n';
    return kExitUsage;
  }
}
