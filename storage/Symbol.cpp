#include "Symbol.h"

#include <algorithm>
#include <cstring>

#include "FileFormat.h"
#include "ProviderPath.h"
#include "Period.h"

namespace {

// Widths of the view types, indexed by DATA_POINT_TYPES.
constexpr unsigned int kViewWidths[cjd::kMaxViewTypes] = {1, 2, 4, 8, 4, 8, 255};
constexpr char kFileExtension[] = ".cjd";

template <typename Char>
void CopyText(Char* field, const Char* text) {
  std::size_t length = 0;
  if (text != nullptr) {
    while (length + 1 < kSymbolTextSize && text[length] != 0) ++length;
    std::copy_n(text, length, field);
  }
  std::fill(field + length, field + kSymbolTextSize, Char(0));
}

}  // namespace

CSymbol::CSymbol(SymbolOwner* owner, const unsigned short* name, SYMBOL_PERIOD period,
                 const unsigned short* title, char* code, const unsigned short* providerName)
    : period_(period), owner_(owner), writeDisabled_(owner == nullptr || !owner->IsWriteEnabled()) {
  CopyText(name_, reinterpret_cast<const char16_t*>(name));
  CopyText(title_, reinterpret_cast<const char16_t*>(title));
  CopyText(code_, static_cast<const char*>(code));
  CopyText(providerName_, reinterpret_cast<const char16_t*>(providerName));
}

CSymbol::CSymbol(SymbolOwner* owner, const char* fileName)
    : owner_(owner), writeDisabled_(owner == nullptr || !owner->IsWriteEnabled()) {
  file_ = std::make_unique<CSDTFile>(this, fileName, fileSystem(), writeLog());
}

CSymbol::~CSymbol() { Close(); }

FileSystem* CSymbol::fileSystem() const {
  return owner_ != nullptr ? &owner_->GetFileSystem() : &FileSystem::Default();
}

WriteAheadLog* CSymbol::writeLog() const {
  return owner_ != nullptr && !writeDisabled_ ? owner_->GetWriteLog() : nullptr;
}

void CSymbol::setName(const char16_t* text) { CopyText(name_, text); }
void CSymbol::setTitle(const char16_t* text) { CopyText(title_, text); }
void CSymbol::setProviderName(const char16_t* text) { CopyText(providerName_, text); }
void CSymbol::setCode(const char* text) { CopyText(code_, text); }

QString CSymbol::MakeFileName() const {
  const std::string periodText = period::Text(period_);
  QString base = QString::fromLatin1(periodText.data(), static_cast<qsizetype>(periodText.size()));
  base += QLatin1Char('_');
  return EscapeFileNamePart(base) + EscapeFileNameBytes(QByteArray(code_));
}

int CSymbol::Create(QString const& folder, Status* status) {
  QString path = folder;
  AddProvider(path, ProviderFolderName(QString::fromUtf16(providerName_)));
  path += EscapeFileNamePart(QString::fromUtf16(name_)) + QLatin1Char('_') + MakeFileName() +
          QLatin1String(kFileExtension);
  file_ =
      std::make_unique<CSDTFile>(this, path.toLocal8Bit().constData(), fileSystem(), writeLog());
  Status opened = file_->Open(writeDisabled_);
  if (!opened.ok()) {
    if (status != nullptr) *status = opened;
    return 1;
  }
  return SaveProperties(status) == 0 ? 0 : 2;
}

Status CSymbol::Open() {
  if (!file_) return Status::Error("open", "", "the symbol has no file");
  return file_->Open(writeDisabled_);
}

void CSymbol::Close() {
  if (file_) file_->Close();
}

void CSymbol::ReleaseFile() {
  if (file_) file_->ReleaseDescriptor();
}

int CSymbol::SaveProperties(Status* status) { return file_ ? file_->WriteHeaderData(status) : 1; }

int CSymbol::LoadProperties(Status* status) { return file_ ? file_->ReadHeaderData(status) : 1; }

void CSymbol::InsertDataPointView(DATA_POINT_TYPES type, char* name) {
  CDATA_POINT_VIEW view{};
  view.type = type;
  if (name != nullptr) std::strncpy(view.name, name, sizeof(view.name) - 1);
  views_.push_back(view);
  valueWidth_ += GetViewSize(type);
}

void CSymbol::InsertDataPointView(DATA_POINT_VIEW* view) {
  if (view == nullptr) return;
  char name[kViewNameSize] = {};
  std::memcpy(name, view->name, strnlen(view->name, sizeof(name) - 1));
  InsertDataPointView(view->type, name);
}

unsigned int CSymbol::GetViewSize(DATA_POINT_TYPES type) {
  return type >= 0 && static_cast<unsigned>(type) < cjd::kMaxViewTypes ? kViewWidths[type] : 0;
}

unsigned int CSymbol::GetHeaderSize() const {
  return cjd::HeaderSize(static_cast<std::uint32_t>(views_.size()));
}

int CSymbol::GetDataPointCount() { return file_ ? file_->GetDataPointCount() : 0; }
