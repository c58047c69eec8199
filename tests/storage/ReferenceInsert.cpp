#include "ReferenceInsert.h"

#include <vector>

#include "RecordMerge.h"

namespace {

std::int32_t TimeOfRecord(CSDTFile& file, int index, unsigned int recordSize) {
  std::vector<unsigned char> record(recordSize);
  file.SeekToDataPoint(index);
  file.Read(record.data(), recordSize);
  return RecordTime(record.data());
}

// The record belongs before record `index`: it replaces that record when the
// times are equal, otherwise it is inserted and the tail moves up by one.
void InsertBefore(CSDTFile& file, int index, int total, unsigned int recordSize,
                  const unsigned char* record) {
  std::vector<unsigned char> tail(static_cast<std::size_t>(total - index) * recordSize);
  file.SeekToDataPoint(index);
  file.Read(tail.data(), static_cast<unsigned int>(tail.size()));
  file.SeekToDataPoint(index);
  file.Write(record, recordSize);
  if (RecordTime(tail.data()) != RecordTime(record))
    file.Write(tail.data(), static_cast<unsigned int>(tail.size()));
}

// The record is later than every stored one, or has the last one's time.
void AppendOrReplaceLast(CSDTFile& file, int total, unsigned int recordSize, const unsigned char* record) {
  const int last = total - 1;
  if (TimeOfRecord(file, last, recordSize) == RecordTime(record)) {
    file.SeekToDataPoint(last);
  } else {
    file.SeekToDataPoint(total);  // after the last whole record, over any partial one
  }
  file.Write(record, recordSize);
}

void InsertOne(CSDTFile& file, unsigned int recordSize, const unsigned char* record) {
  const int total = file.GetDataPointCount();
  if (total == 0) {
    file.Write(record, recordSize);
    return;
  }
  const int index = file.GetDataPointIndex(RecordTime(record));
  if (index < total) {
    InsertBefore(file, index, total, recordSize, record);
  } else {
    AppendOrReplaceLast(file, total, recordSize, record);
  }
}

}  // namespace

void ReferenceInsert(CSDTFile& file, unsigned int recordSize, int count, const unsigned char* records,
                     bool writeDisabled) {
  if (records == nullptr || count <= 0 || writeDisabled) return;
  for (int i = 0; i < count; ++i)
    InsertOne(file, recordSize, records + static_cast<std::size_t>(i) * recordSize);
}
