#include "FileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace {

constexpr mode_t kNewFileMode = 0644;
constexpr std::size_t kCopyChunk = 1 << 20;

// The last failure of each thread. Not thread_local: the library is loaded
// and unloaded at run time, and dynamic TLS of an unloaded library trips
// leak checkers that walk every thread's TLS.
std::mutex errorTextsMutex;
std::unordered_map<std::thread::id, std::string> errorTexts;  // guarded by errorTextsMutex

void RememberError(std::string const& what, std::string const& path) {
  std::string text = what + " " + path + ": " + std::strerror(errno);
  std::lock_guard<std::mutex> lock(errorTextsMutex);
  errorTexts[std::this_thread::get_id()] = std::move(text);
}

int OpenFlags(OpenMode mode) {
  switch (mode) {
    case OpenMode::ReadOnly:
      return O_RDONLY;
    case OpenMode::ReadWrite:
      return O_RDWR;
    case OpenMode::CreateTruncate:
      return O_RDWR | O_CREAT | O_TRUNC;
    case OpenMode::CreateNew:
      return O_RDWR | O_CREAT | O_EXCL;
  }
  return O_RDONLY;
}

class PosixFile : public RandomAccessFile {
 public:
  PosixFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
  ~PosixFile() override { ::close(fd_); }
  PosixFile(const PosixFile&) = delete;
  PosixFile& operator=(const PosixFile&) = delete;

  std::int64_t ReadAt(std::uint64_t offset, void* buffer, std::size_t n) override {
    std::size_t done = 0;
    while (done < n) {
      const ssize_t got = ::pread(fd_, static_cast<char*>(buffer) + done, n - done,
                                  static_cast<off_t>(offset + done));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) {
        RememberError("read", path_);
        return -1;
      }
      if (got == 0) break;
      done += static_cast<std::size_t>(got);
    }
    return static_cast<std::int64_t>(done);
  }

  bool WriteAt(std::uint64_t offset, const void* data, std::size_t n) override {
    std::size_t done = 0;
    while (done < n) {
      const ssize_t put = ::pwrite(fd_, static_cast<const char*>(data) + done, n - done,
                                   static_cast<off_t>(offset + done));
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) {
        RememberError("write", path_);
        return false;
      }
      done += static_cast<std::size_t>(put);
    }
    return true;
  }

  std::int64_t Size() override {
    struct stat status;
    if (::fstat(fd_, &status) != 0) {
      RememberError("stat", path_);
      return -1;
    }
    return status.st_size;
  }

  bool Truncate(std::uint64_t size) override {
    if (::ftruncate(fd_, static_cast<off_t>(size)) == 0) return true;
    RememberError("truncate", path_);
    return false;
  }

  bool Sync() override {
    if (::fdatasync(fd_) == 0) return true;
    RememberError("sync", path_);
    return false;
  }

 private:
  const int fd_;            // owned descriptor
  const std::string path_;  // for error texts
};

class PosixFileSystem : public FileSystem {
 public:
  std::unique_ptr<RandomAccessFile> Open(std::string const& path, OpenMode mode) override {
    const int fd = ::open(path.c_str(), OpenFlags(mode) | O_CLOEXEC, kNewFileMode);
    if (fd < 0) {
      RememberError("open", path);
      return nullptr;
    }
    return std::make_unique<PosixFile>(fd, path);
  }

  bool Rename(std::string const& from, std::string const& to) override {
    if (std::rename(from.c_str(), to.c_str()) == 0) return true;
    RememberError("rename", from + " to " + to);
    return false;
  }

  bool Remove(std::string const& path) override {
    if (::unlink(path.c_str()) == 0) return true;
    RememberError("remove", path);
    return false;
  }
};

}  // namespace

FileSystem& FileSystem::Default() {
  static PosixFileSystem fileSystem;
  return fileSystem;
}

std::string FileSystem::takeErrorText() {
  std::lock_guard<std::mutex> lock(errorTextsMutex);
  const auto found = errorTexts.find(std::this_thread::get_id());
  if (found == errorTexts.end()) return {};
  std::string text = std::move(found->second);
  errorTexts.erase(found);
  return text;
}

void FileSystem::clearErrorText() {
  std::lock_guard<std::mutex> lock(errorTextsMutex);
  errorTexts.erase(std::this_thread::get_id());
}

bool CopyFilePrefix(RandomAccessFile& from, RandomAccessFile& to, std::uint64_t n) {
  std::vector<char> chunk(static_cast<std::size_t>(std::min<std::uint64_t>(n, kCopyChunk)));
  for (std::uint64_t done = 0; done < n;) {
    const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(n - done, kCopyChunk));
    if (from.ReadAt(done, chunk.data(), want) != static_cast<std::int64_t>(want)) return false;
    if (!to.WriteAt(done, chunk.data(), want)) return false;
    done += want;
  }
  return true;
}
