// TimeIndex.h: the sparse time index of a data file: the time of the first
// record of every block of records, for the file at one size, so that a time
// search reads one block instead of probing the file.
//
// A block is as many records as fit in kBlockBytes (at least one); block b
// starts at record b * stride(). The index describes a file of size() bytes
// holding count() whole records; it knows nothing of who changes the file, so
// its owner keeps it in step with its own writes (Resize, Note) and drops it
// when the file changes otherwise.
//
// Guarantees: Find never points outside [0, count()), whatever the times
// noted (unsorted ones included); on records sorted by time it gives the span
// that holds the first record not earlier than the time searched for.
//
// REQUIRES: every block start below count() is noted before Find is used.
// Thread-safety: none.

#ifndef DATASTORE_STORAGE_TIMEINDEX_H_
#define DATASTORE_STORAGE_TIMEINDEX_H_

#include <cstdint>
#include <vector>

class TimeIndex {
 public:
  // A block is the records that fit in this many bytes. Smaller blocks make
  // a search read less and the index larger: 4 bytes per block, 0.4% of the
  // file.
  static constexpr std::uint32_t kBlockBytes = 1024;

  // Records that a search reads, and the answer when none of them qualifies.
  struct Span {
    int first = 0;  // first record to read
    int end = 0;    // one past the last; the answer when no record read qualifies
  };

  // Forgets the file: valid() is false until the next Reset.
  void Drop();
  // An index, no block noted yet, of a file of `size` bytes holding `count`
  // records of recordSize bytes.
  void Reset(std::uint32_t recordSize, std::int64_t size, int count);
  // Makes it the index of the same file grown or cut to `size` bytes and
  // `count` records; entries of blocks that start below both counts stay.
  void Resize(std::int64_t size, int count);
  // Records [first, first + count) now hold `records` (count records back to
  // back): their block starts take these times.
  void Note(int first, const unsigned char* records, int count);

  bool valid() const { return size_ >= 0; }
  // True when it describes a file of `size` bytes with records of recordSize bytes.
  bool Holds(std::int64_t size, std::uint32_t recordSize) const {
    return valid() && size == size_ && recordSize == recordSize_;
  }
  std::int64_t size() const { return size_; }
  int count() const { return count_; }
  int stride() const { return stride_; }

  // Where the first record not earlier than `time` lies: among the records
  // of the span, or at its end.
  Span Find(std::int64_t time) const;

  // Records per block for records of recordSize bytes.
  static int StrideFor(std::uint32_t recordSize);
  // The span to search when `earlier` block starts (of blocks of `stride`
  // records, `count` records in all) are earlier than the time searched for.
  static Span SpanAfterBlocks(std::size_t earlier, int stride, int count);

 private:
  std::vector<std::int32_t> blockTimes_;  // time of the first record of every block
  std::int64_t size_ = -1;                // file size described, -1: none
  int count_ = 0;                         // whole records at that size
  int stride_ = 1;                        // records per block
  std::uint32_t recordSize_ = 0;          // bytes per record
};

#endif  // DATASTORE_STORAGE_TIMEINDEX_H_
