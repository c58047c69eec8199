// Data files of an export directory: date and time floats, record counts,
// and the first and last date of a data file.

#include "ExportDirectory.h"
#include "Period.h"

#include <QDate>
#include <QTime>
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstdio>
#include <cstring>

namespace {

// Date and time floats.
constexpr int kIntText = 16;            // "%d" of any int, with its terminator
constexpr int kShortDateDigits = 6;     // YYMMDD; fewer is no date
constexpr int kLongDateYearDigits = 3;  // YYYMMDD
constexpr int kShortDateYearDigits = 2;
constexpr int kDatePartDigits = 2;  // month, day
constexpr int kYearBase = 1900;
constexpr int kLastMonth = 12;
constexpr int kLastDay = 31;
constexpr int kInvalidTimeDigits = 7;  // neither HHMMSS nor a midnight fallback
constexpr int kHourScale = 10000;      // HH of HHMMSS
constexpr int kMinuteScale = 100;      // MM of HHMMSS
constexpr int kLastHour = 23;
constexpr int kLastMinute = 59;
constexpr int kLastSecond = 59;
constexpr int kSecondsPerMinute = 60;
constexpr int kSecondsPerHour = 3600;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr int kMsPerSecond = 1000;
constexpr float kIntLimit = 2147483648.0f;  // 2^31
constexpr int kDecimal = 10;
constexpr int kDecimalPair = 100;  // two decimal digits

// Data files.
constexpr int kHeaderCountOffset = 2;  // u16 of the header record: records + 1
constexpr int kHeaderCountEnd = kHeaderCountOffset + 2;
constexpr qint64 kHeaderCountModulus = 65536;  // the count is a u16
constexpr int kFieldSize = 4;                  // one MBF float
constexpr int kLargestRecord = 255;            // R is one byte in every index
constexpr char kDateFormat[] = "dd.MM.yy";
constexpr char kTimeFormat[] = "hh:mm:ss";

// The MBF word decoded and truncated toward zero; false when the value does
// not fit an int. A word out of MBF range counts as 0.
bool MbfToInt(float mbf, int& value) {
  float decoded = 0;
  fmsbin2ieee(&mbf, &decoded);
  if (!(decoded >= -kIntLimit && decoded < kIntLimit)) return false;
  value = static_cast<int>(decoded);
  return true;
}

// Length of "%d" of value, counted without printing it.
int TextLength(int value) {
  int length = value < 0 ? 2 : 1;  // a sign, and the last digit
  for (std::int64_t rest = std::abs(std::int64_t{value}) / kDecimal; rest > 0; rest /= kDecimal)
    ++length;
  return length;
}

std::int64_t PowerOfTen(int exponent) {
  std::int64_t power = 1;
  while (exponent-- > 0) power *= kDecimal;
  return power;
}

// The number in text[first, first + count); 0 when it is not one.
int Digits(const char* text, int first, int count) {
  int value = 0;
  std::from_chars(text + first, text + first + count, value);
  return value;
}

// Year, month and day as a date float's digits give them; month and day
// outside 1..12 and 1..31 become 1. None for 0, a value beyond an int, or
// fewer than six digits.
struct DateDigits {
  int year, month, day;
};

std::optional<DateDigits> DecodeDateWord(float mbf) {
  int value = 0;
  if (!MbfToInt(mbf, value) || value == 0) return std::nullopt;
  const int length = TextLength(value);
  if (length < kShortDateDigits) return std::nullopt;
  const int yearDigits = length == kShortDateDigits ? kShortDateYearDigits : kLongDateYearDigits;
  DateDigits date{};
  if (value > 0) {  // the digits counted from the left, by division
    date.year = static_cast<int>(value / PowerOfTen(length - yearDigits));
    date.month =
        static_cast<int>(value / PowerOfTen(length - yearDigits - kDatePartDigits) % kDecimalPair);
    date.day = static_cast<int>(value / PowerOfTen(length - yearDigits - 2 * kDatePartDigits) %
                                kDecimalPair);
  } else {  // the sign is one of the year's characters
    char text[kIntText];
    std::snprintf(text, sizeof text, "%d", value);
    date.year = Digits(text, 0, yearDigits);
    date.month = Digits(text, yearDigits, kDatePartDigits);
    date.day = Digits(text, yearDigits + kDatePartDigits, kDatePartDigits);
  }
  date.year += kYearBase;
  if (date.month < 1 || date.month > kLastMonth) date.month = 1;
  if (date.day < 1 || date.day > kLastDay) date.day = 1;
  return date;
}

// The date (and for 'I' the time) of counted record k of the file, as shown;
// empty when it does not read or decode.
QString RecordTime(ExportDataFile& file, int recordLength, char period, qint64 k) {
  const bool intraday = period == period::kIntraday;
  if (recordLength < (intraday ? 2 : 1) * kFieldSize) return {};
  unsigned char record[kLargestRecord];
  if (file.Read(k, 1, record) != 1) return {};

  float fields[2];  // date, time
  std::memcpy(fields, record, static_cast<std::size_t>(intraday ? 2 : 1) * kFieldSize);
  const std::optional<std::chrono::year_month_day> day = ExportDate(fields[0]);
  if (!day) return {};
  QString text = QDate(int(day->year()), unsigned(day->month()), unsigned(day->day()))
                     .toString(QString::fromLatin1(kDateFormat));
  if (!intraday) return text;
  const std::optional<int> clock = ExportTimeOfDay(fields[1]);
  if (!clock) return {};
  return text + QLatin1Char(' ') +
         QTime::fromMSecsSinceStartOfDay(*clock * kMsPerSecond)
             .toString(QString::fromLatin1(kTimeFormat));
}

QString RecordTime(QString const& path, int recordLength, char period, bool last) {
  ExportDataFile file;
  if (!file.Open(path, recordLength) || file.records() == 0) return {};
  return RecordTime(file, recordLength, period, last ? file.records() - 1 : 0);
}

}  // namespace

std::optional<std::chrono::year_month_day> ExportDate(float mbf) {
  const std::optional<DateDigits> digits = DecodeDateWord(mbf);
  if (!digits) return std::nullopt;
  const std::chrono::year_month_day day{std::chrono::year(digits->year),
                                        std::chrono::month(unsigned(digits->month)),
                                        std::chrono::day(unsigned(digits->day))};
  if (!day.ok()) return std::nullopt;
  return day;
}

std::optional<int> ExportTimeOfDay(float mbf) {
  int value = 0;
  if (!MbfToInt(mbf, value)) return 0;  // more digits than any HHMMSS: midnight
  const int length = TextLength(value);
  if (length > kInvalidTimeDigits) return 0;
  if (length == kInvalidTimeDigits || value < 0) return std::nullopt;
  const int hours = value / kHourScale;
  const int minutes = value / kMinuteScale % kMinuteScale;
  const int seconds = std::min(value % kMinuteScale, kLastSecond);
  if (hours > kLastHour || minutes > kLastMinute) return std::nullopt;
  return hours * kSecondsPerHour + minutes * kSecondsPerMinute + seconds;
}

std::optional<std::int32_t> UtcSeconds(std::chrono::year_month_day const& day, int secondsOfDay) {
  const std::int64_t days = std::chrono::sys_days(day).time_since_epoch().count();
  const std::int64_t seconds = days * kSecondsPerDay + secondsOfDay;
  if (seconds < INT32_MIN || seconds > INT32_MAX) return std::nullopt;
  return static_cast<std::int32_t>(seconds);
}

// A count of 0 means the size; otherwise min(count, whole records). A file of
// more records than a u16 counts holds the count modulo 2^16: of the record
// numbers it names, the one nearest the whole records is taken, at most these.
qint64 CountedRecords(qint64 fileSize, int recordLength, int headerCount) {
  if (recordLength < 1) return 0;
  const qint64 whole = std::max<qint64>(0, fileSize / recordLength - 1);
  const qint64 counted = headerCount - 1;
  if (headerCount == 0 || counted >= whole) return whole;
  if (whole < kHeaderCountModulus - 1) return counted;
  const qint64 below = counted + (whole - counted) / kHeaderCountModulus * kHeaderCountModulus;
  return below + kHeaderCountModulus - whole < whole - below ? whole : below;
}

bool ExportDataFile::Open(QString const& path, int recordLength) {
  if (recordLength < 1 || path.isEmpty()) return false;
  file_.setFileName(path);
  if (!file_.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) return false;
  recordLength_ = recordLength;
  const qint64 size = file_.size();
  unsigned char header[kHeaderCountEnd] = {};
  int headerCount = 0;  // a header too short to hold the count: the size decides
  if (recordLength >= kHeaderCountEnd &&
      file_.read(reinterpret_cast<char*>(header), kHeaderCountEnd) == kHeaderCountEnd) {
    headerCount = header[kHeaderCountOffset] | (header[kHeaderCountOffset + 1] << 8);
  }
  records_ = CountedRecords(size, recordLength, headerCount);
  return true;
}

qint64 ExportDataFile::Read(qint64 first, qint64 count, unsigned char* out) {
  count = std::min(count, records_ - first);
  if (first < 0 || count <= 0 || !file_.seek((first + 1) * recordLength_)) return 0;
  const qint64 got = file_.read(reinterpret_cast<char*>(out), count * recordLength_);
  return got <= 0 ? 0 : got / recordLength_;
}

QString getFirstTime(int recordLength, char period, QString const& dataFilePath) {
  return RecordTime(dataFilePath, recordLength, period, false);
}

QString getLastTime(int recordLength, char period, QString const& dataFilePath) {
  return RecordTime(dataFilePath, recordLength, period, true);
}

DataFileSpan ReadDataFileSpan(QString const& path, int recordLength, char period) {
  ExportDataFile file;
  DataFileSpan span;
  if (!file.Open(path, recordLength) || file.records() == 0) return span;
  span.records = file.records();
  span.first = RecordTime(file, recordLength, period, 0);
  span.last = RecordTime(file, recordLength, period, span.records - 1);
  return span;
}
