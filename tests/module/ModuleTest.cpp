// The module's own part of the host protocol. The module info bytes, the start
// sequence and a throw during start are checked through the loaded library in
// the integration tests.
#include "Module.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

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
  // Answers 3116 and 3117 with the given languages, the current one flagged.
  void Languages(std::vector<std::string> names, int current) {
    auto& answers = ScriptedHost::instance().answers;
    answers[HostMessage::GetLanguageCount] = [names](HostArg a, HostArg) {
      reinterpret_cast<LANGUAGE_LIST_RECORD*>(a)->count = static_cast<int>(names.size());
      return 0;
    };
    answers[HostMessage::GetLanguages] = [names, current](HostArg a, HostArg) {
      auto* list = reinterpret_cast<LANGUAGE_LIST_RECORD*>(a);
      auto* entries = reinterpret_cast<LANGUAGE_ENTRY*>(list->entries);
      for (int i = 0; i < list->count; ++i) {
        std::strncpy(entries[i].name, names[i].c_str(), sizeof(entries[i].name) - 1);
        entries[i].isCurrent = i == current ? 1 : 0;
      }
      return 0;
    };
  }
  int Start() { return TestModule().ReceiveMessageWrap(nullptr, HostMessage::Start, 0, 0); }
};

TEST_F(StartTest, TheCurrentLanguageChoosesTheFonts) {
  struct Case {
    std::vector<std::string> languages;
    int current;
    const char* font9;
    int size10;
  };
  const Case cases[] = {
      {{"English", "Chinese (Simplified)"}, 1, "SimSun", 12},
      {{"Chinese (Simplified)"}, -1, "Arial", 10},  // none flagged: English
      {{}, 0, "Arial", 10},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.languages.size());
    SetUp();
    if (!c.languages.empty()) Languages(c.languages, c.current);
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(TestModule().getFont(font::ELEMENT_9), QString::fromLatin1(c.font9));
    EXPECT_EQ(TestModule().getFontSize(10), c.size10);
    EXPECT_NE(TestModule().GetLog()->sink(), nullptr);
  }
}

TEST_F(StartTest, StartWithoutCallbackDoesNotCrashOrCallAnything) {
  TestModule().InitializeWrap(nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(Start(), 0);
  EXPECT_TRUE(ScriptedHost::instance().calls.empty());
  EXPECT_EQ(TestModule().GetLog()->sink(), nullptr);
  EXPECT_EQ(TestModule().getFontSize(10), 10);
}

TEST_F(StartTest, OtherMessagesDoNothing) {
  for (unsigned int message : {0u, 3000u, 3005u, 3007u, 6001u, 0xFFFFFFFFu}) {
    EXPECT_EQ(TestModule().ReceiveMessageWrap(nullptr, message, 1, 2), 0);
  }
  EXPECT_TRUE(ScriptedHost::instance().calls.empty());
  EXPECT_EQ(TestModule().getFontManager(), nullptr);
}

}  // namespace
