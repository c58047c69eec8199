// TimeZone.cpp: setting and checking the process time zone.

#include "TimeZone.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "Module.h"

namespace {

constexpr char kZoneVariable[] = "TZ";  // environment variable of the time zone
constexpr char kZone[] = "GST0";        // the module's zone

// "TZ=GST0". putenv keeps this pointer, not a copy, so it lives as long as the process.
char zoneSetting[sizeof kZoneVariable + sizeof kZone];

}  // namespace

bool CheckTimeZone() {
  char const* zone = std::getenv(kZoneVariable);
  return zone != nullptr && std::strcmp(zone, kZone) == 0;
}

void CModule::SetTimeTz() {
  std::snprintf(zoneSetting, sizeof zoneSetting, "%s=%s", kZoneVariable, kZone);
  putenv(zoneSetting);
  tzset();
}
