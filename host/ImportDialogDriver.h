// ImportDialogDriver.h: what dshost needs to use a module's import dialog as
// a user does: the texts the module asked its host to show, the open dialog,
// its buttons, and the rows it imports.
//
// The dialog belongs to the module; dshost finds it among the application's
// top-level widgets and reads its table as the module lays it out: column 0
// the row's check box, 1 the symbol, 2 the period ("D", "I  5"), 5 a combo
// box with the price type.
//
// REQUIRES: a QApplication; every function runs on its thread.
// Thread-safety: none.

#ifndef DATASTORE_HOST_IMPORTDIALOGDRIVER_H_
#define DATASTORE_HOST_IMPORTDIALOGDRIVER_H_

#include <QString>
#include <QTranslator>
#include <map>
#include <vector>

#include "ModuleHost.h"

class QDialog;
class QPushButton;

// A translator that answers every key with the default text the module sent
// for it (3019), as a terminal shows it; keys without one stay untranslated.
class HostTranslator : public QTranslator {
 public:
  // Takes the defaults the host has recorded so far.
  void learn(const ModuleHost& host);

  bool isEmpty() const override { return texts_.empty(); }
  // The default text of sourceText in any context, or a null text.
  QString translate(const char* context, const char* sourceText, const char* disambiguation,
                    int n) const override;
  // The default text of key, or key itself.
  QString text(const char* key) const;

 private:
  std::map<std::string, QString> texts_;  // key -> default text
};

// One row of the dialog's table.
struct ImportRow {
  QString symbol;     // the whole symbol, trimmed
  QString period;     // the dialog's period text: a letter, for 'I' followed by "  " and the size
  QString priceType;  // chosen in the row's combo box
};

// The visible dialog among the top-level widgets, or null.
QDialog* FindOpenDialog();
// The dialog's push button showing text, or null.
QPushButton* FindButton(QDialog* dialog, const QString& text);
// The rows that are shown and checked, in table order.
std::vector<ImportRow> CheckedRows(QDialog* dialog);

#endif  // DATASTORE_HOST_IMPORTDIALOGDRIVER_H_
