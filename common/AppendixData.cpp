// AppendixData.cpp: the growable byte buffer.

#include "AppendixData.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace {

constexpr char kPointLine[] = ".\r\n";
constexpr char kSpace[] = " ";
constexpr char kLineEnd[] = "\r\n";
constexpr int kLineEndLength = 2;
constexpr char kHttpHeadEnd[] = "\r\n\r\n";

void SetEnd(int* end, int value) {
  if (end != nullptr) *end = value;
}

std::size_t TextLength(const char* text) { return text == nullptr ? 0 : std::strlen(text); }

}  // namespace

appendixData::appendixData(int size) {
  if (size < 1) return;
  data_.reset(new (std::nothrow) char[size]());
  if (data_) capacity_ = size;
}

appendixData& appendixData::operator=(const appendixData& other) {
  if (this == &other) return *this;
  releaseBuffer(false);
  increaseBuffer(other.data(), other.used_);
  return *this;
}

appendixData& appendixData::operator=(const char* text) {
  releaseBuffer(false);
  if (text == nullptr) return *this;
  std::size_t const length = std::strlen(text) + 1;
  if (length <= INT_MAX) increaseBuffer(text, static_cast<int>(length));
  return *this;
}

int appendixData::findBytes(int& pos, const char* pattern, int length, int* end) const {
  int const from = std::max(pos, 0);
  if (used_ == 0 || from >= used_) {
    SetEnd(end, 0);
    return 1;
  }
  if (length > 0 && length <= used_ - from) {
    const char* const first = data_.get();
    const char* const last = first + used_;
    const char* const hit = std::search(first + from, last, pattern, pattern + length);
    if (hit != last) {
      pos = static_cast<int>(hit - first);
      SetEnd(end, pos + length);
      return 0;
    }
  }
  SetEnd(end, used_);
  return 1;
}

int appendixData::findData(int& pos, const char* text, int* end) const {
  int const length = text == nullptr ? 0 : static_cast<int>(strnlen(text, kMaxPatternLength));
  return findBytes(pos, text, length, end);
}

int appendixData::findData(const char* text, int* end) const {
  int pos = 0;
  return findData(pos, text, end);
}

int appendixData::findPointData(int* end) const { return findData(kPointLine, end); }
int appendixData::findSpaceData(int* end) const { return findData(kSpace, end); }
int appendixData::findLineData(int* end) const { return findData(kLineEnd, end); }
int appendixData::findHTTPData(int* end) const { return findData(kHttpHeadEnd, end); }

int appendixData::findOneStr(int& pos, char* out, int max) const {
  int const from = std::max(pos, 0);
  if (out == nullptr || max < 1 || from >= used_) return 1;
  int search = from;
  int lineEnd = used_;  // a line without "\r\n" runs to the end of the buffer
  findBytes(search, kLineEnd, kLineEndLength, &lineEnd);
  int const count = std::min(lineEnd - from, max - 1);
  std::memcpy(out, data_.get() + from, count);
  out[count] = '\0';
  pos = lineEnd;
  return 0;
}

int appendixData::insertData(int at, const char* text) {
  return at < 0 || at > used_ ? 1 : replaceData(at, at, text);
}

int appendixData::replaceData(int from, int to, const char* text) {
  if (from < 0 || from > to || to > used_) return 1;
  std::size_t const length = TextLength(text);
  if (length == 0 && from == to) return 0;
  long long const needed = static_cast<long long>(used_) - (to - from) + length;
  if (reserve(needed) != 0) return 1;
  char* const bytes = data_.get();
  std::memmove(bytes + from + length, bytes + to, used_ - to);
  if (length > 0) std::memcpy(bytes + from, text, length);
  used_ = static_cast<int>(needed);
  return 0;
}

int appendixData::increaseBuffer(const char* bytes, int n) {
  if (n < 0 || (n > 0 && bytes == nullptr)) return 1;
  if (n == 0) return 0;
  if (reserve(static_cast<long long>(used_) + n) != 0) return 1;
  std::memcpy(data_.get() + used_, bytes, n);
  used_ += n;
  return 0;
}

int appendixData::setNewLenBuf(int size) {
  return capacity_ >= size ? 0 : moveForvardBufer(size, 0);
}

void appendixData::setNewOffset(int n) {
  if (n >= 0) used_ = std::min(n, capacity_);
}

int appendixData::moveForvardBufer(int size, int toEnd) {
  if (size < 0 || size > INT_MAX - kGrowthSlack - used_) return 1;
  int const newCapacity = used_ + kGrowthSlack + size;
  std::unique_ptr<char[]> fresh(new (std::nothrow) char[newCapacity]());
  if (!fresh) return 1;
  if (used_ > 0) {
    int const at = toEnd != 0 ? newCapacity - used_ : 0;
    std::memcpy(fresh.get() + at, data_.get(), used_);
  }
  data_ = std::move(fresh);
  capacity_ = newCapacity;
  return 0;
}

void appendixData::releaseBuffer(bool freeArray) {
  if (freeArray) {
    data_.reset();
    capacity_ = 0;
  } else if (data_) {
    data_[0] = '\0';
  }
  used_ = 0;
}

int appendixData::relocBuffer(int n) {
  if (n < 0) return 1;
  dropFront(n);
  return 0;
}

int appendixData::cutBuffer(int n) {
  if (n < 0) return 1;
  offset_ -= dropFront(n);
  if (offset_ < 1) offset_ = kNoOffset;
  return 0;
}

int appendixData::getDataFromBuff(char* out, int* n) const {
  if (n == nullptr) return 1;
  if (*n < 0 || (*n > 0 && out == nullptr)) {
    *n = 0;
    return 1;
  }
  *n = std::min(*n, used_);
  if (*n > 0) std::memcpy(out, data_.get(), *n);
  return 0;
}

char appendixData::operator[](int i) const { return i < 0 || i >= used_ ? '\0' : data_[i]; }

bool appendixData::IsEmpty() const { return !data_ || used_ == 0; }

int appendixData::reserve(long long needed) {
  if (needed <= capacity_) return 0;
  return needed > INT_MAX ? 1 : moveForvardBufer(static_cast<int>(needed), 0);
}

int appendixData::dropFront(int n) {
  int const count = std::min(n, used_);
  if (count > 0) std::memmove(data_.get(), data_.get() + count, used_ - count);
  used_ -= count;
  return count;
}
