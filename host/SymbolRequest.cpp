#include "SymbolRequest.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

namespace {

constexpr char kIntraday = 'I';                           // the kind whose length counts
constexpr std::string_view kOtherKinds = "DWMY";          // kinds written as one letter
constexpr std::size_t kMaxText = kHostNameField - 1;      // bytes of an 8-bit text before its NUL
constexpr std::size_t kMaxName = kHostWideNameUnits - 1;  // units of the name before its NUL
constexpr const char* kPeriodForms = "expected I0 (ticks), I<n>, D, W, M or Y";

bool IsAsciiAlphanumeric(char16_t c) {
  return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool Fail(std::string* error, std::string message) {
  *error = std::move(message);
  return false;
}

}  // namespace

bool ParsePeriod(std::string_view text, SYMBOL_PERIOD* period, std::string* error) {
  const std::string bad = "bad period '" + std::string(text) + "': " + kPeriodForms;
  if (text.empty()) return Fail(error, bad);
  SYMBOL_PERIOD parsed{text[0], 0, 0};
  if (text.size() == 1 && kOtherKinds.find(text[0]) != std::string_view::npos) {
    *period = parsed;
    return true;
  }
  if (text[0] != kIntraday || text.size() == 1 || !IsDigit(text[1])) return Fail(error, bad);
  std::int32_t length = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data() + 1, end, length);
  if (status != std::errc() || stop != end) return Fail(error, bad);
  parsed.length = length;
  *period = parsed;
  return true;
}

RecordLayout LayoutOf(const SYMBOL_PERIOD& period) {
  if (period.kind == kIntraday && period.length == 0) return {{"Value", "Volume"}};
  return {{"Open", "High", "Low", "Close", "Volume"}};
}

std::string DefaultCode(std::u16string_view name) {
  std::string code;
  for (char16_t c : name) {
    if (IsAsciiAlphanumeric(c)) code += static_cast<char>(c);
  }
  return code;
}

bool MakeSymbolRequest(const std::string& provider, std::u16string_view name,
                       const std::string& code, const SYMBOL_PERIOD& period,
                       SYMBOL_NAME_PERIOD* request, std::string* error) {
  if (provider.empty() || provider.size() > kMaxText) {
    return Fail(error, "the provider name must have 1 to 254 bytes");
  }
  if (name.empty() || name.size() > kMaxName) {
    return Fail(error, "the symbol name must have 1 to 254 characters");
  }
  if (code.empty() || code.size() > kMaxText) {
    return Fail(error, "the code must have 1 to 254 bytes (give one with --code)");
  }
  std::memcpy(request->provider, provider.data(), provider.size());
  std::copy(name.begin(), name.end(), request->name);
  std::memcpy(request->code, code.data(), code.size());
  request->period = period;
  return true;
}
