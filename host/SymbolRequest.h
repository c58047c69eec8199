// SymbolRequest.h: what dshost puts into a symbol request, and the layout of
// the records it gets back for that symbol.
//
// A period is written I0 (ticks), I<n> (intraday bars of length n), D, W, M
// or Y. A symbol that the data store creates from a request stores records of
// a signed 32-bit time followed by one 32-bit float per view: "Value" and
// "Volume" for ticks, "Open", "High", "Low", "Close" and "Volume" for every
// other period. The host cannot ask a module for a symbol's views, so it
// assumes this layout for every symbol it opens.
//
// Thread-safety: free functions without shared state.

#ifndef DATASTORE_HOST_SYMBOLREQUEST_H_
#define DATASTORE_HOST_SYMBOLREQUEST_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "HostBoundary.h"

constexpr std::size_t kRecordTimeBytes = sizeof(std::int32_t);  // time field of a record
constexpr std::size_t kRecordValueBytes = sizeof(float);        // one view's value

// The records of one symbol: a time, then one float per view.
struct RecordLayout {
  std::vector<std::string> views;  // view names, in record order

  std::size_t recordSize() const { return kRecordTimeBytes + views.size() * kRecordValueBytes; }
};

// Parses a period written as above into *period (third word 0). Returns false
// and sets *error for any other text.
bool ParsePeriod(std::string_view text, SYMBOL_PERIOD* period, std::string* error);
// The layout the data store gives a new symbol of this period.
RecordLayout LayoutOf(const SYMBOL_PERIOD& period);

// The code a symbol gets when none is given: its name without every
// character that is not an ASCII letter or digit ("EUR/USD" -> "EURUSD").
std::string DefaultCode(std::u16string_view name);

// Fills *request for message 6001. Returns false and sets *error when a text
// is empty or longer than 254 units or bytes (the provider also fills the
// host's 255-byte source record).
// REQUIRES: *request is zeroed, so that every text stays NUL-terminated.
bool MakeSymbolRequest(const std::string& provider, std::u16string_view name,
                       const std::string& code, const SYMBOL_PERIOD& period,
                       SYMBOL_NAME_PERIOD* request, std::string* error);

#endif  // DATASTORE_HOST_SYMBOLREQUEST_H_
