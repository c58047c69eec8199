#include "DataStoreModule.h"

#include <cstring>

namespace {

constexpr char kModuleName[] = "VdMd.DataStore module";
constexpr unsigned kNumber1 = 1;
constexpr unsigned kNumber2 = 0;
constexpr unsigned kNumber3 = 32;
constexpr char kClassName[] = "CDataStoreModule";
constexpr char kTranslationContext[] = "CTransDataStore";
constexpr char kDescription[] = "Datastore module";
constexpr char kLogParent[] = "DS";
constexpr char kLogFile[] = "./temp/dataStore.log";

}  // namespace

// The globals and the module object live in this one translation unit, so they
// are constructed in this order at load and destroyed in the reverse at unload.
CDataStoreModule* pDSModule = nullptr;
void* pGlobalCore = nullptr;
QString qDataPath;
messLog dsLog(kLogParent, kLogFile, MESS_INFO);
QApplication* pa = nullptr;

CDataStoreModule theDataStoreModule(kModuleName, kNumber1, kNumber2, kNumber3);

CDataStoreModule::CDataStoreModule(char const* name, unsigned number1, unsigned number2,
                                   unsigned number3)
    : CModule(name, number1, number2, number3, kClassName, QString::fromLatin1(kTranslationContext)) {
  MODULE_INFO& info = mutableInfo();
  std::strncpy(info.description, kDescription, sizeof(info.description));
  info.number1 = number1;
  info.number2 = number2;
  info.number3 = number3;
  info.kind = kModuleKind;
  info.extra = kModuleExtra;
  pDSModule = this;
}

CDataStoreModule::~CDataStoreModule() {
  if (pDSModule == this) pDSModule = nullptr;
}

int CDataStoreModule::ReceiveMessageWrap(void* context, unsigned int message, HostArg a, HostArg b) {
  CModule::ReceiveMessageWrap(context, message, a, b);
  return 0;
}
