#include "SymbolRequest.h"
#include "Period.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t kMaxText = kHostNameField - 1;      // bytes of an 8-bit text before its NUL
constexpr std::size_t kMaxName = kHostWideNameUnits - 1;  // units of the name before its NUL
constexpr const char* kPeriodForms = "expected I0 (ticks), I<n>, D, W, M or Y";

bool IsAsciiAlphanumeric(char16_t c) {
  return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}

bool Fail(std::string* error, std::string message) {
  *error = std::move(message);
  return false;
}

}  // namespace

bool ParsePeriod(std::string_view text, SYMBOL_PERIOD* period, std::string* error) {
  if (period::Parse(text, period)) return true;
  return Fail(error, "bad period '" + std::string(text) + "': " + kPeriodForms);
}

RecordLayout LayoutOf(const SYMBOL_PERIOD& period) { return {period::DefaultViews(period)}; }

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
