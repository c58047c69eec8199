// AppendJournal.h: the append journal beside a data file, written down once.
//
// "<data file>.journal" holds one 40-byte entry at offset 0, all integers
// little-endian:
//
//   offset  size  field
//   0       8     marker "CJDAPPND"
//   8       8     the data file's size before the latest append, u64
//   16      8     its size once that append completes, u64
//   24      16    the first bytes the append puts at the old size (as many
//                 as it adds, up to 16; zeros after them)
//
// An append writes its entry, then its records, and clears nothing after. A
// data file whose size lies strictly between the two sizes, and whose bytes
// from the old size on begin as the entry's do, holds an append cut short by
// the death of its writer: what lies past the old size is not to be seen,
// and the next writable open cuts it off and clears the entry. Any other
// file (the append complete, or the file rewritten, replaced or copied over
// since) is taken as it is. Writers clear the entry before they replace or
// create the data file and when they close it.
//
// Thread-safety: the functions hold no state; callers serialize writers.

#ifndef DATASTORE_STORAGE_APPENDJOURNAL_H_
#define DATASTORE_STORAGE_APPENDJOURNAL_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "FileSystem.h"

namespace cjd {

constexpr std::size_t kJournalHeadBytes = 16;   // bytes of an append that identify it
constexpr std::size_t kJournalEntryBytes = 40;  // the whole entry

struct AppendJournalEntry {
  std::uint64_t sizeBefore = 0;                // the data file's size before the append
  std::uint64_t sizeAfter = 0;                 // its size once the append completes
  unsigned char head[kJournalHeadBytes] = {};  // the first bytes it puts at sizeBefore

  // How many bytes of head the append writes.
  std::size_t HeadSize() const;
};

// The entry of an append that writes size bytes from offset on into a file
// of sizeBefore bytes.
AppendJournalEntry MakeAppendEntry(std::uint64_t sizeBefore, std::uint64_t offset, const void* bytes,
                                   std::size_t size);

std::string AppendJournalPath(std::string const& dataPath);

// The entry the journal holds, or nothing when there is no whole entry with
// the marker in it.
std::optional<AppendJournalEntry> ReadAppendJournal(RandomAccessFile& journal);

// The size before an append that the data file at dataPath holds only a
// part of, according to the journal beside it; nothing when there is none.
std::optional<std::uint64_t> InterruptedAppendSize(FileSystem& fileSystem, std::string const& dataPath,
                                                   RandomAccessFile& data);

// The entry's bytes as the journal holds them.
std::array<unsigned char, kJournalEntryBytes> EncodeAppendEntry(AppendJournalEntry const& entry);

// The journal beside dataPath opened for writing, created when it is absent;
// null (with the file system's error text) when neither works.
std::unique_ptr<RandomAccessFile> OpenAppendJournalForWriting(FileSystem& fileSystem, std::string const& dataPath);

bool WriteAppendJournal(RandomAccessFile& journal, AppendJournalEntry const& entry);
bool ClearAppendJournal(RandomAccessFile& journal);

// Clears the journal beside dataPath; true when it is cleared or absent.
bool ClearAppendJournalOf(FileSystem& fileSystem, std::string const& dataPath);

}  // namespace cjd

#endif  // DATASTORE_STORAGE_APPENDJOURNAL_H_
