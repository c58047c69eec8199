// HostSession.h: the module as every dshost command loads and starts it, and
// the completion calls of the inserts it posts.
//
// The host answers the folders (3128) with --config and --data, the work
// folder (3503) with the data folder, the data source (3012) with --provider
// and the languages (3116, 3117) with English, current.
//
// REQUIRES: a QCoreApplication (the module's path is found next to dshost).
// Thread-safety: the functions run on main's thread; InsertCompletion takes
// its calls on any thread.

#ifndef DATASTORE_HOST_HOSTSESSION_H_
#define DATASTORE_HOST_HOSTSESSION_H_

#include <QString>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "CommandLine.h"
#include "ModuleHost.h"

// Completion code of a posted insert: no message of the host's own, so the
// host hands the completion call to its user handler.
constexpr unsigned int kInsertDoneMessage = 7004;
constexpr std::chrono::seconds kInsertWait{60};  // longest wait for that call

// --module, else $DATASTORE_MODULE, else the installed library, else the build tree's.
std::string ModulePath(const Arguments& arguments);
// --data, else defaultData.
QString DataFolder(const Arguments& arguments, const QString& defaultData);
// The folder as the host hands it out: absolute and clean.
std::u16string AbsoluteFolder(const QString& folder);

// Loads the module and sets the host's answers; the data folder is
// DataFolder(arguments, defaultData). Returns false after printing the problem.
bool LoadModule(const Arguments& arguments, const QString& defaultData, ModuleHost* host);
// Loads, initialises and starts the module (3007, 3004), its data folder
// --data or the current folder. Returns false after printing the problem.
bool StartModule(const Arguments& arguments, ModuleHost* host);

// The completion calls of posted inserts, which the module makes on its
// worker thread.
class InsertCompletion {
 public:
  // The host's handler for messages without an answer of its own.
  int onMessage(unsigned int message, HostArg record);
  // Waits up to kInsertWait for the next call; false when it did not come.
  bool wait(std::int32_t* number);

 private:
  std::mutex mu_;                 // guards the members below
  std::condition_variable done_;  // signalled with arrived_
  bool arrived_ = false;          // a call came and was not waited for
  std::int32_t number_ = 0;       // records the module inserted
};

// Makes completion the host's handler. REQUIRES: completion outlives the
// host's module (the host's destructor stops the worker).
void HandleCompletions(ModuleHost& host, InsertCompletion& completion);
// Why a wait for a completion failed.
std::string NoCompletion();

#endif  // DATASTORE_HOST_HOSTSESSION_H_
