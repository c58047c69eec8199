// The built data store library, loaded through the reference host exactly as a
// terminal loads it. Each test loads a copy of its own, so the module's static
// state starts fresh whatever ran before.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "LibraryCopy.h"
#include "ModuleHost.h"

namespace {

namespace fs = std::filesystem;
namespace M = HostMessage;

const std::u16string kUnknownThrowText = u"Unknown throw in <CDataStoreModule>|../Module|91";
constexpr std::uint32_t kExceptionLogType = 1;
constexpr std::uint32_t kExceptionLogLevel = 5;

struct StartError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Answers every folder request with a folder under root.
void ConfigureFolders(ModuleHost& host, const fs::path& root) {
  host.setFolder(VD_FOLDER_CONFIG, root.u16string());
  host.setFolder(VD_FOLDER_DATA, (root / "data").u16string());
  host.setFolder(VD_FOLDER_IMPORT, root.u16string());
  host.setWorkFolder(root.u16string());
  host.setDataSource("Test");
}

// The framework's own calls among all recorded ones, in order.
std::vector<unsigned int> StartCalls(const ModuleHost& host) {
  const std::set<unsigned int> kStart = {M::GetLanguageCount, M::GetLanguages,
                                         M::GetDateTimeFormatters, M::GetLogSink};
  std::vector<unsigned int> result;
  for (unsigned int message : host.messages()) {
    if (kStart.count(message) != 0) result.push_back(message);
  }
  return result;
}

template <typename Record>
Record RecordOf(const ModuleHost::Call& call) {
  Record record{};
  EXPECT_EQ(call.record.size(), sizeof record);
  std::memcpy(&record, call.record.data(), std::min(call.record.size(), sizeof record));
  return record;
}

class DataStoreLibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.load(files_.copy("libdatastore_a.so"))) << host_.error();
    ConfigureFolders(host_, files_.dir());
  }
  void TearDown() override { host_.unload(); }

  LibraryCopy files_;
  ModuleHost host_;
};

TEST_F(DataStoreLibraryTest, ModuleInfoIsCompleteBeforeInitialize) {
  std::vector<unsigned char> expected(sizeof(MODULE_INFO), 0);
  auto put = [&](std::size_t offset, const void* data, std::size_t size) {
    std::memcpy(expected.data() + offset, data, size);
  };
  auto putWord = [&](std::size_t offset, std::uint32_t value) { put(offset, &value, 4); };
  put(0, "VdMd.DataStore module", 21);
  put(255, "Datastore module", 16);
  putWord(1279, 32);
  putWord(1283, 0);
  putWord(1287, 1);
  putWord(1291, 7);
  put(1295, "CTransDataStore", 15);
  putWord(1315, 38);

  ASSERT_EQ(sizeof(MODULE_INFO), 2315u);
  std::vector<unsigned char> actual(sizeof(MODULE_INFO), 0xAA);  // every byte must be written
  EXPECT_EQ(host_.moduleInfo(reinterpret_cast<MODULE_INFO*>(actual.data())), 0);
  std::ostringstream differences;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (actual[i] != expected[i]) differences << " " << i << ":" << int(actual[i]);
  }
  EXPECT_EQ(differences.str(), "") << "offset:byte pairs that differ";
  EXPECT_EQ(host_.moduleInfo(nullptr), 0);
  EXPECT_TRUE(host_.calls().empty());
}

TEST_F(DataStoreLibraryTest, MessagesBeforeInitializeReachNoHost) {
  INCOMING_EVENT_RECORD event{};
  EXPECT_EQ(host_.send(M::Start), 0);
  EXPECT_EQ(host_.send(M::Start), 0);
  host_.send(M::ReceiveEvent, reinterpret_cast<HostArg>(&event));
  host_.send(M::CloseSymbol, 0);
  EXPECT_EQ(host_.send(M::Stop), 0);
  EXPECT_TRUE(host_.calls().empty());
  EXPECT_TRUE(host_.logs().empty());

  host_.initialize();
  host_.send(M::Start);
  EXPECT_FALSE(host_.calls().empty());
}

// Every start asks again; for the list only when there are languages.
TEST_F(DataStoreLibraryTest, StartAsksForLanguagesFormattersAndLogSinkEachTime) {
  host_.initialize();
  host_.send(M::Start);
  const std::vector<unsigned int> withoutList = {M::GetLanguageCount, M::GetDateTimeFormatters,
                                                 M::GetLogSink};
  EXPECT_EQ(StartCalls(host_), withoutList);
  host_.setLanguages({{"German", false}, {"English", true}});
  const std::vector<unsigned int> expected = {M::GetLanguageCount, M::GetLanguages,
                                              M::GetDateTimeFormatters, M::GetLogSink};
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    host_.clearRecords();
    EXPECT_EQ(host_.send(M::Start), 0);
    const auto messages = host_.messages();
    ASSERT_GE(messages.size(), expected.size());
    EXPECT_EQ(std::vector<unsigned int>(messages.begin(), messages.begin() + expected.size()),
              expected);
    EXPECT_EQ(StartCalls(host_), expected);
    const auto list = RecordOf<LANGUAGE_LIST_RECORD>(host_.calls(M::GetLanguages).at(0));
    EXPECT_EQ(std::int32_t{list.count}, 2);  // packed: copied for gtest
    EXPECT_NE(HostWord{list.entries}, 0u);
    EXPECT_EQ(RecordOf<HostWord>(host_.calls(M::GetLogSink).at(0)), 0u);
    const auto formatters =
        RecordOf<DATETIME_FORMATTER_RECORD>(host_.calls(M::GetDateTimeFormatters).at(0));
    EXPECT_EQ(HostWord{formatters.qDateTimeFormatter}, 0u);
  }
}

TEST(DataStoreLibraryExportsTest, OnlyTheFourEntryPointsAreExported) {
  const std::string command = std::string("nm -D --defined-only '") + DATASTORE_MODULE_PATH + "'";
  std::FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::set<std::string> symbols;
  char line[512];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    std::istringstream fields(line);
    std::string address, type, name;
    fields >> address >> type >> name;
    symbols.insert(name);
  }
  ASSERT_EQ(::pclose(pipe), 0) << command;
  EXPECT_EQ(symbols, (std::set<std::string>{kExportGetModule, kExportInitialize,
                                            kExportReceiveMessage, kExportGetModuleInfo}));
}

TEST(DataStoreLibraryCopiesTest, TwoCopiesInOneProcessStayIndependent) {
  LibraryCopy files;
  ModuleHost hostA, hostB;
  ASSERT_TRUE(hostA.load(files.copy("libdatastore_a.so"))) << hostA.error();
  ASSERT_TRUE(hostB.load(files.copy("libdatastore_b.so"))) << hostB.error();
  ConfigureFolders(hostA, files.dir());
  ConfigureFolders(hostB, files.dir());
  EXPECT_NE(hostA.moduleObject(), hostB.moduleObject());
  hostA.initialize();
  hostB.initialize();

  hostA.send(M::Start);
  const std::size_t callsOfA = hostA.calls().size();
  EXPECT_GT(callsOfA, 0u);
  EXPECT_TRUE(hostB.calls().empty());
  hostB.send(M::Start);
  EXPECT_EQ(hostA.calls().size(), callsOfA);
  EXPECT_EQ(StartCalls(hostB), StartCalls(hostA));

  // A host's throw during start is logged once through the module's own sink
  // and reaches that host as the very object thrown.
  hostB.clearRecords();
  const auto error = std::make_exception_ptr(StartError("b only"));
  hostB.throwOn(M::GetDateTimeFormatters, error);
  try {
    hostB.send(M::Start);
    ADD_FAILURE() << "the exception did not reach the host";
  } catch (const StartError&) {
    EXPECT_EQ(std::current_exception(), error);
  }
  const auto logs = hostB.logs();
  ASSERT_EQ(logs.size(), 1u);
  EXPECT_EQ(logs[0].type, kExceptionLogType);
  EXPECT_EQ(logs[0].level, kExceptionLogLevel);
  EXPECT_EQ(logs[0].text, kUnknownThrowText);
  EXPECT_EQ(logs[0].module, u"CDataStoreModule");
  EXPECT_EQ(hostB.messages(),
            (std::vector<unsigned int>{M::GetLanguageCount, M::GetDateTimeFormatters}));
  EXPECT_TRUE(hostA.logs().empty());
  EXPECT_EQ(hostA.calls().size(), callsOfA);
}

}  // namespace
