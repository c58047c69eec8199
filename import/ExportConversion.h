// ExportConversion.h: one instrument of an export directory converted into
// the store's points, and the symbol record to open it with.
//
// Guarantees: every field of every stored point is written: without an open
// field open = close; a field the map names that lies beyond R, or a price out
// of MBF range, is 0; field counts without a map store the time and zeros. A
// record whose date or time does not decode, or whose moment does not fit 32
// bits, is skipped and counted, never stored. Times are UTC.
// Thread-safety: a pure function of its arguments and the data file.

#ifndef DATASTORE_IMPORT_EXPORTCONVERSION_H_
#define DATASTORE_IMPORT_EXPORTCONVERSION_H_

#include <QString>
#include <cstdint>
#include <functional>
#include <vector>

#include "ExportIndex.h"
#include "HostBoundary.h"

// Why an instrument yields nothing to store.
enum class ConversionOutcome {
  kConverted,          // at least one point
  kMissingFile,        // the index names a data file the folder lacks
  kNoRecords,          // the data file holds no whole counted record
  kUnreadableRecords,  // no record decodes, the file does not read, or R is 0
  kPeriodNotImported,  // a period letter other than D, W, M, Y, I
  kOutOfMemory,        // the points do not fit in memory
  // Set by the import when it hands the points to the store:
  kStoredWithOtherRecordSize,  // the symbol's file holds records of another size
  kRefusedByStore,             // the store opened no symbol or refused the insert
};

// One instrument converted for the store.
struct ConvertedInstrument {
  SYMBOL_NAME_PERIOD request{};       // what to open the symbol with
  std::vector<unsigned char> points;  // pointCount records in the symbol's layout
  int pointCount = 0;                 // records in points
  unsigned int pointSize = 0;         // 24 for candles, 12 for ticks (intraday size 0)
  int skippedRecords = 0;             // counted records whose date or time does not decode
};

// Reports the bytes of the data file read so far (header record included);
// called at most every ~50 ms while reading and once when the file is read.
using ConversionProgress = std::function<void(std::int64_t bytesRead)>;

// Converts the data file of `entry` with its own record length, field count,
// letter and size, under its whole symbol, with price type `priceType`
// ("Bid", "Ask", "Last", "Proc"). On any outcome but kConverted, `out` holds
// no points (its skippedRecords still counts what was skipped).
ConversionOutcome ConvertInstrument(IndexEntry const& entry, QString const& priceType,
                                    ConvertedInstrument& out,
                                    ConversionProgress const& progress = {});

#endif  // DATASTORE_IMPORT_EXPORTCONVERSION_H_
