// WorkerSync.h: the locks and the condition shared by the host's thread and
// the data store's worker. Held by pointer so that a worker the host never
// stopped can be left waiting on it after the module is gone.
#ifndef DATASTORE_DATASTORE_WORKERSYNC_H_
#define DATASTORE_DATASTORE_WORKERSYNC_H_

#include <condition_variable>
#include <mutex>

#include "DataStoreModule.h"

struct CDataStoreModule::WorkerSync {
  std::mutex dataMutex;                        // serialises every access to a symbol
  std::mutex queueMutex;                       // guards both queues, both counts, the flags
  std::condition_variable requestCondition;    // wakes the worker
  bool stopRequested = false;                  // the worker leaves its loop
  bool checkpointDue = false;                  // a message on the host's thread started the log's interval
};

#endif  // DATASTORE_DATASTORE_WORKERSYNC_H_
