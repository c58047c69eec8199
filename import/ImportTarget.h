// ImportTarget.h: what the import needs from the store it imports into. The
// data store implements it; the import knows nothing else of the store.
//
// Thread-safety: called on the host's (user-interface) thread only.

#ifndef DATASTORE_IMPORT_IMPORTTARGET_H_
#define DATASTORE_IMPORT_IMPORTTARGET_H_

#include "HostBoundary.h"

class ImportTarget {
 public:
  virtual ~ImportTarget() = default;
  // Fills *handle with the symbol's handle (or leaves it null); 0 done.
  virtual int OpenSymbol(SYMBOL_NAME_PERIOD* request, void** handle) = 0;
  // Whether the opened symbol's records are pointSize bytes long: a symbol
  // stored before with other views would read past the points given to it.
  virtual bool AcceptsPoints(void* handle, unsigned int pointSize) = 0;
  // Copies the request and its points and queues the insert; may throw a
  // std::exception when the store refuses it.
  virtual int InsertSymbolDataPost(INSERT_SYMBOL_DATA_REQUEST* request) = 0;
  virtual int CloseSymbol(void* handle) = 0;
};

#endif  // DATASTORE_IMPORT_IMPORTTARGET_H_
