// Reading and inserting the data points of a symbol.
#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "RecordMerge.h"
#include "Symbol.h"

namespace {

struct Selection {
  int start = 0;  // first record
  int count = 0;  // records selected
};

// The records a request selects, the file sized once. A time range selects
// its whole extent; the caller's capacity is applied by GetData.
Status Select(CSDTFile& file, GET_SYMBOL_DATA_REQUEST const& request, Selection* selection) {
  const std::int64_t size = file.FileSize();
  const int total = file.CountRecords(size);
  *selection = {};
  switch (request.mode) {
    case kGetNewest: {
      const int count = std::clamp(request.count, 0, total);
      *selection = {total - count, count};
      return Status();
    }
    case kGetOldest: *selection = {0, std::clamp(request.count, 0, total)}; return Status();
    case kGetTimeRange: {
      int first = 0;
      int end = 0;
      Status status = file.FindDataPointIndex(request.firstTime, size, &first);
      if (status.ok()) status = file.FindDataPointIndex(request.lastTime, size, &end);
      if (!status.ok()) return status;
      const int start = std::max(first - 1, 0);
      *selection = {start, std::max(end - start, 0)};
      return Status();
    }
    default: return Status();
  }
}

void Report(Status const& outcome, Status* status) {
  if (status != nullptr && !outcome.ok()) *status = outcome;
}

}  // namespace

void CSymbol::GetDataCount(GET_SYMBOL_DATA_REQUEST* request, Status* status) {
  if (request == nullptr) return;
  Selection selection;
  if (file_) Report(Select(*file_, *request, &selection), status);
  request->count = selection.count;
}

int CSymbol::GetData(GET_SYMBOL_DATA_REQUEST* request, Status* status) {
  if (request == nullptr) return 0;
  const int capacity = request->buffer == 0 ? 0 : std::max(request->count, 0);
  Selection selection;
  if (file_) Report(Select(*file_, *request, &selection), status);
  request->count = 0;
  selection.count = std::min(selection.count, capacity);
  if (selection.count == 0) return 0;
  Status read = file_->ReadRecords(selection.start, selection.count,
                                   reinterpret_cast<void*>(request->buffer));
  if (!read.ok()) {
    Report(read, status);
    return 0;
  }
  request->count = selection.count;
  return 1;
}

Status CSymbol::InsertData(int count, unsigned char* records) {
  if (records == nullptr || count <= 0 || writeDisabled_ || !file_) return Status();
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
  Status status = size < 0 ? Status::Error("size", file_->path(), "the file is not open")
                           : file_->CheckWholeHeader(size);
  if (!status.ok()) return status;
  const int total = file_->CountRecords(size);
  std::int32_t lastTime = 0;
  if (total > 0) status = file_->LastRecordTime(total, size, &lastTime);
  if (!status.ok()) return status;
  if (total == 0 || RecordTime(batch) > lastTime)
    return file_->AppendRecords(total, batch, batchCount, size);
  return MergeIntoStored(batch, batchCount, total, size);
}

// Writes the merged records from the first stored record the batch touches
// (for an update of the newest record, known without a search). A batch that
// only replaces stored records keeps a partial last record, as overwriting
// them in place would.
Status CSymbol::MergeIntoStored(const unsigned char* batch, int batchCount, int total,
                                std::int64_t size) {
  const unsigned int recordSize = GetDataPointSize();
  int first = 0;
  std::int32_t lastTime = 0;
  Status status = file_->LastRecordTime(total, size, &lastTime);
  const std::optional<int> known =
      RecordTime(batch) == lastTime ? file_->FirstOfLastTime(size) : std::nullopt;
  if (known) {
    first = *known;
  } else if (status.ok()) {
    status = file_->FindDataPointIndex(RecordTime(batch), size, &first);
  }
  if (!status.ok()) return status;
  const int storedCount = total - first;
  std::vector<unsigned char> stored;
  std::vector<unsigned char> merged;
  try {
    stored.resize(std::size_t(storedCount) * recordSize);
    merged.reserve(stored.size() + std::size_t(batchCount) * recordSize);
  } catch (std::bad_alloc const&) {
    return Status::Error(
        "insert into", file_->path(),
        "not enough memory to move the " + std::to_string(storedCount) + " records after it");
  }
  if (storedCount > 0) status = file_->ReadRecords(first, storedCount, stored.data());
  if (!status.ok()) return status;
  const int added = MergeRecords(stored.data(), storedCount, batch, batchCount, recordSize, merged);
  if (added == 0) status = file_->ReadPartialRecord(total, size, merged);
  if (!status.ok()) return status;
  return file_->RewriteFrom(first, merged.data(), merged.size(), size);
}
