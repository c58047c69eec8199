// TranslateManager.h: the module's translation context. Texts are looked up
// by key in that context; default texts are handed to the host key by key
// (HostMessage::InsertTranslation) so that its language files can offer them.
//
// Guarantees: an insertion whose context, key or text does not fit its
// 1024-byte field is not sent (the host never gets a cut or unterminated
// string); nothing is sent while the module has no callback.
// Thread-safety: immutable after construction; safe from any thread.

#ifndef DATASTORE_MODULE_TRANSLATEMANAGER_H_
#define DATASTORE_MODULE_TRANSLATEMANAGER_H_

#include <QString>

#include "HostBoundary.h"

class CTranslateManager {
 public:
  explicit CTranslateManager(QString const& context) : context_(context) {}
  CTranslateManager(const CTranslateManager&) = delete;
  CTranslateManager& operator=(const CTranslateManager&) = delete;

  QString GetContextName() const { return context_; }
  // Qt's translation of key in this context; the key itself when none is installed.
  QString Translate(char const* key, char const* comment) const;
  // Sends one default text to the host through the module's callback.
  void InsertTranslate(char const* context, char const* key, char const* text) const;
  void InsertTranslate(char const* key, char const* text) const;

  // Fills the record; false when a string needs the whole field or more.
  static bool FillInsertRecord(TRANSLATION_INSERT_RECORD& record, char const* context,
                               char const* key, char const* text);

 private:
  const QString context_;  // the module's translation context
};

#endif  // DATASTORE_MODULE_TRANSLATEMANAGER_H_
