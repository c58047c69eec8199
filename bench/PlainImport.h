// PlainImport.h: the least a program must do to import an export directory,
// as the yardstick of the module's import: parse the MASTER index, read each
// entry's F<n>.DAT whole, turn every record's MBF floats into IEEE floats and
// its date and time into seconds since 1970 UTC by arithmetic, and write the
// records to one file per instrument with a single write(2), without fsync.
// Ticks (intraday size 0) become {time, value, volume}, everything else a
// Candle; fields are taken as the module takes them for each field count.
//
// Thread-safety: none needed; no shared state.

#ifndef DATASTORE_BENCH_PLAINIMPORT_H_
#define DATASTORE_BENCH_PLAINIMPORT_H_

#include <cstdint>
#include <filesystem>

struct PlainImportCounts {
  int instruments = 0;       // data files read and written
  std::int64_t records = 0;  // records converted
};

// Imports the export directory `from` into the existing folder `to`; throws
// std::runtime_error when a file cannot be read or written.
PlainImportCounts PlainImport(std::filesystem::path const& from, std::filesystem::path const& to);

#endif  // DATASTORE_BENCH_PLAINIMPORT_H_
