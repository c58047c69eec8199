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
  void SetUp() override {
    if (char const* zone = std::getenv("TZ")) saved_ = zone;
  }
  void TearDown() override {
    if (saved_) {
      setenv("TZ", saved_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::optional<std::string> saved_;  // TZ before the test; none when unset
};

}  // namespace

TEST_F(TimeZone, CheckNeedsExactlyGst0) {
  unsetenv("TZ");
  EXPECT_FALSE(CheckTimeZone());
  setenv("TZ", "UTC", 1);
  EXPECT_FALSE(CheckTimeZone());
  setenv("TZ", "GST0 ", 1);
  EXPECT_FALSE(CheckTimeZone());
  setenv("TZ", "GST0", 1);
  EXPECT_TRUE(CheckTimeZone());
}

TEST_F(TimeZone, SetTimeTzSetsAndAppliesZeroOffset) {
  unsetenv("TZ");
  ASSERT_FALSE(CheckTimeZone());
  setenv("TZ", "EST5", 1);
  tzset();
  CModule::SetTimeTz();
  EXPECT_TRUE(CheckTimeZone());

  std::time_t const noon = 12 * 3600;
  std::tm local{};
  localtime_r(&noon, &local);
  EXPECT_EQ(local.tm_hour, 12);  // local time is UTC now, not 5 hours behind

  CModule::SetTimeTz();  // again: still set
  EXPECT_TRUE(CheckTimeZone());
}
