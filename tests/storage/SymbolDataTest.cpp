// Reading, counting and inserting records through a symbol.
#include <gtest/gtest.h>

#include "StorageTestSupport.h"

namespace {

class SymbolDataTest : public ::testing::Test {
 protected:
  void SetUp() override {
    symbol = MakeSymbol(&owner, "EURUSD", {'I', 5, 0});
    ASSERT_EQ(symbol->Create(dir.path()), 0);
    symbol->Open();
  }
  void Insert(std::vector<std::int32_t> const& times) {
    std::vector<CCandleDataPoint> points;
    for (std::int32_t time : times) points.push_back(Candle(time, float(time) / 10));
    symbol->InsertData(int(points.size()), reinterpret_cast<unsigned char*>(points.data()));
  }
  // Times delivered by a get request with this mode, range and capacity.
  std::vector<std::int32_t> Get(int mode, int count, int first = 0, int last = 0, int* result = nullptr) {
    std::vector<CCandleDataPoint> buffer(std::max(count, 0) + 4, Candle(-1));
    GET_SYMBOL_DATA_REQUEST request{};
    request.mode = mode;
    request.firstTime = first;
    request.lastTime = last;
    request.count = count;
    request.buffer = reinterpret_cast<HostWord>(buffer.data());
    const int read = symbol->GetData(&request);
    if (result != nullptr) *result = read;
    EXPECT_GE(request.count, 0);
    for (std::size_t i = std::size_t(std::max(request.count, 0)); i < buffer.size(); ++i) {
      EXPECT_EQ(buffer[i].time, -1) << "written beyond the delivered records";
    }
    std::vector<std::int32_t> times;
    for (int i = 0; i < request.count; ++i) times.push_back(buffer[i].time);
    return times;
  }
  int Count(int mode, int count, int first = 0, int last = 0) {
    GET_SYMBOL_DATA_REQUEST request{};
    request.mode = mode;
    request.firstTime = first;
    request.lastTime = last;
    request.count = count;
    symbol->GetDataCount(&request);
    return request.count;
  }
  std::vector<std::int32_t> All() { return Get(2, 1000); }

  QTemporaryDir dir;
  TestOwner owner;
  std::unique_ptr<CSymbol> symbol;
};

using Times = std::vector<std::int32_t>;

TEST_F(SymbolDataTest, TimeRangeIncludesTheRecordBeforeAndExcludesTheLastTime) {
  Insert({10, 20, 30});
  EXPECT_EQ(Get(1, 10, 20, 30), (Times{10, 20}));
  EXPECT_EQ(Get(1, 10, 5, 100), (Times{10, 20, 30}));
  EXPECT_EQ(Get(1, 10, 10, 10), Times{});
  EXPECT_EQ(Get(1, 10, 100, 5), Times{});  // last before first
  EXPECT_EQ(Count(1, 0, 5, 100), 3);        // counting needs no buffer
}

TEST_F(SymbolDataTest, NewestAndOldestAreLimitedByWhatIsStored) {
  Insert({10, 20, 30});
  EXPECT_EQ(Get(0, 2), (Times{20, 30}));
  EXPECT_EQ(Get(0, 5), (Times{10, 20, 30}));
  EXPECT_EQ(Count(0, 5), 3);
  EXPECT_EQ(Get(2, 2), (Times{10, 20}));
  EXPECT_EQ(Count(2, 2), 2);
}

TEST_F(SymbolDataTest, NoRequestReadsOrWritesBeyondItsCount) {
  Insert({10, 20, 30, 40, 50});
  EXPECT_EQ(Get(1, 2, 0, 100), (Times{10, 20}));  // the first records of the range
  int read = -1;
  EXPECT_EQ(Get(0, -3, 0, 0, &read), Times{});
  EXPECT_EQ(read, 0);
  EXPECT_EQ(Get(3, 2), Times{});
  EXPECT_EQ(Get(-1, 2), Times{});
  EXPECT_EQ(Count(7, 4), 0);
  GET_SYMBOL_DATA_REQUEST noBuffer{};
  noBuffer.mode = 2;
  noBuffer.count = 3;
  EXPECT_EQ(symbol->GetData(&noBuffer), 0);
  EXPECT_EQ(noBuffer.count, 0);
}

TEST_F(SymbolDataTest, EmptySymbolDeliversNothing) {
  int read = -1;
  EXPECT_EQ(Get(0, 3, 0, 0, &read), Times{});
  EXPECT_EQ(read, 0);
  EXPECT_EQ(Count(1, 0, 0, 100), 0);
}

TEST_F(SymbolDataTest, InsertReplacesInsertsBetweenAndAppends) {
  Insert({10, 20, 30});
  Insert({20});
  EXPECT_EQ(All(), (Times{10, 20, 30}));
  Insert({25});
  EXPECT_EQ(All(), (Times{10, 20, 25, 30}));
  Insert({40});
  Insert({50, 45});
  EXPECT_EQ(All(), (Times{10, 20, 25, 30, 40, 45, 50}));
}

TEST_F(SymbolDataTest, ReplacedRecordTakesTheNewValuesAndTheLastOfEqualTimesWins) {
  Insert({10, 20});
  std::vector<CCandleDataPoint> points = {Candle(20, 7), Candle(5, 1), Candle(20, 9)};
  symbol->InsertData(3, reinterpret_cast<unsigned char*>(points.data()));
  std::vector<CCandleDataPoint> buffer(3);
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = 2;
  request.count = 3;
  request.buffer = reinterpret_cast<HostWord>(buffer.data());
  ASSERT_EQ(symbol->GetData(&request), 1);
  ASSERT_EQ(request.count, 3);
  EXPECT_EQ(buffer[0].time, 5);
  EXPECT_EQ(buffer[2].time, 20);
  EXPECT_FLOAT_EQ(buffer[2].close, 9);
}

TEST_F(SymbolDataTest, NothingIsStoredWithWritingDisabledOrWithoutRecords) {
  Insert({10});
  symbol->InsertData(0, nullptr);
  CCandleDataPoint point = Candle(20);
  symbol->InsertData(-1, reinterpret_cast<unsigned char*>(&point));
  const std::string path = symbol->file()->path();
  symbol.reset();
  TestOwner readOnlyOwner(false);
  CSymbol readOnly(&readOnlyOwner, path.c_str());
  ASSERT_EQ(readOnly.LoadProperties(), 0);
  readOnly.Open();
  readOnly.InsertData(1, reinterpret_cast<unsigned char*>(&point));
  EXPECT_EQ(readOnly.GetDataPointCount(), 1);
}

TEST_F(SymbolDataTest, WritingDisabledCannotCreateAMissingFile) {
  TestOwner readOnlyOwner(false);
  auto symbol2 = MakeSymbol(&readOnlyOwner, "NEW", {'D', 0, 0});
  EXPECT_EQ(symbol2->Create(dir.path()), 1);
  EXPECT_FALSE(QFile::exists(dir.path() + "/NEW_D_EURUSD.cjd"));
}

TEST_F(SymbolDataTest, AnAppendOverwritesAPartialRecordLeftByACrash) {
  Insert({10, 20});
  const std::string path = symbol->file()->path();
  {
    QFile file(QString::fromStdString(path));
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("\x01\x02\x03\x04\x05", 5);
  }
  EXPECT_EQ(symbol->GetDataPointCount(), 2);
  Insert({30});
  EXPECT_EQ(All(), (Times{10, 20, 30}));
  EXPECT_EQ(FileBytes(path).size(), 2591u + 3 * 24);
}

}  // namespace
