// Encoding of MASTER and data files.

#include "ExportWriter.h"

#include <QFile>
#include <cstring>

#include "ExportDirectory.h"

namespace {

// Index record fields.
constexpr int kFileNumberOffset = 0;
constexpr int kRecordLengthOffset = 3;
constexpr int kFieldCountOffset = 4;
constexpr int kPeriodOffset = 33;
constexpr int kIntradaySizeOffset = 34;
constexpr int kSymbolOffset = 36;
static_assert(kSymbolOffset + kMasterSymbolSize == kMasterRecordSize);
constexpr char kSymbolPad = ' ';
constexpr unsigned kByteMask = 0xFF;

constexpr int kYearBase = 1900;
constexpr int kFirstPartScale = 10000;  // YYY of YYYMMDD, HH of HHMMSS
constexpr int kSecondPartScale = 100;   // MM of both

void PutInt16(QByteArray& bytes, int offset, int value) {
  bytes[offset] = static_cast<char>(value & kByteMask);
  bytes[offset + 1] = static_cast<char>((value >> 8) & kByteMask);
}

std::uint32_t MbfOfInteger(int value) { return MbfWord(static_cast<float>(value)); }

}  // namespace

QByteArray EncodeMasterHeader(int count) {
  QByteArray header(kMasterRecordSize, '\0');
  PutInt16(header, 0, count);
  return header;
}

QByteArray EncodeIndexRecord(ExportIndexRecord const& record) {
  QByteArray bytes(kMasterRecordSize, '\0');
  bytes[kFileNumberOffset] = static_cast<char>(record.fileNumber & kByteMask);
  bytes[kRecordLengthOffset] = static_cast<char>(record.recordLength & kByteMask);
  bytes[kFieldCountOffset] = static_cast<char>(record.fieldCount & kByteMask);
  bytes[kPeriodOffset] = record.period;
  PutInt16(bytes, kIntradaySizeOffset, record.intradaySize);
  const QByteArray symbol = record.symbol.left(kMasterSymbolSize).leftJustified(kMasterSymbolSize, kSymbolPad);
  bytes.replace(kSymbolOffset, kMasterSymbolSize, symbol);
  return bytes;
}

QByteArray EncodeMaster(std::vector<ExportIndexRecord> const& records) {
  QByteArray bytes = EncodeMasterHeader(static_cast<int>(records.size()));
  for (ExportIndexRecord const& record : records) bytes += EncodeIndexRecord(record);
  return bytes;
}

std::uint32_t MbfWord(float value) {
  float mbf = 0;
  if (fieee2msbin(&value, &mbf) != 0) return 0;
  std::uint32_t word;
  std::memcpy(&word, &mbf, sizeof word);
  return word;
}

std::uint32_t MbfDate(QDate const& date) {
  return MbfOfInteger((date.year() - kYearBase) * kFirstPartScale + date.month() * kSecondPartScale + date.day());
}

std::uint32_t MbfTime(QTime const& time) {
  return MbfOfInteger(time.hour() * kFirstPartScale + time.minute() * kSecondPartScale + time.second());
}

QByteArray EncodeDataRecord(int recordLength, std::vector<std::uint32_t> const& words) {
  QByteArray bytes(recordLength, '\0');
  for (std::size_t k = 0; k < words.size() && int(k + 1) * kMbfFieldSize <= recordLength; ++k) {
    for (int b = 0; b < kMbfFieldSize; ++b) {
      bytes[int(k) * kMbfFieldSize + b] = static_cast<char>((words[k] >> (8 * b)) & kByteMask);
    }
  }
  return bytes;
}

QByteArray EncodeDataFile(int recordLength, std::vector<std::vector<std::uint32_t>> const& rows) {
  QByteArray bytes(recordLength, '\0');
  bytes.reserve(qsizetype{recordLength} * qsizetype(rows.size() + 1));
  for (auto const& row : rows) bytes += EncodeDataRecord(recordLength, row);
  return bytes;
}

bool WriteFileBytes(QString const& path, QByteArray const& bytes) {
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
  return file.write(bytes) == bytes.size() && file.flush();
}
