// FuzzInputs.h: the layouts the fuzz targets read their inputs in, shared
// with the seed writer that makes their first corpora.

#ifndef DATASTORE_FUZZ_FUZZINPUTS_H_
#define DATASTORE_FUZZ_FUZZINPUTS_H_

#include <cstddef>
#include <cstdint>

// fuzz_cjd_file: the file, then its data folder's log, then this trailer.
// The data folder has a sibling file that recovery must never reach.
namespace cjdinput {

constexpr char kFileName[] = "Fuzz_I0_FUZZ.cjd";  // the fuzzed file, in the data folder
constexpr char kSiblingName[] = "escape.cjd";     // beside the data folder
constexpr std::size_t kInsertBytes = 72;          // three candles

// How each of the trailer's single-record inserts picks its time.
enum InsertKind : std::uint8_t {
  kNoInsert,
  kAppend,         // a second after the newest stored record
  kReplaceNewest,  // the newest stored record's time
  kMiddle,         // halfway between the oldest and the newest
};
constexpr int kInsertKindBits = 2;
constexpr int kKindedInserts = 3;  // fields of insertKinds, lowest first

#pragma pack(push, 1)
struct Trailer {
  std::int32_t count;                      // capacity of every get, and the count asked
  std::int32_t firstTime;                  // mode 1
  std::int32_t lastTime;                   // mode 1
  std::int32_t invalidMode;                // moved outside 0 to 2 when inside
  std::uint8_t insertCount;                // records inserted as given, modulo 4
  std::uint8_t insertBytes[kInsertBytes];  // the inserted records, zero-filled
  std::uint8_t insertKinds;                // InsertKind of each single-record insert after them
  std::uint32_t logBytes;  // length of the log before the trailer (cut to what is there)
  std::uint8_t resealLog;  // odd: the log's checksums are made to hold
};
#pragma pack(pop)

}  // namespace cjdinput

// fuzz_host_records: a sequence of operations, each a selector byte, its
// option bytes and its record.
namespace hostinput {

enum Operation : std::uint8_t {
  kOpenSymbol,      // nulls byte, SYMBOL_NAME_PERIOD: 6001
  kOpenSymbolPath,  // nulls byte, SYMBOL_NAME_PERIOD_PATH: 6008
  kGet,             // message byte (6005, 6006, 6007), handle choice, GET_SYMBOL_DATA_REQUEST
  kInsert,          // message byte (6003, 6004), handle choice, INSERT_SYMBOL_DATA_REQUEST, records
  kEvent,           // addressed byte, INCOMING_EVENT_RECORD: 3114
  kClose,           // handle choice, handle: 6002
  kHostString,      // null-data byte, coreUncStringType, its data
  kOperationCount,
};

// Bits of the nulls byte.
constexpr std::uint8_t kNullRecord = 1;
constexpr std::uint8_t kNullHandleSlot = 2;

// How a request names its symbol.
enum HandleChoice : std::uint8_t {
  kLastOpened,  // the last symbol this input opened (else the base symbol)
  kBaseSymbol,  // the symbol opened at start-up
  kAsGiven,     // the record's own bytes
  kHandleChoices,
};

}  // namespace hostinput

#endif  // DATASTORE_FUZZ_FUZZINPUTS_H_
