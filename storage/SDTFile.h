// SDTFile.h: CSDTFile, the data file of one symbol: its header and its
// fixed-size records, sorted by time (format in FileFormat.h).
//
// Guarantees:
//   - every length, count and offset read from a file is checked against the
//     file's size before it is used; a damaged header is refused (1) and
//     leaves the owner unchanged;
//   - record reads are single positioned reads; a time search looks the time
//     up in a sparse index held in memory (TimeIndex.h) and reads one block of
//     at most TimeIndex::kBlockBytes; the first search builds the index in one
//     pass of large reads; this object's appends, writes and rewrites keep it
//     in step; a file size other than the one it last saw, a reopen or a
//     Close drops it; whatever the file holds, a search never reads outside
//     the file's whole records;
//   - an append writes after the last whole record (a partial record left by
//     a crash is overwritten) and is guarded by a rollback journal beside the
//     file ("<file>.journal"): if the process dies during the append, the next
//     writable Open cuts the file back to its size before the append, and a
//     read-only Open sees the file as it was before it;
//   - a rewrite from a record on goes to "<file>.tmp" and is renamed over the
//     file, so the file is always either the old or the new one.
// On a closed file every read and write does nothing and reports 0.
//
// REQUIRES: the owner outlives the file object; calls are serialised by the
// caller (the data store's data mutex).
// Thread-safety: none.

#ifndef DATASTORE_STORAGE_SDTFILE_H_
#define DATASTORE_STORAGE_SDTFILE_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AppendJournal.h"
#include "FileSystem.h"
#include "TimeIndex.h"

class CSymbol;

class CSDTFile {
 public:
  explicit CSDTFile(CSymbol* owner, FileSystem* fileSystem = nullptr);
  CSDTFile(CSymbol* owner, const char* path, FileSystem* fileSystem = nullptr);
  ~CSDTFile();
  CSDTFile(const CSDTFile&) = delete;
  CSDTFile& operator=(const CSDTFile&) = delete;

  // Sets the type text again and the version written and required on reading.
  void SetVersion(unsigned short version);
  // Stores the path and opens it; true when no file could be opened (failure).
  bool Create(const char* path, bool readOnly);
  // Nothing when open. Read-only: the existing file. Otherwise the existing
  // file for reading and writing, or a new one. Applies a pending rollback.
  void Open(bool readOnly);
  void Close();
  bool IsOpen() const { return file_ != nullptr; }

  // Stream-like access at the current position: 1 when the whole block moved.
  int Read(void* buffer, unsigned int size);
  int Write(const void* data, unsigned int size);
  long Seek(long offset, int whence);
  long Tell() const;

  long SeekToDataPoint(int index);
  // Whole records in the file (a partial last record is not counted); leaves
  // the position at record 0.
  int GetDataPointCount();
  // Index of the first record whose time is not earlier than `time`.
  int GetDataPointIndex(long time);
  // The same, or nothing when a read came up short.
  std::optional<int> FindDataPointIndex(long time);
  // The same in a file of `size` bytes, the FileSize() just taken, so that
  // a request sizes the file once.
  std::optional<int> FindDataPointIndex(long time, std::int64_t size);
  // 0 after reading the header into the owner, 1 when the file is not one of
  // this type and version or its header is damaged.
  int ReadHeaderData();
  // Writes the header from the owner, then closes the file; 0.
  int WriteHeaderData();

  // Record access beyond the stream.
  std::uint64_t FirstRecordOffset() const;
  // Reads records [first, first + count) into out in one read; false if short.
  bool ReadRecords(int first, int count, void* out);
  // Appends to out the bytes after the last whole record (`total` records).
  bool ReadPartialRecord(int total, std::vector<unsigned char>& out);
  // False, with the failure noted, when a file of `size` bytes is shorter than
  // its header (someone cut it): nothing may be written behind a lost header.
  bool HasWholeHeader(std::int64_t size);
  // Whole records in a file of `size` bytes.
  int CountRecords(std::int64_t size) const;
  // The time of record total - 1 of a file of `size` bytes, or nothing when
  // it cannot be read.
  std::optional<std::int32_t> LastRecordTime(int total, std::int64_t size);
  // Writes count records at index `total` (after the last whole record);
  // sizeBefore is the file's size when known (-1: asks for it).
  bool AppendRecords(int total, const void* records, int count, std::int64_t sizeBefore = -1);
  // Replaces everything from record `index` on by `bytes` (whole records plus
  // an optional trailer), through a temporary file and a rename.
  bool RewriteFrom(int index, const void* bytes, std::size_t size);

  std::string const& path() const { return path_; }
  std::string const& lastError() const { return lastError_; }
  // The last failure, cleared: a caller that logs failures sees each once.
  std::string TakeLastError() {
    std::string error;
    error.swap(lastError_);
    return error;
  }
  std::uint32_t descriptionAreaOffset() const { return descriptionAreaOffset_; }
  std::uint32_t headerSize() const { return headerSize_; }
  std::int64_t FileSize();

 private:
  bool Fail(std::string const& what);
  std::uint32_t RecordSize() const;
  void FollowReplacement();
  void RememberLastTime(std::uint64_t offset, const void* records, int count);
  bool BuildIndex(std::int64_t size);
  std::optional<int> SearchBlock(long time, TimeIndex::Span span);
  struct WrittenBytes {
    std::uint64_t offset;  // where they went
    const void* data;      // what was written
    std::size_t size;      // how many
  };
  void NoteWritten(WrittenBytes const& write, std::int64_t sizeBefore, std::int64_t sizeAfter);
  bool MarkAppend(cjd::AppendJournalEntry const& entry);
  bool ClearJournal();
  void RollBackInterruptedAppend();
  std::string TemporaryPath() const { return path_ + ".tmp"; }

  CSymbol* owner_;                          // not owned
  FileSystem* fileSystem_;                  // not owned
  std::string path_;                        // the file
  std::string fileType_;                    // "Component Jet Data File"
  unsigned short version_;                  // written and required
  std::unique_ptr<RandomAccessFile> file_;  // null while closed
  std::unique_ptr<RandomAccessFile> journal_;  // append journal, opened by the first append
  bool readOnly_ = false;                   // how file_ was opened
  std::int64_t position_ = 0;               // stream position of Read/Write/Seek
  std::int64_t visibleSize_ = -1;           // size before an append cut short, or -1
  std::uint64_t generation_ = 0;            // rewrites of path_ seen when it was opened
  std::atomic<std::uint64_t>* rewrites_ = nullptr;  // rewrites of path_ so far, shared by its objects
  std::int64_t lastTimeSize_ = -1;          // file size for which lastTime_ holds
  std::int32_t lastTime_ = 0;               // time of the last record at that size
  TimeIndex index_;                         // sparse times of the records, built by the first search
  std::vector<unsigned char> searchBlock_;  // the block a search reads, kept to spare allocations
  std::uint32_t descriptionAreaOffset_ = 0; // D
  std::uint32_t headerSize_ = 0;            // H
  std::string lastError_;                   // last failure, for logs
};

#endif  // DATASTORE_STORAGE_SDTFILE_H_
