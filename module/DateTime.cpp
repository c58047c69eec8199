#include "DateTime.h"

#include "Module.h"

namespace Quendal {

DateTime::DateTime(CModule const& module, void* context) {
  if (module.callback() == nullptr) return;
  DATETIME_FORMATTER_RECORD record{};
  const int result = module.callback()(context, HostMessage::GetDateTimeFormatters,
                                       reinterpret_cast<HostArg>(&record), 0);
  if (result != 0) return;
  qDateTimeFormatter_ = reinterpret_cast<HostQDateTimeFormatter>(record.qDateTimeFormatter);
  timeValueFormatter_ = reinterpret_cast<HostTimeValueFormatter>(record.timeValueFormatter);
}

QString DateTime::toString(long time, QString const& format, bool flag) const {
  QString result;
  if (timeValueFormatter_ != nullptr) timeValueFormatter_(time, &format, flag, &result);
  return result;
}

QString DateTime::toString(QDateTime const& time, QString const& format) const {
  QString result;
  if (qDateTimeFormatter_ != nullptr) qDateTimeFormatter_(&time, &format, &result);
  return result;
}

}  // namespace Quendal
