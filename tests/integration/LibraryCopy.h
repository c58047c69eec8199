// LibraryCopy.h: a temporary folder of a test's own that holds fresh copies of
// the built data store library. Loading a copy of its own gives each test a
// module whose static state starts fresh whatever ran before in the process.

#ifndef DATASTORE_TESTS_INTEGRATION_LIBRARYCOPY_H_
#define DATASTORE_TESTS_INTEGRATION_LIBRARYCOPY_H_

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>

class LibraryCopy {
 public:
  LibraryCopy() {
    static std::atomic<int> counter{0};
    const std::string unique = std::to_string(::getpid()) + "_" + std::to_string(counter++);
    dir_ = std::filesystem::temp_directory_path() / ("datastore_library_test_" + unique);
    std::filesystem::create_directories(dir_);
  }
  ~LibraryCopy() { std::filesystem::remove_all(dir_); }
  LibraryCopy(const LibraryCopy&) = delete;
  LibraryCopy& operator=(const LibraryCopy&) = delete;

  // A new copy of the built library under name.
  std::string copy(const std::string& name) const {
    const std::filesystem::path target = dir_ / name;
    std::filesystem::copy_file(DATASTORE_MODULE_PATH, target);
    return target.string();
  }
  const std::filesystem::path& dir() const { return dir_; }

 private:
  std::filesystem::path dir_;  // removed with the object
};

#endif  // DATASTORE_TESTS_INTEGRATION_LIBRARYCOPY_H_
