// The write-ahead log: its bytes, changes in place that touch only what they
// change (through a symbolic link, keeping owner and permission bits), reads
// that see pending inserts at once, what recovery refuses to follow, and time
// searches that never read the whole file on the request path.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "Checksum.h"
#include "CjdTestFiles.h"
#include "FaultyFileSystem.h"
#include "LogRecovery.h"

namespace {

using cjdtest::Bytes;

constexpr unsigned int kRecordSize = 24;
constexpr std::int32_t kFirstTime = 1'000'000;
constexpr std::int32_t kStep = 60;
constexpr int kStored = 200;
constexpr mode_t kMode = 0640;
constexpr uid_t kOwner = 4321;

template <typename T>
T At(Bytes const& bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

class WriteAheadLogTest : public ::testing::Test {
 protected:
  std::string Folder() const { return dir_.path().string(); }
  Bytes Records(std::vector<std::int32_t> const& times) {
    return cjdtest::MakeRecords(times, kRecordSize, rng_);
  }
  std::string StoreFile(std::string const& name, int count) {
    stored_ = Records(cjdtest::TimesFrom(kFirstTime, count, kStep));
    const std::string path = dir_.File(name);
    cjdtest::WriteFileBytes(path, cjdtest::HeaderFields{}.File(stored_));
    return path;
  }
  std::vector<wal::Frame> FramesOfLog() {
    std::unique_ptr<RandomAccessFile> file;
    EXPECT_TRUE(
        FileSystem::Default().Open(dir_.File(wal::kLogFileName), OpenMode::ReadOnly, &file).ok());
    wal::LogContents contents;
    EXPECT_TRUE(wal::ReadLog(*file, &contents).ok());
    return contents.frames;
  }
  void WriteLog(std::uint64_t salt, std::vector<wal::Frame> const& frames,
                std::uint64_t chainSeed) {
    const auto header = wal::EncodeHeader(salt);
    Bytes bytes(header.begin(), header.end());
    for (wal::Frame const& frame : frames) {
      chainSeed =
          wal::EncodeFrame(frame, frame.payload.data(), frame.payload.size(), chainSeed, bytes);
    }
    cjdtest::WriteFileBytes(dir_.File(wal::kLogFileName), bytes);
  }

  cjdtest::ScratchDir dir_;
  std::mt19937 rng_{17};
  Bytes stored_;
};

TEST_F(WriteAheadLogTest, HeaderAndFrameBytes) {
  const std::uint64_t salt = 0x0807060504030201ULL;
  const auto header = wal::EncodeHeader(salt);
  const Bytes head(header.begin(), header.end());
  ASSERT_EQ(head.size(), 32u);
  EXPECT_EQ(std::string(head.begin(), head.begin() + 8), "CJDWAL01");
  EXPECT_EQ(At<std::uint32_t>(head, 8), 1u);
  EXPECT_EQ(At<std::uint32_t>(head, 12), 0u);
  EXPECT_EQ(At<std::uint64_t>(head, 16), salt);
  EXPECT_EQ(At<std::uint64_t>(head, 24), Checksum64(head.data(), 24, 0));
  EXPECT_EQ(wal::DecodeHeader(head.data()), salt);

  wal::Frame frame{wal::FrameKind::Write, "Demo/a.cjd", 0x1122, 3, 0, {7, 8, 9}};
  Bytes bytes;
  const std::uint64_t checksum = wal::EncodeFrame(frame, frame.payload.data(), 3, salt, bytes);
  ASSERT_EQ(bytes.size(), 40u + 10 + 3);
  EXPECT_EQ(At<std::uint32_t>(bytes, 0), 1u);
  EXPECT_EQ(At<std::uint32_t>(bytes, 4), 10u);
  EXPECT_EQ(At<std::uint64_t>(bytes, 8), 0x1122u);
  EXPECT_EQ(At<std::uint64_t>(bytes, 16), 3u);
  EXPECT_EQ(At<std::uint64_t>(bytes, 24), 0u);
  EXPECT_EQ(std::string(bytes.begin() + 40, bytes.begin() + 50), "Demo/a.cjd");
  EXPECT_EQ(Bytes(bytes.begin() + 50, bytes.end()), frame.payload);
  std::uint64_t expected = Checksum64(bytes.data(), 32, salt);
  expected = Checksum64(bytes.data() + 40, 10, expected);
  expected = Checksum64(bytes.data() + 50, 3, expected);
  EXPECT_EQ(At<std::uint64_t>(bytes, 32), expected);
  EXPECT_EQ(checksum, expected);
}

// Every kind of insert through a symbolic link: the link stays a link, the
// file keeps its inode, owner and permission bits, and the bytes before the
// first record an insert affects never change.
TEST_F(WriteAheadLogTest, InsertsChangeTheFileInPlaceFromTheirFirstRecordOn) {
  const std::string real = StoreFile("real.cjd", kStored);
  const std::string link = dir_.File("link.cjd");
  std::filesystem::create_symlink(real, link);
  ASSERT_EQ(chmod(real.c_str(), kMode), 0);
  const bool chowned = chown(real.c_str(), kOwner, kOwner) == 0;
  struct stat before {};
  ASSERT_EQ(stat(real.c_str(), &before), 0);
  std::unique_ptr<WriteAheadLog> log = cjdtest::OpenLog(Folder());
  cjdtest::TestOwner owner(true, nullptr, log.get());
  std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, link);
  const std::int32_t last = kFirstTime + (kStored - 1) * kStep;
  const int large = WriteAheadLog::kDirectAppendBytes / kRecordSize + 1;
  const std::vector<std::pair<std::vector<std::int32_t>, int>> inserts = {
      {{last + kStep}, kStored},                                          // a small append
      {cjdtest::TimesFrom(last + 2 * kStep, large, kStep), kStored + 1},  // a large one
      {{last + (large + 1) * kStep}, kStored + large},                    // the newest record again
      {{last + large * kStep + 1}, kStored + large},                      // between the last two
      {{kFirstTime - 1}, 0},                                              // before the first
  };
  Bytes expected = stored_;
  for (auto const& [times, firstAffected] : inserts) {
    Bytes batch = Records(times);
    const Bytes fileBefore = cjdtest::ReadFileBytes(real);
    ASSERT_TRUE(symbol->InsertData(static_cast<int>(times.size()), batch.data()).ok());
    ASSERT_TRUE(log->Checkpoint().ok());
    expected = cjdtest::MergeByTime(expected, batch, kRecordSize);
    const Bytes fileAfter = cjdtest::ReadFileBytes(real);
    const std::size_t unchanged =
        cjdtest::HeaderFields{}.FirstRecord() + std::size_t(firstAffected) * kRecordSize;
    EXPECT_TRUE(std::equal(fileBefore.begin(), fileBefore.begin() + unchanged, fileAfter.begin()));
    EXPECT_TRUE(cjdtest::SameRecords(cjdtest::RecordsOf(real), expected, kRecordSize));
    struct stat after {};
    ASSERT_EQ(stat(real.c_str(), &after), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode & 07777, kMode);
    if (chowned) {
      EXPECT_EQ(after.st_uid, kOwner);
    }
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()), {}), 3)
      << "files other than the data file, its link and the log";
}

// A pending insert is read at once, by every symbol of the file; the file
// itself waits for the checkpoint.
TEST_F(WriteAheadLogTest, PendingInsertsAreReadAtOnceAndTheFileWaitsForTheCheckpoint) {
  const std::string path = StoreFile("a.cjd", kStored);
  const Bytes initial = cjdtest::ReadFileBytes(path);
  std::unique_ptr<WriteAheadLog> log = cjdtest::OpenLog(Folder());
  cjdtest::TestOwner owner(true, nullptr, log.get());
  std::unique_ptr<CSymbol> first = cjdtest::OpenSymbol(owner, path);
  std::unique_ptr<CSymbol> second = cjdtest::OpenSymbol(owner, path);
  ASSERT_EQ(first->file()->GetDataPointIndex(kFirstTime + 5 * kStep),
            5);  // an index to keep in step
  Bytes batch = Records({kFirstTime + 3 * kStep + 1, kFirstTime + kStored * kStep});
  ASSERT_TRUE(second->InsertData(2, batch.data()).ok());
  const Bytes expected = cjdtest::MergeByTime(stored_, batch, kRecordSize);
  EXPECT_TRUE(cjdtest::SameRecords(cjdtest::AllRecords(*first), expected, kRecordSize));
  EXPECT_EQ(first->file()->GetDataPointIndex(kFirstTime + 5 * kStep), 6);
  EXPECT_EQ(cjdtest::ReadFileBytes(path), initial);
  ASSERT_TRUE(log->Checkpoint().ok());
  EXPECT_TRUE(cjdtest::SameRecords(cjdtest::RecordsOf(path), expected, kRecordSize));
  EXPECT_TRUE(FramesOfLog().empty());
}

// Frames of an older log, a torn frame and everything after it, and paths
// that leave the folder are never carried out; an append whose bytes do not
// hold is cut, and what was logged after it is void for every file.
TEST_F(WriteAheadLogTest, RecoveryFollowsOnlySoundFramesInsideTheFolder) {
  const std::string a = StoreFile("a.cjd", kStored);
  const Bytes initialA = cjdtest::ReadFileBytes(a);
  const std::string b = StoreFile("b.cjd", kStored);
  const Bytes initialB = cjdtest::ReadFileBytes(b);
  const Bytes newer = Records({kFirstTime + kStored * kStep});
  const std::uint64_t end = initialA.size();
  const wal::Frame write{wal::FrameKind::Write, "a.cjd", end, kRecordSize, 0, newer};
  const auto frames = [&](std::uint64_t salt, std::uint64_t seed) {
    WriteLog(salt, {write}, seed);
    cjdtest::OpenLog(Folder());
  };
  frames(1, 2);  // chained to another salt: stale
  EXPECT_EQ(cjdtest::ReadFileBytes(a), initialA);
  for (const char* outside : {"../outside.cjd", "/tmp/outside.cjd", "x/../../outside.cjd"}) {
    WriteLog(1, {{wal::FrameKind::Write, outside, 0, 3, 0, {1, 2, 3}}}, 1);
    cjdtest::OpenLog(Folder());
    EXPECT_FALSE(std::filesystem::exists(dir_.path().parent_path() / "outside.cjd")) << outside;
    EXPECT_FALSE(std::filesystem::exists("/tmp/outside.cjd")) << outside;
  }

  Bytes appended = Records({kFirstTime + kStored * kStep, kFirstTime + (kStored + 1) * kStep});
  Bytes onDisk = appended;
  onDisk[kRecordSize + 7] ^= 0xFF;  // the second record never reached the disk whole
  cjdtest::WriteFileBytes(a, cjdtest::Concatenated(initialA, onDisk));
  const wal::Frame intent{wal::FrameKind::AppendIntent, "a.cjd", end, 0, 0, {}};
  const wal::Frame done{wal::FrameKind::AppendDone,
                        "a.cjd",
                        end,
                        appended.size(),
                        wal::ExtentChecksum(appended.data(), appended.size()),
                        {}};
  const wal::Frame later{wal::FrameKind::Write, "b.cjd", end, kRecordSize, 0, newer};
  WriteLog(9, {intent, done, later}, 9);
  RecoveryReport report;
  std::unique_ptr<WriteAheadLog> log;
  ASSERT_TRUE(WriteAheadLog::Open(FileSystem::Default(), Folder(), {}, &log, &report).ok());
  EXPECT_EQ(cjdtest::ReadFileBytes(a), initialA);
  EXPECT_EQ(cjdtest::ReadFileBytes(b), initialB);
  EXPECT_EQ(report.filesCut, 1);
  EXPECT_EQ(report.framesVoided, 1);

  Bytes torn;
  {
    const auto header = wal::EncodeHeader(5);
    torn.assign(header.begin(), header.end());
    const std::uint64_t sum = wal::EncodeFrame(write, newer.data(), newer.size(), 5, torn);
    const wal::Frame toB{wal::FrameKind::Write, "b.cjd", end, kRecordSize, 0, newer};
    wal::EncodeFrame(toB, newer.data(), newer.size(), sum, torn);
    torn.back() ^= 1;  // the second frame's payload is torn
  }
  log.reset();
  cjdtest::WriteFileBytes(dir_.File(wal::kLogFileName), torn);
  cjdtest::OpenLog(Folder());
  EXPECT_EQ(cjdtest::ReadFileBytes(a), cjdtest::Concatenated(initialA, newer));
  EXPECT_EQ(cjdtest::ReadFileBytes(b), initialB);
}

// The first search of a large file reads a small part of it, however many
// records it holds; once the index is complete a search reads one block.
TEST_F(WriteAheadLogTest, TimeSearchesNeverReadTheWholeFile) {
  constexpr int kLarge = 400'000;  // 9.6 MB of records
  const std::string path = StoreFile("large.cjd", kLarge);
  cjdtest::FaultyFileSystem fileSystem;
  cjdtest::TestOwner owner(false, &fileSystem);
  std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner, path);
  std::int64_t mostRead = 0;
  const int searchesToIndex =
      2 * int(std::uint64_t{kLarge} * kRecordSize / CSDTFile::kIndexStepBytes);
  for (int search = 0; search <= searchesToIndex; ++search) {
    fileSystem.Arm({});
    const int index = (search * 7919) % kLarge;
    ASSERT_EQ(symbol->file()->GetDataPointIndex(kFirstTime + index * kStep), index);
    mostRead = std::max(mostRead, fileSystem.bytesRead);
  }
  EXPECT_LE(mostRead, std::int64_t{CSDTFile::kIndexStepBytes + 2 * TimeIndex::kBlockBytes + 4096});
  fileSystem.Arm({});
  symbol->file()->GetDataPointIndex(kFirstTime + 12345 * kStep);
  EXPECT_LE(fileSystem.bytesRead, std::int64_t{TimeIndex::kBlockBytes});
}

}  // namespace
