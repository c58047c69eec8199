// Log.h: the host log. A record is composed with stream operators and handed,
// when the flush marker arrives, to the log sink that the host provides
// (HostMessage::GetLogSink).
//
// Guarantees: a record composed while no sink is attached is dropped and its
// text emptied all the same; the text buffer grows to the larger of (needed +
// capacity) and twice the old capacity. After a flush the next record starts
// empty but keeps the previous type and level.
//
// Thread-safety: none. One composition buffer, no lock: callers on several
// threads must serialise themselves.

#ifndef DATASTORE_MODULE_LOG_H_
#define DATASTORE_MODULE_LOG_H_

#include <QChar>
#include <QString>
#include <cstdint>
#include <memory>

#include "HostBoundary.h"

enum coreLogMsgType : std::uint32_t {
  LOG_TYPE_0 = 0,
  LOG_TYPE_1 = 1,  // every record the framework writes itself
};

enum coreLogMsgLevel : std::uint32_t {
  LOG_LEVEL_0 = 0,
  LOG_LEVEL_2 = 2,
  LOG_LEVEL_3 = 3,  // default
  LOG_LEVEL_4 = 4,  // failed event emission
  LOG_LEVEL_5 = 5,  // exception reports
};

// Stream markers: 0 to 4 set a level, 5 flushes; higher values are ignored.
enum eLogMsgType : std::uint32_t {
  LOG_MARK_LEVEL_0 = 0,
  LOG_MARK_LEVEL_5 = 1,
  LOG_MARK_LEVEL_4 = 2,
  LOG_MARK_LEVEL_3 = 3,
  LOG_MARK_LEVEL_2 = 4,
  LOG_MARK_FLUSH = 5,
};

class BaseLog {
 public:
  virtual ~BaseLog() = default;
  virtual HostLogSink Create(QString const& name, eLogMsgType type, unsigned int number) = 0;
  virtual HostLogSink Create(char* name, HostCallback callback, void* context,
                             eLogMsgType type) = 0;
  virtual HostLogSink Create(QString const& name, HostCallback callback, void* context) = 0;
  virtual void ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, QString const& text) = 0;
  virtual BaseLog& operator<<(coreLogMsgType type) = 0;
  virtual BaseLog& operator<<(coreLogMsgLevel level) = 0;
  virtual BaseLog& operator<<(eLogMsgType marker) = 0;
  virtual BaseLog& operator<<(QChar c) = 0;
  virtual BaseLog& operator<<(char c) = 0;
  virtual BaseLog& operator<<(short v) = 0;
  virtual BaseLog& operator<<(unsigned short v) = 0;
  virtual BaseLog& operator<<(int v) = 0;
  virtual BaseLog& operator<<(unsigned int v) = 0;
  virtual BaseLog& operator<<(long v) = 0;
  virtual BaseLog& operator<<(unsigned long v) = 0;
  virtual BaseLog& operator<<(float v) = 0;
  virtual BaseLog& operator<<(double v) = 0;
  virtual BaseLog& operator<<(char const* text) = 0;
  virtual BaseLog& operator<<(QString const& text) = 0;
};

class Log : public BaseLog {
 public:
  static constexpr std::uint32_t kInitialCapacity = 32;  // text units of a new log

  Log();
  ~Log() override = default;
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  // Does nothing (kept for callers that pass a type and a number).
  HostLogSink Create(QString const& name, eLogMsgType type, unsigned int number) override;
  // Same as Create(QString(name), callback, context).
  HostLogSink Create(char* name, HostCallback callback, void* context, eLogMsgType type) override;
  // Attaches the log to the host: keeps the name, callback and context and asks
  // for the sink (HostMessage::GetLogSink). REQUIRES: callback is not null.
  HostLogSink Create(QString const& name, HostCallback callback, void* context) override;
  // One whole record, sent at once; a type other than 1 is sent as 0.
  void ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, QString const& text) override;

  Log& operator<<(coreLogMsgType type) override;
  Log& operator<<(coreLogMsgLevel level) override;
  Log& operator<<(eLogMsgType marker) override;
  Log& operator<<(QChar c) override;
  Log& operator<<(char c) override;
  Log& operator<<(short v) override;
  Log& operator<<(unsigned short v) override;
  Log& operator<<(int v) override;
  Log& operator<<(unsigned int v) override;
  Log& operator<<(long v) override;
  Log& operator<<(unsigned long v) override;
  Log& operator<<(float v) override;
  Log& operator<<(double v) override;
  Log& operator<<(char const* text) override;
  Log& operator<<(QString const& text) override;

  // Hands the composed record to the sink. Returns 1 without a sink,
  // otherwise the sink's result.
  int SendMessage();

  // Inspection, for tests and diagnostics.
  QString text() const { return QString::fromUtf16(text_.get()); }
  std::uint32_t capacity() const { return capacity_; }
  std::uint32_t used() const { return used_; }
  coreLogMsgType type() const { return msgType_; }
  coreLogMsgLevel level() const { return msgLevel_; }
  HostLogSink sink() const { return sink_; }

 private:
  void Append(QString const& text);  // the growth rule lives here
  void Flush();                      // send, then empty the text

  HostCallback callback_ = nullptr;            // set by Create
  void* context_ = nullptr;                    // host context, set by Create
  std::unique_ptr<char16_t[]> moduleName_;     // NUL-terminated, set by Create
  coreLogMsgType msgType_ = LOG_TYPE_1;        // type of the record being composed
  coreLogMsgLevel msgLevel_ = LOG_LEVEL_3;     // level of the record being composed
  std::unique_ptr<char16_t[]> text_;           // the record's text, NUL-terminated
  std::uint32_t used_ = 1;                     // units in use, counting the terminator
  std::uint32_t capacity_ = kInitialCapacity;  // units allocated for text_
  HostLogSink sink_ = nullptr;                 // the host's sink, from Create
};

#endif  // DATASTORE_MODULE_LOG_H_
