#include "Module.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
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

bool AllZero(const unsigned char* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

TEST(ModuleInfoTest, NumbersLandReversedAndTheRestIsZero) {
  CModule module("Name", 11, 22, 33, "CName", QStringLiteral("CTransName"));
  const MODULE_INFO info = InfoOf(module);
  EXPECT_STREQ(info.name, "Name");
  EXPECT_STREQ(info.description, "Noname module");
  EXPECT_EQ(std::uint32_t{info.number3}, 33u);
  EXPECT_EQ(std::uint32_t{info.number2}, 22u);
  EXPECT_EQ(std::uint32_t{info.number1}, 11u);
  EXPECT_EQ(std::uint32_t{info.kind}, 7u);
  EXPECT_EQ(std::uint32_t{info.extra}, 20u);
  EXPECT_EQ(std::string(info.contextName), "CTransName");
  EXPECT_TRUE(AllZero(info.reserved1, sizeof(info.reserved1)));
  EXPECT_TRUE(AllZero(info.reserved2, sizeof(info.reserved2)));
  EXPECT_TRUE(AllZero(reinterpret_cast<const unsigned char*>(info.name) + 5, 250));
}

TEST(ModuleInfoTest, LongNamesAreCutToTheirFields) {
  const std::string longName(300, 'n');
  CModule module(longName.c_str(), 1, 2, 3, "C", QString(25, QChar('c')));
  const MODULE_INFO info = InfoOf(module);
  EXPECT_EQ(std::strlen(info.name), 254u);
  EXPECT_EQ(std::string(info.contextName, 20), std::string(20, 'c'));  // no terminator
  EXPECT_EQ(std::uint32_t{info.extra}, 20u);
}

TEST(ModuleInfoTest, NoNameLeavesNameAndDescriptionEmpty) {
  CModule module(nullptr, 1, 2, 3, "C", QStringLiteral("ctx"));
  const MODULE_INFO info = InfoOf(module);
  EXPECT_EQ(info.name[0], 0);
  EXPECT_EQ(info.description[0], 0);
}

TEST(ModuleInfoTest, NullOutputReturnsZero) {
  CModule module("Name", 1, 2, 3, "C", QStringLiteral("ctx"));
  EXPECT_EQ(module.GetModuleInfoWrap(nullptr), 0);
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

TEST_F(StartTest, AsksForLanguagesFormattersAndLogSinkInOrder) {
  Languages({"English", "Deutsch"}, 1);
  EXPECT_EQ(Start(), 0);
  const std::vector<unsigned int> expected = {HostMessage::GetLanguageCount, HostMessage::GetLanguages,
                                              HostMessage::GetDateTimeFormatters, HostMessage::GetLogSink};
  EXPECT_EQ(ScriptedHost::instance().Messages(), expected);
  EXPECT_EQ(TestModule().getFont(static_cast<font::elementCode>(3)), QStringLiteral("Courier New"));
  EXPECT_NE(TestModule().GetLog()->sink(), nullptr);
}

TEST_F(StartTest, NoLanguagesGiveTheDefaultFontsWithoutAskingForTheList) {
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(ScriptedHost::instance().Messages().front(), HostMessage::GetLanguageCount);
  EXPECT_EQ(ScriptedHost::instance().Messages()[1], HostMessage::GetDateTimeFormatters);
  EXPECT_EQ(TestModule().getFontSize(10), 10);
}

TEST_F(StartTest, CurrentChineseLanguageSelectsTheChineseTable) {
  Languages({"English", "Chinese (Simplified)"}, 1);
  Start();
  EXPECT_EQ(TestModule().getFont(static_cast<font::elementCode>(9)), QStringLiteral("SimSun"));
  EXPECT_EQ(TestModule().getFontSize(10), 12);
}

TEST_F(StartTest, NoFlaggedLanguageFallsBackToEnglish) {
  Languages({"Chinese (Simplified)"}, -1);
  Start();
  EXPECT_EQ(TestModule().getFontSize(10), 10);
}

TEST_F(StartTest, SecondStartReplacesTheHelpers) {
  Start();
  const font::Manager* fonts = TestModule().getFontManager();
  const Quendal::DateTime* dateTime = TestModule().GetDateTime();
  ASSERT_NE(fonts, nullptr);
  ASSERT_NE(dateTime, nullptr);
  ScriptedHost::instance().calls.clear();
  Start();
  EXPECT_EQ(ScriptedHost::instance().Messages().size(), 3u);
  EXPECT_NE(TestModule().GetDateTime(), nullptr);
  EXPECT_NE(TestModule().getFontManager(), nullptr);
}

TEST_F(StartTest, StartWithoutCallbackDoesNotCrashOrCallAnything) {
  TestModule().InitializeWrap(nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(Start(), 0);
  EXPECT_TRUE(ScriptedHost::instance().calls.empty());
  EXPECT_EQ(TestModule().GetLog()->sink(), nullptr);
  EXPECT_EQ(TestModule().getFontSize(10), 10);
}

TEST_F(StartTest, AThrowIsReportedOnceAndRethrownUnchanged) {
  Start();  // attaches the log
  ScriptedHost::instance().answers[HostMessage::GetDateTimeFormatters] = [](HostArg, HostArg) -> int {
    throw std::runtime_error("host failed");
  };
  try {
    Start();
    FAIL() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "host failed");
  }
  const auto& records = ScriptedHost::instance().sinkRecords;
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].type, 1u);
  EXPECT_EQ(records[0].level, 5u);
  EXPECT_EQ(records[0].text, u"Unknown throw in <CTestModule>|../Module|91");
  EXPECT_EQ(records[0].moduleName, u"CTestModule");
}

TEST_F(StartTest, OtherMessagesDoNothing) {
  for (unsigned int message : {0u, 3000u, 3005u, 3007u, 6001u, 0xFFFFFFFFu}) {
    EXPECT_EQ(TestModule().ReceiveMessageWrap(nullptr, message, 1, 2), 0);
  }
  EXPECT_TRUE(ScriptedHost::instance().calls.empty());
  EXPECT_EQ(TestModule().getFontManager(), nullptr);
}

TEST(InitializeTest, StoresAndOverwritesTheFourValues) {
  CModule module("Name", 1, 2, 3, "C", QStringLiteral("ctx"));
  int a = 0, b = 0;
  module.InitializeWrap(&ScriptedHost::Callback, &ScriptedHost::Callback, &a, &b);
  EXPECT_EQ(module.callback(), &ScriptedHost::Callback);
  EXPECT_EQ(module.context(), &a);
  EXPECT_EQ(module.context2(), &b);
  module.InitializeWrap(nullptr, nullptr, &b, nullptr);
  EXPECT_EQ(module.callback(), nullptr);
  EXPECT_EQ(module.context(), &b);
}

}  // namespace
