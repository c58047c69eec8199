// CjdFile.h: what the cjd tool learns about one data file through the
// storage library: the loaded symbol, its record layout, a scan of its
// records and the run of zero-time records at its end.
//
// Thread-safety: none; one file at a time.

#ifndef DATASTORE_TOOLS_CJDFILE_H_
#define DATASTORE_TOOLS_CJDFILE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Symbol.h"

// Opens symbols read-only (repair cuts files itself) through a file system.
class ToolOwner : public SymbolOwner {
 public:
  explicit ToolOwner(FileSystem* fileSystem = nullptr) : fileSystem_(fileSystem) {}
  bool IsWriteEnabled() const override { return false; }
  FileSystem& GetFileSystem() const override {
    return fileSystem_ != nullptr ? *fileSystem_ : FileSystem::Default();
  }

 private:
  FileSystem* fileSystem_;  // not owned; null: the disk as it is
};

// A symbol whose header loaded, open for reading; or the reason it did not
// load.
struct LoadedFile {
  std::unique_ptr<CSymbol> symbol;  // null when the header did not load
  std::string error;                // why, without the path
};
LoadedFile LoadFile(SymbolOwner* owner, std::string const& path);

// Where the records of a loaded file lie and what a reader sees of them.
struct RecordExtent {
  std::uint64_t firstOffset = 0;   // of record 0
  std::uint32_t recordSize = 0;    // bytes per record
  std::int64_t visibleSize = 0;    // file size as readers see it
  int records = 0;                 // whole records
  std::uint64_t partialBytes = 0;  // bytes after the last whole record
};
RecordExtent ExtentOf(CSymbol& symbol);

// Records out of time order (not later than the one before them).
struct OrderProblem {
  int record = 0;             // index of the later record
  std::int32_t time = 0;      // its time
  std::int32_t previous = 0;  // time of the record before it
};
struct RecordScan {
  std::vector<OrderProblem> problems;  // in file order
  std::string readError;               // set when a read came up short
};
RecordScan ScanRecordTimes(CSymbol& symbol, int records);

// Records at the end of the first `records` whose time is 0, after the last
// record with another time (all of them when none has one): what an old
// writer could leave after a power cut. 0 when they cannot be read (the
// scan reports why).
int ZeroTimeTail(CSymbol& symbol, int records);

// Times of the first and the last record, when there is one to read.
std::optional<std::int32_t> RecordTimeAt(CSymbol& symbol, int index);

// The file's size on disk, or -1.
std::int64_t DiskSize(std::string const& path);
// Cuts the file to `size` bytes and syncs it.
Status CutFile(std::string const& path, std::uint64_t size);

// A period kind as its letter; a byte that is no letter as "?(0xNN)".
std::string KindText(char kind);
// "I5", "I0", "D", "W", "M", "Y".
std::string PeriodText(SYMBOL_PERIOD const& period);
// "char", "short", "int", "int64", "float", "double", "string".
std::string ViewTypeName(DATA_POINT_TYPES type);
// The shortest text that reads back as the same number, without exponent
// where the plain form is shorter ("0.0001").
template <typename T>
std::string RealText(T value);
// One value of a record as text. REQUIRES: value holds the view's width.
std::string ValueText(DATA_POINT_TYPES type, const unsigned char* value);
// Text properties as UTF-8.
std::string Utf8(const char16_t* text);

#endif  // DATASTORE_TOOLS_CJDFILE_H_
