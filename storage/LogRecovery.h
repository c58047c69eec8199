// LogRecovery.h: reading a data folder's write-ahead log (LogFormat.h) and
// working out what recovery does to each file it names. Shared by the
// writer's start-up, which carries the plans out, and the cjd tool, which
// shows a file as recovery would leave it without touching it.
//
// Guarantees: every length and path read from the log is checked before use
// (a frame larger than what is left of the log ends it; a path that is
// absolute or climbs with ".." is never followed); appended extents are
// checked against the files as they are, nothing is written.
// Thread-safety: pure functions over the file system.

#ifndef DATASTORE_STORAGE_LOGRECOVERY_H_
#define DATASTORE_STORAGE_LOGRECOVERY_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FileSystem.h"
#include "LogFormat.h"

namespace wal {

struct LogContents {
  std::optional<std::uint64_t> salt;  // none: no sound header, so no frame counts
  std::vector<Frame> frames;          // the sound frames, in order
  std::uint64_t end = kHeaderBytes;   // where the sound frames end
  std::uint64_t lastChecksum = 0;     // chain value after the last sound frame
};

// Reads the sound header and frames of an open log.
Status ReadLog(RandomAccessFile& log, LogContents* contents);

struct FilePlan {
  std::string path;                         // relative to the data folder
  std::vector<const Frame*> writes;         // write frames to put back, in order
  std::optional<std::uint64_t> cutTo;       // the file ends no later than this
  std::optional<std::uint64_t> appendedTo;  // where its appends found sound end
  int appendsKept = 0;                      // appended extents whose checksum holds
  int framesVoided = 0;                     // frames after an append that did not hold
};

// What recovery does to each file the frames name, in order of first
// mention. Frames with an unsafe path are skipped. An appended extent stands
// when the file holds its checksum or a later intent of the file (logged
// only once the extent was synced) covers it; the first that does not voids
// every later frame.
Status PlanRecovery(FileSystem& fileSystem, std::string const& folder, LogContents const& contents,
                    std::vector<FilePlan>* plans);

std::string JoinPath(std::string const& folder, std::string const& relative);

}  // namespace wal

#endif  // DATASTORE_STORAGE_LOGRECOVERY_H_
