// The message codes are written down once, in HostBoundary.h: the README's
// two message tables name exactly the codes of its two lists, and every code
// has one name.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "HostBoundary.h"

namespace {

// The codes in the first column of the table rows between the lines that
// start with `from` and `to`; "3503, 3506" names two, "any other" none.
std::set<unsigned int> TableCodes(std::string const& readme, std::string const& from, std::string const& to) {
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

}  // namespace
