// The bytes the header writer puts in the data file, and what a load of them
// gives back. Offsets are written out by hand, not taken from the writer.
#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>
#include <cstring>
#include <fstream>

#include "CjdTestFiles.h"

namespace {

using cjdtest::Bytes;

template <typename T>
T At(Bytes const& bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

std::string TextAt(Bytes const& bytes, std::size_t offset) {
  return std::string(reinterpret_cast<const char*>(bytes.data()) + offset + 1, bytes[offset]);
}

class FormatTest : public ::testing::Test {
 protected:
  void SetUp() override { QDir(dir.path()).mkdir("Demo"); }
  std::string Created(std::unique_ptr<CSymbol>& symbol) {
    EXPECT_EQ(symbol->Create(dir.path() + "/Demo"), 0);
    return symbol->file()->path();
  }
  QTemporaryDir dir;
  cjdtest::TestOwner owner;
};

// Five candle views: D = 2, H = 1038 + 5 * 257, records from D + H + 266.
// The header writer does not write the reserved word before the records.
TEST_F(FormatTest, CandleHeaderBytes) {
  auto symbol = cjdtest::MakeSymbol(&owner, "EURUSD", {'I', 15, 0});
  const Bytes bytes = cjdtest::ReadFileBytes(Created(symbol));
  ASSERT_EQ(bytes.size(), 2587u);
  EXPECT_EQ(bytes, cjdtest::HeaderFields{}.Header());
  EXPECT_EQ(TextAt(bytes, 0), "Component Jet Data File");
  EXPECT_EQ(At<std::uint16_t>(bytes, 256), 1);
  EXPECT_EQ(At<std::uint32_t>(bytes, 258), 2u);     // D
  EXPECT_EQ(At<std::uint16_t>(bytes, 262), 0);      // no descriptions
  EXPECT_EQ(At<std::uint32_t>(bytes, 264), 2323u);  // H
  EXPECT_EQ(bytes[268], 5);
  EXPECT_EQ(TextAt(bytes, 1554), "EURUSD");  // name
  EXPECT_EQ(At<std::int32_t>(bytes, 2067), 15);
  EXPECT_FLOAT_EQ(At<float>(bytes, 2583), 0.0001f);
  EXPECT_EQ(symbol->file()->FirstRecordOffset(), 2591u);
}

TEST_F(FormatTest, FirstRecordFollowsTheReservedWord) {
  auto symbol = cjdtest::MakeSymbol(&owner, "EURUSD", {'I', 0, 0});
  const std::string path = Created(symbol);
  EXPECT_EQ(symbol->GetDataPointSize(), 12u);
  EXPECT_EQ(symbol->file()->headerSize(), 1552u);
  symbol->Open();
  TickDataPoint tick{1000, 1.5f, 7};
  symbol->InsertData(1, reinterpret_cast<unsigned char*>(&tick));
  EXPECT_EQ(symbol->file()->GetDataPointCount(), 1);
  EXPECT_EQ(symbol->file()->Tell(), 1820);  // counting rewinds to the first record
  const Bytes bytes = cjdtest::ReadFileBytes(path);
  ASSERT_EQ(bytes.size(), 1832u);
  EXPECT_EQ(At<std::int32_t>(bytes, 1816), 0);
  EXPECT_EQ(At<std::int32_t>(bytes, 1820), 1000);
  EXPECT_FLOAT_EQ(At<float>(bytes, 1824), 1.5f);
  // A partial record left by a crash is not counted; the next append goes over it.
  std::ofstream(path, std::ios::app | std::ios::binary).write("\x01\x02\x03\x04\x05", 5);
  EXPECT_EQ(symbol->GetDataPointCount(), 1);
  tick.time = 2000;
  symbol->InsertData(1, reinterpret_cast<unsigned char*>(&tick));
  EXPECT_EQ(cjdtest::ReadFileBytes(path).size(), 1844u);
  EXPECT_EQ(At<std::int32_t>(cjdtest::ReadFileBytes(path), 1832), 2000);
}

// With two descriptions everything after them moves by 1024 bytes. The
// length of a period other than intraday is written but reads back as zero.
TEST_F(FormatTest, HeaderWithDescriptionsIsWrittenFieldByField) {
  auto symbol = cjdtest::MakeSymbol(&owner, "GBP/JPY", {'D', 3, 9}, "GBPJPY", "Prov");
  cjdtest::HeaderFields expected;
  for (const char* name : {"first", "second"}) {
    auto description = std::make_unique<STRING_DESCRIPTION>();
    std::strcpy(description->name, name);
    std::strcpy(description->value, "value");
    symbol->descriptions().push_back(std::move(description));
    expected.descriptions.push_back({name, "value"});
  }
  expected.name = expected.title = "GBP/JPY";
  expected.kind = 'D';
  expected.length = 3;
  expected.provider = "Prov";
  expected.code = "GBPJPY";
  const std::string path = Created(symbol);
  EXPECT_EQ(cjdtest::ReadFileBytes(path), expected.Header());

  CSymbol loaded(&owner, path.c_str());
  ASSERT_EQ(loaded.LoadProperties(), 0);
  EXPECT_EQ(loaded.period().kind, 'D');
  EXPECT_EQ(std::int32_t{loaded.period().length}, 0);
  EXPECT_EQ(loaded.descriptionCount(), 2);
  EXPECT_EQ(loaded.file()->FirstRecordOffset(), 1026u + 2323 + 266);
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
