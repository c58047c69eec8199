// Host strings: both storage forms, the truncation rules, and the QString
// conversions.

#include "UnicodeString.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::string_literals;

constexpr unsigned short kSentinel = 0xBEEF;  // marks units a call must not touch

// The units of text followed by a terminator.
std::vector<unsigned short> Units(std::u16string_view text) {
  std::vector<unsigned short> units(text.begin(), text.end());
  units.push_back(0);
  return units;
}

// n units 'a', 'b', ... 'z', 'a', ... followed by a terminator.
std::vector<unsigned short> Alphabet(std::size_t n) {
  std::vector<unsigned short> units(n + 1, 0);
  for (std::size_t i = 0; i < n; ++i) units[i] = u'a' + i % 26;
  return units;
}

coreUncStringType Record(std::vector<unsigned short> const& units, std::uint32_t length,
                         std::uint8_t charSize = 2) {
  return coreUncStringType{length, charSize, reinterpret_cast<HostWord>(units.data())};
}

// The record as "<length>x<charSize>:<its bytes>", "...:null" without data.
std::string RecordText(CUnicodeStringData const& s) {
  const coreUncStringType& r = s.record();
  const auto* data = reinterpret_cast<const char*>(r.data);
  return std::to_string(r.length) + "x" + std::to_string(r.charSize) + ":" +
         (data == nullptr ? "null"s : std::string(data, std::size_t{r.length} * r.charSize));
}

QString Text(unsigned short const* units) {
  return QString::fromUtf16(reinterpret_cast<char16_t const*>(units));
}
QString BufferText(CUnicodeStringData const& s) { return Text(s.buffer()); }

}  // namespace

TEST(UnicodeStringData, InlineFormStartsEmptyAndKeeps999Units) {
  CUnicodeStringData s;
  EXPECT_EQ(*reinterpret_cast<unsigned char const*>(&s), 1);  // the form flag: inline
  EXPECT_EQ(RecordText(s), "0x0:null");
  for (int i = 0; i < CUnicodeStringData::kBufferUnits; ++i) ASSERT_EQ(s.buffer()[i], 0) << i;

  std::vector<unsigned short> const source = Alphabet(1200);
  s = source.data();
  EXPECT_TRUE(std::equal(source.begin(), source.begin() + 999, s.buffer()));
  EXPECT_EQ(s.buffer()[999], 0);
  s = Units(u"abc").data();  // the longer old text is zeroed, not left behind
  EXPECT_EQ(BufferText(s), "abc");
  EXPECT_EQ(s.buffer()[4], 0);
  s = s.buffer() + 1;  // from its own buffer
  EXPECT_EQ(BufferText(s), "bc");
  s = static_cast<unsigned short const*>(nullptr);
  EXPECT_EQ(s.buffer()[0], 0);
}

TEST(UnicodeStringData, RecordFormOwnsItsCopyAndCopiesAreDeep) {
  std::vector<unsigned short> source = Units(u"abcd");
  CUnicodeStringData s;
  s = Record(source, 4);
  EXPECT_FALSE(s.isInline());
  source[0] = u'z';  // the copy is the object's own
  EXPECT_EQ(RecordText(s), "4x2:a\0b\0c\0d\0"s);

  CUnicodeStringData copy(s);
  EXPECT_FALSE(copy.isInline());
  EXPECT_NE(HostWord{copy.record().data}, HostWord{s.record().data});
  EXPECT_EQ(RecordText(copy), "4x2:a\0b\0c\0d\0"s);
  CUnicodeStringData inlineForm;
  inlineForm = source.data();
  copy = inlineForm;  // takes the inline form and drops the record
  EXPECT_TRUE(copy.isInline());
  EXPECT_EQ(RecordText(copy), "0x0:null");
  EXPECT_EQ(BufferText(copy), "zbcd");
  copy = copy;
  EXPECT_EQ(BufferText(copy), "zbcd");

  for (coreUncStringType const& empty :
       {Record(source, 0), Record(source, 4, 0), coreUncStringType{4, 2, 0}}) {
    s = Record(source, 4);
    s = empty;
    EXPECT_FALSE(s.isInline());
    EXPECT_EQ(RecordText(s), "0x0:null");
  }
  s = Record(source, 4);
  s = s.record();  // from its own record
  EXPECT_EQ(RecordText(s), "4x2:z\0b\0c\0d\0"s);
}

TEST(UnicodeStringData, SetFillsTheInlineFormUpToItsLastUnit) {
  std::vector<unsigned short> const source = Alphabet(1200);
  CUnicodeStringData s;
  EXPECT_EQ(s.set(0, 2, static_cast<void const*>("x")), 0);
  EXPECT_EQ(s.set(1, 0, static_cast<void const*>("x")), 0);
  EXPECT_EQ(s.set(3, 2, static_cast<void const*>("a\0b\0c\0")), 1);
  EXPECT_EQ(BufferText(s), "abc");
  EXPECT_EQ(RecordText(s), "0x0:null");
  EXPECT_EQ(s.set(1200, 2, static_cast<void const*>(source.data())),
            1);  // raw bytes: cut, last unit zeroed
  EXPECT_EQ(s.buffer()[998], source[998]);
  EXPECT_EQ(s.buffer()[999], 0);
  EXPECT_EQ(s.set(1000, 2, static_cast<void const*>(source.data())), 1);  // fits exactly
  EXPECT_EQ(s.buffer()[999], source[999]);

  EXPECT_EQ(s.set(1000, 2, source.data()), 1);  // units: the terminator overwrites the 1000th
  EXPECT_EQ(s.buffer()[998], source[998]);
  EXPECT_EQ(s.buffer()[999], 0);
  EXPECT_EQ(s.set(5, 2, source.data()), 1);
  EXPECT_EQ(BufferText(s), "abcde");
  EXPECT_EQ(s.set(0, 2, source.data()), 0);
  EXPECT_EQ(s.buffer()[0], 0);
}

TEST(UnicodeStringData, SetFillsTheRecordFormAndUnitsRepeatTheFirstLowByte) {
  std::vector<unsigned short> const source = Units(u"\u0142bc");  // first unit 0x0142
  CUnicodeStringData s;
  s = Alphabet(3).data();
  s = Record(Units(u"x"), 1);  // switches to the record form and clears the buffer
  EXPECT_EQ(s.set(3, 2, static_cast<void const*>(source.data())), 1);
  EXPECT_EQ(RecordText(s), "3x2:\x42\x01\x62\0\x63\0"s);
  EXPECT_EQ(s.buffer()[0], 0);
  ASSERT_EQ(s.set(3, 2, source.data()), 1);
  EXPECT_EQ(RecordText(s), "3x2:\x42\0\x42\0\x42\0"s);
  ASSERT_EQ(s.set(2, 3, reinterpret_cast<QChar const*>(source.data())), 1);
  EXPECT_EQ(RecordText(s), "2x3:\x42\0\0\x42\0\0"s);
}

TEST(UnicodeString, AssignmentsFillTheQStringAndTheHostSide) {
  std::vector<unsigned short> const embedded = Units(std::u16string_view(u"ab\0cd", 5));
  CUnicodeString s;
  s = Record(embedded, 5);
  EXPECT_EQ(s.string(), "ab");                        // the QString stops at a 0 unit or the length
  EXPECT_EQ(RecordText(s), "5x2:a\0b\0\0\0c\0d\0"s);  // the record keeps all of it
  std::vector<unsigned short> const plain = Units(u"abcdef");
  s = Record(plain, 4);
  EXPECT_EQ(s.string(), "abcd");
  s = Record(plain, 4, 1);  // charSize is not consulted for the QString
  EXPECT_EQ(s.string(), "abcd");
  EXPECT_EQ(RecordText(s), "4x1:a\0b\0"s);
  s = coreUncStringType{3, 2, 0};
  EXPECT_TRUE(s.string().isNull());
  coreUncStringType const whole = Record(plain, 6);
  EXPECT_EQ(CUnicodeString(&whole).string(), "abcdef");
  EXPECT_TRUE(CUnicodeString(static_cast<coreUncStringType const*>(nullptr)).string().isNull());

  std::vector<unsigned short> const source = Alphabet(1200);
  s = source.data();
  EXPECT_EQ(s.string().length(), 1200);  // the buffer's cut is the inline assignment's
  s = Units(u"").data();
  EXPECT_TRUE(s.string().isNull());

  s = QString("abc");
  EXPECT_EQ(s.string(), "abc");
  EXPECT_EQ(BufferText(s), "abc");
  s = QString("");
  EXPECT_TRUE(s.string().isNull());
  EXPECT_EQ(s.buffer()[0], 0);
  s = Record(plain, 1);  // record form: the QString goes through the repeating set()
  s = QString("mno");
  EXPECT_EQ(RecordText(s), "3x2:m\0m\0m\0"s);

  CUnicodeString fromChars("local");
  EXPECT_EQ(fromChars.string(), "local");
  EXPECT_EQ(fromChars.buffer()[0], 0);  // the host side waits for toUnicode
}

TEST(UnicodeString, ToUnicodeRebuildsTheHostSide) {
  CUnicodeString s("abcdef");
  EXPECT_EQ(s.toUnicode(), &s.record());
  EXPECT_EQ(BufferText(s), "abcdef");  // inline form: the characters land in the buffer
  ASSERT_EQ(s.toUnicodeC(), s.buffer());
  EXPECT_EQ(BufferText(s), "abcdef");
  CUnicodeString empty("");
  EXPECT_EQ(empty.toUnicodeC(), nullptr);
  EXPECT_EQ(empty.toUnicode(), &empty.record());
  EXPECT_EQ(RecordText(empty), "0x0:null");

  std::array<unsigned short, 8> out;
  out.fill(kSentinel);
  EXPECT_EQ(s.toUnicodeC(out.data(), 4), 6);  // the whole length, not what fitted
  EXPECT_EQ(Text(out.data()), "abc");
  EXPECT_EQ(out[4], kSentinel);
  EXPECT_EQ(BufferText(s), "abc");
  out.fill(kSentinel);
  EXPECT_EQ(s.toUnicodeC(out.data(), 7), 6);
  EXPECT_EQ(Text(out.data()), "abcdef");
  EXPECT_EQ(out[7], kSentinel);
  out.fill(kSentinel);
  EXPECT_EQ(s.toUnicodeC(out.data(), 0), 6);
  EXPECT_EQ(s.toUnicodeC(nullptr, 4), 0);
  EXPECT_EQ(CUnicodeString().toUnicodeC(out.data(), 4), 0);
  EXPECT_EQ(out[0], kSentinel);
}

TEST(UnicodeHelpers, UscpyStopsAtTheFirstZeroUnitAndConvertQStringToUnicodeAllocates) {
  std::array<unsigned short, 8> dst;
  dst.fill(kSentinel);
  EXPECT_EQ(uscpy(dst.data(), QString()), dst.data());
  EXPECT_EQ(dst[0], kSentinel);
  uscpy(dst.data(), QString(""));
  EXPECT_EQ(dst[0], 0);
  EXPECT_EQ(dst[1], kSentinel);
  uscpy(dst.data(), QString("abc"));
  EXPECT_EQ(Text(dst.data()), "abc");
  EXPECT_EQ(dst[4], kSentinel);
  dst.fill(kSentinel);
  uscpy(dst.data(), QString::fromUtf16(u"ab\0cd", 5));
  EXPECT_EQ(dst[2], 0);
  EXPECT_EQ(dst[3], kSentinel);

  unsigned short sentinel = kSentinel;
  unsigned short* out = &sentinel;
  int length = -7;
  EXPECT_EQ(ConvertQStringToUnicode(QString(), &out, length), 0);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, -7);
  out = &sentinel;
  EXPECT_EQ(ConvertQStringToUnicode(QString(""), &out, length), 0);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(ConvertQStringToUnicode(QString("hey"), &out, length), 3);
  EXPECT_EQ(length, 3);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(QString(reinterpret_cast<QChar const*>(out), 3), "hey");
  std::free(out);
}
