// A child process inserts large batches (appends and merges) through the
// folder's write-ahead log and is killed with SIGKILL at random moments. After
// every kill, once the next writer has recovered the log, the file must load
// and hold exactly the records from before or after the insert that was under
// way; the next child goes on from there. Then deaths placed exactly: at each
// write of an append and of a merge in turn.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "CjdTestFiles.h"
#include "FaultyFileSystem.h"
#include "RecordMerge.h"

namespace {

using cjdtest::Bytes;

constexpr int kKills = 200;
constexpr std::uint32_t kSeed = 4242;
constexpr int kMaxSleepMicroseconds = 20'000;
constexpr int kFinishedStepOneIn = 4;  // of the rounds, these wait until the first step is done

// The steps of the kill test. Each file takes kStepsPerFile steps; the first
// appends to an empty file, later ones either append after everything stored
// or land among the stored records (a rewrite, one in kRewriteOneIn).
constexpr int kStepsPerFile = 4;
constexpr unsigned int kRecordSize = 24;  // candle records
constexpr int kMaxAppend = 100'000;
constexpr int kRewriteOneIn = 3;
constexpr std::int32_t kBaseTime = 1'000'000'000;
constexpr std::int32_t kTimeStep = 60;
// Each step owns a time span no append can fill, so an append of step j is
// later than everything steps before j stored.
constexpr std::int32_t kStepSpan = (kMaxAppend + 1) * kTimeStep;

constexpr int FileOfStep(int step) { return step / kStepsPerFile; }

// The batch of a step, the same whenever it is made: 10,000 to 100,000
// appended records, or a rewrite of 1,000 to 20,000 records at any second
// from the first stored bar up to its step's span, mostly new times between
// stored bars, some replacing stored ones.
Bytes MakeStep(int step) {
  std::seed_seq seeds{kSeed, static_cast<std::uint32_t>(step)};
  std::mt19937 rng(seeds);
  auto uniform = [&rng](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(rng);
  };
  const int stepInFile = step % kStepsPerFile;
  const std::int32_t start = kBaseTime + stepInFile * kStepSpan;
  std::vector<std::int32_t> times;
  if (stepInFile > 0 && uniform(1, kRewriteOneIn) == 1) {
    times.resize(static_cast<std::size_t>(uniform(1'000, 20'000)));
    for (std::int32_t& time : times) time = uniform(kBaseTime, start - 1);
  } else {
    times = cjdtest::TimesFrom(start, uniform(10'000, kMaxAppend), kTimeStep);
  }
  return cjdtest::MakeRecords(times, kRecordSize, rng);
}

// The child: inserts the steps of its file from `first` on, announcing each
// on `announceFd` before inserting it.
[[noreturn]] void InsertSteps(std::string const& path, int first, int announceFd) {
  {
    std::unique_ptr<WriteAheadLog> log = cjdtest::OpenLog(DirectoryOf(path));
    cjdtest::TestOwner owner(true, nullptr, log.get());
    std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
    for (int step = first; symbol != nullptr && FileOfStep(step) == FileOfStep(first); ++step) {
      Bytes batch = MakeStep(step);
      if (write(announceFd, &step, sizeof(step)) != sizeof(step)) break;
      symbol->InsertData(static_cast<int>(batch.size() / kRecordSize), batch.data());
    }
  }
  _exit(EXIT_SUCCESS);
}

struct Round {
  int lastAnnounced = -1;  // the step under way when the child died; -1: none announced
  bool killed = false;     // false: the child finished its steps
};

// One announced step; false at the end of the pipe. The child writes each in
// one piece, and a pipe delivers such a write whole.
bool ReadAnnouncement(int fd, int& step) { return read(fd, &step, sizeof(step)) == sizeof(step); }

class KillTest : public ::testing::Test {
 protected:
  // A new file, header only, for the file of step_.
  void StartFile() {
    for (auto const& entry : std::filesystem::directory_iterator(dir_.path()))
      std::filesystem::remove(entry);
    path_ = dir_.File("kill" + std::to_string(FileOfStep(step_)) + ".cjd");
    cjdtest::WriteFileBytes(path_, cjdtest::HeaderFields{}.File({}));
    state_.clear();
  }

  // Runs a child from step_, waits for its first announcement (in some rounds
  // its second, so that the sequence moves on however slow the machine) and a
  // random moment after it, and kills it.
  Round RunChild() {
    int fds[2];
    Round round;
    const pid_t pid = pipe(fds) == 0 ? fork() : -1;
    if (pid < 0) return round;  // no step announced: CheckFile fails
    if (pid == 0) {
      close(fds[0]);
      InsertSteps(path_, step_, fds[1]);
    }
    close(fds[1]);
    const bool awaitFinishedStep =
        std::uniform_int_distribution<int>(1, kFinishedStepOneIn)(rng_) == 1;
    if (ReadAnnouncement(fds[0], round.lastAnnounced) && awaitFinishedStep) {
      ReadAnnouncement(fds[0], round.lastAnnounced);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(
        std::uniform_int_distribution<int>(0, kMaxSleepMicroseconds)(rng_)));
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

  // The records after inserting step_ into state_ (NormalizeBatch and
  // MergeRecords are checked against record-by-record insertion elsewhere).
  Bytes AfterStep() const {
    const Bytes batch =
        NormalizeBatch(batch_.data(), static_cast<int>(batch_.size() / kRecordSize), kRecordSize);
    Bytes merged;
    MergeRecords(state_.data(), static_cast<int>(state_.size() / kRecordSize), batch.data(),
                 static_cast<int>(batch.size() / kRecordSize), kRecordSize, merged);
    return merged;
  }

  void Advance(Bytes after) {
    state_ = std::move(after);
    batch_ = MakeStep(++step_);
  }

  // The file as the next writer finds it, its log recovered, holds the
  // records from before or after the step under way; the model moves on to
  // the step the next child starts with.
  void CheckFile(Round const& round) {
    ASSERT_GE(round.lastAnnounced, step_) << "the child announced no step";
    while (step_ < round.lastAnnounced) Advance(AfterStep());
    std::unique_ptr<WriteAheadLog> log = cjdtest::OpenLog(dir_.path().string());
    cjdtest::TestOwner owner(true, nullptr, log.get());
    std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path_);
    ASSERT_NE(symbol, nullptr) << "the header no longer loads";
    const std::int64_t recordBytes =
        symbol->file()->FileSize() - symbol->file()->FirstRecordOffset();
    ASSERT_EQ(recordBytes % kRecordSize, 0) << "a partial record in step " << step_;
    const Bytes records = cjdtest::AllRecords(*symbol);
    ASSERT_TRUE(cjdtest::TimesAscend(records, kRecordSize)) << "disordered in step " << step_;
    if (round.killed && records == state_) return;
    Bytes after = AfterStep();
    ASSERT_TRUE(cjdtest::SameRecords(records, after, kRecordSize)) << "in step " << step_;
    Advance(std::move(after));
  }

  cjdtest::ScratchDir dir_;
  std::string path_;
  Bytes state_;                // the records before step_
  int step_ = 0;               // the next step a child starts with
  Bytes batch_ = MakeStep(0);  // the batch of step_
  std::mt19937 rng_{kSeed};
};

TEST_F(KillTest, FileHoldsTheStateBeforeOrAfterTheInsertUnderWay) {
  int kills = 0;
  for (int file = -1; kills < kKills;) {
    if (FileOfStep(step_) != file) {
      file = FileOfStep(step_);
      StartFile();
    }
    const Round round = RunChild();
    kills += round.killed ? 1 : 0;
    ASSERT_NO_FATAL_FAILURE(CheckFile(round)) << "after kill " << kills;
  }
}

// The inserting process ends in the middle of each write of an append, then
// of a merge, in turn (its checkpoint at exit included), after writing half
// of it.
TEST_F(KillTest, DeathAtEachWriteOfAnAppendOrAMergeLeavesTheStateBeforeOrAfter) {
  const std::string path = dir_.File("death.cjd");
  for (bool rewrite : {false, true}) {
    int point = 1;
    for (; point <= 32; ++point) {  // more writes than one insert makes
      SCOPED_TRACE(std::string(rewrite ? "merge" : "append") + ", died at write " +
                   std::to_string(point));
      const Bytes stored =
          cjdtest::MakeRecords(cjdtest::TimesFrom(kBaseTime, 50, kTimeStep), kRecordSize, rng_);
      const std::int32_t from = kBaseTime + (rewrite ? kTimeStep / 2 : 50 * kTimeStep);
      Bytes batch =
          cjdtest::MakeRecords(cjdtest::TimesFrom(from, 10, kTimeStep), kRecordSize, rng_);
      const Bytes after = cjdtest::MergeByTime(stored, batch, kRecordSize);
      cjdtest::WriteFileBytes(path, cjdtest::HeaderFields{}.File(stored));
      const pid_t pid = fork();
      if (pid == 0) {
        cjdtest::FaultyFileSystem fileSystem;
        std::unique_ptr<WriteAheadLog> log = cjdtest::OpenLog(dir_.path().string(), &fileSystem);
        cjdtest::TestOwner owner(true, &fileSystem, log.get());
        std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
        fileSystem.Arm({.failWrite = point, .writeHalf = true, .dieAtWrite = true});
        if (symbol != nullptr) symbol->InsertData(10, batch.data());
        log->Checkpoint();
        _exit(EXIT_SUCCESS);
      }
      int status = 0;
      waitpid(pid, &status, 0);
      ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
      if (WEXITSTATUS(status) != cjdtest::kDiedAtWrite)
        break;  // the insert made fewer writes and finished
      std::unique_ptr<WriteAheadLog> log = cjdtest::OpenLog(dir_.path().string());
      cjdtest::TestOwner owner(true, nullptr, log.get());
      std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
      ASSERT_NE(symbol, nullptr);
      const Bytes found = cjdtest::AllRecords(*symbol);
      if (found != stored) {
        EXPECT_TRUE(cjdtest::SameRecords(found, after, kRecordSize));
      }
    }
    EXPECT_GT(point, 1) << "the insert made no write";
  }
}

}  // namespace
