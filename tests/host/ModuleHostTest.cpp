#include "ModuleHost.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QTemporaryDir>
#include <atomic>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>

#include "FakeModuleProtocol.h"

namespace {

namespace M = HostMessage;

constexpr unsigned int kUnknownMessage = 7001;  // no answer of the host's own

// Packed fields are passed by value: gtest's macros bind references.
template <typename T>
T Unpacked(T field) {
  return field;
}

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

// Has the fake module send message with record as a; returns the record as
// the host left it.
template <typename Record>
Record Asked(ModuleHost& host, unsigned int message, Record record = {}) {
  Forward(host, message, Arg(&record));
  return record;
}

FakeReceived Received(ModuleHost& host) {
  FakeReceived received;
  host.send(kFakeLastReceived, Arg(&received));
  return received;
}

class ModuleHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.load(FAKE_MODULE_PATH)) << host_.error();
    host_.initialize();
  }

  ModuleHost host_;
};

TEST(ModuleHostLoadTest, ReportsMissingFileLibraryAndExport) {
  QTemporaryDir dir;
  ModuleHost host;
  EXPECT_FALSE(host.load(dir.filePath("absent.so").toStdString()));
  EXPECT_NE(host.error().find("absent.so"), std::string::npos) << host.error();

  const std::string text = dir.filePath("text.so").toStdString();
  std::ofstream(text) << "not a library";
  EXPECT_FALSE(host.load(text));
  EXPECT_NE(host.error().find("cannot load"), std::string::npos) << host.error();

  EXPECT_FALSE(host.load(FAKE_MODULE_NO_INFO_PATH));
  EXPECT_NE(host.error().find("GetModuleInfo"), std::string::npos) << host.error();
  EXPECT_FALSE(host.loaded());

  ASSERT_TRUE(host.load(FAKE_MODULE_PATH)) << host.error();
  EXPECT_TRUE(host.error().empty());
  EXPECT_STREQ(host.info().name, "Fake module");
}

// Every call is recorded with a copy of its record taken before the answer;
// messages without an answer of the host's own go to the handler, and a
// known message without its record is refused.
TEST_F(ModuleHostTest, RecordsEveryCallAndRoutesIt) {
  EVENT_CREATION_RECORD first{"Alpha", 0}, second{"Beta", 0};
  Forward(host_, M::CreateEvent, Arg(&first));
  Forward(host_, M::CreateEvent, Arg(&second));
  EXPECT_EQ(Unpacked(first.handle), ModuleHost::kFirstEventHandle);
  EXPECT_EQ(Unpacked(second.handle), ModuleHost::kFirstEventHandle + 1);
  const auto created = host_.calls(M::CreateEvent);
  ASSERT_EQ(created.size(), 2u);
  EXPECT_EQ(created[0].a, Arg(&first));
  const EVENT_CREATION_RECORD onEntry{"Alpha", 0};
  const auto* bytes = reinterpret_cast<const unsigned char*>(&onEntry);
  EXPECT_EQ(created[0].record, std::vector<unsigned char>(bytes, bytes + sizeof onEntry));
  const auto events = host_.createdEvents();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[1].name, "Beta");
  EXPECT_EQ(events[1].handle, Unpacked(second.handle));

  EXPECT_EQ(Forward(host_, kUnknownMessage, 5, 6), 0);
  host_.setHandler([](unsigned int message, HostArg a, HostArg b) {
    return message == kUnknownMessage ? static_cast<int>(a + b) : -1;
  });
  EXPECT_EQ(Forward(host_, kUnknownMessage, 5, 6), 11);
  EXPECT_EQ(Forward(host_, M::RefreshMenu), 0);
  const auto unknown = host_.calls(kUnknownMessage);
  ASSERT_EQ(unknown.size(), 2u);
  EXPECT_EQ(unknown[1].b, 6);
  EXPECT_TRUE(unknown[1].record.empty());

  host_.clearRecords();
  EXPECT_EQ(Forward(host_, M::GetFolder), 1);
  EXPECT_EQ(Forward(host_, M::GetLogSink), 1);
  EXPECT_EQ(Forward(host_, M::EmitEvent, 1, 0), 1);
  EXPECT_EQ(host_.calls().size(), 3u);
  EXPECT_TRUE(host_.emits().empty());
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

TEST_F(ModuleHostTest, AnswersLanguagesInTwoSteps) {
  EXPECT_EQ(Unpacked(Asked<LANGUAGE_LIST_RECORD>(host_, M::GetLanguageCount).count), 0);
  host_.setLanguages({{"English", false}, {"Chinese (Simplified)", true}, {"German", false}});
  EXPECT_EQ(Unpacked(Asked<LANGUAGE_LIST_RECORD>(host_, M::GetLanguageCount).count), 3);
  LANGUAGE_ENTRY entries[3]{};
  // The module may ask for fewer than there are.
  Asked(host_, M::GetLanguages, LANGUAGE_LIST_RECORD{2, reinterpret_cast<HostWord>(entries)});
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
  INTERFACE_REQUEST_RECORD record{"A", "C", "B", 1, reinterpret_cast<HostWord>(&slot)};
  Forward(host_, M::GetMainMenu, Arg(&record));
  EXPECT_EQ(slot, 0x55u);

  slot = kUntouched;
  std::strcpy(record.third, "B");
  std::strcpy(record.second, "C");
  Forward(host_, M::GetInterface, Arg(&record));
  EXPECT_EQ(slot, kUntouched);
}

// The configured answers, cut to fit and refused while unconfigured: folders,
// registration, data source, window, translations; and the host's log sink.
// Registration gets a new host-assigned handle each time unless one is fixed.
TEST_F(ModuleHostTest, AnswersWhatWasConfigured) {
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

  constexpr HostWord kModuleAddress = 0xABCD00;  // what the module puts in before asking
  for (HostWord handle : {ModuleHost::kFirstModuleHandle, ModuleHost::kFirstModuleHandle + 1}) {
    REGISTRATION_RECORD record{};
    record.moduleOrHandle = kModuleAddress;
    EXPECT_EQ(Unpacked(Asked(host_, M::RegisterModule, record).moduleOrHandle), handle);
  }
  host_.setModuleHandle(0x2000);
  host_.setUseWorkFolder(1);
  host_.setMainWindowId(0x77);
  host_.setDataSource("Demo");
  EXPECT_EQ(Unpacked(Asked<REGISTRATION_RECORD>(host_, M::RegisterModule).moduleOrHandle), 0x2000u);
  EXPECT_EQ(Asked<std::int32_t>(host_, M::UseWorkFolder), 1);
  EXPECT_EQ(Asked<HostWord>(host_, M::GetMainWindowId), 0x77u);
  EXPECT_EQ(Asked<HostWord>(host_, M::GetLogSink), reinterpret_cast<HostWord>(host_.logSink()));
  SOURCE_RECORD source{};
  Forward(host_, M::GetDataSource, 0, Arg(&source));
  EXPECT_STREQ(source.provider, "Demo");
  Asked(host_, M::InsertTranslation, TRANSLATION_INSERT_RECORD{"Import", "title", "Data Import"});
  const auto translations = host_.translations();
  ASSERT_EQ(translations.size(), 1u);
  EXPECT_EQ(translations[0].context + "/" + translations[0].key + "/" + translations[0].text,
            "Import/title/Data Import");
}

// A throwing answer leaves the record as it was; the throw can be cleared.
// That the very object thrown reaches the caller is checked through the
// data store library.
TEST_F(ModuleHostTest, DateTimeFormattersFormatQtObjects) {
  host_.throwOn(M::GetDateTimeFormatters, std::make_exception_ptr(std::runtime_error("failure")));
  DATETIME_FORMATTER_RECORD record{};
  EXPECT_THROW(Forward(host_, M::GetDateTimeFormatters, Arg(&record)), std::runtime_error);
  EXPECT_EQ(Unpacked(record.qDateTimeFormatter), 0u);
  host_.clearThrow(M::GetDateTimeFormatters);
  EXPECT_EQ(Forward(host_, M::GetDateTimeFormatters, Arg(&record)), 0);

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
  const auto none = Asked<DATETIME_FORMATTER_RECORD>(host_, M::GetDateTimeFormatters);
  EXPECT_EQ(Unpacked(none.qDateTimeFormatter), 0u);
  EXPECT_EQ(Unpacked(none.timeValueFormatter), 0u);
}

TEST_F(ModuleHostTest, EventsReachCurrentSubscribersOnly) {
  EVENT_SUBSCRIPTION_RECORD subscriptions[] = {
      {"Game", 0, 11, 0xA0, -1}, {"Game", 0, 12, 0xB0, -1}, {"Other", 0, 11, 0xA0, -1}};
  for (auto& record : subscriptions) Forward(host_, M::SubscribeEvent, Arg(&record));
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

  VDEvent emitted{};
  emitted.sender = 11;
  Forward(host_, M::EmitEvent, 7, Arg(&emitted));
  const auto emits = host_.emits();
  ASSERT_EQ(emits.size(), 1u);
  EXPECT_EQ(emits[0].handle, 7u);
  EXPECT_EQ(Unpacked(emits[0].event.sender), 11u);
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

// Log sinks have no context: two hosts must still get only their own records,
// and hosts beyond the slots get no sink until one is freed.
TEST(ModuleHostSinkTest, EachHostGetsOnlyItsOwnLogRecords) {
  const std::u16string moduleA = u"A", textA = u"first", textB = u"second";
  LogRecord recordA{Word(moduleA), 1, 5, Word(textA)};
  LogRecord recordB{0, 0, 2, Word(textB)};
  ModuleHost hostA;
  HostLogSink sinkB = nullptr;
  {
    ModuleHost hostB;
    const HostLogSink sinkA = hostA.logSink();
    sinkB = hostB.logSink();
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
    EXPECT_TRUE(hostA.calls().empty());
  }
  EXPECT_EQ(sinkB(&recordB), 1);  // its host is gone: dropped, not misrouted
  EXPECT_EQ(hostA.logs().size(), 1u);

  std::vector<std::unique_ptr<ModuleHost>> hosts;  // with hostA, one a slot
  for (int i = 1; i < ModuleHost::kSinkSlots; ++i) {
    hosts.push_back(std::make_unique<ModuleHost>());
    ASSERT_NE(hosts.back()->logSink(), nullptr) << i;
  }
  EXPECT_EQ(ModuleHost().logSink(), nullptr);
  hosts.pop_back();
  EXPECT_NE(ModuleHost().logSink(), nullptr);
}

}  // namespace
