// Thousands of posted inserts and gets on several symbols, interleaved with
// synchronous gets and counts from the posting thread while the worker serves
// the posted ones. Inserts on one symbol are served in posting order, so a
// sequential model of them predicts every file exactly, as a fresh module
// reads it after a stop.

#include <map>
#include <random>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

constexpr int kSymbols = 4;
constexpr int kInserts = 10000;            // posted inserts over all symbols
constexpr int kMaxBatch = 8;               // records of one insert, at most
constexpr int kEarlierOneIn = 8;           // one batch in this many lands among stored records
constexpr int kGetEvery = 2;               // a posted get after every this many inserts
constexpr int kReadEvery = 5;              // a synchronous get and count after every this many
constexpr int kMaxCapacity = 40;           // records a get asks for, at most
constexpr std::uint32_t kSeed = 20240917;  // fixed: a failure can be replayed
constexpr std::chrono::seconds kDrainLimit{300};  // longest wait for the worker to serve everything

// One symbol as the test sees it.
struct SymbolModel {
  SymbolParams params;
  HostWord handle = 0;
  std::map<std::int32_t, Candle> records;        // the posted inserts applied in order
  std::multimap<std::int32_t, Candle> versions;  // every record ever posted
  std::vector<std::vector<Candle>> batches;      // the posted inserts, in order
  std::int32_t nextTime = kStep;                 // after every time posted so far
  int lastCount = 0;                             // highest count read so far
};

// Times rise strictly and every record is one that was posted.
::testing::AssertionResult HoldsKnownRecords(const SymbolModel& model,
                                             const std::vector<Candle>& points) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (i > 0 && points[i].time <= points[i - 1].time) {
      return ::testing::AssertionFailure() << "time " << points[i].time << " at " << i;
    }
    const auto [first, last] = model.versions.equal_range(points[i].time);
    if (std::none_of(first, last, [&](const auto& v) { return v.second == points[i]; })) {
      return ::testing::AssertionFailure() << "unknown " << ::testing::PrintToString(points[i]);
    }
  }
  return ::testing::AssertionSuccess();
}

using DataStoreStressTest = DataStoreFixture;

TEST_F(DataStoreStressTest, PostedRequestsMatchASequentialModel) {
  std::mt19937 random(kSeed);
  const auto uniform = [&](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
  };
  restart();
  SymbolModel models[kSymbols];
  std::map<HostWord, SymbolModel*> byHandle;
  for (int i = 0; i < kSymbols; ++i) {
    models[i].params.name = u"S" + std::u16string(1, char16_t(u'A' + i));
    models[i].handle = open(models[i].params);
    byHandle[models[i].handle] = &models[i];
  }

  std::size_t posted = 0;
  for (int n = 0; n < kInserts; ++n) {
    // Mostly an append; now and then times among the stored ones, duplicates included.
    SymbolModel& target = models[uniform(0, kSymbols - 1)];
    const int size = uniform(1, kMaxBatch);
    const bool earlier = uniform(1, kEarlierOneIn) == 1;
    std::vector<Candle> batch;
    for (int i = 0; i < size; ++i) {
      const std::int32_t time = earlier ? uniform(1, target.nextTime) : target.nextTime + i * kStep;
      batch.push_back(MakeCandle(time, float(n * kMaxBatch + i)));
      target.records[time] = batch.back();
      target.versions.emplace(time, batch.back());
    }
    if (!earlier) target.nextTime += size * kStep;
    target.batches.push_back(batch);
    ASSERT_EQ(postInsert(target.handle, batch), 0);
    ++posted;

    if (n % kGetEvery == 0) {
      SymbolModel& asked = models[uniform(0, kSymbols - 1)];
      std::vector<Candle> buffer(std::size_t(uniform(1, kMaxCapacity)));
      GET_SYMBOL_DATA_REQUEST request =
          GetRequest(asked.handle, uniform(kGetNewest, kGetOldest), buffer);
      request.firstTime = uniform(0, asked.nextTime);
      request.lastTime = request.firstTime + uniform(0, kMaxCapacity) * kStep;
      sink_.attach(request);
      ASSERT_EQ(send(M::GetDataPost, Arg(&request)), 0);
      ++posted;
    }

    if (n % kReadEvery == 0) {  // opens again, reads and counts, while the worker writes
      SymbolModel& model = models[uniform(0, kSymbols - 1)];
      EXPECT_EQ(open(model.params), model.handle);
      EXPECT_TRUE(HoldsKnownRecords(model, get<Candle>(model.handle, kGetNewest, kMaxCapacity)));
      const int stored = count(model.handle);
      EXPECT_GE(stored, model.lastCount);
      EXPECT_LE(stored, int(model.records.size()));
      model.lastCount = stored;
    }
  }
  ASSERT_TRUE(sink_.waitFor(posted, kDrainLimit));

  const auto done = sink_.completions();
  EXPECT_EQ(done.size(), posted);
  EXPECT_NE(done.front().thread, std::this_thread::get_id());
  std::map<HostWord, std::vector<std::vector<Candle>>> inserted;
  for (const CompletionSink::Completion& c : done) {
    EXPECT_EQ(c.thread, done.front().thread);
    if (c.message == kInsertDone) inserted[HostWord(c.insert.handle)].push_back(c.points);
    if (c.message == kGetDone) {
      EXPECT_TRUE(HoldsKnownRecords(*byHandle.at(HostWord(c.get.handle)), c.points));
    }
  }
  std::vector<std::vector<Candle>> expected(kSymbols);
  for (int i = 0; i < kSymbols; ++i) {
    EXPECT_EQ(inserted[models[i].handle], models[i].batches);
    for (const auto& [time, candle] : models[i].records) expected[i].push_back(candle);
    EXPECT_EQ(readAll<Candle>(models[i].handle), expected[i]);
  }

  // The files alone, read by a fresh module after a stop, hold the same.
  EXPECT_EQ(send(M::Stop), 0);
  restart();
  for (int i = 0; i < kSymbols; ++i)
    EXPECT_EQ(readAll<Candle>(open(models[i].params)), expected[i]) << i;
}

}  // namespace
}  // namespace datastore_test
