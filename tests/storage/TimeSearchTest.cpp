// Time searches through the sparse time index agree with a linear scan of the
// file's whole records: over many sizes and runs of equal times, across
// appends, stream writes and merges that rewrite, when another writer cuts or
// extends the file, and with a partial last record. On a file whose times are
// not sorted a search stays inside the file.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "CjdTestFiles.h"
#include "FaultyFileSystem.h"
#include "TimeIndex.h"

namespace {

using cjdtest::Bytes;

constexpr std::int32_t kFirstTime = 1'000'000;
constexpr std::int32_t kTimeStep = 10;  // between distinct stored times
constexpr int kLargeCount = 3000;       // records of the larger files
constexpr int kWideCount = 50'000;      // more records than one read of an index build covers

// `count` times kTimeStep apart, each repeated `run` times.
std::vector<std::int32_t> RunsOfTimes(int count, int run) {
  std::vector<std::int32_t> times;
  for (int i = 0; i < count; ++i) times.push_back(kFirstTime + (i / run) * kTimeStep);
  return times;
}

// Every stored time, its neighbours, and the extremes.
std::set<std::int64_t> Probes(std::vector<std::int32_t> const& times) {
  std::set<std::int64_t> probes = {
      std::numeric_limits<long>::min(), std::numeric_limits<std::int32_t>::min(),
      std::numeric_limits<std::int32_t>::max(), std::numeric_limits<long>::max()};
  for (std::int32_t time : times) probes.insert({time - 1, time, time + 1});
  return probes;
}

class TimeSearchTest : public ::testing::Test {
 protected:
  // A new file of candle records with these times (and `trailer` after them),
  // opened by a new symbol.
  std::unique_ptr<CSymbol> Stored(std::vector<std::int32_t> const& times,
                                  Bytes const& trailer = {}) {
    path_ = dir_.File("search" + std::to_string(files_++) + ".cjd");
    cjdtest::WriteFileBytes(path_, cjdtest::Concatenated(fields_.File(Records(times)), trailer));
    return cjdtest::OpenSymbol(owner_, path_);
  }

  Bytes Records(std::vector<std::int32_t> const& times) {
    return cjdtest::MakeRecords(times, fields_.RecordSize(), rng_);
  }

  // The times of the whole records in the file now, read byte by byte.
  std::vector<std::int32_t> TimesInFile() const {
    const Bytes bytes = cjdtest::ReadFileBytes(path_);
    const Bytes records(
        bytes.begin() + static_cast<long>(std::min(fields_.FirstRecord(), bytes.size())),
        bytes.end());
    return cjdtest::TimesOf(records, fields_.RecordSize());
  }

  int Stride() const { return static_cast<int>(TimeIndex::kBlockBytes / fields_.RecordSize()); }

  // Both searches of the file agree with a linear scan of what it holds: one
  // sweep over its sorted times, as the probes ascend. No read so far asked
  // for bytes past the end of the file.
  ::testing::AssertionResult AgreesWithTheFile(CSDTFile& file) {
    const std::vector<std::int32_t> times = TimesInFile();
    int expected = 0;
    for (std::int64_t probe : Probes(times)) {
      while (expected < static_cast<int>(times.size()) && times[expected] < probe) ++expected;
      const int found = file.GetDataPointIndex(static_cast<long>(probe));
      int direct = -1;
      const Status status =
          file.FindDataPointIndex(static_cast<long>(probe), file.FileSize(), &direct);
      if (found != expected || direct != expected || !status.ok()) {
        return ::testing::AssertionFailure()
               << "time " << probe << ": found " << found << " and " << direct << ", expected "
               << expected << " of " << times.size();
      }
    }
    if (fileSystem_.readsPastEnd > 0)
      return ::testing::AssertionFailure() << "a read past the end of the file";
    return ::testing::AssertionSuccess();
  }

  // Bytes one search reads: at most one block once the index holds the file.
  std::int64_t BytesOfOneSearch(CSDTFile& file, std::int64_t time) {
    fileSystem_.Arm({});
    file.GetDataPointIndex(static_cast<long>(time));
    return fileSystem_.bytesRead;
  }

  cjdtest::ScratchDir dir_;
  cjdtest::FaultyFileSystem fileSystem_;
  cjdtest::TestOwner owner_{true, &fileSystem_};
  cjdtest::HeaderFields fields_;
  std::mt19937 rng_{11};
  std::string path_;
  int files_ = 0;
};

// The index of the first record at or after a time.
TEST_F(TimeSearchTest, LowerBoundOfEqualTimes) {
  std::unique_ptr<CSymbol> symbol = Stored({10, 20, 20, 30});
  for (auto [time, index] : {std::pair{20, 1}, {25, 3}, {5, 0}, {31, 4}}) {
    EXPECT_EQ(symbol->file()->GetDataPointIndex(time), index) << time;
  }
}

TEST_F(TimeSearchTest, AgreesWithALinearScanOverManySizesAndRunsOfEqualTimes) {
  for (bool ticks : {false, true}) {
    fields_ = ticks ? cjdtest::TickFields() : cjdtest::HeaderFields{};
    const int stride = Stride();
    for (int count : {0, 1, 2, stride - 1, stride, stride + 1, 2 * stride - 1, 2 * stride,
                      2 * stride + 1, 7 * stride + 5, kLargeCount}) {
      for (int run : {1, 2, 5, stride - 1, stride, stride + 1, 3 * stride}) {
        SCOPED_TRACE((ticks ? "ticks, " : "candles, ") + std::to_string(count) +
                     " records in runs of " + std::to_string(run));
        std::unique_ptr<CSymbol> symbol = Stored(RunsOfTimes(count, run));
        ASSERT_TRUE(AgreesWithTheFile(*symbol->file()));
      }
    }
  }
  std::unique_ptr<CSymbol> wide =
      Stored(RunsOfTimes(kWideCount, 3));  // wider than one read of the index build
  EXPECT_TRUE(AgreesWithTheFile(*wide->file()));
  EXPECT_LE(BytesOfOneSearch(*wide->file(), kFirstTime + kWideCount), TimeIndex::kBlockBytes);
}

// A partial record after the last whole one is never searched, whatever its
// bytes (time 0 here, earlier than every stored one); the first append goes
// over it. Appends of every size around a block keep the index; merges before
// stored records rewrite the file, renewing the index of the rewritten part
// and keeping the entries before it. A search after each reads one block.
TEST_F(TimeSearchTest, InsertsKeepTheIndexInStep) {
  const int stride = Stride();
  std::unique_ptr<CSymbol> symbol = Stored(RunsOfTimes(2 * stride + 3, 2), {0, 0, 0, 0, 7});
  CSDTFile& file = *symbol->file();
  ASSERT_TRUE(AgreesWithTheFile(file));
  auto insert = [&](std::vector<std::int32_t> const& times) {
    SCOPED_TRACE(std::to_string(times.size()) + " records from " + std::to_string(times.front()));
    Bytes batch = Records(times);
    symbol->InsertData(static_cast<int>(times.size()), batch.data());
    EXPECT_LE(BytesOfOneSearch(file, times.back()), TimeIndex::kBlockBytes);
    EXPECT_TRUE(AgreesWithTheFile(file));
  };
  for (int count : {1, stride - 1, stride, stride + 1, 1, 3 * stride + 7})
    insert(cjdtest::TimesFrom(TimesInFile().back() + kTimeStep, count, kTimeStep));
  insert({kFirstTime - 5 * kTimeStep, kFirstTime - kTimeStep});  // before everything
  const std::int32_t middle = kFirstTime + 3 * stride * kTimeStep;
  insert({middle + 1, middle + 2});           // in the middle
  insert({kFirstTime + stride * kTimeStep});  // replaces a block start
  insert({kFirstTime + 5 * kTimeStep + 3,
          TimesInFile().back() + kTimeStep});  // in the middle and after
}

// Records written through the stream at record boundaries, one of them at
// the start of a block with a later time, keep the index in step; a write
// that is not at a record boundary drops it. Then another writer changes the
// file between two searches of this object: cuts it, writes it anew in
// place, appends to it and rewrites it.
TEST_F(TimeSearchTest, StreamWritesAndAnotherWriterAreSeen) {
  const int stride = Stride();
  std::unique_ptr<CSymbol> symbol = Stored(RunsOfTimes(4 * stride, 1));
  CSDTFile& file = *symbol->file();
  ASSERT_TRUE(AgreesWithTheFile(file));
  const std::int32_t later =
      kFirstTime + stride * kTimeStep + kTimeStep / 2;  // still before the next record
  Bytes record = Records({later});
  file.SeekToDataPoint(stride);
  ASSERT_EQ(file.Write(record.data(), fields_.RecordSize()), 1);
  EXPECT_TRUE(AgreesWithTheFile(file));
  Bytes tail =
      Records(cjdtest::TimesFrom(kFirstTime + 5 * stride * kTimeStep, 5 * stride, kTimeStep));
  file.SeekToDataPoint(4 * stride);
  ASSERT_EQ(file.Write(tail.data(), static_cast<unsigned int>(tail.size())), 1);
  EXPECT_LE(BytesOfOneSearch(file, kFirstTime + 6 * stride * kTimeStep), TimeIndex::kBlockBytes);
  EXPECT_TRUE(AgreesWithTheFile(file));
  const std::int32_t earlier = kFirstTime + 2 * stride * kTimeStep - kTimeStep / 2;
  file.Seek(static_cast<long>(file.FirstRecordOffset() +
                              std::uint64_t(2 * stride) * fields_.RecordSize()),
            SEEK_SET);
  ASSERT_EQ(file.Write(&earlier, sizeof(earlier)), 1);
  EXPECT_TRUE(AgreesWithTheFile(file));

  std::filesystem::resize_file(
      path_, fields_.FirstRecord() + std::uint64_t(2 * stride + 3) * fields_.RecordSize());
  EXPECT_TRUE(AgreesWithTheFile(file));
  const Bytes bytes = fields_.File(
      Records(cjdtest::TimesFrom(kFirstTime - 1000 * kTimeStep, 7 * stride, kTimeStep)));
  {
    std::fstream out(path_, std::ios::in | std::ios::out | std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  }
  EXPECT_TRUE(AgreesWithTheFile(file));
  std::unique_ptr<CSymbol> other = cjdtest::OpenSymbol(owner_, path_);
  Bytes after = Records({TimesInFile().back() + kTimeStep});
  other->InsertData(1, after.data());
  EXPECT_TRUE(AgreesWithTheFile(file));
  Bytes before = Records({TimesInFile().front() - kTimeStep});
  other->InsertData(1, before.data());
  EXPECT_TRUE(AgreesWithTheFile(file));
}

// Times out of order give other answers than a sorted file would, but every
// search and every time range stays inside the file's whole records.
TEST_F(TimeSearchTest, UnsortedTimesNeverLeadOutsideTheFile) {
  std::vector<std::int32_t> times(kLargeCount);
  for (std::int32_t& time : times)
    time = kFirstTime + static_cast<std::int32_t>(rng_() % kLargeCount);
  const Bytes trailer = {1, 2, 3};
  std::unique_ptr<CSymbol> symbol = Stored(times, trailer);
  Bytes buffer(std::size_t(kLargeCount) * fields_.RecordSize());
  for (int i = 0; i < 2000; ++i) {
    const std::int32_t from =
        kFirstTime + static_cast<std::int32_t>(rng_() % (kLargeCount + 2)) - 1;
    const std::int32_t to = kFirstTime + static_cast<std::int32_t>(rng_() % (kLargeCount + 2)) - 1;
    const int index = symbol->file()->GetDataPointIndex(from);
    ASSERT_GE(index, 0);
    ASSERT_LE(index, kLargeCount);
    GET_SYMBOL_DATA_REQUEST request =
        cjdtest::MakeRequest(kGetTimeRange, kLargeCount, buffer.data(), from, to);
    symbol->GetData(&request);
    ASSERT_GE(request.count, 0);
    ASSERT_LE(request.count, kLargeCount);
  }
  EXPECT_EQ(fileSystem_.readsPastEnd, 0);
}

}  // namespace
