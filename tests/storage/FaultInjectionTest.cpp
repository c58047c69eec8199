// Inserting and reading on a file system that fails: every write of an
// insert and of a checkpoint in turn, every read in turn, opens and short reads.

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
    return Records(
        cjdtest::TimesFrom(end + round * kBatchCount * kTimeStep, kBatchCount, kTimeStep));
  }

  // One record replacing a stored record, then records between stored ones.
  Bytes EarlierBatch() {
    std::vector<std::int32_t> times =
        cjdtest::TimesFrom(kFirstTime + kTimeStep / 2, kBatchCount, 2 * kTimeStep);
    times.front() = kFirstTime + 3 * kTimeStep;
    return Records(times);
  }

  // Inserts with the plan armed; true when a fault was injected.
  bool InsertWithFaults(CSymbol& symbol, Bytes batch, FaultPlan plan, Status* status = nullptr) {
    fileSystem_.Arm(std::move(plan));
    const Status inserted =
        symbol.InsertData(static_cast<int>(batch.size() / kRecordSize), batch.data());
    if (status != nullptr) *status = inserted;
    const bool injected = fileSystem_.faults > 0;
    fileSystem_.Arm({});
    return injected;
  }

  // An insert that hits the fault happens wholly or not at all: a refused one
  // says which file failed, and after a checkpoint the file holds what the
  // symbol showed; the next insert lands right. False when nothing was injected.
  bool InsertFailsCleanly(Bytes const& batch, FaultPlan plan) {
    std::unique_ptr<CSymbol> symbol = FreshSymbol(kStoredCount);
    Status status;
    if (!InsertWithFaults(*symbol, batch, std::move(plan), &status)) return false;
    const Bytes merged = cjdtest::MergeByTime(stored_, batch, kRecordSize);
    const Bytes shown = cjdtest::AllRecords(*symbol);
    EXPECT_TRUE(shown == stored_ || cjdtest::SameRecords(shown, merged, kRecordSize))
        << "half an insert";
    if (shown == stored_) {
      EXPECT_THAT(status.ToString(), HasSubstr(dir_.path().string()));
    }
    EXPECT_TRUE(log_->Checkpoint().ok());
    EXPECT_TRUE(cjdtest::SameRecords(cjdtest::RecordsOf(path_), shown, kRecordSize))
        << "after a checkpoint";
    const Bytes second = LaterBatch(1);
    EXPECT_TRUE(symbol->InsertData(kBatchCount, const_cast<unsigned char*>(second.data())).ok());
    EXPECT_TRUE(cjdtest::SameRecords(cjdtest::AllRecords(*symbol),
                                     cjdtest::MergeByTime(shown, second, kRecordSize),
                                     kRecordSize));
    return true;
  }

  // Runs InsertFailsCleanly with each write failing in turn, whole or half done.
  void FailEachWriteOf(Bytes const& batch) {
    for (bool writeHalf : {false, true}) {
      int faultPoint = 1;
      while (faultPoint <= kMaxFaultPoints) {
        SCOPED_TRACE("write " + std::to_string(faultPoint) +
                     (writeHalf ? ", half written" : ", nothing written"));
        if (!InsertFailsCleanly(batch, {.failWrite = faultPoint, .writeHalf = writeHalf})) break;
        ++faultPoint;
      }
      EXPECT_GT(faultPoint, 1) << "an insert makes no write at all";
    }
  }

  cjdtest::ScratchDir dir_;
  cjdtest::FaultyFileSystem fileSystem_;
  std::unique_ptr<WriteAheadLog> log_ = cjdtest::OpenLog(dir_.path().string(), &fileSystem_);
  cjdtest::TestOwner owner_{true, &fileSystem_, log_.get()};
  std::mt19937 rng_{7};
  int files_ = 0;
  std::string path_;
  Bytes stored_;
  Bytes initial_;
};

// Appends small enough to wait in the log, appends that go straight into the
// file, and merges that change stored records.
TEST_F(FaultInjectionTest, InsertThatFailsLeavesTheStoredRecordsAndTheNextInsertIsCorrect) {
  FailEachWriteOf(LaterBatch(0));
  FailEachWriteOf(
      Records(cjdtest::TimesFrom(kFirstTime + kStoredCount * kTimeStep,
                                 WriteAheadLog::kDirectAppendBytes / kRecordSize + 1, kTimeStep)));
  FailEachWriteOf(EarlierBatch());
}

// A checkpoint whose write fails keeps the records pending and visible; the
// next checkpoint puts them into the file.
TEST_F(FaultInjectionTest, CheckpointThatFailsKeepsTheRecordsPending) {
  std::unique_ptr<CSymbol> symbol = FreshSymbol(kStoredCount);
  Bytes batch = EarlierBatch();
  ASSERT_TRUE(symbol->InsertData(kBatchCount, batch.data()).ok());
  const Bytes merged = cjdtest::MergeByTime(stored_, batch, kRecordSize);
  fileSystem_.Arm({.failWrite = 1});
  EXPECT_THAT(log_->Checkpoint().ToString(), HasSubstr(path_));
  fileSystem_.Arm({});
  EXPECT_TRUE(cjdtest::SameRecords(cjdtest::AllRecords(*symbol), merged, kRecordSize));
  EXPECT_TRUE(log_->Checkpoint().ok());
  EXPECT_TRUE(cjdtest::SameRecords(cjdtest::RecordsOf(path_), merged, kRecordSize));
}

// A data file that cannot be opened: refused with its path, the file unchanged.
TEST_F(FaultInjectionTest, FailedOpensAreRefusedAndTouchNothing) {
  FreshSymbol(kStoredCount);
  fileSystem_.Arm({.failOpen = ".cjd"});
  CSymbol closed(&owner_, path_.c_str());
  Status status;
  EXPECT_EQ(closed.LoadProperties(&status), 1);
  EXPECT_THAT(status.ToString(), HasSubstr(path_));
  EXPECT_FALSE(closed.Open().ok());
  Bytes buffer(kStoredCount * kRecordSize);
  GET_SYMBOL_DATA_REQUEST request = cjdtest::MakeRequest(kGetOldest, kStoredCount, buffer.data());
  EXPECT_EQ(closed.GetData(&request), 0);
  EXPECT_EQ(request.count, 0);
  Bytes batch = LaterBatch(0);
  closed.InsertData(kBatchCount, batch.data());
  EXPECT_TRUE(log_->Checkpoint().ok());
  EXPECT_EQ(cjdtest::ReadFileBytes(path_), initial_);

  fileSystem_.Arm(
      {.failOpen = ".cjd", .failOpenOfExisting = true});  // never emptied as if it were new
  CSymbol existing(&owner_, path_.c_str());
  EXPECT_FALSE(existing.Open().ok());
  EXPECT_EQ(cjdtest::ReadFileBytes(path_), initial_);
}

// A read that comes up short in the middle of an insert (an I/O error, a file
// cut by someone else) must not leave the records out of order.
TEST_F(FaultInjectionTest, ShortReadDuringAnInsertNeverDisordersTheFile) {
  for (int storedCount : {kStoredCount, kLargeStoredCount}) {
    for (int faultPoint = 1; faultPoint <= kMaxFaultPoints; ++faultPoint) {
      SCOPED_TRACE(std::to_string(storedCount) + " records, read " + std::to_string(faultPoint) +
                   " short");
      std::unique_ptr<CSymbol> symbol = FreshSymbol(storedCount);
      const Bytes batch = EarlierBatch();
      const bool injected = InsertWithFaults(*symbol, batch, {.shortRead = faultPoint});
      symbol.reset();
      ASSERT_TRUE(log_->Checkpoint().ok());
      const Bytes after = cjdtest::RecordsOf(path_);
      EXPECT_TRUE(cjdtest::TimesAscend(after, kRecordSize)) << "records out of order";
      if (after != stored_) {
        EXPECT_TRUE(cjdtest::SameRecords(after, cjdtest::MergeByTime(stored_, batch, kRecordSize),
                                         kRecordSize));
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
    for (int mode : {kGetNewest, kGetTimeRange, kGetOldest}) {
      const auto first =
          stored_.begin() + (mode == kGetTimeRange ? (kRangeFirst - 1) * kRecordSize : 0);
      const Bytes expected(
          first, mode == kGetTimeRange ? stored_.begin() + kRangeEnd * kRecordSize : stored_.end());
      for (int faultPoint = 0; faultPoint <= kMaxFaultPoints; ++faultPoint) {
        SCOPED_TRACE(std::to_string(storedCount) + " records, mode " + std::to_string(mode) +
                     ", read " + std::to_string(faultPoint) + " short");
        Bytes buffer(static_cast<std::size_t>(storedCount) * kRecordSize);
        GET_SYMBOL_DATA_REQUEST request = cjdtest::MakeRequest(mode, storedCount, buffer.data(),
                                                               kFirstTime + kRangeFirst * kTimeStep,
                                                               kFirstTime + kRangeEnd * kTimeStep);
        fileSystem_.Arm({.shortRead = faultPoint, .allReadsShort = faultPoint == 0});
        const int result = symbol->GetData(&request);
        const bool injected = fileSystem_.faults > 0;
        if (result == 0) {
          EXPECT_EQ(request.count, 0);
        } else {
          EXPECT_NE(faultPoint, 0) << "delivered with every read short";
          buffer.resize(static_cast<std::size_t>(std::max(request.count, 0)) * kRecordSize);
          EXPECT_TRUE(cjdtest::SameRecords(buffer, expected, kRecordSize))
              << "delivered other records";
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
