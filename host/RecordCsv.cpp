#include "RecordCsv.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

namespace {

namespace chrono = std::chrono;

constexpr char kSeparator = ',';
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kTimeColumn = "time";
constexpr std::string_view kEpochColumn = "epoch";
constexpr int kNoColumn = -1;            // a column the header does not name
constexpr std::size_t kNumberText = 32;  // room for any float or time text
constexpr const char* kTimeForms = "expected an epoch number or YYYY-MM-DD[THH:MM:SS][Z]";

// Positions in "YYYY-MM-DDTHH:MM:SSZ".
constexpr std::size_t kDateLength = 10;      // "YYYY-MM-DD"
constexpr std::size_t kDateTimeLength = 19;  // "YYYY-MM-DDTHH:MM:SS"
constexpr std::size_t kMonthAt = 5;
constexpr std::size_t kDayAt = 8;
constexpr std::size_t kHourAt = 11;
constexpr std::size_t kMinuteAt = 14;
constexpr std::size_t kSecondAt = 17;
constexpr int kHoursPerDay = 24;
constexpr int kMinutesPerHour = 60;
constexpr int kSecondsPerMinute = 60;

bool Fail(std::string* error, std::string message) {
  *error = std::move(message);
  return false;
}

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::vector<std::string_view> SplitFields(std::string_view line) {
  std::vector<std::string_view> fields;
  for (;;) {
    const std::size_t comma = line.find(kSeparator);
    fields.push_back(Trim(line.substr(0, comma)));
    if (comma == std::string_view::npos) return fields;
    line.remove_prefix(comma + 1);
  }
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// The number of n digits at text[at], or -1 when they are not all digits.
int Digits(std::string_view text, std::size_t at, std::size_t n) {
  int value = 0;
  for (std::size_t i = at; i < at + n; ++i) {
    if (text[i] < '0' || text[i] > '9') return -1;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

bool FitsTime(long long seconds) {
  return seconds >= std::numeric_limits<std::int32_t>::min() &&
         seconds <= std::numeric_limits<std::int32_t>::max();
}

bool ParseEpoch(std::string_view text, long long* seconds) {
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, *seconds);
  return status == std::errc() && stop == end;
}

// Seconds of "YYYY-MM-DD[THH:MM:SS][Z]", or false for anything else.
bool ParseIso(std::string_view text, long long* seconds) {
  if (!text.empty() && text.back() == 'Z') text.remove_suffix(1);
  const bool withClock = text.size() == kDateTimeLength;
  if (text.size() != kDateLength && !withClock) return false;
  if (text[kMonthAt - 1] != '-' || text[kDayAt - 1] != '-') return false;
  if (withClock &&
      (text[kHourAt - 1] != 'T' || text[kMinuteAt - 1] != ':' || text[kSecondAt - 1] != ':')) {
    return false;
  }
  const int y = Digits(text, 0, kMonthAt - 1);
  const int mo = Digits(text, kMonthAt, 2);
  const int d = Digits(text, kDayAt, 2);
  const int h = withClock ? Digits(text, kHourAt, 2) : 0;
  const int mi = withClock ? Digits(text, kMinuteAt, 2) : 0;
  const int s = withClock ? Digits(text, kSecondAt, 2) : 0;
  if (y < 0 || mo < 0 || d < 0 || h < 0 || mi < 0 || s < 0) return false;
  if (h >= kHoursPerDay || mi >= kMinutesPerHour || s >= kSecondsPerMinute) return false;
  const chrono::year_month_day date{chrono::year(y), chrono::month(mo), chrono::day(d)};
  if (!date.ok()) return false;
  const chrono::sys_seconds time =
      chrono::sys_days(date) + chrono::hours(h) + chrono::minutes(mi) + chrono::seconds(s);
  *seconds = time.time_since_epoch().count();
  return true;
}

bool ParseValue(std::string_view text, float* value) {
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, *value);
  return !text.empty() && status == std::errc() && stop == end;
}

std::string FormatValue(float value) {
  char text[kNumberText];
  const auto [end, status] = std::to_chars(text, text + sizeof text, value);
  return std::string(text, end);
}

// Where each field of a line goes, from the header.
struct Columns {
  std::size_t fields = 0;  // fields per line
  int epoch = kNoColumn;   // column of the epoch, if named
  int time = kNoColumn;    // column of the time, if named
  std::vector<int> views;  // column of each view, in layout order
};

bool ReadHeader(std::string_view line, const RecordLayout& layout, Columns* columns,
                std::string* error) {
  const std::vector<std::string_view> names = SplitFields(line);
  columns->fields = names.size();
  columns->views.assign(layout.views.size(), kNoColumn);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string_view name = names[i];
    int* slot = nullptr;
    if (EqualsIgnoringCase(name, kEpochColumn)) slot = &columns->epoch;
    if (EqualsIgnoringCase(name, kTimeColumn)) slot = &columns->time;
    for (std::size_t v = 0; v < layout.views.size(); ++v) {
      if (EqualsIgnoringCase(name, layout.views[v])) slot = &columns->views[v];
    }
    if (slot == nullptr) return Fail(error, "unknown column '" + std::string(name) + "'");
    if (*slot != kNoColumn) return Fail(error, "column '" + std::string(name) + "' named twice");
    *slot = static_cast<int>(i);
  }
  if (columns->epoch == kNoColumn && columns->time == kNoColumn) {
    return Fail(error, "no time or epoch column");
  }
  for (std::size_t v = 0; v < layout.views.size(); ++v) {
    if (columns->views[v] == kNoColumn) return Fail(error, "missing column " + layout.views[v]);
  }
  return true;
}

bool ReadRowTime(const std::vector<std::string_view>& fields, const Columns& columns,
                 std::int32_t* time, std::string* error) {
  long long epoch = 0;
  if (columns.epoch != kNoColumn) {
    const std::string_view text = fields[columns.epoch];
    if (!ParseEpoch(text, &epoch) || !FitsTime(epoch)) {
      return Fail(error, "bad epoch '" + std::string(text) + "'");
    }
    *time = static_cast<std::int32_t>(epoch);
  }
  if (columns.time == kNoColumn) return true;
  std::int32_t parsed = 0;
  if (!ParseTime(fields[columns.time], &parsed, error)) return false;
  if (columns.epoch != kNoColumn && parsed != *time) {
    return Fail(error, "time " + std::string(fields[columns.time]) + " and epoch " +
                           std::string(fields[columns.epoch]) + " disagree");
  }
  *time = parsed;
  return true;
}

// Packs one line into record. REQUIRES: record has layout.recordSize() bytes.
bool ReadRow(std::string_view line, const RecordLayout& layout, const Columns& columns,
             unsigned char* record, std::string* error) {
  const std::vector<std::string_view> fields = SplitFields(line);
  if (fields.size() != columns.fields) {
    return Fail(error, std::to_string(fields.size()) + " fields where the header has " +
                           std::to_string(columns.fields));
  }
  std::int32_t time = 0;
  if (!ReadRowTime(fields, columns, &time, error)) return false;
  std::memcpy(record, &time, kRecordTimeBytes);
  for (std::size_t v = 0; v < layout.views.size(); ++v) {
    const std::string_view text = fields[columns.views[v]];
    float value = 0;
    if (!ParseValue(text, &value)) {
      return Fail(error, "bad value '" + std::string(text) + "' in column " + layout.views[v]);
    }
    std::memcpy(record + kRecordTimeBytes + v * kRecordValueBytes, &value, kRecordValueBytes);
  }
  return true;
}

}  // namespace

bool ParseTime(std::string_view text, std::int32_t* time, std::string* error) {
  long long seconds = 0;
  if (!ParseEpoch(text, &seconds) && !ParseIso(text, &seconds)) {
    return Fail(error, "bad time '" + std::string(text) + "': " + kTimeForms);
  }
  if (!FitsTime(seconds)) {
    return Fail(error, "time '" + std::string(text) + "' is outside the 32-bit range");
  }
  *time = static_cast<std::int32_t>(seconds);
  return true;
}

std::string FormatTime(std::int32_t time) {
  const chrono::sys_seconds instant{chrono::seconds(time)};
  const chrono::sys_days day = chrono::floor<chrono::days>(instant);
  const chrono::year_month_day date{day};
  const chrono::hh_mm_ss clock{instant - day};
  char text[kNumberText];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

void WriteCsv(std::ostream& out, const RecordLayout& layout, const unsigned char* records,
              std::size_t count) {
  out << kTimeColumn << kSeparator << kEpochColumn;
  for (const std::string& view : layout.views) out << kSeparator << view;
  out << '\n';
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned char* record = records + i * layout.recordSize();
    std::int32_t time = 0;
    std::memcpy(&time, record, kRecordTimeBytes);
    out << FormatTime(time) << kSeparator << time;
    for (std::size_t v = 0; v < layout.views.size(); ++v) {
      float value = 0;
      std::memcpy(&value, record + kRecordTimeBytes + v * kRecordValueBytes, kRecordValueBytes);
      out << kSeparator << FormatValue(value);
    }
    out << '\n';
  }
}

bool ReadCsv(std::istream& in, const RecordLayout& layout, std::vector<unsigned char>* records,
             std::string* error) {
  std::vector<unsigned char> read;
  std::vector<unsigned char> record(layout.recordSize());
  Columns columns;
  bool haveHeader = false;
  std::string line;
  std::string problem;
  for (int number = 1; std::getline(in, line); ++number) {
    std::string_view text = line;
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    if (Trim(text).empty()) continue;
    const bool ok = haveHeader ? ReadRow(text, layout, columns, record.data(), &problem)
                               : ReadHeader(text, layout, &columns, &problem);
    if (!ok) return Fail(error, "line " + std::to_string(number) + ": " + problem);
    if (haveHeader) read.insert(read.end(), record.begin(), record.end());
    haveHeader = true;
  }
  if (!haveHeader) return Fail(error, "line 1: no header line");
  records->insert(records->end(), read.begin(), read.end());
  return true;
}
