// ShutdownFs.cpp: fs_shutdown MOUNT_POINT cuts the file system mounted there
// as a power cut would: from now on it writes nothing, and what its journal
// had not committed is lost (FS_IOC_SHUTDOWN with NOLOGFLUSH; ext4 and xfs
// share the request number). Prints the monotonic time in ns taken just
// before the cut, so that a writer's acknowledgements can be placed before
// or after it.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <ctime>

namespace {

constexpr unsigned long kShutdownRequest = _IOR('X', 125, std::uint32_t);  // FS_IOC_SHUTDOWN
constexpr std::uint32_t kNoLogFlush = 2;  // FS_SHUTDOWN_FLAG_NOLOGFLUSH

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fs_shutdown MOUNT_POINT\n");
    return 2;
  }
  const int fd = open(argv[1], O_RDONLY | O_DIRECTORY);
  if (fd < 0) {
    std::perror(argv[1]);
    return 1;
  }
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::uint32_t flags = kNoLogFlush;
  if (ioctl(fd, kShutdownRequest, &flags) != 0) {
    std::perror("FS_IOC_SHUTDOWN");
    return 1;
  }
  std::printf("%lld\n", now.tv_sec * 1'000'000'000LL + now.tv_nsec);
  return 0;
}
