#include "RecordMerge.h"

#include <algorithm>
#include <numeric>

bool IsStrictlyIncreasing(const unsigned char* records, int count, unsigned int recordSize) {
  for (int i = 1; i < count; ++i) {
    if (RecordTime(records + std::size_t(i) * recordSize) <=
        RecordTime(records + std::size_t(i - 1) * recordSize)) {
      return false;
    }
  }
  return true;
}

std::vector<unsigned char> NormalizeBatch(const unsigned char* records, int count,
                                          unsigned int recordSize) {
  std::vector<int> order(static_cast<std::size_t>(count));
  std::iota(order.begin(), order.end(), 0);
  auto timeOf = [&](int index) { return RecordTime(records + std::size_t(index) * recordSize); };
  std::stable_sort(order.begin(), order.end(),
                   [&](int left, int right) { return timeOf(left) < timeOf(right); });
  std::vector<unsigned char> batch;
  batch.reserve(std::size_t(count) * recordSize);
  for (std::size_t i = 0; i < order.size(); ++i) {
    // Of a run of equal times only the last given record survives.
    if (i + 1 < order.size() && timeOf(order[i]) == timeOf(order[i + 1])) continue;
    const unsigned char* record = records + std::size_t(order[i]) * recordSize;
    batch.insert(batch.end(), record, record + recordSize);
  }
  return batch;
}

int MergeRecords(const unsigned char* stored, int storedCount, const unsigned char* batch,
                 int batchCount, unsigned int recordSize, std::vector<unsigned char>& out) {
  out.reserve(out.size() + std::size_t(storedCount + batchCount) * recordSize);
  int added = 0;
  int s = 0;
  for (int b = 0; b < batchCount; ++b) {
    const unsigned char* record = batch + std::size_t(b) * recordSize;
    const std::int32_t time = RecordTime(record);
    for (; s < storedCount && RecordTime(stored + std::size_t(s) * recordSize) < time; ++s) {
      out.insert(out.end(), stored + std::size_t(s) * recordSize,
                 stored + std::size_t(s + 1) * recordSize);
    }
    out.insert(out.end(), record, record + recordSize);
    if (s < storedCount && RecordTime(stored + std::size_t(s) * recordSize) == time) {
      ++s;  // replaced: the first stored record with this time
    } else {
      ++added;
    }
  }
  out.insert(out.end(), stored + std::size_t(s) * recordSize,
             stored + std::size_t(storedCount) * recordSize);
  return added;
}
