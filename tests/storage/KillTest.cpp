// A child process inserts large batches (appends and rewrites) and is killed
// with SIGKILL at random moments. After every kill the file must load and
// hold exactly the records from before or after the insert that was under
// way; the next child goes on from there.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "CjdTestFiles.h"
#include "FaultyFileSystem.h"
#include "KillSequence.h"
#include "RecordMerge.h"

extern char** environ;

namespace {

using cjdtest::Bytes;

constexpr int kKills = 200;
constexpr std::uint32_t kSeed = 4242;
constexpr int kMaxSleepMicroseconds = 20'000;
constexpr int kFinishedStepOneIn = 4;  // of the rounds, these wait until the first step is done
constexpr int kStoredCount = 50;       // records before a placed death
constexpr int kDeathBatchCount = 10;
constexpr int kMaxDeathPoints = 32;  // more writes than one insert makes
constexpr std::int32_t kFirstTime = 1'000'000;
constexpr std::int32_t kTimeStep = 60;

struct Round {
  int lastAnnounced = -1;  // the step under way when the child died; -1: none announced
  bool killed = false;     // false: the child finished its steps
};

// Reads one announced step; false at the end of the pipe.
bool ReadAnnouncement(int fd, int& step) {
  int value = 0;
  std::size_t done = 0;
  while (done < sizeof(value)) {
    const ssize_t got = read(fd, reinterpret_cast<char*>(&value) + done, sizeof(value) - done);
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  step = value;
  return true;
}

class KillTest : public ::testing::Test {
 protected:
  // A new file, header only, for the file of step_.
  void StartFile() {
    for (auto const& entry : std::filesystem::directory_iterator(dir_.path())) std::filesystem::remove(entry);
    path_ = dir_.File("kill" + std::to_string(killtest::FileOfStep(step_)) + ".cjd");
    cjdtest::WriteFileBytes(path_, cjdtest::HeaderFields{}.File({}));
    state_.clear();
  }

  pid_t Spawn(int announceFd) {
    const std::string seed = std::to_string(kSeed);
    const std::string step = std::to_string(step_);
    const std::string fd = std::to_string(announceFd);
    std::vector<char*> argv{const_cast<char*>(KILL_CHILD_PATH), path_.data(),
                            const_cast<char*>(seed.c_str()),    const_cast<char*>(step.c_str()),
                            const_cast<char*>(fd.c_str()),      nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, KILL_CHILD_PATH, nullptr, nullptr, argv.data(), environ) != 0) return -1;
    return pid;
  }

  // Runs a child from step_, waits for its first announcement (in some rounds
  // its second, so that the sequence moves on however slow the machine) and a
  // random moment after it, and kills it.
  Round RunChild() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return {};
    fcntl(fds[1], F_SETFD, 0);  // the child's end survives exec
    const pid_t pid = Spawn(fds[1]);
    close(fds[1]);
    Round round;
    if (pid <= 0) {
      close(fds[0]);
      ADD_FAILURE() << "cannot start " << KILL_CHILD_PATH;
      return round;
    }
    const bool awaitFinishedStep = std::uniform_int_distribution<int>(1, kFinishedStepOneIn)(rng_) == 1;
    if (ReadAnnouncement(fds[0], round.lastAnnounced) && awaitFinishedStep) {
      ReadAnnouncement(fds[0], round.lastAnnounced);
    }
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, kMaxSleepMicroseconds)(rng_)));
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    round.killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    if (!round.killed) {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    }
    while (ReadAnnouncement(fds[0], round.lastAnnounced)) {
    }
    close(fds[0]);
    return round;
  }

  // The batch of step_, made once.
  killtest::Step const& CurrentStep() {
    if (madeStep_ != step_) {
      batch_ = killtest::MakeStep(kSeed, step_);
      madeStep_ = step_;
    }
    return batch_;
  }

  // The records after inserting step_ into state_ (NormalizeBatch and
  // MergeRecords are checked against record-by-record insertion elsewhere).
  Bytes AfterCurrentStep() {
    killtest::Step const& step = CurrentStep();
    const Bytes batch = NormalizeBatch(step.records.data(), step.count, killtest::kRecordSize);
    Bytes merged;
    MergeRecords(state_.data(), static_cast<int>(state_.size() / killtest::kRecordSize), batch.data(),
                 static_cast<int>(batch.size() / killtest::kRecordSize), killtest::kRecordSize, merged);
    return merged;
  }

  void AdvanceTo(int step) {
    for (; step_ < step; ++step_) state_ = AfterCurrentStep();
  }

  // The file as a fresh writable symbol finds it (a pending rollback
  // applied) holds the records from before or after the step under way; the
  // model moves on to the step the next child starts with.
  void CheckFile(Round const& round) {
    ASSERT_GE(round.lastAnnounced, step_) << "the child announced no step";
    AdvanceTo(round.lastAnnounced);
    const Bytes readerRecords = cjdtest::RecordsOfReader(path_);  // before anyone rolls back
    cjdtest::TestOwner owner;
    std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path_);
    ASSERT_NE(symbol, nullptr) << "the header no longer loads";
    const std::int64_t recordBytes = symbol->file()->FileSize() - symbol->file()->FirstRecordOffset();
    ASSERT_EQ(recordBytes % killtest::kRecordSize, 0) << "a partial record in step " << step_;
    const Bytes records = cjdtest::AllRecords(*symbol);
    ASSERT_TRUE(cjdtest::TimesAscend(records, killtest::kRecordSize)) << "disordered in step " << step_;
    const bool writerFoundBefore = round.killed && records == state_;
    const bool readerFoundBefore = round.killed && readerRecords == state_;
    ++outcomes_[CurrentStep().kind == killtest::StepKind::Rewrite][writerFoundBefore];
    if (writerFoundBefore && readerFoundBefore) return;
    Bytes after = AfterCurrentStep();
    if (!readerFoundBefore) CheckReader(cjdtest::SameRecords(readerRecords, after, killtest::kRecordSize));
    if (writerFoundBefore) return;
    ASSERT_TRUE(cjdtest::SameRecords(records, after, killtest::kRecordSize)) << "in step " << step_;
    state_.swap(after);
    ++step_;
  }

  void CheckReader(::testing::AssertionResult const& sameAsAfter) {
    if (sameAsAfter) return;
    if (readerMismatches_++ > 0) return;
    firstReaderMismatch_ = "in step " + std::to_string(step_) + " (" +
                           std::to_string(state_.size() / killtest::kRecordSize) +
                           " records before it): " + sameAsAfter.message();
  }

  cjdtest::ScratchDir dir_;
  std::string path_;
  Bytes state_;           // the records before step_
  int step_ = 0;          // the next step a child starts with
  killtest::Step batch_;  // the batch of step madeStep_
  int madeStep_ = -1;
  std::mt19937 rng_{kSeed};
  int outcomes_[2][2] = {};   // [rewrite][found before the step] counts
  int readerMismatches_ = 0;  // kills after which a reader saw neither state
  std::string firstReaderMismatch_;
};

// Readers with writes disabled never roll back, so they read the file as the
// killed child left it; they must not see a half-done insert either.
TEST_F(KillTest, FileHoldsTheStateBeforeOrAfterTheInsertUnderWay) {
  int kills = 0;
  int file = -1;
  while (kills < kKills) {
    if (killtest::FileOfStep(step_) != file) {
      file = killtest::FileOfStep(step_);
      StartFile();
    }
    const Round round = RunChild();
    kills += round.killed ? 1 : 0;
    ASSERT_NO_FATAL_FAILURE(CheckFile(round)) << "after kill " << kills;
  }
  std::cout << "kills: " << kills << ", steps done: " << step_
            << "; appends found before/after: " << outcomes_[0][1] << "/" << outcomes_[0][0]
            << ", rewrites found before/after: " << outcomes_[1][1] << "/" << outcomes_[1][0] << "\n";
  EXPECT_EQ(readerMismatches_, 0) << "a reader saw a half-done insert, first " << firstReaderMismatch_;
}

// The same deaths, placed exactly: the inserting process ends in the middle
// of each write of an append, then of a rewrite, in turn.
class PlacedDeathTest : public ::testing::TestWithParam<bool> {
 protected:
  // Runs the insert in a child that dies at write `point` after writing half
  // of it; false when the insert made fewer writes and finished.
  bool DiesAtWrite(int point, Bytes batch) {
    const pid_t pid = fork();
    if (pid == 0) {
      cjdtest::FaultyFileSystem fileSystem;
      cjdtest::TestOwner owner(true, &fileSystem);
      std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path_);
      fileSystem.Arm({.failWrite = point, .writeHalf = true, .dieAtWrite = true});
      if (symbol != nullptr) symbol->InsertData(kDeathBatchCount, batch.data());
      _exit(EXIT_SUCCESS);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status)) << "status " << status;
    return WIFEXITED(status) && WEXITSTATUS(status) == cjdtest::kDiedAtWrite;
  }

  cjdtest::ScratchDir dir_;
  std::string path_ = dir_.File("death.cjd");
  cjdtest::HeaderFields fields_;
  std::mt19937 rng_{11};
};

TEST_P(PlacedDeathTest, WritersAndReadersFindTheStateBeforeOrAfter) {
  const bool rewrite = GetParam();
  const unsigned int recordSize = fields_.RecordSize();
  std::vector<std::int32_t> storedTimes;
  std::vector<std::int32_t> batchTimes;
  for (int i = 0; i < kStoredCount; ++i) storedTimes.push_back(kFirstTime + i * kTimeStep);
  for (int i = 0; i < kDeathBatchCount; ++i) {
    batchTimes.push_back(rewrite ? kFirstTime + (2 * i + 1) * kTimeStep / 2
                                 : kFirstTime + (kStoredCount + i) * kTimeStep);
  }
  int point = 1;
  for (; point <= kMaxDeathPoints; ++point) {
    SCOPED_TRACE("died at write " + std::to_string(point));
    const Bytes stored = cjdtest::MakeRecords(storedTimes, recordSize, rng_);
    const Bytes batch = cjdtest::MakeRecords(batchTimes, recordSize, rng_);
    const Bytes after = cjdtest::MergeByTime(stored, batch, recordSize);
    cjdtest::WriteFileBytes(path_, fields_.File(stored));
    if (!DiesAtWrite(point, batch)) break;
    const Bytes reader = cjdtest::RecordsOfReader(path_);
    const Bytes writer = cjdtest::ReopenedRecords(path_);
    if (reader != stored) {
      EXPECT_TRUE(cjdtest::SameRecords(reader, after, recordSize)) << "a reader with writes disabled";
    }
    if (writer != stored) {
      EXPECT_TRUE(cjdtest::SameRecords(writer, after, recordSize)) << "a writer, after its rollback";
    }
  }
  EXPECT_GT(point, 1) << "the insert made no write";
}

INSTANTIATE_TEST_SUITE_P(AppendAndRewrite, PlacedDeathTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "Rewrite" : "Append"; });

}  // namespace
