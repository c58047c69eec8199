// ExportIndex.h: the index of an export directory as other programs write it.
//
// Three index files may describe the instruments:
//   MASTER   records of 53 bytes, file numbers 1..255, data files F<n>.dat;
//   EMASTER  beside MASTER, the same instruments with their long names;
//   XMASTER  records of 150 bytes, file numbers above 255, data files F<n>.MWD.
// Their layouts are written down once, in ExportIndex.cpp.
//
// Guarantees: every count and offset read from an index is checked against
// the file's size; a short or damaged index yields fewer entries, never a read
// outside a buffer. Files are found under their exact name first and
// case-insensitively in the same directory otherwise ("master", "F12.DAT",
// "f300.mwd"); the directory is listed once per index read.
// Thread-safety: pure functions of their arguments and the files.

#ifndef DATASTORE_IMPORT_EXPORTINDEX_H_
#define DATASTORE_IMPORT_EXPORTINDEX_H_

#include <QHash>
#include <QSet>
#include <QString>
#include <vector>

constexpr int kIndexRecordSize = 53;  // one MASTER record, and its header
constexpr int kIndexSymbolSize = 17;  // symbol bytes of a MASTER record

// The index file an entry comes from.
enum class IndexFile { kMaster, kXmaster };

// One instrument of the index.
struct IndexEntry {
  int fileNumber = 0;     // n of F<n>.dat (MASTER) or F<n>.MWD (XMASTER)
  int recordLength = 0;   // R, bytes per data record
  int fieldCount = 0;     // four-byte fields per data record
  char periodLetter = 0;  // 'D', 'W', 'M', 'Y', 'I', or other
  int intradaySize = 0;   // minutes, for 'I'; 0 means ticks
  QString symbol;         // trimmed of leading and trailing spaces
  QString fullName;       // EMASTER's or XMASTER's name; empty when none
  IndexFile source = IndexFile::kMaster;
  QString dataFile;  // path of the data file; empty when there is none

  QString dataFileName() const;  // the name the index gives: "F12.dat", "F300.MWD"
  QString periodText() const;    // the letter, for 'I' followed by two spaces and the size
};

// An export directory's file names, listed once, found whatever their case.
class ExportFolder {
 public:
  explicit ExportFolder(QString dir);

  // dir + "/" + name when the folder holds that file, else the first file (in
  // name order) whose name matches it case-insensitively; empty when none does.
  QString Find(QString const& name) const;
  QString const& dir() const { return dir_; }

 private:
  QString dir_;
  QSet<QString> names_;                   // the files' names
  QHash<QString, QString> byFoldedName_;  // lower-case name -> first such name in name order
};

// Whether the directory holds a MASTER or an XMASTER, whatever its case.
bool IndexExists(QString const& dir);

// MASTER's entries, each with its data file looked up; empty when there is
// no MASTER, its count is below 1, or it cannot be read. Records the file
// lacks are zero-filled entries (a record cut short keeps the bytes it has).
std::vector<IndexEntry> ReadMaster(ExportFolder const& folder);
// XMASTER's entries; empty when there is none or its magic is wrong. Only the
// records the file holds are read, whatever its count says.
std::vector<IndexEntry> ReadXmaster(ExportFolder const& folder);
// MASTER's entries with EMASTER's long names, then XMASTER's.
std::vector<IndexEntry> ReadExportIndex(QString const& dir);

#endif  // DATASTORE_IMPORT_EXPORTINDEX_H_
