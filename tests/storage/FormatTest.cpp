// The bytes of the data file: header layout, round trip, refusals, search.
#include <gtest/gtest.h>

#include <cstring>

#include <QDir>

#include "FileFormat.h"
#include "StorageTestSupport.h"

namespace {

template <typename T>
T At(std::vector<unsigned char> const& bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

std::string TextAt(std::vector<unsigned char> const& bytes, std::size_t offset) {
  return std::string(reinterpret_cast<const char*>(bytes.data()) + offset + 1, bytes[offset]);
}

bool ZeroFrom(std::vector<unsigned char> const& bytes, std::size_t from, std::size_t to) {
  for (std::size_t i = from; i < to; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

class FormatTest : public ::testing::Test {
 protected:
  void SetUp() override { QDir(dir.path()).mkdir("Demo"); }
  std::string Created(std::unique_ptr<CSymbol>& symbol) {
    EXPECT_EQ(symbol->Create(folder()), 0);
    return symbol->file()->path();
  }
  QString folder() const { return dir.path() + "/Demo"; }
  QTemporaryDir dir;
  TestOwner owner;
};

TEST_F(FormatTest, CandleHeaderBytes) {
  auto symbol = MakeSymbol(&owner, "EURUSD", {'I', 15, 0});
  const std::vector<unsigned char> bytes = FileBytes(Created(symbol));
  ASSERT_EQ(bytes.size(), 2587u);  // the reserved word is not written
  EXPECT_EQ(TextAt(bytes, 0), "Component Jet Data File");
  EXPECT_TRUE(ZeroFrom(bytes, 24, 256));
  EXPECT_EQ(At<std::uint16_t>(bytes, 256), 1);
  EXPECT_EQ(At<std::uint32_t>(bytes, 258), 2u);     // D
  EXPECT_EQ(At<std::uint16_t>(bytes, 262), 0);      // n
  EXPECT_EQ(At<std::uint32_t>(bytes, 264), 2323u);  // H = 1038 + 5 * 257
  EXPECT_EQ(bytes[268], 5);
  const char* names[] = {"Open", "High", "Low", "Close", "Volume"};
  for (int view = 0; view < 5; ++view) {
    EXPECT_EQ(bytes[269 + view * 257], DATA_POINT_FLOAT);
    EXPECT_EQ(TextAt(bytes, 270 + view * 257), names[view]);
  }
  EXPECT_EQ(TextAt(bytes, 1554), "EURUSD");  // name
  EXPECT_EQ(TextAt(bytes, 1810), "EURUSD");  // title
  EXPECT_EQ(bytes[2066], 'I');
  EXPECT_EQ(At<std::int32_t>(bytes, 2067), 15);
  EXPECT_EQ(TextAt(bytes, 2071), "Demo");
  EXPECT_EQ(TextAt(bytes, 2327), "EURUSD");
  EXPECT_FLOAT_EQ(At<float>(bytes, 2583), 0.0001f);
  EXPECT_EQ(symbol->file()->FirstRecordOffset(), 2591u);
}

TEST_F(FormatTest, FirstRecordFollowsTheReservedWord) {
  auto symbol = MakeSymbol(&owner, "EURUSD", {'I', 0, 0});
  const std::string path = Created(symbol);
  EXPECT_EQ(symbol->GetDataPointSize(), 12u);
  EXPECT_EQ(symbol->file()->headerSize(), 1552u);
  symbol->Open();
  TickDataPoint tick{1000, 1.5f, 7};
  symbol->InsertData(1, reinterpret_cast<unsigned char*>(&tick));
  const std::vector<unsigned char> bytes = FileBytes(path);
  ASSERT_EQ(bytes.size(), 1832u);
  EXPECT_TRUE(ZeroFrom(bytes, 1816, 1820));
  EXPECT_EQ(At<std::int32_t>(bytes, 1820), 1000);
  EXPECT_FLOAT_EQ(At<float>(bytes, 1824), 1.5f);
}

TEST_F(FormatTest, HeaderRoundTripKeepsEveryProperty) {
  auto symbol = MakeSymbol(&owner, "GBP/JPY", {'W', 0, 9}, "GBPJPY", "Prov");
  for (const char* name : {"first", "second"}) {
    auto description = std::make_unique<STRING_DESCRIPTION>();
    std::strcpy(description->name, name);
    std::strcpy(description->value, "value");
    symbol->descriptions().push_back(std::move(description));
  }
  const std::string path = Created(symbol);
  EXPECT_EQ(At<std::uint32_t>(FileBytes(path), 258), 1026u);

  CSymbol loaded(&owner, path.c_str());
  ASSERT_EQ(loaded.LoadProperties(), 0);
  EXPECT_EQ(std::u16string(loaded.name()), u"GBP/JPY");
  EXPECT_EQ(std::u16string(loaded.title()), u"GBP/JPY");
  EXPECT_EQ(std::u16string(loaded.providerName()), u"Prov");
  EXPECT_STREQ(loaded.code(), "GBPJPY");
  EXPECT_EQ(loaded.period().kind, 'W');
  EXPECT_FLOAT_EQ(loaded.pointSize(), 0.0001f);
  ASSERT_EQ(loaded.descriptions().size(), 2u);
  EXPECT_STREQ(loaded.descriptions()[1]->name, "second");
  EXPECT_EQ(loaded.descriptionCount(), 2);
  ASSERT_EQ(loaded.views().size(), 5u);
  EXPECT_STREQ(loaded.views()[3].name, "Close");
  EXPECT_EQ(loaded.GetDataPointSize(), 24u);
  EXPECT_EQ(loaded.file()->FirstRecordOffset(), 1026u + 2323 + 266);
}

TEST_F(FormatTest, LengthOfAPeriodOtherThanIntradayReadsAsZero) {
  auto symbol = MakeSymbol(&owner, "EURUSD", {'D', 3, 0});
  const std::string path = Created(symbol);
  EXPECT_EQ(At<std::int32_t>(FileBytes(path), 2067), 3);
  CSymbol loaded(&owner, path.c_str());
  ASSERT_EQ(loaded.LoadProperties(), 0);
  EXPECT_EQ(std::int32_t{loaded.period().length}, 0);
}

TEST_F(FormatTest, ForeignTypeOrVersionIsRefusedAndChangesNothing) {
  auto symbol = MakeSymbol(&owner, "EURUSD", {'I', 5, 0});
  const std::string path = Created(symbol);
  std::vector<unsigned char> bytes = FileBytes(path);
  auto refused = [&](std::vector<unsigned char> const& damaged) {
    QFile file(QString::fromStdString(path));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(reinterpret_cast<const char*>(damaged.data()), qint64(damaged.size()));
    file.close();
    CSymbol loaded(&owner, path.c_str());
    EXPECT_EQ(loaded.LoadProperties(), 1);
    EXPECT_TRUE(loaded.views().empty());
    EXPECT_EQ(loaded.name()[0], 0);
  };
  std::vector<unsigned char> otherType = bytes;
  otherType[23] = 'f';  // "Component Jet Data Fil" + 'f'
  refused(otherType);
  std::vector<unsigned char> version2 = bytes;
  version2[256] = 2;
  refused(version2);
}

TEST_F(FormatTest, CountIgnoresAPartialRecordAndSearchFindsTheFirstEqual) {
  auto symbol = MakeSymbol(&owner, "EURUSD", {'I', 5, 0});
  const std::string path = Created(symbol);
  symbol->Open();
  std::vector<CCandleDataPoint> points = {Candle(10), Candle(20), Candle(20, 2), Candle(30)};
  symbol->InsertData(1, reinterpret_cast<unsigned char*>(&points[0]));
  symbol->InsertData(1, reinterpret_cast<unsigned char*>(&points[1]));
  symbol->InsertData(1, reinterpret_cast<unsigned char*>(&points[3]));
  // A second record with time 20 can only come from another writer: append it raw.
  symbol->Close();
  {
    std::vector<unsigned char> bytes = FileBytes(path);
    bytes.insert(bytes.begin() + 2591 + 2 * 24, reinterpret_cast<unsigned char*>(&points[2]),
                 reinterpret_cast<unsigned char*>(&points[2]) + 24);
    bytes.insert(bytes.end(), {1, 2, 3});  // a partial record
    QFile file(QString::fromStdString(path));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(reinterpret_cast<const char*>(bytes.data()), qint64(bytes.size()));
  }
  symbol->Open();
  CSDTFile& file = *symbol->file();
  EXPECT_EQ(file.GetDataPointCount(), 4);
  EXPECT_EQ(file.Tell(), 2591);
  EXPECT_EQ(file.GetDataPointIndex(20), 1);
  EXPECT_EQ(file.GetDataPointIndex(25), 3);
  EXPECT_EQ(file.GetDataPointIndex(5), 0);
  EXPECT_EQ(file.GetDataPointIndex(31), 4);
}

TEST_F(FormatTest, SearchOverManyRecordsAgreesWithALinearScan) {
  auto symbol = MakeSymbol(&owner, "EURUSD", {'I', 1, 0});
  Created(symbol);
  symbol->Open();
  std::vector<CCandleDataPoint> points;
  for (int i = 0; i < 5000; ++i) points.push_back(Candle(100 + 3 * (i / 2)));  // pairs of equal times
  symbol->file()->AppendRecords(0, points.data(), int(points.size()));
  for (int time = 90; time < 100 + 3 * 2500 + 5; time += 1) {
    int expected = 0;
    while (expected < 5000 && points[expected].time < time) ++expected;
    ASSERT_EQ(symbol->file()->GetDataPointIndex(time), expected) << "time " << time;
  }
}

TEST_F(FormatTest, ClosedFileReadsAndWritesNothing) {
  CSymbol symbol(&owner, (dir.path() + "/missing.cjd").toLocal8Bit().constData());
  EXPECT_EQ(symbol.LoadProperties(), 1);
  CSDTFile& file = *symbol.file();
  char byte = 0;
  EXPECT_EQ(file.Read(&byte, 1), 0);
  EXPECT_EQ(file.Write(&byte, 1), 0);
  EXPECT_EQ(file.Tell(), 0);
  EXPECT_EQ(file.GetDataPointCount(), 0);
}

}  // namespace
