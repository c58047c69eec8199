// fuzz_cjd_file: a stored symbol file and its data folder's write-ahead log,
// both as anyone could have left them. The symbol is read through the view of
// the log in every get mode; then the log is recovered, and the symbol,
// loaded as the data store loads it, is read in every mode, counted, given a
// few small inserts and checkpointed. The view must leave the folder as it
// was, and recovery must leave everything beside the data folder alone (a
// sibling file stands there for a frame that climbs out with "..").
//
// Input: the file, then the log (trailer.logBytes long), then a
// cjdinput::Trailer (zero-filled when the input is shorter than one).

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FuzzInputs.h"
#include "FuzzSupport.h"
#include "LogFormat.h"
#include "LogView.h"
#include "Symbol.h"
#include "WriteAheadLog.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using cjdinput::kInsertBytes;
using cjdinput::Trailer;

constexpr int kModeCount = kGetOldest + 1;  // modes 0 to 2 are valid
constexpr int kMaxInsertRecords = 3;
constexpr std::size_t kMaxBufferBytes = 1 << 20;  // largest get buffer
constexpr std::size_t kTrailerSize = sizeof(Trailer);
constexpr char kDataFolder[] = "data";
constexpr char kSiblingBytes[] = "beside the data folder";

// Fields of the log (LogFormat.h) that resealing reads.
constexpr std::size_t kSaltAt = 16;
constexpr std::size_t kPathBytesAt = 4;
constexpr std::size_t kOffsetAt = 8;
constexpr std::size_t kLengthAt = 16;
constexpr std::size_t kExtentChecksumAt = 24;

// An owner as the data store is one: files change through `log` when given.
class Owner : public SymbolOwner {
 public:
  Owner(bool writeEnabled, FileSystem& fileSystem, WriteAheadLog* log)
      : writeEnabled_(writeEnabled), fileSystem_(fileSystem), log_(log) {}
  bool IsWriteEnabled() const override { return writeEnabled_; }
  FileSystem& GetFileSystem() const override { return fileSystem_; }
  WriteAheadLog* GetWriteLog() const override { return log_; }

 private:
  bool writeEnabled_;
  FileSystem& fileSystem_;
  WriteAheadLog* log_;
};

template <typename T>
T Get(const std::uint8_t* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// The log with its header and frames encoded anew by the storage library, so
// that their checksums hold whatever the fuzzer changed; from the first frame
// that does not fit in what is left, the bytes are kept as they are.
Bytes Reseal(const std::uint8_t* log, std::size_t size) {
  if (size < wal::kHeaderBytes) return Bytes(log, log + size);
  std::uint64_t previous = Get<std::uint64_t>(log + kSaltAt);
  const auto header = wal::EncodeHeader(previous);
  Bytes out(header.begin(), header.end());
  std::size_t at = wal::kHeaderBytes;
  while (size - at >= wal::kFrameHeaderBytes) {
    const std::uint8_t* bytes = log + at;
    const std::size_t left = size - at - wal::kFrameHeaderBytes;
    wal::Frame frame;
    frame.kind = static_cast<wal::FrameKind>(Get<std::uint32_t>(bytes));
    frame.offset = Get<std::uint64_t>(bytes + kOffsetAt);
    frame.length = Get<std::uint64_t>(bytes + kLengthAt);
    frame.extentChecksum = Get<std::uint64_t>(bytes + kExtentChecksumAt);
    const std::size_t pathBytes = Get<std::uint32_t>(bytes + kPathBytesAt);
    const std::uint64_t payloadBytes = frame.kind == wal::FrameKind::Write ? frame.length : 0;
    if (pathBytes > left || payloadBytes > left - pathBytes) break;
    const std::uint8_t* path = bytes + wal::kFrameHeaderBytes;
    frame.path.assign(path, path + pathBytes);
    previous = wal::EncodeFrame(frame, path + pathBytes, std::size_t(payloadBytes), previous, out);
    at += wal::kFrameHeaderBytes + pathBytes + std::size_t(payloadBytes);
  }
  out.insert(out.end(), log + at, log + size);
  return out;
}

// Aborts unless the folder holds just these entries, its files with these
// bytes (a subfolder is named with none).
void ExpectFolder(std::string const& folder, std::map<std::string, Bytes> const& entries,
                  const char* after) {
  std::size_t found = 0;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    const auto expected = entries.find(entry.path().filename().string());
    const bool same =
        expected != entries.end() &&
        (!entry.is_regular_file() || fuzzsupport::ReadFile(entry.path()) == expected->second);
    if (!same) {
      std::fprintf(stderr, "%s changed %s\n", after, entry.path().c_str());
      std::abort();
    }
    ++found;
  }
  if (found != entries.size()) {
    std::fprintf(stderr, "%s removed a file from %s\n", after, folder.c_str());
    std::abort();
  }
}

// A mode outside 0 to 2.
int InvalidMode(std::int32_t mode) {
  return mode >= kGetNewest && mode < kModeCount ? mode + kModeCount : mode;
}

// The count the caller's buffer holds: a positive count is cut so that the
// buffer stays small; zero and negative counts go through as they are.
int Capacity(std::int32_t count, unsigned int recordSize) {
  const auto most = static_cast<std::int32_t>(kMaxBufferBytes / recordSize);
  return std::min(count, most);
}

void Get(CSymbol& symbol, Trailer const& trailer, int mode) {
  const unsigned int recordSize = symbol.GetDataPointSize();
  const int capacity = Capacity(trailer.count, recordSize);
  std::vector<unsigned char> buffer(std::size_t(std::max(capacity, 0)) * recordSize);
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = mode;
  request.firstTime = trailer.firstTime;
  request.lastTime = trailer.lastTime;
  request.count = capacity;
  request.buffer = reinterpret_cast<HostWord>(buffer.data());
  symbol.GetData(&request);
  if (request.count < 0 || request.count > std::max(capacity, 0)) {
    std::fprintf(stderr, "GetData delivered %d records into a buffer of %d\n", request.count,
                 capacity);
    std::abort();
  }
  request.count = trailer.count;
  symbol.GetDataCount(&request);
}

void GetEveryMode(CSymbol& symbol, Trailer const& trailer) {
  for (int mode :
       {int{kGetNewest}, int{kGetTimeRange}, int{kGetOldest}, InvalidMode(trailer.invalidMode)}) {
    Get(symbol, trailer, mode);
  }
}

// The time of the newest (mode 0) or oldest (mode 2) stored record; false
// when there is none.
bool EndTime(CSymbol& symbol, int mode, std::int32_t* time) {
  std::vector<unsigned char> record(symbol.GetDataPointSize());
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = mode;
  request.count = 1;
  request.buffer = reinterpret_cast<HostWord>(record.data());
  symbol.GetData(&request);
  if (request.count != 1) return false;
  *time = Get<std::int32_t>(record.data());
  return true;
}

// The time an insert of this kind gives its record (the record's own when
// the symbol holds none).
std::int32_t InsertTime(CSymbol& symbol, cjdinput::InsertKind kind, std::int32_t own) {
  std::int32_t newest = 0, oldest = 0;
  if (!EndTime(symbol, kGetNewest, &newest) || !EndTime(symbol, kGetOldest, &oldest)) return own;
  switch (kind) {
    case cjdinput::kAppend: return static_cast<std::int32_t>(std::uint32_t(newest) + 1);
    case cjdinput::kReplaceNewest: return newest;
    default: return static_cast<std::int32_t>(oldest + (std::int64_t{newest} - oldest) / 2);
  }
}

// The records as given, then one record per kind in insertKinds.
void Insert(CSymbol& symbol, Trailer const& trailer) {
  const unsigned int recordSize = symbol.GetDataPointSize();
  const int count = trailer.insertCount % (kMaxInsertRecords + 1);
  std::vector<unsigned char> records(std::size_t(std::max(count, 1)) * recordSize, 0);
  std::memcpy(records.data(), trailer.insertBytes, std::min(records.size(), kInsertBytes));
  if (count > 0) symbol.InsertData(count, records.data());
  for (int k = 0; k < cjdinput::kKindedInserts; ++k) {
    const auto kind =
        static_cast<cjdinput::InsertKind>((trailer.insertKinds >> (k * cjdinput::kInsertKindBits)) &
                                          ((1 << cjdinput::kInsertKindBits) - 1));
    if (kind == cjdinput::kNoInsert) continue;
    const std::int32_t time = InsertTime(symbol, kind, Get<std::int32_t>(records.data()));
    std::memcpy(records.data(), &time, sizeof time);
    symbol.InsertData(1, records.data());
  }
}

// Reads the file as recovery will leave it.
void ReadThroughView(std::string const& path, Trailer const& trailer) {
  LoggedFileSystem view;
  Owner reader(false, view, nullptr);
  CSymbol symbol(&reader, path.c_str());
  if (symbol.LoadProperties() != 0) return;
  symbol.Open();
  GetEveryMode(symbol, trailer);
}

// Recovers the log, then reads, inserts and checkpoints as the data store would.
void RecoverAndWrite(std::string const& folder, std::string const& path, Trailer const& trailer) {
  DurabilitySettings settings;
  settings.level = DurabilitySettings::kNoSync;
  std::unique_ptr<WriteAheadLog> log;
  if (!WriteAheadLog::Open(FileSystem::Default(), folder, settings, &log).ok()) return;
  Owner writer(true, FileSystem::Default(), log.get());
  CSymbol symbol(&writer, path.c_str());
  if (symbol.LoadProperties() != 0) return;
  symbol.Open();
  GetEveryMode(symbol, trailer);
  Insert(symbol, trailer);
  log->Checkpoint();
  Get(symbol, trailer, kGetNewest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzsupport::ScratchDir scratch("fuzz-cjd");
  static const Bytes sibling(std::begin(kSiblingBytes), std::end(kSiblingBytes));
  const std::string folder = scratch.File(kDataFolder);
  const std::string path = folder + "/" + cjdinput::kFileName;
  Trailer trailer{};
  const std::size_t beforeTrailer = size > kTrailerSize ? size - kTrailerSize : 0;
  std::memcpy(&trailer, data + beforeTrailer, std::min(size, kTrailerSize));
  const std::size_t logSize = std::min<std::size_t>(trailer.logBytes, beforeTrailer);
  const std::size_t fileSize = beforeTrailer - logSize;
  const Bytes file(data, data + fileSize);
  const Bytes log = trailer.resealLog % 2 != 0 ? Reseal(data + fileSize, logSize)
                                               : Bytes(data + fileSize, data + beforeTrailer);

  std::filesystem::create_directory(folder);
  fuzzsupport::WriteFile(path, file.data(), file.size());
  fuzzsupport::WriteFile(wal::JoinPath(folder, wal::kLogFileName), log.data(), log.size());
  fuzzsupport::WriteFile(scratch.File(cjdinput::kSiblingName), sibling.data(), sibling.size());
  ReadThroughView(path, trailer);
  ExpectFolder(folder, {{cjdinput::kFileName, file}, {wal::kLogFileName, log}},
               "reading through the log's view");
  RecoverAndWrite(folder, path, trailer);
  ExpectFolder(scratch.path(), {{kDataFolder, {}}, {cjdinput::kSiblingName, sibling}}, "recovery");
  scratch.Empty();
  return 0;
}
