// Encoding of MASTER, EMASTER, XMASTER and data files.

#include "ExportWriter.h"

#include <QFile>
#include <algorithm>
#include <cstring>

#include "ExportDirectory.h"
#include "Period.h"

namespace {

// MASTER record fields.
constexpr int kFileNumberOffset = 0;
constexpr int kFileTypeOffset = 1;
constexpr int kRecordLengthOffset = 3;
constexpr int kFieldCountOffset = 4;
constexpr int kShortNameOffset = 7;
constexpr int kFirstDateOffset = 25;
constexpr int kLastDateOffset = 29;
constexpr int kPeriodOffset = 33;
constexpr int kIntradaySizeOffset = 34;
constexpr int kSymbolOffset = 36;
static_assert(kSymbolOffset + kMasterSymbolSize == kMasterRecordSize);
constexpr char kSpacePad = ' ';

// EMASTER header and record fields.
constexpr int kEmasterCountOffset = 0;
constexpr int kEmasterHighestOffset = 2;
constexpr int kEmasterFileNumberOffset = 2;
constexpr int kEmasterFieldCountOffset = 6;
constexpr int kEmasterFieldBitsOffset = 7;
constexpr int kEmasterSymbolOffset = 11;
constexpr int kEmasterShortNameOffset = 32;
constexpr int kEmasterPeriodOffset = 60;
constexpr int kEmasterIntradaySizeOffset = 62;
constexpr int kEmasterFirstDateOffset = 64;
constexpr int kEmasterLastDateOffset = 72;
constexpr int kEmasterLongNameOffset = 139;
static_assert(kEmasterLongNameOffset + kEmasterLongNameSize == kEmasterRecordSize);

// XMASTER header and record fields.
constexpr char kXmasterMagic[] = "\x5D\xFE\x58\x4D";
constexpr int kXmasterCountOffset = 10;
constexpr int kXmasterCountCopyOffset = 14;
constexpr int kXmasterNextNumberOffset = 18;
constexpr int kXmasterTypeOffset = 0;
constexpr char kXmasterInstrumentType = 0x01;
constexpr int kXmasterSymbolOffset = 1;
constexpr int kXmasterNameOffset = 16;
constexpr int kXmasterPeriodOffset = 62;
constexpr int kXmasterIntradaySizeOffset = 63;
constexpr int kXmasterFileNumberOffset = 65;
constexpr int kXmasterFieldBitsOffset = 70;
constexpr int kXmasterFirstDateOffset = 108;
constexpr int kXmasterLastDateOffset = 116;

// Data file header.
constexpr int kDataCountOffset = 2;
constexpr int kDataCountEnd = kDataCountOffset + 2;  // the shortest R that holds the count

constexpr unsigned kByteMask = 0xFF;
constexpr int kYearBase = 1900;
constexpr int kYearScale = 10000;       // YYYY of YYYYMMDD
constexpr int kFirstPartScale = 10000;  // YYY of YYYMMDD, HH of HHMMSS
constexpr int kSecondPartScale = 100;   // MM of all three

// Layouts by their fewest fields; each further field adds the next extra.
constexpr int kBarFields = kDateBit | kHighBit | kLowBit | kCloseBit | kVolumeBit;
constexpr int kIntradayBarFields = kBarFields | kTimeBit;
constexpr int kMinDailyFields = 5;
constexpr int kMinIntradayFields = 6;
constexpr int kExtraFields[] = {kOpenBit, kOpenInterestBit};

void PutByte(QByteArray& bytes, int offset, int value) {
  bytes[offset] = static_cast<char>(value & kByteMask);
}

void PutInt16(QByteArray& bytes, int offset, int value) {
  PutByte(bytes, offset, value);
  PutByte(bytes, offset + 1, value >> 8);
}

void PutWord(QByteArray& bytes, int offset, std::uint32_t word) {
  for (int b = 0; b < int(sizeof word); ++b)
    PutByte(bytes, offset + b, static_cast<int>(word >> (8 * b)));
}

// Text cut to size bytes and padded with pad.
void PutText(QByteArray& bytes, int offset, int size, QByteArray const& text, char pad) {
  bytes.replace(offset, size, text.left(size).leftJustified(size, pad));
}

std::uint32_t MbfOfInteger(int value) { return MbfWord(static_cast<float>(value)); }

int LongDate(QDate const& date) {
  return date.isNull() ? 0
                       : date.year() * kYearScale + date.month() * kSecondPartScale + date.day();
}

std::uint32_t IeeeLongDate(QDate const& date) {
  const float value = static_cast<float>(LongDate(date));
  std::uint32_t word;
  std::memcpy(&word, &value, sizeof word);
  return word;
}

int BitsOf(ExportIndexRecord const& record) {
  return record.fieldBits != 0 ? record.fieldBits : FieldBits(record.period, record.fieldCount);
}

}  // namespace

int FieldBits(char period, int fieldCount) {
  const bool intraday = period == period::kIntraday;
  const int extras = fieldCount - (intraday ? kMinIntradayFields : kMinDailyFields);
  if (extras < 0 || extras > int(std::size(kExtraFields))) return 0;
  int bits = intraday ? kIntradayBarFields : kBarFields;
  for (int k = 0; k < extras; ++k) bits |= kExtraFields[k];
  return bits;
}

QByteArray EncodeMasterHeader(int count) {
  QByteArray header(kMasterRecordSize, '\0');
  PutInt16(header, 0, count);
  return header;
}

QByteArray EncodeIndexRecord(ExportIndexRecord const& record) {
  QByteArray bytes(kMasterRecordSize, '\0');
  PutByte(bytes, kFileNumberOffset, record.fileNumber);
  PutByte(bytes, kFileTypeOffset, kMasterFileType);
  PutByte(bytes, kRecordLengthOffset, record.recordLength);
  PutByte(bytes, kFieldCountOffset, record.fieldCount);
  PutText(bytes, kShortNameOffset, kMasterShortNameSize, record.name, kSpacePad);
  PutWord(bytes, kFirstDateOffset, record.firstDate.isNull() ? 0 : MbfDate(record.firstDate));
  PutWord(bytes, kLastDateOffset, record.lastDate.isNull() ? 0 : MbfDate(record.lastDate));
  bytes[kPeriodOffset] = record.period;
  PutInt16(bytes, kIntradaySizeOffset, record.intradaySize);
  PutText(bytes, kSymbolOffset, kMasterSymbolSize, record.symbol, kSpacePad);
  return bytes;
}

QByteArray EncodeMaster(std::vector<ExportIndexRecord> const& records) {
  QByteArray bytes = EncodeMasterHeader(static_cast<int>(records.size()));
  for (ExportIndexRecord const& record : records) bytes += EncodeIndexRecord(record);
  return bytes;
}

QByteArray EncodeEmasterHeader(int count, int highestFileNumber) {
  QByteArray header(kEmasterRecordSize, '\0');
  PutByte(header, kEmasterCountOffset, count);
  PutByte(header, kEmasterHighestOffset, highestFileNumber);
  return header;
}

QByteArray EncodeEmasterRecord(ExportIndexRecord const& record) {
  QByteArray bytes(kEmasterRecordSize, '\0');
  PutByte(bytes, kEmasterFileNumberOffset, record.fileNumber);
  PutByte(bytes, kEmasterFieldCountOffset, record.fieldCount);
  PutByte(bytes, kEmasterFieldBitsOffset, BitsOf(record));
  PutText(bytes, kEmasterSymbolOffset, kEmasterSymbolSize, record.symbol, '\0');
  PutText(bytes, kEmasterShortNameOffset, kMasterShortNameSize, record.name, '\0');
  bytes[kEmasterPeriodOffset] = record.period;
  PutInt16(bytes, kEmasterIntradaySizeOffset, record.intradaySize);
  PutWord(bytes, kEmasterFirstDateOffset, IeeeLongDate(record.firstDate));
  PutWord(bytes, kEmasterLastDateOffset, IeeeLongDate(record.lastDate));
  PutText(bytes, kEmasterLongNameOffset, kEmasterLongNameSize, record.name, '\0');
  return bytes;
}

QByteArray EncodeEmaster(std::vector<ExportIndexRecord> const& records) {
  int highest = 0;
  for (ExportIndexRecord const& record : records) highest = std::max(highest, record.fileNumber);
  QByteArray bytes = EncodeEmasterHeader(static_cast<int>(records.size()), highest);
  for (ExportIndexRecord const& record : records) bytes += EncodeEmasterRecord(record);
  return bytes;
}

QByteArray EncodeXmasterHeader(int count, int nextFileNumber) {
  QByteArray header(kXmasterRecordSize, '\0');
  header.replace(0, int(std::size(kXmasterMagic)) - 1, kXmasterMagic);
  PutInt16(header, kXmasterCountOffset, count);
  PutInt16(header, kXmasterCountCopyOffset, count);
  PutInt16(header, kXmasterNextNumberOffset, nextFileNumber);
  return header;
}

QByteArray EncodeXmasterRecord(ExportIndexRecord const& record) {
  QByteArray bytes(kXmasterRecordSize, '\0');
  bytes[kXmasterTypeOffset] = kXmasterInstrumentType;
  PutText(bytes, kXmasterSymbolOffset, kXmasterSymbolSize, record.symbol, '\0');
  PutText(bytes, kXmasterNameOffset, kXmasterNameSize, record.name, '\0');
  bytes[kXmasterPeriodOffset] = record.period;
  PutInt16(bytes, kXmasterIntradaySizeOffset, record.intradaySize);
  PutInt16(bytes, kXmasterFileNumberOffset, record.fileNumber);
  PutByte(bytes, kXmasterFieldBitsOffset, BitsOf(record));
  PutWord(bytes, kXmasterFirstDateOffset, static_cast<std::uint32_t>(LongDate(record.firstDate)));
  PutWord(bytes, kXmasterLastDateOffset, static_cast<std::uint32_t>(LongDate(record.lastDate)));
  return bytes;
}

QByteArray EncodeXmaster(std::vector<ExportIndexRecord> const& records) {
  int highest = kMasterMaxFileNumber;
  for (ExportIndexRecord const& record : records) highest = std::max(highest, record.fileNumber);
  QByteArray bytes = EncodeXmasterHeader(static_cast<int>(records.size()), highest + 1);
  for (ExportIndexRecord const& record : records) bytes += EncodeXmasterRecord(record);
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
  return MbfOfInteger((date.year() - kYearBase) * kFirstPartScale +
                      date.month() * kSecondPartScale + date.day());
}

std::uint32_t MbfTime(QTime const& time) {
  return MbfOfInteger(time.hour() * kFirstPartScale + time.minute() * kSecondPartScale +
                      time.second());
}

QByteArray EncodeDataRecord(int recordLength, std::vector<std::uint32_t> const& words) {
  QByteArray bytes(recordLength, '\0');
  for (std::size_t k = 0; k < words.size() && int(k + 1) * kMbfFieldSize <= recordLength; ++k) {
    PutWord(bytes, int(k) * kMbfFieldSize, words[k]);
  }
  return bytes;
}

QByteArray EncodeDataFile(int recordLength, std::vector<std::vector<std::uint32_t>> const& rows,
                          DataFileShape const& shape) {
  QByteArray bytes(recordLength, '\0');
  if (recordLength >= kDataCountEnd) {
    PutInt16(bytes, kDataCountOffset,
             shape.headerCount.value_or(static_cast<int>(rows.size()) + 1));
  }
  bytes.reserve(qsizetype{recordLength} * qsizetype(rows.size() + 1 + shape.zeroTailRecords));
  for (auto const& row : rows) bytes += EncodeDataRecord(recordLength, row);
  bytes += QByteArray(qsizetype{recordLength} * shape.zeroTailRecords, '\0');
  return bytes;
}

bool WriteFileBytes(QString const& path, QByteArray const& bytes) {
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
  return file.write(bytes) == bytes.size() && file.flush();
}
