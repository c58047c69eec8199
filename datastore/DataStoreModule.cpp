#include "DataStoreModule.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cstring>

#include "Convertor.h"
#include "HostFolders.h"
#include "IniFile.h"
#include "ProviderPath.h"
#include "TranslateManager.h"

namespace {

constexpr char kModuleName[] = "VdMd.DataStore module";
constexpr unsigned kNumber1 = 1;
constexpr unsigned kNumber2 = 0;
constexpr unsigned kNumber3 = 32;
constexpr char kClassName[] = "CDataStoreModule";
constexpr char kTranslationContext[] = "CTransDataStore";
constexpr char kDescription[] = "Datastore module";
// "Хранение данных" in the Windows-1251 code page, the description once started.
constexpr unsigned char kStartedDescription[] = {0xD5, 0xF0, 0xE0, 0xED, 0xE5, 0xED, 0xE8, 0xE5,
                                                 0x20, 0xE4, 0xE0, 0xED, 0xED, 0xFB, 0xF6, 0x00};
constexpr char kLogParent[] = "DS";
constexpr char kLogFile[] = "./temp/dataStore.log";
constexpr char kConfigFile[] = "/pelto.cfg";
constexpr char kConfigSection[] = "DATASTORE";
constexpr char kPathDataKey[] = "PathData";
constexpr char kEnableWriteKey[] = "EnableWrite";
constexpr char kDurabilityKey[] = "Durability";
constexpr char kSyncIntervalKey[] = "SyncInterval";
constexpr char kOpenFilesKey[] = "OpenFiles";
constexpr char kHostDataFolderMark = '~';
constexpr int kConfigValueSize = 1024;

// Default texts of the data store's translation keys, in the order they are sent.
constexpr const char* kTranslations[][2] = {
    {"C0110", "Look in"},
    {"C0111", "Invert selected"},
    {"M0150", "Data Import"},
    {"Tr0019Reject", "Reject"},
    {"C0028Name", "Name"},
    {"M0176", "Period"},
    {"Tra0010", "First Date"},
    {"Tra0011", "Last Date"},
    {"C0075Type", "Type"},
    {"M0177", "Select all"},
    {"C0042SelectOff", "Deselect"},
    {"C0049Ok", "OK"},
    {"M0053", "Undo"},
    {"M0054", "Redo"},
    {"C0109", "Cut"},
    {"C0107", "Copy"},
    {"C0108", "Paste"},
    {"M0264", "Clear"},
    {"M0177", "Select all"},
};

}  // namespace

// The globals and the module object live in this one translation unit, so they
// are constructed in this order at load and destroyed in the reverse at unload.
CDataStoreModule* pDSModule = nullptr;
void* pGlobalCore = nullptr;
QString qDataPath;
messLog dsLog(kLogParent, kLogFile, MESS_INFO);
QApplication* pa = nullptr;

void DsLog(QString const& text, CriticalLevel level) {
  QMutexLocker lock(&dsLog.mutex());
  dsLog.addMessage(text, level);
}

// While the store runs, its file log holds its descriptor: a process that
// runs out of them still learns why from the log.
void KeepFileLogOpen(bool keep) {
  QMutexLocker lock(&dsLog.mutex());
  dsLog.keepOpen(keep);
}

CDataStoreModule theDataStoreModule(kModuleName, kNumber1, kNumber2, kNumber3);

CDataStoreModule::CDataStoreModule(char const* name, unsigned number1, unsigned number2,
                                   unsigned number3)
    : CModule(name, number1, number2, number3, kClassName,
              QString::fromLatin1(kTranslationContext)),
      registry_(this, OpenFileCache::kDefaultCapacity),
      fileSystem_(&FileSystem::Default()) {
  MODULE_INFO& info = mutableInfo();
  std::strncpy(info.description, kDescription, sizeof(info.description));
  info.number1 = number1;
  info.number2 = number2;
  info.number3 = number3;
  info.kind = kModuleKind;
  info.extra = kModuleExtra;
  pDSModule = this;
}

// The library is never unmapped (linked -z nodelete), so this runs at the
// process's exit: a host that never sent 3005 gets its stop here.
CDataStoreModule::~CDataStoreModule() {
  StopRequestThread();
  CloseStore();
  stringList_.clear();
  delete convertor_;
  convertor_ = nullptr;
  if (pDSModule == this) pDSModule = nullptr;
}

void CDataStoreModule::AddProvider(QString& path, QString const& provider) const {
  ::AddProvider(path, provider);
}

int CDataStoreModule::ChangeGlobalParameters(coreChangeGlobalParameters* parameters) {
  return parameters == nullptr ? 1 : 0;
}

bool CDataStoreModule::MakePath(QString const& path) {
  for (qsizetype slash = path.indexOf(QLatin1Char('/'), 1); slash >= 0 && slash < path.size() - 1;
       slash = path.indexOf(QLatin1Char('/'), slash + 1)) {
    const QString prefix = path.left(slash + 1);
    if (!QFileInfo::exists(prefix) && !QDir().mkdir(prefix)) return false;
  }
  return QFileInfo::exists(path) || QDir().mkdir(path);
}

void CDataStoreModule::CheckMakeDir(QString const& path) {
  if (!writeEnabled_ || QFileInfo::exists(path)) return;
  MakePath(path);
}

void CDataStoreModule::createFolderData(QString const& path, QString const& sub) {
  if (QFileInfo::exists(path)) {
    QDir(path).mkdir(sub);
  } else {
    QDir().mkdir(path);
  }
}

// The configuration's lines end in CR LF; a file written with bare LF line
// ends reads as one line and none of its keys is found, so the log says so.
namespace {
void WarnOfBareLineFeeds(QString const& configPath) {
  QFile file(configPath);
  if (!file.open(QIODevice::ReadOnly)) return;
  const QByteArray text = file.readAll();
  if (text.count('\n') > text.count("\r\n")) {
    DsLog(QStringLiteral("%1: lines end in LF, not CR LF: its keys are not read").arg(configPath),
          MESS_CRITICAL);
  }
}
}  // namespace

void CDataStoreModule::ReadConfiguration(QString const& configPath) {
  inifiles config(configPath.toLocal8Bit().constData());
  char pathData[kConfigValueSize] = {};
  config.ReadString(kConfigSection, kPathDataKey, "~", pathData, sizeof(pathData));
  writeEnabled_ = config.ReadBool(kConfigSection, kEnableWriteKey, true);
  const DurabilitySettings defaults;
  const long level = config.ReadInteger(kConfigSection, kDurabilityKey, defaults.level);
  const long interval =
      config.ReadInteger(kConfigSection, kSyncIntervalKey, defaults.syncIntervalMs);
  const long openFiles =
      config.ReadInteger(kConfigSection, kOpenFilesKey, OpenFileCache::kDefaultCapacity);
  durability_.level =
      level >= DurabilitySettings::kNoSync && level <= DurabilitySettings::kEveryInsert
          ? static_cast<int>(level)
          : defaults.level;
  durability_.syncIntervalMs = interval > 0 && interval <= kMaxSyncIntervalMs
                                   ? static_cast<int>(interval)
                                   : defaults.syncIntervalMs;
  if (level != durability_.level || interval != durability_.syncIntervalMs) {
    DsLog(QStringLiteral("%1: Durability is 0, 1 or 2 and SyncInterval 1 to %2 ms; using %3 and %4")
              .arg(configPath)
              .arg(kMaxSyncIntervalMs)
              .arg(durability_.level)
              .arg(durability_.syncIntervalMs),
          MESS_CRITICAL);
  }
  const bool openFilesValid = openFiles >= 1 && openFiles <= kMaxOpenFiles;
  registry_.openFiles().setCapacity(openFilesValid ? std::size_t(openFiles)
                                                   : OpenFileCache::kDefaultCapacity);
  if (!openFilesValid) {
    DsLog(QStringLiteral("%1: OpenFiles is 1 to %2; using %3")
              .arg(configPath)
              .arg(kMaxOpenFiles)
              .arg(OpenFileCache::kDefaultCapacity),
          MESS_CRITICAL);
  }
  // An empty value would put the provider folder at the file system's root.
  if (pathData[0] == kHostDataFolderMark || pathData[0] == '\0') {
    if (writeEnabled_) createFolderData(qDataPath, QStringLiteral("."));
  } else {
    qDataPath = QString::fromLocal8Bit(pathData);
  }
}

// The instance that takes the data folder's lock is its one writer: it
// recovers the folder's log and keeps it until 3005. Any other reads only.
void CDataStoreModule::OpenWriteLog() {
  fileSystem_ = &FileSystem::Default();
  readOnlyReason_.clear();
  if (!writeEnabled_) return;
  MakePath(qDataPath);
  const std::string folder = qDataPath.toLocal8Bit().toStdString();
  Status status = FolderLock::Acquire(folder, &folderLock_);
  RecoveryReport report;
  if (status.ok())
    status = WriteAheadLog::Open(*fileSystem_, folder, durability_, &writeLog_, &report);
  if (!status.ok()) {
    readOnlyReason_ = QString::fromLocal8Bit(status.ToString().c_str());
    ReportFailure("The data folder is read-only for this instance: " + status.ToString());
    // A recovery cut short leaves files half replayed: they are read as the
    // log will make them, until a writer's recovery finishes.
    if (folderLock_) {
      logView_ = std::make_unique<LoggedFileSystem>(*fileSystem_);
      fileSystem_ = logView_.get();
    }
    folderLock_.reset();
    writeEnabled_ = false;
    return;
  }
  if (report.framesReplayed > 0 || report.filesCut > 0) {
    DsLog(
        QStringLiteral(
            "Recovered %1 change(s) of %2 file(s) from the log; %3 file(s) cut back to their last "
            "whole append, %4 change(s) after it dropped")
            .arg(report.framesReplayed)
            .arg(report.filesTouched.size())
            .arg(report.filesCut)
            .arg(report.framesVoided),
        MESS_CRITICAL);
  }
}

// Everything the log holds goes into the data files before the symbols, the
// log and the lock are let go. REQUIRES: the data mutex is held.
void CDataStoreModule::CloseWriteLog() {
  if (writeLog_) LogStatus(writeLog_->Checkpoint());
  registry_.Clear();
  foldersMade_.clear();
  lastFolderInside_.clear();
  writeLog_.reset();
  logView_.reset();
  fileSystem_ = &FileSystem::Default();
  folderLock_.reset();
}

// Reads the configuration, settles the data folder, registers the symbols
// stored under the provider folder and starts the worker.
void CDataStoreModule::CreateFolders() {
  qDataPath = GetPathByFolderType(this, VD_FOLDER_DATA);
  const QString configPath =
      GetPathByFolderType(this, VD_FOLDER_CONFIG) + QLatin1String(kConfigFile);
  pa = qobject_cast<QApplication*>(QCoreApplication::instance());
  KeepFileLogOpen(true);
  ReadConfiguration(configPath);
  WarnOfBareLineFeeds(configPath);
  OpenWriteLog();
  std::memcpy(mutableInfo().description, kStartedDescription, sizeof(kStartedDescription));
  QString providerFolder = qDataPath;
  AddProvider(providerFolder, ProviderFolderName(RequestProvider()));
  CheckMakeDir(providerFolder);
  CreateStoredSymbols(providerFolder);
  requests_ = RequestQueue::Create(this, callback());
  running_ = true;
}

// The current data provider, from the host's source record.
QString CDataStoreModule::RequestProvider() {
  SOURCE_RECORD source{};
  CallHost(HostMessage::GetDataSource, static_cast<HostArg>(hostId_),
           reinterpret_cast<HostArg>(&source));
  return QString::fromLocal8Bit(source.provider,
                                qsizetype(strnlen(source.provider, sizeof(source.provider))));
}

void CDataStoreModule::addDateToTranslate() const {
  for (auto const& [key, text] : kTranslations) GetTranslateManager()->InsertTranslate(key, text);
}
