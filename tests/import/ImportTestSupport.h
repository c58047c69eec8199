// Helpers of the import tests: a pinned time zone, MBF words as floats, host
// name fields as text, and export directories in temporary folders.

#ifndef DATASTORE_TESTS_IMPORT_IMPORTTESTSUPPORT_H_
#define DATASTORE_TESTS_IMPORT_IMPORTTESTSUPPORT_H_

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "ExportWriter.h"
#include "HostBoundary.h"

// Runs a test in "UTC", or in the zone it pins. Only the tests of time
// conversions depend on the zone.
class PinnedTimeZone : public ::testing::Test {
 protected:
  void SetUp() override { Pin("UTC"); }
  static void Pin(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
};

inline void PrintTo(QString const& text, std::ostream* out) {
  *out << '"' << text.toStdString() << '"';
}

inline float AsFloat(std::uint32_t word) { return std::bit_cast<float>(word); }
inline std::uint32_t Bits(float value) { return std::bit_cast<std::uint32_t>(value); }

// The MBF word of a date or time given as its integer (e.g. 991231) as the
// float the decoders take.
inline float MbfInteger(int value) { return AsFloat(MbfWord(static_cast<float>(value))); }

// The text of a UTF-16 host name field, copied out first: packed records
// leave it unaligned.
inline QString WideText(const void* field) {
  return QString::fromStdU16String(hostfield::WideText(field));
}

// The data file with the u16 at offset 2 of its header record set to count.
inline QByteArray WithHeaderCount(QByteArray file, int count) {
  file[2] = char(count & 0xFF);
  file[3] = char(count >> 8);
  return file;
}

// An export directory in a temporary folder.
class ExportDir {
 public:
  QString path() const { return dir_.path(); }
  QString FilePath(QString const& name) const { return dir_.path() + QLatin1Char('/') + name; }

  void Write(QString const& name, QByteArray const& bytes) const {
    ASSERT_TRUE(WriteFileBytes(FilePath(name), bytes)) << name.toStdString();
  }
  void WriteMaster(std::vector<ExportIndexRecord> const& records,
                   QString const& name = "MASTER") const {
    Write(name, EncodeMaster(records));
  }
  // F<n>.dat: a header record, then one record of R bytes per row.
  void WriteData(int number, int recordLength,
                 std::vector<std::vector<std::uint32_t>> const& rows) const {
    Write(QStringLiteral("F%1.dat").arg(number), EncodeDataFile(recordLength, rows));
  }

 private:
  QTemporaryDir dir_;
};

#endif  // DATASTORE_TESTS_IMPORT_IMPORTTESTSUPPORT_H_
