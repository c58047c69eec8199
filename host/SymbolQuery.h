// SymbolQuery.h: a symbol's records read through the module's own messages:
// open the symbol (6001), count the selection (6007), then get that many
// records (6005) into a buffer of the symbol's record layout.
//
// Each step answers whether it succeeded and otherwise sets *error to the
// module's refusal ("the module refused to count (6007 returned 1)").
//
// REQUIRES: host holds a started module (3007, 3004).
// Thread-safety: as ModuleHost::send; the buffers are the caller's.

#ifndef DATASTORE_HOST_SYMBOLQUERY_H_
#define DATASTORE_HOST_SYMBOLQUERY_H_

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "ModuleHost.h"
#include "SymbolRequest.h"

constexpr std::int32_t kEveryRecord = std::numeric_limits<std::int32_t>::max();  // count of "all"

// A symbol to open and the layout of its records.
struct Target {
  SYMBOL_NAME_PERIOD request{};  // sent with 6001
  RecordLayout layout;           // of the symbol's records
};

// Which records of the symbol: a GET_SYMBOL_DATA_REQUEST's selection.
struct Selection {
  GetMode mode = kGetOldest;          // how the records are chosen
  std::int32_t firstTime = 0;         // kGetTimeRange
  std::int32_t lastTime = 0;          // kGetTimeRange, exclusive
  std::int32_t count = kEveryRecord;  // kGetNewest, kGetOldest
};

// Opens the symbol with 6001 and sets *handle.
bool OpenSymbol(ModuleHost& host, Target& target, HostWord* handle, std::string* error);
// The number of records the selection holds (6007).
bool CountRecords(ModuleHost& host, HostWord handle, const Selection& selection,
                  std::int32_t* count, std::string* error);
// Up to count records of the selection (6005) into *records, resized to the
// whole records delivered.
bool GetRecords(ModuleHost& host, HostWord handle, const Selection& selection, std::int32_t count,
                const RecordLayout& layout, std::vector<unsigned char>* records,
                std::string* error);
// The three steps above: the selection's records into *records.
bool ReadRecords(ModuleHost& host, Target& target, const Selection& selection,
                 std::vector<unsigned char>* records, std::string* error);

#endif  // DATASTORE_HOST_SYMBOLQUERY_H_
