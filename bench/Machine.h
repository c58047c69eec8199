// Machine.h: what the numbers were measured on.

#ifndef DATASTORE_BENCH_MACHINE_H_
#define DATASTORE_BENCH_MACHINE_H_

#include <filesystem>
#include <ostream>

#include <string>

// The first line of /proc/loadavg.
std::string LoadAverage();

// CPU model, cores, kernel, the file system holding `folder`, the load
// average at the start and now, and whether this program was built optimised.
void PrintMachine(std::filesystem::path const& folder, std::string const& loadAtStart,
                  std::ostream& out);

#endif  // DATASTORE_BENCH_MACHINE_H_
