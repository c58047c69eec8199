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

constexpr unsigned int kRecordSize = 8;  // time and one value, for the merge cases
constexpr int kRandomCases = 4000;
constexpr std::uint32_t kFirstSeed = 20240601;
constexpr int kTimeStep = 10;  // stored times lie on this grid
constexpr int kSmallStored = 20;
constexpr int kMaxStored = 300;
constexpr int kMaxBatch = 60;
constexpr int kLargeBatch = 400;
constexpr int kTimesShown = 40;  // times printed per list on a mismatch
constexpr int kMaxReportedMismatches = 5;

// ---------------------------------------------------------------------------
// NormalizeBatch and MergeRecords on small hand-made cases. Records are 8
// bytes: the time and a 32-bit tag that tells which input a record came from.

Bytes Records(std::vector<std::pair<std::int32_t, std::uint32_t>> const& timeAndTag) {
  Bytes out;
  for (auto const& [time, tag] : timeAndTag) {
    cjdtest::AppendLittleEndian<std::int32_t>(out, time);
    cjdtest::AppendLittleEndian<std::uint32_t>(out, tag);
  }
  return out;
}

TEST(NormalizeBatchTest, SortsStablyAndKeepsTheLastRecordOfEachTime) {
  const Bytes batch = Records({{30, 1}, {10, 2}, {30, 3}, {20, 4}, {10, 5}, {30, 6}});
  EXPECT_EQ(NormalizeBatch(batch.data(), 6, kRecordSize), Records({{10, 5}, {20, 4}, {30, 6}}));
}

TEST(NormalizeBatchTest, KeepsASortedBatchWithoutDuplicatesAsItIs) {
  const Bytes batch = Records({{-5, 1}, {0, 2}, {7, 3}});
  EXPECT_EQ(NormalizeBatch(batch.data(), 3, kRecordSize), batch);
}

TEST(NormalizeBatchTest, OrdersNegativeTimesBeforePositiveOnes) {
  const Bytes batch = Records({{1, 1}, {std::numeric_limits<std::int32_t>::min(), 2}, {-1, 3}});
  EXPECT_EQ(NormalizeBatch(batch.data(), 3, kRecordSize),
            Records({{std::numeric_limits<std::int32_t>::min(), 2}, {-1, 3}, {1, 1}}));
}

TEST(NormalizeBatchTest, EmptyAndSingleBatches) {
  const Bytes one = Records({{4, 1}});
  EXPECT_TRUE(NormalizeBatch(one.data(), 0, kRecordSize).empty());
  EXPECT_EQ(NormalizeBatch(one.data(), 1, kRecordSize), one);
}

TEST(MergeRecordsTest, EqualTimeReplacesOnlyTheFirstStoredRecordOfThatTime) {
  const Bytes stored = Records({{10, 1}, {20, 2}, {20, 3}, {30, 4}});
  const Bytes batch = Records({{20, 9}});
  Bytes out;
  EXPECT_EQ(MergeRecords(stored.data(), 4, batch.data(), 1, kRecordSize, out), 0);
  EXPECT_EQ(out, Records({{10, 1}, {20, 9}, {20, 3}, {30, 4}}));
}

TEST(MergeRecordsTest, NewTimesAreInsertedInOrderAndCounted) {
  const Bytes stored = Records({{10, 1}, {20, 2}, {30, 3}});
  const Bytes batch = Records({{5, 7}, {20, 8}, {25, 9}, {40, 10}});
  Bytes out;
  EXPECT_EQ(MergeRecords(stored.data(), 3, batch.data(), 4, kRecordSize, out), 3);
  EXPECT_EQ(out, Records({{5, 7}, {10, 1}, {20, 8}, {25, 9}, {30, 3}, {40, 10}}));
}

TEST(MergeRecordsTest, BatchBeforeOrAfterEverythingStored) {
  const Bytes stored = Records({{10, 1}, {20, 2}});
  const Bytes early = Records({{1, 5}, {2, 6}});
  const Bytes late = Records({{21, 7}, {22, 8}});
  Bytes before;
  Bytes after;
  EXPECT_EQ(MergeRecords(stored.data(), 2, early.data(), 2, kRecordSize, before), 2);
  EXPECT_EQ(MergeRecords(stored.data(), 2, late.data(), 2, kRecordSize, after), 2);
  EXPECT_EQ(before, Records({{1, 5}, {2, 6}, {10, 1}, {20, 2}}));
  EXPECT_EQ(after, Records({{10, 1}, {20, 2}, {21, 7}, {22, 8}}));
}

TEST(MergeRecordsTest, EmptySidesAndOutputIsAppendedTo) {
  const Bytes records = Records({{10, 1}, {20, 2}});
  const Bytes marker = Records({{99, 99}});
  Bytes intoEmpty = marker;
  Bytes nothingNew = marker;
  EXPECT_EQ(MergeRecords(nullptr, 0, records.data(), 2, kRecordSize, intoEmpty), 2);
  EXPECT_EQ(MergeRecords(records.data(), 2, nullptr, 0, kRecordSize, nothingNew), 0);
  EXPECT_EQ(intoEmpty, Records({{99, 99}, {10, 1}, {20, 2}}));
  EXPECT_EQ(nothingNew, Records({{99, 99}, {10, 1}, {20, 2}}));
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
    if (Chance(4)) case_.trailer = RandomBytes(Uniform(1, static_cast<int>(recordSize) - 1));
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

  Bytes RandomBytes(int count) {
    Bytes out(static_cast<std::size_t>(count));
    for (unsigned char& byte : out) byte = static_cast<unsigned char>(rng_());
    return out;
  }

  std::int32_t BaseTime() { return Chance(4) ? -kTimeStep * kMaxStored : 1'000'000'000; }

  int StoredCount() {
    switch (Uniform(0, 3)) {
      case 0:
        return 0;
      case 1:
        return 1;
      case 2:
        return Uniform(2, kSmallStored);
    }
    return Uniform(kSmallStored, kMaxStored);
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
        time = stored[static_cast<std::size_t>(Uniform(0, static_cast<int>(stored.size()) - 1))];
      } else if (!times.empty() && Chance(5)) {
        time = times[static_cast<std::size_t>(Uniform(0, static_cast<int>(times.size()) - 1))];
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

std::string ListTimes(std::vector<std::int32_t> const& times) {
  std::ostringstream out;
  for (std::size_t i = 0; i < times.size() && i < static_cast<std::size_t>(kTimesShown); ++i)
    out << times[i] << ' ';
  if (times.size() > static_cast<std::size_t>(kTimesShown)) out << "... (" << times.size() << ")";
  return out.str();
}

std::string Describe(Case const& testCase, Bytes const& actual, Bytes const& expected) {
  const unsigned int recordSize = testCase.fields.RecordSize();
  const auto firstRecord = testCase.fields.Layout().firstRecord;
  const auto mismatch = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
  const auto offset = static_cast<std::size_t>(mismatch.first - actual.begin());
  std::ostringstream out;
  out << "seed " << testCase.seed << ", record size " << recordSize << ", placement "
      << static_cast<int>(testCase.placement) << ", trailer " << testCase.trailer.size()
      << " bytes, without reserved " << testCase.withoutReserved
      << "\n  stored: " << ListTimes(cjdtest::TimesOf(testCase.stored, recordSize))
      << "\n  batch: " << ListTimes(cjdtest::TimesOf(testCase.batch, recordSize)) << "\n  sizes "
      << actual.size() << " (InsertData) vs " << expected.size() << " (reference); first difference at "
      << offset;
  if (offset >= firstRecord) out << " (record " << (offset - firstRecord) / recordSize << ")";
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
