#include "LineEdit.h"

#include <QAction>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QPointer>

#include "Module.h"

namespace {

// The translation of key in the module's context, or the key without a module.
QString Translated(const char* key) {
  const CModule* module = GetModule();
  return module != nullptr ? module->tr(key) : QString::fromLatin1(key);
}

}  // namespace

CLineEdit::CLineEdit(QWidget* parent, const char*) : QLineEdit(parent) {}

CLineEdit::CLineEdit(const QString& text, QWidget* parent, const char*) : QLineEdit(text, parent) {}

CLineEdit::CLineEdit(const QString& text, const QString& inputMask, QWidget* parent, const char*)
    : QLineEdit(text, parent) {
  setInputMask(inputMask);
}

QMenu* CLineEdit::createPopupMenu() {
  auto* menu = new QMenu(this);
  const bool readOnly = isReadOnly();
  const bool selected = hasSelectedText();
  const bool empty = text().isEmpty();
  addItem(menu, kUndo, "M0053", isUndoAvailable(), readOnly);
  addItem(menu, kRedo, "M0054", isRedoAvailable(), readOnly);
  if (!readOnly) menu->addSeparator();
  addItem(menu, kCut, "C0109", !readOnly && selected, readOnly);
  addItem(menu, kCopy, "C0107", selected, false);
  addItem(menu, kPaste, "C0108", !readOnly && clipboardHoldsText(), readOnly);
  addItem(menu, kClear, "M0264", !readOnly && !empty, readOnly);
  if (!readOnly) menu->addSeparator();
  addItem(menu, kSelectAll, "M0177", !empty && selectedText() != text(), readOnly);
  return menu;
}

void CLineEdit::addItem(QMenu* menu, int id, const char* key, bool enabled, bool hidden) {
  QAction* action = menu->addAction(Translated(key));
  action->setEnabled(enabled);
  action->setVisible(!hidden);
  connect(action, &QAction::triggered, this, [this, id] { clickMenuItem(id); });
}

bool CLineEdit::clipboardHoldsText() const {
  const QClipboard* clipboard = QGuiApplication::clipboard();
  return clipboard != nullptr && !clipboard->text().isEmpty();
}

void CLineEdit::clickMenuItem(int id) {
  switch (id) {
    case kUndo: undo(); break;
    case kRedo: redo(); break;
    case kCut: cut(); break;
    case kCopy: copy(); break;
    case kPaste: paste(); break;
    case kClear: clear(); break;
    case kSelectAll: selectAll(); break;
    default: break;
  }
}

// The menu is watched: closing the field's window while it is open deletes it.
void CLineEdit::contextMenuEvent(QContextMenuEvent* event) {
  const QPointer<QMenu> menu = createPopupMenu();
  menu->exec(event->globalPos());
  delete menu;
}
