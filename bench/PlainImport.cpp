#include "PlainImport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Candles.h"

namespace {

namespace fs = std::filesystem;

// The MASTER index: a header and records of 53 bytes; the count is the
// header's first 16-bit word.
constexpr std::size_t kMasterRecordSize = 53;
constexpr std::size_t kFileNumberAt = 0;
constexpr std::size_t kRecordLengthAt = 3;
constexpr std::size_t kFieldCountAt = 4;
constexpr std::size_t kPeriodAt = 33;
constexpr std::size_t kIntradaySizeAt = 34;
constexpr char kMasterName[] = "master";  // names are matched in lower case
constexpr char kDataPrefix[] = "f";
constexpr char kDataSuffix[] = ".dat";
constexpr char kIntraday = 'I';

// Data records: four-byte MBF fields, date first, then the time for intraday.
constexpr int kFieldSize = 4;
constexpr int kMappedFields = 8;  // no field map reads beyond field 7
constexpr int kNoField = -1;
constexpr int kDateField = 0;
constexpr int kTimeField = 1;

// MBF: exponent in bits 31..24 (bias 129), sign in bit 23.
constexpr int kMbfExponentShift = 24;
constexpr int kIeeeExponentShift = 23;
constexpr std::uint32_t kMbfSignBit = 0x00800000;
constexpr int kSignMove = 8;
constexpr std::uint32_t kMantissaMask = 0x007FFFFF;
constexpr std::uint32_t kBiasDifference = 2;

// Dates are (year - 1900) * 10000 + month * 100 + day; times HHMMSS.
constexpr int kYearBase = 1900;
constexpr int kHundred = 100;
constexpr int kTenThousand = 10000;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr int kSecondsPerHour = 3600;
constexpr int kSecondsPerMinute = 60;

#pragma pack(push, 1)
struct Tick {
  std::int32_t time;
  float value;
  float volume;
};
#pragma pack(pop)

struct Entry {
  int fileNumber;
  int recordLength;
  int fieldCount;
  char period;
  int intradaySize;
};

struct FieldMap {
  int open, high, low, close, volume;
};

FieldMap MapFor(char period, int fields) {
  if (period == kIntraday) {
    if (fields == 6) return {kNoField, 2, 3, 4, 5};
    if (fields == 7 || fields == 8) return {2, 3, 4, 5, 6};
  } else {
    if (fields == 5) return {kNoField, 1, 2, 3, 4};
    if (fields == 6 || fields == 7) return {1, 2, 3, 4, 5};
  }
  return {kNoField, kNoField, kNoField, kNoField, kNoField};
}

float MbfToIeee(std::uint32_t word) {
  const std::uint32_t exponent = word >> kMbfExponentShift;
  if (exponent <= kBiasDifference) return 0;
  const std::uint32_t bits = (word & kMbfSignBit) << kSignMove |
                             (exponent - kBiasDifference) << kIeeeExponentShift |
                             (word & kMantissaMask);
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// Days from 1970-01-01 to a proleptic Gregorian date, in eras of 400 years
// that start on March 1st.
std::int64_t DaysFromCivil(int year, int month, int day) {
  constexpr int kYearsPerEra = 400;
  constexpr int kDaysPerEra = 146097;
  constexpr int kEpochDays = 719468;  // 0000-03-01 to 1970-01-01
  year -= month <= 2;
  const int era = (year >= 0 ? year : year - kYearsPerEra + 1) / kYearsPerEra;
  const int yearOfEra = year - era * kYearsPerEra;
  const int dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / kHundred + dayOfYear;
  return std::int64_t{era} * kDaysPerEra + dayOfEra - kEpochDays;
}

std::int32_t SecondsOf(float date, float time) {
  const int ymd = static_cast<int>(std::lround(date));
  const int hms = static_cast<int>(std::lround(time));
  const std::int64_t days =
      DaysFromCivil(ymd / kTenThousand + kYearBase, ymd / kHundred % kHundred, ymd % kHundred);
  const int clock = hms / kTenThousand * kSecondsPerHour +
                    hms / kHundred % kHundred * kSecondsPerMinute + hms % kHundred;
  return static_cast<std::int32_t>(days * kSecondsPerDay + clock);
}

class Fd {
 public:
  Fd(fs::path const& path, int flags) : fd_(::open(path.c_str(), flags, 0644)) {
    if (fd_ < 0) throw std::runtime_error("cannot open " + path.string());
  }
  ~Fd() { ::close(fd_); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

std::vector<unsigned char> ReadWhole(fs::path const& path) {
  Fd file(path, O_RDONLY);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throw std::runtime_error("cannot stat " + path.string());
  std::vector<unsigned char> bytes(static_cast<std::size_t>(status.st_size));
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t got = ::read(file.get(), bytes.data() + done, bytes.size() - done);
    if (got <= 0) throw std::runtime_error("cannot read " + path.string());
    done += static_cast<std::size_t>(got);
  }
  return bytes;
}

void WriteOnce(fs::path const& path, std::vector<unsigned char> const& bytes) {
  Fd file(path, O_WRONLY | O_CREAT | O_TRUNC);
  if (::write(file.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return text;
}

// The folder's files by their lower-case names.
std::map<std::string, fs::path> FilesOf(fs::path const& folder) {
  std::map<std::string, fs::path> files;
  for (fs::directory_entry const& entry : fs::directory_iterator(folder)) {
    files.emplace(Lower(entry.path().filename().string()), entry.path());
  }
  return files;
}

std::vector<Entry> ParseMaster(std::vector<unsigned char> const& master) {
  std::uint16_t count = 0;
  if (master.size() >= sizeof count) std::memcpy(&count, master.data(), sizeof count);
  std::vector<Entry> entries;
  for (std::size_t at = kMasterRecordSize;
       entries.size() < count && at + kMasterRecordSize <= master.size(); at += kMasterRecordSize) {
    const unsigned char* record = master.data() + at;
    std::int16_t intradaySize;
    std::memcpy(&intradaySize, record + kIntradaySizeAt, sizeof intradaySize);
    entries.push_back({record[kFileNumberAt], record[kRecordLengthAt], record[kFieldCountAt],
                       static_cast<char>(record[kPeriodAt]), intradaySize});
  }
  return entries;
}

// Converts the records after the header record of `data` into `out`;
// returns how many there were.
std::int64_t Convert(Entry const& entry, std::vector<unsigned char> const& data,
                     std::vector<unsigned char>& out) {
  const std::size_t length = static_cast<std::size_t>(entry.recordLength);
  const std::size_t count = data.size() / length - 1;
  const bool intraday = entry.period == kIntraday;
  const bool ticks = intraday && entry.intradaySize == 0;
  const FieldMap map = MapFor(entry.period, entry.fieldCount);
  const std::size_t copied = std::min<std::size_t>(length, kMappedFields * kFieldSize);
  out.resize(count * (ticks ? sizeof(Tick) : sizeof(Candle)));
  std::uint32_t words[kMappedFields] = {};
  auto field = [&words](int index) { return index == kNoField ? 0.0f : MbfToIeee(words[index]); };
  for (std::size_t k = 0; k < count; ++k) {
    std::memcpy(words, data.data() + (k + 1) * length, copied);
    const std::int32_t time = SecondsOf(field(kDateField), intraday ? field(kTimeField) : 0.0f);
    const float close = field(map.close);
    if (ticks) {
      const Tick tick{time, close, field(map.volume)};
      std::memcpy(out.data() + k * sizeof tick, &tick, sizeof tick);
    } else {
      const float open = map.open == kNoField ? close : field(map.open);
      const Candle candle{time, open, field(map.high), field(map.low), close, field(map.volume)};
      std::memcpy(out.data() + k * sizeof candle, &candle, sizeof candle);
    }
  }
  return static_cast<std::int64_t>(count);
}

}  // namespace

PlainImportCounts PlainImport(fs::path const& from, fs::path const& to) {
  const std::map<std::string, fs::path> files = FilesOf(from);
  const auto master = files.find(kMasterName);
  if (master == files.end()) throw std::runtime_error("no MASTER in " + from.string());
  PlainImportCounts counts;
  std::vector<unsigned char> out;
  for (Entry const& entry : ParseMaster(ReadWhole(master->second))) {
    std::string name = kDataPrefix;
    name.append(std::to_string(entry.fileNumber)).append(kDataSuffix);
    const auto file = files.find(name);
    if (file == files.end() || entry.recordLength == 0) continue;
    const std::vector<unsigned char> data = ReadWhole(file->second);
    if (data.size() <= static_cast<std::size_t>(entry.recordLength)) continue;
    counts.records += Convert(entry, data, out);
    WriteOnce(to / name, out);
    ++counts.instruments;
  }
  return counts;
}
