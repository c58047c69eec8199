// TemporaryFolder.h: a fresh folder under $TMPDIR (or /tmp) for one benchmark
// run, removed with everything in it on destruction.
#ifndef DATASTORE_BENCH_TEMPORARYFOLDER_H_
#define DATASTORE_BENCH_TEMPORARYFOLDER_H_

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

class TemporaryFolder {
 public:
  // REQUIRES: nameTemplate ends in "XXXXXX".
  explicit TemporaryFolder(const char* nameTemplate) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        (std::filesystem::path(base && *base ? base : "/tmp") / nameTemplate).string();
    if (mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("cannot make a folder like " + pattern);
    path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  std::filesystem::path const& path() const { return path_; }

 private:
  std::filesystem::path path_;  // the folder
};

#endif  // DATASTORE_BENCH_TEMPORARYFOLDER_H_
