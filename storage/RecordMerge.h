// RecordMerge.h: merging a batch of records into sorted stored records with
// the result of inserting them one at a time, in one pass.
//
// One-at-a-time insertion places each record by a lower-bound search on its
// time: a record whose time is stored replaces the first stored record with
// that time; any other is inserted before the first later record. So the
// result is: the batch sorted stably by time with only the last record of each
// time kept, then merged: equal times replace the first stored match.
//
// Thread-safety: pure functions.

#ifndef DATASTORE_STORAGE_RECORDMERGE_H_
#define DATASTORE_STORAGE_RECORDMERGE_H_

#include <cstdint>
#include <cstring>
#include <vector>

inline std::int32_t RecordTime(const unsigned char* record) {
  std::int32_t time;
  std::memcpy(&time, record, sizeof(time));
  return time;
}

// True when every record is later than the one before: such a batch is its
// own normalized form.
bool IsStrictlyIncreasing(const unsigned char* records, int count, unsigned int recordSize);

// The batch sorted stably by time, keeping the last record of each time.
std::vector<unsigned char> NormalizeBatch(const unsigned char* records, int count,
                                          unsigned int recordSize);

// Merges a normalized batch into sorted stored records; appends the result to
// out and returns how many records were added (batch times not stored).
int MergeRecords(const unsigned char* stored, int storedCount, const unsigned char* batch,
                 int batchCount, unsigned int recordSize, std::vector<unsigned char>& out);

#endif  // DATASTORE_STORAGE_RECORDMERGE_H_
