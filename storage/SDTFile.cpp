#include "SDTFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

#include "FileFormat.h"
#include "RecordMerge.h"
#include "Symbol.h"
#include "WriteAheadLog.h"

namespace {

constexpr std::int64_t kReservedWordSize = 4;  // the word between header and records

}  // namespace

CSDTFile::CSDTFile(CSymbol* owner, FileSystem* fileSystem, WriteAheadLog* log)
    : owner_(owner),
      fileSystem_(fileSystem != nullptr ? fileSystem : &FileSystem::Default()),
      log_(log),
      fileType_(cjd::kFileType),
      version_(cjd::kVersion) {}

CSDTFile::CSDTFile(CSymbol* owner, const char* path, FileSystem* fileSystem, WriteAheadLog* log)
    : CSDTFile(owner, fileSystem, log) {
  if (path != nullptr) path_ = path;
}

CSDTFile::~CSDTFile() { Close(); }

void CSDTFile::SetVersion(unsigned short version) {
  fileType_ = cjd::kFileType;
  version_ = version;
}

bool CSDTFile::Create(const char* path, bool readOnly) {
  path_ = path != nullptr ? path : "";
  Open(readOnly);
  return !IsOpen();
}

Status CSDTFile::Open(bool readOnly) {
  if (IsOpen() && (writeRefusal_.ok() || readOnly)) return Status();
  ReleaseDescriptor();  // writing was refused: it is asked again
  readOnly_ = readOnly;
  created_ = false;
  position_ = 0;
  logKey_ = log_ != nullptr ? log_->RelativePath(path_) : std::string();
  logged_ = log_ != nullptr && !logKey_.empty() ? log_->Entry(logKey_) : nullptr;
  changesSeen_ = logged_ != nullptr ? logged_->changes : 0;
  Status status =
      fileSystem_->Open(path_, readOnly ? OpenMode::ReadOnly : OpenMode::ReadWrite, &file_);
  writeRefusal_ = Status();
  // Only a missing file is made: one that exists but would not open (no
  // permission, no descriptor left) is never emptied. One that may no
  // longer be written is still read; its writes fail as its opening did.
  if (!status.ok() && !readOnly && !fileSystem_->Exists(path_)) {
    status = CreateWithHeader();
  } else if (!status.ok() && !readOnly &&
             fileSystem_->Open(path_, OpenMode::ReadOnly, &file_).ok()) {
    writeRefusal_ = status;
    readOnly_ = true;
    status = Status();
  }
  if (!status.ok()) file_.reset();
  return status;
}

// The file is made empty; its header is the first change of its life.
Status CSDTFile::CreateWithHeader() {
  Status status = fileSystem_->Open(path_, OpenMode::CreateNew, &file_);
  if (status.ok()) status = WriteNewHeader(EncodeHeader());
  created_ = status.ok();
  return status;
}

Status CSDTFile::WriteNewHeader(std::vector<unsigned char> const& header) {
  if (log_ == nullptr) return file_->WriteAt(0, header.data(), header.size());
  Status status = log_->WriteNewFile(logKey_, *file_, header.data(), header.size());
  if (logged_ != nullptr) changesSeen_ = logged_->changes;
  return status;
}

void CSDTFile::Close() {
  lastTimeSize_ = -1;
  index_.Drop();
  indexedRecords_ = 0;
  file_.reset();
  position_ = 0;
}

void CSDTFile::ReleaseDescriptor() {
  file_.reset();
  position_ = 0;
}

Status CSDTFile::Error(std::string operation, std::string reason) const {
  return Status::Error(std::move(operation), path_, std::move(reason));
}

int CSDTFile::Read(void* buffer, unsigned int size) {
  if (!IsOpen() || size == 0) return 0;
  const std::int64_t fileSize = FileSize();
  if (fileSize < position_ + std::int64_t{size} || !ReadAt(position_, buffer, size).ok()) return 0;
  position_ += size;
  return 1;
}

int CSDTFile::Write(const void* data, unsigned int size) {
  if (!IsOpen() || readOnly_ || size == 0) return 0;
  const std::int64_t sizeBefore = FileSize();
  const auto offset = static_cast<std::uint64_t>(position_);
  if (!WriteAt(offset, data, size, false).ok()) return 0;
  NoteWritten({offset, data, size}, sizeBefore, std::max<std::int64_t>(sizeBefore, offset + size));
  position_ += size;
  return 1;
}

long CSDTFile::Seek(long offset, int whence) {
  if (!IsOpen()) return 0;
  std::int64_t base = 0;
  if (whence == SEEK_CUR) base = position_;
  if (whence == SEEK_END) base = FileSize();
  if (base + offset >= 0) position_ = base + offset;
  return Tell();
}

long CSDTFile::Tell() const { return IsOpen() ? static_cast<long>(position_) : 0; }

long CSDTFile::SeekToDataPoint(int index) {
  return Seek(static_cast<long>(FirstRecordOffset() + std::int64_t{index} * RecordSize()),
              SEEK_SET);
}

std::uint64_t CSDTFile::FirstRecordOffset() const {
  return cjd::FirstRecordOffset(descriptionAreaOffset_, headerSize_);
}

std::uint32_t CSDTFile::RecordSize() const { return owner_->GetDataPointSize(); }

// Another object with this file that changed it through the log makes this
// one's caches stale.
void CSDTFile::DropCachesIfChangedElsewhere() {
  if (logged_ == nullptr || logged_->changes == changesSeen_) return;
  changesSeen_ = logged_->changes;
  lastTimeSize_ = -1;
  index_.Drop();
  indexedRecords_ = 0;
}

const PendingTail* CSDTFile::Tail() const {
  return logged_ != nullptr ? logged_->tail.get() : nullptr;
}

std::int64_t CSDTFile::FileSize() {
  if (!IsOpen()) return -1;
  DropCachesIfChangedElsewhere();
  std::uint64_t size = 0;
  if (!file_->Size(&size).ok()) return -1;
  // A tail beyond the end of a file cut behind the module's back no longer fits it.
  const PendingTail* tail = Tail();
  if (tail != nullptr && !tail->CutBelow(size)) size = std::max(size, tail->end());
  return static_cast<std::int64_t>(size);
}

// The bytes on disk with the pending tail over them.
Status CSDTFile::ReadAt(std::uint64_t offset, void* out, std::size_t n) {
  const PendingTail* tail = Tail();
  if (tail == nullptr || offset + n <= tail->offset) return file_->ReadExactly(offset, out, n);
  auto* bytes = static_cast<unsigned char*>(out);
  const std::uint64_t end = offset + n;
  Status status;
  if (offset < tail->offset) status = file_->ReadExactly(offset, bytes, tail->offset - offset);
  const std::uint64_t from = std::max(offset, tail->offset);
  const std::uint64_t to = std::min(end, tail->end());
  if (from < to)
    std::memcpy(bytes + (from - offset), tail->bytes.data() + (from - tail->offset), to - from);
  const std::uint64_t beyond = std::max(offset, tail->end());
  if (status.ok() && beyond < end)
    status = file_->ReadExactly(beyond, bytes + (beyond - offset), end - beyond);
  return status;
}

Status CSDTFile::WriteAt(std::uint64_t offset, const void* data, std::size_t n, bool append) {
  if (!writeRefusal_.ok()) return writeRefusal_;
  if (!IsOpen() || readOnly_) return Error("write", "the file is not open for writing");
  if (log_ == nullptr) return file_->WriteAt(offset, data, n);
  Status status = append ? log_->Append(logKey_, *file_, offset, data, n)
                         : log_->Write(logKey_, *file_, offset, data, n);
  if (logged_ != nullptr) changesSeen_ = logged_->changes;
  return status;
}

int CSDTFile::GetDataPointCount() {
  const int count = CountRecords(FileSize());
  position_ = static_cast<std::int64_t>(FirstRecordOffset());
  return count;
}

Status CSDTFile::CheckWholeHeader(std::int64_t size) const {
  const std::int64_t headerEnd = static_cast<std::int64_t>(FirstRecordOffset()) - kReservedWordSize;
  if (size >= headerEnd) return Status();
  return Error("insert into", "the file is shorter than its header");
}

int CSDTFile::CountRecords(std::int64_t size) const {
  const std::int64_t first = static_cast<std::int64_t>(FirstRecordOffset());
  if (size <= first) return 0;
  const std::int64_t count = (size - first) / RecordSize();
  return static_cast<int>(std::min<std::int64_t>(count, std::numeric_limits<int>::max()));
}

// Inserts keep the time of the last record and where its run of equal times
// begins, so a live feed's updates of the newest record search nothing.
Status CSDTFile::LastRecordTime(int total, std::int64_t size, std::int32_t* time) {
  if (size == lastTimeSize_ && size >= 0) {
    *time = lastTime_;
    return Status();
  }
  if (total < 1) return Error("read the last record of", "the file holds no record");
  Status status =
      ReadAt(FirstRecordOffset() + std::uint64_t(total - 1) * RecordSize(), time, sizeof(*time));
  if (!status.ok()) return status;
  lastTimeSize_ = size;
  lastTime_ = *time;
  lastTimeFirst_ = -1;
  return Status();
}

std::optional<int> CSDTFile::FirstOfLastTime(std::int64_t size) const {
  if (size != lastTimeSize_ || lastTimeFirst_ < 0) return std::nullopt;
  return lastTimeFirst_;
}

// Records [index, index + count) now end the file at `size` bytes; the
// record before them, if any, is earlier than the first of them.
void CSDTFile::RememberLastRecords(int index, const unsigned char* records, int count,
                                   std::int64_t size) {
  const std::uint32_t recordSize = RecordSize();
  lastTimeSize_ = -1;
  if (count < 1 || CountRecords(size) != index + count) return;
  const unsigned char* last = records + std::size_t(count - 1) * recordSize;
  int first = count - 1;
  while (first > 0 && RecordTime(records + std::size_t(first - 1) * recordSize) == RecordTime(last))
    --first;
  lastTime_ = RecordTime(last);
  lastTimeFirst_ = index + first;  // the record before `index` is earlier than all of them
  lastTimeSize_ = size;
}

Status CSDTFile::ReadRecords(int first, int count, void* out) {
  if (!IsOpen()) return Error("read", "the file is not open");
  if (first < 0 || count <= 0) return Status();
  const std::uint64_t bytes = std::uint64_t(count) * RecordSize();
  const std::uint64_t offset = FirstRecordOffset() + std::uint64_t(first) * RecordSize();
  Status status = ReadAt(offset, out, bytes);
  if (status.ok()) position_ = static_cast<std::int64_t>(offset + bytes);
  return status;
}

int CSDTFile::GetDataPointIndex(long time) {
  const std::int64_t size = FileSize();
  int index = 0;
  if (!FindDataPointIndex(time, size, &index).ok()) return CountRecords(size);
  return index;
}

Status CSDTFile::FindDataPointIndex(long time, std::int64_t size, int* index) {
  const int count = CountRecords(size);
  *index = 0;
  if (count == 0) return Status();
  if (!IndexReady(size)) ExtendIndex(size);
  TimeIndex::Span span;
  if (IndexReady(size)) {
    span = index_.Find(time);
  } else {
    Status status = ProbeSearch(time, count, &span);
    if (!status.ok()) return status;
  }
  return SearchBlock(time, span, index);
}

bool CSDTFile::IndexReady(std::int64_t size) const {
  return index_.Holds(size, RecordSize()) && indexedRecords_ >= index_.count();
}

// One step of building the index: at most kIndexStepBytes of whole blocks.
void CSDTFile::ExtendIndex(std::int64_t size) {
  const std::uint32_t recordSize = RecordSize();
  const int count = CountRecords(size);
  if (!index_.Holds(size, recordSize)) {
    index_.Reset(recordSize, size, count);
    indexedRecords_ = 0;
  }
  const int stepRecords =
      std::max<int>(kIndexStepBytes / (std::size_t(index_.stride()) * recordSize), 1) *
      index_.stride();
  const int records = std::min(stepRecords, count - indexedRecords_);
  if (records <= 0) return;
  std::vector<unsigned char> chunk(std::size_t(records) * recordSize);
  if (!ReadAt(FirstRecordOffset() + std::uint64_t(indexedRecords_) * recordSize, chunk.data(),
              chunk.size())
           .ok()) {
    index_.Drop();
    indexedRecords_ = 0;
    return;
  }
  index_.Note(indexedRecords_, chunk.data(), records);
  indexedRecords_ += records;
}

// A lower bound over the block starts, one positioned read of a time each.
Status CSDTFile::ProbeSearch(long time, int count, TimeIndex::Span* span) {
  const int stride = TimeIndex::StrideFor(RecordSize());
  std::size_t lo = 0;
  std::size_t hi = std::size_t(count - 1) / stride + 1;
  while (lo < hi) {
    const std::size_t mid = lo + (hi - lo) / 2;
    std::int32_t probe = 0;
    Status status = ReadAt(FirstRecordOffset() + std::uint64_t(mid) * stride * RecordSize(), &probe,
                           sizeof(probe));
    if (!status.ok()) return status;
    if (probe < time) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  *span = TimeIndex::SpanAfterBlocks(lo, stride, count);
  return Status();
}

// The first record of the span whose time is not earlier than `time`, read in one block.
Status CSDTFile::SearchBlock(long time, TimeIndex::Span span, int* index) {
  const std::uint32_t recordSize = RecordSize();
  const std::size_t bytes = std::size_t(span.end - span.first) * recordSize;
  *index = span.end;
  if (bytes == 0) return Status();
  if (searchBlock_.size() < bytes) searchBlock_.resize(bytes);
  Status status = ReadAt(FirstRecordOffset() + std::uint64_t(span.first) * recordSize,
                         searchBlock_.data(), bytes);
  if (!status.ok()) return status;
  for (int i = span.first; i < span.end; ++i) {
    if (RecordTime(searchBlock_.data() + std::size_t(i - span.first) * recordSize) >= time) {
      *index = i;
      break;
    }
  }
  return Status();
}

Status CSDTFile::ReadPartialRecord(int total, std::int64_t size, std::vector<unsigned char>& out) {
  const std::uint64_t end = FirstRecordOffset() + std::uint64_t(total) * RecordSize();
  if (size < 0) return Error("size", "cannot find the file's size");
  if (static_cast<std::uint64_t>(size) <= end) return Status();
  const std::size_t partial = static_cast<std::size_t>(size - end);
  const std::size_t at = out.size();
  out.resize(at + partial);
  Status status = ReadAt(end, out.data() + at, partial);
  if (!status.ok()) out.resize(at);
  return status;
}

Status CSDTFile::AppendRecords(int total, const void* records, int count, std::int64_t sizeBefore) {
  return WriteRecords(total, records, std::size_t(count) * RecordSize(), sizeBefore, true);
}

Status CSDTFile::RewriteFrom(int index, const void* bytes, std::size_t size,
                             std::int64_t sizeBefore) {
  return WriteRecords(index, bytes, size, sizeBefore, false);
}

Status CSDTFile::WriteRecords(int index, const void* bytes, std::size_t size,
                              std::int64_t sizeBefore, bool append) {
  lastTimeSize_ = -1;
  if (sizeBefore < 0) return Error("size", "cannot find the file's size");
  const std::uint64_t start = FirstRecordOffset() + std::uint64_t(index) * RecordSize();
  Status status = WriteAt(start, bytes, size, append);
  if (!status.ok()) {
    index_.Drop();
    return status;
  }
  const std::int64_t sizeAfter = std::max<std::int64_t>(sizeBefore, start + size);
  NoteWritten({start, bytes, size}, sizeBefore, sizeAfter);
  RememberLastRecords(index, static_cast<const unsigned char*>(bytes),
                      static_cast<int>(size / RecordSize()), sizeAfter);
  return Status();
}

// The index stays only when it held the file before the write, the write
// starts at a record boundary no later than the first record the index
// lacks, and it changes no time of a whole record that it does not hold in
// full: it holds whole records, or ends in a partial record at the file's end.
void CSDTFile::NoteWritten(WrittenBytes const& write, std::int64_t sizeBefore,
                           std::int64_t sizeAfter) {
  const std::uint32_t recordSize = RecordSize();
  const std::uint64_t first = FirstRecordOffset();
  const bool aligned = write.offset >= first && (write.offset - first) % recordSize == 0;
  const std::uint64_t index = aligned ? (write.offset - first) / recordSize : 0;
  const bool endsWell =
      write.size % recordSize == 0 || write.offset + write.size == std::uint64_t(sizeAfter);
  if (!index_.Holds(sizeBefore, recordSize) || !aligned || !endsWell ||
      index > std::uint64_t(index_.count())) {
    index_.Drop();
    indexedRecords_ = 0;
    return;
  }
  index_.Resize(sizeAfter, CountRecords(sizeAfter));
  index_.Note(static_cast<int>(index), static_cast<const unsigned char*>(write.data),
              static_cast<int>(write.size / recordSize));
  if (indexedRecords_ >= static_cast<int>(index)) {
    indexedRecords_ =
        std::max<int>(indexedRecords_, static_cast<int>(index + write.size / recordSize));
  }
}
