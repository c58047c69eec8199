// fuzz_cjd_file: a stored symbol file that anyone could have written. The
// input is the file followed by a trailer of request parameters; the symbol
// is loaded (beside an append journal of any content), read in every mode,
// counted, and given a small insert.
//
// Input: the file, then a cjdinput::Trailer (zero-filled when the input is
// shorter than one).

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "FuzzInputs.h"
#include "FuzzSupport.h"
#include "Symbol.h"

namespace {

constexpr int kModeNewest = 0;
constexpr int kModeRange = 1;
constexpr int kModeOldest = 2;
constexpr int kModeCount = 3;                      // modes 0 to 2 are valid
constexpr int kMaxInsertRecords = 3;
constexpr std::size_t kMaxBufferBytes = 1 << 20;   // largest get buffer
constexpr char kFileName[] = "Fuzz_I0_FUZZ.cjd";

using cjdinput::kInsertBytes;
using cjdinput::Trailer;
constexpr std::size_t kTrailerSize = sizeof(Trailer);

class WritingOwner : public SymbolOwner {
 public:
  bool IsWriteEnabled() const override { return true; }
};

// A mode outside 0 to 2.
int InvalidMode(std::int32_t mode) {
  return mode >= kModeNewest && mode < kModeCount ? mode + kModeCount : mode;
}

// The count the caller's buffer holds: a positive count is cut so that the
// buffer stays small; zero and negative counts go through as they are.
int Capacity(std::int32_t count, unsigned int recordSize) {
  const auto most = static_cast<std::int32_t>(kMaxBufferBytes / recordSize);
  return std::min(count, most);
}

void Get(CSymbol& symbol, Trailer const& trailer, int mode) {
  const unsigned int recordSize = symbol.GetDataPointSize();
  const int capacity = Capacity(trailer.count, recordSize);
  std::vector<unsigned char> buffer(std::size_t(std::max(capacity, 0)) * recordSize);
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = mode;
  request.firstTime = trailer.firstTime;
  request.lastTime = trailer.lastTime;
  request.count = capacity;
  request.buffer = reinterpret_cast<HostWord>(buffer.data());
  symbol.GetData(&request);
  if (request.count < 0 || request.count > std::max(capacity, 0)) {
    std::fprintf(stderr, "GetData delivered %d records into a buffer of %d\n", request.count, capacity);
    std::abort();
  }
  request.count = trailer.count;
  symbol.GetDataCount(&request);
}

void GetEveryMode(CSymbol& symbol, Trailer const& trailer) {
  for (int mode : {kModeNewest, kModeRange, kModeOldest, InvalidMode(trailer.invalidMode)}) {
    Get(symbol, trailer, mode);
  }
}

void Insert(CSymbol& symbol, Trailer const& trailer) {
  const unsigned int recordSize = symbol.GetDataPointSize();
  const int count = trailer.insertCount % (kMaxInsertRecords + 1);
  std::vector<unsigned char> records(std::size_t(count) * recordSize, 0);
  if (count == 0) return;
  std::memcpy(records.data(), trailer.insertBytes, std::min(records.size(), kInsertBytes));
  symbol.InsertData(count, records.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzsupport::ScratchDir scratch("fuzz-cjd");
  static WritingOwner owner;
  Trailer trailer{};
  const std::size_t fileSize = size > kTrailerSize ? size - kTrailerSize : 0;
  std::memcpy(&trailer, data + fileSize, std::min(size, kTrailerSize));

  const std::string path = scratch.File(kFileName);
  fuzzsupport::WriteFile(path, data, fileSize);
  fuzzsupport::WriteFile(cjd::AppendJournalPath(path), trailer.journal, sizeof(trailer.journal));
  {
    CSymbol symbol(&owner, path.c_str());
    if (symbol.LoadProperties() == 0) {
      symbol.Open();
      GetEveryMode(symbol, trailer);
      Insert(symbol, trailer);
      Get(symbol, trailer, kModeNewest);
    }
  }
  scratch.Empty();
  return 0;
}
