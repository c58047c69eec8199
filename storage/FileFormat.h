// FileFormat.h: the symbol data file (".cjd"), written down once.
//
// All integers little-endian. A text field is one length byte (0 to 254)
// followed by exactly 255 bytes holding the string; readers take the length
// byte and ignore what follows the string; this writer writes zeros there.
// n = number of descriptions, v = number of views.
//
//   offset        size       field
//   0             256        file type text field, "Component Jet Data File"
//   256           2          version, u16, 1
//   258           4          description-area offset D, u32, written n*512 + 2
//   262           2          n, u16
//   264           512*n      descriptions: name text field, value text field
//   D+262         4          header size H, u32, written 1038 + 257*v
//   D+266         1          v, u8
//   D+267         257*v      views: type byte (DATA_POINT_TYPES), name text field
//   then          256        name text field
//   then          256        title text field
//   then          1          period kind, one ASCII letter
//   then          4          period length, i32 (read as 0 unless the kind is 'I')
//   then          256        provider name text field
//   then          256        code text field
//   then          4          point size, IEEE float (0.0001 for a new symbol)
//   then          4          reserved, never written by the header writer
//   D+H+266       rs*count   data point records, sorted by time
//
// A data point record is a signed 32-bit time (seconds since 1970) followed
// by one value per view, as wide as the view's type; rs = 4 + sum of widths.
// Readers use the stored D and H, not values recomputed from n and v. Wide
// texts (name, title, provider) are written in the local 8-bit encoding and
// read back one byte per character.
//
// Compat: D is written as n*512 + 2, a new symbol's point size is 0.0001 and
// the reserved word is never written, as in the files other writers leave;
// readers take what is stored, whatever it holds.

#ifndef DATASTORE_STORAGE_FILEFORMAT_H_
#define DATASTORE_STORAGE_FILEFORMAT_H_

#include <cstdint>

namespace cjd {

constexpr char kFileType[] = "Component Jet Data File";
constexpr std::uint16_t kVersion = 1;
constexpr char kFileSuffix[] = "cjd";

constexpr std::uint32_t kTextFieldSize = 256;  // length byte + text bytes
constexpr std::uint32_t kTextBytes = 255;      // bytes after the length byte
constexpr std::uint32_t kMaxTextLength = 254;  // longest string a field holds

constexpr std::uint32_t kVersionOffset = 256;
constexpr std::uint32_t kDescriptionAreaOffsetField = 258;
constexpr std::uint32_t kDescriptionCountOffset = 262;
constexpr std::uint32_t kDescriptionsOffset = 264;
constexpr std::uint32_t kDescriptionSize = 2 * kTextFieldSize;
constexpr std::uint32_t kDescriptionAreaBase = 2;    // D = n * 512 + 2
constexpr std::uint32_t kHeaderSizeFieldBase = 262;  // H lives at D + 262
constexpr std::uint32_t kViewSize = 1 + kTextFieldSize;
constexpr std::uint32_t kHeaderSizeBase = 1038;  // H = 1038 + 257 * v
constexpr std::uint32_t kRecordAreaBase = 266;   // records start at D + H + 266
constexpr std::uint32_t kTimeSize = 4;           // time field of every record
constexpr std::uint32_t kMaxViewTypes = 7;       // view types are 0 to 6
// Properties after the views: name, title, kind, length, provider, code, point size.
constexpr std::uint32_t kPropertiesSize = 4 * kTextFieldSize + 1 + 4 + 4;
constexpr float kDefaultPointSize = 0.0001f;

constexpr std::uint32_t DescriptionAreaOffset(std::uint32_t descriptions) {
  return descriptions * kDescriptionSize + kDescriptionAreaBase;
}
constexpr std::uint32_t HeaderSize(std::uint32_t views) {
  return kHeaderSizeBase + kViewSize * views;
}
constexpr std::uint64_t FirstRecordOffset(std::uint32_t d, std::uint32_t h) {
  return std::uint64_t{d} + h + kRecordAreaBase;
}
// Where the header writer stops (the reserved word follows).
constexpr std::uint64_t HeaderEnd(std::uint32_t descriptions, std::uint32_t views) {
  return kDescriptionsOffset + std::uint64_t{descriptions} * kDescriptionSize + 4 + 1 +
         std::uint64_t{views} * kViewSize + kPropertiesSize;
}

static_assert(FirstRecordOffset(DescriptionAreaOffset(0), HeaderSize(5)) == 2591);
static_assert(FirstRecordOffset(DescriptionAreaOffset(0), HeaderSize(2)) == 1820);
static_assert(HeaderEnd(0, 5) + 4 == 2591);

}  // namespace cjd

#endif  // DATASTORE_STORAGE_FILEFORMAT_H_
