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
constexpr unsigned int kRecordSize = 24;  // candle records
constexpr std::int32_t kFirstTime = 1'000'000;
constexpr std::int32_t kTimeStep = 60;
constexpr int kMaxFaultPoints = 64;  // more reads or writes than any single call here makes
constexpr int kRangeFirst = 5;       // the range request runs from the time of stored record 5 (so
constexpr int kRangeEnd = 20;        // record 4 leads in) to that of record 20, exclusive

class FaultInjectionTest : public ::testing::Test {
 protected:
  // A new file with `count` records, kTimeStep apart, opened by a new symbol.
  std::unique_ptr<CSymbol> FreshSymbol(int count) {
    stored_ = Records(cjdtest::TimesFrom(kFirstTime, count, kTimeStep));
    initial_ = cjdtest::HeaderFields{}.File(stored_);
    path_ = dir_.File("faulty" + std::to_string(files_++) + ".cjd");
    cjdtest::WriteFileBytes(path_, initial_);
    return cjdtest::OpenSymbol(owner_, path_);
  }

  Bytes Records(std::vector<std::int32_t> const& times) {
    return cjdtest::MakeRecords(times, kRecordSize, rng_);
  }

  // Records later than everything stored; `round` keeps rounds apart.
  Bytes LaterBatch(int round) {
    const std::int32_t end = kFirstTime + std::int32_t(stored_.size() / kRecordSize) * kTimeStep;
    return Records(cjdtest::TimesFrom(end + round * kBatchCount * kTimeStep, kBatchCount, kTimeStep));
  }

  // One record replacing a stored record, then records between stored ones.
  Bytes EarlierBatch() {
    std::vector<std::int32_t> times =
        cjdtest::TimesFrom(kFirstTime + kTimeStep / 2, kBatchCount, 2 * kTimeStep);
    times.front() = kFirstTime + 3 * kTimeStep;
    return Records(times);
  }

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
    std::unique_ptr<CSymbol> symbol = FreshSymbol(kStoredCount);
    Bytes batch = EarlierBatch();
    if (!InsertWithFaults(*symbol, batch, std::move(plan))) return false;
    EXPECT_EQ(cjdtest::ReadFileBytes(path_), initial_);
    EXPECT_FALSE(cjdtest::HasTemporaryFiles(dir_.path()));
    EXPECT_THAT(symbol->file()->lastError(), HasSubstr(path_));
    EXPECT_TRUE(cjdtest::SameRecords(cjdtest::AllRecords(*symbol), stored_, kRecordSize));
    const Bytes after = cjdtest::MergeByTime(stored_, batch, kRecordSize);
    symbol->InsertData(kBatchCount, batch.data());
    EXPECT_TRUE(cjdtest::SameRecords(cjdtest::AllRecords(*symbol), after, kRecordSize));
    return true;
  }

  cjdtest::ScratchDir dir_;
  cjdtest::FaultyFileSystem fileSystem_;
  cjdtest::TestOwner owner_{true, &fileSystem_};
  std::mt19937 rng_{7};
  int files_ = 0;
  std::string path_;
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
      std::unique_ptr<CSymbol> symbol = FreshSymbol(kStoredCount);
      const Bytes first = LaterBatch(0);
      Bytes second = LaterBatch(1);
      if (!InsertWithFaults(*symbol, first, {.failWrite = faultPoint, .writeHalf = writeHalf})) break;
      const Bytes afterFault = cjdtest::AllRecords(*symbol);
      ASSERT_TRUE(afterFault == stored_ || afterFault == cjdtest::Concatenated(stored_, first))
          << "the append was half done";
      if (afterFault == stored_) {
        EXPECT_THAT(symbol->file()->lastError(), HasSubstr(path_));
      }
      symbol.reset();
      EXPECT_TRUE(cjdtest::SameRecords(cjdtest::RecordsOf(path_), afterFault, kRecordSize))
          << "after a reopen";
      const Bytes expected = cjdtest::Concatenated(afterFault, second);
      symbol = cjdtest::OpenSymbol(owner_, path_);
      symbol->InsertData(kBatchCount, second.data());
      EXPECT_TRUE(cjdtest::SameRecords(cjdtest::AllRecords(*symbol), expected, kRecordSize));
    }
    EXPECT_GT(faultPoint, 1) << "an append makes no write at all";
  }
}

// Each write, the rename or the temporary file failing.
TEST_F(FaultInjectionTest, RewriteThatFailsLeavesTheOldFileByteForByte) {
  for (bool writeHalf : {false, true}) {
    int faultPoint = 1;
    while (faultPoint <= kMaxFaultPoints &&
           RewriteFailsCleanly({.failWrite = faultPoint, .writeHalf = writeHalf}))
      ++faultPoint;
    EXPECT_GT(faultPoint, 1) << "a rewrite makes no write at all";
  }
  EXPECT_TRUE(RewriteFailsCleanly({.failRename = true}));
  EXPECT_TRUE(RewriteFailsCleanly({.failOpen = ".tmp"}));
}

// An append whose journal cannot be opened, and a data file that cannot be
// opened: refused, the file unchanged.
TEST_F(FaultInjectionTest, FailedOpensAreRefusedAndTouchNothing) {
  std::unique_ptr<CSymbol> symbol = FreshSymbol(kStoredCount);
  ASSERT_TRUE(InsertWithFaults(*symbol, LaterBatch(0), {.failOpen = ".journal"}));
  EXPECT_EQ(cjdtest::ReadFileBytes(path_), initial_);
  EXPECT_THAT(symbol->file()->lastError(), HasSubstr(path_));

  fileSystem_.Arm({.failOpen = ".cjd"});
  CSymbol closed(&owner_, path_.c_str());
  EXPECT_EQ(closed.LoadProperties(), 1);
  closed.Open();
  Bytes buffer(kStoredCount * kRecordSize);
  GET_SYMBOL_DATA_REQUEST request = cjdtest::MakeRequest(cjdtest::kModeOldest, kStoredCount, buffer.data());
  EXPECT_EQ(closed.GetData(&request), 0);
  EXPECT_EQ(request.count, 0);
  Bytes batch = LaterBatch(0);
  closed.InsertData(kBatchCount, batch.data());
  EXPECT_THAT(closed.file()->lastError(), HasSubstr(path_));
  EXPECT_EQ(cjdtest::ReadFileBytes(path_), initial_);

  fileSystem_.Arm({.failOpen = ".cjd", .failOpenOfExisting = true});  // never emptied as if it were new
  CSymbol existing(&owner_, path_.c_str());
  existing.Open();
  EXPECT_FALSE(existing.file()->IsOpen());
  EXPECT_EQ(cjdtest::ReadFileBytes(path_), initial_);
}

// A read that comes up short in the middle of an insert (an I/O error, a file
// cut by someone else) must not leave the records out of order.
TEST_F(FaultInjectionTest, ShortReadDuringAnInsertNeverDisordersTheFile) {
  for (int storedCount : {kStoredCount, kLargeStoredCount}) {
    for (int faultPoint = 1; faultPoint <= kMaxFaultPoints; ++faultPoint) {
      SCOPED_TRACE(std::to_string(storedCount) + " records, read " + std::to_string(faultPoint) + " short");
      std::unique_ptr<CSymbol> symbol = FreshSymbol(storedCount);
      const Bytes batch = EarlierBatch();
      const bool injected = InsertWithFaults(*symbol, batch, {.shortRead = faultPoint});
      symbol.reset();
      const Bytes after = cjdtest::RecordsOf(path_);
      EXPECT_TRUE(cjdtest::TimesAscend(after, kRecordSize)) << "records out of order";
      if (after != stored_) {
        EXPECT_TRUE(
            cjdtest::SameRecords(after, cjdtest::MergeByTime(stored_, batch, kRecordSize), kRecordSize));
      }
      if (!injected) break;
    }
  }
}

// A read that comes up short while a request is served (fault point 0:
// every read short) delivers either the right records or none, never others.
TEST_F(FaultInjectionTest, ShortReadDuringAGetNeverDeliversOtherRecords) {
  for (int storedCount : {kStoredCount, kLargeStoredCount}) {
    std::unique_ptr<CSymbol> symbol = FreshSymbol(storedCount);
    for (int mode : {cjdtest::kModeNewest, cjdtest::kModeRange, cjdtest::kModeOldest}) {
      const auto first =
          stored_.begin() + (mode == cjdtest::kModeRange ? (kRangeFirst - 1) * kRecordSize : 0);
      const Bytes expected(
          first, mode == cjdtest::kModeRange ? stored_.begin() + kRangeEnd * kRecordSize : stored_.end());
      for (int faultPoint = 0; faultPoint <= kMaxFaultPoints; ++faultPoint) {
        SCOPED_TRACE(std::to_string(storedCount) + " records, mode " + std::to_string(mode) + ", read " +
                     std::to_string(faultPoint) + " short");
        Bytes buffer(static_cast<std::size_t>(storedCount) * kRecordSize);
        GET_SYMBOL_DATA_REQUEST request =
            cjdtest::MakeRequest(mode, storedCount, buffer.data(), kFirstTime + kRangeFirst * kTimeStep,
                                 kFirstTime + kRangeEnd * kTimeStep);
        fileSystem_.Arm({.shortRead = faultPoint, .allReadsShort = faultPoint == 0});
        const int result = symbol->GetData(&request);
        const bool injected = fileSystem_.faults > 0;
        if (result == 0) {
          EXPECT_EQ(request.count, 0);
        } else {
          EXPECT_NE(faultPoint, 0) << "delivered with every read short";
          buffer.resize(static_cast<std::size_t>(std::max(request.count, 0)) * kRecordSize);
          EXPECT_TRUE(cjdtest::SameRecords(buffer, expected, kRecordSize)) << "delivered other records";
        }
        if (faultPoint == 0) {
          symbol->GetDataCount(&request);
          EXPECT_GE(request.count, 0);
          EXPECT_LE(request.count, storedCount);
        }
        fileSystem_.Arm({});
        if (!injected) break;
      }
    }
  }
}

}  // namespace
