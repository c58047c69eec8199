// The registry of symbols: every symbol opened or found on disk, keyed by
// the folder that holds its file, for the module's whole life.
#include <QDir>
#include <QFileInfo>
#include <cstring>
#include <vector>

#include "DataStoreModule.h"
#include "ProviderPath.h"

namespace {

constexpr char16_t kIntraday = u'I';
constexpr int kHeaderNotWritten = 2;  // CSymbol::Create: the file exists and does not load, or a write failed
constexpr int kProviderBytes = sizeof(SYMBOL_NAME_PERIOD::provider);
constexpr int kCodeBytes = sizeof(SYMBOL_NAME_PERIOD::code);

// Texts of a request, never read past their fields.
QString RequestName(SYMBOL_NAME_PERIOD const& request) {
  int length = 0;
  while (length < kHostWideNameUnits && request.name[length] != 0) ++length;
  return QString::fromUtf16(request.name, length);
}
QString RequestProviderName(SYMBOL_NAME_PERIOD const& request) {
  return QString::fromLocal8Bit(request.provider, qsizetype(strnlen(request.provider, kProviderBytes)));
}
std::string RequestCode(SYMBOL_NAME_PERIOD const& request) {
  return std::string(request.code, strnlen(request.code, kCodeBytes));
}
QString RequestPath(SYMBOL_NAME_PERIOD_PATH const& request) {
  int length = 0;
  while (length < kHostWideNameUnits && request.path[length] != 0) ++length;
  return QString::fromUtf16(request.path, length);
}

bool Matches(CSymbol const& symbol, SYMBOL_NAME_PERIOD const& request) {
  return QString::fromUtf16(symbol.name()) == RequestName(request) &&
         RequestCode(request) == symbol.code() &&
         QString::fromUtf16(symbol.providerName()) == RequestProviderName(request) &&
         symbol.period().kind == request.period.kind &&
         (request.period.kind != kIntraday || symbol.period().length == request.period.length);
}

void AddDefaultViews(CSymbol& symbol) {
  static const std::vector<const char*> kTickViews = {"Value", "Volume"};
  static const std::vector<const char*> kCandleViews = {"Open", "High", "Low", "Close", "Volume"};
  const SYMBOL_PERIOD period = symbol.period();
  const bool ticks = period.kind == kIntraday && period.length == 0;
  for (const char* name : ticks ? kTickViews : kCandleViews) {
    char view[kViewNameSize] = {};
    std::strncpy(view, name, sizeof(view) - 1);
    symbol.InsertDataPointView(DATA_POINT_FLOAT, view);
  }
}

}  // namespace

void CDataStoreModule::UpdateSourceNames(QString const& provider) {
  if (sourceNames_.contains(provider)) return;
  sourceNames_.append(provider);
  const QString folder = ProviderFolderName(provider);
  // The joined path: a name such as ":x" must not be taken for a resource.
  if (writeEnabled_ && !folder.isEmpty()) QDir().mkdir(qDataPath + QLatin1Char('/') + folder);
}

CSymbol* CDataStoreModule::GetSymbol(QString const& key, SYMBOL_NAME_PERIOD* request) {
  if (request == nullptr) return nullptr;
  const auto found = symbolMap_.constFind(key);
  if (found == symbolMap_.cend()) return nullptr;
  for (CSymbol* symbol : found.value()) {
    if (symbol != nullptr && Matches(*symbol, *request)) return symbol;
  }
  return nullptr;
}

void CDataStoreModule::AppendSymbol(QString const& key, CSymbol* symbol) {
  symbolMap_[key].append(symbol);
  symbolHandles_.insert(symbol);
  ++symbolCount_;
}

bool CDataStoreModule::AcceptsPoints(void* handle, unsigned int pointSize) {
  if (!isExistSymbol(handle)) return false;
  const auto* symbol = static_cast<CSymbol*>(handle);
  const unsigned int stored = symbol->GetDataPointSize();
  if (stored == pointSize) return true;
  DsLog(QStringLiteral("Import: %1 holds records of %2 bytes, not %3: not imported")
            .arg(QString::fromStdString(symbol->file()->path()))
            .arg(stored)
            .arg(pointSize),
        MESS_CRITICAL);
  return false;
}

bool CDataStoreModule::isExistSymbol(void* handle) const {
  return handle != nullptr && symbolHandles_.count(handle) != 0;
}

// A folder named by a request must lie inside the data folder.
bool CDataStoreModule::IsInsideDataFolder(QString const& folder) const {
  const QString root = QDir::cleanPath(QDir(qDataPath).absolutePath());
  // Files are made where the folder names them, so it is resolved as they are.
  if (folder.isEmpty()) return false;
  const QString cleaned = QDir::cleanPath(QDir(folder).absolutePath());
  const QString rootPrefix = root.endsWith(QLatin1Char('/')) ? root : root + QLatin1Char('/');  // "/" itself
  return cleaned == root || cleaned.startsWith(rootPrefix);
}

CSymbol* CDataStoreModule::CreateSymbol(QString const& key, SYMBOL_NAME_PERIOD const& request) {
  const std::u16string name = RequestName(request).toStdU16String();
  const std::u16string provider = RequestProviderName(request).toStdU16String();
  std::string code = RequestCode(request);
  auto* symbol = new CSymbol(this, reinterpret_cast<const unsigned short*>(name.c_str()), request.period,
                             reinterpret_cast<const unsigned short*>(name.c_str()), code.data(),
                             reinterpret_cast<const unsigned short*>(provider.c_str()));
  AddDefaultViews(*symbol);
  QString folder = key;
  AddProvider(folder, ProviderFolderName(QString::fromStdU16String(provider)));
  MakePath(folder);
  int created = 0;
  Status status;
  {
    std::lock_guard<std::mutex> lock(dataMutex());
    created = symbol->Create(key, &status);
  }
  if (created != 0) {
    DsLog(QStringLiteral("Cannot create the file of a symbol in %1: %2")
              .arg(key, QString::fromLocal8Bit(status.ToString().c_str())),
          MESS_ERROR);
  }
  // A file that exists but does not load stays as it is, unregistered.
  if (created == kHeaderNotWritten) {
    delete symbol;
    return nullptr;
  }
  AppendSymbol(key, symbol);
  return symbol;
}

int CDataStoreModule::OpenSymbol(SYMBOL_NAME_PERIOD_PATH* request, void** handle, bool) {
  LogMessage("OpenSymbol");
  const QString key = RequestPath(*request);
  if (!IsInsideDataFolder(key)) return 1;
  UpdateSourceNames(RequestProviderName(request->symbol));
  CSymbol* symbol = GetSymbol(key, &request->symbol);
  if (symbol == nullptr) symbol = CreateSymbol(key, request->symbol);
  if (symbol == nullptr) return 1;
  {
    std::lock_guard<std::mutex> lock(dataMutex());
    Status status = symbol->Open();
    LogStatus(status);
  }
  *handle = symbol;
  return 0;
}

int CDataStoreModule::OpenSymbol(SYMBOL_NAME_PERIOD* request, void** handle) {
  SYMBOL_NAME_PERIOD_PATH withPath{};
  std::memcpy(&withPath.symbol, request, sizeof(SYMBOL_NAME_PERIOD));
  QString path = qDataPath;
  AddProvider(path, ProviderFolderName(RequestProvider()));
  const qsizetype units = std::min<qsizetype>(path.size(), kHostWideNameUnits - 1);
  std::memcpy(withPath.path, path.utf16(), std::size_t(units) * sizeof(char16_t));
  return OpenSymbol(&withPath, handle, false);
}

int CDataStoreModule::CloseSymbol(void*) {
  LogMessage("CloseSymbol");
  return 0;
}

void CDataStoreModule::CreateStoredSymbols(QString const& folder) {
  const QFileInfoList entries = QDir(folder).entryInfoList(
      QDir::Dirs | QDir::Files | QDir::NoSymLinks | QDir::NoDotAndDotDot, QDir::Name | QDir::IgnoreCase);
  for (QFileInfo const& entry : entries) {
    if (entry.isDir() || entry.suffix() != QLatin1String("cjd")) continue;
    auto* symbol = new CSymbol(this, entry.filePath().toLocal8Bit().constData());
    Status status;
    if (symbol->LoadProperties(&status) == 0) {
      AppendSymbol(folder, symbol);
    } else {
      DsLog(QStringLiteral("Stored file not registered: %1 (%2)")
                .arg(entry.filePath(), QString::fromLocal8Bit(status.reason().c_str())),
            MESS_ERROR);
      delete symbol;
    }
  }
}
