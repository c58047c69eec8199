#include "DateTime.h"

#include <gtest/gtest.h>

#include "TestModule.h"

namespace {

void FormatDateTime(const void* dateTime, const void* format, void* result) {
  *static_cast<QString*>(result) =
      static_cast<const QDateTime*>(dateTime)->toString(*static_cast<const QString*>(format));
}

void FormatTimeValue(long time, const void* format, bool flag, void* result) {
  *static_cast<QString*>(result) =
      QStringLiteral("%1|%2|%3").arg(time).arg(*static_cast<const QString*>(format)).arg(flag);
}

// Answers 3207 with both formatters and the given result.
void Answer(int result) {
  ScriptedHost::instance().answers[HostMessage::GetDateTimeFormatters] = [result](HostArg a,
                                                                                  HostArg) {
    auto* record = reinterpret_cast<DATETIME_FORMATTER_RECORD*>(a);
    EXPECT_EQ(record->qDateTimeFormatter, 0u);
    record->qDateTimeFormatter = reinterpret_cast<HostWord>(&FormatDateTime);
    record->timeValueFormatter = reinterpret_cast<HostWord>(&FormatTimeValue);
    return result;
  };
}

TEST(DateTimeTest, UsesTheHostsFormattersOnlyAfterAZeroAnswer) {
  ResetTestModule();
  ScriptedHost::instance().Attach(TestModule());
  Answer(0);
  Quendal::DateTime dateTime(TestModule(), nullptr);
  EXPECT_EQ(dateTime.toString(QDateTime(QDate(2024, 2, 29), QTime(13, 5)),
                              QStringLiteral("dd.MM.yy hh:mm")),
            QStringLiteral("29.02.24 13:05"));
  EXPECT_EQ(dateTime.toString(86400L, QStringLiteral("f"), true), QStringLiteral("86400|f|1"));

  Answer(1);
  Quendal::DateTime refused(TestModule(), nullptr);
  EXPECT_FALSE(refused.hasFormatters());
  EXPECT_TRUE(refused.toString(0L, QStringLiteral("x"), false).isNull());
}

}  // namespace
