// Reading and inserting the data points of a symbol.
#include <algorithm>
#include <vector>

#include "RecordMerge.h"
#include "Symbol.h"

namespace {

enum SelectionMode : std::int32_t {
  kNewest = 0,     // the last `count` records
  kTimeRange = 1,  // from the record before the first time up to the last time, exclusive
  kOldest = 2,     // the first `count` records
};

struct Selection {
  int start = 0;   // first record
  int count = 0;   // records selected
};

// The records a request selects, the file sized once. A time range selects
// its whole extent; the caller's capacity is applied by GetData.
Selection Select(CSDTFile& file, GET_SYMBOL_DATA_REQUEST const& request) {
  const std::int64_t size = file.FileSize();
  const int total = file.CountRecords(size);
  switch (request.mode) {
    case kNewest: {
      const int count = std::clamp(request.count, 0, total);
      return {total - count, count};
    }
    case kOldest:
      return {0, std::clamp(request.count, 0, total)};
    case kTimeRange: {
      const std::optional<int> first = file.FindDataPointIndex(request.firstTime, size);
      const std::optional<int> end = file.FindDataPointIndex(request.lastTime, size);
      if (!first || !end) return {};
      const int start = std::max(*first - 1, 0);
      return {start, std::max(*end - start, 0)};
    }
    default:
      return {};
  }
}

}  // namespace

void CSymbol::GetDataCount(GET_SYMBOL_DATA_REQUEST* request) {
  if (request == nullptr) return;
  request->count = file_ ? Select(*file_, *request).count : 0;
}

int CSymbol::GetData(GET_SYMBOL_DATA_REQUEST* request) {
  if (request == nullptr) return 0;
  const int capacity = request->buffer == 0 ? 0 : std::max(request->count, 0);
  Selection selection = file_ ? Select(*file_, *request) : Selection{};
  request->count = 0;
  selection.count = std::min(selection.count, capacity);
  if (selection.count == 0) return 0;
  if (!file_->ReadRecords(selection.start, selection.count, reinterpret_cast<void*>(request->buffer))) {
    return 0;
  }
  request->count = selection.count;
  return 1;
}

void CSymbol::InsertData(int count, unsigned char* records) {
  if (records == nullptr || count <= 0 || writeDisabled_ || !file_) return;
  const unsigned int recordSize = GetDataPointSize();
  // A batch in time order needs no sorting and no copy.
  std::vector<unsigned char> normalized;
  const unsigned char* batch = records;
  int batchCount = count;
  if (!IsStrictlyIncreasing(records, count, recordSize)) {
    normalized = NormalizeBatch(records, count, recordSize);
    batch = normalized.data();
    batchCount = static_cast<int>(normalized.size() / recordSize);
  }
  const std::int64_t size = file_->FileSize();
  if (!file_->HasWholeHeader(size)) return;
  const int total = file_->CountRecords(size);
  const std::optional<std::int32_t> lastTime = total > 0 ? file_->LastRecordTime(total, size) : std::nullopt;
  if (total == 0 || (lastTime && RecordTime(batch) > *lastTime)) {
    file_->AppendRecords(total, batch, batchCount, size);
  } else {
    MergeIntoStored(batch, batchCount, total);
  }
}

// Rewrites the file from the first stored record the batch touches. A batch
// that only replaces stored records keeps a partial last record, as
// overwriting them in place would.
void CSymbol::MergeIntoStored(const unsigned char* batch, int batchCount, int total) {
  const unsigned int recordSize = GetDataPointSize();
  const std::optional<int> found = file_->FindDataPointIndex(RecordTime(batch));
  if (!found) return;
  const int first = *found;
  const int storedCount = total - first;
  std::vector<unsigned char> stored(std::size_t(storedCount) * recordSize);
  if (storedCount > 0 && !file_->ReadRecords(first, storedCount, stored.data())) return;
  std::vector<unsigned char> merged;
  const int added = MergeRecords(stored.data(), storedCount, batch, batchCount, recordSize, merged);
  if (added == 0 && !file_->ReadPartialRecord(total, merged)) return;
  file_->RewriteFrom(first, merged.data(), merged.size());
}
