#include "FileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr mode_t kNewFileMode = 0644;

int OpenFlags(OpenMode mode) {
  switch (mode) {
    case OpenMode::ReadOnly: return O_RDONLY;
    case OpenMode::ReadWrite: return O_RDWR;
    case OpenMode::CreateNew: return O_RDWR | O_CREAT | O_EXCL;
    case OpenMode::OpenOrCreate: return O_RDWR | O_CREAT;
  }
  return O_RDONLY;
}

class PosixFile : public RandomAccessFile {
 public:
  PosixFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
  ~PosixFile() override { ::close(fd_); }
  PosixFile(const PosixFile&) = delete;
  PosixFile& operator=(const PosixFile&) = delete;

  Status ReadAt(std::uint64_t offset, void* buffer, std::size_t n, std::size_t* got) override {
    std::size_t done = 0;
    while (done < n) {
      const ssize_t part = ::pread(fd_, static_cast<char*>(buffer) + done, n - done,
                                   static_cast<off_t>(offset + done));
      if (part < 0 && errno == EINTR) continue;
      if (part < 0) return Status::FromErrno("read", path_, errno);
      if (part == 0) break;
      done += static_cast<std::size_t>(part);
    }
    *got = done;
    return Status();
  }

  Status WriteAt(std::uint64_t offset, const void* data, std::size_t n) override {
    std::size_t done = 0;
    while (done < n) {
      const ssize_t part = ::pwrite(fd_, static_cast<const char*>(data) + done, n - done,
                                    static_cast<off_t>(offset + done));
      if (part < 0 && errno == EINTR) continue;
      if (part < 0) return Status::FromErrno("write", path_, errno);
      if (part == 0) return Status::Error("write", path_, "no byte written");
      done += static_cast<std::size_t>(part);
    }
    return Status();
  }

  Status Size(std::uint64_t* size) override {
    struct stat status;
    if (::fstat(fd_, &status) != 0) return Status::FromErrno("stat", path_, errno);
    *size = static_cast<std::uint64_t>(status.st_size);
    return Status();
  }

  Status Truncate(std::uint64_t size) override {
    if (::ftruncate(fd_, static_cast<off_t>(size)) == 0) return Status();
    return Status::FromErrno("truncate", path_, errno);
  }

  Status Sync() override {
    if (::fdatasync(fd_) == 0) return Status();
    return Status::FromErrno("sync", path_, errno);
  }

  std::string const& path() const override { return path_; }

 private:
  const int fd_;            // owned descriptor
  const std::string path_;  // for error texts
};

// Opens a folder and runs sync (fsync: its entries; syncfs: its file system) on it.
Status SyncThroughFolder(std::string const& folder, int (*sync)(int), const char* operation) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return Status::FromErrno("open folder", folder, errno);
  const bool synced = sync(fd) == 0;
  const int error = errno;
  ::close(fd);
  return synced ? Status() : Status::FromErrno(operation, folder, error);
}

class PosixFileSystem : public FileSystem {
 public:
  Status Open(std::string const& path, OpenMode mode,
              std::unique_ptr<RandomAccessFile>* file) override {
    const int fd = ::open(path.c_str(), OpenFlags(mode) | O_CLOEXEC, kNewFileMode);
    if (fd < 0) return Status::FromErrno("open", path, errno);
    *file = std::make_unique<PosixFile>(fd, path);
    return Status();
  }

  Status Remove(std::string const& path) override {
    if (::unlink(path.c_str()) == 0) return Status();
    return Status::FromErrno("remove", path, errno);
  }

  Status SyncAll(std::string const& folder) override {
    return SyncThroughFolder(folder, ::syncfs, "sync the file system of");
  }
  Status SyncDirectory(std::string const& path) override {
    return SyncThroughFolder(path, ::fsync, "sync folder");
  }

  bool Exists(std::string const& path) override {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0;
  }
};

}  // namespace

Status Status::FromErrno(std::string operation, std::string path, int error) {
  return Error(std::move(operation), std::move(path), std::strerror(error));
}

std::string Status::ToString() const {
  if (ok()) return "ok";
  return operation_ + " " + path_ + ": " + reason_;
}

Status RandomAccessFile::ReadExactly(std::uint64_t offset, void* buffer, std::size_t n) {
  std::size_t got = 0;
  Status status = ReadAt(offset, buffer, n, &got);
  if (status.ok() && got != n)
    return Status::Error("read", path(), "short read: the file ends early");
  return status;
}

FileSystem& FileSystem::Default() {
  static PosixFileSystem fileSystem;
  return fileSystem;
}

std::string DirectoryOf(std::string const& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}
