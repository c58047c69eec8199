// The byte buffer: growth, edits at checked positions, searches and lines.

#include "AppendixData.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Bytes(const appendixData& buffer) {
  return std::string(buffer.data() == nullptr ? "" : buffer.data(), buffer.usedLength());
}

// A buffer holding text, without its NUL.
struct Filled : appendixData {
  explicit Filled(const char* text) : appendixData(16) { insertData(0, text); }
  using appendixData::setOffset;
};

}  // namespace

TEST(AppendixDataGrowth, GrowsToUsedPlusSlackPlusNeeded) {
  appendixData buffer(512);
  std::string const chunk(600, 'a');
  ASSERT_EQ(buffer.insertData(0, chunk.c_str()), 0);
  EXPECT_EQ(buffer.capacity(), 0 + 512 + 600);
  ASSERT_EQ(buffer.insertData(600, chunk.c_str()), 0);
  EXPECT_EQ(buffer.capacity(), 600 + 512 + 1200);
  EXPECT_EQ(Bytes(buffer), chunk + chunk);

  Filled tail("xyz");
  ASSERT_EQ(tail.moveForvardBufer(10, 1), 0);
  EXPECT_EQ(tail.capacity(), 3 + 512 + 10);
  EXPECT_EQ(std::string(tail.data() + tail.capacity() - 3, 3), "xyz");

  tail.releaseBuffer(true);
  EXPECT_TRUE(tail.IsEmpty());
  EXPECT_EQ(tail.insertData(0, "again"), 0);
  EXPECT_EQ(Bytes(tail), "again");
}

TEST(AppendixDataEdits, InsertAndReplaceStayInsideTheUsedBytes) {
  Filled buffer("hello world");
  EXPECT_EQ(buffer.insertData(5, ","), 0);
  EXPECT_EQ(buffer.replaceData(0, 5, "goodbye"), 0);  // grows the tail
  EXPECT_EQ(Bytes(buffer), "goodbye, world");
  EXPECT_EQ(buffer.replaceData(7, 14, "!"), 0);  // shrinks the tail
  EXPECT_EQ(Bytes(buffer), "goodbye!");
  EXPECT_EQ(buffer.insertData(9, "x"), 1);
  EXPECT_EQ(buffer.insertData(-1, "x"), 1);
  EXPECT_EQ(buffer.replaceData(3, 2, "x"), 1);
  EXPECT_EQ(buffer.replaceData(0, 9, "x"), 1);
  EXPECT_EQ(Bytes(buffer), "goodbye!");
}

TEST(AppendixDataEdits, CutBufferMovesTheOffsetAndRelocDoesNot) {
  Filled buffer("0123456789");
  EXPECT_EQ(buffer.offset(), -1);
  buffer.setOffset(10);
  EXPECT_EQ(buffer.cutBuffer(3), 0);
  EXPECT_EQ(Bytes(buffer), "3456789");
  EXPECT_EQ(buffer.offset(), 7);
  EXPECT_EQ(buffer.relocBuffer(1), 0);
  EXPECT_EQ(buffer.offset(), 7);
  buffer.cutBuffer(50);  // only the 6 bytes present are cut: 7 - 6 = 1 stays
  EXPECT_TRUE(buffer.IsEmpty());
  EXPECT_EQ(buffer.offset(), 1);
  Filled exact("abc");
  exact.setOffset(3);
  exact.cutBuffer(3);
  EXPECT_EQ(exact.offset(), -1);
}

TEST(AppendixDataSearch, FindDataPositionsAndEnds) {
  Filled buffer("ab.\r\ncd ab\r\n");
  // "at <pos> to <end>" of a match from pos, or "none <end>".
  auto find = [&](int pos, const char* pattern) {
    int end = -2;
    if (buffer.findData(pos, pattern, &end) != 0) return "none " + std::to_string(end);
    return "at " + std::to_string(pos) + " to " + std::to_string(end);
  };
  EXPECT_EQ(find(-1, "ab"), "at 0 to 2");
  EXPECT_EQ(find(1, "ab"), "at 8 to 10");
  EXPECT_EQ(find(8, "AB"), "none 12");  // case-sensitive; end: the used length
  EXPECT_EQ(find(12, "ab"), "none 0");

  // Only the first 40 bytes of a pattern are compared.
  Filled longText((std::string(40, 'p') + "tail").c_str());
  int end = 0;
  EXPECT_EQ(longText.findData((std::string(40, 'p') + "other").c_str(), &end), 0);
  EXPECT_EQ(end, 40);
}

TEST(AppendixDataSearch, FindOneStrReadsLinesAndTheUnterminatedLast) {
  Filled buffer("first\r\nsecond line\r\nlast");
  char line[8];
  int pos = 0;
  ASSERT_EQ(buffer.findOneStr(pos, line, sizeof line), 0);
  EXPECT_STREQ(line, "first\r\n");
  ASSERT_EQ(buffer.findOneStr(pos, line, sizeof line), 0);
  EXPECT_STREQ(line, "second ");  // cut to fit, but pos moves behind the whole line
  EXPECT_EQ(pos, 20);
  ASSERT_EQ(buffer.findOneStr(pos, line, sizeof line), 0);
  EXPECT_STREQ(line, "last");
  EXPECT_EQ(buffer.findOneStr(pos, line, sizeof line), 1);
  pos = 0;
  EXPECT_EQ(buffer.findOneStr(pos, line, 0), 1);
  EXPECT_EQ(pos, 0);
}
