// HostBoundary.h: every record and code that crosses the boundary between a
// host terminal and a module. This header is the one place where the wire
// layout is written down; it depends on nothing but the C++ standard library
// so that hosts can include it without Qt.
//
// Layout rules:
//   - every record is packed (byte alignment) and little-endian;
//   - a field that carries an address, a handle, a host identifier or a
//     function pointer is a HostWord: 4 bytes on a 32-bit build, 8 bytes on a
//     64-bit build; every later offset moves accordingly on 64-bit;
//   - counts, codes, types, flags and times are 32-bit on both;
//   - 8-bit names live in fixed 255-byte fields, UTF-16 names in fixed
//     510-byte fields (255 units), NUL-terminated when they are shorter.
//
// tests/layout checks every size and offset below on both targets.

#ifndef DATASTORE_MODULE_HOSTBOUNDARY_H_
#define DATASTORE_MODULE_HOSTBOUNDARY_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

using HostWord = std::uintptr_t;  // address, handle, identifier or function pointer
using HostArg = std::intptr_t;    // the a and b arguments of a message

// The host callback, handed to Initialize. The module passes the context it
// was given as the first argument of every call.
using HostCallback = int (*)(void* context, unsigned int message, HostArg a, HostArg b);

constexpr int kHostNameField = 255;      // bytes of an 8-bit name field
constexpr int kHostWideNameUnits = 255;  // UTF-16 units of a wide name field

// ---------------------------------------------------------------------------
// Message codes, each written down once: X(name, code, argument a, argument b).
// The HostMessage constants, HostMessageName() and the README's message tables
// (checked by tests/host/HostVocabularyTest.cpp) all come from these lists.

// Sent by a module to the host.
#define DATASTORE_MESSAGES_TO_HOST(X)                                         \
  X(RegisterModule, 3000, "REGISTRATION_RECORD*", "0")                        \
  X(GetInterface, 3001, "INTERFACE_REQUEST_RECORD*", "0")                     \
  X(GetMainMenu, 3002, "INTERFACE_REQUEST_RECORD*", "0")                      \
  X(GetDataSource, 3012, "module handle", "SOURCE_RECORD*")                   \
  X(InsertTranslation, 3019, "TRANSLATION_INSERT_RECORD*", "0")               \
  X(SubscribeEvent, 3110, "EVENT_SUBSCRIPTION_RECORD*", "0")                  \
  X(UnsubscribeAll, 3111, "EVENT_UNSUBSCRIPTION_RECORD*", "0")                \
  X(CreateEvent, 3112, "EVENT_CREATION_RECORD*", "0")                         \
  X(EmitEvent, 3113, "event handle", "VDEvent*")                              \
  X(GetLanguageCount, 3116, "LANGUAGE_LIST_RECORD*", "0")                     \
  X(GetLanguages, 3117, "LANGUAGE_LIST_RECORD*", "0")                         \
  X(GetFolder, 3128, "FOLDER_REQUEST_RECORD*", "0")                           \
  X(GetLogSink, 3205, "HostWord* slot for a HostLogSink", "0")                \
  X(GetDateTimeFormatters, 3207, "DATETIME_FORMATTER_RECORD*", "0")           \
  X(GetMainWindowId, 3502, "HostWord* window identifier (starts at -1)", "0") \
  X(GetWorkFolder, 3503, "char16_t[kWorkFolderUnits]", "0")                   \
  X(UseWorkFolder, 3506, "int32_t*; the host writes 1 for yes", "0")          \
  X(RefreshMenu, 5500, "0", "0")                                              \
  X(SetMenuParent, 5503, "MENU_PARENT_RECORD*", "0")                          \
  X(AddMenuItem, 5508, "mm_menu_item*", "0")

// Received by a module: from the host, and the data store's requests from the
// host and other modules.
#define DATASTORE_MESSAGES_TO_MODULE(X)                          \
  X(Start, 3004, "", "")                                         \
  X(Stop, 3005, "", "")                                          \
  X(InitModule, 3007, "", "")                                    \
  X(CreateMenu, 3066, "", "")                                    \
  X(ReceiveEvent, 3114, "INCOMING_EVENT_RECORD*", "")            \
  X(MenuItemPressed, 5511, "mm_menu_item*", "")                  \
  X(OpenSymbol, 6001, "SYMBOL_NAME_PERIOD*", "HostWord* handle") \
  X(CloseSymbol, 6002, "symbol handle", "")                      \
  X(InsertDataSend, 6003, "INSERT_SYMBOL_DATA_REQUEST*", "")     \
  X(InsertDataPost, 6004, "INSERT_SYMBOL_DATA_REQUEST*", "")     \
  X(GetDataSend, 6005, "GET_SYMBOL_DATA_REQUEST*", "")           \
  X(GetDataPost, 6006, "GET_SYMBOL_DATA_REQUEST*", "")           \
  X(GetDataCountSend, 6007, "GET_SYMBOL_DATA_REQUEST*", "")      \
  X(OpenSymbolPath, 6008, "SYMBOL_NAME_PERIOD_PATH*", "HostWord* handle")

namespace HostMessage {
#define DATASTORE_MESSAGE_CONSTANT(name, code, a, b) constexpr unsigned int name = code;
DATASTORE_MESSAGES_TO_HOST(DATASTORE_MESSAGE_CONSTANT)
DATASTORE_MESSAGES_TO_MODULE(DATASTORE_MESSAGE_CONSTANT)
#undef DATASTORE_MESSAGE_CONSTANT
}  // namespace HostMessage

// One message of the lists above.
struct HostMessageInfo {
  unsigned int code;      // the number
  const char* name;       // the HostMessage constant's name
  bool toHost;            // sent by the module to the host; else received by it
  const char* argumentA;  // what a carries
  const char* argumentB;  // what b carries
};

#define DATASTORE_MESSAGE_TO_HOST_INFO(name, code, a, b) HostMessageInfo{code, #name, true, a, b},
#define DATASTORE_MESSAGE_TO_MODULE_INFO(name, code, a, b) \
  HostMessageInfo{code, #name, false, a, b},
inline constexpr HostMessageInfo kHostMessages[] = {DATASTORE_MESSAGES_TO_HOST(
    DATASTORE_MESSAGE_TO_HOST_INFO) DATASTORE_MESSAGES_TO_MODULE(DATASTORE_MESSAGE_TO_MODULE_INFO)};
#undef DATASTORE_MESSAGE_TO_HOST_INFO
#undef DATASTORE_MESSAGE_TO_MODULE_INFO

// The name of a message code ("GetLogSink"), or "" when it is none of ours.
constexpr const char* HostMessageName(unsigned int code) {
  for (HostMessageInfo const& message : kHostMessages) {
    if (message.code == code) return message.name;
  }
  return "";
}

// ---------------------------------------------------------------------------
// Fixed text fields of the records. Packed records put wide fields at odd
// offsets, so these copy bytes: a record's char16_t is never read or written
// through a pointer.
namespace hostfield {

// An 8-bit field's text: up to its first NUL, at most `size` bytes.
inline std::string Text(const char* field, std::size_t size) {
  return std::string(field, std::find(field, field + size, '\0') - field);
}

// A wide field's text: up to its first NUL, at most `units` units.
inline std::u16string WideText(const void* field, std::size_t units = kHostWideNameUnits) {
  std::u16string text(units, u'\0');
  std::memcpy(text.data(), field, units * sizeof(char16_t));
  text.resize(static_cast<std::size_t>(std::find(text.begin(), text.end(), u'\0') - text.begin()));
  return text;
}

// Writes text into a wide field of `units` units: at most units - 1 of them,
// then a NUL. REQUIRES: units >= 1.
inline void SetWideText(void* field, std::u16string_view text,
                        std::size_t units = kHostWideNameUnits) {
  const std::size_t length = std::min(text.size(), units - 1);
  const char16_t nul = u'\0';
  std::memcpy(field, text.data(), length * sizeof(char16_t));
  std::memcpy(static_cast<char*>(field) + length * sizeof(char16_t), &nul, sizeof nul);
}

}  // namespace hostfield

// The data provider whose folder the module's import stores its symbols in:
// a host reports it (3012) to read them back.
constexpr char kImportProvider[] = "QUENDAL";

// Modes of GET_SYMBOL_DATA_REQUEST.
enum GetMode : std::int32_t {
  kGetNewest = 0,     // the newest count records
  kGetTimeRange = 1,  // from the last record before firstTime up to, not including, lastTime
  kGetOldest = 2,     // the oldest count records
};

// Host folder types asked for with HostMessage::GetFolder.
enum VD_FOLDERS : std::uint32_t {
  VD_FOLDER_CONFIG = 2,    // holds the configuration file
  VD_FOLDER_DATA = 100,    // the host's default data folder
  VD_FOLDER_IMPORT = 152,  // the import dialog's default directory
};

// Event codes carried by INCOMING_EVENT_RECORD.
constexpr std::int32_t kEventGameModeStarts = 1001;
constexpr std::int32_t kEventGameModeEnds = 1002;

constexpr int kWorkFolderUnits = 6144;  // UTF-16 units of the 12288-byte work folder buffer

#pragma pack(push, 1)

// ---------------------------------------------------------------------------
// Module information, copied to the host by GetModuleInfo. No HostWord field:
// the same 2315 bytes on both targets.
struct MODULE_INFO {
  char name[kHostNameField];         // module name, NUL-terminated
  char description[kHostNameField];  // description, NUL-terminated
  unsigned char reserved1[769];      // never written; zero
  std::uint32_t number3;             // constructor's third number
  std::uint32_t number2;             // constructor's second number
  std::uint32_t number1;             // constructor's first number
  std::uint32_t kind;                // always 7
  char contextName[20];              // translation context, not NUL-terminated at 20+
  std::uint32_t extra;               // 20 from the framework, the module may overwrite
  unsigned char reserved2[996];      // never written; zero
};

// The host's counted string.
struct coreUncStringType {
  std::uint32_t length;   // characters
  std::uint8_t charSize;  // bytes per character; 2 for UTF-16
  HostWord data;          // length x charSize bytes, no terminator needed
};

// One record handed to the host's log sink. Pointers are valid during the call only.
struct LogRecord {
  HostWord moduleName;     // const char16_t*, NUL-terminated
  std::uint32_t msgType;   // coreLogMsgType
  std::uint32_t msgLevel;  // coreLogMsgLevel
  HostWord text;           // const char16_t*, NUL-terminated
};
using HostLogSink = int (*)(LogRecord* record);

// ---------------------------------------------------------------------------
// Events and interfaces.
struct EVENT_CREATION_RECORD {  // HostMessage::CreateEvent
  char name[kHostNameField];    // event name
  HostWord handle;              // out: the new event's handle
};

struct EVENT_SUBSCRIPTION_RECORD {  // HostMessage::SubscribeEvent
  char name[kHostNameField];        // event to subscribe to
  std::uint32_t zero;               // always 0
  HostWord moduleHandle;            // host-assigned module handle
  HostWord module;                  // the module object
  std::int32_t minusOne;            // always -1
};

struct EVENT_UNSUBSCRIPTION_RECORD {  // HostMessage::UnsubscribeAll
  HostWord moduleHandle;              // host-assigned module handle
  HostWord module;                    // the module object
};

struct INTERFACE_REQUEST_RECORD {  // HostMessage::GetInterface
  char first[kHostNameField];      // first name
  char third[kHostNameField];      // third name (stored before the second)
  char second[kHostNameField];     // second name
  std::uint32_t one;               // always 1
  HostWord resultSlot;             // HostWord* where the host writes the interface
};

struct VDEvent {              // HostMessage::EmitEvent, b
  HostWord sender;            // emitting module's host identifier
  std::uint32_t word4;        // event specific
  HostWord eventHandle;       // written by EmitEvent
  std::uint32_t word12;       // event specific
  char name[kHostNameField];  // written by EmitEvent
};

struct INCOMING_EVENT_RECORD {  // HostMessage::ReceiveEvent, a (read only this far)
  HostWord addressedHostId;     // host identifier of the addressed module
  HostWord addressedModule;     // address of the addressed module
  unsigned char unread[522];    // not read by modules
  std::int32_t eventCode;       // kEventGameModeStarts, kEventGameModeEnds, ...
};

// ---------------------------------------------------------------------------
// Translation, languages, date-time formatting.
constexpr int kTranslationField = 1024;
struct TRANSLATION_INSERT_RECORD {  // HostMessage::InsertTranslation
  char context[kTranslationField];  // NUL-terminated
  char key[kTranslationField];      // NUL-terminated
  char text[kTranslationField];     // default text, NUL-terminated
};

struct LANGUAGE_ENTRY {        // one element of the HostMessage::GetLanguages array
  char name[kHostNameField];   // e.g. "English"
  char text2[kHostNameField];  // host's own
  char text3[kHostNameField];  // host's own
  std::uint32_t isCurrent;     // 1 for the host's current language
};

struct LANGUAGE_LIST_RECORD {  // HostMessage::GetLanguageCount / GetLanguages
  std::int32_t count;          // out of 3116; in of 3117
  HostWord entries;            // LANGUAGE_ENTRY[count], filled by 3117
};

// Host formatters. Arguments are Qt objects passed by address: a QDateTime
// or a time value, a QString format, and a QString result.
using HostQDateTimeFormatter = void (*)(const void* dateTime, const void* format, void* result);
using HostTimeValueFormatter = void (*)(long time, const void* format, bool flag, void* result);

struct DATETIME_FORMATTER_RECORD {  // HostMessage::GetDateTimeFormatters
  HostWord qDateTimeFormatter;      // HostQDateTimeFormatter or 0
  HostWord timeValueFormatter;      // HostTimeValueFormatter or 0
};

// ---------------------------------------------------------------------------
// Registration, folders, data source.
struct REGISTRATION_RECORD {        // HostMessage::RegisterModule
  char kind[kHostNameField];        // "DATASTORE"
  char maker[kHostNameField];       // "QUENDAL"
  char uniqueName[kHostNameField];  // "Datastore Unique Name"
  HostWord context2;                // second context given to Initialize
  HostWord moduleOrHandle;          // in: the module's address; out: its handle
};

constexpr int kFolderPathUnits = 1024;
struct FOLDER_REQUEST_RECORD {      // HostMessage::GetFolder
  std::uint32_t folderType;         // VD_FOLDERS
  char16_t path[kFolderPathUnits];  // out: UTF-16, NUL-terminated
};

struct SOURCE_RECORD {            // HostMessage::GetDataSource, b
  char field0[kHostNameField];    // host's own
  char provider[kHostNameField];  // current data provider
  char field2[kHostNameField];    // host's own
};

// ---------------------------------------------------------------------------
// Host menu protocol (import menu entry). Messages GetInterface and
// GetMainMenu of the menu protocol carry an INTERFACE_REQUEST_RECORD.
struct MENU_PARENT_RECORD {                // HostMessage::SetMenuParent
  char16_t parentKey[kHostWideNameUnits];  // untranslated key of the parent menu
  std::int32_t value0;                     // 0
  std::int32_t value1;                     // 3
};

struct mm_menu_item {                 // HostMessage::AddMenuItem and MenuItemPressed
  char16_t text[kHostWideNameUnits];  // entry text
  HostWord owner;                     // module that added the entry
  std::int32_t itemId;                // host-assigned id
};

// ---------------------------------------------------------------------------
// Symbols and their data.
struct SYMBOL_PERIOD {
  char kind;            // 'I' intraday (length 0: ticks), 'D', 'W', 'M', 'Y'
  std::int32_t length;  // bar length for 'I'
  std::int32_t extra;   // kept, neither stored nor used
};

struct SYMBOL_NAME_PERIOD {
  char text0[kHostNameField];         // not read by the data store
  char provider[2 * kHostNameField];  // provider name, 8-bit, NUL-terminated
  char16_t name[kHostWideNameUnits];  // symbol name, UTF-16, NUL-terminated
  char code[kHostNameField];          // 8-bit text handed to the symbol
  SYMBOL_PERIOD period;               // kind, length, extra
};

struct SYMBOL_NAME_PERIOD_PATH {
  SYMBOL_NAME_PERIOD symbol;          // as above
  char16_t path[kHostWideNameUnits];  // folder of the symbol's files, UTF-16
};

struct GET_SYMBOL_DATA_REQUEST {
  HostWord handle;               // symbol handle
  std::int32_t mode;             // a GetMode: 0 newest count, 1 time range, 2 oldest count
  std::int32_t firstTime;        // mode 1
  std::int32_t lastTime;         // mode 1, exclusive
  std::int32_t count;            // in: capacity of buffer; out: delivered or counted
  HostWord buffer;               // count data points
  HostWord completionContext;    // first argument of the completion call; 0: none
  std::uint32_t completionCode;  // message code of the completion call; 0: none
};

struct INSERT_SYMBOL_DATA_REQUEST {
  HostWord handle;               // symbol handle
  std::int32_t number;           // data points to insert
  HostWord data;                 // number data points
  HostWord completionContext;    // 0: no completion call
  std::uint32_t completionCode;  // 0: no completion call
};

#pragma pack(pop)

// ---------------------------------------------------------------------------
// The four exports of a module library.
extern "C" {
using InitializeFunction = void (*)(HostCallback callback, HostCallback callback2, void* context,
                                    void* context2);
using ReceiveMessageFunction = int (*)(void* param, unsigned int message, HostArg a, HostArg b);
using GetModuleInfoFunction = int (*)(MODULE_INFO* out);
}
constexpr const char* kExportGetModule = "_Z9GetModulev";  // CModule* GetModule()
constexpr const char* kExportInitialize = "Initialize";
constexpr const char* kExportReceiveMessage = "ReceiveMessage";
constexpr const char* kExportGetModuleInfo = "GetModuleInfo";

#endif  // DATASTORE_MODULE_HOSTBOUNDARY_H_
