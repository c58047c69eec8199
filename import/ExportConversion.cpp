// Converting one instrument's data file into the store's points and the
// symbol record to open it with.

#include <QDateTime>
#include <QFile>
#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "DataPoint.h"
#include "ExportDirectory.h"

namespace {

constexpr char kSymbolKind[] = "CANDLE";
constexpr char kProviderName[] = "QUENDAL";
constexpr char kProviderTag[] = "CANDLE_QUENDAL";   // behind the provider's terminator
constexpr int kProviderTagOffset = kHostNameField;  // into the provider field
constexpr char kIntraday = 'I';
constexpr char kEndOfPeriodLetters[] = "DWMY";

constexpr int kFieldSize = 4;            // one MBF float
constexpr int kMappedFields = 8;         // no field map reads beyond field 7
constexpr int kNoField = -1;
constexpr int kDateField = 0;
constexpr int kTimeField = 1;
constexpr qint64 kReadBlockBytes = 256 * 1024;
constexpr auto kProgressInterval = std::chrono::milliseconds(50);

// Which field holds which price; kNoField: open = close, the rest 0.
struct FieldMap {
  int open, high, low, close, volume;
};

constexpr FieldMap kNoPrices = {kNoField, kNoField, kNoField, kNoField, kNoField};

FieldMap MapFor(char letter, int fields) {
  if (letter == kIntraday) {
    if (fields == 6) return {kNoField, 2, 3, 4, 5};
    if (fields == 7 || fields == 8) return {2, 3, 4, 5, 6};
    return kNoPrices;
  }
  if (fields == 5) return {kNoField, 1, 2, 3, 4};
  if (fields == 6 || fields == 7) return {1, 2, 3, 4, 5};
  return kNoPrices;
}

bool IsConvertible(char letter) {
  return letter == kIntraday || (letter != 0 && std::strchr(kEndOfPeriodLetters, letter) != nullptr);
}

// Seconds from local 1970-01-01 00:00 to local moments. Records come in runs
// on one day, so the day's local midnight is kept; on a day whose clock runs
// 24 hours without an offset change (the next midnight is 86400 seconds on)
// the time of day is added to it, on other days every moment is placed
// through QDateTime.
class LocalSeconds {
 public:
  LocalSeconds() : epoch_(QDate(1970, 1, 1), QTime(0, 0)) {}

  // 0 when the date is invalid, the moment does not exist in local time (a
  // daylight-saving gap) or does not fit 32 bits. A null time is midnight.
  std::int32_t Of(QDate const& day, QTime const& clock) {
    if (!day.isValid()) return 0;
    if (day != day_) StartDay(day);
    const int sinceMidnight = clock.isValid() ? clock.msecsSinceStartOfDay() / kMsPerSecond : 0;
    if (sinceMidnight == 0) return Fit(midnight_);
    if (!steady_) return Fit(Exact(day, clock));
    return Fit(*midnight_ + sinceMidnight);
  }

 private:
  static constexpr int kMsPerSecond = 1000;
  static constexpr qint64 kSecondsPerDay = 86400;

  void StartDay(QDate const& day) {
    day_ = day;
    midnight_ = Exact(day, QTime(0, 0));
    const std::optional<qint64> next = Exact(day.addDays(1), QTime(0, 0));
    steady_ = midnight_ && next && *next - *midnight_ == kSecondsPerDay;
  }

  std::optional<qint64> Exact(QDate const& day, QTime const& clock) const {
    const QDateTime moment(day, clock);
    if (!moment.isValid()) return std::nullopt;
    return epoch_.secsTo(moment);
  }

  static std::int32_t Fit(std::optional<qint64> seconds) {
    if (!seconds || *seconds < std::numeric_limits<std::int32_t>::min() ||
        *seconds > std::numeric_limits<std::int32_t>::max()) {
      return 0;
    }
    return static_cast<std::int32_t>(*seconds);
  }

  const QDateTime epoch_;
  QDate day_;                        // the day of midnight_
  std::optional<qint64> midnight_;   // none: midnight is not a local moment
  bool steady_ = false;              // midnight_ + time of day is exact
};

// Turns data records into candles. Only the mapped part of a record is kept,
// so R and the fields count may disagree in any way: fields beyond R read as
// zero words.
class RecordDecoder {
 public:
  RecordDecoder(char letter, int fieldCount, int recordLength)
      : intraday_(letter == kIntraday),
        map_(MapFor(letter, fieldCount)),
        copied_(std::min(recordLength, kMappedFields * kFieldSize)) {}

  CCandleDataPoint Decode(const unsigned char* record) {
    std::memcpy(fields_, record, static_cast<std::size_t>(copied_));
    CCandleDataPoint point;
    bool ok = true;  // the decoders' fallbacks stand; their verdict is not needed
    const QTime clock = intraday_ ? converIeeeToTime(Field(kTimeField), ok) : QTime(0, 0);
    point.time = seconds_.Of(Day(), clock);
    point.high = Price(map_.high);
    point.low = Price(map_.low);
    point.close = Price(map_.close);
    point.volume = Price(map_.volume);
    point.open = map_.open == kNoField ? point.close : Price(map_.open);
    return point;
  }

 private:
  float Field(int index) const {
    float mbf;
    std::memcpy(&mbf, fields_ + index * kFieldSize, sizeof mbf);
    return mbf;
  }

  float Price(int index) const {
    if (index == kNoField) return 0;
    float mbf = Field(index);
    float value = 0;
    fmsbin2ieee(&mbf, &value);
    return value;
  }

  // The date of the record; the last word decoded is kept.
  QDate const& Day() {
    std::uint32_t word;
    std::memcpy(&word, fields_ + kDateField * kFieldSize, sizeof word);
    if (!haveDay_ || word != dayWord_) {
      bool ok = true;
      day_ = converIeeeToDate(Field(kDateField), ok);
      dayWord_ = word;
      haveDay_ = true;
    }
    return day_;
  }

  const bool intraday_;
  const FieldMap map_;
  const int copied_;                                       // bytes of a record kept
  unsigned char fields_[kMappedFields * kFieldSize] = {};  // zero beyond copied_
  LocalSeconds seconds_;
  bool haveDay_ = false;
  std::uint32_t dayWord_ = 0;
  QDate day_;
};

// Calls the progress callback at most every kProgressInterval, and at the end.
class ProgressThrottle {
 public:
  explicit ProgressThrottle(ConversionProgress const& report)
      : report_(report), last_(std::chrono::steady_clock::now()) {}

  void Advance(std::int64_t bytes) {
    bytesRead_ += bytes;
    if (!report_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - last_ < kProgressInterval) return;
    last_ = now;
    report_(bytesRead_);
  }

  void Finish() const {
    if (report_) report_(bytesRead_);
  }

 private:
  ConversionProgress const& report_;
  std::chrono::steady_clock::time_point last_;
  std::int64_t bytesRead_ = 0;
};

void StorePoint(CCandleDataPoint const& candle, bool ticks, unsigned char* out) {
  if (ticks) {
    const TickDataPoint tick{candle.time, candle.close, candle.volume};
    std::memcpy(out, &tick, sizeof tick);
  } else {
    std::memcpy(out, &candle, sizeof candle);
  }
}

// Reads up to `count` records after the header record, in blocks, and
// stores them at `out`; returns how many whole records were read.
int ReadPoints(QFile& file, int recordLength, int count, RecordDecoder& decoder, bool ticks, unsigned int pointSize,
               unsigned char* out, ProgressThrottle& progress) {
  if (!file.seek(recordLength)) return 0;
  progress.Advance(recordLength);
  const int blockRecords = static_cast<int>(std::max<qint64>(1, kReadBlockBytes / recordLength));
  std::vector<unsigned char> block(static_cast<std::size_t>(blockRecords) * recordLength);
  int done = 0;
  while (done < count) {
    const int wanted = std::min(blockRecords, count - done);
    const qint64 got = file.read(reinterpret_cast<char*>(block.data()), qint64{wanted} * recordLength);
    if (got <= 0) break;
    progress.Advance(got);
    const int whole = static_cast<int>(got / recordLength);
    for (int k = 0; k < whole; ++k) {
      StorePoint(decoder.Decode(block.data() + std::size_t(k) * recordLength), ticks,
                 out + std::size_t(done + k) * pointSize);
    }
    done += whole;
    if (whole < wanted) break;  // the file ended early
  }
  return done;
}

template <std::size_t N>
void PutText(char* field, const char (&text)[N]) {
  std::memcpy(field, text, N);
}

void FillRequest(SYMBOL_NAME_PERIOD& request, IndexEntry const& entry, QString const& priceType) {
  PutText(request.text0, kSymbolKind);
  PutText(request.provider, kProviderName);
  PutText(request.provider + kProviderTagOffset, kProviderTag);

  QString name = entry.symbol();
  const qsizetype space = name.indexOf(QLatin1Char(' '));
  if (space >= 0) name.truncate(space);
  // The name field sits at an odd offset of a packed record: it is filled
  // from an aligned copy, byte by byte.
  char16_t wide[kHostWideNameUnits] = {};
  const qsizetype units = std::min<qsizetype>(name.size(), kHostWideNameUnits - 1);
  std::copy_n(reinterpret_cast<const char16_t*>(name.utf16()), units, wide);
  std::memcpy(&request.name, wide, sizeof wide);

  const QByteArray code = priceType.toLocal8Bit();
  const qsizetype bytes = std::min<qsizetype>(code.size(), kHostNameField - 1);
  std::memcpy(request.code, code.constData(), static_cast<std::size_t>(bytes));
  request.code[bytes] = 0;

  request.period.kind = entry.periodLetter();
  request.period.length = entry.periodLetter() == kIntraday ? entry.intradaySize() : 0;
  request.period.extra = 0;
}

}  // namespace

bool ConvertInstrument(QString const& dir, IndexEntry const& fileEntry, IndexEntry const& matchedEntry,
                       QString const& priceType, ConvertedInstrument& out, ConversionProgress const& progress) {
  out = ConvertedInstrument{};
  const int recordLength = fileEntry.recordLength();
  const char letter = matchedEntry.periodLetter();
  if (recordLength < 1 || !IsConvertible(letter)) return false;

  QFile file(DataFilePath(dir, fileEntry.fileNumber()));
  if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) return false;
  const qint64 size = file.size();
  if (size <= recordLength) return false;
  const qint64 count = size / recordLength - 1;
  if (count > std::numeric_limits<int>::max()) return false;

  const bool ticks = letter == kIntraday && matchedEntry.intradaySize() == 0;
  const unsigned int pointSize = ticks ? sizeof(TickDataPoint) : sizeof(CCandleDataPoint);
  ProgressThrottle throttle(progress);
  RecordDecoder decoder(letter, matchedEntry.fieldCount(), recordLength);
  int read = 0;
  try {
    out.points.resize(static_cast<std::size_t>(count) * pointSize);
    read = ReadPoints(file, recordLength, static_cast<int>(count), decoder, ticks, pointSize, out.points.data(),
                      throttle);
  } catch (std::bad_alloc const&) {
    out = ConvertedInstrument{};
    return false;
  }
  throttle.Finish();
  if (read == 0) {
    out = ConvertedInstrument{};
    return false;
  }
  out.points.resize(static_cast<std::size_t>(read) * pointSize);
  out.pointCount = read;
  out.pointSize = pointSize;
  FillRequest(out.request, matchedEntry, priceType);
  return true;
}
