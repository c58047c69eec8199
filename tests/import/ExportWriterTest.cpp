// The writer's bytes: MASTER, EMASTER and XMASTER records at their offsets,
// the field sets of each layout, and the data file header, tail and count.
#include <gtest/gtest.h>

#include <tuple>

#include "ImportTestSupport.h"

namespace {

const QDate kFirst(1999, 12, 31);
const QDate kLast(2024, 1, 3);

int U8(QByteArray const& bytes, int offset) { return static_cast<unsigned char>(bytes[offset]); }
int U16(QByteArray const& bytes, int offset) {
  return U8(bytes, offset) | U8(bytes, offset + 1) << 8;
}
std::uint32_t U32(QByteArray const& bytes, int offset) {
  return std::uint32_t(U16(bytes, offset)) | std::uint32_t(U16(bytes, offset + 2)) << 16;
}

ExportIndexRecord Intraday(int number, QByteArray symbol, QByteArray name) {
  return {number, 32, 8, 'I', 15, symbol, name, kFirst, kLast};
}

// ---------------------------------------------------------------------------
// Index files.

TEST(ExportWriterTest, MasterRecordHoldsFileTypeShortNameAndDates) {
  const QByteArray dated = EncodeIndexRecord(Intraday(7, "EURUSD", "Euro vs US Dollar 15-minute"));
  ASSERT_EQ(dated.size(), kMasterRecordSize);
  EXPECT_EQ(U8(dated, 0), 7);
  EXPECT_EQ(U8(dated, 1), 0xE0);
  EXPECT_EQ(dated.mid(7, 16), "Euro vs US Dolla");
  EXPECT_EQ(U32(dated, 25), MbfWord(991231));
  EXPECT_EQ(U32(dated, 29), MbfWord(1240103));
  EXPECT_EQ(dated.mid(33, 3), QByteArray("I\x0F\0", 3));
  EXPECT_EQ(dated.mid(36), "EURUSD           ");

  const QByteArray bare = EncodeIndexRecord({1, 28, 7, 'D', 0, "AB"});
  EXPECT_EQ(bare.mid(7, 16), QByteArray(16, ' '));
  EXPECT_EQ(U32(bare, 25), 0u);
  EXPECT_EQ(U32(bare, 29), 0u);
}

TEST(ExportWriterTest, EmasterHeaderAndRecordFields) {
  const QByteArray longName(60, 'n');
  ExportIndexRecord daily{200, 24, 6, 'D', 0, "ABCDEFGHIJKLMNOPQ", longName, kFirst, kLast, 0x5F};
  const QByteArray bytes =
      EncodeEmaster({Intraday(3, "EURUSD", "Euro vs US Dollar 15-minute"), daily});
  ASSERT_EQ(bytes.size(), 3 * kEmasterRecordSize);
  EXPECT_EQ(U8(bytes, 0), 2);    // records
  EXPECT_EQ(U8(bytes, 2), 200);  // highest file number

  const QByteArray first = bytes.mid(kEmasterRecordSize, kEmasterRecordSize);
  EXPECT_EQ(U8(first, 2), 3);
  EXPECT_EQ(U8(first, 6), 8);
  EXPECT_EQ(U8(first, 7), 0xFF);
  EXPECT_EQ(first.mid(11, 14), QByteArray("EURUSD\0\0\0\0\0\0\0\0", 14));
  EXPECT_EQ(first.mid(32, 16), "Euro vs US Dolla");
  EXPECT_EQ(first[60], 'I');
  EXPECT_EQ(U16(first, 62), 15);
  EXPECT_EQ(AsFloat(U32(first, 64)), 19991231.0f);
  EXPECT_EQ(AsFloat(U32(first, 72)), 20240103.0f);
  EXPECT_EQ(first.mid(139), QByteArray("Euro vs US Dollar 15-minute").leftJustified(53, '\0'));

  // Symbol and long name cut to their fields; a given field set is kept.
  const QByteArray second = bytes.mid(2 * kEmasterRecordSize);
  EXPECT_EQ(U8(second, 2), 200);
  EXPECT_EQ(U8(second, 7), 0x5F);
  EXPECT_EQ(second.mid(11, 14), "ABCDEFGHIJKLMN");
  EXPECT_EQ(second.mid(139), longName.left(53));
}

TEST(ExportWriterTest, XmasterHeaderAndRecordFields) {
  ExportIndexRecord undated{256, 28, 7, 'D', 0, "GBPUSD", "British Pound vs US Dollar daily"};
  const QByteArray bytes = EncodeXmaster({undated, Intraday(1999, "EURUSD", QByteArray(50, 'n'))});
  ASSERT_EQ(bytes.size(), 3 * kXmasterRecordSize);
  EXPECT_EQ(bytes.left(4), "\x5D\xFE\x58\x4D");
  EXPECT_EQ(U16(bytes, 10), 2);
  EXPECT_EQ(U16(bytes, 14), 2);
  EXPECT_EQ(U16(bytes, 18), 2000);  // next free file number

  const QByteArray first = bytes.mid(kXmasterRecordSize, kXmasterRecordSize);
  EXPECT_EQ(U8(first, 0), 1);
  EXPECT_EQ(first.mid(1, 15), QByteArray("GBPUSD").leftJustified(15, '\0'));
  EXPECT_EQ(first.mid(16, 46),
            QByteArray("British Pound vs US Dollar daily").leftJustified(46, '\0'));
  EXPECT_EQ(first[62], 'D');
  EXPECT_EQ(U16(first, 65), 256);
  EXPECT_EQ(U8(first, 70), 0x7F);
  EXPECT_EQ(U32(first, 108), 0u);
  EXPECT_EQ(U32(first, 116), 0u);

  const QByteArray second = bytes.mid(2 * kXmasterRecordSize);
  EXPECT_EQ(second.mid(16, 46), QByteArray(45, 'n') + '\0');  // cut to 45
  EXPECT_EQ(second[62], 'I');
  EXPECT_EQ(U16(second, 63), 15);
  EXPECT_EQ(U16(second, 65), 1999);
  EXPECT_EQ(U8(second, 70), 0xFF);
  EXPECT_EQ(U32(second, 108), 19991231u);
  EXPECT_EQ(U32(second, 116), 20240103u);

  // A header may disagree with its records; without records the next is 256.
  const QByteArray header = EncodeXmasterHeader(7, 400);
  EXPECT_EQ(header.size(), kXmasterRecordSize);
  EXPECT_EQ(U16(header, 10), 7);
  EXPECT_EQ(U16(header, 14), 7);
  EXPECT_EQ(U16(header, 18), 400);
  EXPECT_EQ(U16(EncodeXmaster({}), 18), 256);
}

TEST(ExportWriterTest, FieldBitsOfEveryLayout) {
  const std::tuple<char, int, int> cases[] = {
      {'D', 5, 0x1F}, {'D', 6, 0x3F}, {'D', 7, 0x7F}, {'W', 5, 0x1F}, {'M', 6, 0x3F},
      {'Y', 7, 0x7F}, {'I', 6, 0x9F}, {'I', 7, 0xBF}, {'I', 8, 0xFF}, {'D', 4, 0},
      {'D', 8, 0},    {'I', 5, 0},    {'I', 9, 0},
  };
  for (auto const& [period, fields, bits] : cases)
    EXPECT_EQ(FieldBits(period, fields), bits) << period << fields;
}

// ---------------------------------------------------------------------------
// Data files.

TEST(ExportWriterTest, DataFileHeaderCountTailAndOverride) {
  const std::vector<std::vector<std::uint32_t>> rows{{MbfDate(kFirst)}, {MbfDate(kLast)}};
  const QByteArray plain = EncodeDataFile(28, rows);
  ASSERT_EQ(plain.size(), 3 * 28);
  EXPECT_EQ(U16(plain, 2), 3);  // records + 1
  EXPECT_EQ(plain.left(28), QByteArray("\0\0\x03", 3).leftJustified(28, '\0'));
  EXPECT_EQ(U32(plain, 28), MbfDate(kFirst));
  EXPECT_EQ(U32(plain, 56), MbfDate(kLast));

  const QByteArray tailed = EncodeDataFile(28, rows, {.zeroTailRecords = 2});
  EXPECT_EQ(tailed.left(plain.size()), plain);
  EXPECT_EQ(tailed.mid(plain.size()), QByteArray(2 * 28, '\0'));

  EXPECT_EQ(U16(EncodeDataFile(28, rows, {.headerCount = 0}), 2), 0);
  EXPECT_EQ(U16(EncodeDataFile(28, rows, {.headerCount = 9}), 2), 9);
  EXPECT_EQ(U16(EncodeDataFile(28, {}), 2), 1);
  EXPECT_EQ(U16(EncodeDataFile(4, rows), 2), 3);  // the shortest header with a count
  EXPECT_EQ(EncodeDataFile(3, {}, {.headerCount = 9}), QByteArray(3, '\0'));  // too short for one
}

}  // namespace
