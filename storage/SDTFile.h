// SDTFile.h: CSDTFile, the data file of one symbol: its header and its
// fixed-size records, sorted by time (format in FileFormat.h).
//
// Guarantees:
//   - every length, count and offset read from a file is checked against the
//     file's size before it is used; a damaged header is refused (1) and
//     leaves the owner unchanged;
//   - reads see the file as the module's write-ahead log makes it: the bytes
//     on disk with the file's pending tail over them (WriteAheadLog.h), so a
//     read sees every insert made before it;
//   - changes go through the log when the owner has one (the folder's
//     writer), written in place otherwise; nothing is renamed or replaced;
//   - a time search never reads the whole file on the request path: it uses
//     the sparse index (TimeIndex.h) once that is complete, and until then a
//     binary search of positioned reads; each search extends the index by at
//     most kIndexStepBytes. Whatever the file holds, a search stays inside
//     its whole records;
//   - failures are returned as a Status naming the operation, path and reason.
// On a closed file every read and write does nothing and reports 0.
//
// REQUIRES: the owner outlives the file object; calls are serialised by the
// caller (the data store's data mutex), which also serialises the log.
// Thread-safety: none.

#ifndef DATASTORE_STORAGE_SDTFILE_H_
#define DATASTORE_STORAGE_SDTFILE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FileSystem.h"
#include "TimeIndex.h"

#include "WriteAheadLog.h"

class CSymbol;
struct ParsedHeader;

class CSDTFile {
 public:
  static constexpr std::size_t kIndexStepBytes = 32 * 1024;  // index built per search, at most

  CSDTFile(CSymbol* owner, FileSystem* fileSystem = nullptr, WriteAheadLog* log = nullptr);
  CSDTFile(CSymbol* owner, const char* path, FileSystem* fileSystem = nullptr,
           WriteAheadLog* log = nullptr);
  ~CSDTFile();
  CSDTFile(const CSDTFile&) = delete;
  CSDTFile& operator=(const CSDTFile&) = delete;

  // Sets the type text again and the version written and required on reading.
  void SetVersion(unsigned short version);
  // Stores the path and opens it; true when no file could be opened (failure).
  bool Create(const char* path, bool readOnly);
  // Nothing when open. Read-only: the existing file. Otherwise the existing
  // file for reading and writing, or a new one (never an existing one emptied).
  Status Open(bool readOnly);
  void Close();
  // Closes the descriptor and keeps the caches: the file is not expected to
  // change behind this object (the log tells it when another object changes
  // it). Open takes a new descriptor.
  void ReleaseDescriptor();
  bool IsOpen() const { return file_ != nullptr; }
  // Open, and for writing when that was asked: Open would do nothing.
  bool IsOpenAsAsked() const { return file_ != nullptr && writeRefusal_.ok(); }
  // True when the last Open made the file.
  bool created() const { return created_; }

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
  // The same in a file of `size` bytes (the FileSize() just taken).
  Status FindDataPointIndex(long time, std::int64_t size, int* index);
  // 0 after reading the header into the owner, 1 when the file is not one of
  // this type and version or its header is damaged (*status says why).
  int ReadHeaderData(Status* status = nullptr);
  // Writes the header from the owner, then closes the file: 0, or 1 with
  // *status saying why. Read-only, it writes nothing and takes the record
  // area (D and H) from the header the file holds.
  int WriteHeaderData(Status* status = nullptr);

  // Record access beyond the stream.
  std::uint64_t FirstRecordOffset() const;
  // Reads records [first, first + count) into out.
  Status ReadRecords(int first, int count, void* out);
  // Appends to out the bytes after the last whole record (`total` records)
  // of a file of `size` bytes.
  Status ReadPartialRecord(int total, std::int64_t size, std::vector<unsigned char>& out);
  // An error when a file of `size` bytes is shorter than its header (someone
  // cut it): nothing may be written behind a lost header.
  Status CheckWholeHeader(std::int64_t size) const;
  // Whole records in a file of `size` bytes.
  int CountRecords(std::int64_t size) const;
  // The time of record total - 1 of a file of `size` bytes.
  Status LastRecordTime(int total, std::int64_t size, std::int32_t* time);
  // The index of the first record with that time, when this object knows it.
  std::optional<int> FirstOfLastTime(std::int64_t size) const;
  // Writes count records at index `total` (after the last whole record) of a
  // file of sizeBefore bytes. REQUIRES (here and in RewriteFrom): the record
  // before the written ones is earlier than the first of them.
  Status AppendRecords(int total, const void* records, int count, std::int64_t sizeBefore);
  // Replaces everything from record `index` on by `bytes` (whole records plus
  // an optional trailer) in a file of sizeBefore bytes.
  Status RewriteFrom(int index, const void* bytes, std::size_t size, std::int64_t sizeBefore);

  std::string const& path() const { return path_; }
  std::uint32_t descriptionAreaOffset() const { return descriptionAreaOffset_; }
  std::uint32_t headerSize() const { return headerSize_; }
  // The file's size as reads see it (pending tail included), or -1.
  std::int64_t FileSize();

 private:
  Status Error(std::string operation, std::string reason) const;
  std::uint32_t RecordSize() const;
  Status ReadAt(std::uint64_t offset, void* out, std::size_t n);
  const PendingTail* Tail() const;
  Status WriteRecords(int index, const void* bytes, std::size_t size, std::int64_t sizeBefore,
                      bool append);
  void RememberLastRecords(int index, const unsigned char* records, int count, std::int64_t size);
  Status WriteAt(std::uint64_t offset, const void* data, std::size_t n, bool append);
  void DropCachesIfChangedElsewhere();
  bool IndexReady(std::int64_t size) const;
  void ExtendIndex(std::int64_t size);
  Status ProbeSearch(long time, int count, TimeIndex::Span* span);
  Status SearchBlock(long time, TimeIndex::Span span, int* index);
  struct WrittenBytes {
    std::uint64_t offset;  // where they went
    const void* data;      // what was written
    std::size_t size;      // how many
  };
  void NoteWritten(WrittenBytes const& write, std::int64_t sizeBefore, std::int64_t sizeAfter);
  std::vector<unsigned char> EncodeHeader();
  Status CreateWithHeader();
  Status WriteNewHeader(std::vector<unsigned char> const& header);
  Status ParseStoredHeader(ParsedHeader* header);
  Status WriteHeader();
  Status TakeStoredRecordArea();

  CSymbol* owner_;          // not owned
  FileSystem* fileSystem_;  // not owned
  WriteAheadLog* log_;      // not owned; null: changes go straight to the file
  std::string path_;        // the file
  std::string logKey_;      // the file's name in the log
  const WriteAheadLog::FileEntry* logged_ = nullptr;  // what the log keeps of it; null: nothing
  std::string fileType_;                              // "Component Jet Data File"
  unsigned short version_;                            // written and required
  std::unique_ptr<RandomAccessFile> file_;            // null while closed
  bool readOnly_ = false;                             // how file_ was opened
  Status writeRefusal_;                      // why file_ is read-only though writing was asked
  bool created_ = false;                     // the last Open made the file
  std::int64_t position_ = 0;                // stream position of Read/Write/Seek
  std::uint64_t changesSeen_ = 0;            // the log's change count that the caches reflect
  std::int64_t lastTimeSize_ = -1;           // file size for which lastTime_ holds
  std::int32_t lastTime_ = 0;                // time of the last record at that size
  int lastTimeFirst_ = -1;                   // first record with that time; -1: not known
  TimeIndex index_;                          // sparse times of the records, built a step per search
  int indexedRecords_ = 0;                   // records whose block starts the index has noted
  std::vector<unsigned char> searchBlock_;   // the block a search reads, kept to spare allocations
  std::uint32_t descriptionAreaOffset_ = 0;  // D
  std::uint32_t headerSize_ = 0;             // H
};

#endif  // DATASTORE_STORAGE_SDTFILE_H_
