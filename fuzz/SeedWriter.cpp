// fuzz_seed_writer: makes the first corpus of every fuzz target in
// OUT/<target>/ with the project's own code: symbol files written by the
// storage library, the sample export directory that export_generator
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
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ExportDirectory.h"
#include "FileFormat.h"
#include "FuzzInputs.h"
#include "FuzzSupport.h"
#include "IniFile.h"
#include "Symbol.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int32_t kFirstTime = 1704164645;   // 2024-01-02T03:04:05Z
constexpr int kSeedRecords = 20;
constexpr int kExportSeedRecords = 16;            // data records kept of each sample data file
constexpr int kGetCount = 5;
constexpr std::int32_t kInvalidMode = 7;
constexpr std::uint8_t kInsertCount = 2;

class WritingOwner : public SymbolOwner {
 public:
  bool IsWriteEnabled() const override { return true; }
};

Bytes ReadFile(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

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

// Records of `recordSize` bytes, one a second from `first`, every value 1.25.
Bytes Records(int count, unsigned int recordSize, std::int32_t first) {
  Bytes out;
  for (int k = 0; k < count; ++k) {
    Append(out, std::int32_t(first + k));
    for (unsigned int at = cjd::kTimeSize; at < recordSize; at += sizeof(float)) Append(out, 1.25f);
  }
  return out;
}

// ---- fuzz_cjd_file

struct SymbolSeed {
  const char16_t* name;
  char kind;
  std::int32_t length;
  std::vector<const char*> views;
  int records;
  bool described;
};

Bytes WriteSymbolFile(SymbolSeed const& seed, std::string const& folder) {
  WritingOwner owner;
  SYMBOL_PERIOD period{seed.kind, seed.length, 0};
  char code[] = "SEED";
  const auto* name = reinterpret_cast<const unsigned short*>(seed.name);
  const auto* provider = reinterpret_cast<const unsigned short*>(u"Demo");
  CSymbol symbol(&owner, name, period, name, code, provider);
  for (const char* view : seed.views) symbol.InsertDataPointView(DATA_POINT_FLOAT, const_cast<char*>(view));
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
  symbol.Close();
  return ReadFile(path);
}

cjdinput::Trailer MakeTrailer(unsigned int recordSize) {
  cjdinput::Trailer trailer{};
  trailer.count = kGetCount;
  trailer.firstTime = kFirstTime + 3;
  trailer.lastTime = kFirstTime + 9;
  trailer.invalidMode = kInvalidMode;
  trailer.insertCount = kInsertCount;
  const Bytes inserted = Records(kInsertCount, recordSize, kFirstTime + 1);
  std::memcpy(trailer.insertBytes, inserted.data(), std::min(inserted.size(), cjdinput::kInsertBytes));
  return trailer;
}

// A journal that takes the file's last record for the first of two that an
// append was cut short writing.
void NoteCutAppend(Bytes const& file, unsigned int recordSize, cjdinput::Trailer& trailer) {
  const std::uint64_t before = file.size() - recordSize;
  Bytes appended(file.end() - recordSize, file.end());
  appended.resize(2 * std::size_t(recordSize), 0);
  const auto entry = cjd::EncodeAppendEntry(cjd::MakeAppendEntry(before, before, appended.data(), appended.size()));
  std::memcpy(trailer.journal, entry.data(), entry.size());
}

void WriteCjdSeeds(std::filesystem::path const& out) {
  const fuzzsupport::ScratchDir scratch("fuzz-seeds");
  const std::vector<const char*> ticks = {"Value", "Volume"};
  const std::vector<const char*> candles = {"Open", "High", "Low", "Close", "Volume"};
  const SymbolSeed seeds[] = {
      {u"EURUSD", 'I', 0, ticks, kSeedRecords, false},
      {u"GBPUSD", 'I', 15, candles, kSeedRecords, false},
      {u"USDJPY", 'D', 0, candles, kSeedRecords, true},
      {u"EUR/USD", 'W', 0, candles, 0, false},
  };
  int number = 0;
  for (SymbolSeed const& seed : seeds) {
    Bytes file = WriteSymbolFile(seed, scratch.path());
    const unsigned int recordSize = cjd::kTimeSize + sizeof(float) * unsigned(seed.views.size());
    cjdinput::Trailer trailer = MakeTrailer(recordSize);
    if (seed.records > 0) NoteCutAppend(file, recordSize, trailer);
    Append(file, trailer);
    WriteSeed(out / "fuzz_cjd_file", "symbol" + std::to_string(++number) + ".cjd", file);
  }
}

// ---- fuzz_export_dir: number A, number B, MASTER size, MASTER, size of A, A, B.

Bytes DataFileHead(std::filesystem::path const& exportDir, int number, int recordLength) {
  Bytes file = ReadFile(DataFilePath(QString::fromStdString(exportDir.string()), number).toStdString());
  file.resize(std::min(file.size(), std::size_t(recordLength) * (kExportSeedRecords + 1)));
  return file;
}

Bytes ExportSeed(std::filesystem::path const& exportDir, IndexEntry const& a, IndexEntry const& b) {
  const QString dir = QString::fromStdString(exportDir.string());
  const Bytes master = ReadFile(QDir(dir).filePath(QStringLiteral("master")).toStdString());
  const Bytes dataA = DataFileHead(exportDir, a.fileNumber(), a.recordLength());
  const Bytes dataB = DataFileHead(exportDir, b.fileNumber(), b.recordLength());
  Bytes out = {std::uint8_t(a.fileNumber()), std::uint8_t(b.fileNumber())};
  AppendU16(out, master.size());
  out.insert(out.end(), master.begin(), master.end());
  AppendU16(out, dataA.size());
  out.insert(out.end(), dataA.begin(), dataA.end());
  out.insert(out.end(), dataB.begin(), dataB.end());
  return out;
}

// Pairs a daily entry with an intraday one and ticks with a daily one.
void WriteExportSeeds(std::filesystem::path const& out, std::filesystem::path const& exportDir) {
  const std::vector<IndexEntry> entries = ReadMaster(QString::fromStdString(exportDir.string()));
  const QString periods[][2] = {{"D", "I  5"}, {"I  0", "D"}};
  int number = 0;
  for (auto const& [first, second] : periods) {
    auto find = [&entries](QString const& period) {
      return std::find_if(entries.begin(), entries.end(), [&](IndexEntry const& e) { return e.periodText() == period; });
    };
    if (find(first) == entries.end() || find(second) == entries.end()) std::abort();
    WriteSeed(out / "fuzz_export_dir", "sample" + std::to_string(++number), ExportSeed(exportDir, *find(first), *find(second)));
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
  const char* requests[][3] = {{"DATASTORE", "PathData", "/srv/data"}, {"DATASTORE", "EnableWrite", "0"}};
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
