// The directory line's menu: which of its seven entries are shown and
// enabled, and what each does.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QMenu>
#include <QTimer>
#include <memory>

#include "ImportTestSupport.h"
#include "LineEdit.h"

namespace {

// The menu's visible entries, "(text)" when disabled; separators as "-".
QString Entries(CLineEdit& field) {
  const std::unique_ptr<QMenu> menu(field.createPopupMenu());
  EXPECT_EQ(menu->parent(), &field);
  QStringList entries;
  for (QAction* action : menu->actions()) {
    const QString text = action->isSeparator() ? "-" : action->text();
    if (action->isVisible()) entries << (action->isEnabled() ? text : "(" + text + ")");
  }
  return entries.join(' ');
}

class LineEditTest : public ::testing::Test {
 protected:
  void SetUp() override { QApplication::clipboard()->clear(); }
  CLineEdit field_{QStringLiteral("/data/export"), nullptr};
};

TEST_F(LineEditTest, EntriesFollowSelectionUndoClipboardAndReadOnly) {
  EXPECT_EQ(Entries(field_),
            "(tr:M0053) (tr:M0054) - (tr:C0109) (tr:C0107) (tr:C0108) tr:M0264 - tr:M0177");
  field_.setSelection(1, 4);
  field_.insert(QStringLiteral("x"));  // undo becomes available
  field_.setSelection(0, 3);
  QApplication::clipboard()->setText(QStringLiteral("pasted"));
  // Select all stays enabled while only part of the text is selected.
  EXPECT_EQ(Entries(field_),
            "tr:M0053 (tr:M0054) - tr:C0109 tr:C0107 tr:C0108 tr:M0264 - tr:M0177");
  field_.selectAll();
  EXPECT_EQ(Entries(field_),
            "tr:M0053 (tr:M0054) - tr:C0109 tr:C0107 tr:C0108 tr:M0264 - (tr:M0177)");
  field_.undo();
  EXPECT_EQ(Entries(field_),
            "(tr:M0053) tr:M0054 - tr:C0109 tr:C0107 tr:C0108 tr:M0264 - tr:M0177");
  field_.clear();
  EXPECT_EQ(Entries(field_),
            "tr:M0053 (tr:M0054) - (tr:C0109) (tr:C0107) tr:C0108 (tr:M0264) - (tr:M0177)");

  field_.setText(QStringLiteral("/data/export"));
  field_.setReadOnly(true);  // copy only
  EXPECT_EQ(Entries(field_), "(tr:C0107)");
  field_.setSelection(0, 2);
  EXPECT_EQ(Entries(field_), "tr:C0107");
}

TEST_F(LineEditTest, ChosenEntriesActOnTheField) {
  const std::unique_ptr<QMenu> menu(field_.createPopupMenu());
  menu->actions().last()->trigger();  // select all
  EXPECT_EQ(field_.selectedText(), QStringLiteral("/data/export"));
  field_.clickMenuItem(CLineEdit::kCopy);
  EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("/data/export"));
  field_.clickMenuItem(CLineEdit::kClear);
  EXPECT_TRUE(field_.text().isEmpty());
  field_.clickMenuItem(CLineEdit::kPaste);
  field_.clickMenuItem(CLineEdit::kPaste);
  EXPECT_EQ(field_.text(), QStringLiteral("/data/export/data/export"));
  field_.clickMenuItem(CLineEdit::kUndo);
  EXPECT_EQ(field_.text(), QStringLiteral("/data/export"));
  field_.clickMenuItem(CLineEdit::kRedo);
  field_.clickMenuItem(7);  // unknown: nothing
  EXPECT_EQ(field_.text(), QStringLiteral("/data/export/data/export"));
  field_.setSelection(0, 5);
  field_.clickMenuItem(CLineEdit::kCut);
  EXPECT_EQ(field_.text(), QStringLiteral("/export/data/export"));
}

TEST_F(LineEditTest, ContextMenuRequestShowsTheMenuAndDeletesIt) {
  field_.show();
  QStringList shown;
  QTimer::singleShot(0, [&shown] {
    auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
    ASSERT_NE(menu, nullptr);
    for (QAction* action : menu->actions()) shown << action->text();
    menu->close();
  });
  QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5), field_.mapToGlobal(QPoint(5, 5)));
  QApplication::sendEvent(&field_, &event);
  EXPECT_EQ(shown.size(), 9);
  EXPECT_EQ(shown.value(8), QStringLiteral("tr:M0177"));
  EXPECT_TRUE(field_.findChildren<QMenu*>().isEmpty());
}

}  // namespace
