// Symbol.h: CSymbol, one stored price series (one instrument from one
// provider at one period), with its properties, its views and its data file.
//
// Guarantees:
//   - GetData delivers at most the count it is given (a time range too: its
//     first records); a mode outside 0 to 2 or a negative count delivers
//     nothing and sets the count to 0;
//   - InsertData leaves the file exactly as inserting the records one by one
//     would (a record with the time of a stored one replaces the first such;
//     later batch records win over earlier ones with the same time), in one
//     pass: an append when the batch is later than every stored record,
//     otherwise one merged write from the first affected record on (through
//     the owner's write-ahead log, which keeps every change crash-safe);
//   - file names never leave their folder: '/', '\\', '%' and control
//     characters in the name and code parts are written as %XX.
//
// REQUIRES: views are all added before the first record is written; calls
// are serialised by the caller.
// Thread-safety: none.

#ifndef DATASTORE_STORAGE_SYMBOL_H_
#define DATASTORE_STORAGE_SYMBOL_H_

#include <QString>
#include <memory>
#include <vector>

#include "DataPoint.h"
#include "FileSystem.h"
#include "HostBoundary.h"
#include "SDTFile.h"

// What a symbol needs from whoever keeps it (the data store).
class SymbolOwner {
 public:
  virtual ~SymbolOwner() = default;
  virtual bool IsWriteEnabled() const = 0;
  virtual FileSystem& GetFileSystem() const { return FileSystem::Default(); }
  // The write-ahead log of the data folder; null: files change in place
  // without one (no crash safety).
  virtual WriteAheadLog* GetWriteLog() const { return nullptr; }
};

constexpr int kSymbolTextSize = 255;  // characters of each text property, terminator included

class CSymbol {
 public:
  CSymbol(SymbolOwner* owner, const unsigned short* name, SYMBOL_PERIOD period,
          const unsigned short* title, char* code, const unsigned short* providerName);
  CSymbol(SymbolOwner* owner, const char* fileName);
  ~CSymbol();
  CSymbol(const CSymbol&) = delete;
  CSymbol& operator=(const CSymbol&) = delete;

  // Makes the file in folder: 0 done, 1 the file could not be opened, 2 the
  // header could not be written (also: the file exists and does not load, so
  // it is left as it is). *status says why.
  int Create(QString const& folder, Status* status = nullptr);
  Status Open();
  void Close();
  // Lets the file's descriptor go and keeps what is known of the file; Open
  // takes a new one.
  void ReleaseFile();
  int SaveProperties(Status* status = nullptr);
  int LoadProperties(Status* status = nullptr);
  QString MakeFileName() const;

  void InsertDataPointView(DATA_POINT_TYPES type, char* name);
  void InsertDataPointView(DATA_POINT_VIEW* view);
  static unsigned int GetViewSize(DATA_POINT_TYPES type);
  unsigned int GetDataPointSize() const { return valueWidth_ + 4; }
  unsigned int GetHeaderSize() const;
  int GetDataPointCount();

  // A failed read leaves *status (when given) saying why.
  void GetDataCount(GET_SYMBOL_DATA_REQUEST* request, Status* status = nullptr);
  int GetData(GET_SYMBOL_DATA_REQUEST* request, Status* status = nullptr);
  // Stores the records; an error when some were not stored.
  Status InsertData(int count, unsigned char* records);

  // Properties.
  std::vector<CDATA_POINT_VIEW> const& views() const { return views_; }
  std::vector<std::unique_ptr<STRING_DESCRIPTION>> const& descriptions() const {
    return descriptions_;
  }
  std::vector<std::unique_ptr<STRING_DESCRIPTION>>& descriptions() { return descriptions_; }
  unsigned short descriptionCount() const { return descriptionCount_; }
  void setDescriptionCount(unsigned short count) { descriptionCount_ = count; }
  const char16_t* name() const { return name_; }
  const char16_t* title() const { return title_; }
  const char16_t* providerName() const { return providerName_; }
  const char* code() const { return code_; }
  SYMBOL_PERIOD period() const { return period_; }
  float pointSize() const { return pointSize_; }
  bool writeDisabled() const { return writeDisabled_; }
  CSDTFile* file() const { return file_.get(); }
  SymbolOwner* owner() const { return owner_; }

  // The header reader fills these.
  void setName(const char16_t* text);
  void setTitle(const char16_t* text);
  void setProviderName(const char16_t* text);
  void setCode(const char* text);
  void setPeriod(SYMBOL_PERIOD period) { period_ = period; }
  void setPointSize(float size) { pointSize_ = size; }

 private:
  FileSystem* fileSystem() const;
  WriteAheadLog* writeLog() const;
  Status MergeIntoStored(const unsigned char* batch, int batchCount, int total, std::int64_t size);

  std::vector<CDATA_POINT_VIEW> views_;                            // in insertion order
  unsigned int valueWidth_ = 0;                                    // sum of the views' widths
  std::unique_ptr<CSDTFile> file_;                                 // null until there is one
  char16_t name_[kSymbolTextSize] = {};                            // instrument name
  char16_t title_[kSymbolTextSize] = {};                           // second name
  SYMBOL_PERIOD period_{};                                         // kind, length, extra
  char code_[kSymbolTextSize] = {};                                // forms the file's base name
  char16_t providerName_[kSymbolTextSize] = {};                    // data provider
  std::vector<std::unique_ptr<STRING_DESCRIPTION>> descriptions_;  // owned
  unsigned short descriptionCount_ = 0;  // written to and read from the header
  SymbolOwner* owner_;                   // not owned
  float pointSize_ = 0.0001f;            // price step
  bool writeDisabled_;                   // no owner, or writes disabled
};

#endif  // DATASTORE_STORAGE_SYMBOL_H_
