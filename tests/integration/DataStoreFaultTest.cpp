// Faults of the world around the module: a full disk, files that may not be
// written, a file cut short behind the module's back, a configuration folder
// that does not exist. The module keeps answering, logs the failure, and loses
// no record it stored before.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

using ::testing::HasSubstr;

constexpr int kFewRecords = 100;     // fits the small disk
constexpr int kManyRecords = 10000;  // does not

// Sets ("+i") or clears ("-i") the immutable flag; false when the file system has none.
bool Chattr(const char* flag, const fs::path& path) {
  return std::system(
             (std::string("chattr ") + flag + " '" + path.string() + "' 2>/dev/null").c_str()) == 0;
}

class DataStoreFaultTest : public DataStoreFixture {
 protected:
  void TearDown() override {
    host_.reset();
    if (!immutable_.empty()) Chattr("-i", immutable_);
    if (mounted_) umount2(tree_.data().c_str(), MNT_DETACH);
    DataStoreFixture::TearDown();
  }
  bool MakeImmutable(const fs::path& path) {
    immutable_ = path;
    return Chattr("+i", path);
  }
  std::string Log() const { return ReadBytes(tree_.log()); }

  bool mounted_ = false;  // a small tmpfs on the data folder
  fs::path immutable_;    // a flag to clear
};

TEST_F(DataStoreFaultTest, FullDiskRefusesTheInsertAndKeepsWhatWasStored) {
  fs::create_directories(tree_.data());
  mounted_ = mount("tmpfs", tree_.data().c_str(), "tmpfs", 0, "size=64k") == 0;
  if (!mounted_) GTEST_SKIP() << "cannot mount a small tmpfs here";
  restart();
  const HostWord handle = open(SymbolParams{});
  const std::vector<Candle> stored = Series(kFewRecords, 1000);
  ASSERT_EQ(insert(handle, stored), 0);
  EXPECT_EQ(insert(handle, Series(kManyRecords, 1000000)), 1);  // not stored
  std::vector<Candle> late = Series(kManyRecords, 2000000);
  ASSERT_EQ(postInsert(handle, late), 0);
  ASSERT_TRUE(sink_.waitFor(1));
  EXPECT_EQ(readAll<Candle>(handle), stored);
  EXPECT_THAT(Log(), HasSubstr("No space left on device"));
  ASSERT_EQ(insert(handle, Series(10, 3000000)), 0);  // room for this one
  EXPECT_EQ(count(handle), kFewRecords + 10);
}

// Inserts into a file that may not be written are refused at once; records
// that were waiting for their checkpoint when the file became so stay
// visible and pending, and each checkpoint names the file.
TEST_F(DataStoreFaultTest, FileThatMayNotBeWrittenKeepsItsRecords) {
  restart();
  HostWord handle = open(SymbolParams{});
  const std::vector<Candle> stored = Series(kFewRecords, 100000);
  ASSERT_EQ(insert(handle, stored), 0);
  ASSERT_EQ(tree_.symbolFiles().size(), 1u);
  const fs::path file = tree_.symbolFiles().front();
  restart();  // the records reach the file
  handle = open(SymbolParams{});
  if (!MakeImmutable(file)) GTEST_SKIP() << "no immutable files here";
  EXPECT_EQ(insert(handle, Series(5, 900000)), 1);  // an append
  EXPECT_EQ(insert(handle, Series(5, 10)), 1);      // a merge
  EXPECT_EQ(readAll<Candle>(handle), stored);
  EXPECT_THAT(Log(), HasSubstr(file.string() + ": Operation not permitted"));

  Chattr("-i", file);
  const std::vector<Candle> later = Series(5, 900000);
  ASSERT_EQ(insert(handle, later), 0);
  MakeImmutable(file);
  std::vector<Candle> all = stored;
  all.insert(all.end(), later.begin(), later.end());
  host_.reset();  // unload: the last checkpoint cannot write the file
  EXPECT_EQ(ReadBytes(file).size(), fs::file_size(file));
  EXPECT_THAT(Log(), HasSubstr("open " + file.string()));
  Chattr("-i", file);
  restart();  // the log still holds them
  EXPECT_EQ(readAll<Candle>(open(SymbolParams{})), all);
}

TEST_F(DataStoreFaultTest, FolderThatMayNotBeWrittenCreatesNothingAndAnswers) {
  fs::create_directories(tree_.providerFolder());
  if (!MakeImmutable(tree_.providerFolder())) GTEST_SKIP() << "no immutable folders here";
  restart();
  HostWord handle = 0;
  EXPECT_EQ(open(SymbolParams{}, &handle), 1);
  EXPECT_EQ(handle, 0u);
  EXPECT_TRUE(tree_.symbolFiles().empty());
  EXPECT_THAT(Log(), HasSubstr("Cannot create the file of a symbol"));
}

TEST_F(DataStoreFaultTest, FileCutShortWhileOpenIsNeitherReadPastNorWrittenInto) {
  restart();
  ASSERT_EQ(insert(open(SymbolParams{}), Series(kFewRecords, 1000)), 0);
  restart();  // the records reach the file
  const HostWord handle = open(SymbolParams{});
  ASSERT_EQ(count(handle), kFewRecords);
  const fs::path file = tree_.symbolFiles().front();
  fs::resize_file(file, 100);  // inside the header
  EXPECT_EQ(count(handle), 0);
  for (std::int32_t mode : {kGetNewest, kGetTimeRange, kGetOldest}) {
    EXPECT_TRUE(get<Candle>(handle, mode, 10).empty()) << "mode " << mode;
  }
  EXPECT_EQ(insert(handle, Series(3, 5000000)), 1);
  EXPECT_EQ(fs::file_size(file), 100u) << "records written behind a header that is gone";
  EXPECT_THAT(Log(), HasSubstr("shorter than its header"));
}

TEST_F(DataStoreFaultTest, MissingConfigurationFolderMeansDefaults) {
  fs::remove_all(tree_.config());
  restart();
  const HostWord handle = open(SymbolParams{});
  ASSERT_EQ(insert(handle, Series(3)), 0);
  EXPECT_EQ(readAll<Candle>(handle), Series(3));
  EXPECT_TRUE(fs::exists(tree_.providerFolder()));
}

}  // namespace
}  // namespace datastore_test
