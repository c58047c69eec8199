// The framework's tests run against one CModule that stands for the library's
// module object (GetModule), wired to a scripted host callback.
#ifndef DATASTORE_TESTS_MODULE_TESTMODULE_H_
#define DATASTORE_TESTS_MODULE_TESTMODULE_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Module.h"

struct ScriptedHost {
  struct Call {
    unsigned int message;
    HostArg a;
    HostArg b;
  };
  struct SinkRecord {
    std::u16string moduleName;
    std::uint32_t type;
    std::uint32_t level;
    std::u16string text;
  };
  std::vector<Call> calls;                                               // every callback call
  std::map<unsigned int, std::function<int(HostArg, HostArg)>> answers;  // per message
  std::vector<SinkRecord> sinkRecords;  // what reached the log sink

  static ScriptedHost& instance();
  static int Callback(void* context, unsigned int message, HostArg a, HostArg b);
  static int Sink(LogRecord* record);
  // Resets the recorder and installs the callback (and a log sink) on `module`.
  void Attach(CModule& module);
};

// The module object the framework's tests use; reset per test.
CModule& TestModule();
void ResetTestModule();

#endif  // DATASTORE_TESTS_MODULE_TESTMODULE_H_
