// CjdTestFiles.h: scratch folders, raw data files written byte by byte from
// the format, random records, and symbols made new or opened on existing files.

#ifndef DATASTORE_TESTS_STORAGE_CJDTESTFILES_H_
#define DATASTORE_TESTS_STORAGE_CJDTESTFILES_H_

#include <gtest/gtest.h>

#include <QString>
#include <QTemporaryDir>
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "DataPoint.h"
#include "FileFormat.h"
#include "FileSystem.h"
#include "RecordMerge.h"
#include "Symbol.h"
#include "WriteAheadLog.h"

namespace cjdtest {

using Bytes = std::vector<unsigned char>;

// A temporary folder, removed with its contents.
struct ScratchDir {
  std::string File(std::string const& name) const {
    return dir.filePath(QString::fromStdString(name)).toStdString();
  }
  std::filesystem::path path() const { return dir.path().toStdString(); }
  QTemporaryDir dir;
};

inline Bytes ReadFileBytes(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes a new file (an existing one is removed first rather than emptied,
// which some file systems answer with a flush to disk).
inline void WriteFileBytes(std::string const& path, Bytes const& bytes) {
  std::filesystem::remove(path);
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

// Integers as the format stores them: little-endian, as wide as their type.
template <typename T>
void PutLittleEndian(Bytes& out, std::size_t offset, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i)
    out.at(offset + i) = static_cast<unsigned char>(static_cast<std::uint64_t>(value) >> (8 * i));
}

template <typename T>
void AppendLittleEndian(Bytes& out, T value) {
  out.resize(out.size() + sizeof(T));
  PutLittleEndian<T>(out, out.size() - sizeof(T), value);
}

// A text field: the length byte, then the text zero-filled to 255 bytes.
inline void AppendTextField(Bytes& out, std::string const& text) {
  out.push_back(static_cast<unsigned char>(text.size()));
  Bytes field(cjd::kTextBytes, 0);
  std::memcpy(field.data(), text.data(), std::min<std::size_t>(text.size(), cjd::kTextBytes));
  out.insert(out.end(), field.begin(), field.end());
}

struct View {
  std::uint8_t type;
  std::string name;
};

inline std::vector<View> DefaultViews(bool ticks) {
  std::vector<View> views;
  for (const char* name : ticks ? std::vector{"Value", "Volume"}
                                : std::vector{"Open", "High", "Low", "Close", "Volume"})
    views.push_back({DATA_POINT_FLOAT, name});
  return views;
}

// A header, written field by field from the format (not by the code under test).
struct HeaderFields {
  std::string fileType = cjd::kFileType;
  std::uint16_t version = cjd::kVersion;
  std::vector<std::pair<std::string, std::string>> descriptions;
  std::vector<View> views = DefaultViews(false);
  std::string name = "EURUSD";
  std::string title = "EURUSD";
  char kind = 'I';
  std::int32_t length = 15;
  std::string provider = "Demo";
  std::string code = "EURUSD";
  float pointSize = cjd::kDefaultPointSize;
  std::uint32_t extraD = 0;  // room added between the descriptions and H
  std::uint32_t extraH = 0;  // room added between the properties and the records

  std::uint32_t D() const {
    return cjd::DescriptionAreaOffset(static_cast<std::uint32_t>(descriptions.size())) + extraD;
  }
  std::uint32_t H() const {
    return cjd::HeaderSize(static_cast<std::uint32_t>(views.size())) + extraH;
  }
  unsigned int RecordSize() const {
    unsigned int size = cjd::kTimeSize;
    for (View const& view : views)
      size += CSymbol::GetViewSize(static_cast<DATA_POINT_TYPES>(view.type));
    return size;
  }

  std::size_t FirstRecord() const { return cjd::FirstRecordOffset(D(), H()); }

  // The header up to where the header writer stops (no reserved word).
  Bytes Header() const {
    Bytes out;
    AppendTextField(out, fileType);
    AppendLittleEndian<std::uint16_t>(out, version);
    AppendLittleEndian<std::uint32_t>(out, D());
    AppendLittleEndian<std::uint16_t>(out, static_cast<std::uint16_t>(descriptions.size()));
    for (auto const& [descriptionName, value] : descriptions) {
      AppendTextField(out, descriptionName);
      AppendTextField(out, value);
    }
    out.resize(D() + cjd::kHeaderSizeFieldBase, 0);
    AppendLittleEndian<std::uint32_t>(out, H());
    AppendLittleEndian<std::uint8_t>(out, static_cast<std::uint8_t>(views.size()));
    for (View const& view : views) {
      out.push_back(view.type);
      AppendTextField(out, view.name);
    }
    AppendTextField(out, name);
    AppendTextField(out, title);
    out.push_back(static_cast<unsigned char>(kind));
    AppendLittleEndian<std::int32_t>(out, length);
    AppendTextField(out, provider);
    AppendTextField(out, code);
    AppendLittleEndian(out, std::bit_cast<std::uint32_t>(pointSize));
    return out;
  }

  // The header padded with zeros to the first record, then the records.
  Bytes File(Bytes const& records) const {
    Bytes out = Header();
    out.resize(FirstRecord(), 0);
    out.insert(out.end(), records.begin(), records.end());
    return out;
  }
};

inline HeaderFields TickFields() {
  HeaderFields fields;
  fields.views = DefaultViews(true);
  fields.length = 0;
  return fields;
}

// Records of these times, each followed by random value bytes.
inline Bytes MakeRecords(std::vector<std::int32_t> const& times, unsigned int recordSize,
                         std::mt19937& rng) {
  Bytes out;
  for (std::int32_t time : times) {
    AppendLittleEndian<std::int32_t>(out, time);
    for (unsigned int i = cjd::kTimeSize; i < recordSize; ++i)
      out.push_back(static_cast<unsigned char>(rng()));
  }
  return out;
}

// `count` times `step` apart from `first`.
inline std::vector<std::int32_t> TimesFrom(std::int32_t first, int count, std::int32_t step) {
  std::vector<std::int32_t> times;
  for (int i = 0; i < count; ++i) times.push_back(first + i * step);
  return times;
}

inline std::vector<std::int32_t> TimesOf(Bytes const& records, unsigned int recordSize) {
  std::vector<std::int32_t> times;
  for (std::size_t at = 0; at + recordSize <= records.size(); at += recordSize)
    times.push_back(RecordTime(&records[at]));
  return times;
}

inline bool TimesAscend(Bytes const& records, unsigned int recordSize) {
  const std::vector<std::int32_t> times = TimesOf(records, recordSize);
  return std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()) == times.end();
}

inline Bytes Concatenated(Bytes first, Bytes const& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Records with distinct times after inserting a batch one record at a time:
// a batch record replaces the stored record of its time, later batch records
// win over earlier ones.
inline Bytes MergeByTime(Bytes const& stored, Bytes const& batch, unsigned int recordSize) {
  std::map<std::int32_t, Bytes> byTime;
  const Bytes all = Concatenated(stored, batch);
  for (std::size_t at = 0; at + recordSize <= all.size(); at += recordSize)
    byTime[RecordTime(&all[at])] =
        Bytes(all.begin() + long(at), all.begin() + long(at + recordSize));
  Bytes out;
  for (auto const& [time, record] : byTime) out.insert(out.end(), record.begin(), record.end());
  return out;
}

// Equal record bytes, or the counts and the first record that differs.
inline ::testing::AssertionResult SameRecords(Bytes const& actual, Bytes const& expected,
                                              unsigned int recordSize) {
  if (actual == expected) return ::testing::AssertionSuccess();
  const auto differ = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
  return ::testing::AssertionFailure()
         << actual.size() / recordSize << " records where " << expected.size() / recordSize
         << " were expected; record " << (differ.first - actual.begin()) / recordSize << " differs";
}

// An owner as the data store is one: files change through `log` when given.
struct TestOwner : SymbolOwner {
  explicit TestOwner(bool writeEnabled = true, FileSystem* fileSystem = nullptr,
                     WriteAheadLog* log = nullptr)
      : writeEnabled(writeEnabled), fileSystem(fileSystem), log(log) {}
  bool IsWriteEnabled() const override { return writeEnabled; }
  FileSystem& GetFileSystem() const override {
    return fileSystem != nullptr ? *fileSystem : FileSystem::Default();
  }
  WriteAheadLog* GetWriteLog() const override { return log; }
  bool writeEnabled;
  FileSystem* fileSystem;
  WriteAheadLog* log;
};

// The write-ahead log of `folder`, recovered and ready.
inline std::unique_ptr<WriteAheadLog> OpenLog(std::string const& folder,
                                              FileSystem* fileSystem = nullptr,
                                              DurabilitySettings settings = {}) {
  std::unique_ptr<WriteAheadLog> log;
  const Status status = WriteAheadLog::Open(
      fileSystem != nullptr ? *fileSystem : FileSystem::Default(), folder, settings, &log);
  EXPECT_TRUE(status.ok()) << status.ToString();
  return log;
}

// A symbol on an existing file, header loaded and file opened; null when the
// header is refused.
inline std::unique_ptr<CSymbol> OpenSymbol(SymbolOwner& owner, std::string const& path) {
  auto symbol = std::make_unique<CSymbol>(&owner, path.c_str());
  if (symbol->LoadProperties() != 0) return nullptr;
  symbol->Open();
  return symbol;
}

inline GET_SYMBOL_DATA_REQUEST MakeRequest(int mode, int count, void* buffer, int firstTime = 0,
                                           int lastTime = 0) {
  // handle, mode, first and last time, count, buffer, no completion
  return {0, mode, firstTime, lastTime, count, reinterpret_cast<HostWord>(buffer), 0, 0};
}

// Every whole record of the symbol, read through GetData (oldest first).
inline Bytes AllRecords(CSymbol& symbol) {
  const int total = symbol.GetDataPointCount();
  Bytes out(static_cast<std::size_t>(total) * symbol.GetDataPointSize());
  if (total == 0) return out;
  GET_SYMBOL_DATA_REQUEST request = MakeRequest(kGetOldest, total, out.data());
  if (symbol.GetData(&request) != 1 || request.count != total) return {};
  return out;
}

// The records as a fresh symbol reads them from the file. Empty when the
// header is refused.
inline Bytes RecordsOf(std::string const& path, bool writeEnabled = true) {
  TestOwner owner(writeEnabled);
  std::unique_ptr<CSymbol> symbol = OpenSymbol(owner, path);
  return symbol != nullptr ? AllRecords(*symbol) : Bytes{};
}

// A symbol made as the store makes one from a request: name, period, code,
// provider, and the default views of its period.
inline std::unique_ptr<CSymbol> MakeSymbol(SymbolOwner* owner, const char* name,
                                           SYMBOL_PERIOD period, const char* code = "EURUSD",
                                           const char* provider = "Demo") {
  const std::u16string wideName = QString::fromLatin1(name).toStdU16String();
  const std::u16string wideProvider = QString::fromLatin1(provider).toStdU16String();
  const auto* wide = reinterpret_cast<const unsigned short*>(wideName.c_str());
  std::string codeText = code;
  auto symbol =
      std::make_unique<CSymbol>(owner, wide, period, wide, codeText.data(),
                                reinterpret_cast<const unsigned short*>(wideProvider.c_str()));
  for (View view : DefaultViews(period.kind == 'I' && period.length == 0))
    symbol->InsertDataPointView(static_cast<DATA_POINT_TYPES>(view.type), view.name.data());
  return symbol;
}

inline CCandleDataPoint Candle(std::int32_t time, float close = 1.0f) {
  CCandleDataPoint point;
  point.time = time;
  point.open = close - 1;
  point.high = close + 1;
  point.low = close - 2;
  point.close = close;
  point.volume = 10;
  return point;
}

}  // namespace cjdtest

#endif  // DATASTORE_TESTS_STORAGE_CJDTESTFILES_H_
