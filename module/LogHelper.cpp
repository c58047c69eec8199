#include "LogHelper.h"

#include "Module.h"

namespace LogHelper {
namespace {
constexpr unsigned int kUnusedCreateNumber = 3072;  // the number the type-only Create passes on
}  // namespace

Log* GetLog() {
  CModule* module = GetModule();
  return module == nullptr ? nullptr : module->GetLog();
}

void ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, QString const& text) {
  if (Log* log = GetLog()) log->ShowLogInfo(type, level, text);
}

HostLogSink Create(QString const& name, HostCallback callback, void* context) {
  Log* log = GetLog();
  return log == nullptr ? nullptr : log->Create(name, callback, context);
}

HostLogSink Create(char* name, HostCallback callback, void* context, eLogMsgType type) {
  Log* log = GetLog();
  return log == nullptr ? nullptr : log->Create(name, callback, context, type);
}

HostLogSink Create(QString const& name, eLogMsgType type) {
  Log* log = GetLog();
  return log == nullptr ? nullptr : log->Create(name, type, kUnusedCreateNumber);
}

}  // namespace LogHelper
