// LogView.h: data files as the writer's recovery will leave them: the bytes on
// disk with the changes their data folder's write-ahead log still holds,
// carried out as recovery would carry them out (LogRecovery.h): the write
// frames put over the disk bytes in log order, then the file cut back to its
// last sound byte after an unfinished append.
//
// The data folder of a file is the nearest folder, from the file's own up,
// that holds "datastore.wal"; its frames name files relative to it.
//
// The cjd tool shows files through it, and a data store whose recovery could
// not finish (a full disk) reads through it rather than serve half-replayed
// files.
//
// Guarantees: read-only. Nothing on disk is written, created, cut or locked;
// every write through the view is refused. Each log is read once, when a
// file of its folder is first opened, so the view suits a log nobody writes.
// REQUIRES: the file system outlives the files it opens.
// Thread-safety: none.

#ifndef DATASTORE_STORAGE_LOGVIEW_H_
#define DATASTORE_STORAGE_LOGVIEW_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FileSystem.h"
#include "LogRecovery.h"

// The path made absolute, without "." and ".." parts.
std::string AbsolutePath(std::string const& path);
// The data folder of the file at an absolute path; empty when no folder
// above it holds a log.
std::string DataFolderOf(FileSystem& fileSystem, std::string const& path);

// What the log still changes in one file.
struct LoggedChanges {
  int unapplied = 0;           // write frames whose bytes the file does not hold yet
  std::uint64_t cutFrom = 0;   // where recovery cuts the file, when cutBytes > 0
  std::uint64_t cutBytes = 0;  // bytes of an unfinished append it cuts
};

class LoggedFileSystem : public FileSystem {
 public:
  explicit LoggedFileSystem(FileSystem& disk = FileSystem::Default()) : disk_(disk) {}

  // ReadOnly only; a file the log names reads as recovery would leave it.
  Status Open(std::string const& path, OpenMode mode,
              std::unique_ptr<RandomAccessFile>* file) override;
  Status Remove(std::string const& path) override;
  Status SyncDirectory(std::string const& path) override;
  Status SyncAll(std::string const& folder) override;
  bool Exists(std::string const& path) override;

  FileSystem& disk() const { return disk_; }

  // What the log changes in the file at path (nothing when it names it not).
  Status ChangesOf(std::string const& path, LoggedChanges* changes);

 private:
  struct FolderLog {
    std::string folder;                // the data folder
    Status status;                     // of reading the log
    wal::LogContents contents;         // its sound frames
    std::vector<wal::FilePlan> plans;  // what recovery does to each file
  };
  // The recovery plan of the file at path; null when no log names it.
  Status PlanOf(std::string const& path, const wal::FilePlan** plan);
  FolderLog& LogOf(std::string const& folder);

  FileSystem& disk_;                                        // the real files
  std::map<std::string, std::unique_ptr<FolderLog>> logs_;  // by data folder
};

#endif  // DATASTORE_STORAGE_LOGVIEW_H_
