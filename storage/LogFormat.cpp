#include "LogFormat.h"

#include <algorithm>
#include <cstring>

#include "Checksum.h"

namespace wal {
namespace {

template <typename T>
void Put(unsigned char* at, T value) {
  std::memcpy(at, &value, sizeof(T));
}

template <typename T>
T Get(const unsigned char* at) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  return value;
}

}  // namespace

std::array<unsigned char, kHeaderBytes> EncodeHeader(std::uint64_t salt) {
  std::array<unsigned char, kHeaderBytes> bytes{};
  std::memcpy(bytes.data(), kMagic, sizeof(kMagic));
  Put<std::uint32_t>(bytes.data() + 8, kFormatVersion);
  Put<std::uint64_t>(bytes.data() + 16, salt);
  Put<std::uint64_t>(bytes.data() + kHeaderChecksumOffset,
                     Checksum64(bytes.data(), kHeaderChecksumOffset, 0));
  return bytes;
}

std::optional<std::uint64_t> DecodeHeader(const unsigned char* bytes) {
  if (std::memcmp(bytes, kMagic, sizeof(kMagic)) != 0) return std::nullopt;
  if (Get<std::uint32_t>(bytes + 8) != kFormatVersion) return std::nullopt;
  if (Get<std::uint64_t>(bytes + kHeaderChecksumOffset) !=
      Checksum64(bytes, kHeaderChecksumOffset, 0)) {
    return std::nullopt;
  }
  return Get<std::uint64_t>(bytes + 16);
}

std::uint64_t EncodeFrame(Frame const& frame, const void* payload, std::size_t payloadSize,
                          std::uint64_t previous, std::vector<unsigned char>& out) {
  const std::size_t at = out.size();
  out.resize(at + kFrameHeaderBytes + frame.path.size() + payloadSize);
  unsigned char* header = out.data() + at;
  Put<std::uint32_t>(header, static_cast<std::uint32_t>(frame.kind));
  Put<std::uint32_t>(header + 4, static_cast<std::uint32_t>(frame.path.size()));
  Put<std::uint64_t>(header + 8, frame.offset);
  Put<std::uint64_t>(header + 16, frame.length);
  Put<std::uint64_t>(header + 24, frame.extentChecksum);
  std::memcpy(header + kFrameHeaderBytes, frame.path.data(), frame.path.size());
  if (payloadSize > 0)
    std::memcpy(header + kFrameHeaderBytes + frame.path.size(), payload, payloadSize);
  std::uint64_t checksum = Checksum64(header, kFrameChecksumOffset, previous);
  checksum = Checksum64(frame.path.data(), frame.path.size(), checksum);
  checksum = Checksum64(payload, payloadSize, checksum);
  Put<std::uint64_t>(header + kFrameChecksumOffset, checksum);
  return checksum;
}

std::uint64_t ExtentChecksum(const void* data, std::size_t size, std::uint64_t seed) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t done = 0; done < size; done += kExtentPieceBytes) {
    seed = Checksum64(bytes + done, std::min(kExtentPieceBytes, size - done), seed);
  }
  return seed;
}

bool IsSafeRelativePath(std::string const& path) {
  if (path.empty() || path.front() == '/' || path.find('\0') != std::string::npos) return false;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t slash = path.find('/', start);
    if (slash == std::string::npos) slash = path.size();
    const std::string part = path.substr(start, slash - start);
    if (part.empty() || part == "." || part == "..") return false;
    start = slash + 1;
  }
  return true;
}

}  // namespace wal
