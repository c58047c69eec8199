// FuzzSupport.h: what every fuzz target needs: a scratch folder for the
// files an input becomes, and whole-file reads and writes.

#ifndef DATASTORE_FUZZ_FUZZSUPPORT_H_
#define DATASTORE_FUZZ_FUZZSUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzzsupport {

// A folder under the system's temporary folder, made once per process and
// removed with its contents at exit.
class ScratchDir {
 public:
  explicit ScratchDir(const char* prefix);
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  std::string const& path() const { return path_; }
  std::string File(std::string const& name) const { return path_ + "/" + name; }
  // Removes everything inside the folder, keeping the folder.
  void Empty() const;

 private:
  std::string path_;
};

// Replaces the file with exactly these bytes; aborts when it cannot.
void WriteFile(std::string const& path, const std::uint8_t* data, std::size_t size);
// The file's bytes; empty when it cannot be read.
std::vector<std::uint8_t> ReadFile(std::string const& path);

// Little-endian integer at data[offset]; the caller checks the bounds.
std::uint32_t ReadU16(const std::uint8_t* data, std::size_t offset);

}  // namespace fuzzsupport

#endif  // DATASTORE_FUZZ_FUZZSUPPORT_H_
