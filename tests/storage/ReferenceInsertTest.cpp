// InsertData against record-by-record insertion: the same bytes for every
// kind of batch (appends, replaces of stored records, inserts in the middle
// and before the first record), on tick and candle files, with and without
// stored duplicate times and partial trailing records, through the
// write-ahead log with checkpoints at random points.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "CjdTestFiles.h"
#include "RecordMerge.h"
#include "SDTFile.h"

namespace {

using cjdtest::Bytes;
using cjdtest::HeaderFields;
using Times = std::vector<std::int32_t>;

constexpr int kRandomCases = 4000;
constexpr std::uint32_t kFirstSeed = 20240601;
constexpr int kTimeStep = 10;  // stored times lie on this grid
constexpr int kMaxStored = 300;

// The edges the random batches miss: a stable sort, the last record of each
// time kept, the most negative time. Random bytes after each time tell the
// records apart.
TEST(NormalizeBatchTest, SortsStablyAndKeepsTheLastRecordOfEachTime) {
  constexpr unsigned int kRecordSize = 8;
  std::mt19937 rng(5);
  for (Times const& times : {Times{}, Times{30, 10, 30, 20, 10, 30},
                             Times{1, std::numeric_limits<std::int32_t>::min(), -1}}) {
    SCOPED_TRACE(::testing::PrintToString(times));
    const Bytes records = cjdtest::MakeRecords(times, kRecordSize, rng);
    EXPECT_EQ(NormalizeBatch(records.data(), int(times.size()), kRecordSize),
              cjdtest::MergeByTime({}, records, kRecordSize));
  }
}

// The yardstick, slow and plain: each record in turn replaces the first
// stored record of its time, or goes before the first later one, the tail
// written again behind it (an append after the last whole record when there
// is no later one).
void ReferenceInsert(CSDTFile& file, unsigned int recordSize, Bytes const& batch) {
  for (std::size_t at = 0; at < batch.size(); at += recordSize) {
    const unsigned char* record = &batch[at];
    const int index = file.GetDataPointIndex(RecordTime(record));
    Bytes tail(std::size_t(file.GetDataPointCount() - index) * recordSize);
    file.SeekToDataPoint(index);
    if (!tail.empty()) file.Read(tail.data(), static_cast<unsigned int>(tail.size()));
    file.SeekToDataPoint(index);
    file.Write(record, recordSize);
    if (!tail.empty() && RecordTime(tail.data()) != RecordTime(record))
      file.Write(tail.data(), static_cast<unsigned int>(tail.size()));
  }
}

// The file after InsertData, or after the reference, of a fresh copy, both
// through a write-ahead log. InsertData takes the batch in up to kMaxParts
// consecutive parts (the same as one insert: records go in one at a time),
// each part's changes merged into what the log still holds of the earlier
// ones, with or without a checkpoint between them.
Bytes Inserted(Bytes const& file, Bytes batch, std::string const& path, bool reference,
               std::uint32_t seed = 0) {
  constexpr int kMaxParts = 3;
  cjdtest::WriteFileBytes(path, file);
  std::unique_ptr<WriteAheadLog> log =
      cjdtest::OpenLog(DirectoryOf(path), nullptr, {DurabilitySettings::kNoSync});
  cjdtest::TestOwner owner(true, nullptr, log.get());
  std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
  if (symbol == nullptr) return {};
  const unsigned int size = symbol->GetDataPointSize();
  if (reference) {
    ReferenceInsert(*symbol->file(), size, batch);
  } else {
    std::mt19937 rng(seed);
    const int records = int(batch.size() / size);
    for (int first = 0, parts = 1 + int(rng() % kMaxParts); first < records; --parts) {
      const int count =
          parts == 1 ? records - first : 1 + int(rng() % std::uint32_t(records - first));
      symbol->InsertData(count, batch.data() + std::size_t(first) * size);
      if (rng() % 2 == 0) log->Checkpoint();
      first += count;
    }
  }
  symbol.reset();
  log.reset();
  return cjdtest::ReadFileBytes(path);
}

struct Case {
  Bytes file;
  Bytes batch;
};

// A tick or candle file with none, one, a few or many records, sorted on a
// grid with gaps and runs of equal times, sometimes a partial record after
// them (or, when empty, no reserved word). The batch: one, a few or many
// records before, inside, overlapping either end of, after or around the
// stored times; some repeat a stored time or an earlier batch time.
Case MakeCase(std::uint32_t seed) {
  std::mt19937 rng(seed);
  auto uniform = [&rng](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(rng);
  };
  auto chance = [&uniform](int oneIn) { return uniform(1, oneIn) == 1; };
  const HeaderFields fields = uniform(0, 1) == 1 ? cjdtest::TickFields() : HeaderFields{};
  const unsigned int recordSize = fields.RecordSize();
  Case made;
  const int kind = uniform(0, 3);
  const int storedCount = kind < 2 ? kind : kind == 2 ? uniform(2, 20) : uniform(20, kMaxStored);
  const std::int32_t base = chance(4) ? -kTimeStep * kMaxStored : 1'000'000'000;
  Times stored;
  for (std::int32_t time = base; int(stored.size()) < storedCount;) {
    stored.push_back(time);
    if (!chance(8)) time += kTimeStep * uniform(1, 3);
  }
  made.file = fields.File(cjdtest::MakeRecords(stored, recordSize, rng));
  if (chance(4)) {
    for (int partial = uniform(1, int(recordSize) - 1); partial > 0; --partial)
      made.file.push_back(static_cast<unsigned char>(rng()));
  } else if (stored.empty() && chance(3)) {
    made.file = fields.Header();
  }

  const std::int32_t first = stored.empty() ? base : stored.front();
  const std::int32_t last = stored.empty() ? first + kTimeStep * kMaxStored : stored.back();
  const std::int32_t span = last - first + kTimeStep;
  const int placement = uniform(0, 5);
  const std::pair<std::int32_t, std::int32_t> windows[] = {{first - span, first - 1},
                                                           {first, last},
                                                           {first - span / 2, first + span / 2},
                                                           {last - span / 2, last + span / 2},
                                                           {last + 1, last + span},
                                                           {first - span, last + span}};
  const auto [low, high] = windows[placement];
  const int batchCount = chance(5) ? 1 : chance(6) ? uniform(60, 400) : uniform(2, 60);
  Times batch;
  while (int(batch.size()) < batchCount) {
    if (!stored.empty() && placement == 1 && chance(3)) {
      batch.push_back(stored[std::size_t(uniform(0, int(stored.size()) - 1))]);
    } else if (!batch.empty() && chance(5)) {
      batch.push_back(batch[std::size_t(uniform(0, int(batch.size()) - 1))]);
    } else {
      batch.push_back(uniform(low, high));
    }
  }
  made.batch = cjdtest::MakeRecords(batch, recordSize, rng);
  return made;
}

// Stored 10, 20, 20, 30: 20 replaces the first 20, the later 25 wins over the
// earlier, the rest go in order; the same for InsertData and the reference.
TEST(ReferenceInsertTest, BothFollowTheRules) {
  cjdtest::ScratchDir dir;
  std::mt19937 rng(1);
  const HeaderFields fields = cjdtest::TickFields();
  const unsigned int size = fields.RecordSize();
  const Bytes stored = cjdtest::MakeRecords({10, 20, 20, 30}, size, rng);
  const Bytes batch = cjdtest::MakeRecords({20, 25, 40, 50, 45, 25}, size, rng);
  for (bool reference : {true, false}) {
    SCOPED_TRACE(reference ? "reference" : "InsertData");
    const Bytes file = Inserted(fields.File(stored), batch, dir.File("rules.cjd"), reference);
    const Bytes records(file.begin() + static_cast<long>(fields.FirstRecord()), file.end());
    EXPECT_EQ(cjdtest::TimesOf(records, size), (Times{10, 20, 20, 25, 30, 40, 45, 50}));
    EXPECT_TRUE(std::equal(records.begin() + size, records.begin() + 2 * size, batch.begin()));
    EXPECT_TRUE(std::equal(records.begin() + 3 * size, records.begin() + 4 * size,
                           batch.begin() + 5 * size));
  }
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
  for (std::uint32_t seed = kFirstSeed; seed < kFirstSeed + kRandomCases; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const Case made = MakeCase(seed);
    const Bytes expected = Inserted(made.file, made.batch, dir.File("expected.cjd"), true);
    ASSERT_FALSE(expected.empty()) << "the test's own file was refused";
    const Bytes actual = Inserted(made.file, made.batch, dir.File("actual.cjd"), false, seed);
    ASSERT_TRUE(actual == expected)
        << actual.size() << " bytes where " << expected.size()
        << " were expected; first difference at byte "
        << std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end()).first -
               actual.begin();
  }
}

}  // namespace
