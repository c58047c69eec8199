#include "SDTFile.h"

#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>
#include <unordered_map>
#include <optional>
#include <vector>

#include "FileFormat.h"
#include "Symbol.h"

namespace {

// The rollback journal: a marker and the data file's size before an append.
constexpr char kJournalMagic[8] = {'C', 'J', 'D', 'A', 'P', 'P', 'N', 'D'};
struct JournalEntry {
  char magic[sizeof(kJournalMagic)];  // kJournalMagic while an append is under way
  std::uint64_t sizeBefore;           // the data file's size before it
};

// Every rewrite replaces a file by another; objects that have the same path
// open notice it by its generation and open the new file.
class FileGenerations {
 public:
  static std::uint64_t Of(std::string const& path) {
    std::lock_guard<std::mutex> lock(mutex());
    const auto found = table().find(path);
    return found == table().end() ? 0 : found->second;
  }
  static std::uint64_t Bump(std::string const& path) {
    std::lock_guard<std::mutex> lock(mutex());
    return ++table()[path];
  }

 private:
  static std::mutex& mutex() {
    static std::mutex lock;
    return lock;
  }
  static std::unordered_map<std::string, std::uint64_t>& table() {
    static auto* generations = new std::unordered_map<std::string, std::uint64_t>;
    return *generations;
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
      file_ = fileSystem_->Open(path_, OpenMode::CreateTruncate);
    }
  }
  if (!file_) {
    Fail("cannot open");
    return;
  }
  generation_ = FileGenerations::Of(path_);
  visibleSize_ = PendingAppendSizeBefore();
  if (!readOnly && visibleSize_ >= 0) RollBackInterruptedAppend();
}

void CSDTFile::Close() {
  visibleSize_ = -1;
  lastTimeSize_ = -1;
  file_.reset();
  journal_.reset();
  position_ = 0;
}

// Reopens the file when another object with the same path replaced it.
void CSDTFile::FollowReplacement() {
  if (!IsOpen() || FileGenerations::Of(path_) == generation_) return;
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
  if (!file_->WriteAt(static_cast<std::uint64_t>(position_), data, size)) return 0;
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

int CSDTFile::CountRecords(std::int64_t size) const {
  const std::int64_t first = static_cast<std::int64_t>(FirstRecordOffset());
  if (size <= first) return 0;
  const std::int64_t count = (size - first) / RecordSize();
  return static_cast<int>(std::min<std::int64_t>(count, std::numeric_limits<int>::max()));
}

// Appends keep the time of the last record, so a run of appends reads it once.
std::optional<std::int32_t> CSDTFile::LastRecordTime(int total) {
  const std::int64_t size = FileSize();
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

// The search probes the same records as a search that reads every time from
// the file; once the open interval fits in one block it is read at once and
// the remaining probes are served from memory.
int CSDTFile::GetDataPointIndex(long time) {
  return FindDataPointIndex(time).value_or(GetDataPointCount());
}

std::optional<int> CSDTFile::FindDataPointIndex(long time) {
  const int count = GetDataPointCount();
  const std::uint32_t recordSize = RecordSize();
  std::int64_t lo = -1;
  std::int64_t hi = count;
  std::vector<unsigned char> block;
  std::int64_t blockFirst = 0;
  while (hi > lo + 1) {
    const std::int64_t mid = lo + static_cast<std::int64_t>((hi - lo) * 0.5 + 0.5);
    if (block.empty() && std::uint64_t(hi - lo - 1) * recordSize <= kSearchBlockBytes) {
      block.resize(std::size_t(hi - lo - 1) * recordSize);
      blockFirst = lo + 1;
      if (!ReadRecords(static_cast<int>(blockFirst), static_cast<int>(hi - lo - 1), block.data())) {
        return std::nullopt;
      }
    }
    std::int32_t probe;
    if (!block.empty()) {
      std::memcpy(&probe, block.data() + std::size_t(mid - blockFirst) * recordSize, sizeof(probe));
    } else if (file_->ReadAt(FirstRecordOffset() + std::uint64_t(mid) * recordSize, &probe,
                             sizeof(probe)) != sizeof(probe)) {
      Fail("short read while searching");
      return std::nullopt;
    }
    if (probe < time) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return static_cast<int>(hi);
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
  if (!MarkAppend(static_cast<std::uint64_t>(sizeBefore))) return false;
  const std::uint64_t offset = FirstRecordOffset() + std::uint64_t(total) * RecordSize();
  const bool written = file_->WriteAt(offset, records, std::size_t(count) * RecordSize());
  if (!written) {
    Fail("append failed");
    file_->Truncate(static_cast<std::uint64_t>(sizeBefore));
  }
  // A journal that still says "under way" would undo this append at the next
  // open, so an append whose mark cannot be cleared is undone now.
  if (!ClearAppendMark()) {
    file_->Truncate(static_cast<std::uint64_t>(sizeBefore));
    return Fail("cannot clear journal");
  }
  if (written) RememberLastTime(offset, records, count);
  return written;
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
  if (!copied || !fileSystem_->Rename(temporary, path_)) {
    Fail("rewrite failed");
    fileSystem_->Remove(temporary);
    return false;
  }
  generation_ = FileGenerations::Bump(path_);
  file_ = fileSystem_->Open(path_, OpenMode::ReadWrite);
  if (!file_) return Fail("cannot reopen after rewrite");
  return true;
}

void CSDTFile::RememberLastTime(std::uint64_t offset, const void* records, int count) {
  if (count < 1) return;
  const auto* last = static_cast<const unsigned char*>(records) + std::size_t(count - 1) * RecordSize();
  std::memcpy(&lastTime_, last, sizeof(lastTime_));
  lastTimeSize_ = static_cast<std::int64_t>(offset + std::uint64_t(count) * RecordSize());
}

bool CSDTFile::MarkAppend(std::uint64_t sizeBefore) {
  if (!journal_) journal_ = fileSystem_->Open(JournalPath(), OpenMode::ReadWrite);
  if (!journal_) {
    FileSystem::clearErrorText();
    journal_ = fileSystem_->Open(JournalPath(), OpenMode::CreateTruncate);
  }
  if (!journal_) return Fail("cannot open journal");
  JournalEntry entry;
  std::memcpy(entry.magic, kJournalMagic, sizeof(kJournalMagic));
  entry.sizeBefore = sizeBefore;
  if (!journal_->WriteAt(0, &entry, sizeof(entry))) return Fail("cannot write journal");
  return true;
}

bool CSDTFile::ClearAppendMark() {
  const JournalEntry cleared{};
  return journal_ && journal_->WriteAt(0, &cleared, sizeof(cleared));
}

// The size before an append that the journal marks as under way, or -1.
std::int64_t CSDTFile::PendingAppendSizeBefore() {
  std::unique_ptr<RandomAccessFile> journal = fileSystem_->Open(JournalPath(), OpenMode::ReadOnly);
  if (!journal) {
    FileSystem::clearErrorText();
    return -1;
  }
  JournalEntry entry{};
  const bool pending = journal->ReadAt(0, &entry, sizeof(entry)) == sizeof(entry) &&
                       std::memcmp(entry.magic, kJournalMagic, sizeof(kJournalMagic)) == 0;
  return pending ? static_cast<std::int64_t>(entry.sizeBefore) : -1;
}

// An append that was cut short by the death of its process is undone.
void CSDTFile::RollBackInterruptedAppend() {
  if (file_->Size() > visibleSize_ && !file_->Truncate(static_cast<std::uint64_t>(visibleSize_))) return;
  std::unique_ptr<RandomAccessFile> journal = fileSystem_->Open(JournalPath(), OpenMode::ReadWrite);
  const JournalEntry cleared{};
  if (journal && journal->WriteAt(0, &cleared, sizeof(cleared))) visibleSize_ = -1;
}

bool CSDTFile::Fail(std::string const& what) {
  lastError_ = what + ": " + path_;
  const std::string detail = FileSystem::takeErrorText();
  if (!detail.empty()) lastError_ += " (" + detail + ")";
  return false;
}
