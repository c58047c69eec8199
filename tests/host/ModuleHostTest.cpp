#include "ModuleHost.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QString>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>

#include "FakeModuleProtocol.h"

namespace {

namespace fs = std::filesystem;
namespace M = HostMessage;

// Packed fields are passed by value: gtest's macros bind references.
template <typename T>
T Unpacked(T field) {
  return field;
}

constexpr unsigned int kUnknownMessage = 7001;  // no answer of the host's own

template <typename T>
HostArg Arg(T* pointer) {
  return reinterpret_cast<HostArg>(pointer);
}

HostWord Word(const std::u16string& text) { return reinterpret_cast<HostWord>(text.c_str()); }

// Has the fake module send message to its host.
int Forward(ModuleHost& host, unsigned int message, HostArg a = 0, HostArg b = 0) {
  FakeCall call{message, a, b};
  return host.send(kFakeForward, Arg(&call));
}

FakeReceived Received(ModuleHost& host) {
  FakeReceived received;
  host.send(kFakeLastReceived, Arg(&received));
  return received;
}

// A fresh folder, removed with the object.
struct TempDir {
  TempDir() : path(fs::temp_directory_path() / ("module_host_test_" + std::to_string(::getpid()))) {
    fs::create_directories(path);
  }
  ~TempDir() { fs::remove_all(path); }
  fs::path path;
};

class ModuleHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.load(FAKE_MODULE_PATH)) << host_.error();
    host_.initialize();
  }

  ModuleHost host_;
};

TEST(ModuleHostLoadTest, ReportsMissingFileLibraryAndExport) {
  TempDir dir;
  ModuleHost host;
  EXPECT_FALSE(host.load((dir.path / "absent.so").string()));
  EXPECT_NE(host.error().find("absent.so"), std::string::npos) << host.error();

  const fs::path text = dir.path / "text.so";
  std::ofstream(text) << "not a library";
  EXPECT_FALSE(host.load(text.string()));
  EXPECT_NE(host.error().find("cannot load"), std::string::npos) << host.error();

  EXPECT_FALSE(host.load(FAKE_MODULE_NO_INFO_PATH));
  EXPECT_NE(host.error().find("GetModuleInfo"), std::string::npos) << host.error();
  EXPECT_FALSE(host.loaded());

  ASSERT_TRUE(host.load(FAKE_MODULE_PATH)) << host.error();
  EXPECT_TRUE(host.error().empty());
  EXPECT_STREQ(host.info().name, "Fake module");
  EXPECT_NE(host.moduleObject(), nullptr);
}

TEST_F(ModuleHostTest, RecordIsCopiedOnEntryBeforeTheAnswer) {
  EVENT_CREATION_RECORD first{}, second{};
  std::strcpy(first.name, "Alpha");
  std::strcpy(second.name, "Beta");
  Forward(host_, M::CreateEvent, Arg(&first));
  Forward(host_, M::CreateEvent, Arg(&second));

  EXPECT_EQ(Unpacked(first.handle), ModuleHost::kFirstEventHandle);
  EXPECT_EQ(Unpacked(second.handle), ModuleHost::kFirstEventHandle + 1);
  const auto calls = host_.calls(M::CreateEvent);
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].a, Arg(&first));
  EXPECT_EQ(calls[0].thread, std::this_thread::get_id());
  ASSERT_EQ(calls[0].record.size(), sizeof(EVENT_CREATION_RECORD));
  EVENT_CREATION_RECORD copy;
  std::memcpy(&copy, calls[0].record.data(), sizeof copy);
  EXPECT_STREQ(copy.name, "Alpha");
  EXPECT_EQ(Unpacked(copy.handle), 0u);
  const auto events = host_.createdEvents();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[1].name, "Beta");
  EXPECT_EQ(events[1].handle, Unpacked(second.handle));
}

TEST_F(ModuleHostTest, RecordsConcurrentCallsWithTheirThreads) {
  constexpr int kThreads = 4;
  constexpr int kCallsEach = 200;
  std::atomic<int> handled{0};
  host_.setHandler([&](unsigned int, HostArg, HostArg) {
    ++handled;
    return 0;
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kCallsEach; ++i) Forward(host_, kUnknownMessage, t, i);
    });
  }
  std::vector<std::thread::id> ids;
  for (auto& thread : threads) ids.push_back(thread.get_id());
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(handled.load(), kThreads * kCallsEach);
  const auto calls = host_.calls(kUnknownMessage);
  ASSERT_EQ(calls.size(), static_cast<std::size_t>(kThreads * kCallsEach));
  std::vector<HostArg> next(kThreads, 0);
  for (const auto& call : calls) {
    EXPECT_EQ(call.thread, ids[call.a]);
    EXPECT_EQ(call.b, next[call.a]++) << "calls of thread " << call.a << " out of order";
  }
}

TEST_F(ModuleHostTest, OtherMessagesGoToTheHandler) {
  EXPECT_EQ(Forward(host_, kUnknownMessage, 5, 6), 0);
  unsigned int seen = 0;
  host_.setHandler([&](unsigned int message, HostArg a, HostArg b) {
    seen = message;
    return static_cast<int>(a + b);
  });
  EXPECT_EQ(Forward(host_, kUnknownMessage, 5, 6), 11);
  EXPECT_EQ(seen, kUnknownMessage);
  seen = 0;
  Forward(host_, M::RefreshMenu);
  EXPECT_EQ(seen, 0u);
  const auto calls = host_.calls(kUnknownMessage);
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[1].a, 5);
  EXPECT_EQ(calls[1].b, 6);
  EXPECT_TRUE(calls[1].record.empty());
}

// That the very object thrown reaches the caller, after the call was
// recorded, is checked through the data store library.
TEST_F(ModuleHostTest, ThrowLeavesTheRecordUnansweredUntilCleared) {
  host_.throwOn(M::GetDateTimeFormatters, std::make_exception_ptr(std::runtime_error("failure")));
  DATETIME_FORMATTER_RECORD record{};
  EXPECT_THROW(Forward(host_, M::GetDateTimeFormatters, Arg(&record)), std::runtime_error);
  EXPECT_EQ(Unpacked(record.qDateTimeFormatter), 0u);
  host_.clearThrow(M::GetDateTimeFormatters);
  EXPECT_EQ(Forward(host_, M::GetDateTimeFormatters, Arg(&record)), 0);
  EXPECT_NE(Unpacked(record.qDateTimeFormatter), 0u);
}

TEST_F(ModuleHostTest, KnownMessageWithoutItsRecordIsRefused) {
  EXPECT_EQ(Forward(host_, M::GetFolder), 1);
  EXPECT_EQ(Forward(host_, M::GetLogSink), 1);
  EXPECT_EQ(Forward(host_, M::EmitEvent, 1, 0), 1);
  EXPECT_EQ(host_.calls().size(), 3u);
  EXPECT_TRUE(host_.emits().empty());
}

TEST_F(ModuleHostTest, AnswersLanguagesInTwoSteps) {
  LANGUAGE_LIST_RECORD list{};
  Forward(host_, M::GetLanguageCount, Arg(&list));
  EXPECT_EQ(Unpacked(list.count), 0);

  host_.setLanguages({{"English", false}, {"Chinese (Simplified)", true}, {"German", false}});
  Forward(host_, M::GetLanguageCount, Arg(&list));
  EXPECT_EQ(Unpacked(list.count), 3);
  LANGUAGE_ENTRY entries[3]{};
  list.count = 2;  // the module may ask for fewer than there are
  list.entries = reinterpret_cast<HostWord>(entries);
  Forward(host_, M::GetLanguages, Arg(&list));
  EXPECT_STREQ(entries[0].name, "English");
  EXPECT_EQ(Unpacked(entries[0].isCurrent), 0u);
  EXPECT_STREQ(entries[1].name, "Chinese (Simplified)");
  EXPECT_EQ(Unpacked(entries[1].isCurrent), 1u);
  EXPECT_STREQ(entries[2].name, "");
}

TEST_F(ModuleHostTest, InterfaceLookupReadsThirdNameBeforeSecond) {
  host_.setInterface("A", "B", "C", 0x55);
  constexpr HostWord kUntouched = 0xDEAD;
  HostWord slot = kUntouched;
  INTERFACE_REQUEST_RECORD record{};
  auto* bytes = reinterpret_cast<char*>(&record);
  std::strcpy(bytes, "A");
  std::strcpy(bytes + kHostNameField, "C");
  std::strcpy(bytes + 2 * kHostNameField, "B");
  record.resultSlot = reinterpret_cast<HostWord>(&slot);
  Forward(host_, M::GetMainMenu, Arg(&record));
  EXPECT_EQ(slot, 0x55u);

  slot = kUntouched;
  std::strcpy(bytes + kHostNameField, "B");
  std::strcpy(bytes + 2 * kHostNameField, "C");
  Forward(host_, M::GetInterface, Arg(&record));
  EXPECT_EQ(slot, kUntouched);
}

// The data source and a configured module handle are checked through the
// data store library in the integration tests.
TEST_F(ModuleHostTest, AnswersFoldersAndRegistration) {
  FOLDER_REQUEST_RECORD folder{};
  folder.folderType = VD_FOLDER_DATA;
  EXPECT_EQ(Forward(host_, M::GetFolder, Arg(&folder)), 1);
  EXPECT_EQ(folder.path[0], 0);
  host_.setFolder(VD_FOLDER_DATA, std::u16string(2 * kFolderPathUnits, u'x'));
  EXPECT_EQ(Forward(host_, M::GetFolder, Arg(&folder)), 0);
  EXPECT_EQ(std::u16string(folder.path), std::u16string(kFolderPathUnits - 1, u'x'));

  std::vector<char16_t> work(kWorkFolderUnits);
  EXPECT_EQ(Forward(host_, M::GetWorkFolder, Arg(work.data())), 1);
  host_.setWorkFolder(u"/home/w\u00e9rk");
  EXPECT_EQ(Forward(host_, M::GetWorkFolder, Arg(work.data())), 0);
  EXPECT_EQ(std::u16string(work.data()), u"/home/w\u00e9rk");

  REGISTRATION_RECORD registration{};
  registration.moduleOrHandle = 0x1000;
  Forward(host_, M::RegisterModule, Arg(&registration));
  EXPECT_EQ(Unpacked(registration.moduleOrHandle), 0x1000u);
}

TEST_F(ModuleHostTest, DateTimeFormattersFormatQtObjects) {
  DATETIME_FORMATTER_RECORD record{};
  Forward(host_, M::GetDateTimeFormatters, Arg(&record));
  const QDateTime moment(QDate(2001, 2, 3), QTime(4, 5, 6));
  const QString format = QStringLiteral("yyyy-MM-dd hh:mm:ss");
  QString text;
  reinterpret_cast<HostQDateTimeFormatter>(record.qDateTimeFormatter)(&moment, &format, &text);
  EXPECT_EQ(text, QStringLiteral("2001-02-03 04:05:06"));
  constexpr long kSeptember2001 = 1000000000;
  const QString year = QStringLiteral("yyyy");
  reinterpret_cast<HostTimeValueFormatter>(record.timeValueFormatter)(kSeptember2001, &year, false,
                                                                      &text);
  EXPECT_EQ(text, QStringLiteral("2001"));

  host_.setDateTimeFormatters(false);
  DATETIME_FORMATTER_RECORD none{};
  Forward(host_, M::GetDateTimeFormatters, Arg(&none));
  EXPECT_EQ(Unpacked(none.qDateTimeFormatter), 0u);
  EXPECT_EQ(Unpacked(none.timeValueFormatter), 0u);
}

TEST_F(ModuleHostTest, EventsReachCurrentSubscribersOnly) {
  auto subscribe = [&](const char* name, HostWord handle, HostWord module) {
    EVENT_SUBSCRIPTION_RECORD record{};
    std::strcpy(record.name, name);
    record.moduleHandle = handle;
    record.module = module;
    Forward(host_, M::SubscribeEvent, Arg(&record));
  };
  subscribe("Game", 11, 0xA0);
  subscribe("Game", 12, 0xB0);
  subscribe("Other", 11, 0xA0);
  EXPECT_EQ(host_.raiseEvent("Game", kEventGameModeStarts), 2);
  FakeReceived received = Received(host_);
  EXPECT_EQ(received.events, 2);
  EXPECT_EQ(Unpacked(received.event.addressedHostId), 12u);
  EXPECT_EQ(Unpacked(received.event.addressedModule), 0xB0u);
  EXPECT_EQ(Unpacked(received.event.eventCode), kEventGameModeStarts);

  EVENT_UNSUBSCRIPTION_RECORD cancel{11, 0xA0};
  Forward(host_, M::UnsubscribeAll, Arg(&cancel));
  EXPECT_EQ(host_.raiseEvent("Other", kEventGameModeEnds), 0);
  EXPECT_EQ(host_.raiseEvent("Game", kEventGameModeEnds), 1);
  EXPECT_EQ(Unpacked(Received(host_).event.addressedHostId), 12u);
}

TEST_F(ModuleHostTest, MenuItemsGetIdsAndCanBePressed) {
  mm_menu_item first{};
  std::u16string(u"Data Import...").copy(first.text, kHostWideNameUnits - 1);
  first.owner = 0x99;
  mm_menu_item second = first;
  Forward(host_, M::AddMenuItem, Arg(&first));
  Forward(host_, M::AddMenuItem, Arg(&second));
  EXPECT_EQ(Unpacked(first.itemId), ModuleHost::kFirstMenuItemId);
  EXPECT_EQ(Unpacked(second.itemId), ModuleHost::kFirstMenuItemId + 1);

  host_.pressMenuItem(1);
  const FakeReceived received = Received(host_);
  EXPECT_EQ(received.presses, 1);
  EXPECT_EQ(Unpacked(received.item.itemId), Unpacked(second.itemId));
  EXPECT_EQ(Unpacked(received.item.owner), 0x99u);
  EXPECT_EQ(std::u16string(received.item.text), u"Data Import...");
}

// Log sinks have no context: two hosts must still get only their own records.
TEST(ModuleHostSinkTest, EachHostGetsOnlyItsOwnLogRecords) {
  TempDir dir;
  const std::u16string moduleA = u"A", moduleB = u"B", textA = u"first", textB = u"second";
  LogRecord recordA{Word(moduleA), 1, 5, Word(textA)};
  LogRecord recordB{Word(moduleB), 0, 2, Word(textB)};
  ModuleHost hostA;
  HostLogSink sinkB = nullptr;
  {
    ModuleHost hostB;
    for (auto [host, name] : {std::pair{&hostA, "fake_a.so"}, std::pair{&hostB, "fake_b.so"}}) {
      fs::copy_file(FAKE_MODULE_PATH, dir.path / name);
      ASSERT_TRUE(host->load((dir.path / name).string())) << host->error();
      host->initialize();
    }
    ASSERT_NE(hostA.moduleObject(), hostB.moduleObject());
    HostWord slotA = 0, slotB = 0;
    Forward(hostA, M::GetLogSink, Arg(&slotA));
    Forward(hostB, M::GetLogSink, Arg(&slotB));
    const auto sinkA = reinterpret_cast<HostLogSink>(slotA);
    sinkB = reinterpret_cast<HostLogSink>(slotB);
    ASSERT_EQ(sinkA, hostA.logSink());
    ASSERT_EQ(sinkB, hostB.logSink());
    ASSERT_NE(sinkA, sinkB);

    std::thread([&] { EXPECT_EQ(sinkA(&recordA), 0); }).join();
    EXPECT_EQ(sinkB(&recordB), 0);
    EXPECT_EQ(sinkA(nullptr), 1);
    const auto logsA = hostA.logs();
    ASSERT_EQ(logsA.size(), 1u);
    EXPECT_EQ(logsA[0].module, u"A");
    EXPECT_EQ(logsA[0].text, u"first");
    EXPECT_EQ(logsA[0].type, 1u);
    EXPECT_EQ(logsA[0].level, 5u);
    EXPECT_NE(logsA[0].thread, std::this_thread::get_id());
    const auto logsB = hostB.logs();
    ASSERT_EQ(logsB.size(), 1u);
    EXPECT_EQ(logsB[0].text, u"second");
    EXPECT_EQ(logsB[0].level, 2u);
    EXPECT_EQ(hostA.calls().size(), 1u);
    EXPECT_EQ(hostB.calls().size(), 1u);
  }
  EXPECT_EQ(sinkB(&recordB), 1);  // its host is gone: dropped, not misrouted
  EXPECT_EQ(hostA.logs().size(), 1u);
}

TEST(ModuleHostSinkTest, HostsBeyondTheSlotsGetNoSinkUntilOneIsFreed) {
  std::vector<std::unique_ptr<ModuleHost>> hosts;
  for (int i = 0; i < ModuleHost::kSinkSlots; ++i) {
    hosts.push_back(std::make_unique<ModuleHost>());
    ASSERT_NE(hosts.back()->logSink(), nullptr) << i;
  }
  ModuleHost extra;
  EXPECT_EQ(extra.logSink(), nullptr);
  hosts.pop_back();
  ModuleHost next;
  EXPECT_NE(next.logSink(), nullptr);
}

}  // namespace
