#include "FuzzSupport.h"

#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

// Undefined behaviour ends the run like any other finding.
extern "C" const char* __ubsan_default_options() { return "halt_on_error=1:print_stacktrace=1"; }

namespace fuzzsupport {

ScratchDir::ScratchDir(const char* prefix) {
  std::string pattern =
      (std::filesystem::temp_directory_path() / (std::string(prefix) + "-XXXXXX")).string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    std::abort();
  }
  path_ = pattern;
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void ScratchDir::Empty() const {
  std::error_code ignored;
  for (auto const& entry : std::filesystem::directory_iterator(path_, ignored)) {
    std::filesystem::remove_all(entry.path(), ignored);
  }
}

void WriteFile(std::string const& path, const std::uint8_t* data, std::size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  if (!out) {
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    std::abort();
  }
}

std::vector<std::uint8_t> ReadFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in),
                                   std::istreambuf_iterator<char>());
}

std::uint32_t ReadU16(const std::uint8_t* data, std::size_t offset) {
  return std::uint32_t{data[offset]} | (std::uint32_t{data[offset + 1]} << 8);
}

}  // namespace fuzzsupport
