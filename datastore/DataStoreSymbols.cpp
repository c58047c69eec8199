// Opening symbols: the registry's rules, files made where a request names
// them, and the stored symbols of the provider folder.
#include <QDir>
#include <QFileInfo>
#include <cstring>
#include <vector>

#include "DataStoreModule.h"
#include "ProviderPath.h"
#include "Period.h"

namespace {

constexpr int kHeaderNotWritten =
    2;  // CSymbol::Create: the file exists and does not load, or a write failed

// Texts of a request, never read past their fields.
QString RequestName(SYMBOL_NAME_PERIOD const& request) {
  return QString::fromStdU16String(hostfield::WideText(&request.name));
}
QString RequestProviderName(SYMBOL_NAME_PERIOD const& request) {
  return QString::fromLocal8Bit(request.provider,
                                qsizetype(strnlen(request.provider, sizeof(request.provider))));
}
std::string RequestCode(SYMBOL_NAME_PERIOD const& request) {
  return hostfield::Text(request.code, sizeof(request.code));
}
QString RequestPath(SYMBOL_NAME_PERIOD_PATH const& request) {
  return QString::fromStdU16String(hostfield::WideText(&request.path));
}

void AddDefaultViews(CSymbol& symbol) {
  for (std::string const& name : period::DefaultViews(symbol.period())) {
    char view[kViewNameSize] = {};
    std::strncpy(view, name.c_str(), sizeof(view) - 1);
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
  ChangeLock lock(*this);
  Status status;
  CSymbol* symbol = registry_.Find(key, *request, &status);
  LogStatus(status);
  return symbol;
}

void CDataStoreModule::AppendSymbol(QString const& key, CSymbol* symbol) {
  registry_.Add(key, std::unique_ptr<CSymbol>(symbol));
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

// A folder named by a request must lie inside the data folder. The last
// folder found inside is remembered: requests name the same few.
bool CDataStoreModule::IsInsideDataFolder(QString const& folder) {
  if (folder.isEmpty()) return false;
  if (folder == lastFolderInside_) return true;
  const QString root = QDir::cleanPath(QDir(qDataPath).absolutePath());
  // Files are made where the folder names them, so it is resolved as they are.
  const QString cleaned = QDir::cleanPath(QDir(folder).absolutePath());
  const QString rootPrefix =
      root.endsWith(QLatin1Char('/')) ? root : root + QLatin1Char('/');  // "/" itself
  const bool inside = cleaned == root || cleaned.startsWith(rootPrefix);
  if (inside) lastFolderInside_ = folder;
  return inside;
}

CSymbol* CDataStoreModule::CreateSymbol(QString const& key, SYMBOL_NAME_PERIOD const& request) {
  const std::u16string name = RequestName(request).toStdU16String();
  const std::u16string provider = RequestProviderName(request).toStdU16String();
  std::string code = RequestCode(request);
  auto symbol = std::make_unique<CSymbol>(
      this, reinterpret_cast<const unsigned short*>(name.c_str()), request.period,
      reinterpret_cast<const unsigned short*>(name.c_str()), code.data(),
      reinterpret_cast<const unsigned short*>(provider.c_str()));
  AddDefaultViews(*symbol);
  QString folder = key;
  AddProvider(folder, ProviderFolderName(QString::fromStdU16String(provider)));
  if (!foldersMade_.contains(folder) && MakePath(folder)) foldersMade_.insert(folder);
  Status status;
  int created = 0;
  {
    ChangeLock lock(*this);
    created = symbol->Create(key, &status);
  }
  if (created != 0) {
    foldersMade_.remove(folder);
    ReportFailure(QStringLiteral("Cannot create the file of a symbol in %1: %2")
                      .arg(key, QString::fromLocal8Bit(status.ToString().c_str()))
                      .toLocal8Bit()
                      .toStdString());
  }
  // A file that exists but does not load stays as it is, unregistered; a
  // writer that cannot make the file has no symbol. A reader waits for the
  // writer to make it.
  if (created == kHeaderNotWritten || (created != 0 && !symbol->writeDisabled())) return nullptr;
  CSymbol* added = symbol.release();
  AppendSymbol(key, added);
  return added;
}

// 1 for a folder outside the data folder, a stored file that does not load,
// or a new file that cannot be made (the log says which and why). A symbol
// opens its file when a request uses it.
int CDataStoreModule::OpenSymbol(SYMBOL_NAME_PERIOD_PATH* request, void** handle, bool) {
  LogMessage("OpenSymbol");
  const QString key = RequestPath(*request);
  if (!running_ || !IsInsideDataFolder(key)) return 1;
  UpdateSourceNames(RequestProviderName(request->symbol));
  CSymbol* symbol = GetSymbol(key, &request->symbol);
  if (symbol == nullptr) symbol = CreateSymbol(key, request->symbol);
  if (symbol == nullptr) return 1;
  *handle = symbol;
  return 0;
}

int CDataStoreModule::OpenSymbol(SYMBOL_NAME_PERIOD* request, void** handle) {
  SYMBOL_NAME_PERIOD_PATH withPath{};
  std::memcpy(&withPath.symbol, request, sizeof(SYMBOL_NAME_PERIOD));
  QString path = qDataPath;
  AddProvider(path, ProviderFolderName(RequestProvider()));
  hostfield::SetWideText(&withPath.path, path.toStdU16String());
  return OpenSymbol(&withPath, handle, false);
}

// Compat: closing does nothing; a symbol stays open, and its handle valid,
// until 3005, since hosts go on using handles they closed.
int CDataStoreModule::CloseSymbol(void*) {
  LogMessage("CloseSymbol");
  return 0;
}

// Only each file's header is read; its symbol loads when a request names it.
void CDataStoreModule::CreateStoredSymbols(QString const& folder) {
  ChangeLock lock(*this);
  symbolCount_ += registry_.AddStoredFiles(folder, [this](QString const& path, Status const& why) {
    ReportFailure(QStringLiteral("Stored file not registered: %1 (%2)")
                      .arg(path, QString::fromLocal8Bit(why.reason().c_str()))
                      .toLocal8Bit()
                      .toStdString());
  });
}
