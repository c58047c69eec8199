#include "Checksum.h"

#include <cstring>

namespace {

constexpr std::uint64_t kPrime1 = 0x9E3779B185EBCA87ULL;
constexpr std::uint64_t kPrime2 = 0xC2B2AE3D27D4EB4FULL;
constexpr std::uint64_t kPrime3 = 0x165667B19E3779F9ULL;
constexpr std::uint64_t kPrime4 = 0x85EBCA77C2B2AE63ULL;
constexpr std::uint64_t kPrime5 = 0x27D4EB2F165667C5ULL;
constexpr std::size_t kStripe = 32;  // bytes taken by the four lanes per step

std::uint64_t Rotate(std::uint64_t value, int bits) {
  return (value << bits) | (value >> (64 - bits));
}

std::uint64_t Load64(const unsigned char* bytes) {
  std::uint64_t value;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
}

std::uint32_t Load32(const unsigned char* bytes) {
  std::uint32_t value;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
}

std::uint64_t Round(std::uint64_t lane, std::uint64_t input) {
  return Rotate(lane + input * kPrime2, 31) * kPrime1;
}

std::uint64_t MergeLane(std::uint64_t hash, std::uint64_t lane) {
  return (hash ^ Round(0, lane)) * kPrime1 + kPrime4;
}

}  // namespace

std::uint64_t Checksum64(const void* data, std::size_t size, std::uint64_t seed) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  const unsigned char* const end = bytes + size;
  std::uint64_t hash;
  if (size >= kStripe) {
    std::uint64_t lanes[4] = {seed + kPrime1 + kPrime2, seed + kPrime2, seed, seed - kPrime1};
    for (; end - bytes >= static_cast<std::ptrdiff_t>(kStripe); bytes += kStripe) {
      for (int i = 0; i < 4; ++i) lanes[i] = Round(lanes[i], Load64(bytes + 8 * i));
    }
    hash = Rotate(lanes[0], 1) + Rotate(lanes[1], 7) + Rotate(lanes[2], 12) + Rotate(lanes[3], 18);
    for (std::uint64_t lane : lanes) hash = MergeLane(hash, lane);
  } else {
    hash = seed + kPrime5;
  }
  hash += size;
  for (; end - bytes >= 8; bytes += 8)
    hash = Rotate(hash ^ Round(0, Load64(bytes)), 27) * kPrime1 + kPrime4;
  if (end - bytes >= 4) {
    hash = Rotate(hash ^ (Load32(bytes) * kPrime1), 23) * kPrime2 + kPrime3;
    bytes += 4;
  }
  for (; bytes < end; ++bytes) hash = Rotate(hash ^ (*bytes * kPrime5), 11) * kPrime1;
  hash ^= hash >> 33;
  hash *= kPrime2;
  hash ^= hash >> 29;
  hash *= kPrime3;
  return hash ^ (hash >> 32);
}
