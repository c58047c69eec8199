// ExportDirectory.h: reading an export directory made by another program: the
// MASTER index, the F<n>.dat data files of Microsoft Binary Format floats, and
// the conversion of one instrument's data file into the store's points.
//
// Guarantees: every count and length read from MASTER or a data file is checked
// before use; a short or damaged file yields fewer (or no) entries or points,
// never a read or write outside a buffer. Files are found under their exact
// name first and case-insensitively in the same directory otherwise
// ("master", "F12.DAT").
// Thread-safety: pure functions of their arguments and the files.

#ifndef DATASTORE_IMPORT_EXPORTDIRECTORY_H_
#define DATASTORE_IMPORT_EXPORTDIRECTORY_H_

#include <QDate>
#include <QString>
#include <QTime>
#include <cstdint>
#include <functional>
#include <vector>

#include "HostBoundary.h"

constexpr int kIndexRecordSize = 53;                 // one MASTER record
constexpr int kIndexEntrySize = kIndexRecordSize + 1;  // in memory: a zero byte, then the record
constexpr int kIndexSymbolSize = 17;                 // symbol bytes of a record

// MBF single <-> IEEE single, bit-exact for every normal IEEE single (MBF
// exponent bytes 3 to 255; the value of MBF word w is 1.m x 2^(E - 129)).
// Both return 0 when done and 1 when the value is out of range, leaving *dst
// untouched. fmsbin2ieee: exponent byte 0 is zero (+0.0); exponent bytes 1
// and 2 lie below the normal IEEE range (1). fieee2msbin: +0.0 and -0.0 give
// the zero word; denormals, 2^127 and above, infinities and NaNs give 1.
// REQUIRES: src and dst point to 4 readable / writable bytes.
int fmsbin2ieee(float* src, float* dst);
int fieee2msbin(float* src, float* dst);

// One MASTER entry: a zero byte followed by the 53 record bytes.
struct IndexEntry {
  unsigned char bytes[kIndexEntrySize];  // bytes[0] is 0; the record follows

  int fileNumber() const;                // n of F<n>.dat, 0 to 255
  int recordLength() const;              // R, bytes per data record, 0 to 255
  int fieldCount() const;                // four-byte fields per data record, 0 to 255
  char periodLetter() const;             // 'D', 'W', 'M', 'Y', 'I', or other
  int intradaySize() const;              // signed 16-bit, for 'I'
  QString symbol() const;                // up to the first zero byte, at most 17 characters
  QString periodText() const;            // the letter, for 'I' followed by two spaces and the size
};

// The entries of dir's MASTER (found case-insensitively); empty when there is
// none, when its count is below 1, or when it cannot be read. A short file
// yields zero-filled entries for the records it lacks (a record cut short
// keeps the bytes it has).
bool MasterExists(QString const& dir);
// Whether the directory's MASTER opens for reading.
bool MasterOpens(QString const& dir);
std::vector<IndexEntry> ReadMaster(QString const& dir);

// The index of the first entry whose symbol() and periodText() equal the
// texts (how an import table row finds its entry), or -1.
int FindIndexEntry(std::vector<IndexEntry> const& entries, QString const& symbol, QString const& periodText);

// dir + "/F" + n + ".dat", or the name of an existing file that matches it
// case-insensitively in dir (the first in name order when several do).
QString DataFilePath(QString const& dir, int fileNumber);

// Decode a date float YYMMDD / YYYMMDD (year part + 1900) given in MBF. A
// value of 0 (or a word out of range) is today, ok untouched; fewer than six
// digits is today with ok true; a month outside 1-12 or a day outside 1-31
// becomes 1; an impossible date (30 February) is invalid with ok true; a value
// that does not fit an int is invalid with ok false.
QDate converIeeeToDate(float mbf, bool& ok);
// Decode a time float HHMMSS (leading zeros dropped) given in MBF. One to six
// digits are read from the right as seconds, minutes and hours; seconds above
// 59 become 59; more than seven digits (or a value beyond an int) is
// midnight. Exactly seven digits, hours above 23, minutes above 59 or a
// negative value give the null time with ok false; otherwise ok is untouched.
QTime converIeeeToTime(float mbf, bool& ok);
// "dd.MM.yy", and for 'I' " hh:mm:ss", of the first data record (at offset R)
// or of the last one (at file size - R); empty when the file cannot be
// opened, R < 1, the position is inside the header record, or the date (and
// time) bytes cannot be read whole.
QString getFirstTime(int recordLength, char period, QString const& dataFilePath);
QString getLastTime(int recordLength, char period, QString const& dataFilePath);

// One instrument converted for the store.
struct ConvertedInstrument {
  SYMBOL_NAME_PERIOD request{};          // what to open the symbol with
  std::vector<unsigned char> points;     // pointCount records in the symbol's layout
  int pointCount = 0;                    // records in points
  unsigned int pointSize = 0;            // 24 for candles, 12 for ticks (intraday size 0)
};

// Reports the bytes of the data file read so far (header record included);
// called at most every ~50 ms while reading and once when the file is read.
using ConversionProgress = std::function<void(std::int64_t bytesRead)>;

// Converts the data file of entry `fileEntry` (file number and R) with the
// field count, letter, size and symbol of `matchedEntry` (the name cut at its
// first space), with price type `priceType` ("Bid", "Ask", "Last", "Proc").
//
// Every field of every point is written: without an open field open = close;
// a field the map names that lies beyond R, or a price out of MBF range, is
// 0; field counts without a map store the time and zeros. The time is the
// seconds from 1970-01-01 00:00 local to the record's date (and time) local;
// an invalid date, a local time that does not exist, or a time outside 32
// bits stores 0. An intraday entry of size 0 gives 12-byte ticks (time,
// close, volume), every other entry 24-byte candles.
//
// False (out reset) when the row is skipped: R = 0, a letter other than D, W,
// M, Y, I, no data file, a file not larger than R, more points than an int
// holds, memory exhausted, or no whole data record read. A file that shrinks
// while it is read keeps the points read before.
bool ConvertInstrument(QString const& dir, IndexEntry const& fileEntry, IndexEntry const& matchedEntry,
                       QString const& priceType, ConvertedInstrument& out,
                       ConversionProgress const& progress = {});

#endif  // DATASTORE_IMPORT_EXPORTDIRECTORY_H_
