// The module's own part of the host protocol. The module info bytes, the start
// sequence and a throw during start are checked through the loaded library in
// the integration tests.
#include "Module.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "DateTime.h"
#include "FontManager.h"
#include "TestModule.h"

namespace {

MODULE_INFO InfoOf(CModule& module) {
  MODULE_INFO info;
  std::memset(&info, 0xAB, sizeof(info));
  EXPECT_EQ(module.GetModuleInfoWrap(&info), 0);
  return info;
}

TEST(ModuleInfoTest, LongNamesAreCutToTheirFieldsAndNoNameLeavesThemEmpty) {
  const std::string longName(300, 'n');
  CModule module(longName.c_str(), 1, 2, 3, "C", QString(25, QChar('c')));
  const MODULE_INFO info = InfoOf(module);
  EXPECT_EQ(std::strlen(info.name), 254u);
  EXPECT_STREQ(info.description, "Noname module");
  EXPECT_EQ(std::string(info.contextName, 20), std::string(20, 'c'));  // no terminator
  EXPECT_EQ(std::uint32_t{info.extra}, 20u);

  CModule unnamed(nullptr, 1, 2, 3, "C", QStringLiteral("ctx"));
  const MODULE_INFO empty = InfoOf(unnamed);
  EXPECT_EQ(empty.name[0], 0);
  EXPECT_EQ(empty.description[0], 0);
}

class StartTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetTestModule();
    ScriptedHost::instance().Attach(TestModule());
  }
  int Start() { return TestModule().ReceiveMessageWrap(nullptr, HostMessage::Start, 0, 0); }
};

TEST_F(StartTest, TheCurrentLanguageChoosesTheFonts) {
  const struct {
    std::vector<std::string> languages;  // answered through 3116 and 3117 unless empty
    int current;
    bool chinese;
  } cases[] = {
      {{"English", "Chinese (Simplified)"}, 1, true},
      {{"Chinese (Simplified)"}, -1, false},  // none flagged: English
      {{}, 0, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.languages.size());
    SetUp();
    auto& answers = ScriptedHost::instance().answers;
    if (!c.languages.empty()) {
      answers[HostMessage::GetLanguageCount] = [&c](HostArg a, HostArg) {
        reinterpret_cast<LANGUAGE_LIST_RECORD*>(a)->count = static_cast<int>(c.languages.size());
        return 0;
      };
      answers[HostMessage::GetLanguages] = [&c](HostArg a, HostArg) {
        auto* list = reinterpret_cast<LANGUAGE_LIST_RECORD*>(a);
        auto* entries = reinterpret_cast<LANGUAGE_ENTRY*>(list->entries);
        for (int i = 0; i < list->count; ++i) {
          std::strncpy(entries[i].name, c.languages[i].c_str(), sizeof(entries[i].name) - 1);
          entries[i].isCurrent = i == c.current ? 1 : 0;
        }
        return 0;
      };
    }
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(TestModule().getFont(font::ELEMENT_9), c.chinese ? "SimSun" : "Arial");
    EXPECT_EQ(TestModule().getFontSize(10), c.chinese ? 12 : 10);
    EXPECT_NE(TestModule().GetLog()->sink(), nullptr);
  }
}

TEST_F(StartTest, NothingReachesTheHostForOtherMessagesOrWithoutCallback) {
  for (unsigned int message : {0u, 3000u, 3005u, 3007u, 6001u, 0xFFFFFFFFu}) {
    EXPECT_EQ(TestModule().ReceiveMessageWrap(nullptr, message, 1, 2), 0);
  }
  EXPECT_TRUE(ScriptedHost::instance().calls.empty());
  EXPECT_EQ(TestModule().getFontManager(), nullptr);

  TestModule().InitializeWrap(nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(TestModule().GetLog()->sink(), nullptr);
  EXPECT_EQ(TestModule().getFontSize(10), 10);
  EXPECT_EQ(TestModule().CreateEvent(QStringLiteral("E")), 0u);  // recorded with handle 0
  EXPECT_TRUE(TestModule().events().contains(QStringLiteral("E")));
  VDEvent event{};
  EXPECT_EQ(TestModule().EmitEvent(QStringLiteral("E"), event), 0);
  EXPECT_EQ(
      TestModule().getInterface(QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")), 0u);
  TestModule().InsertTranslate("ctx", "key", "text");
  Quendal::DateTime dateTime(TestModule(), nullptr);
  EXPECT_TRUE(dateTime.toString(QDateTime::currentDateTime(), QStringLiteral("x")).isNull());
  EXPECT_TRUE(ScriptedHost::instance().calls.empty());
}

}  // namespace
