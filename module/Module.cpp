#include "Module.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "DateTime.h"
#include "FontManager.h"
#include "TranslateManager.h"

namespace {

constexpr char kNonameDescription[] = "Noname module";
constexpr char kDefaultLanguage[] = "English";
constexpr char kUnknownThrowPrefix[] = "Unknown throw in <";
constexpr char kUnknownThrowPosition[] = ">|../Module|91";

}  // namespace

void CopyHostName(char* field, int fieldSize, QString const& name) {
  const QByteArray ascii = name.toLatin1();
  const int length = static_cast<int>(ascii.size());
  std::memcpy(field, ascii.constData(), length <= fieldSize - 1 ? length : fieldSize);
}

namespace {
CModule* currentModule = nullptr;  // what GetModule() answers
}  // namespace

CModule::CModule(char const* name, unsigned number1, unsigned number2, unsigned number3,
                 std::string const& moduleName, QString const& contextName)
    : callback2_(nullptr),
      log_(new Log),
      moduleName_(moduleName),
      translateManager_(new CTranslateManager(contextName)) {
  if (currentModule == nullptr) currentModule = this;
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  info_.name[0] = 0;
  if (name != nullptr) {
    std::strncpy(info_.name, name, sizeof(info_.name));
    std::strncpy(info_.description, kNonameDescription, sizeof(info_.description));
    info_.name[sizeof(info_.name) - 1] = 0;
  }
  info_.number3 = number3;
  info_.number2 = number2;
  info_.number1 = number1;
  const QByteArray context = translateManager_->GetContextName().toLatin1();
  std::strncpy(info_.contextName, context.constData(), sizeof(info_.contextName));
  info_.kind = kModuleKind;
  info_.extra = kDefaultExtra;
}

// Members are released in the reverse order of their declaration: events,
// translate manager, date-time helper, name, font manager, log.
CModule* GetModule() { return currentModule; }

CModule::~CModule() {
  if (currentModule == this) currentModule = nullptr;
}

void CModule::InitializeWrap(HostCallback callback, HostCallback callback2, void* context,
                             void* context2) {
  callback_ = callback;
  callback2_ = callback2;
  context_ = context;
  context2_ = context2;
}

int CModule::GetModuleInfoWrap(MODULE_INFO* out) {
  if (out != nullptr) std::memcpy(out, &info_, sizeof(MODULE_INFO));
  return 0;
}

int CModule::ReceiveMessageWrap(void*, unsigned int message, HostArg, HostArg) {
  if (message != HostMessage::Start) return 0;
  try {
    HandleStart();
  } catch (...) {
    ReportUnknownThrow();
    throw;
  }
  return 0;
}

void CModule::HandleStart() {
  initFonts();
  dateTime_ = std::make_unique<Quendal::DateTime>(*this, context_);
  // A host that starts a module it never initialised gets no log, not a crash.
  if (callback_ != nullptr) {
    log_->Create(QString::fromLatin1(moduleName_.c_str()), callback_, context_);
  }
}

void CModule::ReportUnknownThrow() {
  *log_ << LOG_TYPE_1 << LOG_LEVEL_5 << kUnknownThrowPrefix
        << QString::fromLatin1(moduleName_.c_str()) << kUnknownThrowPosition << LOG_MARK_FLUSH;
}

int CModule::CallHost(unsigned int message, HostArg a, HostArg b) const {
  if (callback_ == nullptr) return 0;
  return callback_(context_, message, a, b);
}

QString CModule::getFont(font::elementCode code) const {
  return fontManager_ ? fontManager_->GetFont(code) : QString();
}

int CModule::getFontSize(int size) const {
  return fontManager_ ? fontManager_->getFontSize(size) : size;
}

QString CModule::tr(char const* key, char const* comment) const {
  return translateManager_->Translate(key, comment);
}

QString CModule::tr(QString const& key, QString const& comment) const {
  const QByteArray localKey = key.toLocal8Bit();
  const QByteArray localComment = comment.toLocal8Bit();
  return tr(localKey.constData(), comment.isNull() ? nullptr : localComment.constData());
}

void CModule::InsertTranslate(char const* context, char const* key, char const* text) const {
  translateManager_->InsertTranslate(context, key, text);
}

void CModule::initFonts() {
  LANGUAGE_LIST_RECORD list{};
  CallHost(HostMessage::GetLanguageCount, reinterpret_cast<HostArg>(&list), 0);
  QString language = QString::fromLatin1(kDefaultLanguage);
  if (list.count >= 1) {
    std::vector<LANGUAGE_ENTRY> entries(static_cast<size_t>(list.count), LANGUAGE_ENTRY{});
    list.entries = reinterpret_cast<HostWord>(entries.data());
    CallHost(HostMessage::GetLanguages, reinterpret_cast<HostArg>(&list), 0);
    for (const LANGUAGE_ENTRY& entry : entries) {
      if (entry.isCurrent != 1) continue;
      language =
          QString::fromLatin1(entry.name, qsizetype(strnlen(entry.name, sizeof(entry.name))));
      break;
    }
  }
  fontManager_.reset(font::CreateManager(language));
}
