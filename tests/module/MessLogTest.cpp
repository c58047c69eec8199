// The file log: file names, level filtering and the line format.

#include "MessLog.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <ctime>
#include <fstream>
#include <tuple>

namespace {

// Lines of a text file; empty when it does not exist.
QStringList ReadLines(QString const& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return {};
  QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
  if (!lines.isEmpty() && lines.last().isEmpty()) lines.removeLast();
  return lines;
}

std::tm Local(int day, int month, int hour, int minute, int second) {
  std::tm local{};
  std::tie(local.tm_mday, local.tm_mon, local.tm_hour, local.tm_min, local.tm_sec) =
      std::make_tuple(day, month - 1, hour, minute, second);
  return local;
}

}  // namespace

TEST(MessLogNames, FileNameIsDerivedFromTheParentUnlessGiven) {
  messLog unnamed;
  EXPECT_EQ(unnamed.fileName(), "./Temp/NoParent.log");
  EXPECT_EQ(unnamed.level(), MESS_INFO);
  EXPECT_EQ(messLog("CDataStoreModule").fileName(), "./Temp/CDataStoreModule.log");

  messLog log("DS", "./temp/dataStore.log", MESS_INFO);
  EXPECT_EQ(log.fileName(), "./temp/dataStore.log");
  log.setParentName("Other", false);
  EXPECT_EQ(log.fileName(), "./temp/dataStore.log");
  log.setParentName("Other", true);
  EXPECT_EQ(log.fileName(), "./Temp/Other.log");
}

TEST(MessLogFormat, ZeroPaddedDayMonthAndTime) {
  EXPECT_EQ(messLog::FormatLine(Local(5, 3, 14, 7, 9), "opened"), "05.03 14.07.09 opened");
  EXPECT_EQ(messLog::FormatLine(Local(31, 12, 23, 59, 59), ""), "31.12 23.59.59 ");
}

TEST(MessLogFile, WritesLocalTimeLinesUpToTheThreshold) {
  QTemporaryDir dir;
  const QString path = dir.filePath("t.log");
  messLog log("T", qPrintable(path), MESS_INFO);
  log.addMessage("too detailed", MESS_DEBUG);
  EXPECT_FALSE(QFile::exists(path));
  const std::time_t before = std::time(nullptr);
  log.addMessage("at threshold", MESS_INFO);
  const std::time_t after = std::time(nullptr);
  log.addMessage("critical", MESS_CRITICAL);
  log.addMessage("negative", static_cast<CriticalLevel>(-1));  // signed: below every level
  QStringList stamps;
  for (std::time_t t : {before, after}) {
    std::tm local{};
    localtime_r(&t, &local);
    stamps << messLog::FormatLine(local, "at threshold");
  }
  const QStringList lines = ReadLines(path);
  ASSERT_EQ(lines.size(), 3);
  EXPECT_TRUE(stamps.contains(lines[0])) << lines[0].toStdString();
  EXPECT_TRUE(lines[2].endsWith(" negative"));

  messLog quiet("T", qPrintable(path),
                static_cast<CriticalLevel>(-1));  // drops even critical lines
  quiet.addMessage("dropped", MESS_CRITICAL);
  EXPECT_EQ(ReadLines(path).size(), 3);
}

TEST(MessLogFile, PrintDataAppendsAndSkipsWhatItCannotWrite) {
  QTemporaryDir dir;
  const QString path = dir.filePath("t.log");
  std::ofstream(qPrintable(path)) << "kept\n";
  messLog log("T", "", MESS_INFO);
  log.setNameFile(path);
  log.printData("one");
  log.printData("two");
  EXPECT_EQ(ReadLines(path), (QStringList{"kept", "one", "two"}));

  log.setNameFile(dir.filePath("missing/t.log"));  // the folder is not created
  log.printData("lost");
  EXPECT_FALSE(QFile::exists(dir.filePath("missing/t.log")));
  log.setNameFile(QString());
  log.printData("nowhere");
}
