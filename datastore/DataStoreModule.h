// DataStoreModule.h: CDataStoreModule, the one module object of the data
// store library: start-up and folders, the host messages, and the store's
// life between 3007 and 3005. The symbols are kept by a SymbolRegistry, the
// posted requests by a RequestQueue and its worker.
//
// Guarantees:
//   - construction does no input or output and starts no thread;
//   - every message is answered; no caller input can crash the host: null
//     records and handles the registry does not hold are answered with 1, as
//     is every symbol message outside 3007 to 3005;
//   - the data mutex serialises every access to a symbol, the registry's
//     file cache and the log; whatever changes the log or opens a file also
//     holds the change mutex (taken first), which a checkpoint keeps while it
//     syncs with the data mutex released, so reads of open files go on
//     during its syncs; the queue's own mutex is never held with either;
//   - completion calls of posted requests come from the worker thread only;
//   - one writer per data folder: the instance that takes the folder's lock
//     at 3007 recovers and keeps its write-ahead log (WriteAheadLog.h,
//     durability by configuration) until 3005; any other reads only there and
//     refuses inserts;
//   - 3005 (and unloading without it): the worker finishes what it serves,
//     stores the queued inserts while the stop budget lasts, drops the rest
//     (counted in the log), and its thread has ended; then every insert goes
//     into the data files, the registry is emptied and the lock let go. A
//     3007 afterwards starts all of it again;
//   - no request names a file outside the data folder.
//
// REQUIRES: messages arrive on the host's thread, one at a time.
// Thread-safety: the message handler runs on the host's thread; the worker
// calls the RequestServer operations, which take the data mutex.

#ifndef DATASTORE_DATASTORE_DATASTOREMODULE_H_
#define DATASTORE_DATASTORE_DATASTOREMODULE_H_

#include <QSet>
#include <QString>
#include <QStringList>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "DataStoreException.h"
#include "FolderLock.h"
#include "ImportTarget.h"
#include "LogView.h"
#include "MessLog.h"
#include "Module.h"
#include "RequestQueue.h"
#include "Symbol.h"
#include "SymbolRegistry.h"
#include "WriteAheadLog.h"

class CConvertor;
class QApplication;
struct coreChangeGlobalParameters;

class CDataStoreModule : public CModule,
                         public SymbolOwner,
                         public ImportTarget,
                         private RequestServer {
 public:
  static constexpr std::uint32_t kModuleExtra = 38;  // MODULE_INFO::extra of the data store
  static constexpr std::chrono::milliseconds kStopBudget{
      5000};                                             // longest wait for the worker on 3005
  static constexpr long kMaxSyncIntervalMs = 3'600'000;  // longest "SyncInterval" taken
  static constexpr long kMaxOpenFiles = 1'000'000;       // largest "OpenFiles" taken

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

  // Registry.
  int OpenSymbol(SYMBOL_NAME_PERIOD_PATH* request, void** handle, bool create);
  int OpenSymbol(SYMBOL_NAME_PERIOD* request, void** handle) override;
  int CloseSymbol(void* handle) override;
  bool AcceptsPoints(void* handle, unsigned int pointSize) override;
  CSymbol* GetSymbol(QString const& key, SYMBOL_NAME_PERIOD* request);
  void AppendSymbol(QString const& key, CSymbol* symbol);
  bool isExistSymbol(void* handle) const { return registry_.Contains(handle); }
  void CreateStoredSymbols(QString const& folder);
  void UpdateSourceNames(QString const& provider);

  // Requests.
  int GetSymbolDataSend(GET_SYMBOL_DATA_REQUEST* request);
  int GetSymbolDataCountSend(GET_SYMBOL_DATA_REQUEST* request);
  int InsertSymbolDataSend(INSERT_SYMBOL_DATA_REQUEST* request);
  int GetSymbolDataPost(GET_SYMBOL_DATA_REQUEST* request);
  int InsertSymbolDataPost(INSERT_SYMBOL_DATA_REQUEST* request) override;

  // Events.
  void subscribeEvent(const char* name);
  void EventDataStoreGetHandle();
  void EventDataStoreEmit();
  int coreReceiveEvent(HostArg record);

 private:
  // RequestServer, for the worker.
  void ServeGet(GET_SYMBOL_DATA_REQUEST& copy) override;
  void ServeInsert(INSERT_SYMBOL_DATA_REQUEST& copy) override;
  void CommitInserts() override;
  void RunDueWork() override;
  std::chrono::steady_clock::duration UntilWorkDue() override;
  void ReportFailure(std::string const& text) override;

  int Dispatch(unsigned int message, HostArg a, HostArg b);
  int HandleSymbolMessage(unsigned int message, HostArg a, HostArg b);
  int RefuseInsert(bool synchronous);
  void Register();
  void InitModule();
  void StartModule();
  void CreateImportMenu();
  void StopRequestThread();
  void CloseStore();
  void addDateToTranslate() const;
  QString RequestProvider();
  CSymbol* CreateSymbol(QString const& key, SYMBOL_NAME_PERIOD const& request);
  bool IsInsideDataFolder(QString const& folder);
  void ReadConfiguration(QString const& configPath);
  void OpenWriteLog();
  // The change mutex, then the data mutex.
  struct ChangeLock {
    explicit ChangeLock(CDataStoreModule& module)
        : change(module.changeMutex_), data(module.dataMutex_) {}
    std::unique_lock<std::mutex> change;  // taken first
    std::unique_lock<std::mutex> data;    // released by a checkpoint during its syncs
  };
  void LogStatus(Status const& status);
  // REQUIRES (these four): a ChangeLock is held.
  void CheckpointIfDue(ChangeLock& lock);
  void CommitLog();
  Status UseSymbol(CSymbol& symbol);
  void CloseWriteLog();
  void ReadSymbol(GET_SYMBOL_DATA_REQUEST& request, bool countOnly);
  // REQUIRES: data holds the data mutex (and keeps it on return).
  Status UseForReading(CSymbol& symbol, std::unique_lock<std::mutex>& data);
  bool LogHasUnapplied();

  HostWord hostId_ = 0;                     // identifier used in host calls
  bool running_ = false;                    // between 3007 and 3005
  std::shared_ptr<RequestQueue> requests_;  // posted requests and their worker, while running
  std::mutex changeMutex_;                  // kept by changes and checkpoints; before dataMutex_
  std::mutex dataMutex_;                    // serialises symbols, file cache and log
  bool writeEnabled_ = true;                // "EnableWrite", and this instance holds the lock
  QString readOnlyReason_;           // why inserts are refused though "EnableWrite" allows them
  long insertsRefused_ = 0;          // inserts refused for readOnlyReason_
  int gameMode_ = 0;                 // 1 while the host is in game mode
  QStringList stringList_;           // cleared at tear-down
  QStringList sourceNames_;          // providers seen, first seen first
  QString lastFolderInside_;         // the last request folder found inside the data folder
  QSet<QString> foldersMade_;        // symbol folders made (or found) since 3007
  SymbolRegistry registry_;          // every symbol, its handle and its open file
  int symbolCount_ = 0;              // symbols ever appended
  VDEvent eventSender_{};            // sent with "DataStoreEvent"
  HostWord eventHandle_ = 0;         // handle of "DataStoreEvent"
  CConvertor* convertor_ = nullptr;  // the import controller
  FileSystem* fileSystem_;           // where symbol files live
  DurabilitySettings durability_;    // "Durability", "SyncInterval"
  std::unique_ptr<FolderLock> folderLock_;     // held while this instance writes the data folder
  std::unique_ptr<WriteAheadLog> writeLog_;    // the data folder's log; null while not its writer
  std::unique_ptr<LoggedFileSystem> logView_;  // reads after a recovery that could not finish
};

extern CDataStoreModule* pDSModule;  // the one module object
extern void* pGlobalCore;            // host context, set on 3007 and 3004
extern QString qDataPath;            // the data folder
extern messLog dsLog;                // the module's own file log

// Adds a line to dsLog; safe from the host's thread and the worker alike.
void DsLog(QString const& text, CriticalLevel level);
void KeepFileLogOpen(bool keep);
extern QApplication* pa;  // the running QApplication, or null

#endif  // DATASTORE_DATASTORE_DATASTOREMODULE_H_
