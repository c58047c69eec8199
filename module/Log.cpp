#include "Log.h"

#include <algorithm>
#include <cstring>

namespace {

// Level set by each stream marker below the flush marker.
constexpr coreLogMsgLevel kMarkerLevel[] = {LOG_LEVEL_0, LOG_LEVEL_5, LOG_LEVEL_4, LOG_LEVEL_3,
                                            LOG_LEVEL_2};
constexpr char kNumberFormat = 'g';
constexpr int kNumberPrecision = 6;

}  // namespace

Log::Log() : text_(new char16_t[kInitialCapacity]) { text_[0] = 0; }

HostLogSink Log::Create(QString const&, eLogMsgType, unsigned int) { return nullptr; }

HostLogSink Log::Create(char* name, HostCallback callback, void* context, eLogMsgType) {
  return Create(QString::fromLatin1(name), callback, context);
}

HostLogSink Log::Create(QString const& name, HostCallback callback, void* context) {
  const qsizetype length = name.size();
  moduleName_.reset(new char16_t[length + 1]);
  std::copy_n(reinterpret_cast<const char16_t*>(name.utf16()), length, moduleName_.get());
  moduleName_[length] = 0;
  context_ = context;
  callback_ = callback;
  HostWord slot = 0;
  callback(context, HostMessage::GetLogSink, reinterpret_cast<HostArg>(&slot), 0);
  sink_ = reinterpret_cast<HostLogSink>(slot);
  return sink_;
}

void Log::ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, QString const& text) {
  *this << (type == LOG_TYPE_1 ? LOG_TYPE_1 : LOG_TYPE_0) << level << text << LOG_MARK_FLUSH;
}

Log& Log::operator<<(coreLogMsgType type) {
  msgType_ = type;
  return *this;
}

Log& Log::operator<<(coreLogMsgLevel level) {
  msgLevel_ = level;
  return *this;
}

Log& Log::operator<<(eLogMsgType marker) {
  if (marker == LOG_MARK_FLUSH) {
    Flush();
  } else if (marker < LOG_MARK_FLUSH) {
    msgLevel_ = kMarkerLevel[marker];
  }
  return *this;
}

Log& Log::operator<<(QChar c) {
  Append(QString(c));
  return *this;
}

Log& Log::operator<<(char c) { return *this << QChar::fromLatin1(c); }
Log& Log::operator<<(short v) { return *this << QString::number(v); }
Log& Log::operator<<(unsigned short v) { return *this << QString::number(v); }
Log& Log::operator<<(int v) { return *this << QString::number(v); }
Log& Log::operator<<(unsigned int v) { return *this << QString::number(v); }
Log& Log::operator<<(long v) { return *this << QString::number(v); }
Log& Log::operator<<(unsigned long v) { return *this << QString::number(v); }
Log& Log::operator<<(float v) { return *this << static_cast<double>(v); }
Log& Log::operator<<(double v) {
  return *this << QString::number(v, kNumberFormat, kNumberPrecision);
}
Log& Log::operator<<(char const* text) { return *this << QString::fromLatin1(text); }

Log& Log::operator<<(QString const& text) {
  Append(text);
  return *this;
}

int Log::SendMessage() {
  if (sink_ == nullptr) return 1;
  LogRecord record{};
  record.moduleName = reinterpret_cast<HostWord>(moduleName_.get());
  record.msgType = msgType_;
  record.msgLevel = msgLevel_;
  record.text = reinterpret_cast<HostWord>(text_.get());
  return sink_(&record);
}

void Log::Append(QString const& text) {
  // The text is copied up to its first 0 unit, as a NUL-terminated copy would.
  const char16_t* units = reinterpret_cast<const char16_t*>(text.utf16());
  const std::uint32_t length =
      static_cast<std::uint32_t>(std::find(units, units + text.size(), u'\0') - units);
  const std::uint32_t needed = length + 1;
  const std::uint32_t position = used_ - 1;
  if (position + needed > capacity_) {
    const std::uint32_t grown = std::max(needed + capacity_, 2 * capacity_);
    std::unique_ptr<char16_t[]> bigger(new char16_t[grown]);
    std::copy_n(text_.get(), used_, bigger.get());
    text_ = std::move(bigger);
    capacity_ = grown;
  }
  std::copy_n(units, length, text_.get() + position);
  text_[position + length] = 0;
  used_ += length;
}

void Log::Flush() {
  SendMessage();
  used_ = 1;
  text_[0] = 0;
}
