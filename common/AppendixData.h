// AppendixData.h: appendixData, a growable byte buffer with byte-wise search.
//
// Guarantees: the buffer owns one array of capacity() bytes of which the first
// usedLength() are in use. No operation reads or writes outside that array:
// every position and count given by a caller is checked, and an operation
// whose arguments fall outside the used bytes changes nothing and returns 1.
// Growth (moveForvardBufer) makes a zero-filled array of used length + 512 +
// the size asked for; a failed allocation leaves the buffer as it was and the
// operation returns 1. Searches are byte-wise and case-sensitive. offset()
// starts at -1 and only cutBuffer moves it. Nothing is thrown.
//
// REQUIRES: text arguments are NUL-terminated or null (null reads as empty);
// data handed to an inserting operation does not point into this buffer.
//
// Thread-safety: none. Callers serialise all access.

#ifndef DATASTORE_COMMON_APPENDIXDATA_H_
#define DATASTORE_COMMON_APPENDIXDATA_H_

#include <memory>

class appendixData {
 public:
  static constexpr int kGrowthSlack = 512;      // extra bytes of every growth step
  static constexpr int kMaxPatternLength = 40;  // findData compares at most this many bytes
  static constexpr int kNoOffset = -1;          // offset() when none is set

  // Allocates size bytes (none when size < 1); used length 0, offset -1.
  explicit appendixData(int size);
  virtual ~appendixData() = default;
  appendixData(const appendixData&) = delete;

  // Empties the buffer, then appends the other's used bytes.
  appendixData& operator=(const appendixData& other);
  // Empties the buffer, then appends the text including its NUL.
  appendixData& operator=(const char* text);

  // Searches the first 40 bytes of text from pos (negative means 0). Found: 0,
  // pos at the match, *end behind it. Not found: 1, *end = used length. An
  // empty buffer, or pos at or beyond the used length: 1, *end = 0.
  int findData(int& pos, const char* text, int* end) const;
  // The same from 0, leaving no position.
  int findData(const char* text, int* end) const;
  int findPointData(int* end) const;  // ".\r\n"
  int findSpaceData(int* end) const;  // " "
  int findLineData(int* end) const;   // "\r\n"
  int findHTTPData(int* end) const;   // "\r\n\r\n"

  // Copies the line at pos, including its "\r\n" (the buffer's last line needs
  // none), into out: at most max - 1 bytes, then a NUL. pos moves behind the
  // whole line even when the copy was cut. 1 at the end of the buffer or when
  // max < 1 (nothing written, pos kept).
  int findOneStr(int& pos, char* out, int max) const;

  // Inserts the text (without its NUL) at byte at, 0 <= at <= used length.
  int insertData(int at, const char* text);
  // Replaces bytes [from, to) with the text, 0 <= from <= to <= used length.
  int replaceData(int from, int to, const char* text);
  // Appends n bytes.
  int increaseBuffer(const char* bytes, int n);
  // Grows (moveForvardBufer) only when the capacity is below size.
  int setNewLenBuf(int size);
  // Sets the used length to n, clamped to the capacity; a negative n is ignored.
  void setNewOffset(int n);
  // The growth step: a zero-filled array of used length + 512 + size bytes;
  // the used bytes go to its start, or to its end when toEnd is non-zero.
  int moveForvardBufer(int size, int toEnd);
  // Frees the array, or only writes a NUL at its start; used length 0.
  void releaseBuffer(bool freeArray);
  // Drop the first n bytes (all of them when n exceeds the used length).
  // cutBuffer also moves the offset back by the bytes dropped, to -1 below 1.
  int relocBuffer(int n);
  int cutBuffer(int n);
  // Copies at most *n bytes from the start into out; *n receives the count.
  int getDataFromBuff(char* out, int* n) const;
  // Byte i, or 0 outside the used bytes.
  char operator[](int i) const;
  bool IsEmpty() const;

  const char* data() const { return data_.get(); }
  int usedLength() const { return used_; }
  int capacity() const { return capacity_; }
  int offset() const { return offset_; }

 protected:
  // findData without the 40-byte limit: searches exactly length bytes.
  int findBytes(int& pos, const char* pattern, int length, int* end) const;
  // For buffers that are filled in place: at least capacity() bytes.
  char* writableData() { return data_.get(); }
  // For derived buffers that track a position; cutBuffer keeps it in step.
  void setOffset(int offset) { offset_ = offset; }

 private:
  int reserve(long long needed);  // grows when needed exceeds the capacity
  int dropFront(int n);           // returns the number of bytes dropped

  std::unique_ptr<char[]> data_;  // the owned array, null when none
  int used_ = 0;                  // bytes in use
  int capacity_ = 0;              // bytes allocated
  int offset_ = kNoOffset;        // a position kept by derived buffers
};

#endif  // DATASTORE_COMMON_APPENDIXDATA_H_
