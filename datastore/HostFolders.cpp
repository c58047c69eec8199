#include "HostFolders.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <vector>

#include "DataStoreModule.h"

namespace {

QString FromUtf16Field(const char16_t* units, int capacity) {
  int length = 0;
  while (length < capacity && units[length] != 0) ++length;
  return QString::fromUtf16(units, length);
}

QString AskWorkFolder(HostCallback callback, void* context, int* result) {
  std::vector<char16_t> buffer(kWorkFolderUnits, 0);
  *result =
      callback(context, HostMessage::GetWorkFolder, reinterpret_cast<HostArg>(buffer.data()), 0);
  return FromUtf16Field(buffer.data(), kWorkFolderUnits);
}

}  // namespace

QString ApplicationFolder() {
  if (QCoreApplication::instance() != nullptr) return QCoreApplication::applicationDirPath();
  return QFileInfo(QStringLiteral("/proc/self/exe"))
      .canonicalFilePath()
      .section(QLatin1Char('/'), 0, -2);
}

QString GetPathByFolderType(HostCallback callback, void* context, VD_FOLDERS type) {
  FOLDER_REQUEST_RECORD record{};
  record.folderType = type;
  const int result = callback == nullptr ? 1
                                         : callback(context, HostMessage::GetFolder,
                                                    reinterpret_cast<HostArg>(&record), 0);
  if (result != 0) return ApplicationFolder();
  return FromUtf16Field(record.path, kFolderPathUnits);
}

template <>
QString GetWorkFolderFromMain<CDataStoreModule>(CDataStoreModule* module, void* context) {
  if (module == nullptr || module->callback() == nullptr) return QString();
  int result = 1;
  const QString folder = AskWorkFolder(module->callback(), context, &result);
  return result == 0 ? folder : QString();
}

QString GetUserDir(HostCallback callback, void* context) {
  int result = 0;
  return AskWorkFolder(callback, context, &result);
}
