// The data store's write path through the loaded library: the durability
// settings, the one writer of a data folder, stop and unload putting every
// insert into the files, and stored files the store did not write itself.

#include <gmock/gmock.h>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

using ::testing::HasSubstr;

constexpr char kSymbolFile[] = "EUR%2FUSD_I1_EURUSD.cjd";  // the file of SymbolParams{}
constexpr int kRecords = 40;
constexpr std::uint64_t kCandleHeaderBytes = 2591;  // a new candle file up to its first record
constexpr std::uint64_t kCandleBytes = 24;

class DataStoreDurabilityTest : public DataStoreFixture {
 protected:
  fs::path SymbolFile() const { return tree_.providerFolder() / kSymbolFile; }
  std::uint64_t RecordsOnDisk() const {
    const std::uint64_t size = fs::exists(SymbolFile()) ? fs::file_size(SymbolFile()) : 0;
    return size > kCandleHeaderBytes ? (size - kCandleHeaderBytes) / kCandleBytes : 0;
  }
  std::string Log() const { return ReadBytes(tree_.log()); }
};

// Inserts are read at once; they reach the file at the checkpoint SyncInterval
// names, or at stop, whichever comes first.
TEST_F(DataStoreDurabilityTest, InsertsReachTheFileAtTheSyncIntervalOrAtStop) {
  tree_.writeConfig({"SyncInterval=3600000"});
  restart();
  HostWord handle = open(SymbolParams{});
  ASSERT_EQ(insert(handle, Series(kRecords)), 0);
  EXPECT_EQ(readAll<Candle>(handle), Series(kRecords));
  EXPECT_EQ(RecordsOnDisk(), 0u);
  EXPECT_EQ(send(M::Stop), 0);
  EXPECT_EQ(RecordsOnDisk(), std::uint64_t{kRecords});

  tree_.writeConfig({"SyncInterval=20", "Durability=2"});
  restart();
  handle = open(SymbolParams{});
  ASSERT_EQ(insert(handle, Series(kRecords, kFirstTime + kRecords * kStep)), 0);
  EXPECT_TRUE(WaitUntil([&] { return RecordsOnDisk() == 2 * kRecords; }));
  EXPECT_EQ(Log().find("Durability is"), std::string::npos);
}

TEST_F(DataStoreDurabilityTest, SettingsOutOfRangeAreLoggedAndTheDefaultsUsed) {
  tree_.writeConfig({"Durability=7", "SyncInterval=-5"});
  restart();
  EXPECT_THAT(
      Log(),
      HasSubstr("Durability is 0, 1 or 2 and SyncInterval 1 to 3600000 ms; using 1 and 1000"));
  const HostWord handle = open(SymbolParams{});
  ASSERT_EQ(insert(handle, Series(3)), 0);
  EXPECT_EQ(readAll<Candle>(handle), Series(3));
}

// The worker's checkpoints sync with the data mutex released: reads on the
// host's thread go on meanwhile and always see every record, whole.
TEST_F(DataStoreDurabilityTest, ReadsDuringCheckpointsSeeEveryRecord) {
  constexpr int kUpdates = 300;
  tree_.writeConfig({"SyncInterval=1"});
  restart();
  const HostWord handle = open(SymbolParams{});
  std::vector<Candle> all = Series(kRecords);
  ASSERT_EQ(insert(handle, all), 0);
  for (int update = 0; update < kUpdates; ++update) {
    std::vector<Candle> bar{MakeCandle(all.back().time + kStep, float(update))};
    ASSERT_EQ(postInsert(handle, bar), 0);
    const std::vector<Candle> read = readAll<Candle>(handle);
    ASSERT_GE(read.size(), all.size()) << "update " << update;
    ASSERT_TRUE(std::equal(all.begin(), all.end(), read.begin())) << "update " << update;
    if (update % 10 != 9) continue;  // the bar is formed: it joins the records every read must hold
    ASSERT_TRUE(sink_.waitFor(std::size_t(update) + 1));
    all.push_back(bar[0]);
  }
  EXPECT_EQ(send(M::Stop), 0);
  EXPECT_EQ(RecordsOnDisk(), all.size());
}

// A second copy of the library on the same data folder cannot take its lock:
// it refuses inserts, writes nothing and reads what the writer stores.
TEST_F(DataStoreDurabilityTest, SecondInstanceOnTheFolderOnlyReads) {
  tree_.writeConfig({"SyncInterval=20"});
  restart();
  const HostWord writerHandle = open(SymbolParams{});
  ASSERT_EQ(insert(writerHandle, Series(kRecords)), 0);
  auto writer = std::move(host_);
  restart();
  const HostWord readerHandle = open(SymbolParams{});
  EXPECT_THAT(Log(), HasSubstr("another writer holds the data folder"));
  EXPECT_EQ(insert(readerHandle, Series(3, 1)), 1);
  EXPECT_THAT(Log(), HasSubstr("Insert refused (1 so far)"));
  EXPECT_TRUE(WaitUntil([&] { return count(readerHandle) == kRecords; }));
  EXPECT_EQ(readAll<Candle>(readerHandle), Series(kRecords));
  EXPECT_EQ(writer->send(M::Stop, 0, 0), 0);
  EXPECT_EQ(RecordsOnDisk(), std::uint64_t{kRecords});
}

// A store that may not write opens a symbol whose file it did not register at
// start-up (the host switched its data source): it reads the file's records
// where the file's own header puts them.
TEST_F(DataStoreDurabilityTest, ReadOnlyStoreReadsAFileItDidNotRegisterAtItsRecords) {
  restart("Other");
  ASSERT_EQ(insert(open(SymbolParams{.provider = "Other"}), Series(kRecords)), 0);
  tree_.writeConfig({"EnableWrite=0"});
  restart();
  host_->setDataSource("Other");
  const HostWord handle = open(SymbolParams{.provider = "Other"});
  EXPECT_EQ(readAll<Candle>(handle), Series(kRecords));
}

// A stored file that exists and does not load is never written over: its
// symbol is refused, the file named in the log and left as it was.
TEST_F(DataStoreDurabilityTest, FileThatDoesNotLoadIsNeverOverwritten) {
  fs::create_directories(tree_.providerFolder());
  const std::string damaged(3000, '\x5A');
  { std::ofstream(SymbolFile(), std::ios::binary) << damaged; }
  restart();
  HostWord handle = 0;
  EXPECT_EQ(open(SymbolParams{}, &handle), 1);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(ReadBytes(SymbolFile()), damaged);
  EXPECT_THAT(Log(), HasSubstr(SymbolFile().string()));
  EXPECT_THAT(Log(), HasSubstr("the file is left as it is"));
}

}  // namespace
}  // namespace datastore_test
