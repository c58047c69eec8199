// The built data store library, loaded through the reference host exactly as a
// terminal loads it: its module info, its start and its exports.

#include <cstdio>
#include <set>
#include <stdexcept>

#include "DataStoreFixture.h"

namespace datastore_test {
namespace {

struct StartError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

template <typename Record>
Record RecordOf(const ModuleHost::Call& call) {
  Record record{};
  EXPECT_EQ(call.record.size(), sizeof record);
  std::memcpy(&record, call.record.data(), std::min(call.record.size(), sizeof record));
  return record;
}

using DataStoreLibraryTest = DataStoreFixture;

// Every byte of the module info is written, before Initialize and without a
// host; nothing sent before Initialize reaches the host.
TEST_F(DataStoreLibraryTest, ModuleInfoIsCompleteBeforeInitialize) {
  load();
  std::vector<unsigned char> expected(sizeof(MODULE_INFO), 0);
  const auto put = [&](std::size_t offset, const void* data, std::size_t size) {
    std::memcpy(expected.data() + offset, data, size);
  };
  const auto putWord = [&](std::size_t offset, std::uint32_t value) { put(offset, &value, 4); };
  put(0, "VdMd.DataStore module", 21);
  put(255, "Datastore module", 16);
  putWord(1279, 32);
  putWord(1287, 1);
  putWord(1291, 7);
  put(1295, "CTransDataStore", 15);
  putWord(1315, 38);

  std::vector<unsigned char> actual(sizeof(MODULE_INFO), 0xAA);
  EXPECT_EQ(host_->moduleInfo(reinterpret_cast<MODULE_INFO*>(actual.data())), 0);
  std::ostringstream differences;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (actual[i] != expected[i]) differences << " " << i << ":" << int(actual[i]);
  }
  EXPECT_EQ(differences.str(), "") << "offset:byte pairs that differ";
  EXPECT_EQ(host_->moduleInfo(nullptr), 0);

  INCOMING_EVENT_RECORD event{};
  EXPECT_EQ(send(M::Start), 0);
  send(M::ReceiveEvent, Arg(&event));
  send(M::CloseSymbol);
  EXPECT_EQ(send(M::Stop), 0);
  EXPECT_TRUE(host_->calls().empty());
  EXPECT_TRUE(host_->logs().empty());
}

// 3007 registers before anything else and takes the handle the host writes
// back as its id; then folders, provider, translations and the event follow.
// 3004 subscribes to game mode under that id and logs the start.
TEST_F(DataStoreLibraryTest, InitialiseAndStartSendWhatTheHostExpects) {
  constexpr HostWord kContext2 = 0x2468;
  load();
  host_->setContext2(kContext2);
  host_->initialize();
  ASSERT_EQ(send(M::InitModule), 0);
  std::vector<unsigned int> messages = {M::RegisterModule, M::GetFolder, M::GetFolder,
                                        M::GetDataSource};
  messages.insert(messages.end(), 19, M::InsertTranslation);
  messages.push_back(M::CreateEvent);
  EXPECT_EQ(host_->messages(), messages);
  REGISTRATION_RECORD sent{};
  std::strcpy(sent.kind, "DATASTORE");
  std::strcpy(sent.maker, "QUENDAL");
  std::strcpy(sent.uniqueName, "Datastore Unique Name");
  sent.context2 = kContext2;
  sent.moduleOrHandle = reinterpret_cast<HostWord>(host_->moduleObject());
  const auto* bytes = reinterpret_cast<const unsigned char*>(&sent);
  EXPECT_EQ(host_->calls(M::RegisterModule).at(0).record,
            std::vector<unsigned char>(bytes, bytes + sizeof sent));
  EXPECT_EQ(host_->calls(M::GetDataSource).at(0).a, HostArg(kModuleId));

  const std::pair<std::string, std::string> kTexts[] = {
      {"C0110", "Look in"},
      {"C0111", "Invert selected"},
      {"M0150", "Data Import"},
      {"Tr0019Reject", "Reject"},
      {"C0028Name", "Name"},
      {"M0176", "Period"},
      {"Tra0010", "First Date"},
      {"Tra0011", "Last Date"},
      {"C0075Type", "Type"},
      {"M0177", "Select all"},
      {"C0042SelectOff", "Deselect"},
      {"C0049Ok", "OK"},
      {"M0053", "Undo"},
      {"M0054", "Redo"},
      {"C0109", "Cut"},
      {"C0107", "Copy"},
      {"C0108", "Paste"},
      {"M0264", "Clear"},
      {"M0177", "Select all"},
  };
  const auto translations = host_->translations();
  ASSERT_EQ(translations.size(), std::size(kTexts));
  for (std::size_t i = 0; i < translations.size(); ++i) {
    EXPECT_EQ(translations[i].context, "CTransDataStore") << i;
    EXPECT_EQ(std::pair(translations[i].key, translations[i].text), kTexts[i]) << i;
  }
  EXPECT_STREQ(host_->info().description,
               "\xD5\xF0\xE0\xED\xE5\xED\xE8\xE5 \xE4\xE0\xED\xED\xFB\xF6");
  EXPECT_EQ(ReadBytes(tree_.log()).find("Start datastore module"), std::string::npos);

  ASSERT_EQ(send(M::Start), 0);
  const auto subscriptions = host_->subscriptions();
  ASSERT_EQ(subscriptions.size(), 1u);
  EXPECT_EQ(subscriptions[0].name, "Quendal Game Mode");
  EXPECT_EQ(subscriptions[0].moduleHandle, kModuleId);
  EXPECT_EQ(subscriptions[0].module, reinterpret_cast<HostWord>(host_->moduleObject()));
  EXPECT_NE(ReadBytes(tree_.log()).find(" Start datastore module\n"), std::string::npos);
}

// Every 3004 asks again for the languages (for the list only when there are
// some), the formatters and the log sink, replacing what it had. A host that
// throws meanwhile gets the very object thrown back, after one record through
// the module's own sink.
TEST_F(DataStoreLibraryTest, StartAsksForTheHelpersEachTimeAndPassesAThrowBack) {
  restart();
  EXPECT_TRUE(host_->calls(M::GetLanguages).empty());
  host_->setLanguages({{"German", false}, {"English", true}});
  const std::vector<unsigned int> expected = {M::GetLanguageCount, M::GetLanguages,
                                              M::GetDateTimeFormatters, M::GetLogSink};
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    host_->clearRecords();
    EXPECT_EQ(send(M::Start), 0);
    const auto messages = host_->messages();
    ASSERT_GE(messages.size(), expected.size());
    EXPECT_EQ(std::vector<unsigned int>(messages.begin(), messages.begin() + expected.size()),
              expected);
    const auto list = RecordOf<LANGUAGE_LIST_RECORD>(host_->calls(M::GetLanguages).at(0));
    EXPECT_EQ(Unpacked(list.count), 2);
    EXPECT_NE(Unpacked(list.entries), 0u);
    EXPECT_EQ(RecordOf<HostWord>(host_->calls(M::GetLogSink).at(0)), 0u);
    const auto formatters =
        RecordOf<DATETIME_FORMATTER_RECORD>(host_->calls(M::GetDateTimeFormatters).at(0));
    EXPECT_EQ(Unpacked(formatters.qDateTimeFormatter), 0u);
  }

  host_->clearRecords();
  const auto error = std::make_exception_ptr(StartError("start"));
  host_->throwOn(M::GetDateTimeFormatters, error);
  try {
    send(M::Start);
    ADD_FAILURE() << "the exception did not reach the host";
  } catch (const StartError&) {
    EXPECT_EQ(std::current_exception(), error);
  }
  const auto logs = host_->logs();
  ASSERT_EQ(logs.size(), 1u);
  EXPECT_EQ(logs[0].type, 1u);
  EXPECT_EQ(logs[0].level, 5u);
  EXPECT_EQ(logs[0].text, u"Unknown throw in <CDataStoreModule>|../Module|91");
  EXPECT_EQ(logs[0].module, u"CDataStoreModule");
  EXPECT_EQ(host_->messages(), (std::vector<unsigned int>{M::GetLanguageCount, M::GetLanguages,
                                                          M::GetDateTimeFormatters}));
}

TEST(DataStoreLibraryExportsTest, OnlyTheFourEntryPointsAreExported) {
  const std::string command =
      std::string("nm -D --defined-only -j '") + DATASTORE_MODULE_PATH + "'";
  std::FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::set<std::string> symbols;
  char line[512];
  while (std::fgets(line, sizeof line, pipe) != nullptr)
    symbols.insert(std::string(line, std::strcspn(line, "\n")));
  ASSERT_EQ(::pclose(pipe), 0) << command;
  EXPECT_EQ(symbols, (std::set<std::string>{kExportGetModule, kExportInitialize,
                                            kExportReceiveMessage, kExportGetModuleInfo}));
}

}  // namespace
}  // namespace datastore_test
