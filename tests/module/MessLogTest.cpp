// The file log: file names, level filtering and the line format.

#include "MessLog.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <ctime>
#include <memory>

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
  local.tm_mday = day;
  local.tm_mon = month - 1;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  return local;
}

// A log of t.log in a temporary folder with the given threshold.
class MessLogFile : public ::testing::Test {
 protected:
  QString Path(char const* name = "t.log") const { return dir_.filePath(QString::fromLatin1(name)); }
  QStringList Lines() const { return ReadLines(Path()); }
  void Open(CriticalLevel level) {
    log_ = std::make_unique<messLog>("T", "", level);
    log_->setNameFile(Path());
  }

  QTemporaryDir dir_;
  std::unique_ptr<messLog> log_;
};

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

TEST_F(MessLogFile, WritesOnlyLevelsUpToThreshold) {
  Open(MESS_INFO);
  log_->addMessage("too detailed", MESS_DEBUG);
  EXPECT_FALSE(QFile::exists(Path()));
  log_->addMessage("at threshold", MESS_INFO);
  log_->addMessage("critical", MESS_CRITICAL);
  log_->addMessage("negative", static_cast<CriticalLevel>(-1));  // signed: below every level
  const QStringList lines = Lines();
  ASSERT_EQ(lines.size(), 3);
  EXPECT_TRUE(lines[0].endsWith(" at threshold"));
  EXPECT_TRUE(lines[2].endsWith(" negative"));

  Open(static_cast<CriticalLevel>(-1));  // a negative threshold drops even critical lines
  log_->addMessage("dropped", MESS_CRITICAL);
  EXPECT_EQ(Lines().size(), 3);
}

TEST_F(MessLogFile, LineCarriesTodaysLocalTimestamp) {
  Open(MESS_INFO);
  const std::time_t before = std::time(nullptr);
  log_->addMessage("started", MESS_INFO);
  const std::time_t after = std::time(nullptr);
  QStringList stamps;
  for (std::time_t t : {before, after}) {
    std::tm local{};
    localtime_r(&t, &local);
    stamps << messLog::FormatLine(local, "started");
  }
  const QStringList lines = Lines();
  ASSERT_EQ(lines.size(), 1);
  EXPECT_TRUE(stamps.contains(lines[0])) << lines[0].toStdString();
}

TEST_F(MessLogFile, PrintDataAppendsAndSkipsWhatItCannotWrite) {
  QFile existing(Path());
  ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
  existing.write("kept\n");
  existing.close();

  Open(MESS_INFO);
  log_->printData("one");
  log_->printData("two");
  EXPECT_EQ(Lines(), (QStringList{"kept", "one", "two"}));

  log_->setNameFile(Path("missing/t.log"));  // the folder is not created
  log_->printData("lost");
  EXPECT_FALSE(QFile::exists(Path("missing/t.log")));
  log_->setNameFile(QString());
  log_->printData("nowhere");
}

TEST(MessLogDerivedFile, WritesIntoTempFolderOfWorkingDirectory) {
  QTemporaryDir dir;
  const QString previous = QDir::currentPath();
  QDir::setCurrent(dir.path());  // restored before any assertion can return
  const bool made = QDir().mkdir("Temp");
  messLog log("CDataStoreModule");
  log.addMessage("hidden", MESS_DEBUG);
  log.addMessage("shown", MESS_INFO);
  const QStringList lines = ReadLines("Temp/CDataStoreModule.log");
  QDir::setCurrent(previous);
  ASSERT_TRUE(made);
  ASSERT_EQ(lines.size(), 1);
  EXPECT_TRUE(lines[0].endsWith(" shown"));
}
