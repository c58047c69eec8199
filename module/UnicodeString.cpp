// UnicodeString.cpp: host strings and their conversions to and from QString.

#include "UnicodeString.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned char kUtf16CharSize = 2;  // bytes per UTF-16 unit

unsigned char const* AsBytes(HostWord word) { return reinterpret_cast<unsigned char const*>(word); }

// The units of s up to its terminator, copied as they are; null for a null or empty s.
QString FromUnits(unsigned short const* s, std::size_t limit) {
  std::size_t n = 0;
  while (s != nullptr && n < limit && s[n] != 0) ++n;
  return n == 0 ? QString() : QString(reinterpret_cast<QChar const*>(s), static_cast<qsizetype>(n));
}

}  // namespace

CUnicodeStringData::CUnicodeStringData() {
  static_assert(offsetof(CUnicodeStringData, record_) == 1);
  static_assert(offsetof(CUnicodeStringData, buffer_) == 1 + sizeof(coreUncStringType));
  static_assert(sizeof(CUnicodeStringData) == 1 + sizeof(coreUncStringType) + kBufferBytes);
}

CUnicodeStringData::CUnicodeStringData(CUnicodeStringData const& other) : CUnicodeStringData() {
  *this = other;
}

CUnicodeStringData::~CUnicodeStringData() { clear(); }

void CUnicodeStringData::clear() {
  delete[] AsBytes(record_.data);
  record_.length = 0;
  record_.charSize = 0;
  record_.data = 0;
  std::memset(buffer_, 0, sizeof buffer_);
}

void CUnicodeStringData::Adopt(std::uint32_t length, std::uint8_t charSize,
                               std::unique_ptr<unsigned char[]> data) {
  clear();
  record_.length = length;
  record_.charSize = charSize;
  record_.data = reinterpret_cast<HostWord>(data.release());
}

CUnicodeStringData& CUnicodeStringData::operator=(unsigned short const* s) {
  unsigned short copy[kBufferUnits] = {};  // s may point into buffer_, which clear() zeroes
  for (int i = 0; s != nullptr && i < kMaxInlineChars && s[i] != 0; ++i) copy[i] = s[i];
  inlineForm_ = 1;
  clear();
  std::memcpy(buffer_, copy, sizeof copy);
  return *this;
}

CUnicodeStringData& CUnicodeStringData::operator=(coreUncStringType const& r) {
  inlineForm_ = 0;
  std::size_t const bytes = std::size_t{r.length} * r.charSize;
  if (bytes == 0 || r.data == 0) {
    clear();
    return *this;
  }
  // Copied before clear(): r may be this object's own record.
  auto copy = std::make_unique<unsigned char[]>(bytes);
  std::memcpy(copy.get(), AsBytes(r.data), bytes);
  Adopt(r.length, r.charSize, std::move(copy));
  return *this;
}

CUnicodeStringData& CUnicodeStringData::operator=(CUnicodeStringData const& o) {
  if (&o == this) return *this;
  if (o.isInline()) return *this = o.buffer_;
  return *this = o.record_;
}

int CUnicodeStringData::set(unsigned long length, unsigned char charSize, void const* data) {
  clear();
  if (length == 0 || charSize == 0) return 0;
  unsigned long const bytes = length * charSize;
  if (isInline()) {
    std::memcpy(buffer_, data, std::min<unsigned long>(bytes, kBufferBytes));
    if (bytes > kBufferBytes) buffer_[kMaxInlineChars] = 0;
    return 1;
  }
  auto copy = std::make_unique<unsigned char[]>(bytes);
  std::memcpy(copy.get(), data, bytes);
  Adopt(length, charSize, std::move(copy));
  return 1;
}

int CUnicodeStringData::set(unsigned long length, unsigned char charSize,
                            unsigned short const* data) {
  clear();
  if (length == 0 || charSize == 0) return 0;
  if (isInline()) {
    std::copy_n(data, std::min<unsigned long>(length, kBufferUnits), buffer_);
    buffer_[std::min<unsigned long>(length, kMaxInlineChars)] = 0;
    return 1;
  }
  unsigned long const bytes = length * charSize;
  auto array = std::make_unique<unsigned char[]>(bytes);
  for (unsigned long i = 0; i < bytes; i += charSize)
    array[i] = static_cast<unsigned char>(data[0]);
  Adopt(length, charSize, std::move(array));
  return 1;
}

int CUnicodeStringData::set(unsigned long length, unsigned char charSize, QChar const* data) {
  static_assert(sizeof(QChar) == sizeof(unsigned short));
  return set(length, charSize, reinterpret_cast<unsigned short const*>(data));
}

CUnicodeString::CUnicodeString(CUnicodeString const& other)
    : CUnicodeStringData(other), string_(other.string_) {}

CUnicodeString::CUnicodeString(char const* s) : string_(QString::fromLocal8Bit(s)) {}

CUnicodeString::CUnicodeString(coreUncStringType const* r) {
  if (r != nullptr) *this = *r;
}

CUnicodeString& CUnicodeString::operator=(coreUncStringType const& r) {
  CUnicodeStringData::operator=(r);
  string_ = FromUnits(reinterpret_cast<unsigned short const*>(r.data), r.length);
  return *this;
}

CUnicodeString& CUnicodeString::operator=(unsigned short const* s) {
  QString string = FromUnits(s, SIZE_MAX);  // read before s's buffer may be rewritten
  CUnicodeStringData::operator=(s);
  string_ = std::move(string);
  return *this;
}

CUnicodeString& CUnicodeString::operator=(QString const& s) {
  if (s.isEmpty()) {
    string_ = QString();
    clear();
    return *this;
  }
  string_ = s;
  set(string_.length(), kUtf16CharSize, string_.constData());
  return *this;
}

CUnicodeString& CUnicodeString::operator=(CUnicodeString const& o) {
  if (&o == this) return *this;
  CUnicodeStringData::operator=(o);
  string_ = o.string_;
  return *this;
}

coreUncStringType* CUnicodeString::toUnicode() {
  clear();
  if (!string_.isEmpty()) set(string_.length(), kUtf16CharSize, string_.constData());
  return mutableRecord();
}

unsigned short* CUnicodeString::toUnicodeC() {
  clear();
  if (string_.isEmpty()) return nullptr;
  // utf16() is terminated: the terminator travels as the last unit.
  set(string_.length() + 1, kUtf16CharSize, string_.utf16());
  return mutableBuffer();
}

long CUnicodeString::toUnicodeC(unsigned short* out, long size) {
  clear();
  if (out == nullptr || string_.isEmpty()) return 0;
  long const length = string_.length();
  if (size < 1) return length;
  std::fill_n(out, size, 0);
  long const kept = std::min(length, size - 1);
  std::copy_n(string_.utf16(), kept, out);
  set(kept + 1, kUtf16CharSize, out);
  return length;
}

unsigned short* uscpy(unsigned short* dst, QString const& s) {
  if (s.isNull()) return dst;
  unsigned short const* src = s.utf16();
  for (std::size_t i = 0; (dst[i] = src[i]) != 0; ++i) {
  }
  return dst;
}

int ConvertQStringToUnicode(QString s, unsigned short** out, int& length) {
  *out = nullptr;
  if (s.isNull()) return 0;
  length = static_cast<int>(s.length());
  if (length == 0) return 0;
  auto* units = static_cast<unsigned short*>(std::calloc(length, sizeof(unsigned short)));
  if (units == nullptr) {
    length = 0;
    return 0;
  }
  std::copy_n(s.utf16(), length, units);
  *out = units;
  return length;
}
