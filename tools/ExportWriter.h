// ExportWriter.h: writing export directories as other programs make them: a
// MASTER index of 53-byte records and F<n> data files of records holding
// Microsoft Binary Format floats. The export_generator tool and the import
// tests build their directories with it.
//
// Everything is encoded byte by byte, little-endian; fields that the reader
// does not use are written as zeros.
// Thread-safety: pure functions.

#ifndef DATASTORE_TOOLS_EXPORTWRITER_H_
#define DATASTORE_TOOLS_EXPORTWRITER_H_

#include <QByteArray>
#include <QDate>
#include <QString>
#include <QTime>
#include <cstdint>
#include <vector>

constexpr int kMasterRecordSize = 53;     // header and every index record
constexpr int kMasterSymbolSize = 17;     // symbol bytes, padded with spaces
constexpr int kMbfFieldSize = 4;          // one MBF float in a data record

// One index record as it is written.
struct ExportIndexRecord {
  int fileNumber = 0;       // n of F<n>, one byte
  int recordLength = 0;     // R, one byte
  int fieldCount = 0;       // four-byte fields per data record, one byte
  char period = 'D';        // 'D', 'W', 'M', 'Y', 'I', or anything else
  int intradaySize = 0;     // signed 16-bit; 0 with 'I' means ticks
  QByteArray symbol;        // longer than 17 bytes is cut; shorter padded with spaces
};

// The 53-byte header: the signed 16-bit count, then zeros. `count` may
// disagree with the records that follow.
QByteArray EncodeMasterHeader(int count);
QByteArray EncodeIndexRecord(ExportIndexRecord const& record);
// The header with records.size() as its count, then every record.
QByteArray EncodeMaster(std::vector<ExportIndexRecord> const& records);

// The MBF word of value, bit-exact; 0 for values MBF cannot hold.
std::uint32_t MbfWord(float value);
// YYYMMDD (year - 1900, then month and day) and HHMMSS as MBF words.
std::uint32_t MbfDate(QDate const& date);
std::uint32_t MbfTime(QTime const& time);

// One data record of R bytes: the words little-endian, those that do not fit
// into R dropped, the rest of the record zero.
QByteArray EncodeDataRecord(int recordLength, std::vector<std::uint32_t> const& words);
// A header record of R zero bytes followed by one record per row.
QByteArray EncodeDataFile(int recordLength, std::vector<std::vector<std::uint32_t>> const& rows);

// Writes bytes as the whole file at path; false on any failure.
bool WriteFileBytes(QString const& path, QByteArray const& bytes);

#endif  // DATASTORE_TOOLS_EXPORTWRITER_H_
