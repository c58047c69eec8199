// Host strings: both storage forms, the truncation rules, and the QString
// conversions.

#include "UnicodeString.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

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

// The record's fields by value: gtest binds its arguments by reference, which
// a packed field does not allow.
std::uint32_t Length(CUnicodeStringData const& s) { return s.record().length; }
unsigned CharSize(CUnicodeStringData const& s) { return s.record().charSize; }
HostWord Data(CUnicodeStringData const& s) { return s.record().data; }

unsigned char const* RecordBytes(CUnicodeStringData const& s) {
  return reinterpret_cast<unsigned char const*>(s.record().data);
}

QString Text(unsigned short const* units) {
  return QString::fromUtf16(reinterpret_cast<char16_t const*>(units));
}

QString BufferText(CUnicodeStringData const& s) { return Text(s.buffer()); }

}  // namespace

TEST(UnicodeStringData, PackedLayoutAndEmptyStart) {
  CUnicodeStringData s;
  auto const* base = reinterpret_cast<unsigned char const*>(&s);
  EXPECT_EQ(reinterpret_cast<unsigned char const*>(&s.record()) - base, 1);
  EXPECT_EQ(reinterpret_cast<unsigned char const*>(s.buffer()) - base,
            static_cast<std::ptrdiff_t>(1 + sizeof(coreUncStringType)));
  EXPECT_EQ(*base, 1);  // the form flag: inline
  EXPECT_EQ(Data(s), 0u);
  for (int i = 0; i < CUnicodeStringData::kBufferUnits; ++i) ASSERT_EQ(s.buffer()[i], 0) << i;
}

TEST(UnicodeStringData, InlineAssignmentKeeps999UnitsAndTerminator) {
  std::vector<unsigned short> const source = Alphabet(1200);
  CUnicodeStringData s;
  s = source.data();
  EXPECT_TRUE(s.isInline());
  for (int i = 0; i < 999; ++i) ASSERT_EQ(s.buffer()[i], source[i]) << i;
  EXPECT_EQ(s.buffer()[999], 0);

  s = static_cast<unsigned short const*>(nullptr);
  EXPECT_EQ(s.buffer()[0], 0);

  std::vector<unsigned short> const shorter = Units(u"abc");
  s = source.data();
  s = shorter.data();  // the longer old text is zeroed, not left behind
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
  ASSERT_EQ(Length(s), 4u);
  EXPECT_EQ(CharSize(s), 2u);
  EXPECT_NE(Data(s), reinterpret_cast<HostWord>(source.data()));
  source[0] = u'z';  // the copy is the object's own
  EXPECT_EQ(RecordBytes(s)[0], 'a');

  for (coreUncStringType const& empty :
       {Record(source, 0), Record(source, 4, 0), coreUncStringType{4, 2, 0}}) {
    s = Record(source, 4);
    s = empty;
    EXPECT_FALSE(s.isInline());
    EXPECT_EQ(Length(s), 0u);
    EXPECT_EQ(CharSize(s), 0u);
    EXPECT_EQ(Data(s), 0u);
  }

  s = Record(source, 4);
  s = s.record();  // from its own record
  ASSERT_EQ(Length(s), 4u);
  EXPECT_EQ(RecordBytes(s)[0], 'z');
}

TEST(UnicodeStringData, CopiesAreDeep) {
  std::vector<unsigned short> const source = Units(u"abc");
  CUnicodeStringData recordForm;
  recordForm = Record(source, 3);
  CUnicodeStringData copy(recordForm);
  EXPECT_FALSE(copy.isInline());
  ASSERT_EQ(Length(copy), 3u);
  EXPECT_NE(Data(copy), Data(recordForm));
  EXPECT_EQ(RecordBytes(copy)[2], 'b');

  CUnicodeStringData inlineForm;
  inlineForm = source.data();
  copy = inlineForm;  // takes the inline form and drops the record
  EXPECT_TRUE(copy.isInline());
  EXPECT_EQ(Data(copy), 0u);
  EXPECT_EQ(BufferText(copy), "abc");

  copy = copy;
  EXPECT_EQ(BufferText(copy), "abc");
}

TEST(UnicodeStringData, RawSetInline) {
  CUnicodeStringData s;
  EXPECT_EQ(s.set(0, 2, static_cast<void const*>("x")), 0);
  EXPECT_EQ(s.set(1, 0, static_cast<void const*>("x")), 0);

  char const bytes[] = "a\0b\0c\0";
  EXPECT_EQ(s.set(3, 2, static_cast<void const*>(bytes)), 1);
  EXPECT_EQ(BufferText(s), "abc");
  EXPECT_EQ(Data(s), 0u);

  std::vector<unsigned short> const longer = Alphabet(1200);
  EXPECT_EQ(s.set(1200, 2, static_cast<void const*>(longer.data())), 1);
  EXPECT_EQ(s.buffer()[998], longer[998]);
  EXPECT_EQ(s.buffer()[999], 0);

  EXPECT_EQ(s.set(1000, 2, static_cast<void const*>(longer.data())), 1);  // fits exactly
  EXPECT_EQ(s.buffer()[999], longer[999]);
}

TEST(UnicodeStringData, RawSetRecord) {
  std::vector<unsigned short> const source = Units(u"abc");
  CUnicodeStringData s;
  s = Record(source, 1);  // switches to the record form
  EXPECT_EQ(s.set(3, 2, static_cast<void const*>(source.data())), 1);
  ASSERT_EQ(Length(s), 3u);
  EXPECT_EQ(CharSize(s), 2u);
  EXPECT_EQ(RecordBytes(s)[4], 'c');
  EXPECT_EQ(s.buffer()[0], 0);
}

TEST(UnicodeStringData, UnitSetInlineTruncation) {
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
  ASSERT_EQ(Length(s), 3u);
  EXPECT_EQ(CharSize(s), 2u);
  std::vector<unsigned char> const twoBytes(RecordBytes(s), RecordBytes(s) + 6);
  EXPECT_EQ(twoBytes, (std::vector<unsigned char>{0x42, 0, 0x42, 0, 0x42, 0}));

  ASSERT_EQ(s.set(2, 3, reinterpret_cast<QChar const*>(source.data())), 1);
  std::vector<unsigned char> const threeBytes(RecordBytes(s), RecordBytes(s) + 6);
  EXPECT_EQ(threeBytes, (std::vector<unsigned char>{0x42, 0, 0, 0x42, 0, 0}));
}

TEST(UnicodeString, FromRecordCutsAtZeroUnitOrLength) {
  std::vector<unsigned short> const embedded = Units(std::u16string_view(u"ab\0cd", 5));
  CUnicodeString s;
  s = Record(embedded, 5);
  EXPECT_EQ(s.string(), "ab");
  EXPECT_EQ(Length(s), 5u);  // the record keeps all of it
  EXPECT_EQ(RecordBytes(s)[6], 'c');

  std::vector<unsigned short> const plain = Units(u"abcdef");
  s = Record(plain, 4);
  EXPECT_EQ(s.string(), "abcd");

  s = Record(plain, 4, 1);  // charSize is not consulted for the QString
  EXPECT_EQ(s.string(), "abcd");
  EXPECT_EQ(Length(s), 4u);

  s = coreUncStringType{3, 2, 0};
  EXPECT_TRUE(s.string().isNull());

  coreUncStringType const whole = Record(plain, 6);
  CUnicodeString constructed(&whole);
  EXPECT_EQ(constructed.string(), "abcdef");
  CUnicodeString fromNull(static_cast<coreUncStringType const*>(nullptr));
  EXPECT_TRUE(fromNull.string().isNull());
}

TEST(UnicodeString, FromUnitsKeepsWholeQString) {
  std::vector<unsigned short> const source = Alphabet(1200);
  CUnicodeString s;
  s = source.data();
  EXPECT_EQ(s.string().length(), 1200);
  EXPECT_EQ(s.buffer()[999], 0);

  std::vector<unsigned short> const empty = Units(u"");
  s = empty.data();
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
  ASSERT_EQ(Length(s), 3u);
  EXPECT_EQ(RecordBytes(s)[2], 'm');

  CUnicodeString fromChars("local");
  EXPECT_EQ(fromChars.string(), "local");
  EXPECT_EQ(fromChars.buffer()[0], 0);  // the host side waits for toUnicode
}

TEST(UnicodeString, ToUnicodeForms) {
  CUnicodeString s("abc");
  coreUncStringType* record = s.toUnicode();
  EXPECT_EQ(record, &s.record());
  EXPECT_EQ(BufferText(s), "abc");  // inline form: the characters land in the buffer

  unsigned short* terminated = s.toUnicodeC();
  ASSERT_EQ(terminated, s.buffer());
  EXPECT_EQ(BufferText(s), "abc");

  CUnicodeString empty("");
  EXPECT_EQ(empty.toUnicodeC(), nullptr);
  EXPECT_EQ(empty.toUnicode(), &empty.record());
  EXPECT_EQ(Length(empty), 0u);
}

TEST(UnicodeString, ToUnicodeCIntoCallerBuffer) {
  CUnicodeString s("abcdef");
  unsigned short out[8];
  std::fill(std::begin(out), std::end(out), kSentinel);
  EXPECT_EQ(s.toUnicodeC(out, 4), 6);
  EXPECT_EQ(Text(out), "abc");
  EXPECT_EQ(out[4], kSentinel);
  EXPECT_EQ(BufferText(s), "abc");

  std::fill(std::begin(out), std::end(out), kSentinel);
  EXPECT_EQ(s.toUnicodeC(out, 7), 6);
  EXPECT_EQ(Text(out), "abcdef");
  EXPECT_EQ(out[7], kSentinel);

  std::fill(std::begin(out), std::end(out), kSentinel);
  EXPECT_EQ(s.toUnicodeC(out, 0), 6);
  EXPECT_EQ(out[0], kSentinel);
  EXPECT_EQ(s.toUnicodeC(nullptr, 4), 0);

  CUnicodeString empty;
  EXPECT_EQ(empty.toUnicodeC(out, 4), 0);
  EXPECT_EQ(out[0], kSentinel);
}

TEST(UnicodeUscpy, CopiesUpToFirstZeroUnit) {
  unsigned short dst[8];
  std::fill(std::begin(dst), std::end(dst), kSentinel);
  EXPECT_EQ(uscpy(dst, QString()), dst);
  EXPECT_EQ(dst[0], kSentinel);

  uscpy(dst, QString(""));
  EXPECT_EQ(dst[0], 0);
  EXPECT_EQ(dst[1], kSentinel);

  uscpy(dst, QString("abc"));
  EXPECT_EQ(Text(dst), "abc");
  EXPECT_EQ(dst[4], kSentinel);

  std::fill(std::begin(dst), std::end(dst), kSentinel);
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
