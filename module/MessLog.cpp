// MessLog.cpp: the file log.

#include "MessLog.h"

#include <QFile>
#include <QTextStream>
#include <cstdio>

namespace {

constexpr char kUnnamedFile[] = "noname.log";  // file name before one is derived
constexpr char kNoParent[] = "NoParent";       // parent name of the default log
constexpr char kLogFolder[] = "./Temp/";       // folder of derived file names
constexpr char kLogSuffix[] = ".log";          // extension of derived file names
constexpr int kStampBytes = 32;                // room for "DD.MM hh.mm.ss" and more

}  // namespace

messLog::messLog() : messLog(kNoParent) {}

messLog::messLog(char const* parent)
    : fileName_(QString::fromLatin1(kUnnamedFile)), parentName_(QString::fromLatin1(parent)) {
  fileName_ = createNameForParent();
}

messLog::messLog(char const* parent, char const* fileName, CriticalLevel level)
    : fileName_(QString::fromLatin1(fileName)),
      parentName_(QString::fromLatin1(parent)),
      level_(level) {}

void messLog::setNameFile(QString const& fileName) {
  fileName_ = fileName;
  openFile_.reset();
}

void messLog::setParentName(QString const& name, bool makeFileName) {
  parentName_ = name;
  if (makeFileName) setNameFile(createNameForParent());
}

QString messLog::createNameForParent() const {
  return QLatin1String(kLogFolder) + parentName_ + QLatin1String(kLogSuffix);
}

void messLog::addMessage(QString const& text, CriticalLevel level) {
  if (level > level_) return;
  std::time_t const now = std::time(nullptr);
  if (now < 0) return;
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) return;
  printData(FormatLine(local, text));
}

QString messLog::FormatLine(std::tm const& local, QString const& text) {
  char stamp[kStampBytes];
  std::snprintf(stamp, sizeof stamp, "%02d.%02d %02d.%02d.%02d", local.tm_mday, local.tm_mon + 1,
                local.tm_hour, local.tm_min, local.tm_sec);
  return QString::fromLatin1(stamp) + QLatin1Char(' ') + text;
}

void messLog::printData(QString const& line) {
  if (fileName_.isEmpty()) return;
  std::unique_ptr<QFile> file = std::move(openFile_);
  if (!file) {
    file = std::make_unique<QFile>(fileName_);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) return;
  }
  {
    QTextStream stream(file.get());
    stream << line << "\n";
  }
  file->flush();
  if (keepOpen_) openFile_ = std::move(file);
}

void messLog::keepOpen(bool keep) {
  keepOpen_ = keep;
  if (!keep) openFile_.reset();
}
