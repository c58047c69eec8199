// MessLog.h: messLog, a file log that appends time-stamped lines to a text
// file of its own.
//
// Guarantees: a line is "DD.MM hh.mm.ss text" in local time and is written
// only when its level is at most the log's level (signed comparison). The
// file is opened in append mode and closed again for every line, or, while
// kept open (keepOpen), opened once: a process out of descriptors still logs
// why. Nothing is
// ever reported: an empty file name, an unopenable file or a negative clock
// drop the line silently. The folder of the file is not created.
//
// Thread-safety: none. The class never locks its mutex; callers that write
// from several threads hold mutex() around their calls.

#ifndef DATASTORE_MODULE_MESSLOG_H_
#define DATASTORE_MODULE_MESSLOG_H_

#include <QFile>
#include <QMutex>
#include <QString>
#include <cstdint>
#include <ctime>
#include <memory>

// Importance of a line; lower is more important. A line is written when its
// level is at most the log's level.
enum CriticalLevel : std::int32_t {
  MESS_CRITICAL = 0,  // written at every non-negative threshold
  MESS_ERROR = 1,
  MESS_WARNING = 2,
  MESS_INFO = 3,   // the default threshold
  MESS_DEBUG = 4,  // dropped at the default threshold
};

class messLog {
 public:
  // File "./Temp/NoParent.log", level MESS_INFO.
  messLog();
  // File "./Temp/<parent>.log", level MESS_INFO.
  explicit messLog(char const* parent);
  // Exactly the given file and level; no name is derived.
  messLog(char const* parent, char const* fileName, CriticalLevel level);
  messLog(const messLog&) = delete;
  messLog& operator=(const messLog&) = delete;

  void setNameFile(QString const& fileName);
  // Sets the parent name; with makeFileName, also the file name derived from it.
  void setParentName(QString const& name, bool makeFileName);
  // "./Temp/" + parent name + ".log".
  QString createNameForParent() const;

  // Writes "DD.MM hh.mm.ss text" when level is at most the log's level.
  void addMessage(QString const& text, CriticalLevel level);
  // Appends line and "\n" to the file; nothing for an empty file name.
  void printData(QString const& line);
  // Keeps the file open from its next line on, or closes it (false).
  void keepOpen(bool keep);

  // The line addMessage writes for a local time.
  static QString FormatLine(std::tm const& local, QString const& text);

  QString const& fileName() const { return fileName_; }
  QString const& parentName() const { return parentName_; }
  CriticalLevel level() const { return level_; }
  QMutex& mutex() { return mutex_; }

 private:
  QMutex mutex_;                     // for callers; never locked here
  QString fileName_;                 // file the lines go to
  QString parentName_;               // owner's name, source of the derived file name
  CriticalLevel level_ = MESS_INFO;  // highest level written
  bool keepOpen_ = false;            // the file stays open between lines
  std::unique_ptr<QFile> openFile_;  // the file while kept open
};

#endif  // DATASTORE_MODULE_MESSLOG_H_
