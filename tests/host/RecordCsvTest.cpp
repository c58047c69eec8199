// Periods, symbol requests, times and CSV as dshost reads and writes them.

#include "RecordCsv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <tuple>
#include <utility>

#include "SymbolRequest.h"

namespace {

const SYMBOL_PERIOD kTicks{'I', 0, 0};
const SYMBOL_PERIOD kDaily{'D', 0, 0};

// Packs (time, values...) records in a layout of values.size() views.
using Row = std::pair<std::int32_t, std::vector<float>>;  // time, values

std::vector<unsigned char> Pack(const std::vector<Row>& rows) {
  std::vector<unsigned char> bytes;
  for (const auto& [time, values] : rows) {
    const auto* t = reinterpret_cast<const unsigned char*>(&time);
    bytes.insert(bytes.end(), t, t + sizeof time);
    const auto* v = reinterpret_cast<const unsigned char*>(values.data());
    bytes.insert(bytes.end(), v, v + values.size() * sizeof(float));
  }
  return bytes;
}

// The error of reading text, or "" when it reads.
std::string ReadError(const RecordLayout& layout, const std::string& text,
                      std::vector<unsigned char>* records) {
  std::istringstream in(text);
  std::string error;
  return ReadCsv(in, layout, records, &error) ? "" : error;
}

TEST(PeriodTest, ParsesEveryKindAndRejectsAnythingElse) {
  const std::tuple<const char*, char, std::int32_t> kCases[] = {
      {"I0", 'I', 0}, {"I5", 'I', 5}, {"I1440", 'I', 1440}, {"D", 'D', 0},
      {"W", 'W', 0},  {"M", 'M', 0},  {"Y", 'Y', 0}};
  for (const auto& [text, kind, length] : kCases) {
    SYMBOL_PERIOD period{};
    std::string error;
    ASSERT_TRUE(ParsePeriod(text, &period, &error)) << text << ": " << error;
    EXPECT_EQ(period.kind, kind);
    EXPECT_EQ(std::int32_t{period.length}, length);
    EXPECT_EQ(std::int32_t{period.extra}, 0);
  }
  for (const char* text :
       {"", "I", "i5", "X", "DD", "D1", "I-1", "I+1", "I5x", " I5", "I5 ", "I99999999999"}) {
    SYMBOL_PERIOD period{'Q', 7, 7};
    std::string error;
    EXPECT_FALSE(ParsePeriod(text, &period, &error)) << "'" << text << "'";
    EXPECT_NE(error.find("bad period"), std::string::npos) << error;
    EXPECT_EQ(period.kind, 'Q') << "left as it was";
  }
}

// The default code keeps ASCII letters and digits; a request is filled in or
// refused for an empty or overlong text.
TEST(SymbolRequestTest, FillsTheFieldsOrRefusesTheTexts) {
  EXPECT_EQ(DefaultCode(u"EUR/USD"), "EURUSD");
  EXPECT_EQ(DefaultCode(u"ES.Z4 fut-2"), "ESZ4fut2");
  EXPECT_EQ(DefaultCode(u"Газпром"), "");
  SYMBOL_NAME_PERIOD request{};
  std::string error;
  ASSERT_TRUE(
      MakeSymbolRequest("Demo", u"EUR/USD", "EURUSD", SYMBOL_PERIOD{'I', 15, 0}, &request, &error));
  EXPECT_STREQ(request.provider, "Demo");
  EXPECT_EQ(std::memcmp(request.name, u"EUR/USD", sizeof u"EUR/USD"), 0);
  EXPECT_STREQ(request.code, "EURUSD");
  EXPECT_EQ(request.period.kind, 'I');
  EXPECT_EQ(std::int32_t{request.period.length}, 15);

  const std::string longest(254, 'x');
  const std::u16string longestName(254, u'x');
  EXPECT_TRUE(MakeSymbolRequest(longest, longestName, longest, kTicks, &request, &error));
  EXPECT_EQ(char16_t{request.name[254]}, 0);
  const std::tuple<std::string, std::u16string, std::string> kBad[] = {
      {"", u"A", "A"}, {longest + "x", u"A", "A"}, {"P", u"", "A"}, {"P", longestName + u"x", "A"},
      {"P", u"A", ""}, {"P", u"A", longest + "x"}};
  for (const auto& [provider, name, code] : kBad) {
    EXPECT_FALSE(MakeSymbolRequest(provider, name, code, kTicks, &request, &error));
  }
  EXPECT_NE(error.find("--code"), std::string::npos) << error;
}

TEST(TimeTest, FormatsAndParsesBothWaysAndRejectsTheRest) {
  const std::pair<std::int32_t, const char*> kCases[] = {
      {0, "1970-01-01T00:00:00Z"},
      {1704164645, "2024-01-02T03:04:05Z"},
      {951782400, "2000-02-29T00:00:00Z"},
      {-1, "1969-12-31T23:59:59Z"},
      {std::numeric_limits<std::int32_t>::min(), "1901-12-13T20:45:52Z"},
      {std::numeric_limits<std::int32_t>::max(), "2038-01-19T03:14:07Z"}};
  std::int32_t parsed = 1;
  std::string error;
  for (const auto& [time, iso] : kCases) {
    EXPECT_EQ(FormatTime(time), iso);
    ASSERT_TRUE(ParseTime(iso, &parsed, &error)) << error;
    EXPECT_EQ(parsed, time) << iso;
    ASSERT_TRUE(ParseTime(std::to_string(time), &parsed, &error)) << error;
    EXPECT_EQ(parsed, time);
  }
  ASSERT_TRUE(ParseTime("2024-01-02", &parsed, &error));  // a date alone is its midnight
  EXPECT_EQ(parsed, 1704153600);
  ASSERT_TRUE(ParseTime("2024-01-02T03:04:05", &parsed, &error));  // the Z may be left out
  EXPECT_EQ(parsed, 1704164645);

  for (const char* text :
       {"", "abc", "12abc", "+5", "2024-1-2", "2024-02-30", "2023-02-29", "2024-13-01",
        "2024-01-02T24:00:00Z", "2024-01-02T03:60:00Z", "2024-01-02T03:04:60Z",
        "2024-01-02 03:04:05", "2024-01-02T03:04Z", "2024-01-02T03:04:05ZZ", "2038-01-19T03:14:08Z",
        "1901-12-13T20:45:51Z", "2147483648", "-2147483649"}) {
    parsed = 7;
    error.clear();
    EXPECT_FALSE(ParseTime(text, &parsed, &error)) << "'" << text << "'";
    EXPECT_EQ(parsed, 7);
    EXPECT_FALSE(error.empty());
  }
}

TEST(CsvTest, RecordsRoundTripBitForBit) {
  const std::tuple<SYMBOL_PERIOD, std::vector<Row>, const char*> kCases[] = {
      {kTicks,
       {{1704164645, {1.0845f, 100.0f}},
        {1704164646, {0.1f, 3.40282347e38f}},
        {-1, {-0.0f, 1e-45f}}},
       "time,epoch,Value,Volume\n"
       "2024-01-02T03:04:05Z,1704164645,1.0845,100\n"
       "2024-01-02T03:04:06Z,1704164646,0.1,3.4028235e+38\n"
       "1969-12-31T23:59:59Z,-1,-0,1e-45\n"},
      {kDaily,
       {{1704153600, {1.1f, 1.25f, 1.0f, std::nextafter(1.2f, 2.0f), 12345678.0f}},
        {1704240000, {1.2f, 1.3f, 1.15f, 1.29f, 0.0f}}},
       "time,epoch,Open,High,Low,Close,Volume\n"
       "2024-01-02T00:00:00Z,1704153600,1.1,1.25,1,1.2000002,12345678\n"
       "2024-01-03T00:00:00Z,1704240000,1.2,1.3,1.15,1.29,0\n"},
      {kTicks, {}, "time,epoch,Value,Volume\n"},  // a header alone holds no records
  };
  for (const auto& [period, rows, expected] : kCases) {
    const RecordLayout layout = LayoutOf(period);
    const std::vector<unsigned char> records = Pack(rows);
    std::ostringstream out;
    WriteCsv(out, layout, records.data(), rows.size());
    const std::string text = out.str();
    EXPECT_EQ(text, expected);
    std::vector<unsigned char> read;
    ASSERT_EQ(ReadError(layout, text, &read), "");
    EXPECT_EQ(read, records) << "the sign of zero included";
  }
}

TEST(CsvTest, ReadsColumnsInAnyOrderAndCase) {
  const RecordLayout layout = LayoutOf(kDaily);
  const std::vector<unsigned char> expected =
      Pack({{1704153600, {1, 2, 0.5f, 1.5f, 10}}, {1704240000, {2, 3, 1, 2.5f, 0}}});
  const char* kTexts[] = {
      "volume,Close,LOW,high,Open,epoch\n10,1.5,0.5,2,1,1704153600\n0,2.5,1,3,2,1704240000\n",
      "Close ,time,Open,High,Low,Volume\r\n"
      "1.5, 2024-01-02 ,1,2,0.5,10\r\n\r\n  \n2.5,2024-01-03T00:00:00Z,2,3,1,0\r\n",
      "\nOpen,High,Low,Close,Volume,epoch,time\n"
      "1,2,0.5,1.5,10,1704153600,2024-01-02\n2,3,1,2.5,0,1704240000,1704240000\n",
  };
  for (const char* text : kTexts) {
    std::vector<unsigned char> read;
    ASSERT_EQ(ReadError(layout, text, &read), "") << text;
    EXPECT_EQ(read, expected) << text;
  }
}

TEST(CsvTest, RejectsBadInputNamingItsLine) {
  const RecordLayout layout = LayoutOf(kTicks);
  const std::pair<const char*, const char*> kCases[] = {
      {"", "line 1: no header line"},
      {"\n\n", "line 1: no header line"},
      {"epoch,Value\n", "line 1: missing column Volume"},
      {"Value,Volume\n", "line 1: no time or epoch column"},
      {"\nepoch,Value,Volume,Open\n", "line 2: unknown column 'Open'"},
      {"epoch,Value,value,Volume\n", "line 1: column 'value' named twice"},
      {"epoch,Value,Volume\n1,2,3\n1,2\n", "line 3: 2 fields where the header has 3"},
      {"epoch,Value,Volume\n1,2,3,4\n", "line 2: 4 fields where the header has 3"},
      {"epoch,Value,Volume\n1,2,3\n\n1,2,x\n", "line 4: bad value 'x' in column Volume"},
      {"epoch,Value,Volume\n1,,3\n", "line 2: bad value '' in column Value"},
      {"epoch,Value,Volume\n1,1e99,3\n", "line 2: bad value '1e99' in column Value"},
      {"epoch,Value,Volume\n1,\"2\",3\n", "line 2: bad value '\"2\"' in column Value"},
      {"epoch,Value,Volume\n2024-01-02,1,2\n", "line 2: bad epoch '2024-01-02'"},
      {"time,Value,Volume\n1,2,3\n2024-02-30,1,2\n", "line 3: bad time '2024-02-30'"},
      {"epoch,time,Value,Volume\n0,1970-01-01T00:00:01Z,1,2\n",
       "line 2: time 1970-01-01T00:00:01Z and epoch 0 disagree"},
  };
  for (const auto& [text, expected] : kCases) {
    std::vector<unsigned char> read = {0xAB};
    const std::string error = ReadError(layout, text, &read);
    EXPECT_EQ(error.substr(0, std::strlen(expected)), expected) << text;
    EXPECT_EQ(read, std::vector<unsigned char>{0xAB}) << "left as it was";
  }
}

}  // namespace
