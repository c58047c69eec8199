// LogHelper.h: the module's host log for code that has no module at hand.
// Every function reaches the log through GetModule()->GetLog() and does
// nothing (returning null) when there is no module.
//
// Thread-safety: as Log: none.

#ifndef DATASTORE_MODULE_LOGHELPER_H_
#define DATASTORE_MODULE_LOGHELPER_H_

#include <QString>

#include "Log.h"

namespace LogHelper {

Log* GetLog();
void ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, QString const& text);
HostLogSink Create(QString const& name, HostCallback callback, void* context);
HostLogSink Create(char* name, HostCallback callback, void* context, eLogMsgType type);
HostLogSink Create(QString const& name, eLogMsgType type);

}  // namespace LogHelper

#endif  // DATASTORE_MODULE_LOGHELPER_H_
