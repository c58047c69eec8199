// The built dshost program driving the built module library, run as a user
// runs it, in a folder of its own.

#include <algorithm>
#include <string>
#include <tuple>

#include "ProgramRun.h"

namespace {

namespace fs = std::filesystem;

class DshostTest : public ProgramTest {
 protected:
  // dshost with arguments, its data in the folder "data".
  Outcome dshost(const std::string& arguments, const std::string& input = "") {
    return run("'" DSHOST_PATH "' --module '" DATASTORE_MODULE_PATH "' --data data " + arguments,
               input);
  }
};

const std::string kHeader = "time,epoch,Value,Volume\n";
const std::string kRows[] = {"2024-01-02T03:04:00Z,1704164640,1.1,1\n",
                             "2024-01-02T03:04:05Z,1704164645,1.0845,100\n",
                             "2024-01-02T03:04:06Z,1704164646,1.08451,5.5\n"};

// What insert stored, get prints and count counts, every selection alike.
TEST_F(DshostTest, GetAndCountSelectWhatInsertStored) {
  const Outcome insert = dshost("insert EUR/USD I0", kHeader + kRows[0] + kRows[1] + kRows[2]);
  ASSERT_EQ(insert.status, 0) << insert.err;
  EXPECT_EQ(insert.out, "inserted 3 records\n");
  const std::pair<const char*, std::string> kCases[] = {
      {"", kHeader + kRows[0] + kRows[1] + kRows[2]},
      {"--last 2", kHeader + kRows[1] + kRows[2]},
      {"--first 1", kHeader + kRows[0]},
      {"--last 0", kHeader},
      // The range leads with the last record before --from; --to is exclusive.
      {"--from 2024-01-02T03:04:06Z --to 1704164646", kHeader + kRows[1]},
      {"--from 1704164646", kHeader + kRows[1] + kRows[2]},
  };
  for (const auto& [selection, expected] : kCases) {
    SCOPED_TRACE(selection);
    const Outcome get = dshost(std::string("get EUR/USD I0 ") + selection);
    ASSERT_EQ(get.status, 0) << get.err;
    EXPECT_EQ(get.out, expected);
    const Outcome count = dshost(std::string("count EUR/USD I0 ") + selection);
    ASSERT_EQ(count.status, 0) << count.err;
    const auto lines = std::count(expected.begin(), expected.end(), '\n');
    EXPECT_EQ(count.out, std::to_string(lines - 1) + "\n");
  }
}

TEST_F(DshostTest, CandlesInsertedInAnyColumnOrderUnderAProvider) {
  const Outcome insert = dshost("--provider Demo insert ES.Z4 D --code ESZ4",
                                "Volume,Close,Low,High,Open,time\n"
                                "10,4.5,3.5,5,4,2024-01-03\n"
                                "20,5.5,4.5,6,5,2024-01-02\n");
  ASSERT_EQ(insert.status, 0) << insert.err;
  EXPECT_TRUE(fs::is_directory(dir_ / "data" / "Demo"));
  const Outcome get = dshost("--provider Demo get ES.Z4 D --code ESZ4");
  ASSERT_EQ(get.status, 0) << get.err;
  EXPECT_EQ(get.out,
            "time,epoch,Open,High,Low,Close,Volume\n"
            "2024-01-02T00:00:00Z,1704153600,5,6,4.5,5.5,20\n"
            "2024-01-03T00:00:00Z,1704240000,4,5,3.5,4.5,10\n");
  EXPECT_EQ(dshost("get ES.Z4 D --code ESZ4").out, "time,epoch,Open,High,Low,Close,Volume\n")
      << "another provider's symbol";
}

// Help exits 0; bad arguments and input fail with a message before the
// module is started.
TEST_F(DshostTest, HelpOnEveryCommandAndAMessageForBadArguments) {
  for (const char* arguments : {"--help", "info --help", "get --help", "count -h", "insert --help",
                                "import --help", "gui --help", "screenshot -h"}) {
    const Outcome run = dshost(arguments);
    EXPECT_EQ(run.status, 0) << arguments;
    EXPECT_EQ(run.out.rfind("Usage: dshost", 0), 0u) << arguments << ": " << run.out;
  }
  // Arguments, standard input, exit status, a part of the message.
  const std::tuple<const char*, const char*, int, const char*> kCases[] = {
      {"get EUR/USD X5", "", 2, "bad period 'X5'"},
      {"get EUR/USD", "", 2, "usage: dshost"},
      {"count EUR/USD I0 --bogus 1", "", 2, "unknown option --bogus"},
      {"count EUR/USD I0 --last", "", 2, "--last needs a value"},
      {"get EUR/USD I0 --last 1 --from 0", "", 2, "choose one of"},
      {"get EUR/USD I0 --from yesterday", "", 2, "bad time 'yesterday'"},
      {"frob", "", 2, "unknown command 'frob'"},
      {"insert EUR/USD I0", "epoch,Value,Volume\n1,2,3\n2,x,3\n", 1, "line 3: bad value 'x'"},
  };
  for (const auto& [arguments, input, status, error] : kCases) {
    const Outcome run = dshost(arguments, input);
    EXPECT_EQ(run.status, status) << arguments;
    EXPECT_NE(run.err.find(error), std::string::npos) << arguments << ": " << run.err;
    EXPECT_EQ(run.out, "") << arguments;
  }
  EXPECT_FALSE(fs::exists(dir_ / "data")) << "the module was never started";
}

}  // namespace
