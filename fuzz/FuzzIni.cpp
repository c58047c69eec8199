// fuzz_ini: a configuration file that anyone could have edited. The input
// names a section, a key and a value and then holds the file; the file is
// read with every reader (into a caller's buffer of a size from the input)
// and then written.
//
// Input (FuzzedDataProvider): section, key and value as random-length
// strings from the front, the buffer size and the defaults from the back,
// and the file in between.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "IniFile.h"

namespace {

constexpr std::size_t kMaxTextLength = 300;  // beyond the 253 characters a section name keeps
constexpr int kMinBufferSize = -1;           // sizes below 1 write nothing
constexpr int kMaxBufferSize = 1100;         // beyond the 1023 bytes of any formatted text
constexpr char kFileName[] = "pelto.cfg";

struct Request {
  std::string section;
  std::string key;
  std::string value;
  int bufferSize;
  int defaultInteger;
  bool defaultBool;
};

// Reads into a buffer of exactly the size the caller states, so that any
// write beyond it is caught.
void ReadIntoBuffer(inifiles const& ini, Request const& request) {
  const int size = request.bufferSize;
  std::unique_ptr<char[]> out(new char[std::size_t(std::max(size, 0))]);
  const int result = ini.ReadString(request.section.c_str(), request.key.c_str(),
                                    request.value.c_str(), out.get(), size);
  if (size >= 1 && strnlen(out.get(), std::size_t(size)) == std::size_t(size)) {
    std::fprintf(stderr, "ReadString (result %d) left a buffer of %d unterminated\n", result, size);
    std::abort();
  }
}

void ReadEveryWay(inifiles const& ini, Request const& request) {
  ReadIntoBuffer(ini, request);
  const char* section = request.section.c_str();
  const char* key = request.key.c_str();
  ini.ReadInteger(section, key, request.defaultInteger);
  ini.ReadBool(section, key, request.defaultBool);
  ini.ReadFloat(section, key, request.defaultInteger);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzsupport::ScratchDir scratch("fuzz-ini");
  FuzzedDataProvider input(data, size);
  Request request;
  request.section = input.ConsumeRandomLengthString(kMaxTextLength);
  request.key = input.ConsumeRandomLengthString(kMaxTextLength);
  request.value = input.ConsumeRandomLengthString(kMaxTextLength);
  request.bufferSize = input.ConsumeIntegralInRange(kMinBufferSize, kMaxBufferSize);
  request.defaultInteger = input.ConsumeIntegral<int>();
  request.defaultBool = input.ConsumeBool();
  const std::vector<std::uint8_t> file = input.ConsumeRemainingBytes<std::uint8_t>();

  const std::string path = scratch.File(kFileName);
  fuzzsupport::WriteFile(path, file.data(), file.size());
  {
    inifiles ini(path.c_str());
    ReadEveryWay(ini, request);
    ini.WriteString(request.section.c_str(), request.key.c_str(), request.value.c_str());
    ReadEveryWay(ini, request);
  }
  scratch.Empty();
  return 0;
}
