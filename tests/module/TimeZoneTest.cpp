// The process time zone: the check and the setting.

#include "TimeZone.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "Module.h"

TEST(TimeZone, CheckNeedsExactlyGst0AndSetTimeTzAppliesIt) {
  const char* const original = std::getenv("TZ");
  const std::optional<std::string> saved =
      original ? std::optional<std::string>(original) : std::nullopt;
  unsetenv("TZ");
  EXPECT_FALSE(CheckTimeZone());
  for (const char* zone : {"UTC", "GST0 "}) {
    setenv("TZ", zone, 1);
    EXPECT_FALSE(CheckTimeZone()) << zone;
  }
  setenv("TZ", "GST0", 1);
  EXPECT_TRUE(CheckTimeZone());

  setenv("TZ", "EST5", 1);
  tzset();
  CModule::SetTimeTz();
  EXPECT_TRUE(CheckTimeZone());
  std::time_t const noon = 12 * 3600;
  std::tm local{};
  localtime_r(&noon, &local);
  EXPECT_EQ(local.tm_hour, 12);  // local time is UTC now, not 5 hours behind

  saved ? setenv("TZ", saved->c_str(), 1) : unsetenv("TZ");  // only EXPECTs above: always restored
  tzset();
}
