// WritePath.h: single changes at the end of a file, as a terminal makes them,
// through the loaded library (ModuleStore.h's session) at each durability
// level, against the same change to a raw file measured in the same run,
// with SQLite as a peer where it applies. Benchmarks, one change each:
//   forming_bar/<store>/<size>  the newest record inserted again with a new
//       volume, files of 10k, 1M and 50M candles; raw: a 24-byte pwrite()
//       over the last record;
//   mid_insert/<store>          one record between the last two of 1M;
//       raw: a 48-byte pwrite() of it and the last record moved up;
//   append_single/<store>       one record after the last; raw: a 24-byte write;
//   synced_insert/<store>       Durability 2, one synchronous insert (6003)
//       appending a record; raw: the write and fdatasync();
//   group_commit/<store>        Durability 2, posted inserts (6004) of one
//       record, their completions awaited every thousand posts; SQLite: one
//       synchronous=FULL transaction per record;
//   (both pairs run as one benchmark each, "synced_insert" and
//   "group_commit", the two stores in alternating turns so that both meet the
//   same disk; their times are counters named as above)
//   first_range/engine/50M      a 1,000-record range read (6005) in the
//       middle of the 50M file, the first request of a fresh session (no
//       index yet); warm_range/engine/50M: the same once the index is whole.
// The sustained cases run 10 s (MinTime), so their average includes the
// checkpoints the log makes every SyncInterval (1 s). Each store keeps its
// files across the runs of a case; the 50M files are built on first use and
// skipped with a printed reason when the disk has too little room.

#ifndef DATASTORE_BENCH_WRITEPATH_H_
#define DATASTORE_BENCH_WRITEPATH_H_

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Summary.h"

class WritePath {
 public:
  // Files go to `folder`, removed by its owner at the end.
  explicit WritePath(std::filesystem::path const& folder);
  ~WritePath();
  WritePath(const WritePath&) = delete;
  WritePath& operator=(const WritePath&) = delete;

  // Registers the cases; this object must outlive the run.
  void Register(std::ostream& out);
  // The targets, by benchmark name.
  std::vector<RatioTarget> Targets() const;
  // What SQLite was set to, and why a size was skipped.
  void PrintNotes(std::ostream& out) const;

 private:
  struct Stores;
  std::unique_ptr<Stores> stores_;  // files and peers of every case
  std::string skipped_;             // why the largest size is not run, or empty
};

#endif  // DATASTORE_BENCH_WRITEPATH_H_
