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

#include <cstdint>

using HostWord = std::uintptr_t;  // address, handle, identifier or function pointer
using HostArg = std::intptr_t;    // the a and b arguments of a message

// The host callback, handed to Initialize. The module passes the context it
// was given as the first argument of every call.
using HostCallback = int (*)(void* context, unsigned int message, HostArg a, HostArg b);

constexpr int kHostNameField = 255;         // bytes of an 8-bit name field
constexpr int kHostWideNameUnits = 255;     // UTF-16 units of a wide name field

// ---------------------------------------------------------------------------
// Message codes.
namespace HostMessage {
// Sent by a module to the host.
constexpr unsigned int RegisterModule = 3000;       // a: REGISTRATION_RECORD*
constexpr unsigned int GetInterface = 3001;         // a: INTERFACE_REQUEST_RECORD*
constexpr unsigned int GetMainMenu = 3002;          // a: INTERFACE_REQUEST_RECORD*
constexpr unsigned int GetDataSource = 3012;        // a: host identifier, b: SOURCE_RECORD*
constexpr unsigned int InsertTranslation = 3019;    // a: TRANSLATION_INSERT_RECORD*
constexpr unsigned int SubscribeEvent = 3110;       // a: EVENT_SUBSCRIPTION_RECORD*
constexpr unsigned int UnsubscribeAll = 3111;       // a: EVENT_UNSUBSCRIPTION_RECORD*
constexpr unsigned int CreateEvent = 3112;          // a: EVENT_CREATION_RECORD*
constexpr unsigned int EmitEvent = 3113;            // a: event handle, b: VDEvent*
constexpr unsigned int GetLanguageCount = 3116;     // a: LANGUAGE_LIST_RECORD*
constexpr unsigned int GetLanguages = 3117;         // a: LANGUAGE_LIST_RECORD*
constexpr unsigned int GetFolder = 3128;            // a: FOLDER_REQUEST_RECORD*
constexpr unsigned int GetLogSink = 3205;           // a: HostWord* slot for a HostLogSink
constexpr unsigned int GetDateTimeFormatters = 3207;  // a: DATETIME_FORMATTER_RECORD*
constexpr unsigned int GetMainWindowId = 3502;      // a: HostWord* window identifier (starts at -1)
constexpr unsigned int GetWorkFolder = 3503;        // a: char16_t[kWorkFolderUnits]
constexpr unsigned int UseWorkFolder = 3506;        // a: int32_t*; the host writes 1 for "yes"
constexpr unsigned int RefreshMenu = 5500;          // no record
constexpr unsigned int SetMenuParent = 5503;        // a: MENU_PARENT_RECORD*
constexpr unsigned int AddMenuItem = 5508;          // a: mm_menu_item*

// Received by a module from the host.
constexpr unsigned int Start = 3004;
constexpr unsigned int Stop = 3005;
constexpr unsigned int InitModule = 3007;
constexpr unsigned int CreateMenu = 3066;
constexpr unsigned int ReceiveEvent = 3114;         // a: INCOMING_EVENT_RECORD*
constexpr unsigned int MenuItemPressed = 5511;      // a: mm_menu_item*

// Data store requests, received from the host and other modules.
constexpr unsigned int OpenSymbol = 6001;           // a: SYMBOL_NAME_PERIOD*, b: HostWord* handle
constexpr unsigned int CloseSymbol = 6002;          // a: symbol handle
constexpr unsigned int InsertDataSend = 6003;       // a: INSERT_SYMBOL_DATA_REQUEST*
constexpr unsigned int InsertDataPost = 6004;       // a: INSERT_SYMBOL_DATA_REQUEST*
constexpr unsigned int GetDataSend = 6005;          // a: GET_SYMBOL_DATA_REQUEST*
constexpr unsigned int GetDataPost = 6006;          // a: GET_SYMBOL_DATA_REQUEST*
constexpr unsigned int GetDataCountSend = 6007;     // a: GET_SYMBOL_DATA_REQUEST*
constexpr unsigned int OpenSymbolPath = 6008;       // a: SYMBOL_NAME_PERIOD_PATH*, b: HostWord* handle
}  // namespace HostMessage

// Host folder types asked for with HostMessage::GetFolder.
enum VD_FOLDERS : std::uint32_t {
  VD_FOLDER_CONFIG = 2,       // holds the configuration file
  VD_FOLDER_DATA = 100,       // the host's default data folder
  VD_FOLDER_IMPORT = 152,     // the import dialog's default directory
};

// Event codes carried by INCOMING_EVENT_RECORD.
constexpr std::int32_t kEventGameModeStarts = 1001;
constexpr std::int32_t kEventGameModeEnds = 1002;

constexpr int kWorkFolderUnits = 6144;     // UTF-16 units of the 12288-byte work folder buffer

#pragma pack(push, 1)

// ---------------------------------------------------------------------------
// Module information, copied to the host by GetModuleInfo. No HostWord field:
// the same 2315 bytes on both targets.
struct MODULE_INFO {
  char name[kHostNameField];          // module name, NUL-terminated
  char description[kHostNameField];   // description, NUL-terminated
  unsigned char reserved1[769];       // never written; zero
  std::uint32_t number3;              // constructor's third number
  std::uint32_t number2;              // constructor's second number
  std::uint32_t number1;              // constructor's first number
  std::uint32_t kind;                 // always 7
  char contextName[20];               // translation context, not NUL-terminated at 20+
  std::uint32_t extra;                // 20 from the framework, the module may overwrite
  unsigned char reserved2[996];       // never written; zero
};

// The host's counted string.
struct coreUncStringType {
  std::uint32_t length;               // characters
  std::uint8_t charSize;              // bytes per character; 2 for UTF-16
  HostWord data;                      // length x charSize bytes, no terminator needed
};

// One record handed to the host's log sink. Pointers are valid during the call only.
struct LogRecord {
  HostWord moduleName;                // const char16_t*, NUL-terminated
  std::uint32_t msgType;              // coreLogMsgType
  std::uint32_t msgLevel;             // coreLogMsgLevel
  HostWord text;                      // const char16_t*, NUL-terminated
};
using HostLogSink = int (*)(LogRecord* record);

// ---------------------------------------------------------------------------
// Events and interfaces.
struct EVENT_CREATION_RECORD {        // HostMessage::CreateEvent
  char name[kHostNameField];          // event name
  HostWord handle;                    // out: the new event's handle
};

struct EVENT_SUBSCRIPTION_RECORD {    // HostMessage::SubscribeEvent
  char name[kHostNameField];          // event to subscribe to
  std::uint32_t zero;                 // always 0
  HostWord moduleHandle;              // host-assigned module handle
  HostWord module;                    // the module object
  std::int32_t minusOne;              // always -1
};

struct EVENT_UNSUBSCRIPTION_RECORD {  // HostMessage::UnsubscribeAll
  HostWord moduleHandle;              // host-assigned module handle
  HostWord module;                    // the module object
};

struct INTERFACE_REQUEST_RECORD {     // HostMessage::GetInterface
  char first[kHostNameField];         // first name
  char third[kHostNameField];         // third name (stored before the second)
  char second[kHostNameField];        // second name
  std::uint32_t one;                  // always 1
  HostWord resultSlot;                // HostWord* where the host writes the interface
};

struct VDEvent {                      // HostMessage::EmitEvent, b
  HostWord sender;                    // emitting module's host identifier
  std::uint32_t word4;                // event specific
  HostWord eventHandle;               // written by EmitEvent
  std::uint32_t word12;               // event specific
  char name[kHostNameField];          // written by EmitEvent
};

struct INCOMING_EVENT_RECORD {        // HostMessage::ReceiveEvent, a (read only this far)
  HostWord addressedHostId;           // host identifier of the addressed module
  HostWord addressedModule;           // address of the addressed module
  unsigned char unread[522];          // not read by modules
  std::int32_t eventCode;             // kEventGameModeStarts, kEventGameModeEnds, ...
};

// ---------------------------------------------------------------------------
// Translation, languages, date-time formatting.
constexpr int kTranslationField = 1024;
struct TRANSLATION_INSERT_RECORD {    // HostMessage::InsertTranslation
  char context[kTranslationField];    // NUL-terminated
  char key[kTranslationField];        // NUL-terminated
  char text[kTranslationField];       // default text, NUL-terminated
};

struct LANGUAGE_ENTRY {               // one element of the HostMessage::GetLanguages array
  char name[kHostNameField];          // e.g. "English"
  char text2[kHostNameField];         // host's own
  char text3[kHostNameField];         // host's own
  std::uint32_t isCurrent;            // 1 for the host's current language
};

struct LANGUAGE_LIST_RECORD {         // HostMessage::GetLanguageCount / GetLanguages
  std::int32_t count;                 // out of 3116; in of 3117
  HostWord entries;                   // LANGUAGE_ENTRY[count], filled by 3117
};

// Host formatters. Arguments are Qt objects passed by address: a QDateTime
// or a time value, a QString format, and a QString result.
using HostQDateTimeFormatter = void (*)(const void* dateTime, const void* format, void* result);
using HostTimeValueFormatter = void (*)(long time, const void* format, bool flag, void* result);

struct DATETIME_FORMATTER_RECORD {    // HostMessage::GetDateTimeFormatters
  HostWord qDateTimeFormatter;        // HostQDateTimeFormatter or 0
  HostWord timeValueFormatter;        // HostTimeValueFormatter or 0
};

// ---------------------------------------------------------------------------
// Registration, folders, data source.
struct REGISTRATION_RECORD {          // HostMessage::RegisterModule
  char kind[kHostNameField];          // "DATASTORE"
  char maker[kHostNameField];         // "QUENDAL"
  char uniqueName[kHostNameField];    // "Datastore Unique Name"
  HostWord context2;                  // second context given to Initialize
  HostWord moduleOrHandle;            // in: the module's address; out: its handle
};

constexpr int kFolderPathUnits = 1024;
struct FOLDER_REQUEST_RECORD {        // HostMessage::GetFolder
  std::uint32_t folderType;           // VD_FOLDERS
  char16_t path[kFolderPathUnits];    // out: UTF-16, NUL-terminated
};

struct SOURCE_RECORD {                // HostMessage::GetDataSource, b
  char field0[kHostNameField];        // host's own
  char provider[kHostNameField];      // current data provider
  char field2[kHostNameField];        // host's own
};

// ---------------------------------------------------------------------------
// Host menu protocol (import menu entry). Messages GetInterface and
// GetMainMenu of the menu protocol carry an INTERFACE_REQUEST_RECORD.
struct MENU_PARENT_RECORD {           // HostMessage::SetMenuParent
  char16_t parentKey[kHostWideNameUnits];  // untranslated key of the parent menu
  std::int32_t value0;                // 0
  std::int32_t value1;                // 3
};

struct mm_menu_item {                 // HostMessage::AddMenuItem and MenuItemPressed
  char16_t text[kHostWideNameUnits];  // entry text
  HostWord owner;                     // module that added the entry
  std::int32_t itemId;                // host-assigned id
};

// ---------------------------------------------------------------------------
// Symbols and their data.
struct SYMBOL_PERIOD {
  char kind;                          // 'I' intraday (length 0: ticks), 'D', 'W', 'M', 'Y'
  std::int32_t length;                // bar length for 'I'
  std::int32_t extra;                 // kept, neither stored nor used
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
  HostWord handle;                    // symbol handle
  std::int32_t mode;                  // 0 newest count, 1 time range, 2 oldest count
  std::int32_t firstTime;             // mode 1
  std::int32_t lastTime;              // mode 1, exclusive
  std::int32_t count;                 // in: capacity of buffer; out: delivered or counted
  HostWord buffer;                    // count data points
  HostWord completionContext;         // first argument of the completion call; 0: none
  std::uint32_t completionCode;       // message code of the completion call; 0: none
};

struct INSERT_SYMBOL_DATA_REQUEST {
  HostWord handle;                    // symbol handle
  std::int32_t number;                // data points to insert
  HostWord data;                      // number data points
  HostWord completionContext;         // 0: no completion call
  std::uint32_t completionCode;       // 0: no completion call
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
