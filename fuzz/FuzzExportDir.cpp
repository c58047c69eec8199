// fuzz_export_dir: an export directory made by another program. The input
// becomes a MASTER index and one or two data files in a scratch folder; every
// index entry is then looked up, dated and converted as the import does.
//
// Input: data file number A u8, data file number B u8, MASTER size u16, the
// MASTER bytes, size of A u16, the bytes of "F<A>.dat", then the bytes of
// "f<B>.DAT" (written only when there are any; its name needs the
// case-insensitive look-up). Sizes are cut to the bytes that are there.

#include <QString>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "ExportDirectory.h"
#include "FuzzSupport.h"

namespace {

constexpr const char* kPriceTypes[] = {"Bid", "Ask", "Last", "Proc"};
constexpr std::size_t kPriceTypeCount = std::size(kPriceTypes);

// Takes the bytes of one file off the front of the input.
class InputCursor {
 public:
  InputCursor(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  std::uint32_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  std::uint32_t Size() { return Byte() | (Byte() << 8); }
  void WriteNext(std::string const& path, std::size_t wanted) {
    const std::size_t taken = std::min(wanted, size_ - at_);
    fuzzsupport::WriteFile(path, data_ + at_, taken);
    at_ += taken;
  }
  std::size_t Left() const { return size_ - at_; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

// A MASTER that claims more records than it holds yields runs of zero-filled
// entries; converting one of a run is enough.
bool SameBytes(IndexEntry const& a, IndexEntry const& b) { return std::equal(a.bytes, std::end(a.bytes), b.bytes); }

void Convert(QString const& dir, std::vector<IndexEntry> const& entries, std::size_t k) {
  IndexEntry const& entry = entries[k];
  const QString dataFile = DataFilePath(dir, entry.fileNumber());
  getFirstTime(entry.recordLength(), entry.periodLetter(), dataFile);
  getLastTime(entry.recordLength(), entry.periodLetter(), dataFile);
  FindIndexEntry(entries, entry.symbol(), entry.periodText());

  ConvertedInstrument out;
  const QString priceType = QString::fromLatin1(kPriceTypes[k % kPriceTypeCount]);
  if (!ConvertInstrument(dir, entry, entry, priceType, out)) return;
  if (out.points.size() != std::size_t(out.pointCount) * out.pointSize) {
    std::fprintf(stderr, "%d points of %u bytes in %zu bytes\n", out.pointCount, out.pointSize, out.points.size());
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzsupport::ScratchDir scratch("fuzz-export");
  InputCursor input(data, size);
  const std::uint32_t numberA = input.Byte();
  const std::uint32_t numberB = input.Byte();
  input.WriteNext(scratch.File("MASTER"), input.Size());
  input.WriteNext(scratch.File("F" + std::to_string(numberA) + ".dat"), input.Size());
  if (input.Left() > 0) input.WriteNext(scratch.File("f" + std::to_string(numberB) + ".DAT"), input.Left());

  const QString dir = QString::fromStdString(scratch.path());
  const std::vector<IndexEntry> entries = ReadMaster(dir);
  for (std::size_t k = 0; k < entries.size(); ++k) {
    if (k == 0 || !SameBytes(entries[k], entries[k - 1])) Convert(dir, entries, k);
  }
  scratch.Empty();
  return 0;
}
