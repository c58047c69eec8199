// fuzz_export_dir: an export directory made by another program. The input
// becomes MASTER, XMASTER and EMASTER indexes and two data files in a scratch
// folder; every index entry is then dated and converted as the import does.
//
// Input: data file number A u8, data file number B u8, then MASTER, XMASTER
// and EMASTER, each as a u16 size and its bytes, the size of A u16 and the
// bytes of "F<A>.dat", then the bytes of "f<256 + B>.mwd" (written only when
// there are any; its name needs the case-insensitive look-up). Sizes are cut
// to the bytes that are there.

#include <QString>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "ExportConversion.h"
#include "ExportDirectory.h"
#include "ExportIndex.h"
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

constexpr int kFirstXmasterFile = 256;

// A MASTER that claims more records than it holds yields runs of zero-filled
// entries; converting one of a run is enough.
bool SameRecord(IndexEntry const& a, IndexEntry const& b) {
  return a.fileNumber == b.fileNumber && a.recordLength == b.recordLength &&
         a.fieldCount == b.fieldCount && a.periodLetter == b.periodLetter &&
         a.intradaySize == b.intradaySize && a.symbol == b.symbol && a.source == b.source;
}

void Convert(IndexEntry const& entry, std::size_t k) {
  getFirstTime(entry.recordLength, entry.periodLetter, entry.dataFile);
  getLastTime(entry.recordLength, entry.periodLetter, entry.dataFile);

  ConvertedInstrument out;
  const QString priceType = QString::fromLatin1(kPriceTypes[k % kPriceTypeCount]);
  if (ConvertInstrument(entry, priceType, out) != ConversionOutcome::kConverted) return;
  if (out.points.size() != std::size_t(out.pointCount) * out.pointSize) {
    std::fprintf(stderr, "%d points of %u bytes in %zu bytes\n", out.pointCount, out.pointSize,
                 out.points.size());
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzsupport::ScratchDir scratch("fuzz-export");
  InputCursor input(data, size);
  const std::uint32_t numberA = input.Byte();
  const std::uint32_t numberB = input.Byte();
  for (const char* index : {"MASTER", "XMASTER", "EMASTER"})
    input.WriteNext(scratch.File(index), input.Size());
  input.WriteNext(scratch.File("F" + std::to_string(numberA) + ".dat"), input.Size());
  if (input.Left() > 0) {
    input.WriteNext(scratch.File("f" + std::to_string(kFirstXmasterFile + numberB) + ".mwd"),
                    input.Left());
  }

  const std::vector<IndexEntry> entries = ReadExportIndex(QString::fromStdString(scratch.path()));
  for (std::size_t k = 0; k < entries.size(); ++k) {
    if (k == 0 || !SameRecord(entries[k], entries[k - 1])) Convert(entries[k], k);
  }
  scratch.Empty();
  return 0;
}
