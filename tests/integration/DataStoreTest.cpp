// The data store through the loaded library: configuration, the registry of
// symbols, posted requests and their worker, game mode, hostile input, stop.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <future>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

namespace M = HostMessage;

constexpr float kChangedTag = 50;            // tag of records that replace or follow stored ones
constexpr unsigned char kScribble = 0xEE;    // overwrites a caller's buffer after posting
constexpr std::int32_t kLargeCapacity = 10;  // more than any test stores
constexpr char kSymbolFile[] = "EUR%2FUSD_I1_EURUSD.cjd";  // the file of SymbolParams{}

std::vector<Candle> Changed(int count) { return Series(count, kFirstTime, kChangedTag); }

std::vector<fs::path> Names(const std::vector<fs::path>& paths) {
  std::vector<fs::path> names;
  for (const fs::path& path : paths) names.push_back(path.filename());
  return names;
}

// ---------------------------------------------------------------------------
// Configuration: pelto.cfg in the host's configuration folder.

using DataStoreConfigTest = DataStoreFixture;

struct DataFolderCase {
  const char* pathData;  // the PathData value, none if null; a leading '/' lies under the root
  const char* store;     // the folder under the root that gets the provider folder
};

class DataStoreDataFolderTest : public DataStoreFixture,
                                public ::testing::WithParamInterface<DataFolderCase> {};

// A value that begins with a tilde names the host's data folder, whatever
// follows; an absolute one gets the provider folder with its parents.
TEST_P(DataStoreDataFolderTest, SymbolsAreStoredInTheConfiguredFolderOnly) {
  const DataFolderCase& c = GetParam();
  if (c.pathData != nullptr) {
    const std::string under = c.pathData[0] == '/' ? tree_.root().string() : "";
    tree_.writeConfig({"PathData=" + under + c.pathData});
  }
  DataStoreSession& ds = restart();
  const fs::path store = tree_.root() / c.store;
  EXPECT_TRUE(fs::is_directory(store / kProvider));
  const HostWord handle = ds.open(SymbolParams{});
  EXPECT_EQ(ds.insert(handle, Series(2)), 0);
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(2));
  EXPECT_EQ(tree_.symbolFiles(), std::vector<fs::path>{store / kProvider / kSymbolFile});
  EXPECT_EQ(tree_.entriesOutside({store}), std::vector<fs::path>{});
}

INSTANTIATE_TEST_SUITE_P(
    Values, DataStoreDataFolderTest,
    ::testing::Values(DataFolderCase{nullptr, "data"}, DataFolderCase{"~", "data"},
                      DataFolderCase{"~/x", "data"},
                      DataFolderCase{"/elsewhere/deep/store", "elsewhere/deep/store"}));

// Writes disabled: nothing is created, inserts are answered and dropped, and
// what was stored before stays as it was.
TEST_F(DataStoreConfigTest, WritesDisabledCreateNothingAndKeepWhatWasStored) {
  tree_.writeConfig({"PathData=~", "EnableWrite=0"});
  DataStoreSession& off = restart();
  EXPECT_EQ(tree_.entriesOutside({}), std::vector<fs::path>{});
  HostWord handle = off.open(SymbolParams{});
  EXPECT_EQ(off.insert(handle, Series(2)), 0);
  std::vector<Candle> posted = Series(1);
  EXPECT_EQ(postInsert(handle, posted), 0);
  EXPECT_EQ(off.count(handle), 0);
  EXPECT_EQ(tree_.symbolFiles(), std::vector<fs::path>{});

  tree_.writeConfig({});
  DataStoreSession& on = restart();
  on.insert(on.open(SymbolParams{}), Series(3));
  session_.reset();
  const std::vector<fs::path> files = tree_.symbolFiles();
  ASSERT_EQ(files.size(), 1u);
  const std::string stored = ReadBytes(files[0]);

  tree_.writeConfig({"EnableWrite=0"});
  DataStoreSession& ds = restart();
  handle = ds.open(SymbolParams{});
  EXPECT_EQ(ds.insert(handle, Changed(5)), 0);
  posted = Changed(4);
  EXPECT_EQ(postInsert(handle, posted), 0);
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(3));
  session_.reset();
  EXPECT_EQ(ReadBytes(files[0]), stored);
  EXPECT_TRUE(sink_.completions().empty());
}

// ---------------------------------------------------------------------------
// The registry: symbols stored before start-up, keys, names and periods.

using DataStoreRegistryTest = DataStoreFixture;

// Stored symbols are found by what their files hold, not by the file names;
// a file with an upper-case suffix and a folder are no symbol files.
TEST_F(DataStoreRegistryTest, SymbolsStoredBeforeStartUpAreRegisteredFromTheirFiles) {
  const SymbolParams ticks{.length = 0};
  const std::vector<Tick> tickData = {{100, 1.5f, 10}, {160, 1.25f, 20}};
  DataStoreSession& first = restart();
  EXPECT_EQ(first.insert(first.open(SymbolParams{}), Series(3)), 0);
  EXPECT_EQ(first.insert(first.open(ticks), tickData), 0);
  session_.reset();
  const fs::path folder = tree_.providerFolder();
  fs::rename(folder / kSymbolFile, folder / "renamed.cjd");
  fs::copy_file(folder / "EUR%2FUSD_I0_EURUSD.cjd", folder / "A.CJD");  // sorts first
  fs::create_directory(folder / "B.cjd");
  const std::string upperCase = ReadBytes(folder / "A.CJD");

  DataStoreSession& ds = restart();
  EXPECT_EQ(ds.readAll<Candle>(ds.open(SymbolParams{})), Series(3));
  const HostWord tickHandle = ds.open(ticks);
  std::vector<Tick> expected = tickData;
  expected.push_back({220, 1.75f, 30});
  EXPECT_EQ(ds.insert(tickHandle, std::vector<Tick>{expected.back()}), 0);
  EXPECT_EQ(ds.readAll<Tick>(tickHandle), expected);
  EXPECT_EQ(ReadBytes(folder / "A.CJD"), upperCase);
  EXPECT_EQ(Names(tree_.symbolFiles()),
            (std::vector<fs::path>{"EUR%2FUSD_I0_EURUSD.cjd", "renamed.cjd"}));
}

// A stored symbol is registered under the provider folder exactly as the
// module spells it: another spelling of the same folder is another key, and
// two keys of one file see each other's writes, a rewrite of earlier records
// (a rename of a new file over the old one) included.
TEST_F(DataStoreRegistryTest, TwoSpellingsOfTheProviderFolderAreTwoKeysOfOneFile) {
  DataStoreSession& first = restart();
  first.insert(first.open(SymbolParams{}), Series(3));

  DataStoreSession& ds = restart();
  HostWord stored = 0, slashed = 0;
  ASSERT_EQ(ds.openPath(SymbolParams{}, tree_.providerFolder(), &stored), 0);
  EXPECT_EQ(ds.open(SymbolParams{}), stored);
  ASSERT_EQ(ds.openPath(SymbolParams{}, tree_.providerFolder().string() + "/", &slashed), 0);
  EXPECT_NE(slashed, stored);
  EXPECT_EQ(ds.readAll<Candle>(slashed), Series(3));
  std::vector<Candle> expected = Series(5);
  ds.insert(slashed, std::vector<Candle>{expected[3]});
  EXPECT_EQ(ds.readAll<Candle>(stored), Series(4));
  const Candle earlier = MakeCandle(kFirstTime - kStep, kChangedTag);
  ds.insert(slashed, std::vector<Candle>{earlier});  // lands before the stored records
  ds.insert(stored, std::vector<Candle>{expected[4]});
  expected.insert(expected.begin(), earlier);
  EXPECT_EQ(ds.readAll<Candle>(stored), expected);
  EXPECT_EQ(ds.readAll<Candle>(slashed), expected);
  EXPECT_EQ(tree_.symbolFiles().size(), 1u);

  DataStoreSession& again = restart();
  EXPECT_EQ(again.readAll<Candle>(again.open(SymbolParams{})), expected);
}

// A symbol opened again is the same handle and file; the length separates
// intraday symbols only.
TEST_F(DataStoreRegistryTest, TheLengthSeparatesIntradaySymbolsOnly) {
  DataStoreSession& ds = restart();
  const HostWord one = ds.open(SymbolParams{.length = 1});
  EXPECT_EQ(ds.open(SymbolParams{.length = 1}), one);
  const HostWord five = ds.open(SymbolParams{.length = 5});
  EXPECT_NE(one, five);
  ds.insert(one, Series(1));
  EXPECT_EQ(ds.count(five), 0);
  const HostWord daily = ds.open(SymbolParams{.kind = 'D', .length = 1});
  EXPECT_EQ(ds.open(SymbolParams{.kind = 'D', .length = 5}), daily);
  EXPECT_EQ(Names(tree_.symbolFiles()),
            (std::vector<fs::path>{"EUR%2FUSD_D_EURUSD.cjd", kSymbolFile,
                                   "EUR%2FUSD_I5_EURUSD.cjd"}));
}

// ---------------------------------------------------------------------------
// Posted requests, their completion calls and the worker that serves them.

using DataStoreWorkerTest = DataStoreFixture;

// The caller's request and records are its own again once posted: the worker
// completes with the module's copies.
TEST_F(DataStoreWorkerTest, PostedRequestsCompleteOnTheWorkerWithTheirOwnCopies) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  std::vector<Candle> points = Series(5);
  INSERT_SYMBOL_DATA_REQUEST insert = InsertRequest(handle, points);
  sink_.attach(insert);
  ASSERT_EQ(ds.send(M::InsertDataPost, Arg(&insert)), 0);
  std::memset(points.data(), kScribble, points.size() * sizeof(Candle));
  std::memset(&insert, kScribble, sizeof insert);
  ASSERT_TRUE(sink_.waitFor(1));
  std::vector<Candle> buffer(3);
  std::memset(buffer.data(), kScribble, buffer.size() * sizeof(Candle));
  const std::vector<Candle> untouched = buffer;
  GET_SYMBOL_DATA_REQUEST get = GetRequest(handle, kNewest, buffer);
  sink_.attach(get);
  ASSERT_EQ(ds.send(M::GetDataPost, Arg(&get)), 0);
  ASSERT_TRUE(sink_.waitFor(2));

  const auto done = sink_.completions();
  EXPECT_EQ(done[0].message, kInsertDone);
  EXPECT_NE(done[0].thread, std::this_thread::get_id());
  EXPECT_NE(done[0].address, Arg(&insert));
  EXPECT_EQ(done[0].b, 0);
  EXPECT_EQ(Unpacked(done[0].insert.handle), handle);
  EXPECT_EQ(Unpacked(done[0].insert.number), 5);
  EXPECT_NE(Unpacked(done[0].insert.data), reinterpret_cast<HostWord>(points.data()));
  EXPECT_EQ(Unpacked(done[0].insert.completionContext), sink_.context());
  EXPECT_EQ(Unpacked(done[0].insert.completionCode), kInsertDone);
  EXPECT_EQ(done[0].points, Series(5));
  EXPECT_EQ(done[1].message, kGetDone);
  EXPECT_NE(done[1].thread, std::this_thread::get_id());
  EXPECT_NE(done[1].address, Arg(&get));
  EXPECT_EQ(Unpacked(done[1].get.handle), handle);
  EXPECT_EQ(Unpacked(done[1].get.mode), kNewest);
  EXPECT_EQ(Unpacked(done[1].get.count), 3);
  EXPECT_NE(Unpacked(done[1].get.buffer), reinterpret_cast<HostWord>(buffer.data()));
  EXPECT_EQ(Unpacked(done[1].get.completionContext), sink_.context());
  EXPECT_EQ(done[1].points, Series(3, kFirstTime + 2 * kStep));
  EXPECT_EQ(Unpacked(get.count), 3);
  EXPECT_EQ(buffer, untouched);
  EXPECT_TRUE(ds.host().calls(kInsertDone).empty());  // not the module's own host context
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(5));
}

// A request asks for its completion call with both a context and a code.
TEST_F(DataStoreWorkerTest, RequestsWithoutBothCompletionFieldsAreServedSilently) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  const std::pair<HostWord, unsigned int> kSilent[] = {
      {0, 0}, {sink_.context(), 0}, {0, kInsertDone}};
  std::vector<Candle> points[std::size(kSilent)];
  for (std::size_t i = 0; i < std::size(kSilent); ++i) {
    points[i] = {MakeCandle(kFirstTime + int(i) * kStep)};
    INSERT_SYMBOL_DATA_REQUEST insert = InsertRequest(handle, points[i]);
    insert.completionContext = kSilent[i].first;
    insert.completionCode = kSilent[i].second;
    ASSERT_EQ(ds.send(M::InsertDataPost, Arg(&insert)), 0);
    std::vector<Candle> buffer(1);
    GET_SYMBOL_DATA_REQUEST get = GetRequest(handle, kOldest, buffer);
    get.completionContext = kSilent[i].first;
    get.completionCode = kSilent[i].second == 0 ? 0 : kGetDone;
    ASSERT_EQ(ds.send(M::GetDataPost, Arg(&get)), 0);
  }
  std::vector<Candle> last = {Series(4).back()};  // each queue keeps its order: served after them
  ASSERT_EQ(postInsert(handle, last), 0);
  ASSERT_TRUE(sink_.waitFor(1));
  std::vector<Candle> buffer(kLargeCapacity);
  ASSERT_EQ(postGet(handle, kOldest, buffer), 0);
  ASSERT_TRUE(sink_.waitFor(2));

  const auto done = sink_.completions();
  ASSERT_EQ(done.size(), 2u);
  EXPECT_EQ(done[0].message, kInsertDone);
  EXPECT_EQ(done[1].message, kGetDone);
  EXPECT_EQ(done[1].points, Series(4));  // no more than are stored
}

// Gets are served before inserts once both wait; each queue in posting order.
TEST_F(DataStoreWorkerTest, QueuedGetsAreServedBeforeAQueuedInsert) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  ds.insert(handle, Series(1));
  std::vector<Candle> holder(1), oldest(kLargeCapacity), newest(kLargeCapacity);
  std::vector<Candle> later = {MakeCandle(kFirstTime + kStep, kChangedTag)};
  sink_.holdNext();
  ASSERT_EQ(postGet(handle, kOldest, holder), 0);
  ASSERT_TRUE(sink_.waitHeld());
  ASSERT_EQ(postInsert(handle, later), 0);
  ASSERT_EQ(postGet(handle, kOldest, oldest), 0);
  ASSERT_EQ(postGet(handle, kNewest, newest), 0);
  sink_.release();
  ASSERT_TRUE(sink_.waitFor(4));

  const auto done = sink_.completions();
  ASSERT_EQ(done.size(), 4u);
  EXPECT_EQ(done[1].message, kGetDone);
  EXPECT_EQ(Unpacked(done[1].get.mode), kOldest);
  EXPECT_EQ(done[1].points, Series(1));
  EXPECT_EQ(done[2].message, kGetDone);
  EXPECT_EQ(Unpacked(done[2].get.mode), kNewest);
  EXPECT_EQ(done[2].points, Series(1));
  EXPECT_EQ(done[3].message, kInsertDone);
  for (const auto& completion : done) EXPECT_EQ(completion.thread, done[0].thread);
  EXPECT_EQ(ds.readAll<Candle>(handle), (std::vector<Candle>{Series(1)[0], later[0]}));
}

// Stop: the event first, then the request being served is finished, the
// queued ones are dropped and the worker is gone.
TEST_F(DataStoreWorkerTest, StopFinishesTheServedRequestAndDropsTheQueuedOnes) {
  const int threadsBefore = BaselineThreadCount();
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  std::vector<Candle> served = Series(1), dropped = Changed(2), buffer(1);
  sink_.holdNext();
  ASSERT_EQ(postInsert(handle, served), 0);
  ASSERT_TRUE(sink_.waitHeld());
  ASSERT_EQ(postGet(handle, kOldest, buffer), 0);
  ASSERT_EQ(postInsert(handle, dropped), 0);

  std::promise<pid_t> stopperId;
  std::future<int> stopped = std::async(std::launch::async, [&] {
    stopperId.set_value(::gettid());
    return ds.send(M::Stop);
  });
  const pid_t stopper = stopperId.get_future().get();
  EXPECT_TRUE(WaitUntil([&] { return !ds.host().emits().empty(); }));
  EXPECT_TRUE(WaitUntil([&] { return ThreadSleeps(stopper); }));  // waiting for the worker
  sink_.release();  // whatever happened: the stop cannot end while the worker is held
  EXPECT_EQ(stopped.get(), 0);

  const auto emits = ds.host().emits();
  ASSERT_EQ(emits.size(), 1u);
  ASSERT_EQ(ds.host().createdEvents().size(), 1u);
  EXPECT_EQ(ds.host().createdEvents()[0].name, kDataStoreEvent);
  EXPECT_EQ(emits[0].handle, ds.host().createdEvents()[0].handle);
  EXPECT_EQ(Unpacked(emits[0].event.sender), kModuleId);
  EXPECT_TRUE(WaitUntil([&] { return ThreadCount() == threadsBefore; }));
  EXPECT_EQ(sink_.completions().size(), 1u);
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(1));
  session_.reset();
  EXPECT_EQ(sink_.completions().size(), 1u);
  EXPECT_EQ(ThreadCount(), threadsBefore);
}

TEST_F(DataStoreWorkerTest, RequestsPostedAfterStopAreNeverServed) {
  const int threadsBefore = BaselineThreadCount();
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  ds.insert(handle, Series(1));
  EXPECT_EQ(ds.send(M::Stop), 0);
  EXPECT_TRUE(WaitUntil([&] { return ThreadCount() == threadsBefore; }));

  std::vector<Candle> points = Changed(2), buffer(1);
  EXPECT_EQ(postInsert(handle, points), 0);
  EXPECT_EQ(postGet(handle, kOldest, buffer), 0);
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(1));
  session_.reset();
  EXPECT_TRUE(sink_.completions().empty());
  EXPECT_EQ(ThreadCount(), threadsBefore);
}

// ---------------------------------------------------------------------------
// Game mode: events of "Quendal Game Mode" addressed to the module.

class DataStoreGameModeTest : public DataStoreFixture {
 protected:
  int event(HostWord hostId, HostWord module, std::int32_t code) {
    INCOMING_EVENT_RECORD record{};
    record.addressedHostId = hostId;
    record.addressedModule = module;
    record.eventCode = code;
    return session_->host().raiseEventRaw(record);
  }
  int eventToModule(std::int32_t code) { return event(kModuleId, session_->moduleAddress(), code); }
  // Whether 6001 fills the handle.
  bool opens() {
    HostWord handle = 0;
    return session_->open(SymbolParams{}, &handle) == 0 && handle != 0;
  }
};

TEST_F(DataStoreGameModeTest, SymbolRequestsDoNothingUntilGameModeEnds) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  ds.insert(handle, Series(1));
  ASSERT_EQ(eventToModule(kEventGameModeStarts), 0);

  HostWord unfilled = 0;
  EXPECT_EQ(ds.open(SymbolParams{.name = u"GBP/USD"}, &unfilled), 0);
  EXPECT_EQ(ds.openPath(SymbolParams{}, tree_.providerFolder(), &unfilled), 0);
  EXPECT_EQ(unfilled, 0u);
  std::vector<Candle> changed = Changed(2);
  EXPECT_EQ(ds.insert(handle, changed), 0);
  EXPECT_EQ(postInsert(handle, changed), 0);
  const std::vector<Candle> untouched(kLargeCapacity, MakeCandle(0, kChangedTag));
  std::vector<Candle> buffer = untouched;
  EXPECT_EQ(postGet(handle, kOldest, buffer), 0);
  GET_SYMBOL_DATA_REQUEST get = GetRequest(handle, kOldest, buffer);
  EXPECT_EQ(ds.send(M::GetDataSend, Arg(&get)), 0);
  EXPECT_EQ(ds.send(M::GetDataCountSend, Arg(&get)), 0);
  EXPECT_EQ(Unpacked(get.count), kLargeCapacity);
  EXPECT_EQ(buffer, untouched);

  ASSERT_EQ(eventToModule(kEventGameModeEnds), 0);
  EXPECT_TRUE(opens());
  std::vector<Candle> marker = {Series(2).back()};
  ASSERT_EQ(postInsert(handle, marker), 0);  // served after anything queued before it
  ASSERT_TRUE(sink_.waitFor(1));
  EXPECT_EQ(sink_.completions()[0].points, marker);
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(2));
  EXPECT_EQ(tree_.symbolFiles().size(), 1u);
}

// The module subscribes with its id and address; events addressed to anyone
// else change nothing.
TEST_F(DataStoreGameModeTest, OnlyEventsAddressedToTheModuleSwitchIt) {
  DataStoreSession& ds = restart();
  const auto subscriptions = ds.host().subscriptions();
  ASSERT_EQ(subscriptions.size(), 1u);
  EXPECT_EQ(subscriptions[0].name, kGameModeEvent);
  EXPECT_EQ(subscriptions[0].moduleHandle, kModuleId);
  EXPECT_EQ(subscriptions[0].module, ds.moduleAddress());
  EXPECT_EQ(event(kModuleId + 1, ds.moduleAddress(), kEventGameModeStarts), 1);
  EXPECT_TRUE(opens());
  EXPECT_EQ(event(kModuleId, ds.moduleAddress() + 1, kEventGameModeStarts), 0);
  EXPECT_TRUE(opens());

  ASSERT_EQ(eventToModule(kEventGameModeStarts), 0);
  EXPECT_EQ(event(kModuleId + 1, ds.moduleAddress(), kEventGameModeEnds), 1);
  EXPECT_EQ(event(kModuleId, ds.moduleAddress() + 1, kEventGameModeEnds), 0);
  EXPECT_FALSE(opens());
  EXPECT_EQ(ds.host().raiseEvent(kGameModeEvent, kEventGameModeEnds), 1);
  EXPECT_TRUE(opens());
}

// ---------------------------------------------------------------------------
// Hostile input: nothing a caller sends reaches memory or files it should not.
using DataStoreBadInputTest = DataStoreFixture;

TEST_F(DataStoreBadInputTest, NullRecordsAreRefused) {
  DataStoreSession& ds = restart();
  for (unsigned int message = M::OpenSymbol; message <= M::OpenSymbolPath; ++message) {
    EXPECT_EQ(ds.send(message, 0, 0), 1) << message;
  }
  SYMBOL_NAME_PERIOD symbol = ToRecord(SymbolParams{});
  SYMBOL_NAME_PERIOD_PATH withPath = ToRecord(SymbolParams{}, tree_.providerFolder());
  EXPECT_EQ(ds.send(M::OpenSymbol, Arg(&symbol), 0), 1);
  EXPECT_EQ(ds.send(M::OpenSymbolPath, Arg(&withPath), 0), 1);
  EXPECT_EQ(tree_.symbolFiles(), std::vector<fs::path>{});
}

// Refused where a refusal can be answered; a posted insert is answered 0 and
// logged. Either way nothing is read or written through such a handle.
TEST_F(DataStoreBadInputTest, HandlesNeverReturnedTouchNothing) {
  DataStoreSession& ds = restart();
  const HostWord real = ds.open(SymbolParams{});
  Candle local = MakeCandle(kFirstTime);
  const Candle localBefore = local;
  const HostWord never = reinterpret_cast<HostWord>(&local);
  for (HostWord handle : {never, HostWord{0}}) {
    std::vector<Candle> points = Series(2);
    INSERT_SYMBOL_DATA_REQUEST insert = InsertRequest(handle, points);
    EXPECT_EQ(ds.send(M::InsertDataSend, Arg(&insert)), 1);
    for (unsigned int message : {M::GetDataSend, M::GetDataPost, M::GetDataCountSend}) {
      std::vector<Candle> buffer(2, local);
      GET_SYMBOL_DATA_REQUEST get = GetRequest(handle, kOldest, buffer);
      sink_.attach(get);
      EXPECT_EQ(ds.send(message, Arg(&get)), 1) << message;
      EXPECT_EQ(Unpacked(get.count), 2);
      EXPECT_EQ(buffer, std::vector<Candle>(2, local));
    }
  }
  std::vector<Candle> points = Series(2);
  EXPECT_EQ(postInsert(never, points), 0);
  const std::string log = ReadBytes(tree_.log());
  EXPECT_NE(log.find(" Error in CDataStoreModule::InsertSymbolDataPost CP2"), std::string::npos)
      << log;

  std::vector<Candle> marker = Series(1), buffer(1);
  ASSERT_EQ(postInsert(real, marker), 0);  // each served after anything queued before it
  ASSERT_EQ(postGet(real, kOldest, buffer), 0);
  ASSERT_TRUE(sink_.waitFor(2));
  const auto done = sink_.completions();
  ASSERT_EQ(done.size(), 2u);
  for (const auto& c : done) {
    EXPECT_EQ(c.message == kGetDone ? Unpacked(c.get.handle) : Unpacked(c.insert.handle), real);
  }
  EXPECT_EQ(local, localBefore);
  EXPECT_EQ(ds.readAll<Candle>(real), Series(1));
}

// A posted get delivers at most its count; a bad mode or a negative count
// delivers nothing. The module's copy of the request must keep these checks.
TEST_F(DataStoreBadInputTest, GetsNeverDeliverMoreThanTheyAskFor) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  const std::vector<Candle> stored = Series(5);
  ds.insert(handle, stored);
  const Candle pattern = MakeCandle(0, kChangedTag);
  const struct {
    std::int32_t mode;
    std::int32_t count;
    std::vector<Candle> delivered;
  } kCases[] = {
      {kTimeRange, 2, {stored[0], stored[1]}},  // the whole range would be five
      {kOldest, -3, {}},
      {kNewest, -1, {}},
      {kOldest + 1, 2, {}},
      {kNewest - 1, 2, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " count " << c.count);
    std::vector<Candle> buffer(std::max(c.count, 1), pattern);
    GET_SYMBOL_DATA_REQUEST get = GetRequest(handle, c.mode, buffer);
    get.count = c.count;
    get.firstTime = 0;
    get.lastTime = kEveryRecord;
    const std::size_t before = sink_.completions().size();
    sink_.attach(get);
    ASSERT_EQ(ds.send(M::GetDataPost, Arg(&get)), 0);
    ASSERT_TRUE(sink_.waitFor(before + 1));
    EXPECT_EQ(sink_.completions().back().points, c.delivered);
  }
}

TEST_F(DataStoreBadInputTest, InsertsWithoutRecordsStoreNothing) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{});
  std::vector<Candle> points = Series(2);
  const std::pair<std::int32_t, HostWord> kEmpty[] = {
      {0, reinterpret_cast<HostWord>(points.data())},
      {-1, reinterpret_cast<HostWord>(points.data())},
      {2, 0},
  };
  for (const auto& [number, data] : kEmpty) {
    INSERT_SYMBOL_DATA_REQUEST insert = InsertRequest(handle, points);
    insert.number = number;
    insert.data = data;
    EXPECT_EQ(ds.send(M::InsertDataSend, Arg(&insert)), 0);
    sink_.attach(insert);
    EXPECT_EQ(ds.send(M::InsertDataPost, Arg(&insert)), 0);
  }
  ASSERT_TRUE(sink_.waitFor(std::size(kEmpty)));
  EXPECT_EQ(ds.count(handle), 0);
  EXPECT_EQ(ds.insert(handle, points), 0);
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(2));
}

// ":Demo" was found by fuzz_host_records: Qt takes a path that begins with ':'
// for a resource path, which is absolute, so such a provider must still name a
// folder inside the data folder and nothing in the current folder.
TEST_F(DataStoreBadInputTest, ProviderNamesStayOneFolderInsideTheDataFolder) {
  for (const std::string provider : {"../x", ":Demo"}) {
    SCOPED_TRACE(provider);
    DataStoreSession& ds = restart(provider);
    const HostWord handle = ds.open(SymbolParams{.provider = provider});
    EXPECT_EQ(ds.insert(handle, Series(2)), 0);
    EXPECT_EQ(ds.readAll<Candle>(handle), Series(2));
    EXPECT_EQ(tree_.entriesOutside({tree_.data()}), std::vector<fs::path>{});
  }
  EXPECT_EQ(tree_.symbolFiles().size(), 2u);
}

TEST_F(DataStoreBadInputTest, SymbolNamesStayInsideTheProviderFolder) {
  DataStoreSession& ds = restart();
  const HostWord handle = ds.open(SymbolParams{.name = u"../../evil", .code = "../../code"});
  EXPECT_EQ(ds.insert(handle, Series(2)), 0);
  EXPECT_EQ(ds.readAll<Candle>(handle), Series(2));
  const std::vector<fs::path> files = tree_.symbolFiles();
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].parent_path(), tree_.providerFolder());
  EXPECT_EQ(tree_.entriesOutside({tree_.providerFolder()}), std::vector<fs::path>{});
}

// An empty or relative folder was found by fuzz_host_records: it passes the
// check against the data folder, so whatever it opens must be made there too,
// never in the current folder (the test tree's root).
TEST_F(DataStoreBadInputTest, OpenPathMakesNothingOutsideTheDataFolder) {
  DataStoreSession& ds = restart();
  const fs::path outside[] = {tree_.root() / "outside", tree_.data() / ".." / "outside",
                              "../outside"};
  for (const fs::path& folder : outside) {
    HostWord handle = 0;
    EXPECT_EQ(ds.openPath(SymbolParams{}, folder, &handle), 1) << folder;
    EXPECT_EQ(handle, 0u) << folder;
  }
  EXPECT_EQ(tree_.symbolFiles(), std::vector<fs::path>{});
  for (const fs::path& folder : {fs::path("relative"), fs::path()}) {
    HostWord handle = 0;
    ds.openPath(SymbolParams{}, folder, &handle);
    EXPECT_EQ(tree_.entriesOutside({tree_.data()}), std::vector<fs::path>{}) << folder;
  }
}

}  // namespace
}  // namespace datastore_test
