// Converting one instrument's data file into the store's points and the
// symbol record to open it with.

#include "ExportConversion.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "DataPoint.h"
#include "ExportDirectory.h"
#include "Period.h"

namespace {

constexpr char kSymbolKind[] = "CANDLE";
constexpr char kProviderTag[] = "CANDLE_QUENDAL";   // behind the provider's terminator
constexpr int kProviderTagOffset = kHostNameField;  // into the provider field

constexpr int kFieldSize = 4;     // one MBF float
constexpr int kMappedFields = 8;  // no field map reads beyond field 7
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
  if (letter == period::kIntraday) {
    if (fields == 6) return {kNoField, 2, 3, 4, 5};
    if (fields == 7 || fields == 8) return {2, 3, 4, 5, 6};
    return kNoPrices;
  }
  if (fields == 5) return {kNoField, 1, 2, 3, 4};
  if (fields == 6 || fields == 7) return {1, 2, 3, 4, 5};
  return kNoPrices;
}

// Turns data records into candles. Only the mapped part of a record is kept,
// so R and the fields count may disagree in any way: fields beyond R read as
// zero words.
class RecordDecoder {
 public:
  RecordDecoder(char letter, int fieldCount, int recordLength)
      : intraday_(letter == period::kIntraday),
        map_(MapFor(letter, fieldCount)),
        copied_(std::min(recordLength, kMappedFields * kFieldSize)) {}

  // None when the record's date or time does not decode.
  std::optional<CCandleDataPoint> Decode(const unsigned char* record) {
    std::memcpy(fields_, record, static_cast<std::size_t>(copied_));
    const std::optional<std::int32_t> time = Moment();
    if (!time) return std::nullopt;
    CCandleDataPoint point;
    point.time = *time;
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

  std::optional<std::int32_t> Moment() {
    const std::optional<std::chrono::year_month_day>& day = Day();
    if (!day) return std::nullopt;
    const std::optional<int> clock = intraday_ ? ExportTimeOfDay(Field(kTimeField)) : 0;
    if (!clock) return std::nullopt;
    return UtcSeconds(*day, *clock);
  }

  // The date of the record; records come in runs of one day, so the last
  // word decoded is kept.
  std::optional<std::chrono::year_month_day> const& Day() {
    std::uint32_t word;
    std::memcpy(&word, fields_ + kDateField * kFieldSize, sizeof word);
    if (!haveDay_ || word != dayWord_) {
      day_ = ExportDate(Field(kDateField));
      dayWord_ = word;
      haveDay_ = true;
    }
    return day_;
  }

  const bool intraday_;
  const FieldMap map_;
  const int copied_;                                       // bytes of a record kept
  unsigned char fields_[kMappedFields * kFieldSize] = {};  // zero beyond copied_
  bool haveDay_ = false;                                   // day_ decodes dayWord_
  std::uint32_t dayWord_ = 0;
  std::optional<std::chrono::year_month_day> day_;
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

// Where the decoded points go: `points` bytes of pointSize each.
struct PointSink {
  unsigned char* points;
  unsigned int pointSize;
  bool ticks;
  int stored = 0;
  int skipped = 0;

  void Add(std::optional<CCandleDataPoint> const& point) {
    if (!point) {
      ++skipped;
      return;
    }
    StorePoint(*point, ticks, points + std::size_t(stored) * pointSize);
    ++stored;
  }
};

// Reads the counted records in blocks and decodes them into the sink;
// returns how many records were read whole.
qint64 ReadPoints(ExportDataFile& file, int recordLength, RecordDecoder& decoder, PointSink& sink,
                  ProgressThrottle& progress) {
  progress.Advance(recordLength);
  const qint64 blockRecords = std::max<qint64>(1, kReadBlockBytes / recordLength);
  std::vector<unsigned char> block(
      static_cast<std::size_t>(std::min(blockRecords, file.records()) * recordLength));
  qint64 done = 0;
  while (done < file.records()) {
    const qint64 wanted = std::min(blockRecords, file.records() - done);
    const qint64 whole = file.Read(done, wanted, block.data());
    progress.Advance(whole * recordLength);
    for (qint64 k = 0; k < whole; ++k)
      sink.Add(decoder.Decode(block.data() + std::size_t(k) * recordLength));
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
  PutText(request.provider, kImportProvider);
  PutText(request.provider + kProviderTagOffset, kProviderTag);

  hostfield::SetWideText(&request.name, entry.symbol.toStdU16String());

  const QByteArray code = priceType.toLocal8Bit();
  const qsizetype bytes = std::min<qsizetype>(code.size(), kHostNameField - 1);
  std::memcpy(request.code, code.constData(), static_cast<std::size_t>(bytes));
  request.code[bytes] = 0;

  request.period.kind = entry.periodLetter;
  request.period.length = period::LengthOf(entry.periodLetter, entry.intradaySize);
  request.period.extra = 0;
}

}  // namespace

ConversionOutcome ConvertInstrument(IndexEntry const& entry, QString const& priceType,
                                    ConvertedInstrument& out, ConversionProgress const& progress) {
  out = ConvertedInstrument{};
  if (!period::IsKnownKind(entry.periodLetter)) return ConversionOutcome::kPeriodNotImported;
  if (entry.dataFile.isEmpty()) return ConversionOutcome::kMissingFile;
  ExportDataFile file;
  if (entry.recordLength < 1 || !file.Open(entry.dataFile, entry.recordLength)) {
    return ConversionOutcome::kUnreadableRecords;
  }
  if (file.records() == 0) return ConversionOutcome::kNoRecords;
  if (file.records() > std::numeric_limits<int>::max()) return ConversionOutcome::kOutOfMemory;

  const bool ticks = period::IsTicks(entry.periodLetter, entry.intradaySize);
  const unsigned int pointSize = ticks ? sizeof(TickDataPoint) : sizeof(CCandleDataPoint);
  ProgressThrottle throttle(progress);
  RecordDecoder decoder(entry.periodLetter, entry.fieldCount, entry.recordLength);
  try {
    out.points.resize(static_cast<std::size_t>(file.records()) * pointSize);
  } catch (std::bad_alloc const&) {
    out = ConvertedInstrument{};
    return ConversionOutcome::kOutOfMemory;
  }
  PointSink sink{out.points.data(), pointSize, ticks};
  ReadPoints(file, entry.recordLength, decoder, sink, throttle);
  throttle.Finish();
  out.skippedRecords = sink.skipped;
  if (sink.stored == 0) {
    out.points.clear();
    return ConversionOutcome::kUnreadableRecords;
  }
  out.points.resize(static_cast<std::size_t>(sink.stored) * pointSize);
  out.pointCount = sink.stored;
  out.pointSize = pointSize;
  FillRequest(out.request, entry, priceType);
  return ConversionOutcome::kConverted;
}
