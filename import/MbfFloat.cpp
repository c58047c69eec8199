// Microsoft Binary Format single <-> IEEE single, on the bit patterns.
//
// MBF:  bits 31-24 exponent (bias 129), bit 23 sign, bits 22-0 mantissa.
// IEEE: bit 31 sign, bits 30-23 exponent (bias 127), bits 22-0 mantissa.
// Both keep the leading one implicit, so a normal value moves by re-biasing
// the exponent and moving the sign; the mantissa is copied unchanged.

#include <cstdint>
#include <cstring>

#include "ExportDirectory.h"

namespace {

constexpr int kDone = 0;
constexpr int kOutOfRange = 1;

constexpr std::uint32_t kMantissaMask = 0x007FFFFF;
constexpr std::uint32_t kExponentMask = 0xFF;
constexpr int kMbfExponentShift = 24;
constexpr int kIeeeExponentShift = 23;
constexpr std::uint32_t kMbfSignBit = 0x00800000;
constexpr std::uint32_t kIeeeSignBit = 0x80000000;
constexpr int kSignMove = 8;                  // MBF bit 23 <-> IEEE bit 31
constexpr std::uint32_t kBiasDifference = 2;  // 129 - 127

std::uint32_t Load(const float* value) {
  std::uint32_t word;
  std::memcpy(&word, value, sizeof word);
  return word;
}

void Store(float* value, std::uint32_t word) { std::memcpy(value, &word, sizeof word); }

}  // namespace

int fmsbin2ieee(float* src, float* dst) {
  const std::uint32_t word = Load(src);
  const std::uint32_t exponent = word >> kMbfExponentShift;
  if (exponent == 0) {
    Store(dst, 0);
    return kDone;
  }
  if (exponent <= kBiasDifference) return kOutOfRange;  // would be an IEEE denormal
  const std::uint32_t sign = (word & kMbfSignBit) << kSignMove;
  Store(dst, sign | ((exponent - kBiasDifference) << kIeeeExponentShift) | (word & kMantissaMask));
  return kDone;
}

int fieee2msbin(float* src, float* dst) {
  const std::uint32_t word = Load(src);
  const std::uint32_t exponent = (word >> kIeeeExponentShift) & kExponentMask;
  const std::uint32_t mantissa = word & kMantissaMask;
  if (exponent == 0 && mantissa == 0) {  // +0.0 and -0.0
    Store(dst, 0);
    return kDone;
  }
  if (exponent == 0) return kOutOfRange;  // denormal: below the MBF range we read back
  // 2^127 and above, infinities and NaNs (exponent 0xFF) have no MBF exponent.
  if (exponent + kBiasDifference > kExponentMask) return kOutOfRange;
  const std::uint32_t sign = (word & kIeeeSignBit) >> kSignMove;
  Store(dst, ((exponent + kBiasDifference) << kMbfExponentShift) | sign | mantissa);
  return kDone;
}
