#include "CjdFile.h"

#include <QString>
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "FileSystem.h"
#include "Period.h"

namespace {

constexpr std::size_t kScanChunkBytes = 1 << 20;  // records read at once by a scan
constexpr std::size_t kNumberText = 32;           // room for any number as text
constexpr const char* kViewTypeNames[] = {"char",  "short",  "int",   "int64",
                                          "float", "double", "string"};

// The tool names the file itself; the status says what went wrong with it.
std::string Reason(Status const& status) {
  return status.reason().empty() ? "cannot be read" : status.reason();
}

template <typename T>
T ReadValue(const unsigned char* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof(T));
  return value;
}

template <typename T>
std::string NumberText(T value) {
  char text[kNumberText];
  const auto [end, status] = std::to_chars(text, text + sizeof text, value);
  return std::string(text, end);
}

// Records a scan reads at once.
int ChunkRecords(std::size_t recordSize) {
  return static_cast<int>(std::max<std::size_t>(kScanChunkBytes / recordSize, 1));
}

}  // namespace

template <typename T>
std::string RealText(T value) {
  char text[kNumberText];
  const auto [end, status] =
      std::to_chars(text, text + sizeof text, value, std::chars_format::general);
  return std::string(text, end);
}
template std::string RealText(float value);
template std::string RealText(double value);

LoadedFile LoadFile(SymbolOwner* owner, std::string const& path) {
  LoadedFile loaded;
  auto symbol = std::make_unique<CSymbol>(owner, path.c_str());
  Status status;
  if (symbol->LoadProperties(&status) != 0) {
    loaded.error = Reason(status);
    return loaded;
  }
  status = symbol->Open();
  if (!status.ok()) {
    loaded.error = Reason(status);
    return loaded;
  }
  loaded.symbol = std::move(symbol);
  return loaded;
}

RecordExtent ExtentOf(CSymbol& symbol) {
  CSDTFile& file = *symbol.file();
  RecordExtent extent;
  extent.firstOffset = file.FirstRecordOffset();
  extent.recordSize = symbol.GetDataPointSize();
  extent.visibleSize = std::max<std::int64_t>(file.FileSize(), 0);
  extent.records = file.GetDataPointCount();
  const std::uint64_t wholeEnd =
      extent.firstOffset + std::uint64_t(extent.records) * extent.recordSize;
  const auto size = static_cast<std::uint64_t>(extent.visibleSize);
  extent.partialBytes = size > wholeEnd ? size - wholeEnd : 0;
  return extent;
}

RecordScan ScanRecordTimes(CSymbol& symbol, int records) {
  RecordScan scan;
  const std::size_t recordSize = symbol.GetDataPointSize();
  const int chunk = ChunkRecords(recordSize);
  std::vector<unsigned char> bytes;
  std::int32_t previous = 0;
  for (std::int64_t next = 0; next < records; next += chunk) {
    const int first = static_cast<int>(next);
    const int count = std::min(chunk, records - first);
    bytes.resize(std::size_t(count) * recordSize);
    const Status status = symbol.file()->ReadRecords(first, count, bytes.data());
    if (!status.ok()) {
      scan.readError = Reason(status);
      return scan;
    }
    for (int i = 0; i < count; ++i) {
      const auto time = ReadValue<std::int32_t>(bytes.data() + std::size_t(i) * recordSize);
      const int index = first + i;
      if (index > 0 && time <= previous) scan.problems.push_back({index, time, previous});
      previous = time;
    }
  }
  return scan;
}

int ZeroTimeTail(CSymbol& symbol, int records) {
  const std::size_t recordSize = symbol.GetDataPointSize();
  const int chunk = ChunkRecords(recordSize);
  std::vector<unsigned char> bytes;
  for (int end = records; end > 0;) {
    const int count = std::min(chunk, end);
    const int first = end - count;
    bytes.resize(std::size_t(count) * recordSize);
    if (!symbol.file()->ReadRecords(first, count, bytes.data()).ok()) return 0;
    for (int i = count - 1; i >= 0; --i) {
      if (ReadValue<std::int32_t>(bytes.data() + std::size_t(i) * recordSize) != 0)
        return records - (first + i + 1);
    }
    end = first;
  }
  return records;
}

std::optional<std::int32_t> RecordTimeAt(CSymbol& symbol, int index) {
  std::vector<unsigned char> record(symbol.GetDataPointSize());
  if (!symbol.file()->ReadRecords(index, 1, record.data()).ok()) return std::nullopt;
  return ReadValue<std::int32_t>(record.data());
}

std::int64_t DiskSize(std::string const& path) {
  std::unique_ptr<RandomAccessFile> file;
  std::uint64_t size = 0;
  if (!FileSystem::Default().Open(path, OpenMode::ReadOnly, &file).ok() || !file->Size(&size).ok())
    return -1;
  return static_cast<std::int64_t>(size);
}

Status CutFile(std::string const& path, std::uint64_t size) {
  std::unique_ptr<RandomAccessFile> file;
  Status status = FileSystem::Default().Open(path, OpenMode::ReadWrite, &file);
  if (status.ok()) status = file->Truncate(size);
  if (status.ok()) status = file->Sync();
  return status;
}

std::string KindText(char kind) {
  if ((kind >= 'A' && kind <= 'Z') || (kind >= 'a' && kind <= 'z')) return std::string(1, kind);
  char text[kNumberText];
  std::snprintf(text, sizeof text, "?(0x%02x)", static_cast<unsigned char>(kind));
  return text;
}

std::string PeriodText(SYMBOL_PERIOD const& period) {
  const std::string kind = KindText(period.kind);
  return period.kind == period::kIntraday ? kind + std::to_string(period.length) : kind;
}

std::string ViewTypeName(DATA_POINT_TYPES type) {
  const auto index = static_cast<std::size_t>(type);
  return index < std::size(kViewTypeNames) ? kViewTypeNames[index] : "?";
}

std::string ValueText(DATA_POINT_TYPES type, const unsigned char* value) {
  switch (type) {
    case DATA_POINT_CHAR: return NumberText(ReadValue<std::int8_t>(value));
    case DATA_POINT_SHORT: return NumberText(ReadValue<std::int16_t>(value));
    case DATA_POINT_INT: return NumberText(ReadValue<std::int32_t>(value));
    case DATA_POINT_INT64: return NumberText(ReadValue<std::int64_t>(value));
    case DATA_POINT_FLOAT: return RealText(ReadValue<float>(value));
    case DATA_POINT_DOUBLE: return RealText(ReadValue<double>(value));
    case DATA_POINT_STRING: {
      const char* text = reinterpret_cast<const char*>(value);
      return std::string(text, strnlen(text, CSymbol::GetViewSize(type)));
    }
  }
  return "?";
}

std::string Utf8(const char16_t* text) { return QString::fromUtf16(text).toStdString(); }
