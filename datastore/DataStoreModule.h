// DataStoreModule.h: CDataStoreModule, the one module object of the data
// store library: start-up and folders, the host messages, the registry of
// symbols, the request queues and their worker thread.
//
// Guarantees:
//   - construction does no input or output and starts no thread;
//   - every message is answered; no caller input can crash the host: null
//     records and handles the registry does not hold are answered with 1;
//   - the data mutex serialises every access to a symbol; the queue mutex
//     guards the two queues and their counts; the two are never held together;
//   - completion calls of posted requests come from the worker thread only;
//   - the stop message (3005) ends the worker cooperatively: the request it
//     serves is finished, the queued ones are dropped, the thread is gone,
//     and every insert is in the data files;
//   - one writer per data folder: the instance that takes the folder's lock
//     recovers and keeps its write-ahead log (WriteAheadLog.h, durability by
//     configuration); any other works read-only there;
//   - no request names a file outside the data folder.
//
// REQUIRES: messages arrive on the host's thread, one at a time; the host
// sends 3005 before it unloads the library.
// Thread-safety: the message handler runs on the host's thread; the worker
// thread touches only the queues (under the queue mutex) and symbols (under
// the data mutex).

#ifndef DATASTORE_DATASTORE_DATASTOREMODULE_H_
#define DATASTORE_DATASTORE_DATASTOREMODULE_H_

#include <QApplication>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_set>

#include "DataStoreException.h"
#include "ImportTarget.h"
#include "MessLog.h"
#include "Module.h"
#include "FolderLock.h"
#include "LogView.h"
#include "Symbol.h"
#include "WriteAheadLog.h"

class CConvertor;
class CDataStoreModuleRequestsThread;
struct coreChangeGlobalParameters;

class CDataStoreModule : public CModule, public SymbolOwner, public ImportTarget {
 public:
  static constexpr std::uint32_t kModuleExtra = 38;          // MODULE_INFO::extra of the data store
  static constexpr unsigned long kStopWaitMs = 5000;         // longest wait for the worker on 3005
  static constexpr long kMaxSyncIntervalMs = 3'600'000;      // longest "SyncInterval" taken

  CDataStoreModule(char const* name, unsigned number1, unsigned number2, unsigned number3);
  ~CDataStoreModule() override;

  // Every message goes to CModule first; the data store's own come after.
  int ReceiveMessageWrap(void* context, unsigned int message, HostArg a, HostArg b) override;

  // Start-up and folders.
  void CreateFolders();
  void CheckMakeDir(QString const& path);
  void createFolderData(QString const& path, QString const& sub);
  static bool MakePath(QString const& path);
  void* GetMCore() const { return context(); }
  static int ChangeGlobalParameters(coreChangeGlobalParameters* parameters);
  static void LogMessage(const char* operation) { (void)operation; }  // trace hook
  void AddProvider(QString& path, QString const& provider) const;

  // SymbolOwner.
  bool IsWriteEnabled() const override { return writeEnabled_; }
  FileSystem& GetFileSystem() const override { return *fileSystem_; }
  WriteAheadLog* GetWriteLog() const override { return writeLog_.get(); }
  DurabilitySettings const& durability() const { return durability_; }
  void setFileSystem(FileSystem* fileSystem) { fileSystem_ = fileSystem; }

  // Registry.
  int OpenSymbol(SYMBOL_NAME_PERIOD_PATH* request, void** handle, bool create);
  int OpenSymbol(SYMBOL_NAME_PERIOD* request, void** handle) override;
  int CloseSymbol(void* handle) override;
  bool AcceptsPoints(void* handle, unsigned int pointSize) override;
  CSymbol* GetSymbol(QString const& key, SYMBOL_NAME_PERIOD* request);
  void AppendSymbol(QString const& key, CSymbol* symbol);
  bool isExistSymbol(void* handle) const;
  void CreateStoredSymbols(QString const& folder);
  void UpdateSourceNames(QString const& provider);

  // Requests.
  int GetSymbolDataSend(GET_SYMBOL_DATA_REQUEST* request);
  int GetSymbolDataCountSend(GET_SYMBOL_DATA_REQUEST* request);
  int InsertSymbolDataSend(INSERT_SYMBOL_DATA_REQUEST* request);
  int GetSymbolDataPost(GET_SYMBOL_DATA_REQUEST* request);
  int InsertSymbolDataPost(INSERT_SYMBOL_DATA_REQUEST* request) override;
  // The worker's loop; returns when a stop is requested.
  void RequestsThread();

  // Events.
  void subscribeEvent(const char* name);
  void EventDataStoreGetHandle();
  void EventDataStoreEmit();
  int coreReceiveEvent(HostArg record);

  // State, for the import and for tests.
  int gameMode() const { return gameMode_; }
  QStringList const& sourceNames() const { return sourceNames_; }
  int symbolCount() const { return symbolCount_; }
  HostWord hostId() const { return hostId_; }
  bool IsWorkerRunning() const;
  CConvertor* convertor() const { return convertor_; }

 private:
  struct WorkerSync;

  std::mutex& dataMutex();
  int Dispatch(unsigned int message, HostArg a, HostArg b);
  int HandleSymbolMessage(unsigned int message, HostArg a, HostArg b);
  void Register();
  void InitModule();
  void StartModule();
  void CreateImportMenu();
  void StopRequestThread();
  void addDateToTranslate() const;
  QString RequestProvider();
  CSymbol* CreateSymbol(QString const& key, SYMBOL_NAME_PERIOD const& request);
  bool IsInsideDataFolder(QString const& folder) const;
  template <typename Request>
  Request* TakeFirst(std::deque<Request*>& queue, int& count);
  void Serve(GET_SYMBOL_DATA_REQUEST* copy);
  void Serve(INSERT_SYMBOL_DATA_REQUEST* copy);
  void Complete(HostWord context, std::uint32_t code, void* copy);
  void DropQueued();
  void ReadConfiguration(QString const& configPath);
  void OpenWriteLog();
  void CloseWriteLog();
  // REQUIRES: the data mutex is held.
  void LogStatus(Status const& status) const;
  void CheckpointIfDue();
  bool LogHasUnapplied();
  void WakeWorkerForCheckpoint();
  void CommitInserts();
  std::chrono::steady_clock::duration UntilCheckpointDue();

  HostWord moduleHandle_ = 0;                           // from the registration reply
  HostWord hostId_ = 0;                                 // identifier used in host calls
  std::deque<GET_SYMBOL_DATA_REQUEST*> getQueue_;       // posted gets, oldest first
  int insertCount_ = 0;                                 // entries in insertQueue_
  std::deque<INSERT_SYMBOL_DATA_REQUEST*> insertQueue_; // posted inserts, oldest first
  int getCount_ = 0;                                    // entries in getQueue_
  WorkerSync* sync_;                                    // mutexes, condition, stop flag
  CDataStoreModuleRequestsThread* requestThread_ = nullptr;  // the worker
  bool writeEnabled_ = true;                            // "EnableWrite"
  int gameMode_ = 0;                                    // 1 while the host is in game mode
  QStringList stringList_;                              // cleared at tear-down
  QStringList sourceNames_;                             // providers seen, first seen first
  QMap<QString, QList<CSymbol*>> symbolMap_;            // folder key to its symbols
  std::unordered_set<const void*> symbolHandles_;       // every registered symbol
  int symbolCount_ = 0;                                 // symbols ever appended
  VDEvent eventSender_{};                               // sent with "DataStoreEvent"
  HostWord eventHandle_ = 0;                            // handle of "DataStoreEvent"
  CConvertor* convertor_ = nullptr;                     // the import controller
  FileSystem* fileSystem_;                              // where symbol files live
  DurabilitySettings durability_;                       // "Durability", "SyncInterval"
  std::unique_ptr<FolderLock> folderLock_;              // held while this instance writes the data folder
  std::unique_ptr<WriteAheadLog> writeLog_;             // the data folder's log; null while not its writer
  std::unique_ptr<LoggedFileSystem> logView_;           // reads after a recovery that could not finish
};

extern CDataStoreModule* pDSModule;   // the one module object
extern void* pGlobalCore;             // host context, set on 3007 and 3004
extern QString qDataPath;             // the data folder
extern messLog dsLog;                 // the module's own file log

// Adds a line to dsLog; safe from the host's thread and the worker alike.
void DsLog(QString const& text, CriticalLevel level);
extern QApplication* pa;              // the running QApplication, or null

#endif  // DATASTORE_DATASTORE_DATASTOREMODULE_H_
