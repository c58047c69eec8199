// The file log: file names, level filtering and the line format.

#include "MessLog.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>
#include <ctime>

namespace {

// Lines of a text file; empty when it does not exist.
QStringList ReadLines(QString const& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return {};
  QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
  if (!lines.isEmpty() && lines.last().isEmpty()) lines.removeLast();
  return lines;
}

// Runs a test inside a fresh temporary working directory and restores the old one.
class WorkingDirectory {
 public:
  WorkingDirectory() : previous_(QDir::currentPath()) { QDir::setCurrent(dir_.path()); }
  ~WorkingDirectory() { QDir::setCurrent(previous_); }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  QTemporaryDir dir_;   // removed on destruction
  QString previous_;    // restored on destruction
};

class MessLogFile : public ::testing::Test {
 protected:
  QString Path(char const* name) const { return dir_.filePath(QString::fromLatin1(name)); }

  QTemporaryDir dir_;
};

}  // namespace

TEST(MessLogNames, ConstructorsDeriveOrKeepFileName) {
  messLog unnamed;
  EXPECT_EQ(unnamed.parentName(), "NoParent");
  EXPECT_EQ(unnamed.fileName(), "./Temp/NoParent.log");
  EXPECT_EQ(unnamed.level(), MESS_INFO);

  messLog parent("CDataStoreModule");
  EXPECT_EQ(parent.fileName(), "./Temp/CDataStoreModule.log");
  EXPECT_EQ(parent.level(), 3);

  messLog explicitName("DS", "./temp/dataStore.log", MESS_CRITICAL);
  EXPECT_EQ(explicitName.parentName(), "DS");
  EXPECT_EQ(explicitName.fileName(), "./temp/dataStore.log");
  EXPECT_EQ(explicitName.level(), MESS_CRITICAL);
}

TEST(MessLogNames, ParentNameRenamesFileOnlyWhenAsked) {
  messLog log("DS", "./temp/dataStore.log", MESS_INFO);
  log.setParentName("Other", false);
  EXPECT_EQ(log.parentName(), "Other");
  EXPECT_EQ(log.fileName(), "./temp/dataStore.log");
  log.setParentName("Other", true);
  EXPECT_EQ(log.fileName(), "./Temp/Other.log");
  log.setNameFile("x.log");
  EXPECT_EQ(log.fileName(), "x.log");
  EXPECT_EQ(log.createNameForParent(), "./Temp/Other.log");
}

TEST(MessLogFormat, ZeroPaddedDayMonthAndTime) {
  std::tm march{};
  march.tm_mday = 5;
  march.tm_mon = 2;
  march.tm_hour = 14;
  march.tm_min = 7;
  march.tm_sec = 9;
  EXPECT_EQ(messLog::FormatLine(march, "opened"), "05.03 14.07.09 opened");

  std::tm lastSecond{};
  lastSecond.tm_mday = 31;
  lastSecond.tm_mon = 11;
  lastSecond.tm_hour = 23;
  lastSecond.tm_min = 59;
  lastSecond.tm_sec = 59;
  EXPECT_EQ(messLog::FormatLine(lastSecond, ""), "31.12 23.59.59 ");
}

TEST_F(MessLogFile, WritesOnlyLevelsUpToThreshold) {
  messLog log("T", "", MESS_INFO);
  log.setNameFile(Path("t.log"));
  log.addMessage("too detailed", MESS_DEBUG);
  EXPECT_FALSE(QFile::exists(Path("t.log")));
  log.addMessage("at threshold", MESS_INFO);
  log.addMessage("critical", MESS_CRITICAL);
  log.addMessage("negative", static_cast<CriticalLevel>(-1));  // signed: below every level
  QStringList const lines = ReadLines(Path("t.log"));
  ASSERT_EQ(lines.size(), 3);
  EXPECT_TRUE(lines[0].endsWith(" at threshold"));
  EXPECT_TRUE(lines[2].endsWith(" negative"));
}

TEST_F(MessLogFile, NegativeThresholdDropsEvenCritical) {
  messLog log("T", "", static_cast<CriticalLevel>(-1));
  log.setNameFile(Path("t.log"));
  log.addMessage("dropped", MESS_CRITICAL);
  EXPECT_FALSE(QFile::exists(Path("t.log")));
}

TEST_F(MessLogFile, LineCarriesTodaysLocalTimestamp) {
  messLog log("T", "", MESS_INFO);
  log.setNameFile(Path("t.log"));
  std::time_t const before = std::time(nullptr);
  log.addMessage("started", MESS_INFO);
  std::time_t const after = std::time(nullptr);
  QStringList const lines = ReadLines(Path("t.log"));
  ASSERT_EQ(lines.size(), 1);
  QRegularExpression const shape("^\\d\\d\\.\\d\\d \\d\\d\\.\\d\\d\\.\\d\\d started$");
  EXPECT_TRUE(shape.match(lines[0]).hasMatch()) << lines[0].toStdString();
  std::tm local{};
  QStringList stamps;
  for (std::time_t t : {before, after}) {
    localtime_r(&t, &local);
    stamps << messLog::FormatLine(local, "started");
  }
  EXPECT_TRUE(stamps.contains(lines[0])) << lines[0].toStdString();
}

TEST_F(MessLogFile, PrintDataAppendsAndSkipsWhatItCannotWrite) {
  QFile existing(Path("t.log"));
  ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
  existing.write("kept\n");
  existing.close();

  messLog log("T", "", MESS_INFO);
  log.setNameFile(Path("t.log"));
  log.printData("one");
  log.printData("two");
  EXPECT_EQ(ReadLines(Path("t.log")), (QStringList{"kept", "one", "two"}));

  log.setNameFile(Path("missing/t.log"));  // the folder is not created
  log.printData("lost");
  EXPECT_FALSE(QFile::exists(Path("missing/t.log")));

  log.setNameFile(QString());
  log.printData("nowhere");
}

TEST(MessLogDerivedFile, WritesIntoTempFolderOfWorkingDirectory) {
  WorkingDirectory cwd;
  ASSERT_TRUE(QDir().mkdir("Temp"));
  messLog log("CDataStoreModule");
  log.addMessage("hidden", MESS_DEBUG);
  log.addMessage("shown", MESS_INFO);
  QStringList const lines = ReadLines("Temp/CDataStoreModule.log");
  ASSERT_EQ(lines.size(), 1);
  EXPECT_TRUE(lines[0].endsWith(" shown"));
}
