// ExportWriter.h: writing export directories as other programs make them: a
// MASTER index of 53-byte records (file numbers 1 to 255), the EMASTER beside
// it with longer names, an XMASTER for file numbers from 256 on, and F<n>
// data files of records holding Microsoft Binary Format floats. The
// export_generator tool and the import tests build their directories with it.
//
// Everything is encoded byte by byte, little-endian; text is 8-bit, cut to
// its field and padded as the index file pads it. Fields no reader uses are
// zeros. Values are written as given, cut to their field's width: the
// encoders check nothing, so tests can write damaged files too.
// Thread-safety: pure functions.

#ifndef DATASTORE_TOOLS_EXPORTWRITER_H_
#define DATASTORE_TOOLS_EXPORTWRITER_H_

#include <QByteArray>
#include <QDate>
#include <QString>
#include <QTime>
#include <cstdint>
#include <optional>
#include <vector>

constexpr int kMasterRecordSize = 53;            // header and every MASTER record
constexpr int kMasterSymbolSize = 17;            // symbol bytes, padded with spaces
constexpr int kMasterShortNameSize = 16;         // the name's first bytes, padded with spaces
constexpr int kMasterMaxFileNumber = 255;        // MASTER and EMASTER file numbers are one byte
constexpr unsigned char kMasterFileType = 0xE0;  // byte 1 of every MASTER record
constexpr int kEmasterRecordSize = 192;          // header and every EMASTER record
constexpr int kEmasterSymbolSize = 14;           // zero padded
constexpr int kEmasterLongNameSize = 53;         // zero padded
constexpr int kXmasterRecordSize = 150;          // header and every XMASTER record
constexpr int kXmasterSymbolSize = 14;           // zero padded
constexpr int kXmasterNameSize = 45;             // zero padded
constexpr int kMbfFieldSize = 4;                 // one MBF float in a data record

// Bits of an index record's field set, one per field a data record holds.
// Records hold their fields in the order date, time, open, high, low, close,
// volume, open interest.
enum FieldBit : int {
  kDateBit = 1 << 0,
  kHighBit = 1 << 1,
  kLowBit = 1 << 2,
  kCloseBit = 1 << 3,
  kVolumeBit = 1 << 4,
  kOpenBit = 1 << 5,
  kOpenInterestBit = 1 << 6,
  kTimeBit = 1 << 7,
};

// The field set of the layouts export_generator writes: 'I' with 6 fields is
// date, time, high, low, close, volume; 7 adds the open, 8 the open
// interest. Any other period with 5 fields is date, high, low, close,
// volume; 6 adds the open, 7 the open interest. 0 for other counts.
int FieldBits(char period, int fieldCount);

// One instrument as the index files list it.
struct ExportIndexRecord {
  int fileNumber = 0;    // n of F<n>; one byte in MASTER and EMASTER, two in XMASTER
  int recordLength = 0;  // R, one byte
  int fieldCount = 0;    // four-byte fields per data record, one byte
  char period = 'D';     // 'D', 'W', 'M', 'Y', 'I', or anything else
  int intradaySize = 0;  // signed 16-bit; 0 with 'I' means ticks
  QByteArray symbol;     // cut to the index file's symbol field
  QByteArray name{};     // long name; MASTER holds its first 16 bytes
  QDate firstDate{};     // of the first data record; null: none
  QDate lastDate{};      // of the last data record; null: none
  int fieldBits = 0;     // 0: FieldBits(period, fieldCount)
};

// MASTER: the 53-byte header holds the signed 16-bit `count`, which may
// disagree with the records that follow, then zeros. A record holds the
// file type, its dates as MBF YYYMMDD (0 when null), its short name and
// symbol.
QByteArray EncodeMasterHeader(int count);
QByteArray EncodeIndexRecord(ExportIndexRecord const& record);
// The header with records.size() as its count, then every record.
QByteArray EncodeMaster(std::vector<ExportIndexRecord> const& records);

// EMASTER: the header holds the record count and the highest file number
// (one byte each); a record holds the field count and set, symbol, short and
// long name, period, size and the dates as IEEE floats of YYYYMMDD (floats
// round odd values from 2^24 on; readers skip these).
QByteArray EncodeEmasterHeader(int count, int highestFileNumber);
QByteArray EncodeEmasterRecord(ExportIndexRecord const& record);
QByteArray EncodeEmaster(std::vector<ExportIndexRecord> const& records);

// XMASTER: the header starts with its magic and holds the record count twice
// and the next free file number; a record holds its type, symbol, name,
// period, size, file number, field set and the dates as integers YYYYMMDD
// (0 when null).
QByteArray EncodeXmasterHeader(int count, int nextFileNumber);
QByteArray EncodeXmasterRecord(ExportIndexRecord const& record);
// The header's next free number is the highest record's plus one
// (kMasterMaxFileNumber + 1 without records).
QByteArray EncodeXmaster(std::vector<ExportIndexRecord> const& records);

// The MBF word of value, bit-exact; 0 for values MBF cannot hold.
std::uint32_t MbfWord(float value);
// YYYMMDD (year - 1900, then month and day) and HHMMSS as MBF words.
std::uint32_t MbfDate(QDate const& date);
std::uint32_t MbfTime(QTime const& time);

// One data record of R bytes: the words little-endian, those that do not fit
// into R dropped, the rest of the record zero.
QByteArray EncodeDataRecord(int recordLength, std::vector<std::uint32_t> const& words);

// How a data file departs from its rows.
struct DataFileShape {
  int zeroTailRecords = 0;           // zero-filled records of R bytes after the rows
  std::optional<int> headerCount{};  // written at offset 2 of the header; default rows + 1
};
// A header record of R bytes, zero but for the unsigned 16-bit count at
// offset 2 (low 16 bits; only when R >= 4), then one record per row, then
// the zero tail.
QByteArray EncodeDataFile(int recordLength, std::vector<std::vector<std::uint32_t>> const& rows,
                          DataFileShape const& shape = {});

// Writes bytes as the whole file at path; false on any failure.
bool WriteFileBytes(QString const& path, QByteArray const& bytes);

#endif  // DATASTORE_TOOLS_EXPORTWRITER_H_
