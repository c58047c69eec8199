// CrashWriter.cpp: writer and checker of the kernel crash test
// (scripts/kernel-crash.sh). Loads the data store through the reference host
// and drives a deterministic stream of inserts of one kind into two files:
//   seed  KIND MODULE DATA CONFIG ACKS            the first records, then a
//         normal stop (a checkpoint); acknowledges op 0
//   write KIND MODULE DATA CONFIG ACKS            ops 1, 2, ... until killed
//   check KIND MODULE DATA CONFIG ACKS LEVEL CUT  opens the folder (recovery
//         runs), reads both files and checks them
// ACKS gets a line "op monotonic-ns" per acknowledged op, written and synced
// before the next op. Every value derives from the record's time and a
// version, so a record nobody inserted shows. A file passes when it equals
// the stream's result after some number of records: at least every op
// acknowledged before CUT (the monotonic time the file system was cut) with
// Durability 2, at least the seed otherwise, and at most the ops sent.

#include <fcntl.h>
#include <unistd.h>

#include <QString>
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "ModuleHost.h"
#include "SymbolRequest.h"

namespace {

constexpr char kProvider[] = "Crash";
constexpr char16_t kName[] = u"CRASH";
constexpr char kCode[] = "CRASH";
constexpr std::int32_t kLengths[] = {1, 5};  // intraday periods: two files change together
constexpr std::int32_t kFirstTime = 1'000'000'000;
constexpr std::int32_t kSeedStep = 1000;        // between seed records: room for middle inserts
constexpr std::int32_t kStep = 60;              // between records added at either end
constexpr int kSeedRecords = 200;               // 199 gaps, a prime
constexpr int kGapPrime = 7919;                 // spreads middle inserts over the gaps
constexpr std::int32_t kValueModulus = 100000;  // keeps every value exact in a float
constexpr int kBigBatchUnit = 50;   // appends: ops 50, 100, 200, 400... are batches of...
constexpr int kBigBatch = 11000;    // ...more than the log's direct-append size
constexpr int kBarUpdates = 8;      // replaces: versions of a bar before the next
constexpr int kMaxOps = 1'000'000;  // then the writer idles
// Middle and before inserts log the file from the insert on: their log grows
// with the square of the ops between checkpoints, and must not fill the disk.
constexpr int kMaxRewritingOps = 1500;
static_assert(kMaxRewritingOps / (kSeedRecords - 1) < kSeedStep - 1,
              "middle inserts stay inside their gaps");
constexpr std::int32_t kEveryRecord = 0x7fffffff;
constexpr std::int32_t kOldest = 2;  // get mode: the oldest count records

enum Kind { kAppends, kReplaces, kMiddle, kBefore, kKinds };
constexpr const char* kKindNames[kKinds] = {"appends", "replaces", "middle", "before"};

#pragma pack(push, 1)
struct Candle {
  std::int32_t time;
  float open, high, low, close, volume;
};
#pragma pack(pop)

Candle Make(std::int32_t time, int version) {
  const float base = static_cast<float>(time % kValueModulus);
  return {time, base, base + version, base - 1, base + 0.5f, static_cast<float>(version)};
}

bool Same(const Candle& a, const Candle& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

bool Genuine(const Candle& c) {  // the version is the volume
  return c.time != 0 && c.volume >= 0 && c.volume < kMaxOps &&
         Same(c, Make(c.time, static_cast<int>(c.volume)));
}

// The ops of one kind, in order; op 0 is the seed.
class Stream {
 public:
  explicit Stream(Kind kind) : kind_(kind) {}
  std::vector<Candle> Next() {
    const int op = op_++;
    std::vector<Candle> records;
    if (op == 0) {
      for (int i = 0; i < kSeedRecords; ++i) records.push_back(Make(kFirstTime + i * kSeedStep, 0));
      newest_ = records.back().time;
    } else if (kind_ == kAppends) {
      const bool big = op % kBigBatchUnit == 0 && std::has_single_bit(unsigned(op / kBigBatchUnit));
      const int count = big ? kBigBatch : 1 + op % 3;
      for (int i = 0; i < count; ++i) records.push_back(Make(newest_ += kStep, 0));
    } else if (kind_ == kReplaces) {
      if (op % kBarUpdates == 0) newest_ += kStep, version_ = 0;
      records.push_back(Make(newest_, ++version_));
    } else if (kind_ == kMiddle) {
      const int gaps = kSeedRecords - 1;
      records.push_back(Make(kFirstTime + op * kGapPrime % gaps * kSeedStep + 1 + op / gaps, 0));
    } else {
      for (int i = 0; i <= op % 2; ++i) records.push_back(Make(kFirstTime - kStep * ++before_, 0));
    }
    return records;
  }

 private:
  const Kind kind_;
  int op_ = 0;
  std::int32_t newest_ = 0;  // time of the newest record
  int version_ = 0;          // of the newest record
  int before_ = 0;           // records inserted before the seed
};

[[noreturn]] void Die(const std::string& message) {
  std::fprintf(stderr, "crash_writer: %s\n", message.c_str());
  std::exit(2);
}

// The module loaded and started, with both symbols open.
class Store {
 public:
  Store(const char* module, const char* data, const char* config) {
    if (!host_.load(module)) Die(host_.error());
    host_.setFolder(VD_FOLDER_CONFIG, QString::fromLocal8Bit(config).toStdU16String());
    host_.setFolder(VD_FOLDER_DATA, QString::fromLocal8Bit(data).toStdU16String());
    host_.setDataSource(kProvider);
    host_.initialize();
    host_.send(HostMessage::InitModule);
    host_.send(HostMessage::Start);
    for (std::int32_t length : kLengths) {
      SYMBOL_NAME_PERIOD request{};
      std::string error;
      if (!MakeSymbolRequest(kProvider, kName, kCode, SYMBOL_PERIOD{'I', length, 0}, &request,
                             &error))
        Die(error);
      HostWord handle = 0;
      if (host_.send(HostMessage::OpenSymbol, Arg(&request), Arg(&handle)) != 0 || handle == 0)
        Die("open refused");
      handles_.push_back(handle);
    }
  }
  void Insert(std::vector<Candle>& records) {
    for (HostWord handle : handles_) {
      INSERT_SYMBOL_DATA_REQUEST request{};
      request.handle = handle;
      request.number = static_cast<std::int32_t>(records.size());
      request.data = Word(records.data());
      if (host_.send(HostMessage::InsertDataSend, Arg(&request)) != 0) Die("insert refused");
    }
  }
  std::vector<Candle> ReadAll(HostWord handle) {  // room for one more shows that none lies beyond
    GET_SYMBOL_DATA_REQUEST request{};
    request.handle = handle;
    request.mode = kOldest;
    request.count = kEveryRecord;
    if (host_.send(HostMessage::GetDataCountSend, Arg(&request)) != 0) Die("count refused");
    std::vector<Candle> records(static_cast<std::size_t>(request.count) + 1);
    request.count = static_cast<std::int32_t>(records.size());
    request.buffer = Word(records.data());
    if (host_.send(HostMessage::GetDataSend, Arg(&request)) != 0) Die("get refused");
    records.resize(static_cast<std::size_t>(request.count));
    return records;
  }
  const std::vector<HostWord>& handles() const { return handles_; }

 private:
  template <typename T>
  static HostArg Arg(T* pointer) {
    return reinterpret_cast<HostArg>(pointer);
  }
  static HostWord Word(void* pointer) { return reinterpret_cast<HostWord>(pointer); }
  ModuleHost host_;
  std::vector<HostWord> handles_;  // one per length
};

long long MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

int OpenAcks(const char* path) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (fd < 0) Die(std::string("cannot open ") + path);
  return fd;
}

void Acknowledge(int fd, int op) {
  char line[64];
  const int n = std::snprintf(line, sizeof line, "%d %lld\n", op, MonotonicNs());
  if (write(fd, line, static_cast<std::size_t>(n)) != n || fdatasync(fd) != 0)
    Die("cannot write the acks");
}

// Greatest op acknowledged at all and before cutNs; -1 for none.
void ReadAcks(const char* path, long long cutNs, int* last, int* beforeCut) {
  std::ifstream in(path);
  *last = *beforeCut = -1;
  int op;
  long long ns;
  while (in >> op >> ns) {
    *last = std::max(*last, op);
    if (ns < cutNs) *beforeCut = std::max(*beforeCut, op);
  }
}

bool Equal(const std::map<std::int32_t, Candle>& state, const std::vector<Candle>& records) {
  if (state.size() != records.size()) return false;
  auto it = records.begin();
  for (const auto& [time, candle] : state)
    if (!Same(candle, *it++)) return false;
  return true;
}

// True when records equal the stream's state after every op up to lower and
// any further records of ops up to upper.
bool MatchesStream(Kind kind, const std::vector<Candle>& records, int lower, int upper) {
  Stream stream(kind);
  std::map<std::int32_t, Candle> state;
  for (int op = 0; op <= upper; ++op) {
    const std::vector<Candle> batch = stream.Next();
    for (std::size_t i = 0; i < batch.size(); ++i) {
      state[batch[i].time] = batch[i];
      const bool allowed = op > lower || (op == lower && i + 1 == batch.size());
      if (allowed && Equal(state, records)) return true;
    }
  }
  return false;
}

// Empty when the file's records are a state the stream may be in.
std::string Problem(Kind kind, const std::vector<Candle>& records, int lower, int upper) {
  for (std::size_t i = 0; i < records.size(); ++i) {
    const std::string which =
        "record " + std::to_string(i) + " (time " + std::to_string(records[i].time) + ")";
    if (!Genuine(records[i])) return which + " nobody inserted";
    if (i > 0 && records[i].time <= records[i - 1].time) return which + " out of order";
  }
  if (!MatchesStream(kind, records, lower, upper)) {
    return std::to_string(records.size()) + " genuine records, but no state of ops " +
           std::to_string(lower) + " to " + std::to_string(upper) +
           " (a lost or partly kept insert)";
  }
  return "";
}

int Check(Kind kind, Store& store, const char* acks, int level, long long cutNs) {
  int last = -1, beforeCut = -1;
  ReadAcks(acks, cutNs, &last, &beforeCut);
  if (last < 0) Die("the seed was not acknowledged");
  const int lower = level >= 2 ? beforeCut : 0;
  int bad = 0;
  for (std::size_t i = 0; i < store.handles().size(); ++i) {
    const std::string problem = Problem(kind, store.ReadAll(store.handles()[i]), lower, last + 1);
    if (problem.empty()) continue;
    std::printf("I%d: %s\n", kLengths[i], problem.c_str());
    ++bad;
  }
  return bad == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  const bool check = command == "check";
  if (argc != (check ? 9 : 7) || (!check && command != "seed" && command != "write")) {
    Die("usage: crash_writer seed|write KIND MODULE DATA CONFIG ACKS | check KIND MODULE DATA "
        "CONFIG ACKS LEVEL CUT_NS");
  }
  int kind = 0;
  while (kind < kKinds && std::strcmp(argv[2], kKindNames[kind]) != 0) ++kind;
  if (kind == kKinds) Die(std::string("unknown kind ") + argv[2]);
  Stream stream{Kind(kind)};
  if (command == "seed") {
    {
      Store store(argv[3], argv[4], argv[5]);
      std::vector<Candle> seed = stream.Next();
      store.Insert(seed);
    }  // the module stopped and unloaded: a checkpoint
    Acknowledge(OpenAcks(argv[6]), 0);
    return 0;
  }
  Store store(argv[3], argv[4], argv[5]);
  if (check) return Check(Kind(kind), store, argv[6], std::atoi(argv[7]), std::atoll(argv[8]));
  const int acks = OpenAcks(argv[6]);
  stream.Next();  // the seed, stored already
  const int ops = kind == kMiddle || kind == kBefore ? kMaxRewritingOps : kMaxOps;
  for (int op = 1; op <= ops; ++op) {
    std::vector<Candle> records = stream.Next();
    store.Insert(records);
    Acknowledge(acks, op);
  }
  for (;;) pause();  // waits for the cut and the kill
}
