// The vocabulary hosts share with the module: the message codes, written
// down once (the README's two message tables name exactly the codes of the
// two lists), the fixed text fields of packed records, and periods.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "HostBoundary.h"
#include "Period.h"

namespace {

// The codes in the first column of the table rows between the lines that
// start with `from` and `to`; "3503, 3506" names two, "any other" none.
std::set<unsigned int> TableCodes(std::string const& readme, std::string const& from,
                                  std::string const& to) {
  const std::size_t start = readme.find("\n" + from);
  const std::size_t end = readme.find("\n" + to, start);
  EXPECT_NE(start, std::string::npos) << from;
  std::istringstream lines(readme.substr(start, end - start));
  std::set<unsigned int> codes;
  const std::regex code(R"(\d{4})");
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("| ")) continue;
    const std::string first = line.substr(2, line.find('|', 2) - 2);
    for (std::sregex_iterator it(first.begin(), first.end(), code), done; it != done; ++it) {
      codes.insert(static_cast<unsigned int>(std::stoul(it->str())));
    }
  }
  return codes;
}

TEST(MessageListTest, TheReadmeTablesNameTheListedCodes) {
  std::ifstream file(README_PATH);
  const std::string readme((std::istreambuf_iterator<char>(file)), {});
  std::set<unsigned int> toHost, toModule, names;
  for (HostMessageInfo const& message : kHostMessages) {
    (message.toHost ? toHost : toModule).insert(message.code);
    EXPECT_STREQ(HostMessageName(message.code), message.name);
  }
  EXPECT_EQ(toHost.size() + toModule.size(), std::size(kHostMessages));  // no code twice
  EXPECT_EQ(TableCodes(readme, "Received by the module", "Before 3007"), toModule);
  EXPECT_EQ(TableCodes(readme, "Sent by the module to its host", "If the host callback"), toHost);
  EXPECT_STREQ(HostMessageName(HostMessage::GetLogSink), "GetLogSink");
  EXPECT_STREQ(HostMessageName(1234), "");
}

// Wide fields at odd offsets are written and read as bytes, cut to leave a
// NUL, and never read past the field.
TEST(HostFieldTest, TextFieldsStayInsideThemselves) {
  unsigned char record[1 + 2 * 4 + 2] = {};
  std::memset(record, 0x7F, sizeof record);
  hostfield::SetWideText(record + 1, u"ABCDEF", 4);
  EXPECT_EQ(hostfield::WideText(record + 1, 4), u"ABC");
  EXPECT_EQ(record[7], 0);
  EXPECT_EQ(record[8], 0);
  EXPECT_EQ(record[9], 0x7F);  // nothing past the field
  unsigned char full[2 * 3];
  std::memset(full, 'x', sizeof full);  // no NUL: the whole field
  EXPECT_EQ(hostfield::WideText(full, 3).size(), 3u);
  const char code[4] = {'B', 'i', 'd', 'x'};
  EXPECT_EQ(hostfield::Text(code, 3), "Bid");
  EXPECT_EQ(hostfield::Text("Ask\0zz", 6), "Ask");
}

TEST(PeriodTest, TextAndParseAgree) {
  for (const char* text : {"D", "W", "M", "Y", "I0", "I5", "I1440"}) {
    SYMBOL_PERIOD parsed{};
    ASSERT_TRUE(period::Parse(text, &parsed)) << text;
    EXPECT_EQ(period::Text(parsed), text);
  }
  for (const char* text : {"", "I", "Ix", "I5m", "d", "DD", "X", "I-5"}) {
    SYMBOL_PERIOD untouched{'Q', 7, 0};
    EXPECT_FALSE(period::Parse(text, &untouched)) << text;
    EXPECT_EQ(untouched.kind, 'Q');
  }
  EXPECT_EQ(period::RecordSize({'I', 0, 0}), 12u);
  EXPECT_EQ(period::RecordSize({'I', 1, 0}), 24u);
  EXPECT_EQ(period::RecordSize({'D', 0, 0}), 24u);
  EXPECT_EQ(period::LengthOf('D', 5), 0);
  EXPECT_FALSE(period::IsKnownKind('\0'));
}

}  // namespace
