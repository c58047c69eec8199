// Host strings: both storage forms, the truncation rules, and the QString
// conversions.

#include "UnicodeString.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
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
  const std::size_t size = std::size_t{r.length} * r.charSize;
  const auto* data = reinterpret_cast<const char*>(r.data);
  return std::to_string(r.length) + "x" + std::to_string(r.charSize) + ":" +
         (data == nullptr ? "null"s : std::string(data, size));
}

QString Text(unsigned short const* units) { return QString::fromUtf16(reinterpret_cast<char16_t const*>(units)); }
QString BufferText(CUnicodeStringData const& s) { return Text(s.buffer()); }

template <std::size_t N>
void Fill(unsigned short (&units)[N]) {
  std::fill(std::begin(units), std::end(units), kSentinel);
}

}  // namespace

TEST(UnicodeStringData, StartsInlineAndEmpty) {
  CUnicodeStringData s;
  EXPECT_EQ(*reinterpret_cast<unsigned char const*>(&s), 1);  // the form flag: inline
  EXPECT_EQ(RecordText(s), "0x0:null");
  for (int i = 0; i < CUnicodeStringData::kBufferUnits; ++i) ASSERT_EQ(s.buffer()[i], 0) << i;
}

TEST(UnicodeStringData, InlineAssignmentKeeps999UnitsAndTerminator) {
  std::vector<unsigned short> const source = Alphabet(1200);
  CUnicodeStringData s;
  s = source.data();
  EXPECT_TRUE(s.isInline());
  EXPECT_TRUE(std::equal(source.begin(), source.begin() + 999, s.buffer()));
  EXPECT_EQ(s.buffer()[999], 0);

  s = static_cast<unsigned short const*>(nullptr);
  EXPECT_EQ(s.buffer()[0], 0);

  s = source.data();
  s = Units(u"abc").data();  // the longer old text is zeroed, not left behind
  EXPECT_EQ(BufferText(s), "abc");
  EXPECT_EQ(s.buffer()[4], 0);

  s = s.buffer() + 1;  // from its own buffer
  EXPECT_EQ(BufferText(s), "bc");
}

TEST(UnicodeStringData, RecordAssignmentCopiesOrStaysEmpty) {
  std::vector<unsigned short> source = Units(u"abcd");
  CUnicodeStringData s;
  s = Record(source, 4);
  EXPECT_FALSE(s.isInline());
  EXPECT_NE(HostWord{s.record().data}, reinterpret_cast<HostWord>(source.data()));
  source[0] = u'z';  // the copy is the object's own
  EXPECT_EQ(RecordText(s), "4x2:a\0b\0c\0d\0"s);

  for (coreUncStringType const& empty : {Record(source, 0), Record(source, 4, 0), coreUncStringType{4, 2, 0}}) {
    s = Record(source, 4);
    s = empty;
    EXPECT_FALSE(s.isInline());
    EXPECT_EQ(RecordText(s), "0x0:null");
  }

  s = Record(source, 4);
  s = s.record();  // from its own record
  EXPECT_EQ(RecordText(s), "4x2:z\0b\0c\0d\0"s);
}

TEST(UnicodeStringData, CopiesAreDeep) {
  std::vector<unsigned short> const source = Units(u"abc");
  CUnicodeStringData recordForm;
  recordForm = Record(source, 3);
  CUnicodeStringData copy(recordForm);
  EXPECT_FALSE(copy.isInline());
  EXPECT_NE(HostWord{copy.record().data}, HostWord{recordForm.record().data});
  EXPECT_EQ(RecordText(copy), "3x2:a\0b\0c\0"s);

  CUnicodeStringData inlineForm;
  inlineForm = source.data();
  copy = inlineForm;  // takes the inline form and drops the record
  EXPECT_TRUE(copy.isInline());
  EXPECT_EQ(RecordText(copy), "0x0:null");
  EXPECT_EQ(BufferText(copy), "abc");

  copy = copy;
  EXPECT_EQ(BufferText(copy), "abc");
}

TEST(UnicodeStringData, RawSetCopiesBytesAndCutsTheInlineFormAtTheLastUnit) {
  CUnicodeStringData s;
  EXPECT_EQ(s.set(0, 2, static_cast<void const*>("x")), 0);
  EXPECT_EQ(s.set(1, 0, static_cast<void const*>("x")), 0);

  EXPECT_EQ(s.set(3, 2, static_cast<void const*>("a\0b\0c\0")), 1);
  EXPECT_EQ(BufferText(s), "abc");
  EXPECT_EQ(RecordText(s), "0x0:null");

  std::vector<unsigned short> const longer = Alphabet(1200);
  EXPECT_EQ(s.set(1200, 2, static_cast<void const*>(longer.data())), 1);
  EXPECT_EQ(s.buffer()[998], longer[998]);
  EXPECT_EQ(s.buffer()[999], 0);
  EXPECT_EQ(s.set(1000, 2, static_cast<void const*>(longer.data())), 1);  // fits exactly
  EXPECT_EQ(s.buffer()[999], longer[999]);

  std::vector<unsigned short> const source = Units(u"abc");
  s = Record(source, 1);  // switches to the record form
  EXPECT_EQ(s.set(3, 2, static_cast<void const*>(source.data())), 1);
  EXPECT_EQ(RecordText(s), "3x2:a\0b\0c\0"s);
  EXPECT_EQ(s.buffer()[0], 0);
}

TEST(UnicodeStringData, UnitSetTerminatesTheInlineFormAtTheLength) {
  std::vector<unsigned short> const source = Alphabet(1200);
  CUnicodeStringData s;
  EXPECT_EQ(s.set(1000, 2, source.data()), 1);
  EXPECT_EQ(s.buffer()[998], source[998]);
  EXPECT_EQ(s.buffer()[999], 0);  // the terminator overwrote the 1000th
  EXPECT_EQ(s.set(5, 2, source.data()), 1);
  EXPECT_EQ(BufferText(s), "abcde");
  EXPECT_EQ(s.set(0, 2, source.data()), 0);
  EXPECT_EQ(s.buffer()[0], 0);
}

TEST(UnicodeStringData, UnitSetRecordRepeatsLowByteOfFirstCharacter) {
  std::vector<unsigned short> const source = Units(u"\u0142bc");  // first unit 0x0142
  std::vector<unsigned short> const start = Units(u"x");
  CUnicodeStringData s;
  s = Record(start, 1);
  ASSERT_EQ(s.set(3, 2, source.data()), 1);
  EXPECT_EQ(RecordText(s), "3x2:\x42\0\x42\0\x42\0"s);
  ASSERT_EQ(s.set(2, 3, reinterpret_cast<QChar const*>(source.data())), 1);
  EXPECT_EQ(RecordText(s), "2x3:\x42\0\0\x42\0\0"s);
}

TEST(UnicodeString, FromRecordCutsAtZeroUnitOrLength) {
  std::vector<unsigned short> const embedded = Units(std::u16string_view(u"ab\0cd", 5));
  CUnicodeString s;
  s = Record(embedded, 5);
  EXPECT_EQ(s.string(), "ab");
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
}

TEST(UnicodeString, FromUnitsKeepsWholeQString) {
  std::vector<unsigned short> const source = Alphabet(1200);
  CUnicodeString s;
  s = source.data();
  EXPECT_EQ(s.string().length(), 1200);  // the buffer's cut is the inline assignment's
  s = Units(u"").data();
  EXPECT_TRUE(s.string().isNull());
}

TEST(UnicodeString, FromQString) {
  CUnicodeString s;
  s = QString("abc");
  EXPECT_EQ(s.string(), "abc");
  EXPECT_EQ(BufferText(s), "abc");
  s = QString("");
  EXPECT_TRUE(s.string().isNull());
  EXPECT_EQ(s.buffer()[0], 0);

  std::vector<unsigned short> const start = Units(u"x");
  s = Record(start, 1);  // record form: the QString goes through the repeating set()
  s = QString("mno");
  EXPECT_EQ(RecordText(s), "3x2:m\0m\0m\0"s);

  CUnicodeString fromChars("local");
  EXPECT_EQ(fromChars.string(), "local");
  EXPECT_EQ(fromChars.buffer()[0], 0);  // the host side waits for toUnicode
}

TEST(UnicodeString, ToUnicodeForms) {
  CUnicodeString s("abc");
  EXPECT_EQ(s.toUnicode(), &s.record());
  EXPECT_EQ(BufferText(s), "abc");  // inline form: the characters land in the buffer
  ASSERT_EQ(s.toUnicodeC(), s.buffer());
  EXPECT_EQ(BufferText(s), "abc");

  CUnicodeString empty("");
  EXPECT_EQ(empty.toUnicodeC(), nullptr);
  EXPECT_EQ(empty.toUnicode(), &empty.record());
  EXPECT_EQ(RecordText(empty), "0x0:null");
}

TEST(UnicodeString, ToUnicodeCIntoCallerBuffer) {
  CUnicodeString s("abcdef");
  unsigned short out[8];
  Fill(out);
  EXPECT_EQ(s.toUnicodeC(out, 4), 6);
  EXPECT_EQ(Text(out), "abc");
  EXPECT_EQ(out[4], kSentinel);
  EXPECT_EQ(BufferText(s), "abc");

  Fill(out);
  EXPECT_EQ(s.toUnicodeC(out, 7), 6);
  EXPECT_EQ(Text(out), "abcdef");
  EXPECT_EQ(out[7], kSentinel);

  Fill(out);
  EXPECT_EQ(s.toUnicodeC(out, 0), 6);
  EXPECT_EQ(out[0], kSentinel);
  EXPECT_EQ(s.toUnicodeC(nullptr, 4), 0);
  EXPECT_EQ(CUnicodeString().toUnicodeC(out, 4), 0);
  EXPECT_EQ(out[0], kSentinel);
}

TEST(UnicodeUscpy, CopiesUpToFirstZeroUnit) {
  unsigned short dst[8];
  Fill(dst);
  EXPECT_EQ(uscpy(dst, QString()), dst);
  EXPECT_EQ(dst[0], kSentinel);
  uscpy(dst, QString(""));
  EXPECT_EQ(dst[0], 0);
  EXPECT_EQ(dst[1], kSentinel);
  uscpy(dst, QString("abc"));
  EXPECT_EQ(Text(dst), "abc");
  EXPECT_EQ(dst[4], kSentinel);

  Fill(dst);
  uscpy(dst, QString::fromUtf16(u"ab\0cd", 5));
  EXPECT_EQ(dst[2], 0);
  EXPECT_EQ(dst[3], kSentinel);
}

TEST(ConvertQStringToUnicode, NullEmptyAndNormal) {
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
