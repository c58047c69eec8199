#include "SymbolRegistry.h"

#include <QHash>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "Symbol.h"
#include "Period.h"

namespace {

constexpr char kStoredSuffix[] = ".cjd";

std::int32_t ComparedLength(SYMBOL_PERIOD period) {
  return period::LengthOf(period.kind, period.length);
}

// Reads stored headers without the log: at start-up recovery has put
// everything into the files.
class HeaderReader : public SymbolOwner {
 public:
  explicit HeaderReader(FileSystem& fileSystem) : fileSystem_(fileSystem) {}
  bool IsWriteEnabled() const override { return false; }
  FileSystem& GetFileSystem() const override { return fileSystem_; }

 private:
  FileSystem& fileSystem_;  // the owner's
};

// The names of the regular "*.cjd" files of a folder (no links, folders or
// hidden names), by name ignoring case: one pass of readdir.
std::vector<QString> StoredFileNames(QString const& folder) {
  std::vector<QString> names;
  const QByteArray path = folder.toLocal8Bit();
  DIR* directory = ::opendir(path.constData());
  if (directory == nullptr) return names;
  while (const dirent* entry = ::readdir(directory)) {
    const std::string_view name(entry->d_name);
    if (name.starts_with('.') || !name.ends_with(kStoredSuffix)) continue;
    struct stat info {};
    const bool regular = entry->d_type == DT_REG || (entry->d_type == DT_UNKNOWN &&
                                                     ::fstatat(::dirfd(directory), entry->d_name,
                                                               &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                                                     S_ISREG(info.st_mode));
    if (regular) names.push_back(QString::fromLocal8Bit(entry->d_name));
  }
  ::closedir(directory);
  std::sort(names.begin(), names.end(), [](QString const& a, QString const& b) {
    const int order = a.compare(b, Qt::CaseInsensitive);
    return order != 0 ? order < 0 : a.compare(b) < 0;
  });
  return names;
}

void MixHash(std::size_t& seed, std::size_t value) {
  seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
}

}  // namespace

SymbolKey SymbolKey::Of(QString const& folder, SYMBOL_NAME_PERIOD const& request) {
  SymbolKey key;
  key.folder = folder;
  key.name = hostfield::WideText(&request.name);
  key.code = hostfield::Text(request.code, sizeof(request.code));
  key.provider = QString::fromLocal8Bit(hostfield::Text(request.provider, sizeof(request.provider)))
                     .toStdU16String();
  key.kind = request.period.kind;
  key.length = ComparedLength(request.period);
  return key;
}

SymbolKey SymbolKey::Of(QString const& folder, CSymbol const& symbol) {
  SymbolKey key;
  key.folder = folder;
  key.name = symbol.name();
  key.code = symbol.code();
  key.provider = symbol.providerName();
  key.kind = symbol.period().kind;
  key.length = ComparedLength(symbol.period());
  return key;
}

std::size_t SymbolKeyHash::operator()(SymbolKey const& key) const {
  std::size_t seed = qHash(key.folder);
  MixHash(seed, std::hash<std::u16string>()(key.name));
  MixHash(seed, std::hash<std::string>()(key.code));
  MixHash(seed, std::hash<std::u16string>()(key.provider));
  MixHash(seed, std::size_t(static_cast<unsigned char>(key.kind)) << 32 |
                    static_cast<std::uint32_t>(key.length));
  return seed;
}

SymbolRegistry::SymbolRegistry(SymbolOwner* owner, std::size_t openFiles)
    : owner_(owner), openFiles_(openFiles) {}

SymbolRegistry::~SymbolRegistry() { Clear(); }

CSymbol* SymbolRegistry::Find(QString const& folder, SYMBOL_NAME_PERIOD const& request,
                              Status* status) {
  const auto found = entries_.find(SymbolKey::Of(folder, request));
  if (found == entries_.end()) return nullptr;
  Entry& entry = found->second;
  return entry.symbol != nullptr ? entry.symbol : Load(entry, status);
}

CSymbol* SymbolRegistry::Load(Entry& entry, Status* status) {
  auto symbol = std::make_unique<CSymbol>(owner_, entry.storedPath.c_str());
  if (symbol->LoadProperties(status) != 0) return nullptr;
  entry.symbol = symbol.get();
  entry.storedPath.clear();
  entry.storedPath.shrink_to_fit();
  owned_.emplace(entry.symbol, std::move(symbol));
  return entry.symbol;
}

CSymbol* SymbolRegistry::Add(QString const& folder, std::unique_ptr<CSymbol> symbol) {
  CSymbol* added = symbol.get();
  const bool first = entries_.try_emplace(SymbolKey::Of(folder, *added), Entry{added, {}}).second;
  if (!first) ++unreachable_;
  owned_.emplace(added, std::move(symbol));
  return added;
}

int SymbolRegistry::AddStoredFiles(QString const& folder, RefusalSink const& refused) {
  HeaderReader reader(owner_->GetFileSystem());
  const QString prefix = folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/');
  int added = 0;
  for (QString const& name : StoredFileNames(folder)) {
    const QString filePath = prefix + name;
    const std::string path = filePath.toLocal8Bit().toStdString();
    CSymbol header(&reader, path.c_str());
    Status status;
    if (header.LoadProperties(&status) != 0) {
      refused(filePath, status);
      continue;
    }
    const bool first =
        entries_.try_emplace(SymbolKey::Of(folder, header), Entry{nullptr, path}).second;
    if (!first) ++unreachable_;
    ++added;
  }
  return added;
}

void SymbolRegistry::Clear() {
  for (auto& [handle, symbol] : owned_) openFiles_.Forget(symbol.get());
  owned_.clear();
  entries_.clear();
  unreachable_ = 0;
}
