// LineEdit.h: CLineEdit, a one-line text field whose context menu is its own:
// translated entry texts, and entries enabled or hidden by the field's state.
//
// Guarantees: the context-menu request shows createPopupMenu() at the pointer
// and deletes it afterwards; every entry, when chosen, calls clickMenuItem
// with its id. Texts are the module's translations of the entry keys (the keys
// themselves while no module exists).
// REQUIRES: a QApplication; used on its thread.
// Thread-safety: none (a widget).

#ifndef DATASTORE_IMPORT_LINEEDIT_H_
#define DATASTORE_IMPORT_LINEEDIT_H_

#include <QLineEdit>

class QContextMenuEvent;
class QMenu;

class CLineEdit : public QLineEdit {
  Q_OBJECT

 public:
  // Menu entry ids, in menu order.
  enum MenuItem : int {
    kUndo = 0,
    kRedo = 1,
    kCut = 2,
    kCopy = 3,
    kPaste = 4,
    kClear = 5,
    kSelectAll = 6,
  };

  // The name argument is accepted for compatibility and not used.
  explicit CLineEdit(QWidget* parent = nullptr, const char* name = nullptr);
  CLineEdit(const QString& text, QWidget* parent, const char* name = nullptr);
  CLineEdit(const QString& text, const QString& inputMask, QWidget* parent,
            const char* name = nullptr);

  // A new menu (parent: this field) that the caller shows and then deletes:
  // undo, redo, separator, cut, copy, paste, clear, separator, select all.
  // In a read-only field only copy is visible and the separators are left out.
  QMenu* createPopupMenu();

 public slots:
  // Performs entry id (MenuItem); any other id does nothing.
  void clickMenuItem(int id);

 protected:
  void contextMenuEvent(QContextMenuEvent* event) override;

 private:
  // Adds entry id with the translation of key; hidden when hidden is set.
  void addItem(QMenu* menu, int id, const char* key, bool enabled, bool hidden);
  bool clipboardHoldsText() const;
};

#endif  // DATASTORE_IMPORT_LINEEDIT_H_
