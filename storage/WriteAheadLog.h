// WriteAheadLog.h: how the data files of a folder change, and what survives
// a killed process, a power cut or an operating-system crash.
//
// Data files change in place: no temporary file, no rename, so a file
// reached through a symbolic link stays a link and keeps its owner and
// permission bits. Every change is first a frame in the folder's log
// ("datastore.wal", LogFormat.h):
//   - a change of stored records (replacing the newest record, an insert in
//     the middle or before the first record) and a small append are a write
//     frame holding the new bytes from the first changed record to the end.
//     The data file is not touched: the bytes wait in memory as the file's
//     pending tail, which every read in the module sees at once, until the
//     next checkpoint puts them into the file;
//   - an append of at least kDirectAppendBytes with no tail pending goes
//     straight into the data file, after the last whole record: it changes no
//     byte a reader could already see. The first such append to a file after
//     a checkpoint logs an intent frame (the size the file is sound up to) and
//     syncs the log before it writes; each append then logs a done frame with
//     the checksum of its bytes, so recovery keeps an appended tail whose
//     checksum holds and cuts one whose does not. Once such appends are synced
//     (Commit, a checkpoint, recovery), a new intent vouches for them, so they
//     stand even after later writes have changed their bytes;
//   - a header written over a stored one is a write frame, synced with
//     Durability 1 and 2 before the header goes into the file, so a torn
//     header is repaired. A new file is made empty and its header is a
//     pending tail like any other (nothing is synced): until the next sync
//     point a crash leaves the file missing or empty, and an empty file is
//     taken for a new one; after it, the file holds its header.
//
// Checkpoint (a sync point), in this order:
//   1. sync the files with direct appends, log an intent for each, sync the
//      log (every frame since the last checkpoint is durable);
//   2. write each pending tail into its data file;
//   3. sync every data file written since the last checkpoint, then the
//      folders that gained a file (past syncEachFileAtMost files, one sync
//      of their file system does both);
//   4. start a new log: a header with a new salt at offset 0, so the old
//      frames no longer count (their chain of checksums began with the old
//      salt), and sync it; the next frames overwrite the old ones.
// A checkpoint runs every SyncInterval ms while changes wait (CheckpointIfDue,
// called by the writer on a timer and after inserts), when the pending tails
// pass kMaxPendingBytes or the log kMaxLogBytes, and at Checkpoint (the data
// store's stop and unload).
// A failed sync leaves everything pending; the next checkpoint starts again.
// A file whose tail cannot be written keeps it pending (logged again, whole,
// in the new log) and is reported; the others go on. A file that cannot be
// written at all is found by the first change after a checkpoint (one byte
// it holds is written back), so its inserts are refused at once.
//
// Recovery (Open, by the folder's one writer): the sound frames are read and
// planned (LogRecovery.h); appends found sound are synced and vouched for in
// the old log (so a crash in the middle of recovery finds them again); each
// file's writes are carried out in order and its cut made, the files and
// their folders synced, and a new log started and synced.
//
// Durability (DurabilitySettings::level):
//   0: no sync call. A killed process loses no finished insert (its frame and
//      writes are in the page cache); a power cut may damage recent writes.
//   1: steps 1 and 3 sync. After a power cut every file is whole and sorted,
//      holds no record nobody inserted, and holds every insert made before the
//      last checkpoint.
//   2: as 1, and Commit makes every change since the last Commit durable
//      (direct appends' data files, their intents, then the log): one sync of
//      the log for all the inserts a worker served together.
//
// REQUIRES: the caller holds the folder's writer lock and serialises every
// call (the data store's data mutex).
// Thread-safety: none.

#ifndef DATASTORE_STORAGE_WRITEAHEADLOG_H_
#define DATASTORE_STORAGE_WRITEAHEADLOG_H_

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "FileSystem.h"
#include "LogFormat.h"
#include "LogRecovery.h"

struct DurabilitySettings {
  static constexpr int kNoSync = 0;
  static constexpr int kSyncPoints = 1;
  static constexpr int kEveryInsert = 2;
  int level = kSyncPoints;    // "Durability": 0, 1 or 2
  int syncIntervalMs = 1000;  // "SyncInterval": longest wait of a change for its checkpoint
  std::size_t syncEachFileAtMost =
      16;  // more files written: a checkpoint syncs their file system once
};

// The bytes of a file from `offset` to its end that only the log holds yet.
struct PendingTail {
  std::uint64_t offset = 0;          // first byte
  std::vector<unsigned char> bytes;  // from there to the end
  std::uint64_t diskSize = 0;        // the file's size when the tail began
  std::uint64_t end() const { return offset + bytes.size(); }
  // True when a file of `size` bytes was cut below what the tail builds on
  // (behind the module's back): the tail no longer fits it.
  bool CutBelow(std::uint64_t size) const { return size < std::min(offset, diskSize); }
};

// What recovery found and did.
struct RecoveryReport {
  int framesReplayed = 0;                 // sound frames carried out
  int filesCut = 0;                       // files cut back to their last sound byte
  int framesVoided = 0;                   // frames after an append that did not hold
  std::vector<std::string> filesTouched;  // relative paths, for the log
};

class WriteAheadLog {
 public:
  static constexpr std::size_t kDirectAppendBytes = 1024;  // smaller appends wait in the log
  static constexpr std::size_t kMaxPendingBytes =
      64 * 1024 * 1024;  // pending tails that force a checkpoint
  static constexpr std::uint64_t kMaxLogBytes = 64 * 1024 * 1024;  // a log that forces a checkpoint

  // Recovers the log of `folder` and starts a new one.
  static Status Open(FileSystem& fileSystem, std::string const& folder, DurabilitySettings settings,
                     std::unique_ptr<WriteAheadLog>* log, RecoveryReport* report = nullptr);
  ~WriteAheadLog();  // a last checkpoint
  WriteAheadLog(const WriteAheadLog&) = delete;
  WriteAheadLog& operator=(const WriteAheadLog&) = delete;

  // What the log keeps of one file. Readers hold a const pointer to it: its
  // address stays for the log's life.
  struct FileEntry {
    std::unique_ptr<PendingTail> tail;  // null: nothing pending
    std::uint64_t changes = 0;          // changes made through the log (tells a
                                        // reader's caches that another object changed the file)
    bool intentLogged = false;          // a direct append may follow without a sync
    bool needsSync = false;             // written since the last checkpoint
    bool unvouched = false;             // direct appends not yet synced and vouched for
    std::uint64_t appendedEnd = 0;      // where the last direct append ended
  };

  // Files are named by their key, RelativePath(path as the file was opened).
  const FileEntry* Entry(std::string const& key) { return &files_[key]; }

  // Writes n bytes at offset, to the file's end or past it (`file` supplies
  // bytes between a new tail and an old one).
  Status Write(std::string const& key, RandomAccessFile& file, std::uint64_t offset,
               const void* data, std::size_t n);
  // Appends n bytes at offset, the end of the file's whole records: straight
  // into the file when large and nothing is pending for it, otherwise Write.
  Status Append(std::string const& key, RandomAccessFile& file, std::uint64_t offset,
                const void* data, std::size_t n);
  // Writes a header over the one at offset 0 of a stored file.
  Status WriteHeader(std::string const& key, RandomAccessFile& file, const void* data,
                     std::size_t n);
  // The header of an empty file (one just made, or left empty by a crash
  // while it was being made): its pending tail, as Write.
  Status WriteNewFile(std::string const& key, RandomAccessFile& file, const void* data,
                      std::size_t n);

  Status Commit();
  // Runs a checkpoint's syncs. The data store runs them with its data mutex
  // released, so that reads of open files go on; it keeps every change out
  // (no write, append, header, commit, no file opened) until Checkpoint
  // returns. The syncs touch nothing a read touches.
  using SyncRunner = std::function<Status(std::function<Status()> const& syncs)>;
  Status Checkpoint(SyncRunner const& runner = {});
  Status CheckpointIfDue(SyncRunner const& runner = {});
  // Time until the next checkpoint is due; max() when nothing waits.
  std::chrono::steady_clock::duration UntilDue() const;
  bool HasUnapplied() const { return unapplied_; }

  DurabilitySettings const& settings() const { return settings_; }
  std::string const& folder() const { return folder_; }
  // The key of a file: its path relative to the folder; empty when it lies
  // outside the folder or climbs out of it.
  std::string RelativePath(std::string const& path) const;

 private:
  using FileState = FileEntry;

  WriteAheadLog(FileSystem& fileSystem, std::string folder, DurabilitySettings settings);
  Status Recover(RecoveryReport* report);
  Status StartNewLog();
  Status AppendFrame(wal::Frame const& frame, const void* payload, std::size_t payloadSize);
  Status AppendWriteFrame(std::string const& key, std::uint64_t offset, const void* data,
                          std::size_t n);
  Status SyncFile(std::string const& key);
  Status SyncLog();
  Status VouchDirectAppends();
  Status VouchRecoveredAppends(wal::LogContents const& contents,
                               std::vector<wal::FilePlan> const& plans);
  Status ApplyPlan(wal::FilePlan const& plan, RecoveryReport& report);
  bool Syncs() const { return settings_.level >= DurabilitySettings::kSyncPoints; }
  Status AppendDirect(FileState& state, std::string const& key, RandomAccessFile& file,
                      std::uint64_t offset, const void* data, std::size_t n);
  void MergeIntoTail(FileState& state, RandomAccessFile& file, std::uint64_t offset,
                     const void* data, std::size_t n);
  void NoteChange(FileState& state);
  Status ProbeWritable(RandomAccessFile& file, std::uint64_t offset, std::uint64_t* size);
  Status ApplyTail(std::string const& key, FileState& state);
  Status RelogTail(std::string const& key, FileState& state);
  Status SyncWritten(SyncRunner const& runner);
  Status SyncBeforeApplying(SyncRunner const& runner);
  Status LogIntent(std::string const& key, FileState& state);
  static Status RunSyncs(SyncRunner const& runner, std::function<Status()> const& syncs);
  Status SyncNewFolders();

  FileSystem& fileSystem_;                         // where the folder lives
  const std::string folder_;                       // the data folder
  const DurabilitySettings settings_;              // level and interval
  std::unique_ptr<RandomAccessFile> log_;          // the open log
  std::uint64_t salt_ = 0;                         // of the current log
  std::uint64_t previousChecksum_ = 0;             // chain value for the next frame
  std::uint64_t writeOffset_ = wal::kHeaderBytes;  // where the next frame goes
  bool logUnsynced_ = false;                       // frames written since the log's last sync
  bool unapplied_ = false;                         // changes since the last checkpoint
  std::chrono::steady_clock::time_point firstUnapplied_;  // when the oldest of them was made
  std::size_t pendingBytes_ = 0;                          // bytes in pending tails
  std::unordered_map<std::string, FileState> files_;      // by relative path
  std::set<std::string> newFolders_;        // folders that gained a file since the last checkpoint
  std::vector<unsigned char> frameBuffer_;  // encoding space, kept between frames
};

#endif  // DATASTORE_STORAGE_WRITEAHEADLOG_H_
