#include "FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace {
constexpr mode_t kLockFileMode = 0644;
}  // namespace

Status FolderLock::Acquire(std::string const& folder, std::unique_ptr<FolderLock>* lock) {
  const std::string path =
      (folder.empty() || folder.back() == '/' ? folder : folder + "/") + kLockFileName;
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kLockFileMode);
  if (fd < 0) return Status::FromErrno("open", path, errno);
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    ::close(fd);
    if (error == EWOULDBLOCK) return Status::Error("lock", path, kHeldElsewhere);
    return Status::FromErrno("lock", path, error);
  }
  lock->reset(new FolderLock(fd));
  return Status();
}

FolderLock::~FolderLock() { ::close(fd_); }
