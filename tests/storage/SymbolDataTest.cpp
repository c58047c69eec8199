// Reading, counting and inserting records through a symbol.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "CjdTestFiles.h"

namespace {

using cjdtest::kModeNewest;
using cjdtest::kModeOldest;
using cjdtest::kModeRange;
using Times = std::vector<std::int32_t>;

constexpr int kUnusedMode = 3;

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
  // Times delivered by a get request; nothing may be written past them.
  Times Get(int mode, int count, int first = 0, int last = 0, int* result = nullptr) {
    std::vector<CCandleDataPoint> buffer(std::max(count, 0) + 4, cjdtest::Candle(-1));
    GET_SYMBOL_DATA_REQUEST request = cjdtest::MakeRequest(mode, count, buffer.data(), first, last);
    const int read = symbol->GetData(&request);
    if (result != nullptr) *result = read;
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
  Times All() { return Get(kModeOldest, 1000); }

  QTemporaryDir dir;
  cjdtest::TestOwner owner;
  std::unique_ptr<CSymbol> symbol;
};

TEST_F(SymbolDataTest, TimeRangeIncludesTheRecordBeforeAndExcludesTheLastTime) {
  Insert({10, 20, 30});
  EXPECT_EQ(Get(kModeRange, 10, 20, 30), (Times{10, 20}));
  EXPECT_EQ(Get(kModeRange, 10, 5, 100), (Times{10, 20, 30}));
  EXPECT_EQ(Get(kModeRange, 10, 10, 10), Times{});
  EXPECT_EQ(Get(kModeRange, 10, 100, 5), Times{});  // last before first
  EXPECT_EQ(Count(kModeRange, 0, 5, 100), 3);        // counting needs no buffer
}

TEST_F(SymbolDataTest, NewestAndOldestAreLimitedByWhatIsStored) {
  Insert({10, 20, 30});
  EXPECT_EQ(Get(kModeNewest, 2), (Times{20, 30}));
  EXPECT_EQ(Get(kModeNewest, 5), (Times{10, 20, 30}));
  EXPECT_EQ(Count(kModeNewest, 5), 3);
  EXPECT_EQ(Get(kModeOldest, 2), (Times{10, 20}));
  EXPECT_EQ(Count(kModeOldest, 2), 2);
}

TEST_F(SymbolDataTest, NoRequestReadsOrWritesBeyondItsCount) {
  Insert({10, 20, 30, 40, 50});
  EXPECT_EQ(Get(kModeRange, 2, 0, 100), (Times{10, 20}));  // the first records of the range
  int read = -1;
  EXPECT_EQ(Get(kModeNewest, -3, 0, 0, &read), Times{});
  EXPECT_EQ(read, 0);
  EXPECT_EQ(Get(kUnusedMode, 2), Times{});
  EXPECT_EQ(Get(-1, 2), Times{});
  EXPECT_EQ(Count(7, 4), 0);
  GET_SYMBOL_DATA_REQUEST noBuffer = cjdtest::MakeRequest(kModeOldest, 3, nullptr);
  EXPECT_EQ(symbol->GetData(&noBuffer), 0);
  EXPECT_EQ(noBuffer.count, 0);
}

TEST_F(SymbolDataTest, EmptySymbolDeliversNothing) {
  int read = -1;
  EXPECT_EQ(Get(kModeNewest, 3, 0, 0, &read), Times{});
  EXPECT_EQ(read, 0);
  EXPECT_EQ(Count(kModeRange, 0, 0, 100), 0);
}

TEST_F(SymbolDataTest, WritingDisabledCannotCreateAMissingFile) {
  cjdtest::TestOwner readOnlyOwner(false);
  auto symbol2 = cjdtest::MakeSymbol(&readOnlyOwner, "NEW", {'D', 0, 0});
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
  EXPECT_EQ(cjdtest::ReadFileBytes(path).size(), 2591u + 3 * 24);
}

}  // namespace
