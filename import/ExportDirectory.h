// ExportDirectory.h: the data files of an export directory: Microsoft Binary
// Format floats, the dates and times they encode, and the records a data file
// really holds.
//
// Dates and times are taken as UTC and turned into seconds by arithmetic: the
// process's time zone plays no part.
// Guarantees: every count read from a data file is bounded by its size; a
// short or damaged file yields fewer records, never a read outside a buffer.
// Thread-safety: pure functions of their arguments and the files.

#ifndef DATASTORE_IMPORT_EXPORTDIRECTORY_H_
#define DATASTORE_IMPORT_EXPORTDIRECTORY_H_

#include <QFile>
#include <QString>
#include <chrono>
#include <cstdint>
#include <optional>

// MBF single <-> IEEE single, bit-exact for every normal IEEE single (MBF
// exponent bytes 3 to 255; the value of MBF word w is 1.m x 2^(E - 129)).
// Both return 0 when done and 1 when the value is out of range, leaving *dst
// untouched. fmsbin2ieee: exponent byte 0 is zero (+0.0); exponent bytes 1
// and 2 lie below the normal IEEE range (1). fieee2msbin: +0.0 and -0.0 give
// the zero word; denormals, 2^127 and above, infinities and NaNs give 1.
// REQUIRES: src and dst point to 4 readable / writable bytes.
int fmsbin2ieee(float* src, float* dst);
int fieee2msbin(float* src, float* dst);

// A date float YYMMDD / YYYMMDD (year part + 1900) given in MBF: a month
// outside 1-12 or a day outside 1-31 becomes 1. None when the word is 0 or
// out of MBF range, has fewer than six digits, does not fit an int, or names
// an impossible day (30 February).
std::optional<std::chrono::year_month_day> ExportDate(float mbf);
// A time float HHMMSS (leading zeros dropped) given in MBF, as seconds since
// midnight. One to six digits are read from the right as seconds, minutes and
// hours; seconds above 59 become 59; more than seven digits (or a value
// beyond an int) is midnight. None for exactly seven digits, hours above 23,
// minutes above 59 or a negative value.
std::optional<int> ExportTimeOfDay(float mbf);
// Seconds since 1970-01-01 00:00 UTC of the day and time; none when they do
// not fit 32 bits.
std::optional<std::int32_t> UtcSeconds(std::chrono::year_month_day const& day, int secondsOfDay);

// A data file: a header record of R bytes, whose u16 at offset 2 counts the
// records plus one, then records of R bytes. The records are min(the header's
// count, the whole records after the header); a count of 0 means the size.
// Files of more than 65,534 records keep the count modulo 2^16: of the counts
// that agree with it, the one nearest the file's size is read (CountedRecords).
class ExportDataFile {
 public:
  ExportDataFile() = default;
  ExportDataFile(const ExportDataFile&) = delete;
  ExportDataFile& operator=(const ExportDataFile&) = delete;

  // False when the file does not open for reading or R < 1.
  bool Open(QString const& path, int recordLength);
  qint64 records() const { return records_; }
  // Reads whole records first .. first + count - 1 into out; returns how
  // many were read whole. REQUIRES: out holds count * R bytes.
  qint64 Read(qint64 first, qint64 count, unsigned char* out);

 private:
  QFile file_;
  int recordLength_ = 0;  // R
  qint64 records_ = 0;    // data records to read
};

// The records of a data file that the header counts and the file holds.
qint64 CountedRecords(qint64 fileSize, int recordLength, int headerCount);

// "dd.MM.yy", and for 'I' " hh:mm:ss", of the first or the last counted
// record; empty when the file cannot be opened, holds no record, or the
// record's date (and time) does not decode.
QString getFirstTime(int recordLength, char period, QString const& dataFilePath);
QString getLastTime(int recordLength, char period, QString const& dataFilePath);

// What the import table shows of a data file: its counted records and the
// texts of the first and last one (as getFirstTime and getLastTime), the
// file opened once.
struct DataFileSpan {
  qint64 records = 0;  // 0 when the file does not open
  QString first;
  QString last;
};
DataFileSpan ReadDataFileSpan(QString const& path, int recordLength, char period);

#endif  // DATASTORE_IMPORT_EXPORTDIRECTORY_H_
