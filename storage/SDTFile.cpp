#include "SDTFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "AppendJournal.h"
#include "FileFormat.h"
#include "RecordMerge.h"
#include "Symbol.h"

namespace {

constexpr std::int64_t kReservedWordSize = 4;  // the word between header and records

constexpr std::size_t kIndexReadBytes = 1 << 20;  // building the index reads about this much at a time

// Every rewrite replaces a file by another; objects that have the same path
// open notice it by its count of rewrites and open the new file. A path's
// counter lives as long as the library stays loaded, so objects keep its
// address; the table goes with the library when a host unloads it.
class FileGenerations {
 public:
  static std::atomic<std::uint64_t>* Of(std::string const& path) {
    std::lock_guard<std::mutex> lock(mutex());
    return &table()[path];
  }

 private:
  static std::mutex& mutex() {
    static std::mutex lock;
    return lock;
  }
  static std::unordered_map<std::string, std::atomic<std::uint64_t>>& table() {
    static std::unordered_map<std::string, std::atomic<std::uint64_t>> generations;
    return generations;
  }
};

}  // namespace

CSDTFile::CSDTFile(CSymbol* owner, FileSystem* fileSystem)
    : owner_(owner),
      fileSystem_(fileSystem != nullptr ? fileSystem : &FileSystem::Default()),
      fileType_(cjd::kFileType),
      version_(cjd::kVersion) {}

CSDTFile::CSDTFile(CSymbol* owner, const char* path, FileSystem* fileSystem)
    : CSDTFile(owner, fileSystem) {
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

void CSDTFile::Open(bool readOnly) {
  if (IsOpen()) return;
  readOnly_ = readOnly;
  position_ = 0;
  if (readOnly) {
    file_ = fileSystem_->Open(path_, OpenMode::ReadOnly);
  } else {
    file_ = fileSystem_->Open(path_, OpenMode::ReadWrite);
    if (!file_) {
      FileSystem::clearErrorText();
      // Only a missing file is made: one that exists but would not open (no
      // permission, no descriptor left) is never emptied. A journal entry of
      // an earlier file at this path would describe appends the new one
      // never had: without its clearing there is no new file.
      file_ = fileSystem_->Open(path_, OpenMode::CreateNew);
      if (file_ && !cjd::ClearAppendJournalOf(*fileSystem_, path_)) {
        file_.reset();
        fileSystem_->Remove(path_);
      }
    }
  }
  if (!file_) {
    Fail("cannot open");
    return;
  }
  rewrites_ = FileGenerations::Of(path_);
  generation_ = rewrites_->load();
  const std::optional<std::uint64_t> cut = cjd::InterruptedAppendSize(*fileSystem_, path_, *file_);
  visibleSize_ = cut ? static_cast<std::int64_t>(*cut) : -1;
  if (!readOnly && cut) RollBackInterruptedAppend();
}

void CSDTFile::Close() {
  // The entry of the last append is kept only while it may be needed.
  if (journal_) cjd::ClearAppendJournal(*journal_);
  visibleSize_ = -1;
  lastTimeSize_ = -1;
  index_.Drop();
  file_.reset();
  journal_.reset();
  position_ = 0;
}

// Reopens the file when another object with the same path replaced it.
void CSDTFile::FollowReplacement() {
  if (!IsOpen() || rewrites_->load() == generation_) return;
  const bool readOnly = readOnly_;
  const std::int64_t position = position_;
  Close();
  Open(readOnly);
  position_ = position;
}

int CSDTFile::Read(void* buffer, unsigned int size) {
  FollowReplacement();
  if (!IsOpen() || size == 0) return 0;
  const std::int64_t got = file_->ReadAt(static_cast<std::uint64_t>(position_), buffer, size);
  if (got > 0) position_ += got;
  return got == static_cast<std::int64_t>(size) ? 1 : 0;
}

int CSDTFile::Write(const void* data, unsigned int size) {
  FollowReplacement();
  if (!IsOpen() || readOnly_ || size == 0) return 0;
  const std::int64_t sizeBefore = index_.valid() ? FileSize() : -1;
  const auto offset = static_cast<std::uint64_t>(position_);
  if (!file_->WriteAt(offset, data, size)) {
    index_.Drop();
    return 0;
  }
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
  return Seek(static_cast<long>(FirstRecordOffset() + std::int64_t{index} * RecordSize()), SEEK_SET);
}

std::uint64_t CSDTFile::FirstRecordOffset() const {
  return cjd::FirstRecordOffset(descriptionAreaOffset_, headerSize_);
}

std::uint32_t CSDTFile::RecordSize() const { return owner_->GetDataPointSize(); }

// A reader that finds an append under way (or cut short) sees the file as it
// was before the append.
std::int64_t CSDTFile::FileSize() {
  FollowReplacement();
  if (!IsOpen()) return -1;
  const std::int64_t size = file_->Size();
  return visibleSize_ >= 0 && size > visibleSize_ ? visibleSize_ : size;
}

int CSDTFile::GetDataPointCount() {
  const int count = CountRecords(FileSize());
  position_ = static_cast<std::int64_t>(FirstRecordOffset());
  return count;
}

bool CSDTFile::HasWholeHeader(std::int64_t size) {
  const std::int64_t headerEnd = static_cast<std::int64_t>(FirstRecordOffset()) - kReservedWordSize;
  if (size >= headerEnd) return true;
  return Fail("file shorter than its header");
}

int CSDTFile::CountRecords(std::int64_t size) const {
  const std::int64_t first = static_cast<std::int64_t>(FirstRecordOffset());
  if (size <= first) return 0;
  const std::int64_t count = (size - first) / RecordSize();
  return static_cast<int>(std::min<std::int64_t>(count, std::numeric_limits<int>::max()));
}

// Appends keep the time of the last record, so a run of appends reads it once.
std::optional<std::int32_t> CSDTFile::LastRecordTime(int total, std::int64_t size) {
  if (size == lastTimeSize_ && size >= 0) return lastTime_;
  std::int32_t time;
  const std::uint64_t offset = FirstRecordOffset() + std::uint64_t(total - 1) * RecordSize();
  if (total < 1 || file_->ReadAt(offset, &time, sizeof(time)) != sizeof(time)) {
    Fail("short read of the last record");
    return std::nullopt;
  }
  lastTimeSize_ = size;
  lastTime_ = time;
  return time;
}

bool CSDTFile::ReadRecords(int first, int count, void* out) {
  FollowReplacement();
  if (!IsOpen() || first < 0 || count <= 0) return false;
  const std::uint64_t bytes = std::uint64_t(count) * RecordSize();
  const std::uint64_t offset = FirstRecordOffset() + std::uint64_t(first) * RecordSize();
  const std::int64_t got = file_->ReadAt(offset, out, bytes);
  if (got != static_cast<std::int64_t>(bytes)) return Fail("short read of records");
  position_ = static_cast<std::int64_t>(offset + bytes);
  return true;
}

int CSDTFile::GetDataPointIndex(long time) {
  return FindDataPointIndex(time).value_or(GetDataPointCount());
}

std::optional<int> CSDTFile::FindDataPointIndex(long time) { return FindDataPointIndex(time, FileSize()); }

std::optional<int> CSDTFile::FindDataPointIndex(long time, std::int64_t size) {
  if (CountRecords(size) == 0) return 0;
  if (!index_.Holds(size, RecordSize()) && !BuildIndex(size)) return std::nullopt;
  return SearchBlock(time, index_.Find(time));
}

// One pass over the whole records in large reads, each a whole number of blocks.
bool CSDTFile::BuildIndex(std::int64_t size) {
  const std::uint32_t recordSize = RecordSize();
  const int count = CountRecords(size);
  index_.Reset(recordSize, size, count);
  const int chunkRecords = std::max<int>(kIndexReadBytes / (std::size_t(index_.stride()) * recordSize), 1) *
                           index_.stride();
  std::vector<unsigned char> chunk(std::size_t(std::min(chunkRecords, count)) * recordSize);
  for (int first = 0; first < count; first += chunkRecords) {
    const int records = std::min(chunkRecords, count - first);
    const std::size_t bytes = std::size_t(records) * recordSize;
    if (file_->ReadAt(FirstRecordOffset() + std::uint64_t(first) * recordSize, chunk.data(), bytes) !=
        static_cast<std::int64_t>(bytes)) {
      index_.Drop();
      Fail("short read while indexing");
      return false;
    }
    index_.Note(first, chunk.data(), records);
  }
  return true;
}

// The first record of the span whose time is not earlier than `time`, read in one block.
std::optional<int> CSDTFile::SearchBlock(long time, TimeIndex::Span span) {
  const std::uint32_t recordSize = RecordSize();
  const std::size_t bytes = std::size_t(span.end - span.first) * recordSize;
  if (bytes == 0) return span.end;
  if (searchBlock_.size() < bytes) searchBlock_.resize(bytes);
  if (file_->ReadAt(FirstRecordOffset() + std::uint64_t(span.first) * recordSize, searchBlock_.data(), bytes) !=
      static_cast<std::int64_t>(bytes)) {
    Fail("short read while searching");
    return std::nullopt;
  }
  for (int i = span.first; i < span.end; ++i) {
    if (RecordTime(searchBlock_.data() + std::size_t(i - span.first) * recordSize) >= time) return i;
  }
  return span.end;
}

bool CSDTFile::ReadPartialRecord(int total, std::vector<unsigned char>& out) {
  const std::uint64_t end = FirstRecordOffset() + std::uint64_t(total) * RecordSize();
  const std::int64_t size = FileSize();
  if (size < 0) return Fail("cannot size");
  if (static_cast<std::uint64_t>(size) <= end) return true;
  const std::size_t partial = static_cast<std::size_t>(size - end);
  const std::size_t at = out.size();
  out.resize(at + partial);
  if (file_->ReadAt(end, out.data() + at, partial) == static_cast<std::int64_t>(partial)) return true;
  out.resize(at);
  return Fail("short read of a partial record");
}

bool CSDTFile::AppendRecords(int total, const void* records, int count, std::int64_t knownSize) {
  if (!IsOpen() || readOnly_) return Fail("not open for writing");
  lastTimeSize_ = -1;
  const std::int64_t sizeBefore = knownSize >= 0 ? knownSize : FileSize();
  if (sizeBefore < 0) return Fail("cannot size");
  const std::uint64_t offset = FirstRecordOffset() + std::uint64_t(total) * RecordSize();
  const std::size_t bytes = std::size_t(count) * RecordSize();
  const cjd::AppendJournalEntry entry = cjd::MakeAppendEntry(std::uint64_t(sizeBefore), offset, records, bytes);
  if (!MarkAppend(entry)) return false;
  const bool written = file_->WriteAt(offset, records, bytes);
  if (!written) {
    file_->Truncate(static_cast<std::uint64_t>(sizeBefore));
    return Fail("append failed");
  }
  RememberLastTime(offset, records, count);
  NoteWritten({offset, records, bytes}, sizeBefore, static_cast<std::int64_t>(entry.sizeAfter));
  return true;
}

bool CSDTFile::RewriteFrom(int index, const void* bytes, std::size_t size) {
  if (!IsOpen() || readOnly_) return Fail("not open for writing");
  lastTimeSize_ = -1;
  const std::uint64_t start = FirstRecordOffset() + std::uint64_t(index) * RecordSize();
  const std::int64_t fileSize = FileSize();
  if (fileSize < 0) return Fail("cannot size");
  const std::string temporary = TemporaryPath();
  std::unique_ptr<RandomAccessFile> copy = fileSystem_->Open(temporary, OpenMode::CreateTruncate);
  if (!copy) return Fail("cannot create " + temporary);
  const bool copied = CopyFilePrefix(*file_, *copy, std::min<std::uint64_t>(start, fileSize)) &&
                      copy->WriteAt(start, bytes, size);
  copy.reset();
  // The journal's entry describes the file being replaced.
  if (!copied || !ClearJournal() || !fileSystem_->Rename(temporary, path_)) {
    Fail("rewrite failed");
    fileSystem_->Remove(temporary);
    return false;
  }
  generation_ = ++*rewrites_;
  NoteWritten({start, bytes, size}, fileSize, static_cast<std::int64_t>(start + size));
  file_ = fileSystem_->Open(path_, OpenMode::ReadWrite);
  if (!file_) {
    index_.Drop();
    return Fail("cannot reopen after rewrite");
  }
  return true;
}

// The index stays only when it held the file before the write, the write
// starts at a record boundary no later than the first record the index
// lacks, and it changes no time of a whole record that it does not hold in
// full: it holds whole records, or ends in a partial record at the file's end.
void CSDTFile::NoteWritten(WrittenBytes const& write, std::int64_t sizeBefore, std::int64_t sizeAfter) {
  const std::uint32_t recordSize = RecordSize();
  const std::uint64_t first = FirstRecordOffset();
  const bool aligned = write.offset >= first && (write.offset - first) % recordSize == 0;
  const std::uint64_t index = aligned ? (write.offset - first) / recordSize : 0;
  const bool endsWell = write.size % recordSize == 0 || write.offset + write.size == std::uint64_t(sizeAfter);
  if (!index_.Holds(sizeBefore, recordSize) || !aligned || !endsWell || index > std::uint64_t(index_.count())) {
    index_.Drop();
    return;
  }
  index_.Resize(sizeAfter, CountRecords(sizeAfter));
  index_.Note(static_cast<int>(index), static_cast<const unsigned char*>(write.data),
              static_cast<int>(write.size / recordSize));
}

void CSDTFile::RememberLastTime(std::uint64_t offset, const void* records, int count) {
  if (count < 1) return;
  const auto* last = static_cast<const unsigned char*>(records) + std::size_t(count - 1) * RecordSize();
  std::memcpy(&lastTime_, last, sizeof(lastTime_));
  lastTimeSize_ = static_cast<std::int64_t>(offset + std::uint64_t(count) * RecordSize());
}

bool CSDTFile::MarkAppend(cjd::AppendJournalEntry const& entry) {
  if (!journal_) journal_ = cjd::OpenAppendJournalForWriting(*fileSystem_, path_);
  if (!journal_) return Fail("cannot open journal");
  if (!cjd::WriteAppendJournal(*journal_, entry)) return Fail("cannot write journal");
  return true;
}

bool CSDTFile::ClearJournal() {
  if (journal_ ? cjd::ClearAppendJournal(*journal_) : cjd::ClearAppendJournalOf(*fileSystem_, path_)) return true;
  return Fail("cannot clear journal");
}

// An append that was cut short by the death of its process is undone.
void CSDTFile::RollBackInterruptedAppend() {
  if (file_->Size() > visibleSize_ && !file_->Truncate(static_cast<std::uint64_t>(visibleSize_))) return;
  if (cjd::ClearAppendJournalOf(*fileSystem_, path_)) visibleSize_ = -1;
}

bool CSDTFile::Fail(std::string const& what) {
  lastError_ = what + ": " + path_;
  const std::string detail = FileSystem::takeErrorText();
  if (!detail.empty()) lastError_ += " (" + detail + ")";
  return false;
}
