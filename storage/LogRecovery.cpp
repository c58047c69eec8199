#include "LogRecovery.h"

#include <cstring>
#include <map>
#include <memory>
#include <new>

#include "Checksum.h"

namespace wal {
namespace {

template <typename T>
T Get(const unsigned char* at) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  return value;
}

bool IsKnownKind(std::uint32_t kind) {
  return kind >= static_cast<std::uint32_t>(FrameKind::Write) &&
         kind <= static_cast<std::uint32_t>(FrameKind::AppendDone);
}

// Reads the frame at `at`; nothing when it is not a sound frame chained to `previous`.
std::optional<Frame> ReadFrame(RandomAccessFile& log, std::uint64_t at, std::uint64_t logSize,
                               std::uint64_t previous, std::uint64_t* checksum) {
  unsigned char header[kFrameHeaderBytes];
  if (logSize - at < kFrameHeaderBytes || !log.ReadExactly(at, header, sizeof(header)).ok())
    return std::nullopt;
  Frame frame;
  const auto kind = Get<std::uint32_t>(header);
  const auto pathBytes = Get<std::uint32_t>(header + 4);
  frame.offset = Get<std::uint64_t>(header + 8);
  frame.length = Get<std::uint64_t>(header + 16);
  frame.extentChecksum = Get<std::uint64_t>(header + 24);
  if (!IsKnownKind(kind) || pathBytes == 0 || pathBytes > kMaxPathBytes) return std::nullopt;
  frame.kind = static_cast<FrameKind>(kind);
  const std::uint64_t payloadBytes = frame.kind == FrameKind::Write ? frame.length : 0;
  const std::uint64_t left = logSize - at - kFrameHeaderBytes;
  if (pathBytes > left || payloadBytes > left - pathBytes) return std::nullopt;
  frame.path.resize(pathBytes);
  try {
    frame.payload.resize(static_cast<std::size_t>(payloadBytes));
  } catch (std::bad_alloc const&) {
    return std::nullopt;  // more than memory holds: the log ends here
  }
  if (!log.ReadExactly(at + kFrameHeaderBytes, frame.path.data(), pathBytes).ok())
    return std::nullopt;
  if (payloadBytes > 0 && !log.ReadExactly(at + kFrameHeaderBytes + pathBytes, frame.payload.data(),
                                           frame.payload.size())
                               .ok()) {
    return std::nullopt;
  }
  std::uint64_t sum = Checksum64(header, kFrameChecksumOffset, previous);
  sum = Checksum64(frame.path.data(), frame.path.size(), sum);
  sum = Checksum64(frame.payload.data(), frame.payload.size(), sum);
  if (sum != Get<std::uint64_t>(header + kFrameChecksumOffset)) return std::nullopt;
  *checksum = sum;
  return frame;
}

// True when the file holds `length` bytes at `offset` with the checksum.
bool ExtentHolds(RandomAccessFile* file, Frame const& done) {
  std::uint64_t size = 0;
  if (file == nullptr || !file->Size(&size).ok()) return false;
  if (done.offset > size || done.length > size - done.offset) return false;
  std::vector<unsigned char> piece(std::min<std::uint64_t>(done.length, kExtentPieceBytes));
  std::uint64_t sum = 0;
  for (std::uint64_t at = 0; at < done.length; at += piece.size()) {
    const std::size_t n =
        static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), done.length - at));
    if (!file->ReadExactly(done.offset + at, piece.data(), n).ok()) return false;
    sum = ExtentChecksum(piece.data(), n, sum);
  }
  return sum == done.extentChecksum;
}

struct FileWalk {
  FilePlan plan;            // what is decided so far
  std::uint64_t reach = 0;  // the file's size so far: on disk, then grown by its frames
  std::optional<std::uint64_t> soundUpTo;  // after an intent: where the sound bytes end
  std::uint64_t vouchedUpTo = 0;           // the largest intent of the file anywhere in the log
  bool broken = false;                     // an append did not hold
  std::unique_ptr<RandomAccessFile> file;  // the data file, read only, when it exists
};

void Vouch(FileWalk& walk, std::uint64_t size) {
  walk.soundUpTo = std::max(walk.soundUpTo.value_or(0), size);
  walk.plan.appendedTo = std::max(walk.plan.appendedTo.value_or(0), size);
}

// An extent below a later intent was synced before that intent was logged:
// it stands even where later writes of the file have changed its bytes.
bool AppendStands(FileWalk& walk, Frame const& done) {
  if (!walk.soundUpTo || done.offset > *walk.soundUpTo || walk.file == nullptr) return false;
  return done.offset + done.length <= walk.vouchedUpTo || ExtentHolds(walk.file.get(), done);
}

void Walk(FileWalk& walk, Frame const& frame) {
  if (walk.broken) {
    // Void; an intent still says where the file's sound bytes end, since its
    // appends may have reached the file.
    if (frame.kind == FrameKind::AppendIntent && !walk.soundUpTo) walk.soundUpTo = frame.offset;
    ++walk.plan.framesVoided;
    return;
  }
  switch (frame.kind) {
    case FrameKind::Write:
      // The writer writes no further than its file's end: a frame that
      // would leave a hole was never written by it.
      if (frame.offset > walk.reach) {
        walk.broken = true;
        break;
      }
      walk.reach = std::max(walk.reach, frame.offset + frame.length);
      walk.plan.writes.push_back(&frame);
      if (walk.soundUpTo) walk.soundUpTo = std::max(*walk.soundUpTo, frame.offset + frame.length);
      break;
    case FrameKind::AppendIntent: Vouch(walk, frame.offset); break;
    case FrameKind::AppendDone:
      if (AppendStands(walk, frame)) {
        Vouch(walk, frame.offset + frame.length);
        walk.reach = std::max(walk.reach, frame.offset + frame.length);
        ++walk.plan.appendsKept;
      } else {
        walk.soundUpTo = walk.soundUpTo ? std::min(*walk.soundUpTo, frame.offset) : frame.offset;
        walk.broken = true;
      }
      break;
  }
}

}  // namespace

Status ReadLog(RandomAccessFile& log, LogContents* contents) {
  *contents = LogContents();
  std::uint64_t size = 0;
  Status status = log.Size(&size);
  if (!status.ok() || size < kHeaderBytes) return status;
  unsigned char header[kHeaderBytes];
  status = log.ReadExactly(0, header, sizeof(header));
  if (!status.ok()) return status;
  contents->salt = DecodeHeader(header);
  if (!contents->salt) return Status();
  std::uint64_t previous = *contents->salt;
  std::uint64_t at = kHeaderBytes;
  while (std::optional<Frame> frame = ReadFrame(log, at, size, previous, &previous)) {
    at += kFrameHeaderBytes + frame->path.size() + frame->payload.size();
    contents->frames.push_back(std::move(*frame));
  }
  contents->end = at;
  contents->lastChecksum = previous;
  return Status();
}

std::string JoinPath(std::string const& folder, std::string const& relative) {
  if (folder.empty()) return relative;
  return folder.back() == '/' ? folder + relative : folder + "/" + relative;
}

// Frames count in log order up to the first appended extent that does not
// hold: it and everything logged after it, for every file, are void, so the
// folder holds the changes up to one point of the log.
Status PlanRecovery(FileSystem& fileSystem, std::string const& folder, LogContents const& contents,
                    std::vector<FilePlan>* plans) {
  std::map<std::string, std::size_t> walkOf;
  std::vector<FileWalk> walks;
  bool broken = false;
  for (Frame const& frame : contents.frames) {
    if (!IsSafeRelativePath(frame.path)) continue;
    auto [found, added] = walkOf.try_emplace(frame.path, walks.size());
    if (added) {
      walks.emplace_back();
      walks.back().plan.path = frame.path;
      fileSystem.Open(JoinPath(folder, frame.path), OpenMode::ReadOnly, &walks.back().file);
      if (walks.back().file != nullptr) walks.back().file->Size(&walks.back().reach);
    }
    FileWalk& walk = walks[found->second];
    if (frame.kind == FrameKind::AppendIntent)
      walk.vouchedUpTo = std::max(walk.vouchedUpTo, frame.offset);
  }
  for (Frame const& frame : contents.frames) {
    if (!IsSafeRelativePath(frame.path)) continue;
    FileWalk& walk = walks[walkOf[frame.path]];
    walk.broken = walk.broken || broken;
    Walk(walk, frame);
    broken = broken || walk.broken;
  }
  plans->clear();
  for (FileWalk& walk : walks) {
    walk.plan.cutTo = walk.soundUpTo;
    plans->push_back(std::move(walk.plan));
  }
  return Status();
}

}  // namespace wal
