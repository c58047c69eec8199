#include "KillSequence.h"

#include <cstring>
#include <random>

namespace killtest {
namespace {

constexpr int kMinAppend = 10'000;
constexpr int kMaxAppend = 100'000;
constexpr int kMinRewrite = 1'000;
constexpr int kMaxRewrite = 20'000;
constexpr int kRewriteOneIn = 3;  // of the steps after a file's first
constexpr std::int32_t kBaseTime = 1'000'000'000;
constexpr std::int32_t kBarSeconds = 60;
// Each step owns a time span no append can fill, so an append of step j is
// later than everything steps before j stored.
constexpr std::int32_t kStepSpan = (kMaxAppend + 1) * kBarSeconds;

std::int32_t StepStart(int stepInFile) { return kBaseTime + stepInFile * kStepSpan; }

// The values are random bytes: only their identity matters here.
void AppendCandle(std::vector<unsigned char>& out, std::int32_t time, std::mt19937& rng) {
  const std::size_t at = out.size();
  out.resize(at + kRecordSize);
  std::memcpy(out.data() + at, &time, sizeof(time));
  for (std::size_t field = sizeof(time); field < kRecordSize; field += sizeof(std::uint32_t)) {
    const std::uint32_t bits = rng();
    std::memcpy(out.data() + at + field, &bits, sizeof(bits));
  }
}

}  // namespace

Step MakeStep(std::uint32_t seed, int step) {
  std::seed_seq seeds{seed, static_cast<std::uint32_t>(step)};
  std::mt19937 rng(seeds);
  const int stepInFile = StepInFile(step);
  const bool rewrite = stepInFile > 0 && std::uniform_int_distribution<int>(1, kRewriteOneIn)(rng) == 1;
  Step result{rewrite ? StepKind::Rewrite : StepKind::Append, 0, {}};
  if (rewrite) {
    // Any second from the first stored bar up to this step's span: mostly new
    // times between stored bars, some replacing stored ones.
    result.count = std::uniform_int_distribution<int>(kMinRewrite, kMaxRewrite)(rng);
    std::uniform_int_distribution<std::int32_t> time(kBaseTime, StepStart(stepInFile) - 1);
    for (int i = 0; i < result.count; ++i) AppendCandle(result.records, time(rng), rng);
  } else {
    result.count = std::uniform_int_distribution<int>(kMinAppend, kMaxAppend)(rng);
    for (int i = 0; i < result.count; ++i)
      AppendCandle(result.records, StepStart(stepInFile) + i * kBarSeconds, rng);
  }
  return result;
}

}  // namespace killtest
