// The export directory: finding its files, the MASTER index, date and time
// floats, and the first and last date of a data file.

#include "ExportDirectory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kMasterName[] = "MASTER";
constexpr char kDataNameFormat[] = "F%d.dat";  // dir + "/F" + n + ".dat"

// Index record fields, as offsets into an entry (the record starts at 1).
constexpr int kRecordStart = 1;
constexpr int kFileNumberOffset = kRecordStart + 0;
constexpr int kRecordLengthOffset = kRecordStart + 3;
constexpr int kFieldCountOffset = kRecordStart + 4;
constexpr int kPeriodOffset = kRecordStart + 33;
constexpr int kIntradaySizeOffset = kRecordStart + 34;
constexpr int kSymbolOffset = kRecordStart + 36;
static_assert(kSymbolOffset + kIndexSymbolSize == kIndexEntrySize);

constexpr char kIntraday = 'I';
constexpr char kIntradaySeparator[] = "  ";  // between 'I' and the size in a period text

// Date and time floats.
constexpr int kIntText = 16;                 // "%d" of any int, with its terminator
constexpr int kShortDateDigits = 6;          // YYMMDD; fewer is today
constexpr int kLongDateYearDigits = 3;       // YYYMMDD
constexpr int kShortDateYearDigits = 2;
constexpr int kDatePartDigits = 2;           // month, day
constexpr int kYearBase = 1900;
constexpr int kTimePartDigits = 2;           // SS, MM; the hours take the rest
constexpr int kInvalidTimeDigits = 7;        // neither HHMMSS nor a midnight fallback
constexpr int kLastHour = 23;
constexpr int kLastMinute = 59;
constexpr int kLastSecond = 59;
constexpr int kLastMonth = 12;
constexpr int kLastDay = 31;
constexpr float kIntLimit = 2147483648.0f;   // 2^31
constexpr int kDateFieldSize = 4;            // a date float; for 'I' a time float follows
constexpr char kDateFormat[] = "dd.MM.yy";
constexpr char kTimeFormat[] = "hh:mm:ss";

// dir + "/" + name when that exists, else the first file of dir whose name
// matches it case-insensitively, else dir + "/" + name.
QString FindFile(QString const& dir, QString const& name) {
  const QString exact = dir + QLatin1Char('/') + name;
  if (QFileInfo::exists(exact)) return exact;
  const QStringList names = QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name);
  for (QString const& candidate : names) {
    if (candidate.compare(name, Qt::CaseInsensitive) == 0) return dir + QLatin1Char('/') + candidate;
  }
  return exact;
}

QString MasterPath(QString const& dir) { return FindFile(dir, QString::fromLatin1(kMasterName)); }

// The MBF word decoded and truncated toward zero; false when the value does
// not fit an int. A word out of MBF range counts as 0.
bool MbfToInt(float mbf, int& value) {
  float decoded = 0;
  fmsbin2ieee(&mbf, &decoded);
  if (!(decoded >= -kIntLimit && decoded < kIntLimit)) return false;
  value = static_cast<int>(decoded);
  return true;
}

int PrintInt(int value, char (&text)[kIntText]) { return std::snprintf(text, sizeof text, "%d", value); }

// The number in text[first, first + count); 0 when it is not one.
int Digits(const char* text, int first, int count) {
  int value = 0;
  std::from_chars(text + first, text + first + count, value);
  return value;
}

// The date (and for 'I' the time) of the first or the last data record.
QString RecordTime(QString const& path, int recordLength, char period, bool last) {
  if (recordLength < 1) return {};
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return {};
  const qint64 offset = last ? file.size() - recordLength : qint64{recordLength};
  if (offset < recordLength || !file.seek(offset)) return {};

  const bool intraday = period == kIntraday;
  const qint64 wanted = intraday ? 2 * kDateFieldSize : kDateFieldSize;
  float fields[2];  // date, time
  if (file.read(reinterpret_cast<char*>(fields), wanted) != wanted) return {};
  bool ok = true;
  QString text = converIeeeToDate(fields[0], ok).toString(QString::fromLatin1(kDateFormat));
  if (intraday) {
    text += QLatin1Char(' ') + converIeeeToTime(fields[1], ok).toString(QString::fromLatin1(kTimeFormat));
  }
  return text;
}

}  // namespace

int IndexEntry::fileNumber() const { return bytes[kFileNumberOffset]; }
int IndexEntry::recordLength() const { return bytes[kRecordLengthOffset]; }
int IndexEntry::fieldCount() const { return bytes[kFieldCountOffset]; }
char IndexEntry::periodLetter() const { return static_cast<char>(bytes[kPeriodOffset]); }

int IndexEntry::intradaySize() const {
  return static_cast<std::int16_t>(bytes[kIntradaySizeOffset] | (bytes[kIntradaySizeOffset + 1] << 8));
}

QString IndexEntry::symbol() const {
  const auto* text = reinterpret_cast<const char*>(bytes + kSymbolOffset);
  return QString::fromLatin1(text, static_cast<qsizetype>(strnlen(text, kIndexSymbolSize)));
}

QString IndexEntry::periodText() const {
  const char letter = periodLetter();
  if (letter == 0) return {};
  QString text(QLatin1Char{letter});
  if (letter == kIntraday) text += QLatin1String(kIntradaySeparator) + QString::number(intradaySize());
  return text;
}

bool MasterExists(QString const& dir) { return QFileInfo::exists(MasterPath(dir)); }

bool MasterOpens(QString const& dir) {
  QFile file(MasterPath(dir));
  return file.open(QIODevice::ReadOnly);
}

std::vector<IndexEntry> ReadMaster(QString const& dir) {
  QFile file(MasterPath(dir));
  if (!file.open(QIODevice::ReadOnly)) return {};
  unsigned char header[kIndexRecordSize] = {};
  file.read(reinterpret_cast<char*>(header), kIndexRecordSize);
  const int count = static_cast<std::int16_t>(header[0] | (header[1] << 8));
  if (count < 1) return {};

  // The records the file has; the header sits before record 0.
  if (!file.seek(kIndexRecordSize)) return {};
  const qint64 wanted = qint64{count} * kIndexRecordSize;
  QByteArray records = file.read(wanted);
  // A short read is tried once more from where it stopped; what is still
  // missing stays zero.
  if (records.size() < wanted && file.seek(kIndexRecordSize + records.size())) {
    records += file.read(wanted - records.size());
  }
  std::vector<IndexEntry> entries(static_cast<std::size_t>(count), IndexEntry{});
  for (int k = 0; k < count; ++k) {
    const qsizetype start = qsizetype{k} * kIndexRecordSize;
    if (start >= records.size()) break;
    const qsizetype available = std::min<qsizetype>(kIndexRecordSize, records.size() - start);
    std::memcpy(entries[k].bytes + kRecordStart, records.constData() + start, static_cast<std::size_t>(available));
  }
  return entries;
}

int FindIndexEntry(std::vector<IndexEntry> const& entries, QString const& symbol, QString const& periodText) {
  for (std::size_t k = 0; k < entries.size(); ++k) {
    if (entries[k].symbol() == symbol && entries[k].periodText() == periodText) return static_cast<int>(k);
  }
  return -1;
}

QString DataFilePath(QString const& dir, int fileNumber) {
  return FindFile(dir, QString::asprintf(kDataNameFormat, fileNumber));
}

QDate converIeeeToDate(float mbf, bool& ok) {
  int value = 0;
  if (!MbfToInt(mbf, value)) {
    ok = false;
    return {};
  }
  if (value == 0) return QDate::currentDate();
  ok = true;
  char text[kIntText];
  const int length = PrintInt(value, text);
  if (length < kShortDateDigits) return QDate::currentDate();

  const int yearDigits = length == kShortDateDigits ? kShortDateYearDigits : kLongDateYearDigits;
  const int year = Digits(text, 0, yearDigits);
  int month = Digits(text, yearDigits, kDatePartDigits);
  int day = Digits(text, yearDigits + kDatePartDigits, kDatePartDigits);
  if (month < 1 || month > kLastMonth) month = 1;
  if (day < 1 || day > kLastDay) day = 1;
  QDate date;
  date.setDate(year + kYearBase, month, day);
  return date;
}

QTime converIeeeToTime(float mbf, bool& ok) {
  int value = 0;
  if (!MbfToInt(mbf, value)) return QTime(0, 0);  // more digits than any HHMMSS
  char text[kIntText];
  const int length = PrintInt(value, text);
  if (length > kInvalidTimeDigits) return QTime(0, 0);
  if (length == kInvalidTimeDigits) {
    ok = false;
    return {};
  }
  // From the right: two digits of seconds, two of minutes, the rest hours.
  const int secondsStart = std::max(0, length - kTimePartDigits);
  const int minutesStart = std::max(0, length - 2 * kTimePartDigits);
  const int seconds = Digits(text, secondsStart, length - secondsStart);
  const int minutes = Digits(text, minutesStart, secondsStart - minutesStart);
  const int hours = Digits(text, 0, minutesStart);
  // A negative value either parses to a negative part or leaves a lone '-'.
  if (value < 0 || hours > kLastHour || minutes > kLastMinute) {
    ok = false;
    return {};
  }
  return QTime(hours, minutes, std::min(seconds, kLastSecond));
}

QString getFirstTime(int recordLength, char period, QString const& dataFilePath) {
  return RecordTime(dataFilePath, recordLength, period, false);
}

QString getLastTime(int recordLength, char period, QString const& dataFilePath) {
  return RecordTime(dataFilePath, recordLength, period, true);
}
