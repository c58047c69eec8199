// MBF <-> IEEE conversion: known words, the edges of both ranges, and every
// exponent both ways.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ExportDirectory.h"
#include "ImportTestSupport.h"

namespace {

constexpr std::uint32_t kUntouched = 0xDEADBEEF;  // what dst held before a refused conversion

// Converts the word; nothing when refused (then dst must be untouched).
std::optional<std::uint32_t> Convert(int (*convert)(float*, float*), std::uint32_t word) {
  float src = AsFloat(word);
  float dst = AsFloat(kUntouched);
  if (convert(&src, &dst) == 0) return Bits(dst);
  EXPECT_EQ(Bits(dst), kUntouched);
  return std::nullopt;
}
std::optional<std::uint32_t> ToIeee(std::uint32_t mbf) { return Convert(fmsbin2ieee, mbf); }
std::optional<std::uint32_t> ToMbf(std::uint32_t ieee) { return Convert(fieee2msbin, ieee); }

TEST(MbfFloatTest, KnownWordsBothWays) {
  const std::pair<std::uint32_t, float> cases[] = {
      {0x81000000, 1.0f},
      {0x80000000, 0.5f},
      {0x82000000, 2.0f},
      {0x7F000000, 0.25f},
      {0x81200000, 1.25f},
      {0x81800000, -1.0f},
      {0x800CCCCD, 0.55f},
      {0x8A7A0000, 1000.0f},
      {0x950CCCCD, 1.1f * 1048576.0f},
      {0x03000000, std::numeric_limits<float>::min()},
  };
  for (auto const& [mbf, value] : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << mbf);
    EXPECT_EQ(ToIeee(mbf), Bits(value));
    EXPECT_EQ(ToMbf(Bits(value)), mbf);
  }
}

TEST(MbfFloatTest, EdgesOfBothRanges) {
  // MBF exponent byte 0 is zero whatever follows; 1 and 2 lie below the normal IEEE range.
  for (std::uint32_t word : {0x00000000u, 0x00800000u, 0x00FFFFFFu})
    EXPECT_EQ(ToIeee(word), 0u) << word;
  for (std::uint32_t word : {0x01000000u, 0x01800000u, 0x02FFFFFFu})
    EXPECT_EQ(ToIeee(word), std::nullopt) << word;

  EXPECT_EQ(ToMbf(Bits(0.0f)), 0u);
  EXPECT_EQ(ToMbf(Bits(-0.0f)), 0u);
  EXPECT_EQ(ToMbf(0x00000001), std::nullopt);  // smallest denormal
  EXPECT_EQ(ToMbf(0x807FFFFF), std::nullopt);  // largest negative denormal
  using Limits = std::numeric_limits<float>;
  // 2^127 and above have no MBF exponent.
  for (float value : {Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(), Limits::max(),
                      std::ldexp(1.0f, 127)}) {
    EXPECT_EQ(ToMbf(Bits(value)), std::nullopt) << value;
  }
  EXPECT_EQ(ToMbf(Bits(std::ldexp(1.0f, 126))), 0xFF000000u);  // largest MBF exponent
  EXPECT_EQ(ToMbf(Bits(-std::ldexp(1.0f, 126))), 0xFF800000u);
}

TEST(MbfFloatTest, EveryExponentAndSignRoundTrips) {
  const std::uint32_t mantissas[] = {0, 1, 0x123456, 0x400000, 0x7FFFFF};
  for (std::uint32_t exponent = 3; exponent <= 0xFF; ++exponent) {
    for (std::uint32_t sign : {0u, 0x00800000u}) {
      for (std::uint32_t mantissa : mantissas) {
        const std::uint32_t mbf = (exponent << 24) | sign | mantissa;
        SCOPED_TRACE(testing::Message() << std::hex << mbf);
        const std::optional<std::uint32_t> ieee = ToIeee(mbf);
        ASSERT_TRUE(ieee);
        const double magnitude = std::ldexp(1.0 + mantissa / 8388608.0, int(exponent) - 129);
        EXPECT_EQ(AsFloat(*ieee), static_cast<float>(sign ? -magnitude : magnitude));
        EXPECT_EQ(ToMbf(*ieee), mbf);
      }
    }
  }
}

}  // namespace
