#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestModule.h"

namespace {

class EventsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetTestModule();
    host().Attach(TestModule());
    TestModule().setModuleHandle(77);
    TestModule().GetLog()->Create(QStringLiteral("CTestModule"), &ScriptedHost::Callback, &host());
    host().calls.clear();
  }
  static ScriptedHost& host() { return ScriptedHost::instance(); }
  // Copies the record of every `message` into `into`.
  template <typename Record>
  static void Capture(unsigned int message, Record& into) {
    host().answers[message] = [&into](HostArg a, HostArg) {
      into = *reinterpret_cast<Record*>(a);
      return 0;
    };
  }
};

TEST_F(EventsTest, CreateEventSendsTheCutNameAndKeepsTheFirstHandle) {
  std::vector<EVENT_CREATION_RECORD> sent;
  HostWord next = 5;
  host().answers[HostMessage::CreateEvent] = [&](HostArg a, HostArg) {
    auto* record = reinterpret_cast<EVENT_CREATION_RECORD*>(a);
    sent.push_back(*record);
    record->handle = next++;
    return 0;
  };
  EXPECT_EQ(TestModule().CreateEvent(QStringLiteral("X")), 5u);
  EXPECT_EQ(TestModule().CreateEvent(QStringLiteral("X")), 6u);
  EXPECT_EQ(TestModule().events().value(QStringLiteral("X")), 5u);
  TestModule().CreateEvent(
      QString(300, QChar('e')));  // 255 or more fill the field without terminator
  TestModule().CreateEvent(QString(254, QChar('f')));
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_STREQ(sent[1].name, "X");
  EXPECT_EQ(HostWord{sent[1].handle}, 0u);
  EXPECT_EQ(std::string(sent[2].name, sizeof sent[2].name), std::string(255, 'e'));
  EXPECT_EQ(std::string(sent[3].name, sizeof sent[3].name), std::string(254, 'f') + '\0');
}

TEST_F(EventsTest, EmitFillsNameAndHandleOfAKnownEventAndLogsAnUnknownOne) {
  VDEvent event;
  std::memset(&event, 0xCC, sizeof(event));
  event.sender = 9;
  EXPECT_EQ(TestModule().EmitEvent(QStringLiteral("DataStoreEvent"), event), 1);
  ASSERT_EQ(host().sinkRecords.size(), 1u);
  EXPECT_EQ(std::pair(host().sinkRecords[0].type, host().sinkRecords[0].level), std::pair(1u, 4u));
  EXPECT_EQ(host().sinkRecords[0].text, u"Can't emit event with name \"DataStoreEvent\"");
  EXPECT_TRUE(host().calls.empty());

  host().answers[HostMessage::CreateEvent] = [](HostArg a, HostArg) {
    reinterpret_cast<EVENT_CREATION_RECORD*>(a)->handle = 0x1234;
    return 0;
  };
  TestModule().CreateEvent(QStringLiteral("DataStoreEvent"));
  EXPECT_EQ(TestModule().EmitEvent(QStringLiteral("DataStoreEvent"), event), 0);
  const ScriptedHost::Call& call = host().calls.back();
  EXPECT_EQ(call.message, HostMessage::EmitEvent);
  EXPECT_EQ(call.a, 0x1234);
  EXPECT_EQ(call.b, reinterpret_cast<HostArg>(&event));
  EXPECT_STREQ(event.name, "DataStoreEvent");
  EXPECT_EQ(HostWord{event.eventHandle}, 0x1234u);
  EXPECT_EQ(event.sender, 9u);
}

TEST_F(EventsTest, SubscriptionAndUnsubscriptionRecords) {
  EVENT_SUBSCRIPTION_RECORD subscription{};
  EVENT_UNSUBSCRIPTION_RECORD unsubscription{};
  Capture(HostMessage::SubscribeEvent, subscription);
  Capture(HostMessage::UnsubscribeAll, unsubscription);
  TestModule().SubscribeEvent(QStringLiteral("Quendal Game Mode"));
  TestModule().UnSubscribeEvent();
  const auto module = reinterpret_cast<HostWord>(&TestModule());
  EXPECT_STREQ(subscription.name, "Quendal Game Mode");
  EXPECT_EQ(std::uint32_t{subscription.zero}, 0u);
  EXPECT_EQ(HostWord{subscription.moduleHandle}, 77u);
  EXPECT_EQ(HostWord{subscription.module}, module);
  EXPECT_EQ(std::int32_t{subscription.minusOne}, -1);
  EXPECT_EQ(unsubscription.moduleHandle, 77u);
  EXPECT_EQ(unsubscription.module, module);
}

TEST_F(EventsTest, InterfaceNamesAreCutToTheFirstNamesLength) {
  INTERFACE_REQUEST_RECORD sent{};
  host().answers[HostMessage::GetInterface] = [&sent](HostArg a, HostArg) {
    auto* record = reinterpret_cast<INTERFACE_REQUEST_RECORD*>(a);
    sent = *record;
    *reinterpret_cast<HostWord*>(record->resultSlot) = 0xBEEF;
    return 0;
  };
  EXPECT_EQ(TestModule().getInterface(QStringLiteral("ab"), QStringLiteral("123456789"),
                                      QStringLiteral("z")),
            0xBEEFu);
  const char* bytes = reinterpret_cast<const char*>(&sent);
  EXPECT_EQ(std::string(bytes, 3), std::string("ab\0", 3));
  EXPECT_EQ(std::string(bytes + 255, 2), std::string("z\0", 2));
  EXPECT_EQ(std::string(bytes + 510, 3), std::string("12\0", 3));
  EXPECT_EQ(std::uint32_t{sent.one}, 1u);
}

}  // namespace
