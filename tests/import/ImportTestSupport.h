// Helpers of the import tests: a pinned time zone, MBF words as floats, and
// export directories in temporary folders.

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
#include <optional>
#include <string>
#include <vector>

#include "ExportWriter.h"
#include "HostBoundary.h"

// Runs every test in "UTC" (or the zone a test pins) and restores the
// process's TZ afterwards.
class PinnedTimeZone : public ::testing::Test {
 protected:
  void SetUp() override { Pin("UTC"); }
  void TearDown() override {
    saved_ ? setenv("TZ", saved_->c_str(), 1) : unsetenv("TZ");
    tzset();
  }
  static void Pin(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

 private:
  const std::optional<std::string> saved_ =
      std::getenv("TZ") ? std::optional<std::string>(std::getenv("TZ")) : std::nullopt;
};

inline float AsFloat(std::uint32_t word) { return std::bit_cast<float>(word); }
inline std::uint32_t Bits(float value) { return std::bit_cast<std::uint32_t>(value); }

// The MBF word of a date or time float given as its integer, e.g. 991231,
// and the same word as the float the decoders take.
inline std::uint32_t MbfIntegerWord(int value) { return MbfWord(static_cast<float>(value)); }
inline float MbfInteger(int value) { return AsFloat(MbfIntegerWord(value)); }

// The UTF-16 name of a symbol record (an unaligned field, copied out first).
inline QString NameOf(SYMBOL_NAME_PERIOD const& request) {
  char16_t name[kHostWideNameUnits];
  std::memcpy(name, &request.name, sizeof name);
  return QString::fromUtf16(name, std::find(name, name + kHostWideNameUnits, u'\0') - name);
}

// An export directory in a temporary folder.
class ExportDir {
 public:
  QString path() const { return dir_.path(); }
  QString FilePath(QString const& name) const { return dir_.path() + QLatin1Char('/') + name; }

  void Write(QString const& name, QByteArray const& bytes) const {
    ASSERT_TRUE(WriteFileBytes(FilePath(name), bytes)) << name.toStdString();
  }
  void WriteMaster(std::vector<ExportIndexRecord> const& records, QString const& name = "MASTER") const {
    Write(name, EncodeMaster(records));
  }
  // F<n>.dat: a header record, then one record of R bytes per row.
  void WriteData(int number, int recordLength, std::vector<std::vector<std::uint32_t>> const& rows) const {
    Write(QStringLiteral("F%1.dat").arg(number), EncodeDataFile(recordLength, rows));
  }

 private:
  QTemporaryDir dir_;
};

#endif  // DATASTORE_TESTS_IMPORT_IMPORTTESTSUPPORT_H_
