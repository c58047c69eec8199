// Faults of the world around the module: a full disk, files that may not be
// written, a file cut short behind the module's back, a configuration folder
// that does not exist. The module keeps answering, logs the failure, and loses
// no record it stored before.
#include <sys/mount.h>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

constexpr char kSmallDiskOptions[] = "size=64k";
constexpr int kFewRecords = 100;       // fits the small disk
constexpr int kManyRecords = 10000;    // does not

// Sets or clears the immutable flag; false when the file system has none.
bool SetImmutable(const fs::path& path, bool on) {
  const std::string command = std::string("chattr ") + (on ? "+i " : "-i ") + "'" + path.string() + "' 2>/dev/null";
  return std::system(command.c_str()) == 0;
}

class DataStoreFaultTest : public DataStoreFixture {
 protected:
  void TearDown() override {
    session_.reset();
    for (const fs::path& path : immutable_) SetImmutable(path, false);
    if (mounted_) umount2(tree_.data().c_str(), MNT_DETACH);
    DataStoreFixture::TearDown();
  }
  bool MountSmallDisk() {
    fs::create_directories(tree_.data());
    mounted_ = mount("tmpfs", tree_.data().c_str(), "tmpfs", 0, kSmallDiskOptions) == 0;
    return mounted_;
  }
  bool MakeImmutable(const fs::path& path) {
    if (!SetImmutable(path, true)) return false;
    immutable_.push_back(path);
    return true;
  }
  std::string Log() const { return ReadBytes(tree_.log()); }

  bool mounted_ = false;            // tmpfs on the data folder
  std::vector<fs::path> immutable_;  // flags to clear
};

TEST_F(DataStoreFaultTest, FullDiskRefusesTheInsertAndKeepsWhatWasStored) {
  if (!MountSmallDisk()) GTEST_SKIP() << "cannot mount a small tmpfs here";
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  const std::vector<Candle> stored = Series(kFewRecords, 1000);
  ASSERT_EQ(ds.insert(handle, stored), 0);
  EXPECT_EQ(ds.insert(handle, Series(kManyRecords, 1000000)), 0);  // answered, not stored
  std::vector<Candle> late = Series(kManyRecords, 2000000);
  ASSERT_EQ(postInsert(handle, late), 0);
  ASSERT_TRUE(sink_.waitFor(1));
  EXPECT_EQ(ds.readAll<Candle>(handle), stored);
  EXPECT_NE(Log().find("append failed"), std::string::npos) << Log();
  const std::vector<Candle> small = Series(10, 3000000);
  ASSERT_EQ(ds.insert(handle, small), 0);  // room for this one
  EXPECT_EQ(ds.count(handle), kFewRecords + 10);
}

TEST_F(DataStoreFaultTest, FileThatMayNotBeWrittenKeepsItsRecords) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  const std::vector<Candle> stored = Series(kFewRecords, 100000);
  ASSERT_EQ(ds.insert(handle, stored), 0);
  ASSERT_EQ(tree_.symbolFiles().size(), 1u);
  if (!MakeImmutable(tree_.symbolFiles().front())) GTEST_SKIP() << "no immutable files here";
  EXPECT_EQ(ds.insert(handle, Series(5, 900000)), 0);  // an append
  EXPECT_EQ(ds.insert(handle, Series(5, 10)), 0);      // a rewrite
  EXPECT_EQ(ds.readAll<Candle>(handle), stored);
  EXPECT_NE(Log().find("append failed"), std::string::npos) << Log();
  EXPECT_NE(Log().find("rewrite failed"), std::string::npos) << Log();
}

TEST_F(DataStoreFaultTest, FolderThatMayNotBeWrittenCreatesNothingAndAnswers) {
  fs::create_directories(tree_.providerFolder());
  if (!MakeImmutable(tree_.providerFolder())) GTEST_SKIP() << "no immutable folders here";
  DataStoreSession& ds = restart();
  HostWord handle = 0;
  ASSERT_EQ(ds.open(SymbolParams{}, &handle), 0);
  EXPECT_EQ(ds.insert(handle, Series(3, 1000)), 0);
  EXPECT_EQ(ds.count(handle), 0);
  EXPECT_TRUE(tree_.symbolFiles().empty());
  EXPECT_NE(Log().find("Cannot create the file of a symbol"), std::string::npos) << Log();
}

TEST_F(DataStoreFaultTest, FileCutShortWhileOpenIsNeitherReadPastNorWrittenInto) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  ASSERT_EQ(ds.insert(handle, Series(kFewRecords, 1000)), 0);
  const fs::path file = tree_.symbolFiles().front();
  fs::resize_file(file, 100);  // inside the header
  EXPECT_EQ(ds.count(handle), 0);
  for (std::int32_t mode : {kNewest, kTimeRange, kOldest}) {
    EXPECT_TRUE(ds.get<Candle>(handle, mode, 10).empty()) << "mode " << mode;
  }
  EXPECT_EQ(ds.insert(handle, Series(3, 5000000)), 0);
  EXPECT_EQ(fs::file_size(file), 100u) << "records written behind a header that is gone";
  EXPECT_NE(Log().find("shorter than its header"), std::string::npos) << Log();
}

TEST_F(DataStoreFaultTest, MissingConfigurationFolderMeansDefaults) {
  fs::remove_all(tree_.config());
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  ASSERT_EQ(ds.insert(handle, Series(3)), 0);
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(3));
  EXPECT_TRUE(fs::exists(tree_.providerFolder()));
}

}  // namespace
}  // namespace datastore_test
