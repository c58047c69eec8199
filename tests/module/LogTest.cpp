#include "Log.h"

#include <gtest/gtest.h>

#include "TestModule.h"

namespace {

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedHost::instance().Attach(TestModule());
    log.Create(QStringLiteral("CLogTest"), &ScriptedHost::Callback, &ScriptedHost::instance());
  }
  const std::vector<ScriptedHost::SinkRecord>& records() {
    return ScriptedHost::instance().sinkRecords;
  }
  Log log;
};

TEST(LogWithoutSink, GrowsToNeededPlusOldOrDoubleAndDropsTheRecord) {
  Log log;
  EXPECT_EQ(log.capacity(), 32u);
  log << QString(40, QChar('a'));
  EXPECT_EQ(log.capacity(), 73u);  // 41 + 32 beats 64
  EXPECT_EQ(log.used(), 41u);
  log << "b";
  EXPECT_EQ(log.capacity(), 73u);
  log << QString(100, QChar('c'));
  EXPECT_EQ(log.capacity(), 174u);  // 101 + 73 beats 146
  log << QString(100, QChar('d'));
  EXPECT_EQ(log.capacity(), 348u);  // doubling beats 101 + 174
  EXPECT_EQ(log.text().size(), 241);
  EXPECT_TRUE(log.text().startsWith(QString(40, QChar('a')) + "b"));

  EXPECT_EQ(log.SendMessage(), 1);
  log << LOG_MARK_FLUSH;
  EXPECT_EQ(log.text(), QString());
  EXPECT_EQ(log.used(), 1u);
  log << QString::fromUtf16(u"ab\0cd", 5) << "e";  // an embedded zero ends the appended text
  EXPECT_EQ(log.text(), QStringLiteral("abe"));
}

TEST_F(LogTest, TypeAndLevelAreKeptAcrossFlushesAndMarkersAboveFlushIgnored) {
  log.ShowLogInfo(static_cast<coreLogMsgType>(7), LOG_LEVEL_2,
                  QStringLiteral("x"));  // any type but 1 is 0
  log.ShowLogInfo(LOG_TYPE_1, LOG_LEVEL_5, QStringLiteral("y"));
  log << LOG_LEVEL_4 << "z" << LOG_MARK_FLUSH;
  log << "w" << LOG_MARK_FLUSH;
  ASSERT_EQ(records().size(), 4u);
  EXPECT_EQ(records()[0].moduleName, u"CLogTest");
  EXPECT_EQ(records()[0].text, u"x");
  EXPECT_EQ(std::pair(records()[0].type, records()[0].level), std::pair(0u, 2u));
  EXPECT_EQ(std::pair(records()[1].type, records()[1].level), std::pair(1u, 5u));
  EXPECT_EQ(records()[3].text, u"w");
  EXPECT_EQ(std::pair(records()[3].type, records()[3].level), std::pair(1u, 4u));

  const coreLogMsgLevel expected[] = {LOG_LEVEL_0, LOG_LEVEL_5, LOG_LEVEL_4, LOG_LEVEL_3,
                                      LOG_LEVEL_2};
  for (std::uint32_t marker = 0; marker < 5; ++marker) {
    log << static_cast<eLogMsgType>(marker);
    EXPECT_EQ(log.level(), expected[marker]) << "marker " << marker;
  }
  log << "kept" << static_cast<eLogMsgType>(6) << static_cast<eLogMsgType>(99);
  EXPECT_EQ(log.level(), LOG_LEVEL_2);
  EXPECT_EQ(log.text(), QStringLiteral("kept"));
  EXPECT_EQ(records().size(), 4u);
}

TEST_F(LogTest, ValuesAreWrittenAsText) {
  log << 'c' << QChar(u'\u0416') << short(-3) << static_cast<unsigned short>(65535) << -42 << 42u
      << -7L << 7UL << 1.5f << 3.14159265 << 1e20 << " end" << LOG_MARK_FLUSH;
  ASSERT_EQ(records().size(), 1u);
  EXPECT_EQ(QString::fromStdU16String(records()[0].text),
            QString::fromUtf16(u"c\u0416-365535-4242-771.53.141591e+20 end"));
}

}  // namespace
