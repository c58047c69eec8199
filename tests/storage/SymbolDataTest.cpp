// Reading, counting and inserting records through a symbol.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "CjdTestFiles.h"

namespace {

using Times = std::vector<std::int32_t>;

class SymbolDataTest : public ::testing::Test {
 protected:
  void SetUp() override {
    symbol = cjdtest::MakeSymbol(&owner, "EURUSD", {'I', 5, 0});
    ASSERT_EQ(symbol->Create(dir.path()), 0);
    symbol->Open();
  }
  void Insert(Times const& times) {
    std::vector<CCandleDataPoint> points;
    for (std::int32_t time : times) points.push_back(cjdtest::Candle(time, float(time) / 10));
    symbol->InsertData(int(points.size()), reinterpret_cast<unsigned char*>(points.data()));
  }
  // Times delivered by a get request (its result in `result`); nothing may be
  // written past them.
  Times Get(int mode, int count, int first = 0, int last = 0) {
    std::vector<CCandleDataPoint> buffer(std::max(count, 0) + 4, cjdtest::Candle(-1));
    GET_SYMBOL_DATA_REQUEST request = cjdtest::MakeRequest(mode, count, buffer.data(), first, last);
    result = symbol->GetData(&request);
    EXPECT_GE(request.count, 0);
    for (std::size_t i = std::size_t(std::max(request.count, 0)); i < buffer.size(); ++i) {
      EXPECT_EQ(buffer[i].time, -1) << "written beyond the delivered records";
    }
    Times times;
    for (int i = 0; i < request.count; ++i) times.push_back(buffer[i].time);
    return times;
  }
  int Count(int mode, int count, int first = 0, int last = 0) {
    GET_SYMBOL_DATA_REQUEST request = cjdtest::MakeRequest(mode, count, nullptr, first, last);
    symbol->GetDataCount(&request);
    return request.count;
  }

  QTemporaryDir dir;
  cjdtest::TestOwner owner;
  std::unique_ptr<CSymbol> symbol;
  int result = -1;
};

// A range includes the record before its first time and excludes its last
// time; newest and oldest are limited by what is stored; no request delivers
// more than its count, and a negative count or an unknown mode delivers none.
TEST_F(SymbolDataTest, GetModesAndTheirLimits) {
  EXPECT_EQ(Get(kGetNewest, 3), Times{});
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Count(kGetTimeRange, 0, 0, 100), 0);
  Insert({10, 20, 30});
  EXPECT_EQ(Get(kGetTimeRange, 10, 20, 30), (Times{10, 20}));
  EXPECT_EQ(Get(kGetTimeRange, 10, 5, 100), (Times{10, 20, 30}));
  EXPECT_EQ(Get(kGetTimeRange, 10, 10, 10), Times{});
  EXPECT_EQ(Get(kGetTimeRange, 10, 100, 5), Times{});  // last before first
  EXPECT_EQ(Get(kGetTimeRange, 2, 0, 100), (Times{10, 20}));
  EXPECT_EQ(Count(kGetTimeRange, 0, 5, 100), 3);  // counting needs no buffer
  EXPECT_EQ(Get(kGetNewest, 2), (Times{20, 30}));
  EXPECT_EQ(Get(kGetNewest, 5), (Times{10, 20, 30}));
  EXPECT_EQ(Count(kGetNewest, 5), 3);
  EXPECT_EQ(Get(kGetOldest, 2), (Times{10, 20}));
  EXPECT_EQ(Count(kGetOldest, 2), 2);
  EXPECT_EQ(Get(kGetNewest, -3), Times{});
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Get(3, 2), Times{});
  EXPECT_EQ(Get(-1, 2), Times{});
  EXPECT_EQ(Count(7, 4), 0);
  GET_SYMBOL_DATA_REQUEST noBuffer = cjdtest::MakeRequest(kGetOldest, 3, nullptr);
  EXPECT_EQ(symbol->GetData(&noBuffer), 0);
  EXPECT_EQ(noBuffer.count, 0);
}

TEST_F(SymbolDataTest, WritingDisabledCannotCreateAMissingFile) {
  cjdtest::TestOwner readOnlyOwner(false);
  auto symbol2 = cjdtest::MakeSymbol(&readOnlyOwner, "NEW", {'D', 0, 0});
  EXPECT_EQ(symbol2->Create(dir.path()), 1);
  EXPECT_FALSE(QFile::exists(dir.path() + "/NEW_D_EURUSD.cjd"));
}

}  // namespace
