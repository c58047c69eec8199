// CjdCommands.h: the commands of the cjd tool, each given its parsed
// arguments and the streams to write to. Each returns the process's exit
// code.
//
// Thread-safety: none.

#ifndef DATASTORE_TOOLS_CJDCOMMANDS_H_
#define DATASTORE_TOOLS_CJDCOMMANDS_H_

#include <cstdint>
#include <ostream>
#include <string>

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // a file that cannot be read, a problem found, a refusal
constexpr int kExitUsage = 2;    // a command line that cannot be understood

// Which records dump prints.
struct DumpSelection {
  enum class Kind { kAll, kFirst, kLast, kRange };
  Kind kind = Kind::kAll;
  int count = 0;          // kFirst, kLast
  std::int32_t from = 0;  // kRange: from the last record before this time
  std::int32_t to = 0;    // kRange: up to this time, exclusive
};

int RunInfo(std::string const& path, std::ostream& out, std::ostream& err);
int RunDump(std::string const& path, DumpSelection const& selection, bool csv, std::ostream& out,
            std::ostream& err);
// Problems go to out, as the command's result.
int RunCheck(std::string const& path, std::ostream& out);
int RunList(std::string const& folder, std::ostream& out, std::ostream& err);
int RunRepair(std::string const& path, std::ostream& out, std::ostream& err);

#endif  // DATASTORE_TOOLS_CJDCOMMANDS_H_
