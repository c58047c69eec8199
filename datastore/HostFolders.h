// HostFolders.h: the folders a module asks its host for.
//
// Thread-safety: each call goes to the host; call from the host's thread.

#ifndef DATASTORE_DATASTORE_HOSTFOLDERS_H_
#define DATASTORE_DATASTORE_HOSTFOLDERS_H_

#include <QString>

#include "HostBoundary.h"

class CDataStoreModule;

// The folder of a type (HostMessage::GetFolder); the application's folder when
// the host does not answer 0.
QString GetPathByFolderType(HostCallback callback, void* context, VD_FOLDERS type);

// The same through a module's callback and context; empty for a null module.
template <typename Module>
QString GetPathByFolderType(const Module* module, VD_FOLDERS type) {
  if (module == nullptr) return QString();
  return GetPathByFolderType(module->callback(), module->context(), type);
}

// The host's work folder (HostMessage::GetWorkFolder); empty when the module
// has no callback or the host does not answer 0.
template <typename Module>
QString GetWorkFolderFromMain(Module* module, void* context);
template <>
QString GetWorkFolderFromMain<CDataStoreModule>(CDataStoreModule* module, void* context);

// The same call without testing the callback's presence or its result.
// REQUIRES: callback is not null.
QString GetUserDir(HostCallback callback, void* context);

// The folder of the running program.
QString ApplicationFolder();

#endif  // DATASTORE_DATASTORE_HOSTFOLDERS_H_
