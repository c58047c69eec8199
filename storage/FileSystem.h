// FileSystem.h: the file operations storage needs, behind an interface so
// that tests can inject short reads, write errors and full disks.
//
// Guarantees of the default (POSIX) implementation: positioned reads and
// writes (pread/pwrite), retried on EINTR and on short transfers until the
// end of the file; no user-space buffering, so nothing is lost by a process
// that is killed after a write returned.
// Thread-safety: a RandomAccessFile may be used from one thread at a time;
// FileSystem::Default() is safe from any thread.

#ifndef DATASTORE_STORAGE_FILESYSTEM_H_
#define DATASTORE_STORAGE_FILESYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

enum class OpenMode {
  ReadOnly,         // an existing file, reading only ("rb")
  ReadWrite,        // an existing file, reading and writing ("r+b")
  CreateTruncate,   // created, or emptied when it exists ("w+b")
  CreateNew,        // created; fails when the path exists
};

class RandomAccessFile {
 public:
  virtual ~RandomAccessFile() = default;
  // Reads up to n bytes at offset. Returns the bytes read (fewer at the end of
  // the file), or -1 on an error.
  virtual std::int64_t ReadAt(std::uint64_t offset, void* buffer, std::size_t n) = 0;
  // Writes all n bytes at offset; false on any failure (the file may then
  // hold part of them).
  virtual bool WriteAt(std::uint64_t offset, const void* data, std::size_t n) = 0;
  // The file's size in bytes, or -1 on an error.
  virtual std::int64_t Size() = 0;
  virtual bool Truncate(std::uint64_t size) = 0;
  virtual bool Sync() = 0;
};

class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // The process's real file system.
  static FileSystem& Default();

  // Null when the file cannot be opened in that mode; errorText() says why.
  virtual std::unique_ptr<RandomAccessFile> Open(std::string const& path, OpenMode mode) = 0;
  // Replaces `to` by `from` atomically.
  virtual bool Rename(std::string const& from, std::string const& to) = 0;
  virtual bool Remove(std::string const& path) = 0;
  // The text of the last failure on this thread, for logs; taking it clears it.
  static std::string takeErrorText();
  // Forgets a failure that was expected (a file that may be missing).
  static void clearErrorText();
};

// Copies n bytes at offset 0 of `from` to offset 0 of `to`; false on a short
// read or a failed write.
bool CopyFilePrefix(RandomAccessFile& from, RandomAccessFile& to, std::uint64_t n);

#endif  // DATASTORE_STORAGE_FILESYSTEM_H_
