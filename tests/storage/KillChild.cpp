// The kill test's child: inserts the steps of one file from a given step on,
// announcing each step on a pipe before inserting it, until it is killed or
// the file's steps are done.
//
// Usage: storage_kill_child <file> <seed> <first step> <announce fd>

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "KillSequence.h"
#include "Symbol.h"

namespace {

constexpr int kArguments = 5;
constexpr int kUsageError = 2;
constexpr int kFileError = 3;

class WritingOwner : public SymbolOwner {
 public:
  bool IsWriteEnabled() const override { return true; }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != kArguments) return kUsageError;
  const std::uint32_t seed = static_cast<std::uint32_t>(std::stoul(argv[2]));
  const int firstStep = std::stoi(argv[3]);
  const int announceFd = std::stoi(argv[4]);
  WritingOwner owner;
  CSymbol symbol(&owner, argv[1]);
  if (symbol.LoadProperties() != 0) return kFileError;
  symbol.Open();
  for (int step = firstStep; step < killtest::FirstStepAfterFile(firstStep); ++step) {
    killtest::Step batch = killtest::MakeStep(seed, step);
    if (write(announceFd, &step, sizeof(step)) != sizeof(step)) return kFileError;
    symbol.InsertData(batch.count, batch.records.data());
  }
  return EXIT_SUCCESS;
}
