// DataStoreModule.h: CDataStoreModule, the one module object of the data
// store library, and the library's globals.
//
// Guarantees: construction does no input or output and starts no thread; the
// MODULE_INFO record is complete once the object exists.
// REQUIRES: messages arrive on the host's thread, one at a time.
// Thread-safety: as CModule.

#ifndef DATASTORE_DATASTORE_DATASTOREMODULE_H_
#define DATASTORE_DATASTORE_DATASTOREMODULE_H_

#include <QApplication>
#include <QString>

#include "MessLog.h"
#include "Module.h"

class CDataStoreModule : public CModule {
 public:
  static constexpr std::uint32_t kModuleExtra = 38;     // MODULE_INFO::extra of the data store

  CDataStoreModule(char const* name, unsigned number1, unsigned number2, unsigned number3);
  ~CDataStoreModule() override;

  // Every message goes to CModule first; the data store's own come after.
  int ReceiveMessageWrap(void* context, unsigned int message, HostArg a, HostArg b) override;
};

extern CDataStoreModule* pDSModule;   // the one module object
extern void* pGlobalCore;             // host context, set on 3007 and 3004
extern QString qDataPath;             // the data folder
extern messLog dsLog;                 // the module's own file log
extern QApplication* pa;              // the running QApplication, or null

#endif  // DATASTORE_DATASTORE_DATASTOREMODULE_H_
