#include "SymbolRegistry.h"

#include <QDir>
#include <QFileInfo>
#include <cstring>

#include "Symbol.h"

namespace {

constexpr char kIntraday = 'I';
constexpr char kStoredSuffix[] = "cjd";

template <typename Char>
std::size_t BoundedLength(const Char* text, std::size_t bound) {
  std::size_t length = 0;
  while (length < bound && text[length] != 0) ++length;
  return length;
}

std::int32_t ComparedLength(SYMBOL_PERIOD period) { return period.kind == kIntraday ? period.length : 0; }

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

void MixHash(std::size_t& seed, std::size_t value) {
  seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
}

}  // namespace

SymbolKey SymbolKey::Of(QString const& folder, SYMBOL_NAME_PERIOD const& request) {
  SymbolKey key;
  key.folder = folder;
  char16_t name[kHostWideNameUnits];  // the packed field lies at an odd offset: copied as bytes
  std::memcpy(name, reinterpret_cast<const char*>(&request) + offsetof(SYMBOL_NAME_PERIOD, name), sizeof(name));
  key.name.assign(name, BoundedLength(name, kHostWideNameUnits));
  key.code.assign(request.code, BoundedLength(request.code, sizeof(request.code)));
  key.provider =
      QString::fromLocal8Bit(request.provider, qsizetype(BoundedLength(request.provider, sizeof(request.provider))))
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
  MixHash(seed, std::size_t(static_cast<unsigned char>(key.kind)) << 32 | static_cast<std::uint32_t>(key.length));
  return seed;
}

SymbolRegistry::SymbolRegistry(SymbolOwner* owner, std::size_t openFiles) : owner_(owner), openFiles_(openFiles) {}

SymbolRegistry::~SymbolRegistry() { Clear(); }

CSymbol* SymbolRegistry::Find(QString const& folder, SYMBOL_NAME_PERIOD const& request, Status* status) {
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
  const QFileInfoList files = QDir(folder).entryInfoList(QDir::Files | QDir::NoSymLinks | QDir::NoDotAndDotDot,
                                                         QDir::Name | QDir::IgnoreCase);
  HeaderReader reader(owner_->GetFileSystem());
  int added = 0;
  for (QFileInfo const& file : files) {
    if (file.suffix() != QLatin1String(kStoredSuffix)) continue;
    const std::string path = file.filePath().toLocal8Bit().toStdString();
    CSymbol header(&reader, path.c_str());
    Status status;
    if (header.LoadProperties(&status) != 0) {
      refused(file.filePath(), status);
      continue;
    }
    const bool first = entries_.try_emplace(SymbolKey::Of(folder, header), Entry{nullptr, path}).second;
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
