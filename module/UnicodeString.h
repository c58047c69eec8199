// UnicodeString.h: strings as the host exchanges them (16-bit units), either
// as a counted coreUncStringType record or as a NUL-terminated array, and the
// conversions between those forms and QString.
//
// Guarantees: CUnicodeStringData owns the record's data array and frees it on
// clear() and destruction; the inline buffer holds at most kMaxInlineChars
// characters and a terminator (a raw set() of exactly kBufferBytes bytes
// fills it without one). The member layout of CUnicodeStringData is packed
// (form flag at 0, record at 1, buffer after the record) because its address
// is handed to the host.
//
// REQUIRES: every 16-bit source is NUL-terminated or as long as its stated
// length; the source of set() does not lie inside the object being set.
// Thread-safety: none; an object is used by one thread at a time.

#ifndef DATASTORE_MODULE_UNICODESTRING_H_
#define DATASTORE_MODULE_UNICODESTRING_H_

#include <QChar>
#include <QString>
#include <cstdint>
#include <memory>

#include "HostBoundary.h"

#pragma pack(push, 1)

// One host string in one of two forms: inline (buffer) or record (record).
// The form chosen by the last assignment also decides what set() fills.
// alignas(2) keeps the buffer's 16-bit units aligned inside the packed layout.
class alignas(2) CUnicodeStringData {
 public:
  static constexpr int kBufferUnits = 1000;                 // inline buffer, terminator included
  static constexpr int kBufferBytes = kBufferUnits * 2;     // the same in bytes
  static constexpr int kMaxInlineChars = kBufferUnits - 1;  // characters the buffer can hold

  CUnicodeStringData();
  CUnicodeStringData(CUnicodeStringData const& other);
  ~CUnicodeStringData();  // not virtual: the object's address goes to the host as is

  // Inline form: at most kMaxInlineChars characters of s, then a terminator.
  // A null s leaves the buffer empty; s may point into this object's buffer.
  CUnicodeStringData& operator=(unsigned short const* s);
  // Record form: a copy of r's data when its length, charSize and data are all
  // non-zero; otherwise the record stays empty.
  CUnicodeStringData& operator=(coreUncStringType const& r);
  // Takes o's form and o's string in that form.
  CUnicodeStringData& operator=(CUnicodeStringData const& o);

  // Fills the current form with length x charSize raw bytes. Inline: at most
  // kBufferBytes bytes, the last unit zeroed when cut. Returns 0 when length or
  // charSize is 0, else 1. REQUIRES: data holds length x charSize bytes.
  int set(unsigned long length, unsigned char charSize, void const* data);
  // Fills the current form from 16-bit characters. Inline: min(length,
  // kBufferUnits) units, the terminator at index length or, when length is at
  // least kBufferUnits, at kMaxInlineChars. Record: length x charSize bytes
  // whose every charSize-th byte is the low byte of data[0] (the source does
  // not advance) and whose other bytes are 0; established behaviour, kept.
  // Returns 0 when length or charSize is 0, else 1.
  // REQUIRES: data holds min(length, kBufferUnits) units.
  int set(unsigned long length, unsigned char charSize, unsigned short const* data);
  // Same as above. Without it a QChar pointer would silently pick the raw-byte
  // overload.
  int set(unsigned long length, unsigned char charSize, QChar const* data);

  // Frees the record's data, empties the record and zeroes the buffer; the form stays.
  void clear();

  bool isInline() const { return inlineForm_ != 0; }
  coreUncStringType const& record() const { return record_; }
  unsigned short const* buffer() const { return buffer_; }

 protected:
  coreUncStringType* mutableRecord() { return &record_; }
  unsigned short* mutableBuffer() { return buffer_; }

 private:
  // Clears, then makes data (length x charSize bytes) the record.
  void Adopt(std::uint32_t length, std::uint8_t charSize, std::unique_ptr<unsigned char[]> data);

  std::uint8_t inlineForm_ = 1;            // 1: the string is in buffer_; 0: in record_
  coreUncStringType record_{};             // counted form; data owned (new[] / delete[])
  unsigned short buffer_[kBufferUnits]{};  // NUL-terminated form
};

#pragma pack(pop)

// A host string with a QString beside it. Each assignment sets both sides;
// toUnicode/toUnicodeC rebuild the host side from the QString.
class CUnicodeString : public CUnicodeStringData {
 public:
  CUnicodeString() = default;
  CUnicodeString(CUnicodeString const& other);
  // The QString from s in the local 8-bit encoding; the host side stays empty.
  explicit CUnicodeString(char const* s);
  // As operator=(*r); a null r leaves the string empty.
  explicit CUnicodeString(coreUncStringType const* r);

  // Copies the record, then reads r's data as 16-bit units (charSize is not
  // consulted) up to a 0 unit or r.length units into the QString.
  // REQUIRES: r.data, when non-zero, holds r.length 16-bit units or a 0 unit.
  CUnicodeString& operator=(coreUncStringType const& r);
  // Inline form of s (at most kMaxInlineChars); the QString takes all of s.
  CUnicodeString& operator=(unsigned short const* s);
  // A non-empty s goes to the QString and, through set(), to the host side;
  // an empty or null s makes the QString null and clears the host side.
  CUnicodeString& operator=(QString const& s);
  CUnicodeString& operator=(CUnicodeString const& o);

  // Rebuilds the host side from the QString without a terminator; returns the record.
  coreUncStringType* toUnicode();
  // Rebuilds the host side from the QString and its terminator; returns the
  // buffer, or null when the QString is empty.
  unsigned short* toUnicodeC();
  // Writes the QString into out[0..size): zeroed, cut to size - 1 characters,
  // terminated; the host side gets the same characters. Returns the QString's
  // length (not what fitted); 0 for a null out or an empty QString. A size
  // below 1 writes nothing to out.
  long toUnicodeC(unsigned short* out, long size);

  QString const& string() const { return string_; }

 private:
  QString string_;  // the Qt side; null until assigned
};

// Copies s's units up to and including its first 0 unit (its terminator or an
// embedded 0) into dst; a null s writes nothing. Returns dst.
// REQUIRES: dst holds s.length() + 1 units.
unsigned short* uscpy(unsigned short* dst, QString const& s);

// Sets *out to a new calloc'ed array of s's characters without a terminator
// and returns their count. A null s yields 0 and a null *out with length left
// alone; an empty s (or a failed allocation) yields 0, a null *out and length 0.
// The caller frees *out with free(). REQUIRES: out is not null.
int ConvertQStringToUnicode(QString s, unsigned short** out, int& length);

#endif  // DATASTORE_MODULE_UNICODESTRING_H_
