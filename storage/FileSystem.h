// FileSystem.h: the file operations storage needs, behind an interface so
// that tests can inject short reads, write errors and full disks, and record
// every write, truncate and sync to enumerate the states a crash can leave.
//
// Guarantees of the default (POSIX) implementation: positioned reads and
// writes (pread/pwrite), retried on EINTR and on short transfers until the
// end of the file; no user-space buffering, so nothing is lost by a process
// that is killed after a write returned; Sync is fdatasync, SyncDirectory an
// fsync of the directory (what makes a new directory entry durable), SyncAll
// a syncfs.
// Thread-safety: a RandomAccessFile may be used from one thread at a time;
// FileSystem::Default() is safe from any thread.

#ifndef DATASTORE_STORAGE_FILESYSTEM_H_
#define DATASTORE_STORAGE_FILESYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Status.h"

enum class OpenMode {
  ReadOnly,      // an existing file, reading only
  ReadWrite,     // an existing file, reading and writing
  CreateNew,     // created; fails when the path exists
  OpenOrCreate,  // the existing file, or a new empty one; never emptied
};

class RandomAccessFile {
 public:
  virtual ~RandomAccessFile() = default;
  // Reads up to n bytes at offset into buffer; *got says how many (fewer
  // only at the end of the file).
  virtual Status ReadAt(std::uint64_t offset, void* buffer, std::size_t n, std::size_t* got) = 0;
  // Writes all n bytes at offset (the file may hold part of them on failure).
  virtual Status WriteAt(std::uint64_t offset, const void* data, std::size_t n) = 0;
  virtual Status Size(std::uint64_t* size) = 0;
  virtual Status Truncate(std::uint64_t size) = 0;
  // Makes the file's data and size durable.
  virtual Status Sync() = 0;
  virtual std::string const& path() const = 0;

  // Exactly n bytes at offset; a short read is a failure.
  Status ReadExactly(std::uint64_t offset, void* buffer, std::size_t n);
};

class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // The process's real file system.
  static FileSystem& Default();

  virtual Status Open(std::string const& path, OpenMode mode,
                      std::unique_ptr<RandomAccessFile>* file) = 0;
  virtual Status Remove(std::string const& path) = 0;
  // Makes the entries of a directory (files created in it) durable.
  virtual Status SyncDirectory(std::string const& path) = 0;
  // Makes every file and directory of the file system that holds the folder
  // durable (syncfs): one call where a sync of each of many files costs more.
  virtual Status SyncAll(std::string const& folder) = 0;
  virtual bool Exists(std::string const& path) = 0;
};

// The folder part of a path ("." when it has none).
std::string DirectoryOf(std::string const& path);

#endif  // DATASTORE_STORAGE_FILESYSTEM_H_
