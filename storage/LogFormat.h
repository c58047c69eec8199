// LogFormat.h: the write-ahead log of a data folder, written down once.
//
// "<data folder>/datastore.wal" holds every change to the folder's data files
// since the last checkpoint. All integers little-endian.
//
// Header, 32 bytes at offset 0 (one sector, always written whole):
//   offset  size  field
//   0       8     magic "CJDWAL01"
//   8       4     format version, u32, 1
//   12      4     zero
//   16      8     salt, u64: a new value at every checkpoint
//   24      8     checksum of bytes 0 to 23 (Checksum64, seed 0)
//
// Frames follow from offset 32, back to back:
//   0       4     kind, u32: 1 write, 2 append intent, 3 append done
//   4       4     path length p, u32, 1 to 4096
//   8       8     offset, u64: write: where the payload goes; intent: the
//                 size the file is known good up to; done: where the extent starts
//   16      8     length, u64: write: payload bytes; intent: 0; done: extent bytes
//   24      8     extent checksum, u64: done: ExtentChecksum of the extent's
//                 bytes as the data file holds them; otherwise 0
//   32      8     frame checksum, u64: Checksum64 of bytes 0 to 31, then of the
//                 path, then of the payload, each seeded with the result before;
//                 the first seed is the previous frame's checksum (the salt for
//                 the first frame)
//   40      p     the data file's path relative to the data folder, '/' between
//                 parts, never absolute, never with a "." or ".." part
//   40+p    n     payload (write frames only: n = length)
//
// A frame counts only when its checksum holds; the first one that does not
// (torn, stale from before the last checkpoint, or zeros) ends the log.
//
// What a frame asks of recovery, file by file in log order:
//   write   put the payload at the offset (the file is created if missing);
//   intent  the file is sound up to `offset` bytes; appends written straight
//           into it may follow;
//   done    an append put `length` bytes at `offset`; it stands when the
//           file holds them with the checksum, otherwise the file is cut back
//           to where the append began, and every later frame (of any file)
//           is void: the folder holds the changes up to one point of the log.
// A file that had an intent ends no longer than its last sound byte.

#ifndef DATASTORE_STORAGE_LOGFORMAT_H_
#define DATASTORE_STORAGE_LOGFORMAT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace wal {

constexpr char kLogFileName[] = "datastore.wal";
constexpr char kMagic[8] = {'C', 'J', 'D', 'W', 'A', 'L', '0', '1'};
constexpr std::uint32_t kFormatVersion = 1;
constexpr std::size_t kHeaderBytes = 32;
constexpr std::size_t kHeaderChecksumOffset = 24;
constexpr std::size_t kFrameHeaderBytes = 40;
constexpr std::size_t kFrameChecksumOffset = 32;
constexpr std::uint32_t kMaxPathBytes = 4096;

enum class FrameKind : std::uint32_t {
  Write = 1,         // payload at offset
  AppendIntent = 2,  // the file is sound up to offset; direct appends follow
  AppendDone = 3,    // an append of length bytes at offset, with their checksum
};

struct Frame {
  FrameKind kind = FrameKind::Write;
  std::string path;                    // relative to the data folder
  std::uint64_t offset = 0;            // see the kinds
  std::uint64_t length = 0;            // see the kinds
  std::uint64_t extentChecksum = 0;    // done frames: checksum of the appended bytes
  std::vector<unsigned char> payload;  // write frames: the bytes
};

std::array<unsigned char, kHeaderBytes> EncodeHeader(std::uint64_t salt);
// The salt of a sound header.
std::optional<std::uint64_t> DecodeHeader(const unsigned char* bytes);

// Appends the frame's bytes to out, chained to `previous`; returns its checksum.
std::uint64_t EncodeFrame(Frame const& frame, const void* payload, std::size_t payloadSize,
                          std::uint64_t previous, std::vector<unsigned char>& out);

// The checksum of an appended extent: Checksum64 of its bytes in pieces of
// kExtentPieceBytes, each seeded with the result of the piece before (0 for
// the first), so that it can be checked a piece at a time.
constexpr std::size_t kExtentPieceBytes = 1 << 20;
std::uint64_t ExtentChecksum(const void* data, std::size_t size, std::uint64_t seed = 0);

// True for a relative path of non-empty parts none of which is "." or "..".
bool IsSafeRelativePath(std::string const& path);

}  // namespace wal

#endif  // DATASTORE_STORAGE_LOGFORMAT_H_
