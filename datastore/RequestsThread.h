// RequestsThread.h: the data store's worker thread, which serves the posted
// requests and sends their completion calls.
//
// Thread-safety: run() executes on the worker; the object is created,
// started and deleted on the host's thread.

#ifndef DATASTORE_DATASTORE_REQUESTSTHREAD_H_
#define DATASTORE_DATASTORE_REQUESTSTHREAD_H_

#include <QThread>

class CDataStoreModule;

class CDataStoreModuleRequestsThread : public QThread {
 public:
  explicit CDataStoreModuleRequestsThread(CDataStoreModule* module) : module_(module) {}
  ~CDataStoreModuleRequestsThread() override = default;

 protected:
  void run() override;

 private:
  CDataStoreModule* module_;  // the module whose queues it serves
};

#endif  // DATASTORE_DATASTORE_REQUESTSTHREAD_H_
