// fuzz_seed_writer: makes the first corpus of every fuzz target in
// OUT/<target>/ with the project's own code: symbol files and logs written
// by the storage library, the sample export directory that export_generator
// --sample wrote into EXPORT_DIR, a configuration written by the INI store,
// and host record sequences.
//
//   fuzz_seed_writer OUT EXPORT_DIR

#include <QDir>
#include <QString>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "ExportIndex.h"
#include "FileFormat.h"
#include "FuzzInputs.h"
#include "FuzzSupport.h"
#include "IniFile.h"
#include "LogFormat.h"
#include "Period.h"
#include "Symbol.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using fuzzsupport::ReadFile;

constexpr std::int32_t kFirstTime = 1704164645;  // 2024-01-02T03:04:05Z
constexpr int kSeedRecords = 20;
constexpr int kExportSeedRecords = 16;  // data records kept of each sample data file
constexpr int kGetCount = 5;
constexpr std::int32_t kInvalidMode = 7;
constexpr std::uint8_t kInsertCount = 2;
constexpr float kValue = 1.25f;
constexpr float kRewrittenValue = 2.5f;

class WritingOwner : public SymbolOwner {
 public:
  bool IsWriteEnabled() const override { return true; }
};

void WriteSeed(std::filesystem::path const& folder, std::string const& name, Bytes const& bytes) {
  std::filesystem::create_directories(folder);
  fuzzsupport::WriteFile((folder / name).string(), bytes.data(), bytes.size());
}

template <typename T>
void Append(Bytes& out, T const& value) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&value);
  out.insert(out.end(), bytes, bytes + sizeof value);
}

void AppendU16(Bytes& out, std::size_t value) {
  out.push_back(static_cast<std::uint8_t>(value));
  out.push_back(static_cast<std::uint8_t>(value >> 8));
}

// Records of `recordSize` bytes, one a second from `first`, every value `value`.
Bytes Records(int count, unsigned int recordSize, std::int32_t first, float value = kValue) {
  Bytes out;
  for (int k = 0; k < count; ++k) {
    Append(out, std::int32_t(first + k));
    for (unsigned int at = cjd::kTimeSize; at < recordSize; at += sizeof(float)) Append(out, value);
  }
  return out;
}

// ---- fuzz_cjd_file: the file, its data folder's log, the trailer.

struct SeedFile {
  Bytes bytes;
  std::uint64_t firstRecord;  // offset of record 0
  unsigned int recordSize;
};

struct SymbolSeed {
  const char16_t* name;
  char kind;
  std::int32_t length;
  std::vector<const char*> views;
  int records;
  bool described;
  Bytes (*log)(SeedFile& file);  // the data folder's log; may change the file
  bool reseal;                   // the fuzzer's changes to the log keep it sound
};

SeedFile WriteSymbolFile(SymbolSeed const& seed, std::string const& folder) {
  WritingOwner owner;
  SYMBOL_PERIOD period{seed.kind, seed.length, 0};
  char code[] = "SEED";
  const auto* name = reinterpret_cast<const unsigned short*>(seed.name);
  const auto* provider = reinterpret_cast<const unsigned short*>(u"Demo");
  CSymbol symbol(&owner, name, period, name, code, provider);
  for (const char* view : seed.views)
    symbol.InsertDataPointView(DATA_POINT_FLOAT, const_cast<char*>(view));
  if (seed.described) {
    auto description = std::make_unique<STRING_DESCRIPTION>();
    std::strcpy(description->name, "Source");
    std::strcpy(description->value, "seed");
    symbol.descriptions().push_back(std::move(description));
    symbol.setDescriptionCount(1);
  }
  if (symbol.Create(QString::fromStdString(folder + "/")) != 0) std::abort();
  symbol.Open();
  Bytes records = Records(seed.records, symbol.GetDataPointSize(), kFirstTime);
  symbol.InsertData(seed.records, records.data());
  const std::string path = symbol.file()->path();
  const std::uint64_t firstRecord = symbol.file()->FirstRecordOffset();
  symbol.Close();
  return {ReadFile(path), firstRecord, symbol.GetDataPointSize()};
}

cjdinput::Trailer MakeTrailer(unsigned int recordSize, std::size_t logBytes, bool reseal) {
  cjdinput::Trailer trailer{};
  trailer.count = kGetCount;
  trailer.firstTime = kFirstTime + 3;
  trailer.lastTime = kFirstTime + 9;
  trailer.invalidMode = kInvalidMode;
  trailer.insertCount = kInsertCount;
  const Bytes inserted = Records(kInsertCount, recordSize, kFirstTime + 1);
  std::memcpy(trailer.insertBytes, inserted.data(),
              std::min(inserted.size(), cjdinput::kInsertBytes));
  trailer.insertKinds = cjdinput::kAppend | cjdinput::kReplaceNewest << cjdinput::kInsertKindBits |
                        cjdinput::kMiddle << 2 * cjdinput::kInsertKindBits;
  trailer.logBytes = std::uint32_t(logBytes);
  trailer.resealLog = reseal ? 1 : 0;
  return trailer;
}

// A log whose frames the storage library's own encoder made.
class LogWriter {
 public:
  LogWriter() : previous_(kLogSalt) {
    const auto header = wal::EncodeHeader(kLogSalt);
    bytes_.assign(header.begin(), header.end());
  }
  void Write(std::string const& path, std::uint64_t offset, Bytes const& payload) {
    Add({wal::FrameKind::Write, path, offset, payload.size(), 0, {}}, payload);
  }
  void Intent(std::uint64_t soundSize) {
    Add({wal::FrameKind::AppendIntent, cjdinput::kFileName, soundSize, 0, 0, {}});
  }
  void Done(std::uint64_t offset, Bytes const& extent, std::uint64_t checksum) {
    Add({wal::FrameKind::AppendDone, cjdinput::kFileName, offset, extent.size(), checksum, {}});
  }
  Bytes const& bytes() const { return bytes_; }

 private:
  static constexpr std::uint64_t kLogSalt = 0x5eed5eed5eed5eedULL;
  void Add(wal::Frame const& frame, Bytes const& payload = {}) {
    previous_ = wal::EncodeFrame(frame, payload.data(), payload.size(), previous_, bytes_);
  }
  Bytes bytes_;
  std::uint64_t previous_;
};

std::int32_t LastTime(SeedFile const& file) {
  std::int32_t time = 0;
  std::memcpy(&time, file.bytes.data() + file.bytes.size() - file.recordSize, sizeof time);
  return time;
}

// The file's last record written anew with other values.
Bytes RewriteLastRecord(SeedFile& file) {
  LogWriter log;
  log.Write(cjdinput::kFileName, file.bytes.size() - file.recordSize,
            Records(1, file.recordSize, LastTime(file), kRewrittenValue));
  return log.bytes();
}

// A record appended straight into the file, its done frame's checksum as
// given (a wrong one makes recovery cut it off).
Bytes AppendDirect(SeedFile& file, bool checksumHolds) {
  const Bytes extent = Records(1, file.recordSize, LastTime(file) + 1);
  const std::uint64_t checksum = wal::ExtentChecksum(extent.data(), extent.size());
  LogWriter log;
  log.Intent(file.bytes.size());
  log.Done(file.bytes.size(), extent, checksumHolds ? checksum : ~checksum);
  file.bytes.insert(file.bytes.end(), extent.begin(), extent.end());
  return log.bytes();
}

Bytes AppendHolding(SeedFile& file) { return AppendDirect(file, true); }
Bytes AppendBroken(SeedFile& file) { return AppendDirect(file, false); }

// A first record written into an empty file (from its end, so the word
// between header and records too), and a frame that climbs out of the data
// folder to its sibling.
Bytes EscapeBeside(SeedFile& file) {
  Bytes written(file.firstRecord - file.bytes.size(), 0);
  const Bytes record = Records(1, file.recordSize, kFirstTime);
  written.insert(written.end(), record.begin(), record.end());
  LogWriter log;
  log.Write(cjdinput::kFileName, file.bytes.size(), written);
  const std::string escaped = "escaped";
  log.Write(std::string("../") + cjdinput::kSiblingName, 0, Bytes(escaped.begin(), escaped.end()));
  return log.bytes();
}

void WriteCjdSeeds(std::filesystem::path const& out) {
  const fuzzsupport::ScratchDir scratch("fuzz-seeds");
  const std::vector<const char*> ticks(std::begin(period::kTickViews),
                                       std::end(period::kTickViews));
  const std::vector<const char*> candles(std::begin(period::kCandleViews),
                                         std::end(period::kCandleViews));
  const SymbolSeed seeds[] = {
      {u"EURUSD", 'I', 0, ticks, kSeedRecords, false, RewriteLastRecord, true},
      {u"GBPUSD", 'I', 15, candles, kSeedRecords, false, AppendHolding, true},
      {u"USDJPY", 'D', 0, candles, kSeedRecords, true, AppendBroken, false},
      {u"EUR/USD", 'W', 0, candles, 0, false, EscapeBeside, true},
  };
  int number = 0;
  for (SymbolSeed const& seed : seeds) {
    SeedFile file = WriteSymbolFile(seed, scratch.path());
    const Bytes log = seed.log(file);
    Bytes input = file.bytes;
    input.insert(input.end(), log.begin(), log.end());
    Append(input, MakeTrailer(file.recordSize, log.size(), seed.reseal));
    WriteSeed(out / "fuzz_cjd_file", "symbol" + std::to_string(++number) + ".cjd", input);
  }
}

// ---- fuzz_export_dir: number A, number B, MASTER size, MASTER, size of A, A, B.

Bytes DataFileHead(IndexEntry const& entry) {
  Bytes file = ReadFile(entry.dataFile.toStdString());
  file.resize(std::min(file.size(), std::size_t(entry.recordLength) * (kExportSeedRecords + 1)));
  return file;
}

// An index file of the directory whatever its case; empty when there is none.
Bytes IndexFileBytes(std::filesystem::path const& exportDir, const char* name) {
  const QString path =
      ExportFolder(QString::fromStdString(exportDir.string())).Find(QString::fromLatin1(name));
  return path.isEmpty() ? Bytes{} : ReadFile(path.toStdString());
}

void AppendSized(Bytes& out, Bytes const& bytes) {
  AppendU16(out, bytes.size());
  out.insert(out.end(), bytes.begin(), bytes.end());
}

// The MASTER entry a as F<A>.dat; b's data file as the one of XMASTER's size.
Bytes ExportSeed(std::filesystem::path const& exportDir, IndexEntry const& a, IndexEntry const& b) {
  Bytes out = {std::uint8_t(a.fileNumber), std::uint8_t(b.fileNumber)};
  for (const char* index : {"MASTER", "XMASTER", "EMASTER"})
    AppendSized(out, IndexFileBytes(exportDir, index));
  AppendSized(out, DataFileHead(a));
  const Bytes dataB = DataFileHead(b);
  out.insert(out.end(), dataB.begin(), dataB.end());
  return out;
}

// Pairs a daily entry with an intraday one and ticks with a daily one.
void WriteExportSeeds(std::filesystem::path const& out, std::filesystem::path const& exportDir) {
  const std::vector<IndexEntry> entries =
      ReadExportIndex(QString::fromStdString(exportDir.string()));
  const QString periods[][2] = {{"D", "I  5"}, {"I  0", "D"}};
  int number = 0;
  for (auto const& [first, second] : periods) {
    auto find = [&entries](QString const& period) {
      return std::find_if(entries.begin(), entries.end(),
                          [&](IndexEntry const& e) { return e.periodText() == period; });
    };
    if (find(first) == entries.end() || find(second) == entries.end()) std::abort();
    WriteSeed(out / "fuzz_export_dir", "sample" + std::to_string(++number),
              ExportSeed(exportDir, *find(first), *find(second)));
  }
}

// ---- fuzz_ini: section, key and value as FuzzedDataProvider strings, then the file.

void AppendProviderString(Bytes& out, std::string const& text) {
  out.insert(out.end(), text.begin(), text.end());
  out.push_back('\\');
  out.push_back('\n');
}

void WriteIniSeeds(std::filesystem::path const& out) {
  const fuzzsupport::ScratchDir scratch("fuzz-seeds");
  const std::string path = scratch.File("pelto.cfg");
  {
    inifiles config(path.c_str());
    config.WriteString("DATASTORE", "PathData", "~");
    config.WriteInteger("DATASTORE", "EnableWrite", 1);
  }
  const Bytes file = ReadFile(path);
  const char* requests[][3] = {{"DATASTORE", "PathData", "/srv/data"},
                               {"DATASTORE", "EnableWrite", "0"}};
  int number = 0;
  for (auto const& [section, key, value] : requests) {
    Bytes seed;
    AppendProviderString(seed, section);
    AppendProviderString(seed, key);
    AppendProviderString(seed, value);
    seed.insert(seed.end(), file.begin(), file.end());
    WriteSeed(out / "fuzz_ini", "pelto" + std::to_string(++number) + ".cfg", seed);
  }
}

// ---- fuzz_host_records

SYMBOL_NAME_PERIOD SymbolRequest(char kind, std::int32_t length) {
  SYMBOL_NAME_PERIOD request{};
  std::strcpy(request.provider, "Demo");
  std::copy_n(u"EUR/USD", std::size(u"EUR/USD"), request.name);
  std::strcpy(request.code, "EURUSD");
  request.period = {kind, length, 0};
  return request;
}

void AppendOpen(Bytes& out, char kind, std::int32_t length) {
  out.push_back(hostinput::kOpenSymbol);
  out.push_back(0);
  Append(out, SymbolRequest(kind, length));
}

void AppendGet(Bytes& out, std::uint8_t messageIndex, std::int32_t mode) {
  out.push_back(hostinput::kGet);
  out.push_back(messageIndex);
  out.push_back(hostinput::kLastOpened);
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = mode;
  request.firstTime = kFirstTime + 1;
  request.lastTime = kFirstTime + 2;
  request.count = kGetCount;
  Append(out, request);
}

void AppendInsert(Bytes& out, std::uint8_t messageIndex, unsigned int recordSize) {
  out.push_back(hostinput::kInsert);
  out.push_back(messageIndex);
  out.push_back(hostinput::kLastOpened);
  INSERT_SYMBOL_DATA_REQUEST request{};
  request.number = kInsertCount;
  Append(out, request);
  const Bytes records = Records(kInsertCount, recordSize, kFirstTime);
  out.insert(out.end(), records.begin(), records.end());
}

void AppendGameMode(Bytes& out, std::int32_t code) {
  out.push_back(hostinput::kEvent);
  out.push_back(1);
  INCOMING_EVENT_RECORD record{};
  record.eventCode = code;
  Append(out, record);
}

void AppendString(Bytes& out) {
  out.push_back(hostinput::kHostString);
  out.push_back(0);
  const std::u16string text = u"EUR/USD";
  coreUncStringType record{};
  record.length = std::uint32_t(text.size());
  record.charSize = sizeof(char16_t);
  Append(out, record);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  out.insert(out.end(), bytes, bytes + text.size() * sizeof(char16_t));
}

void WriteHostSeeds(std::filesystem::path const& out) {
  const std::filesystem::path folder = out / "fuzz_host_records";
  Bytes ticks;
  AppendOpen(ticks, 'I', 0);
  AppendInsert(ticks, 0, sizeof(TickDataPoint));
  AppendGet(ticks, 0, 0);
  AppendGet(ticks, 2, 1);
  WriteSeed(folder, "ticks", ticks);

  Bytes candles;
  AppendOpen(candles, 'D', 0);
  AppendInsert(candles, 1, sizeof(CCandleDataPoint));
  AppendGet(candles, 1, 2);
  WriteSeed(folder, "candles-posted", candles);

  Bytes gameMode;
  AppendGameMode(gameMode, kEventGameModeStarts);
  AppendOpen(gameMode, 'I', 5);
  AppendGet(gameMode, 0, 0);
  WriteSeed(folder, "game-mode", gameMode);

  Bytes text;
  AppendString(text);
  WriteSeed(folder, "host-string", text);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: fuzz_seed_writer OUT EXPORT_DIR\n");
    return 2;
  }
  const std::filesystem::path out = argv[1];
  WriteCjdSeeds(out);
  WriteExportSeeds(out, argv[2]);
  WriteIniSeeds(out);
  WriteHostSeeds(out);
  return 0;
}
