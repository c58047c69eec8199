#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestModule.h"
#include "TranslateManager.h"

namespace {

class TranslateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetTestModule();
    ScriptedHost::instance().Attach(TestModule());
    ScriptedHost::instance().answers[HostMessage::InsertTranslation] = [this](HostArg a, HostArg) {
      sent.push_back(*reinterpret_cast<TRANSLATION_INSERT_RECORD*>(a));
      return 0;
    };
  }
  std::vector<TRANSLATION_INSERT_RECORD> sent;
};

TEST_F(TranslateTest, WithoutTranslatorTheKeyComesBack) {
  EXPECT_EQ(TestModule().tr("C0110", nullptr), QStringLiteral("C0110"));
  EXPECT_EQ(TestModule().tr(QStringLiteral("M0150")), QStringLiteral("M0150"));
}

TEST_F(TranslateTest, InsertSendsContextKeyAndTextAtTheirOffsetsWhenTheyFit) {
  const std::string fits(1023, 'a');
  const std::string tooLong(1024, 'b');
  TestModule().GetTranslateManager()->InsertTranslate("C0110", "Look in");
  TestModule().InsertTranslate("Other", "K", fits.c_str());
  TestModule().InsertTranslate("ctx", tooLong.c_str(), "text");
  TestModule().InsertTranslate(tooLong.c_str(), "key", "text");
  ASSERT_EQ(sent.size(), 2u);
  const char* bytes = reinterpret_cast<const char*>(&sent[0]);
  EXPECT_STREQ(bytes + 0, "CTransTest");
  EXPECT_STREQ(bytes + 1024, "C0110");
  EXPECT_STREQ(bytes + 2048, "Look in");
  EXPECT_STREQ(sent[1].context, "Other");
  EXPECT_EQ(std::strlen(sent[1].text), 1023u);
  EXPECT_EQ(ScriptedHost::instance().calls.back().b, 0);
}

}  // namespace
