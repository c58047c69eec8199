// The process time zone: the check and the setting.

#include "TimeZone.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "Module.h"

namespace {

// Restores the test process's TZ after each test.
class TimeZone : public ::testing::Test {
 protected:
  void TearDown() override {
    saved_ ? setenv("TZ", saved_->c_str(), 1) : unsetenv("TZ");
    tzset();
  }

 private:
  const std::optional<std::string> saved_ =
      std::getenv("TZ") ? std::optional<std::string>(std::getenv("TZ")) : std::nullopt;
};

}  // namespace

TEST_F(TimeZone, CheckNeedsExactlyGst0) {
  unsetenv("TZ");
  EXPECT_FALSE(CheckTimeZone());
  for (const char* zone : {"UTC", "GST0 "}) {
    setenv("TZ", zone, 1);
    EXPECT_FALSE(CheckTimeZone()) << zone;
  }
  setenv("TZ", "GST0", 1);
  EXPECT_TRUE(CheckTimeZone());
}

TEST_F(TimeZone, SetTimeTzSetsAndAppliesZeroOffset) {
  setenv("TZ", "EST5", 1);
  tzset();
  CModule::SetTimeTz();
  EXPECT_TRUE(CheckTimeZone());
  std::time_t const noon = 12 * 3600;
  std::tm local{};
  localtime_r(&noon, &local);
  EXPECT_EQ(local.tm_hour, 12);  // local time is UTC now, not 5 hours behind
}
