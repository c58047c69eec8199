#include "HostSession.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cstdlib>

namespace {

constexpr const char* kModuleEnvironment = "DATASTORE_MODULE";
constexpr const char* kModuleFileName = "libdatastore.so";
constexpr const char* kCurrentLanguage = "English";  // the only language the host offers

}  // namespace

std::string ModulePath(const Arguments& arguments) {
  if (Has(arguments, "--module")) return Option(arguments, "--module");
  if (const char* environment = std::getenv(kModuleEnvironment)) return environment;
  const QString installed = QDir(QCoreApplication::applicationDirPath())
                                .filePath(QStringLiteral("../" DSHOST_INSTALL_LIBDIR "/") +
                                          QString::fromLatin1(kModuleFileName));
  if (QFileInfo::exists(installed)) return Utf8(QDir::cleanPath(installed));
  return DSHOST_BUILD_MODULE;
}

QString DataFolder(const Arguments& arguments, const QString& defaultData) {
  return Has(arguments, "--data") ? QString::fromLocal8Bit(Option(arguments, "--data"))
                                  : defaultData;
}

std::u16string AbsoluteFolder(const QString& folder) {
  return QDir::cleanPath(QDir(folder).absolutePath()).toStdU16String();
}

bool LoadModule(const Arguments& arguments, const QString& defaultData, ModuleHost* host) {
  const QString data = DataFolder(arguments, defaultData);
  const QString config =
      Has(arguments, "--config") ? QString::fromLocal8Bit(Option(arguments, "--config")) : data;
  if (data.isEmpty() || config.isEmpty()) return StepFailed("a folder option is empty");
  if (!host->load(ModulePath(arguments))) return StepFailed(host->error());
  host->setFolder(VD_FOLDER_CONFIG, AbsoluteFolder(config));
  host->setFolder(VD_FOLDER_DATA, AbsoluteFolder(data));
  host->setFolder(VD_FOLDER_IMPORT, AbsoluteFolder(data));
  host->setWorkFolder(AbsoluteFolder(data));
  host->setDataSource(Option(arguments, "--provider", kDefaultProvider));
  host->setLanguages({{kCurrentLanguage, true}});
  return true;
}

bool StartModule(const Arguments& arguments, ModuleHost* host) {
  if (!LoadModule(arguments, QDir::currentPath(), host)) return false;
  host->initialize();
  host->send(HostMessage::InitModule);
  host->send(HostMessage::Start);
  return true;
}

int InsertCompletion::onMessage(unsigned int message, HostArg record) {
  if (message != kInsertDoneMessage) return 0;
  std::lock_guard<std::mutex> lock(mu_);
  number_ = reinterpret_cast<const INSERT_SYMBOL_DATA_REQUEST*>(record)->number;
  arrived_ = true;
  done_.notify_all();
  return 0;
}

bool InsertCompletion::wait(std::int32_t* number) {
  std::unique_lock<std::mutex> lock(mu_);
  if (!done_.wait_for(lock, kInsertWait, [this] { return arrived_; })) return false;
  arrived_ = false;
  *number = number_;
  return true;
}

void HandleCompletions(ModuleHost& host, InsertCompletion& completion) {
  host.setHandler([&completion](unsigned int message, HostArg a, HostArg) {
    return completion.onMessage(message, a);
  });
}

std::string NoCompletion() {
  return "no completion of the insert within " + std::to_string(kInsertWait.count()) +
         " s (the module drops inserts while writing is disabled)";
}
