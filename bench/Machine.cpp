#include "Machine.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string FirstLine(const char* path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

std::string CpuModel() {
  std::ifstream in("/proc/cpuinfo");
  const std::string key = "model name";
  for (std::string line; std::getline(in, line);) {
    auto colon = line.find(':');
    if (line.rfind(key, 0) == 0 && colon != std::string::npos) return line.substr(colon + 2);
  }
  return "unknown";
}

std::string Kernel() {
  utsname name{};
  if (uname(&name) != 0) return "unknown";
  return std::string(name.sysname) + " " + name.release + " " + name.machine;
}

// The type and device of the mount that holds `folder`: the longest mount
// point that is a prefix of its path.
std::string FileSystemOf(std::filesystem::path const& folder) {
  std::string path = std::filesystem::canonical(folder).string();
  std::ifstream in("/proc/self/mounts");
  std::string best = "unknown";
  std::size_t bestLength = 0;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string device, mountPoint, type;
    fields >> device >> mountPoint >> type;
    bool contains =
        path.rfind(mountPoint, 0) == 0 &&
        (path.size() == mountPoint.size() || mountPoint == "/" || path[mountPoint.size()] == '/');
    if (contains && mountPoint.size() >= bestLength) {
      best = type + " (" + device + " on " + mountPoint + ")";
      bestLength = mountPoint.size();
    }
  }
  return best;
}

}  // namespace

std::string LoadAverage() { return FirstLine("/proc/loadavg"); }

void PrintMachine(std::filesystem::path const& folder, std::string const& loadAtStart,
                  std::ostream& out) {
  out << "\nMachine\n"
      << "  CPU:          " << CpuModel() << "\n"
      << "  cores:        " << sysconf(_SC_NPROCESSORS_ONLN) << " online\n"
      << "  kernel:       " << Kernel() << "\n"
      << "  temp folder:  " << folder.string() << "\n"
      << "  file system:  " << FileSystemOf(folder) << "\n"
      << "  load average: " << loadAtStart << " (start), " << LoadAverage() << " (end)\n"
#ifdef NDEBUG
      << "  build:        optimised (NDEBUG)\n";
#else
      << "  build:        NOT optimised (assertions on): numbers are not representative\n";
#endif
}
