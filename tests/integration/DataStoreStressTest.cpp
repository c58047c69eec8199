// Thousands of posted inserts and gets on several symbols, interleaved with
// synchronous gets and counts from the posting thread while the worker serves
// the posted ones. Inserts on one symbol are served in posting order, so a
// sequential model of them predicts every file exactly.

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

namespace M = HostMessage;

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
  HostWord handle = 0;
  std::map<std::int32_t, Candle> records;        // the posted inserts applied in order
  std::multimap<std::int32_t, Candle> versions;  // every record ever posted
  std::vector<std::vector<Candle>> batches;      // the posted inserts, in order
  std::int32_t nextTime = kStep;                 // after every time posted so far
  int lastCount = 0;                             // highest count read so far
};

class DataStoreStressTest : public DataStoreFixture {
 protected:
  static SymbolParams paramsOf(int symbol) {
    return SymbolParams{.name = u"S" + std::u16string(1, char16_t(u'A' + symbol))};
  }

  void openSymbols() {
    for (int i = 0; i < kSymbols; ++i) {
      models_[i].handle = session_->open(paramsOf(i));
      byHandle_[models_[i].handle] = &models_[i];
    }
  }

  int uniform(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  SymbolModel& anySymbol() { return models_[uniform(0, kSymbols - 1)]; }

  // Mostly an append; now and then times among the stored ones, duplicates included.
  std::vector<Candle> nextBatch(SymbolModel& model, int insert) {
    const int size = uniform(1, kMaxBatch);
    const bool earlier = uniform(1, kEarlierOneIn) == 1;
    std::vector<Candle> batch;
    for (int i = 0; i < size; ++i) {
      const std::int32_t time = earlier ? uniform(1, model.nextTime) : model.nextTime + i * kStep;
      batch.push_back(MakeCandle(time, float(insert * kMaxBatch + i)));
    }
    if (!earlier) model.nextTime += size * kStep;
    return batch;
  }

  void postInsertOn(SymbolModel& model, int insert) {
    std::vector<Candle> batch = nextBatch(model, insert);
    for (const Candle& candle : batch) {
      model.records[candle.time] = candle;
      model.versions.emplace(candle.time, candle);
    }
    model.batches.push_back(batch);
    ASSERT_EQ(postInsert(model.handle, batch), 0);
  }

  void postGetOn(SymbolModel& model) {
    std::vector<Candle> buffer(std::size_t(uniform(1, kMaxCapacity)));
    GET_SYMBOL_DATA_REQUEST request = GetRequest(model.handle, uniform(kNewest, kOldest), buffer);
    request.firstTime = uniform(0, model.nextTime);
    request.lastTime = request.firstTime + uniform(0, kMaxCapacity) * kStep;
    sink_.attach(request);
    ASSERT_EQ(session_->send(M::GetDataPost, Arg(&request)), 0);
  }

  // Opens again, reads and counts, while the worker writes.
  void readNow(int symbol) {
    SymbolModel& model = models_[symbol];
    EXPECT_EQ(session_->open(paramsOf(symbol)), model.handle);
    const auto newest = session_->get<Candle>(model.handle, kNewest, kMaxCapacity);
    EXPECT_TRUE(holdsKnownRecords(model, newest));
    const int count = session_->count(model.handle);
    EXPECT_GE(count, model.lastCount);
    EXPECT_LE(count, int(model.records.size()));
    model.lastCount = count;
  }

  // Times rise strictly and every record is one that was posted.
  ::testing::AssertionResult holdsKnownRecords(const SymbolModel& model,
                                               const std::vector<Candle>& points) const {
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

  void checkCompletions() {
    const auto done = sink_.completions();
    std::map<HostWord, std::vector<std::vector<Candle>>> inserted;
    for (const CompletionSink::Completion& c : done) {
      EXPECT_EQ(c.thread, done.front().thread);
      if (c.message == kInsertDone) inserted[HostWord(c.insert.handle)].push_back(c.points);
      if (c.message == kGetDone) {
        EXPECT_TRUE(holdsKnownRecords(*byHandle_.at(HostWord(c.get.handle)), c.points));
      }
    }
    EXPECT_NE(done.front().thread, std::this_thread::get_id());
    for (const SymbolModel& model : models_) EXPECT_EQ(inserted[model.handle], model.batches);
  }

  void checkFiles() {
    for (const SymbolModel& model : models_) {
      std::vector<Candle> expected;
      for (const auto& [time, candle] : model.records) expected.push_back(candle);
      EXPECT_EQ(session_->readAll<Candle>(model.handle), expected);
    }
  }

  std::mt19937 random_{kSeed};
  SymbolModel models_[kSymbols];
  std::map<HostWord, SymbolModel*> byHandle_;
};

TEST_F(DataStoreStressTest, PostedRequestsMatchASequentialModel) {
  restart();
  openSymbols();
  std::size_t posted = 0;
  for (int insert = 0; insert < kInserts; ++insert) {
    ASSERT_NO_FATAL_FAILURE(postInsertOn(anySymbol(), insert));
    ++posted;
    if (insert % kGetEvery == 0) {
      ASSERT_NO_FATAL_FAILURE(postGetOn(anySymbol()));
      ++posted;
    }
    if (insert % kReadEvery == 0) readNow(uniform(0, kSymbols - 1));
  }
  ASSERT_TRUE(sink_.waitFor(posted, kDrainLimit));
  EXPECT_EQ(sink_.completions().size(), posted);
  checkCompletions();
  checkFiles();
}

}  // namespace
}  // namespace datastore_test
