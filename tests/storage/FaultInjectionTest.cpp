// Inserting and reading on a file system that fails: every write of an
// insert in turn, every read in turn, renames, opens and short reads.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "CjdTestFiles.h"
#include "FaultyFileSystem.h"

namespace {

using cjdtest::Bytes;
using cjdtest::FaultPlan;
using ::testing::HasSubstr;

constexpr int kStoredCount = 50;         // the time search reads these in one block
constexpr int kLargeStoredCount = 1000;  // the time search reads these probe by probe
constexpr int kBatchCount = 10;
constexpr std::int32_t kFirstTime = 1'000'000;
constexpr std::int32_t kTimeStep = 60;
constexpr int kMaxFaultPoints = 64;  // more reads or writes than any single call here makes
constexpr int kRangeFirst = 5;       // the range request runs from the time of stored record 5 (so
constexpr int kRangeEnd = 20;        // record 4 leads in) to that of record 20, exclusive

class FaultInjectionTest : public ::testing::Test {
 protected:
  // A new file with `count` records, kTimeStep apart.
  std::string FreshFile(int count) {
    stored_ = Records(cjdtest::TimesFrom(kFirstTime, count, kTimeStep));
    initial_ = fields_.File(stored_);
    const std::string path = dir_.File("faulty" + std::to_string(files_++) + ".cjd");
    cjdtest::WriteFileBytes(path, initial_);
    return path;
  }

  Bytes Records(std::vector<std::int32_t> const& times) {
    return cjdtest::MakeRecords(times, fields_.RecordSize(), rng_);
  }

  // Records later than everything stored; `round` keeps rounds apart.
  Bytes LaterBatch(int round) {
    const std::int32_t last = cjdtest::TimesOf(stored_, fields_.RecordSize()).back();
    return Records(cjdtest::TimesFrom(last + (round * kBatchCount + 1) * kTimeStep, kBatchCount, kTimeStep));
  }

  // One record replacing a stored record, then records between stored ones.
  Bytes EarlierBatch() {
    std::vector<std::int32_t> times =
        cjdtest::TimesFrom(kFirstTime + kTimeStep / 2, kBatchCount, 2 * kTimeStep);
    times.front() = kFirstTime + 3 * kTimeStep;
    return Records(times);
  }

  ::testing::AssertionResult Same(Bytes const& actual, Bytes const& expected) const {
    return cjdtest::SameRecords(actual, expected, fields_.RecordSize());
  }

  std::unique_ptr<CSymbol> Open(std::string const& path) { return cjdtest::OpenSymbol(owner_, path); }

  // Inserts with the plan armed; true when a fault was injected.
  bool InsertWithFaults(CSymbol& symbol, Bytes batch, FaultPlan plan) {
    fileSystem_.Arm(std::move(plan));
    symbol.InsertData(kBatchCount, batch.data());
    const bool injected = fileSystem_.faults > 0;
    fileSystem_.Arm({});
    return injected;
  }

  // A rewrite that hits a fault leaves the file as it was, and the symbol
  // goes on working. False when the plan injected nothing.
  bool RewriteFailsCleanly(FaultPlan plan) {
    const std::string path = FreshFile(kStoredCount);
    const Bytes batch = EarlierBatch();
    std::unique_ptr<CSymbol> symbol = Open(path);
    if (!InsertWithFaults(*symbol, batch, std::move(plan))) return false;
    EXPECT_EQ(cjdtest::ReadFileBytes(path), initial_);
    EXPECT_FALSE(cjdtest::HasTemporaryFiles(dir_.path()));
    EXPECT_THAT(symbol->file()->lastError(), HasSubstr(path));
    EXPECT_TRUE(Same(cjdtest::AllRecords(*symbol), stored_));
    Bytes again = batch;
    symbol->InsertData(kBatchCount, again.data());
    EXPECT_TRUE(Same(cjdtest::AllRecords(*symbol), cjdtest::MergeByTime(stored_, batch, fields_.RecordSize())));
    return true;
  }

  cjdtest::ScratchDir dir_;
  cjdtest::FaultyFileSystem fileSystem_;
  cjdtest::TestOwner owner_{true, &fileSystem_};
  cjdtest::HeaderFields fields_;
  std::mt19937 rng_{7};
  int files_ = 0;
  Bytes stored_;
  Bytes initial_;
};

// Fails each write of an append in turn: the append happens wholly or not at
// all, a reopened file agrees with what the symbol showed, and the next append
// lands right after.
TEST_F(FaultInjectionTest, AppendThatFailsLeavesStoredRecordsAndTheNextAppendIsCorrect) {
  for (bool writeHalf : {false, true}) {
    int faultPoint = 1;
    for (; faultPoint <= kMaxFaultPoints; ++faultPoint) {
      SCOPED_TRACE("write " + std::to_string(faultPoint) +
                   (writeHalf ? ", half written" : ", nothing written"));
      const std::string path = FreshFile(kStoredCount);
      const Bytes first = LaterBatch(0);
      const Bytes second = LaterBatch(1);
      std::unique_ptr<CSymbol> symbol = Open(path);
      if (!InsertWithFaults(*symbol, first, {.failWrite = faultPoint, .writeHalf = writeHalf})) break;
      const Bytes afterFault = cjdtest::AllRecords(*symbol);
      ASSERT_TRUE(afterFault == stored_ || afterFault == cjdtest::Concatenated(stored_, first))
          << "the append was half done";
      if (afterFault == stored_) {
        EXPECT_THAT(symbol->file()->lastError(), HasSubstr(path));
      }
      symbol.reset();
      EXPECT_TRUE(Same(cjdtest::RecordsOf(path), afterFault)) << "the reopened file disagrees";
      symbol = Open(path);
      Bytes next = second;
      symbol->InsertData(kBatchCount, next.data());
      EXPECT_TRUE(Same(cjdtest::AllRecords(*symbol), cjdtest::Concatenated(afterFault, second)));
    }
    EXPECT_GT(faultPoint, 1) << "an append makes no write at all";
  }
}

// Each write, the rename or the temporary file failing.
TEST_F(FaultInjectionTest, RewriteThatFailsLeavesTheOldFileByteForByte) {
  for (bool writeHalf : {false, true}) {
    int faultPoint = 1;
    while (faultPoint <= kMaxFaultPoints &&
           RewriteFailsCleanly({.failWrite = faultPoint, .writeHalf = writeHalf})) {
      ++faultPoint;
    }
    EXPECT_GT(faultPoint, 1) << "a rewrite makes no write at all";
  }
  EXPECT_TRUE(RewriteFailsCleanly({.failRename = true}));
  EXPECT_TRUE(RewriteFailsCleanly({.failOpen = ".tmp"}));
}

TEST_F(FaultInjectionTest, AppendWithoutItsJournalIsRefused) {
  const std::string path = FreshFile(kStoredCount);
  std::unique_ptr<CSymbol> symbol = Open(path);
  ASSERT_TRUE(InsertWithFaults(*symbol, LaterBatch(0), {.failOpen = ".journal"}));
  EXPECT_EQ(cjdtest::ReadFileBytes(path), initial_);
  EXPECT_THAT(symbol->file()->lastError(), HasSubstr(path));
}

TEST_F(FaultInjectionTest, FileThatCannotBeOpenedIsRefusedAndTouchesNothing) {
  const std::string path = FreshFile(kStoredCount);
  fileSystem_.Arm({.failOpen = ".cjd"});
  CSymbol symbol(&owner_, path.c_str());
  EXPECT_EQ(symbol.LoadProperties(), 1);
  symbol.Open();
  Bytes buffer(kStoredCount * fields_.RecordSize());
  GET_SYMBOL_DATA_REQUEST request = cjdtest::MakeRequest(cjdtest::kModeOldest, kStoredCount, buffer.data());
  EXPECT_EQ(symbol.GetData(&request), 0);
  EXPECT_EQ(request.count, 0);
  Bytes batch = LaterBatch(0);
  symbol.InsertData(kBatchCount, batch.data());
  EXPECT_THAT(symbol.file()->lastError(), HasSubstr(path));
  EXPECT_EQ(cjdtest::ReadFileBytes(path), initial_);
}

TEST_F(FaultInjectionTest, ShortReadsDeliverNothingAndNoCountBeyondTheFile) {
  const std::string path = FreshFile(kStoredCount);
  std::unique_ptr<CSymbol> symbol = Open(path);
  Bytes buffer(kStoredCount * fields_.RecordSize());
  fileSystem_.Arm({.allReadsShort = true});
  for (int mode : {cjdtest::kModeNewest, cjdtest::kModeRange, cjdtest::kModeOldest}) {
    SCOPED_TRACE("mode " + std::to_string(mode));
    GET_SYMBOL_DATA_REQUEST request =
        cjdtest::MakeRequest(mode, kStoredCount, buffer.data(), kFirstTime + kRangeFirst * kTimeStep,
                             kFirstTime + kRangeEnd * kTimeStep);
    EXPECT_EQ(symbol->GetData(&request), 0);
    EXPECT_EQ(request.count, 0);
    symbol->GetDataCount(&request);
    EXPECT_GE(request.count, 0);
    EXPECT_LE(request.count, kStoredCount);
  }
}

// A read that comes up short in the middle of an insert (an I/O error, a file
// cut by someone else) must not leave the records out of order.
TEST_F(FaultInjectionTest, ShortReadDuringAnInsertNeverDisordersTheFile) {
  for (int storedCount : {kStoredCount, kLargeStoredCount}) {
    for (int faultPoint = 1; faultPoint <= kMaxFaultPoints; ++faultPoint) {
      SCOPED_TRACE(std::to_string(storedCount) + " records, read " + std::to_string(faultPoint) + " short");
      const std::string path = FreshFile(storedCount);
      const Bytes batch = EarlierBatch();
      std::unique_ptr<CSymbol> symbol = Open(path);
      const bool injected = InsertWithFaults(*symbol, batch, {.shortRead = faultPoint});
      symbol.reset();
      const Bytes after = cjdtest::RecordsOf(path);
      EXPECT_TRUE(cjdtest::TimesAscend(after, fields_.RecordSize())) << "records out of order";
      if (after != stored_) {
        EXPECT_TRUE(Same(after, cjdtest::MergeByTime(stored_, batch, fields_.RecordSize())));
      }
      if (!injected) break;
    }
  }
}

// A read that comes up short while a request is served delivers either the
// right records or none, never others.
TEST_F(FaultInjectionTest, ShortReadDuringAGetNeverDeliversOtherRecords) {
  const unsigned int recordSize = fields_.RecordSize();
  for (int storedCount : {kStoredCount, kLargeStoredCount}) {
    const std::string path = FreshFile(storedCount);
    const Bytes expected(stored_.begin() + (kRangeFirst - 1) * recordSize,
                         stored_.begin() + kRangeEnd * recordSize);
    std::unique_ptr<CSymbol> symbol = Open(path);
    for (int faultPoint = 1; faultPoint <= kMaxFaultPoints; ++faultPoint) {
      SCOPED_TRACE(std::to_string(storedCount) + " records, read " + std::to_string(faultPoint) + " short");
      Bytes buffer(static_cast<std::size_t>(storedCount) * recordSize);
      GET_SYMBOL_DATA_REQUEST request =
          cjdtest::MakeRequest(cjdtest::kModeRange, storedCount, buffer.data(),
                               kFirstTime + kRangeFirst * kTimeStep, kFirstTime + kRangeEnd * kTimeStep);
      fileSystem_.Arm({.shortRead = faultPoint});
      const int result = symbol->GetData(&request);
      const bool injected = fileSystem_.faults > 0;
      fileSystem_.Arm({});
      if (result == 0) {
        EXPECT_EQ(request.count, 0);
      } else {
        buffer.resize(static_cast<std::size_t>(std::max(request.count, 0)) * recordSize);
        EXPECT_TRUE(cjdtest::SameRecords(buffer, expected, recordSize)) << "delivered other records";
      }
      if (!injected) break;
    }
  }
}

}  // namespace
