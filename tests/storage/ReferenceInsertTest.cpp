// InsertData against record-by-record insertion: the same bytes for every
// kind of batch, on tick and candle files, with and without stored duplicate
// times and partial trailing records.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "CjdTestFiles.h"
#include "RecordMerge.h"
#include "ReferenceInsert.h"

namespace {

using cjdtest::Bytes;
using cjdtest::HeaderFields;

constexpr unsigned int kRecordSize = 8;  // time and one tag, for the NormalizeBatch cases
constexpr int kRandomCases = 4000;
constexpr std::uint32_t kFirstSeed = 20240601;
constexpr int kTimeStep = 10;  // stored times lie on this grid
constexpr int kSmallStored = 20;
constexpr int kMaxStored = 300;
constexpr int kMaxBatch = 60;
constexpr int kLargeBatch = 400;
constexpr int kMaxReportedMismatches = 5;

// ---------------------------------------------------------------------------
// NormalizeBatch on the edges the random batches miss. Records are 8 bytes:
// the time and a 32-bit tag that tells which input a record came from.

using Tagged = std::vector<std::pair<std::int32_t, std::uint32_t>>;

Bytes Records(Tagged const& timeAndTag) {
  Bytes out;
  for (auto const& [time, tag] : timeAndTag) {
    cjdtest::AppendLittleEndian<std::int32_t>(out, time);
    cjdtest::AppendLittleEndian<std::uint32_t>(out, tag);
  }
  return out;
}

TEST(NormalizeBatchTest, SortsStablyAndKeepsTheLastRecordOfEachTime) {
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  const struct {
    Tagged batch;
    Tagged normalized;
  } cases[] = {
      {{}, {}},
      {{{30, 1}, {10, 2}, {30, 3}, {20, 4}, {10, 5}, {30, 6}}, {{10, 5}, {20, 4}, {30, 6}}},
      {{{1, 1}, {kMin, 2}, {-1, 3}}, {{kMin, 2}, {-1, 3}, {1, 1}}},  // negative times first
  };
  for (auto const& [batch, normalized] : cases) {
    SCOPED_TRACE(::testing::PrintToString(batch));
    const Bytes records = Records(batch);
    EXPECT_EQ(NormalizeBatch(records.data(), int(batch.size()), kRecordSize), Records(normalized));
  }
}

// ---------------------------------------------------------------------------
// Random batches, compared byte for byte with the reference.

enum class Placement { Before, Inside, Overlapping, After, Anywhere };

struct Case {
  std::uint32_t seed = 0;
  HeaderFields fields;
  Bytes stored;                  // whole records
  Bytes trailer;                 // a partial record after them
  bool withoutReserved = false;  // header-only file that ends where the header writer stops
  Bytes batch;
  int batchCount = 0;
  Placement placement = Placement::Anywhere;
};

class CaseMaker {
 public:
  explicit CaseMaker(std::uint32_t seed) : rng_(seed) { case_.seed = seed; }

  Case Make() {
    case_.fields = Chance(2) ? cjdtest::TickFields() : HeaderFields{};
    const unsigned int recordSize = case_.fields.RecordSize();
    const std::vector<std::int32_t> storedTimes = StoredTimes();
    case_.stored = cjdtest::MakeRecords(storedTimes, recordSize, rng_);
    if (Chance(4)) case_.trailer.resize(static_cast<std::size_t>(Uniform(1, static_cast<int>(recordSize) - 1)));
    for (unsigned char& byte : case_.trailer) byte = static_cast<unsigned char>(rng_());
    case_.withoutReserved = storedTimes.empty() && case_.trailer.empty() && Chance(3);
    case_.placement = static_cast<Placement>(Uniform(0, 4));
    const std::vector<std::int32_t> batchTimes = BatchTimes(storedTimes);
    case_.batchCount = static_cast<int>(batchTimes.size());
    case_.batch = cjdtest::MakeRecords(batchTimes, recordSize, rng_);
    return case_;
  }

 private:
  int Uniform(int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng_); }
  bool Chance(int oneIn) { return Uniform(1, oneIn) == 1; }

  std::int32_t Pick(std::vector<std::int32_t> const& times) {
    return times[static_cast<std::size_t>(Uniform(0, static_cast<int>(times.size()) - 1))];
  }

  std::int32_t BaseTime() { return Chance(4) ? -kTimeStep * kMaxStored : 1'000'000'000; }

  // None, one, a few or many.
  int StoredCount() {
    const int kind = Uniform(0, 3);
    return kind < 2 ? kind : kind == 2 ? Uniform(2, kSmallStored) : Uniform(kSmallStored, kMaxStored);
  }

  int BatchCount() {
    if (Chance(5)) return 1;
    if (Chance(6)) return Uniform(kMaxBatch, kLargeBatch);
    return Uniform(2, kMaxBatch);
  }

  // Sorted, on a grid with gaps, sometimes with runs of equal times.
  std::vector<std::int32_t> StoredTimes() {
    const int count = StoredCount();
    std::vector<std::int32_t> times;
    std::int32_t time = BaseTime();
    for (int i = 0; i < count; ++i) {
      times.push_back(time);
      if (!Chance(8)) time += kTimeStep * Uniform(1, 3);
    }
    first_ = count > 0 ? times.front() : BaseTime();
    last_ = count > 0 ? times.back() : first_ + kTimeStep * kMaxStored;
    return times;
  }

  std::pair<std::int32_t, std::int32_t> Window() {
    const std::int32_t span = last_ - first_ + kTimeStep;
    switch (case_.placement) {
      case Placement::Before:
        return {first_ - span, first_ - 1};
      case Placement::Inside:
        return {first_, last_};
      case Placement::Overlapping:
        return Chance(2) ? std::pair{first_ - span / 2, first_ + span / 2}
                         : std::pair{last_ - span / 2, last_ + span / 2};
      case Placement::After:
        return {last_ + 1, last_ + span};
      case Placement::Anywhere:
        break;
    }
    return {first_ - span, last_ + span};
  }

  // Times in the placement's window; some repeat a stored time or an earlier
  // batch time.
  std::vector<std::int32_t> BatchTimes(std::vector<std::int32_t> const& stored) {
    const int count = BatchCount();
    const auto [low, high] = Window();
    std::vector<std::int32_t> times;
    for (int i = 0; i < count; ++i) {
      std::int32_t time = Uniform(low, high);
      if (!stored.empty() && case_.placement == Placement::Inside && Chance(3)) {
        time = Pick(stored);
      } else if (!times.empty() && Chance(5)) {
        time = Pick(times);
      }
      times.push_back(time);
    }
    return times;
  }

  std::mt19937 rng_;
  Case case_;
  std::int32_t first_ = 0;
  std::int32_t last_ = 0;
};

Bytes InitialFile(Case const& testCase) {
  Bytes file = testCase.fields.File(testCase.stored);
  if (testCase.withoutReserved) file.resize(testCase.fields.Layout().headerEnd);
  file.insert(file.end(), testCase.trailer.begin(), testCase.trailer.end());
  return file;
}

// The file after InsertData, or after the reference, of a fresh copy.
Bytes Inserted(Case const& testCase, std::string const& path, bool reference) {
  cjdtest::WriteFileBytes(path, InitialFile(testCase));
  cjdtest::TestOwner owner;
  {
    std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
    if (symbol == nullptr) return {};
    Bytes batch = testCase.batch;
    if (reference) {
      ReferenceInsert(*symbol->file(), symbol->GetDataPointSize(), testCase.batchCount, batch.data(), false);
    } else {
      symbol->InsertData(testCase.batchCount, batch.data());
    }
  }
  return cjdtest::ReadFileBytes(path);
}

// The seed to rerun the case with, and where the files part.
std::string Describe(Case const& testCase, Bytes const& actual, Bytes const& expected) {
  const auto offset = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end()).first -
                      actual.begin();
  std::ostringstream out;
  out << "seed " << testCase.seed << ": " << actual.size() << " bytes (InsertData) vs " << expected.size()
      << " (reference), first difference at " << offset << ", records from "
      << testCase.fields.Layout().firstRecord << " of " << testCase.fields.RecordSize() << " bytes";
  return out.str();
}

TEST(ReferenceInsertTest, TheReferenceItselfFollowsTheRules) {
  cjdtest::ScratchDir dir;
  std::mt19937 rng(1);
  Case testCase;
  testCase.fields = cjdtest::TickFields();
  testCase.stored = cjdtest::MakeRecords({10, 20, 20, 30}, cjdtest::kTickRecordSize, rng);
  testCase.batch = cjdtest::MakeRecords({20, 25, 40, 50, 45, 25}, cjdtest::kTickRecordSize, rng);
  testCase.batchCount = 6;
  const Bytes file = Inserted(testCase, dir.File("reference.cjd"), true);
  const Bytes records(file.begin() + static_cast<long>(testCase.fields.Layout().firstRecord), file.end());
  EXPECT_EQ(cjdtest::TimesOf(records, cjdtest::kTickRecordSize),
            (std::vector<std::int32_t>{10, 20, 20, 25, 30, 40, 45, 50}));
  const auto recordAt = [&](int index) { return records.begin() + index * cjdtest::kTickRecordSize; };
  EXPECT_TRUE(std::equal(recordAt(1), recordAt(2), testCase.batch.begin()));  // first 20 replaced
  EXPECT_TRUE(std::equal(recordAt(3), recordAt(4), testCase.batch.begin() + 5 * cjdtest::kTickRecordSize));
}

TEST(ReferenceInsertTest, NothingIsWrittenForNullRecordsNonPositiveCountsOrDisabledWrites) {
  cjdtest::ScratchDir dir;
  std::mt19937 rng(2);
  const HeaderFields fields;
  const Bytes initial = fields.File(cjdtest::MakeRecords({10, 20}, fields.RecordSize(), rng));
  Bytes batch = cjdtest::MakeRecords({15}, fields.RecordSize(), rng);
  const std::string path = dir.File("guarded.cjd");
  cjdtest::WriteFileBytes(path, initial);
  {
    cjdtest::TestOwner writer;
    cjdtest::TestOwner reader(false);
    auto writable = cjdtest::OpenSymbol(writer, path);
    writable->InsertData(1, nullptr);
    writable->InsertData(0, batch.data());
    writable->InsertData(-1, batch.data());
    writable.reset();
    auto readOnly = cjdtest::OpenSymbol(reader, path);
    readOnly->InsertData(1, batch.data());
    EXPECT_EQ(readOnly->GetDataPointCount(), 2);
  }
  EXPECT_EQ(cjdtest::ReadFileBytes(path), initial);
}

TEST(ReferenceInsertTest, RandomBatchesGiveTheReferenceBytes) {
  cjdtest::ScratchDir dir;
  const std::string actualPath = dir.File("actual.cjd");
  const std::string expectedPath = dir.File("expected.cjd");
  int failures = 0;
  for (int i = 0; i < kRandomCases && failures < kMaxReportedMismatches; ++i) {
    const Case testCase = CaseMaker(kFirstSeed + static_cast<std::uint32_t>(i)).Make();
    const Bytes actual = Inserted(testCase, actualPath, false);
    const Bytes expected = Inserted(testCase, expectedPath, true);
    ASSERT_FALSE(expected.empty()) << "seed " << testCase.seed << ": the test's own file was refused";
    if (actual != expected) {
      ++failures;
      ADD_FAILURE() << Describe(testCase, actual, expected);
    }
    ASSERT_FALSE(cjdtest::HasTemporaryFiles(dir.path()))
        << "seed " << testCase.seed << " left a temporary file";
  }
}

}  // namespace
