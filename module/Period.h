// Period.h: what a SYMBOL_PERIOD means, written down once: its kinds, ticks,
// the views and record size the store gives a new symbol, and its text.
//
// A period is written "I0" (ticks), "I<n>" (intraday bars of n minutes), "D",
// "W", "M" or "Y". Only an intraday period's length counts; the others'
// lengths read as 0. A new symbol stores records of a 32-bit time and one
// 32-bit float per view: "Value" and "Volume" for ticks, "Open", "High",
// "Low", "Close" and "Volume" for every other period.
//
// Qt-free and header-only, like HostBoundary.h, so that hosts may use it.
// Thread-safety: pure functions.

#ifndef DATASTORE_MODULE_PERIOD_H_
#define DATASTORE_MODULE_PERIOD_H_

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "HostBoundary.h"

namespace period {

constexpr char kIntraday = 'I';                         // the kind whose length counts
constexpr std::string_view kEndOfPeriodKinds = "DWMY";  // the kinds written as one letter
inline constexpr const char* kTickViews[] = {"Value", "Volume"};
inline constexpr const char* kCandleViews[] = {"Open", "High", "Low", "Close", "Volume"};
constexpr std::size_t kTimeBytes = sizeof(std::int32_t);  // a record's time
constexpr std::size_t kValueBytes = sizeof(float);        // one view's value

constexpr bool IsKnownKind(char kind) {
  return kind == kIntraday || (kind != 0 && kEndOfPeriodKinds.find(kind) != std::string_view::npos);
}

// The length that counts: the bar length for 'I', 0 for every other kind.
constexpr std::int32_t LengthOf(char kind, std::int32_t length) {
  return kind == kIntraday ? length : 0;
}

constexpr bool IsTicks(char kind, std::int32_t length) { return kind == kIntraday && length == 0; }
constexpr bool IsTicks(SYMBOL_PERIOD const& period) { return IsTicks(period.kind, period.length); }

// The views the store gives a new symbol of the period, in record order.
inline std::vector<std::string> DefaultViews(SYMBOL_PERIOD const& period) {
  if (IsTicks(period)) return {std::begin(kTickViews), std::end(kTickViews)};
  return {std::begin(kCandleViews), std::end(kCandleViews)};
}

// Bytes of a record of a new symbol of the period: 12 for ticks, 24 for bars.
constexpr std::size_t RecordSize(SYMBOL_PERIOD const& period) {
  return kTimeBytes +
         (IsTicks(period) ? std::size(kTickViews) : std::size(kCandleViews)) * kValueBytes;
}

// "I5", "I0", "D": the kind, and for 'I' its length.
inline std::string Text(char kind, std::int32_t length) {
  std::string text(1, kind);
  if (kind == kIntraday) text += std::to_string(length);
  return text;
}
inline std::string Text(SYMBOL_PERIOD const& period) { return Text(period.kind, period.length); }

// Parses a period written as above into *out (third word 0); false for any
// other text, *out untouched.
inline bool Parse(std::string_view text, SYMBOL_PERIOD* out) {
  if (text.size() == 1 && kEndOfPeriodKinds.find(text[0]) != std::string_view::npos) {
    *out = SYMBOL_PERIOD{text[0], 0, 0};
    return true;
  }
  if (text.size() < 2 || text[0] != kIntraday || text[1] < '0' || text[1] > '9') return false;
  std::int32_t length = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data() + 1, end, length);
  if (status != std::errc() || stop != end) return false;
  *out = SYMBOL_PERIOD{kIntraday, length, 0};
  return true;
}

}  // namespace period

#endif  // DATASTORE_MODULE_PERIOD_H_
