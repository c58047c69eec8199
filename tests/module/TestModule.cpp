#include "TestModule.h"

#include <memory>

namespace {
std::unique_ptr<CModule> testModule;
}  // namespace

CModule& TestModule() {
  if (!testModule) ResetTestModule();
  return *testModule;
}

// The old module goes first, so that the new one is the framework's module.
void ResetTestModule() {
  testModule.reset();
  testModule = std::make_unique<CModule>("Test module", 1, 2, 3, "CTestModule",
                                         QStringLiteral("CTransTest"));
}

ScriptedHost& ScriptedHost::instance() {
  static ScriptedHost host;
  return host;
}

int ScriptedHost::Callback(void*, unsigned int message, HostArg a, HostArg b) {
  ScriptedHost& host = instance();
  host.calls.push_back({message, a, b});
  if (message == HostMessage::GetLogSink) {
    *reinterpret_cast<HostWord*>(a) = reinterpret_cast<HostWord>(&ScriptedHost::Sink);
  }
  auto answer = host.answers.find(message);
  return answer == host.answers.end() ? 0 : answer->second(a, b);
}

int ScriptedHost::Sink(LogRecord* record) {
  instance().sinkRecords.push_back({reinterpret_cast<const char16_t*>(record->moduleName),
                                    record->msgType, record->msgLevel,
                                    reinterpret_cast<const char16_t*>(record->text)});
  return 0;
}

void ScriptedHost::Attach(CModule& module) {
  calls.clear();
  answers.clear();
  sinkRecords.clear();
  module.InitializeWrap(&ScriptedHost::Callback, nullptr, this, nullptr);
}
