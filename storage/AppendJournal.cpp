#include "AppendJournal.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace cjd {
namespace {

constexpr char kJournalSuffix[] = ".journal";
constexpr char kJournalMarker[8] = {'C', 'J', 'D', 'A', 'P', 'P', 'N', 'D'};
constexpr std::size_t kBeforeOffset = sizeof(kJournalMarker);
constexpr std::size_t kAfterOffset = kBeforeOffset + sizeof(std::uint64_t);
constexpr std::size_t kHeadOffset = kAfterOffset + sizeof(std::uint64_t);
constexpr std::size_t kEntrySize = kHeadOffset + kJournalHeadBytes;
static_assert(kEntrySize == kJournalEntryBytes);

// Opens the journal beside dataPath in mode; an absent journal is no error.
std::unique_ptr<RandomAccessFile> OpenJournal(FileSystem& fileSystem, std::string const& dataPath, OpenMode mode) {
  std::unique_ptr<RandomAccessFile> journal = fileSystem.Open(AppendJournalPath(dataPath), mode);
  if (!journal) FileSystem::clearErrorText();
  return journal;
}

// True when the data file of fileSize bytes holds the start of entry's
// append and not all of it.
bool HoldsPartOf(AppendJournalEntry const& entry, RandomAccessFile& data, std::uint64_t fileSize) {
  if (fileSize <= entry.sizeBefore || fileSize >= entry.sizeAfter) return false;
  const std::size_t compared = std::min<std::uint64_t>(entry.HeadSize(), fileSize - entry.sizeBefore);
  unsigned char bytes[kJournalHeadBytes];
  return data.ReadAt(entry.sizeBefore, bytes, compared) == static_cast<std::int64_t>(compared) &&
         std::memcmp(bytes, entry.head, compared) == 0;
}

}  // namespace

std::size_t AppendJournalEntry::HeadSize() const {
  return sizeAfter > sizeBefore ? std::min<std::uint64_t>(sizeAfter - sizeBefore, kJournalHeadBytes) : 0;
}

AppendJournalEntry MakeAppendEntry(std::uint64_t sizeBefore, std::uint64_t offset, const void* bytes,
                                   std::size_t size) {
  AppendJournalEntry entry;
  entry.sizeBefore = sizeBefore;
  entry.sizeAfter = std::max<std::uint64_t>(sizeBefore, offset + size);
  const auto* data = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < entry.HeadSize(); ++i) {
    const std::uint64_t at = sizeBefore + i;
    entry.head[i] = at >= offset ? data[at - offset] : 0;  // a gap before the append reads as zeros
  }
  return entry;
}

std::string AppendJournalPath(std::string const& dataPath) { return dataPath + kJournalSuffix; }

std::optional<AppendJournalEntry> ReadAppendJournal(RandomAccessFile& journal) {
  unsigned char bytes[kEntrySize] = {};
  if (journal.ReadAt(0, bytes, kEntrySize) != static_cast<std::int64_t>(kEntrySize) ||
      std::memcmp(bytes, kJournalMarker, sizeof(kJournalMarker)) != 0) {
    return std::nullopt;
  }
  AppendJournalEntry entry;
  std::memcpy(&entry.sizeBefore, bytes + kBeforeOffset, sizeof(entry.sizeBefore));
  std::memcpy(&entry.sizeAfter, bytes + kAfterOffset, sizeof(entry.sizeAfter));
  std::memcpy(entry.head, bytes + kHeadOffset, kJournalHeadBytes);
  return entry;
}

std::optional<std::uint64_t> InterruptedAppendSize(FileSystem& fileSystem, std::string const& dataPath,
                                                   RandomAccessFile& data) {
  const std::int64_t fileSize = data.Size();
  if (fileSize < 0) return std::nullopt;
  std::unique_ptr<RandomAccessFile> journal = OpenJournal(fileSystem, dataPath, OpenMode::ReadOnly);
  const std::optional<AppendJournalEntry> entry = journal ? ReadAppendJournal(*journal) : std::nullopt;
  if (!entry || !HoldsPartOf(*entry, data, static_cast<std::uint64_t>(fileSize))) return std::nullopt;
  return entry->sizeBefore;
}

std::unique_ptr<RandomAccessFile> OpenAppendJournalForWriting(FileSystem& fileSystem, std::string const& dataPath) {
  std::unique_ptr<RandomAccessFile> journal = OpenJournal(fileSystem, dataPath, OpenMode::ReadWrite);
  if (journal) return journal;
  return fileSystem.Open(AppendJournalPath(dataPath), OpenMode::CreateTruncate);
}

std::array<unsigned char, kJournalEntryBytes> EncodeAppendEntry(AppendJournalEntry const& entry) {
  std::array<unsigned char, kJournalEntryBytes> bytes;
  std::memcpy(bytes.data(), kJournalMarker, sizeof(kJournalMarker));
  std::memcpy(bytes.data() + kBeforeOffset, &entry.sizeBefore, sizeof(entry.sizeBefore));
  std::memcpy(bytes.data() + kAfterOffset, &entry.sizeAfter, sizeof(entry.sizeAfter));
  std::memcpy(bytes.data() + kHeadOffset, entry.head, kJournalHeadBytes);
  return bytes;
}

bool WriteAppendJournal(RandomAccessFile& journal, AppendJournalEntry const& entry) {
  const std::array<unsigned char, kJournalEntryBytes> bytes = EncodeAppendEntry(entry);
  return journal.WriteAt(0, bytes.data(), bytes.size());
}

bool ClearAppendJournal(RandomAccessFile& journal) {
  const unsigned char zeros[kEntrySize] = {};
  return journal.WriteAt(0, zeros, kEntrySize);
}

bool ClearAppendJournalOf(FileSystem& fileSystem, std::string const& dataPath) {
  std::unique_ptr<RandomAccessFile> journal = OpenJournal(fileSystem, dataPath, OpenMode::ReadWrite);
  return !journal || ClearAppendJournal(*journal);
}

}  // namespace cjd
