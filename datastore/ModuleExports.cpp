// The entry points of the library; everything else is hidden. GetModule,
// the fourth, is the framework's (Module.cpp).
#include "DataStoreModule.h"

extern "C" {

MODULE_EXPORT void Initialize(HostCallback callback, HostCallback callback2, void* context,
                              void* context2) {
  pDSModule->InitializeWrap(callback, callback2, context, context2);
}

MODULE_EXPORT int ReceiveMessage(void* param, unsigned int message, HostArg a, HostArg b) {
  return pDSModule->CDataStoreModule::ReceiveMessageWrap(param, message, a, b);
}

MODULE_EXPORT int GetModuleInfo(MODULE_INFO* out) { return pDSModule->GetModuleInfoWrap(out); }

}  // extern "C"
