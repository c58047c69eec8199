// DateTime.h: date and time formatting through the host's formatters
// (HostMessage::GetDateTimeFormatters).
//
// Guarantees: without a host formatter every toString returns a null QString.
// Thread-safety: immutable after construction; safe from any thread if the
// host's formatters are.

#ifndef DATASTORE_MODULE_DATETIME_H_
#define DATASTORE_MODULE_DATETIME_H_

#include <QDateTime>
#include <QString>

#include "HostBoundary.h"

class CModule;

namespace Quendal {

class DateTime {
 public:
  // Asks the module's host for its formatters; keeps both null without a
  // callback or when the host does not answer 0.
  DateTime(CModule const& module, void* context);
  DateTime(const DateTime&) = delete;
  DateTime& operator=(const DateTime&) = delete;

  QString toString(long time, QString const& format, bool flag) const;
  QString toString(QDateTime const& time, QString const& format) const;

  bool hasFormatters() const {
    return qDateTimeFormatter_ != nullptr || timeValueFormatter_ != nullptr;
  }

 private:
  HostQDateTimeFormatter qDateTimeFormatter_ = nullptr;  // formats a QDateTime
  HostTimeValueFormatter timeValueFormatter_ = nullptr;  // formats a time value
};

}  // namespace Quendal

#endif  // DATASTORE_MODULE_DATETIME_H_
