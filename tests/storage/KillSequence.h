// KillSequence.h: the batches that the kill test's child inserts, the same
// for parent and child given the seed and the step. Each file takes
// kStepsPerFile steps; the first appends to an empty file, later ones either
// append after everything stored or land among the stored records (a
// rewrite).

#ifndef DATASTORE_TESTS_STORAGE_KILLSEQUENCE_H_
#define DATASTORE_TESTS_STORAGE_KILLSEQUENCE_H_

#include <cstdint>
#include <vector>

namespace killtest {

constexpr int kStepsPerFile = 4;
constexpr unsigned int kRecordSize = 24;  // candle records

enum class StepKind { Append, Rewrite };

struct Step {
  StepKind kind;
  int count;                           // records in the batch
  std::vector<unsigned char> records;  // count candle records
};

constexpr int FileOfStep(int step) { return step / kStepsPerFile; }
constexpr int StepInFile(int step) { return step % kStepsPerFile; }
constexpr int FirstStepAfterFile(int step) { return (FileOfStep(step) + 1) * kStepsPerFile; }

Step MakeStep(std::uint32_t seed, int step);

}  // namespace killtest

#endif  // DATASTORE_TESTS_STORAGE_KILLSEQUENCE_H_
