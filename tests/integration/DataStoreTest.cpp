// The data store through the loaded library: configuration, the registry of
// symbols, posted requests and their worker, game mode, hostile input, stop.

#include <future>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

constexpr float kChangedTag = 50;            // tag of records that replace or follow stored ones
constexpr unsigned char kScribble = 0xEE;    // overwrites a caller's buffer after posting
constexpr std::int32_t kLargeCapacity = 10;  // more than any test stores
constexpr char kSymbolFile[] = "EUR%2FUSD_I1_EURUSD.cjd";  // the file of SymbolParams{}

std::vector<Candle> Changed(int count) { return Series(count, kFirstTime, kChangedTag); }

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
// follows, and so does an empty one; an absolute one gets the provider folder
// with its parents.
TEST_P(DataStoreDataFolderTest, SymbolsAreStoredInTheConfiguredFolderOnly) {
  const DataFolderCase& c = GetParam();
  if (c.pathData != nullptr) {
    const std::string under = c.pathData[0] == '/' ? tree_.root().string() : "";
    tree_.writeConfig({"PathData=" + under + c.pathData});
  }
  restart();
  const fs::path store = tree_.root() / c.store;
  EXPECT_TRUE(fs::is_directory(store / kProvider));
  const HostWord handle = open(SymbolParams{});
  EXPECT_EQ(insert(handle, Series(2)), 0);
  EXPECT_EQ(readAll<Candle>(handle), Series(2));
  EXPECT_EQ(tree_.symbolFiles(), std::vector<fs::path>{store / kProvider / kSymbolFile});
  EXPECT_EQ(tree_.entriesOutside({store}), std::vector<fs::path>{});
}

INSTANTIATE_TEST_SUITE_P(
    Values, DataStoreDataFolderTest,
    ::testing::Values(DataFolderCase{nullptr, "data"}, DataFolderCase{"", "data"},
                      DataFolderCase{"~", "data"}, DataFolderCase{"~/x", "data"},
                      DataFolderCase{"/elsewhere/deep/store", "elsewhere/deep/store"}));

// Writes disabled: nothing is created, inserts are answered and dropped, and
// what was stored before stays as it was.
TEST_F(DataStoreConfigTest, WritesDisabledCreateNothingAndKeepWhatWasStored) {
  tree_.writeConfig({"PathData=~", "EnableWrite=0"});
  restart();
  EXPECT_EQ(tree_.entriesOutside({}), std::vector<fs::path>{});
  HostWord handle = open(SymbolParams{});
  EXPECT_EQ(insert(handle, Series(2)), 0);
  EXPECT_EQ(count(handle), 0);
  EXPECT_EQ(tree_.symbolFiles(), std::vector<fs::path>{});

  tree_.writeConfig({});
  restart();
  insert(open(SymbolParams{}), Series(3));
  host_.reset();
  const std::vector<fs::path> files = tree_.symbolFiles();
  ASSERT_EQ(files.size(), 1u);
  const std::string stored = ReadBytes(files[0]);

  tree_.writeConfig({"EnableWrite=0"});
  restart();
  handle = open(SymbolParams{});
  EXPECT_EQ(insert(handle, Changed(5)), 0);
  std::vector<Candle> posted = Changed(4);
  EXPECT_EQ(postInsert(handle, posted), 0);
  EXPECT_EQ(readAll<Candle>(handle), Series(3));
  host_.reset();
  EXPECT_EQ(ReadBytes(files[0]), stored);
  EXPECT_TRUE(sink_.completions().empty());
  EXPECT_EQ(ReadBytes(tree_.log()).find("lines end in LF"), std::string::npos);
}

// Lines end in CR LF: a file with bare LF line ends is one line without a
// section, so writes stay enabled, and the log says why.
TEST_F(DataStoreConfigTest, ConfigurationWithBareLineFeedsIsNotHonouredAndLogged) {
  std::ofstream(tree_.config() / "pelto.cfg", std::ios::binary) << "[DATASTORE]\nEnableWrite=0\n";
  restart();
  const HostWord handle = open(SymbolParams{});
  EXPECT_EQ(insert(handle, Series(2)), 0);
  EXPECT_EQ(readAll<Candle>(handle), Series(2));
  EXPECT_NE(ReadBytes(tree_.log()).find("lines end in LF"), std::string::npos);
}

// ---------------------------------------------------------------------------
// The registry: symbols stored before start-up, keys, names and periods.

using DataStoreRegistryTest = DataStoreFixture;

// Stored symbols are found by what their files hold, not by the file names;
// a file with an upper-case suffix and a folder are no symbol files.
TEST_F(DataStoreRegistryTest, SymbolsStoredBeforeStartUpAreRegisteredFromTheirFiles) {
  const SymbolParams ticks{.length = 0};
  std::vector<Tick> tickData = {{100, 1.5f, 10}, {160, 1.25f, 20}};
  restart();
  EXPECT_EQ(insert(open(SymbolParams{}), Series(3)), 0);
  EXPECT_EQ(insert(open(ticks), tickData), 0);
  host_.reset();
  const fs::path folder = tree_.providerFolder();
  fs::rename(folder / kSymbolFile, folder / "renamed.cjd");
  fs::copy_file(folder / "EUR%2FUSD_I0_EURUSD.cjd", folder / "A.CJD");  // sorts first
  fs::create_directory(folder / "B.cjd");
  std::ofstream(folder / "C.cjd") << "not a symbol file";
  const std::string upperCase = ReadBytes(folder / "A.CJD");

  restart();
  EXPECT_EQ(readAll<Candle>(open(SymbolParams{})), Series(3));
  const HostWord tickHandle = open(ticks);
  tickData.push_back({220, 1.75f, 30});
  EXPECT_EQ(insert(tickHandle, std::vector<Tick>{tickData.back()}), 0);
  EXPECT_EQ(readAll<Tick>(tickHandle), tickData);
  EXPECT_EQ(ReadBytes(folder / "A.CJD"), upperCase);
  EXPECT_EQ(tree_.symbolFiles(),
            (std::vector<fs::path>{folder / "C.cjd", folder / "EUR%2FUSD_I0_EURUSD.cjd",
                                   folder / "renamed.cjd"}));
  EXPECT_NE(ReadBytes(tree_.log()).find("not registered: " + (folder / "C.cjd").string()),
            std::string::npos);
}

// A stored symbol is registered under the provider folder exactly as the
// module spells it: another spelling of the same folder is another key, and
// two keys of one file see each other's writes, an insert before the stored
// records (a change the log holds until its checkpoint) included.
TEST_F(DataStoreRegistryTest, TwoSpellingsOfTheProviderFolderAreTwoKeysOfOneFile) {
  restart();
  insert(open(SymbolParams{}), Series(3));

  restart();
  HostWord stored = 0, slashed = 0;
  ASSERT_EQ(openPath(SymbolParams{}, tree_.providerFolder(), &stored), 0);
  EXPECT_EQ(open(SymbolParams{}), stored);
  ASSERT_EQ(openPath(SymbolParams{}, tree_.providerFolder().string() + "/", &slashed), 0);
  EXPECT_NE(slashed, stored);
  EXPECT_EQ(readAll<Candle>(slashed), Series(3));
  std::vector<Candle> expected = Series(5);
  insert(slashed, std::vector<Candle>{expected[3]});
  EXPECT_EQ(readAll<Candle>(stored), Series(4));
  const Candle earlier = MakeCandle(kFirstTime - kStep, kChangedTag);
  insert(slashed, std::vector<Candle>{earlier});  // lands before the stored records
  insert(stored, std::vector<Candle>{expected[4]});
  expected.insert(expected.begin(), earlier);
  EXPECT_EQ(readAll<Candle>(stored), expected);
  EXPECT_EQ(readAll<Candle>(slashed), expected);
  EXPECT_EQ(tree_.symbolFiles().size(), 1u);
}

// A symbol opened again is the same handle and file; the length separates
// intraday symbols only.
TEST_F(DataStoreRegistryTest, TheLengthSeparatesIntradaySymbolsOnly) {
  restart();
  const HostWord one = open(SymbolParams{.length = 1});
  EXPECT_EQ(open(SymbolParams{.length = 1}), one);
  const HostWord five = open(SymbolParams{.length = 5});
  EXPECT_NE(one, five);
  insert(one, Series(1));
  EXPECT_EQ(count(five), 0);
  const HostWord daily = open(SymbolParams{.kind = 'D', .length = 1});
  EXPECT_EQ(open(SymbolParams{.kind = 'D', .length = 5}), daily);
  const fs::path folder = tree_.providerFolder();
  EXPECT_EQ(tree_.symbolFiles(),
            (std::vector<fs::path>{folder / "EUR%2FUSD_D_EURUSD.cjd", folder / kSymbolFile,
                                   folder / "EUR%2FUSD_I5_EURUSD.cjd"}));
}

// ---------------------------------------------------------------------------
// Posted requests, their completion calls and the worker that serves them.

using DataStoreWorkerTest = DataStoreFixture;

// A request asks for its completion call with both a context and a code;
// without either it is served silently. The caller's request and records are
// its own again once posted: the worker completes with the module's copies.
TEST_F(DataStoreWorkerTest, PostedRequestsCompleteOnTheWorkerWithTheirOwnCopies) {
  restart();
  const HostWord handle = open(SymbolParams{});
  const std::pair<HostWord, unsigned int> kSilent[] = {
      {0, 0}, {sink_.context(), 0}, {0, kInsertDone}};
  for (std::size_t i = 0; i < std::size(kSilent); ++i) {
    std::vector<Candle> points = {MakeCandle(kFirstTime - int(i + 1) * kStep)}, buffer(1);
    INSERT_SYMBOL_DATA_REQUEST insertRequest = InsertRequest(handle, points);
    insertRequest.completionContext = kSilent[i].first;
    insertRequest.completionCode = kSilent[i].second;
    ASSERT_EQ(send(M::InsertDataPost, Arg(&insertRequest)), 0);
    GET_SYMBOL_DATA_REQUEST getRequest = GetRequest(handle, kGetOldest, buffer);
    getRequest.completionContext = kSilent[i].first;
    getRequest.completionCode = kSilent[i].second == 0 ? 0 : kGetDone;
    ASSERT_EQ(send(M::GetDataPost, Arg(&getRequest)), 0);
  }
  std::vector<Candle> points =
      Series(5);  // each queue keeps its order: served after the silent ones
  INSERT_SYMBOL_DATA_REQUEST insertRequest = InsertRequest(handle, points);
  sink_.attach(insertRequest);
  ASSERT_EQ(send(M::InsertDataPost, Arg(&insertRequest)), 0);
  std::memset(points.data(), kScribble, points.size() * sizeof(Candle));
  std::memset(&insertRequest, kScribble, sizeof insertRequest);
  ASSERT_TRUE(sink_.waitFor(1));
  std::vector<Candle> buffer(3);
  std::memset(buffer.data(), kScribble, buffer.size() * sizeof(Candle));
  const std::vector<Candle> untouched = buffer;
  GET_SYMBOL_DATA_REQUEST getRequest = GetRequest(handle, kGetNewest, buffer);
  sink_.attach(getRequest);
  ASSERT_EQ(send(M::GetDataPost, Arg(&getRequest)), 0);
  ASSERT_TRUE(sink_.waitFor(2));

  const auto done = sink_.completions();
  ASSERT_EQ(done.size(), 2u);
  EXPECT_EQ(done[0].message, kInsertDone);
  EXPECT_NE(done[0].thread, std::this_thread::get_id());
  EXPECT_NE(done[0].address, Arg(&insertRequest));
  EXPECT_EQ(Unpacked(done[0].insert.handle), handle);
  EXPECT_EQ(Unpacked(done[0].insert.number), 5);
  EXPECT_NE(Unpacked(done[0].insert.data), reinterpret_cast<HostWord>(points.data()));
  EXPECT_EQ(done[0].points, Series(5));
  EXPECT_EQ(done[1].message, kGetDone);
  EXPECT_NE(done[1].address, Arg(&getRequest));
  EXPECT_EQ(Unpacked(done[1].get.handle), handle);
  EXPECT_EQ(Unpacked(done[1].get.count), 3);
  EXPECT_EQ(done[1].points, Series(3, kFirstTime + 2 * kStep));
  EXPECT_EQ(buffer, untouched);
  EXPECT_EQ(count(handle), 8);
}

// Gets are served before inserts once both wait; each queue in posting order.
TEST_F(DataStoreWorkerTest, QueuedGetsAreServedBeforeAQueuedInsert) {
  restart();
  const HostWord handle = open(SymbolParams{});
  insert(handle, Series(1));
  std::vector<Candle> holder(1), oldest(kLargeCapacity), newest(kLargeCapacity);
  std::vector<Candle> later = {MakeCandle(kFirstTime + kStep, kChangedTag)};
  sink_.holdNext();
  ASSERT_EQ(postGet(handle, kGetOldest, holder), 0);
  ASSERT_TRUE(sink_.waitHeld());
  ASSERT_EQ(postInsert(handle, later), 0);
  ASSERT_EQ(postGet(handle, kGetOldest, oldest), 0);
  ASSERT_EQ(postGet(handle, kGetNewest, newest), 0);
  sink_.release();
  ASSERT_TRUE(sink_.waitFor(4));

  const auto done = sink_.completions();
  ASSERT_EQ(done.size(), 4u);
  for (int i : {1, 2}) {
    EXPECT_EQ(done[i].message, kGetDone);
    EXPECT_EQ(Unpacked(done[i].get.mode), i == 1 ? kGetOldest : kGetNewest);
    EXPECT_EQ(done[i].points, Series(1));
  }
  EXPECT_EQ(done[3].message, kInsertDone);
  for (const auto& completion : done) EXPECT_EQ(completion.thread, done[0].thread);
  EXPECT_EQ(readAll<Candle>(handle), (std::vector<Candle>{Series(1)[0], later[0]}));
}

// Stop: the event first, then the request being served is finished, the
// queued gets are dropped, the queued inserts written (and completed) and the
// worker's thread is gone; symbol messages after it are answered 1.
TEST_F(DataStoreWorkerTest, StopFinishesTheServedRequestWritesQueuedInsertsAndDropsQueuedGets) {
  std::thread([] {
  }).join();  // runtimes that add a helper thread with the first one (TSan) have done so
  const int threadsBefore = ThreadCount();
  restart();
  const HostWord handle = open(SymbolParams{});
  std::vector<Candle> served = Series(1), queued = Series(2, kFirstTime + kStep, 1), buffer(1);
  sink_.holdNext();
  ASSERT_EQ(postInsert(handle, served), 0);
  ASSERT_TRUE(sink_.waitHeld());
  ASSERT_EQ(postGet(handle, kGetOldest, buffer), 0);
  ASSERT_EQ(postInsert(handle, queued), 0);

  std::promise<pid_t> stopperId;
  std::future<int> stopped = std::async(std::launch::async, [&] {
    stopperId.set_value(::gettid());
    return send(M::Stop);
  });
  const pid_t stopper = stopperId.get_future().get();
  EXPECT_TRUE(WaitUntil([&] { return !host_->emits().empty(); }));
  EXPECT_TRUE(WaitUntil([&] { return ThreadSleeps(stopper); }));  // waiting for the worker
  sink_.release();  // whatever happened: the stop cannot end while the worker is held
  EXPECT_EQ(stopped.get(), 0);
  EXPECT_EQ(ThreadCount(), threadsBefore);  // joined before 3005 returned

  const auto emits = host_->emits();
  const auto created = host_->createdEvents();
  ASSERT_EQ(emits.size(), 1u);
  ASSERT_EQ(created.size(), 1u);
  EXPECT_EQ(created[0].name, "DataStoreEvent");
  EXPECT_EQ(emits[0].handle, created[0].handle);
  EXPECT_EQ(Unpacked(emits[0].event.sender), kModuleId);
  EXPECT_EQ(sink_.completions().size(), 2u);  // both inserts, not the get
  EXPECT_NE(ReadBytes(tree_.log()).find("Stop: 1 queued get(s) and 0 queued insert(s) dropped"),
            std::string::npos);
  EXPECT_EQ(postInsert(handle, queued), 1);
  EXPECT_EQ(postGet(handle, kGetOldest, buffer), 1);
  restart();
  std::vector<Candle> all = served;
  all.insert(all.end(), queued.begin(), queued.end());
  EXPECT_EQ(readAll<Candle>(open(SymbolParams{})), all);
}

// The worker of an idle module waits on its condition: the stop must wake it,
// not wait out its limit (5000 ms) or hang.
TEST_F(DataStoreWorkerTest, StopOfAnIdleModuleEndsTheWorkerWithinTheWaitLimit) {
  std::thread([] {}).join();  // any helper thread of the runtime (TSan) is made before counting
  const int threadsBefore = ThreadCount();
  restart();
  EXPECT_GT(ThreadCount(), threadsBefore);  // the worker runs
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(send(M::Stop), 0);
  EXPECT_TRUE(WaitUntil([&] { return ThreadCount() == threadsBefore; }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5000));
}

// ---------------------------------------------------------------------------
// Game mode: events of "Quendal Game Mode" addressed to the module (its id and its
// address) switch symbol requests off and on; events addressed to anyone else
// change nothing.

using DataStoreGameModeTest = DataStoreFixture;

TEST_F(DataStoreGameModeTest, SymbolRequestsDoNothingWhileGameModeIsOn) {
  restart();
  const HostWord module = reinterpret_cast<HostWord>(host_->moduleObject());
  const auto event = [&](std::int32_t code, HostWord id = kModuleId, HostWord address = 0) {
    INCOMING_EVENT_RECORD record{};
    record.addressedHostId = id;
    record.addressedModule = address == 0 ? module : address;
    record.eventCode = code;
    return host_->raiseEventRaw(record);
  };
  const auto opens = [&] {  // whether 6001 fills the handle
    HostWord handle = 0;
    return open(SymbolParams{}, &handle) == 0 && handle != 0;
  };
  EXPECT_EQ(event(kEventGameModeStarts, kModuleId + 1), 1);
  EXPECT_EQ(event(kEventGameModeStarts, kModuleId, module + 1), 0);
  EXPECT_TRUE(opens());
  const HostWord handle = open(SymbolParams{});
  insert(handle, Series(1));

  ASSERT_EQ(event(kEventGameModeStarts), 0);
  EXPECT_EQ(event(kEventGameModeEnds, kModuleId + 1), 1);
  EXPECT_EQ(event(kEventGameModeEnds, kModuleId, module + 1), 0);
  HostWord unfilled = 0;
  EXPECT_EQ(open(SymbolParams{.name = u"GBP/USD"}, &unfilled), 0);
  EXPECT_EQ(openPath(SymbolParams{}, tree_.providerFolder(), &unfilled), 0);
  EXPECT_EQ(unfilled, 0u);
  std::vector<Candle> changed = Changed(2);
  EXPECT_EQ(insert(handle, changed), 0);
  EXPECT_EQ(postInsert(handle, changed), 0);
  const std::vector<Candle> untouched(kLargeCapacity, MakeCandle(0, kChangedTag));
  std::vector<Candle> buffer = untouched;
  EXPECT_EQ(postGet(handle, kGetOldest, buffer), 0);
  GET_SYMBOL_DATA_REQUEST getRequest = GetRequest(handle, kGetOldest, buffer);
  EXPECT_EQ(send(M::GetDataSend, Arg(&getRequest)), 0);
  EXPECT_EQ(send(M::GetDataCountSend, Arg(&getRequest)), 0);
  EXPECT_EQ(Unpacked(getRequest.count), kLargeCapacity);
  EXPECT_EQ(buffer, untouched);

  EXPECT_EQ(host_->raiseEvent("Quendal Game Mode", kEventGameModeEnds), 1);
  EXPECT_TRUE(opens());
  std::vector<Candle> marker = {Series(2).back()};
  ASSERT_EQ(postInsert(handle, marker), 0);  // served after anything queued before it
  ASSERT_TRUE(sink_.waitFor(1));
  EXPECT_EQ(sink_.completions()[0].points, marker);
  EXPECT_EQ(readAll<Candle>(handle), Series(2));
  EXPECT_EQ(tree_.symbolFiles().size(), 1u);
}

// ---------------------------------------------------------------------------
// Hostile input: nothing a caller sends reaches memory or files it should not.

using DataStoreBadInputTest = DataStoreFixture;

// Null records are refused with 1. So are handles the registry does not hold,
// where a refusal can be answered; a posted insert is answered 0 and logged.
// Either way nothing is read or written through such a handle.
TEST_F(DataStoreBadInputTest, NullRecordsAndHandlesNeverReturnedTouchNothing) {
  restart();
  for (unsigned int message = M::OpenSymbol; message <= M::OpenSymbolPath; ++message) {
    EXPECT_EQ(send(message, 0, 0), 1) << message;
  }
  SYMBOL_NAME_PERIOD symbol = ToRecord(SymbolParams{});
  SYMBOL_NAME_PERIOD_PATH withPath = ToRecord(SymbolParams{}, tree_.providerFolder());
  EXPECT_EQ(send(M::OpenSymbol, Arg(&symbol), 0), 1);
  EXPECT_EQ(send(M::OpenSymbolPath, Arg(&withPath), 0), 1);
  EXPECT_EQ(tree_.symbolFiles(), std::vector<fs::path>{});

  const HostWord real = open(SymbolParams{});
  Candle local = MakeCandle(kFirstTime);
  const Candle localBefore = local;
  const HostWord never = reinterpret_cast<HostWord>(&local);
  std::vector<Candle> points = Series(2);
  for (HostWord handle : {never, HostWord{0}}) {
    EXPECT_EQ(insert(handle, points), 1);
    for (unsigned int message : {M::GetDataSend, M::GetDataPost, M::GetDataCountSend}) {
      std::vector<Candle> buffer(2, local);
      GET_SYMBOL_DATA_REQUEST getRequest = GetRequest(handle, kGetOldest, buffer);
      sink_.attach(getRequest);
      EXPECT_EQ(send(message, Arg(&getRequest)), 1) << message;
      EXPECT_EQ(Unpacked(getRequest.count), 2);
      EXPECT_EQ(buffer, std::vector<Candle>(2, local));
    }
  }
  EXPECT_EQ(postInsert(never, points), 0);
  const std::string log = ReadBytes(tree_.log());
  EXPECT_NE(log.find(" Error in CDataStoreModule::InsertSymbolDataPost CP2"), std::string::npos)
      << log;

  std::vector<Candle> marker = Series(1), buffer(1);
  ASSERT_EQ(postInsert(real, marker), 0);  // each served after anything queued before it
  ASSERT_EQ(postGet(real, kGetOldest, buffer), 0);
  ASSERT_TRUE(sink_.waitFor(2));
  const auto done = sink_.completions();
  ASSERT_EQ(done.size(), 2u);
  for (const auto& c : done) {
    EXPECT_EQ(c.message == kGetDone ? Unpacked(c.get.handle) : Unpacked(c.insert.handle), real);
  }
  EXPECT_EQ(local, localBefore);
  EXPECT_EQ(readAll<Candle>(real), Series(1));
}

// A posted get delivers at most its count; a bad mode or a negative count
// delivers nothing (the module's copy of the request must keep these checks).
// An insert without records stores nothing.
TEST_F(DataStoreBadInputTest, RequestsNeverGoBeyondTheirRecords) {
  restart();
  const HostWord handle = open(SymbolParams{});
  std::vector<Candle> points = Series(2);
  const std::pair<std::int32_t, HostWord> kEmpty[] = {
      {0, reinterpret_cast<HostWord>(points.data())},
      {-1, reinterpret_cast<HostWord>(points.data())},
      {2, 0},
  };
  for (const auto& [number, data] : kEmpty) {
    INSERT_SYMBOL_DATA_REQUEST insertRequest = InsertRequest(handle, points);
    insertRequest.number = number;
    insertRequest.data = data;
    EXPECT_EQ(send(M::InsertDataSend, Arg(&insertRequest)), 0);
    sink_.attach(insertRequest);
    EXPECT_EQ(send(M::InsertDataPost, Arg(&insertRequest)), 0);
  }
  ASSERT_TRUE(sink_.waitFor(std::size(kEmpty)));
  EXPECT_EQ(count(handle), 0);

  const std::vector<Candle> stored = Series(5);
  EXPECT_EQ(insert(handle, stored), 0);
  const struct {
    std::int32_t mode;
    std::int32_t count;
    std::vector<Candle> delivered;
  } kCases[] = {
      {kGetTimeRange, 2, {stored[0], stored[1]}},  // the whole range would be five
      {kGetOldest, -3, {}},
      {kGetNewest, -1, {}},
      {kGetOldest + 1, 2, {}},
      {kGetNewest - 1, 2, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " count " << c.count);
    std::vector<Candle> buffer(std::max(c.count, 1), MakeCandle(0, kChangedTag));
    GET_SYMBOL_DATA_REQUEST getRequest = GetRequest(handle, c.mode, buffer);
    getRequest.count = c.count;
    getRequest.firstTime = 0;
    getRequest.lastTime = kEveryRecord;
    const std::size_t before = sink_.completions().size();
    sink_.attach(getRequest);
    ASSERT_EQ(send(M::GetDataPost, Arg(&getRequest)), 0);
    ASSERT_TRUE(sink_.waitFor(before + 1));
    EXPECT_EQ(sink_.completions().back().points, c.delivered);
  }
}

// ":Demo" was found by fuzz_host_records: Qt takes a path that begins with ':'
// for a resource path, which is absolute, so such a provider must still name a
// folder inside the data folder and nothing in the current folder. Symbol
// names and codes that climb stay inside the provider folder.
TEST_F(DataStoreBadInputTest, ProviderNamesStayOneFolderInsideTheDataFolder) {
  for (const std::string provider : {"../x", ":Demo"}) {
    SCOPED_TRACE(provider);
    restart(provider);
    const HostWord handle =
        open(SymbolParams{.name = u"../../evil", .code = "../../code", .provider = provider});
    EXPECT_EQ(insert(handle, Series(2)), 0);
    EXPECT_EQ(readAll<Candle>(handle), Series(2));
    EXPECT_EQ(tree_.entriesOutside({tree_.data()}), std::vector<fs::path>{});
  }
  const std::vector<fs::path> files = tree_.symbolFiles();
  EXPECT_EQ(files.size(), 2u);
  for (const fs::path& file : files)
    EXPECT_EQ(file.parent_path().parent_path(), tree_.data()) << file;
}

// An empty or relative folder was found by fuzz_host_records: it passes the
// check against the data folder, so whatever it opens must be made there too,
// never in the current folder (the test tree's root).
TEST_F(DataStoreBadInputTest, OpenPathMakesNothingOutsideTheDataFolder) {
  restart();
  for (const fs::path& folder :
       {tree_.root() / "outside", tree_.data() / ".." / "outside", fs::path("../outside")}) {
    HostWord handle = 0;
    EXPECT_EQ(openPath(SymbolParams{}, folder, &handle), 1) << folder;
    EXPECT_EQ(handle, 0u) << folder;
  }
  EXPECT_EQ(tree_.symbolFiles(), std::vector<fs::path>{});
  for (const fs::path& folder : {fs::path("relative"), fs::path()}) {
    HostWord handle = 0;
    openPath(SymbolParams{}, folder, &handle);
    EXPECT_EQ(tree_.entriesOutside({tree_.data()}), std::vector<fs::path>{}) << folder;
  }
}

}  // namespace
}  // namespace datastore_test
