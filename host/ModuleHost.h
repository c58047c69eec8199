// ModuleHost.h: the reference host. Loads a module file as a terminal does
// (dlopen, RTLD_NOW | RTLD_LOCAL), resolves its four exports, hands Initialize
// a callback, and answers every message a module sends with the records of
// HostBoundary.h. Every call is recorded so that callers can see exactly what
// the module asked for.
//
// Guarantees: each call of the callback is recorded with its message, both
// arguments, the calling thread and a byte copy of its record taken on entry
// (before the host writes its answer), in the order the calls arrived; the
// log sink copies every record it is given; several hosts live in one process
// without seeing each other's calls (up to kSinkSlots hosts at a time).
//
// Answers: each message of HostBoundary.h gets the answer configured below
// and result 0, except 3128 for an unconfigured folder type and 3503 without
// a work folder (result 1); a known message whose record pointer is null is
// refused with 1 and touches nothing; every other message goes to the user
// handler (result 0 without one). Like a terminal, the host assigns module
// handles: each registration (3000) gets the next of a series starting at
// kFirstModuleHandle, unless setModuleHandle fixed one.
//
// REQUIRES: the host outlives every call that its module makes into it; the
// destructor sends Stop to a module that was initialised and not stopped, so
// a module that stops its threads on Stop is safe. Configuration setters are
// meant to be called before the module asks for what they configure.
//
// Thread-safety: every member but load() and unload() may be called from any
// thread; load() and unload() must not overlap any other call. One mutex
// guards the host's state; it is never held while the host calls into the
// module or into a user handler.

#ifndef DATASTORE_HOST_MODULEHOST_H_
#define DATASTORE_HOST_MODULEHOST_H_

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "HostBoundary.h"

class ModuleHost {
 public:
  static constexpr int kSinkSlots = 16;             // hosts that may hold a log sink at once
  static constexpr HostWord kFirstEventHandle = 1;  // handle of the first created event
  // Handle of the first registration; far from event handles so that a mix-up shows.
  static constexpr HostWord kFirstModuleHandle = 0x100;
  static constexpr std::int32_t kFirstMenuItemId = 1;  // id of the first added menu item

  // One call of the host callback.
  struct Call {
    unsigned int message;               // message code
    HostArg a;                          // first argument as given
    HostArg b;                          // second argument as given
    std::thread::id thread;             // calling thread
    std::vector<unsigned char> record;  // the message's record on entry; empty if unknown or null
  };

  // One record handed to the log sink.
  struct LogEntry {
    std::u16string module;   // module name
    std::uint32_t type;      // coreLogMsgType
    std::uint32_t level;     // coreLogMsgLevel
    std::u16string text;     // record text
    std::thread::id thread;  // thread that called the sink
  };

  struct Translation {    // message 3019
    std::string context;  // translation context
    std::string key;      // key
    std::string text;     // default text
  };

  struct CreatedEvent {  // message 3112
    std::string name;    // event name
    HostWord handle;     // handle the host assigned
  };

  struct Subscription {     // message 3110
    std::string name;       // event name
    HostWord moduleHandle;  // module's host-assigned handle
    HostWord module;        // module object
  };

  struct Emit {       // message 3113
    HostWord handle;  // event handle (a)
    VDEvent event;    // copy of the event record (b)
  };

  struct Language {    // one entry of the language list
    std::string name;  // e.g. "English"
    bool current;      // the host's current language
  };

  using Handler = std::function<int(unsigned int message, HostArg a, HostArg b)>;
  using ExceptionFactory = std::function<std::exception_ptr()>;

  ModuleHost();
  ~ModuleHost();  // unload()s, then frees the sink slot
  ModuleHost(const ModuleHost&) = delete;
  ModuleHost& operator=(const ModuleHost&) = delete;

  // Loads the module file and resolves its four exports. Returns false and
  // sets error() when a module is already loaded or when the file, the
  // library or an export is missing.
  bool load(const std::string& path);
  const std::string& error() const { return error_; }
  bool loaded() const { return library_ != nullptr; }
  // Stops the module if it was initialised (3007) and not stopped (3005)
  // since, as a terminal does at shutdown, then closes the library.
  void unload();

  // The four exports. REQUIRES: loaded().
  void initialize();  // callback = this host, callback2 = null
  int send(unsigned int message, HostArg a = 0, HostArg b = 0);  // param = this host
  int moduleInfo(MODULE_INFO* out);  // GetModuleInfo as is (out may be null)
  MODULE_INFO info();                // a zeroed record filled by GetModuleInfo
  void* moduleObject();              // GetModule

  // Events towards the module (message 3114). raiseEvent addresses every
  // subscriber of name and returns how many it reached.
  int raiseEvent(const std::string& name, std::int32_t eventCode);
  int raiseEventRaw(const INCOMING_EVENT_RECORD& record);
  // Sends 5511 with a copy of the index-th added menu item. REQUIRES: index < menuItems().size().
  int pressMenuItem(std::size_t index);
  // Posts number records at data to the symbol handle (6004); the module's
  // completion call comes back to this host as message completionCode.
  int postInsert(HostWord handle, std::int32_t number, const void* data,
                 unsigned int completionCode);

  // Configuration of the answers.
  void setContext2(HostWord value);                    // Initialize's context2 (default 0)
  void setModuleHandle(HostWord handle);               // 3000 writes it (default: assigned)
  void setLanguages(std::vector<Language> languages);  // 3116 / 3117 (default: none)
  void setDateTimeFormatters(bool provide);            // 3207 (default: provided)
  void setInterface(const std::string& first, const std::string& second, const std::string& third,
                    HostWord value);                               // 3001 / 3002
  void setFolder(std::uint32_t type, const std::u16string& path);  // 3128
  void setDataSource(const std::string& provider);                 // 3012
  void setWorkFolder(const std::u16string& path);                  // 3503
  void setUseWorkFolder(std::int32_t value);                       // 3506
  void setMainWindowId(HostWord id);                               // 3502
  void setHandler(Handler handler);  // every message without an answer of its own
  // Makes the callback throw for message (after recording the call).
  void throwOn(unsigned int message, std::exception_ptr exception);
  void throwOn(unsigned int message, ExceptionFactory factory);
  void clearThrow(unsigned int message);

  // What was recorded, copied under the lock.
  std::vector<Call> calls() const;
  std::vector<Call> calls(unsigned int message) const;
  std::vector<unsigned int> messages() const;  // codes of calls(), in order
  std::vector<LogEntry> logs() const;
  std::vector<Translation> translations() const;
  std::vector<CreatedEvent> createdEvents() const;
  std::vector<Subscription> subscriptions() const;  // current ones
  std::vector<Emit> emits() const;
  std::vector<mm_menu_item> menuItems() const;
  // Forgets the history: calls, logs, translations, created events, emits.
  // Subscriptions and menu items stay, being the host's current state.
  void clearRecords();

  // The log sink that 3205 hands out for this host; null without a free slot.
  HostLogSink logSink() const;
  // A readable name of a message code ("GetLogSink"), or "" when unknown.
  static const char* messageName(unsigned int message);

 private:
  using InterfaceKey = std::tuple<std::string, std::string, std::string>;
  struct Answer;  // what the callback does after it released the lock

  static int Callback(void* context, unsigned int message, HostArg a, HostArg b);
  int handle(unsigned int message, HostArg a, HostArg b);
  Answer answer(unsigned int message, HostArg a, HostArg b);  // REQUIRES: mu_ held

  // Log sinks carry no context: each slot has a function of its own that
  // finds its host in a process-wide table.
  template <int Slot>
  static int SinkTrampoline(LogRecord* record);
  static int DeliverLog(int slot, const LogRecord* record);
  static HostLogSink SinkOf(int slot);
  static int AcquireSinkSlot(ModuleHost* host);  // -1 when every slot is taken
  static void ReleaseSinkSlot(int slot);

  // Answers of the messages with a record; each REQUIRES: mu_ held and a non-null.
  void registerModule(REGISTRATION_RECORD* record);
  void answerInterface(const INTERFACE_REQUEST_RECORD* record);
  void answerDataSource(SOURCE_RECORD* record);
  void subscribe(const EVENT_SUBSCRIPTION_RECORD* record);
  void unsubscribeAll(const EVENT_UNSUBSCRIPTION_RECORD* record);
  void createEvent(EVENT_CREATION_RECORD* record);
  void answerLanguages(unsigned int message, LANGUAGE_LIST_RECORD* record);
  int answerFolder(FOLDER_REQUEST_RECORD* record);
  int answerWorkFolder(char16_t* buffer);
  void addMenuItem(mm_menu_item* item);

  struct Exports {                                    // resolved entry points
    void* (*getModule)() = nullptr;                   // kExportGetModule
    InitializeFunction initialize = nullptr;          // kExportInitialize
    ReceiveMessageFunction receiveMessage = nullptr;  // kExportReceiveMessage
    GetModuleInfoFunction getModuleInfo = nullptr;    // kExportGetModuleInfo
  };

  mutable std::mutex mu_;    // guards everything below but library_, exports_
  void* library_ = nullptr;  // dlopen handle
  Exports exports_;          // valid while library_ is set
  std::string error_;        // last load failure
  int sinkSlot_ = -1;        // index into the sink table, -1: none
  bool running_ = false;     // 3007 sent, 3005 not since

  HostWord context2_ = 0;                            // Initialize's context2
  std::optional<HostWord> moduleHandle_;             // fixed 3000 answer, else assigned
  std::vector<Language> languages_;                  // answered by 3116 / 3117
  bool provideFormatters_ = true;                    // answered by 3207
  std::map<InterfaceKey, HostWord> interfaces_;      // answered by 3001 / 3002
  std::map<std::uint32_t, std::u16string> folders_;  // answered by 3128
  std::string provider_;                             // answered by 3012
  std::optional<std::u16string> workFolder_;         // answered by 3503
  std::optional<std::int32_t> useWorkFolder_;        // answered by 3506
  std::optional<HostWord> mainWindowId_;             // answered by 3502
  Handler handler_;                                  // other messages
  std::map<unsigned int, ExceptionFactory> throws_;  // messages that throw

  std::vector<Call> calls_;                         // every call, in order
  std::vector<LogEntry> logs_;                      // every sink record
  std::vector<Translation> translations_;           // 3019
  std::vector<CreatedEvent> createdEvents_;         // 3112
  std::vector<Subscription> subscriptions_;         // 3110 minus 3111
  std::vector<Emit> emits_;                         // 3113
  std::vector<mm_menu_item> menuItems_;             // 5508, with their assigned ids
  HostWord nextEventHandle_ = kFirstEventHandle;    // next 3112 handle
  HostWord nextModuleHandle_ = kFirstModuleHandle;  // next assigned 3000 handle
  std::int32_t nextMenuItemId_ = kFirstMenuItemId;  // next 5508 id
};

#endif  // DATASTORE_HOST_MODULEHOST_H_
