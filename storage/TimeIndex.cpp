#include "TimeIndex.h"

#include <algorithm>

#include "RecordMerge.h"

namespace {

std::size_t BlocksFor(int count, int stride) {
  return count > 0 ? std::size_t(count - 1) / stride + 1 : 0;
}

}  // namespace

void TimeIndex::Drop() {
  blockTimes_.clear();
  size_ = -1;
  count_ = 0;
}

void TimeIndex::Reset(std::uint32_t recordSize, std::int64_t size, int count) {
  recordSize_ = recordSize;
  stride_ = StrideFor(recordSize);
  blockTimes_.clear();
  Resize(size, count);
}

// The entries grow as blocks are noted, so an index being built holds only
// what it has read.
void TimeIndex::Resize(std::int64_t size, int count) {
  size_ = size;
  count_ = std::max(count, 0);
  blockTimes_.resize(std::min(blockTimes_.size(), BlocksFor(count_, stride_)));
}

void TimeIndex::Note(int first, const unsigned char* records, int count) {
  const std::int64_t end = std::min<std::int64_t>(std::int64_t(first) + count, count_);
  if (end > first)
    blockTimes_.resize(std::max(blockTimes_.size(), BlocksFor(static_cast<int>(end), stride_)));
  // From the first block start at or after `first`.
  for (std::int64_t start = (std::int64_t(first) + stride_ - 1) / stride_ * stride_; start < end;
       start += stride_) {
    blockTimes_[std::size_t(start / stride_)] =
        RecordTime(records + std::size_t(start - first) * recordSize_);
  }
}

// A lower bound that halves the entries left without a branch on the times
// (so it also stays inside them when they are not sorted): `lo` ends as the
// number of entries earlier than `time`.
TimeIndex::Span TimeIndex::Find(std::int64_t time) const {
  std::size_t lo = 0;
  for (std::size_t left = blockTimes_.size(); left > 0;) {
    const std::size_t half = left / 2;
    const bool earlier = blockTimes_[lo + half] < time;
    lo += earlier ? half + 1 : 0;
    left = earlier ? left - half - 1 : half;
  }
  return SpanAfterBlocks(lo, stride_, count_);
}

int TimeIndex::StrideFor(std::uint32_t recordSize) {
  return static_cast<int>(
      std::max<std::uint32_t>(kBlockBytes / std::max<std::uint32_t>(recordSize, 1), 1));
}

TimeIndex::Span TimeIndex::SpanAfterBlocks(std::size_t earlier, int stride, int count) {
  if (earlier == 0) return {};
  // Block earlier - 1 starts earlier than the time; block `earlier` (if any) does not.
  const int blockStart = static_cast<int>(earlier - 1) * stride;
  return {blockStart + 1,
          static_cast<int>(std::min<std::int64_t>(std::int64_t(blockStart) + stride, count))};
}
