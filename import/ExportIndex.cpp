// The index files of an export directory. All integers are little-endian;
// text fields are 8-bit, padded with spaces or zeros, and end at their first
// zero byte.
//
// MASTER: a 53-byte header whose first s16 is the record count N, then N
// records of 53 bytes:
//   0 file number u8 | 3 record length R u8 | 4 field count u8 |
//   33 period letter | 34 intraday size s16 | 36 symbol, 17 bytes
//
// EMASTER: records of 192 bytes; record 0 is a header whose byte 0 is the
// record count. Records 1..count:
//   2 file number (u8, or u16 by some writers; at most 255) |
//   11 symbol, 14 bytes | 32 short name, 16 bytes | 139 long name, 45 bytes
// It only lends long names to MASTER entries with the same file number and
// symbol, and is ignored when its count differs from MASTER's (stale).
//
// XMASTER: records of 150 bytes; record 0 is a header starting 5D FE 58 4D
// with the record count as u16 at 10. Records 1..count:
//   1 symbol, 14 or 15 bytes | 16 name, 45 bytes | 62 period letter |
//   63 intraday size u16 | 65 file number u16 | 70 field bit set
// The bit set names the fields of a data record (bit 0 date, 1 high, 2 low,
// 3 close, 4 volume, 5 open, 6 open interest, 7 time): four bytes each.

#include "ExportIndex.h"
#include "Period.h"

#include <QDir>
#include <QFile>
#include <bit>
#include <cstdint>
#include <cstring>

namespace {

constexpr char kMasterName[] = "MASTER";
constexpr char kEmasterName[] = "EMASTER";
constexpr char kXmasterName[] = "XMASTER";
constexpr char kMasterDataFormat[] = "F%d.dat";
constexpr char kXmasterDataFormat[] = "F%d.MWD";
constexpr char kIntradaySeparator[] = "  ";  // between 'I' and the size in a period text
constexpr int kFieldSize = 4;                // one MBF float of a data record

// MASTER record fields.
constexpr int kMasterFileNumber = 0;
constexpr int kMasterRecordLength = 3;
constexpr int kMasterFieldCount = 4;
constexpr int kMasterPeriod = 33;
constexpr int kMasterIntradaySize = 34;
constexpr int kMasterSymbol = 36;
static_assert(kMasterSymbol + kIndexSymbolSize == kIndexRecordSize);

// EMASTER.
constexpr int kEmasterRecordSize = 192;
constexpr int kEmasterCount = 0;
constexpr int kEmasterFileNumber = 2;
constexpr int kEmasterSymbol = 11;
constexpr int kEmasterSymbolSize = 14;
constexpr int kEmasterShortName = 32;
constexpr int kEmasterShortNameSize = 16;
constexpr int kEmasterLongName = 139;
constexpr int kEmasterLongNameSize = 45;
constexpr int kLargestMasterFileNumber = 255;

// XMASTER.
constexpr int kXmasterRecordSize = 150;
constexpr unsigned char kXmasterMagic[] = {0x5D, 0xFE, 0x58, 0x4D};
constexpr int kXmasterCount = 10;
constexpr int kXmasterSymbol = 1;
constexpr int kXmasterSymbolSize = 15;
constexpr int kXmasterNameField = 16;
constexpr int kXmasterNameSize = 45;
constexpr int kXmasterPeriod = 62;
constexpr int kXmasterIntradaySize = 63;
constexpr int kXmasterFileNumber = 65;
constexpr int kXmasterFieldBits = 70;

using Bytes = const unsigned char*;

int U8(Bytes record, int offset) { return record[offset]; }
int U16(Bytes record, int offset) { return record[offset] | (record[offset + 1] << 8); }
int S16(Bytes record, int offset) { return static_cast<std::int16_t>(U16(record, offset)); }

// The text of a field: up to its first zero byte, trailing spaces dropped.
QString FieldText(Bytes record, int offset, int size) {
  const auto* text = reinterpret_cast<const char*>(record + offset);
  QString value = QString::fromLatin1(
      text, static_cast<qsizetype>(strnlen(text, static_cast<std::size_t>(size))));
  while (value.endsWith(QLatin1Char(' '))) value.chop(1);
  return value;
}

// The whole file, or what of it could be read.
QByteArray ReadAll(QString const& path) {
  QFile file(path);
  if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) return {};
  return file.readAll();
}

QString DataFileName(IndexFile source, int fileNumber) {
  return QString::asprintf(source == IndexFile::kMaster ? kMasterDataFormat : kXmasterDataFormat,
                           fileNumber);
}

void FindDataFile(ExportFolder const& folder, IndexEntry& entry) {
  entry.dataFile = folder.Find(entry.dataFileName());
}

IndexEntry MasterEntry(Bytes record) {
  IndexEntry entry;
  entry.fileNumber = U8(record, kMasterFileNumber);
  entry.recordLength = U8(record, kMasterRecordLength);
  entry.fieldCount = U8(record, kMasterFieldCount);
  entry.periodLetter = static_cast<char>(record[kMasterPeriod]);
  entry.intradaySize = S16(record, kMasterIntradaySize);
  entry.symbol = FieldText(record, kMasterSymbol, kIndexSymbolSize).trimmed();
  return entry;
}

IndexEntry XmasterEntry(Bytes record) {
  IndexEntry entry;
  entry.source = IndexFile::kXmaster;
  entry.fileNumber = U16(record, kXmasterFileNumber);
  entry.fieldCount = std::popcount(static_cast<unsigned>(record[kXmasterFieldBits]));
  entry.recordLength = entry.fieldCount * kFieldSize;
  entry.periodLetter = static_cast<char>(record[kXmasterPeriod]);
  entry.intradaySize = U16(record, kXmasterIntradaySize);
  entry.symbol = FieldText(record, kXmasterSymbol, kXmasterSymbolSize).trimmed();
  entry.fullName = FieldText(record, kXmasterNameField, kXmasterNameSize).trimmed();
  return entry;
}

// The long name (else the short name) of an EMASTER record for the MASTER
// entry, when the record stands for it.
void LendLongName(Bytes record, IndexEntry& entry) {
  const int wide = U16(record, kEmasterFileNumber);
  const int fileNumber = wide <= kLargestMasterFileNumber ? wide : U8(record, kEmasterFileNumber);
  if (fileNumber != entry.fileNumber) return;
  if (FieldText(record, kEmasterSymbol, kEmasterSymbolSize).trimmed() != entry.symbol) return;
  QString name = FieldText(record, kEmasterLongName, kEmasterLongNameSize).trimmed();
  if (name.isEmpty()) name = FieldText(record, kEmasterShortName, kEmasterShortNameSize).trimmed();
  entry.fullName = name;
}

void AddLongNames(ExportFolder const& folder, std::vector<IndexEntry>& entries) {
  const QByteArray file = ReadAll(folder.Find(QString::fromLatin1(kEmasterName)));
  if (file.size() < kEmasterRecordSize) return;
  const auto* bytes = reinterpret_cast<Bytes>(file.constData());
  const std::size_t count = U8(bytes, kEmasterCount);
  if (count != entries.size()) return;
  const std::size_t held = static_cast<std::size_t>(file.size() / kEmasterRecordSize) - 1;
  for (std::size_t k = 0; k < count && k < held; ++k) {
    LendLongName(bytes + (k + 1) * kEmasterRecordSize, entries[k]);
  }
}

}  // namespace

QString IndexEntry::dataFileName() const { return DataFileName(source, fileNumber); }

QString IndexEntry::periodText() const {
  if (periodLetter == 0) return {};
  QString text(QLatin1Char{periodLetter});
  if (periodLetter == period::kIntraday)
    text += QLatin1String(kIntradaySeparator) + QString::number(intradaySize);
  return text;
}

ExportFolder::ExportFolder(QString dir) : dir_(std::move(dir)) {
  const QStringList names = QDir(dir_).entryList(QDir::Files | QDir::Hidden, QDir::Name);
  for (QString const& name : names) {
    names_.insert(name);
    const QString folded = name.toLower();
    if (!byFoldedName_.contains(folded)) byFoldedName_.insert(folded, name);
  }
}

QString ExportFolder::Find(QString const& name) const {
  if (names_.contains(name)) return dir_ + QLatin1Char('/') + name;
  const auto it = byFoldedName_.constFind(name.toLower());
  return it == byFoldedName_.cend() ? QString() : dir_ + QLatin1Char('/') + *it;
}

bool IndexExists(QString const& dir) {
  const ExportFolder folder(dir);
  return !folder.Find(QString::fromLatin1(kMasterName)).isEmpty() ||
         !folder.Find(QString::fromLatin1(kXmasterName)).isEmpty();
}

std::vector<IndexEntry> ReadMaster(ExportFolder const& folder) {
  const QByteArray file = ReadAll(folder.Find(QString::fromLatin1(kMasterName)));
  unsigned char header[kIndexRecordSize] = {};
  std::memcpy(header, file.constData(),
              static_cast<std::size_t>(std::min<qsizetype>(file.size(), kIndexRecordSize)));
  const int count = S16(header, 0);
  if (count < 1) return {};
  std::vector<IndexEntry> entries;
  entries.reserve(static_cast<std::size_t>(count));
  for (int k = 0; k < count; ++k) {
    unsigned char record[kIndexRecordSize] = {};  // what the file lacks stays zero
    const qsizetype start = qsizetype{k + 1} * kIndexRecordSize;
    const qsizetype held = std::clamp<qsizetype>(file.size() - start, 0, kIndexRecordSize);
    if (held > 0) std::memcpy(record, file.constData() + start, static_cast<std::size_t>(held));
    entries.push_back(MasterEntry(record));
    FindDataFile(folder, entries.back());
  }
  return entries;
}

std::vector<IndexEntry> ReadXmaster(ExportFolder const& folder) {
  const QByteArray file = ReadAll(folder.Find(QString::fromLatin1(kXmasterName)));
  if (file.size() < kXmasterRecordSize ||
      std::memcmp(file.constData(), kXmasterMagic, sizeof kXmasterMagic) != 0) {
    return {};
  }
  const auto* bytes = reinterpret_cast<Bytes>(file.constData());
  const int count = U16(bytes, kXmasterCount);
  const int held =
      static_cast<int>(std::min<qsizetype>(count, file.size() / kXmasterRecordSize - 1));
  std::vector<IndexEntry> entries;
  entries.reserve(static_cast<std::size_t>(held));
  for (int k = 0; k < held; ++k) {
    entries.push_back(XmasterEntry(bytes + std::size_t(k + 1) * kXmasterRecordSize));
    FindDataFile(folder, entries.back());
  }
  return entries;
}

std::vector<IndexEntry> ReadExportIndex(QString const& dir) {
  const ExportFolder folder(dir);
  std::vector<IndexEntry> entries = ReadMaster(folder);
  AddLongNames(folder, entries);
  std::vector<IndexEntry> extra = ReadXmaster(folder);
  entries.insert(entries.end(), std::make_move_iterator(extra.begin()),
                 std::make_move_iterator(extra.end()));
  return entries;
}
