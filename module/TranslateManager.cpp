#include "TranslateManager.h"

#include <QCoreApplication>
#include <cstring>

#include "Module.h"

namespace {

bool CopyTranslationField(char* field, char const* text) {
  const size_t length = std::strlen(text);
  if (length >= static_cast<size_t>(kTranslationField)) return false;
  std::memcpy(field, text, length + 1);
  return true;
}

}  // namespace

QString CTranslateManager::Translate(char const* key, char const* comment) const {
  return QCoreApplication::translate(context_.toLatin1().constData(), key, comment);
}

bool CTranslateManager::FillInsertRecord(TRANSLATION_INSERT_RECORD& record, char const* context,
                                         char const* key, char const* text) {
  return CopyTranslationField(record.context, context) && CopyTranslationField(record.key, key) &&
         CopyTranslationField(record.text, text);
}

void CTranslateManager::InsertTranslate(char const* context, char const* key,
                                        char const* text) const {
  CModule* module = GetModule();
  if (module == nullptr || module->callback() == nullptr) return;
  TRANSLATION_INSERT_RECORD record{};
  if (!FillInsertRecord(record, context, key, text)) return;
  module->callback()(module->context(), HostMessage::InsertTranslation,
                     reinterpret_cast<HostArg>(&record), 0);
}

void CTranslateManager::InsertTranslate(char const* key, char const* text) const {
  InsertTranslate(context_.toLatin1().constData(), key, text);
}
