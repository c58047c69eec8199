#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QMenu>
#include <QTimer>
#include <memory>

#include "DialogTestSupport.h"
#include "LineEdit.h"

namespace {

struct Entry {
  QString text;
  bool enabled;
  bool operator==(Entry const&) const = default;
};

// The menu's visible entries; separators as "-".
std::vector<Entry> VisibleEntries(CLineEdit& field) {
  const std::unique_ptr<QMenu> menu(field.createPopupMenu());
  EXPECT_EQ(menu->parent(), &field);
  std::vector<Entry> entries;
  for (QAction* action : menu->actions()) {
    if (action->isVisible()) entries.push_back({action->isSeparator() ? "-" : action->text(), action->isEnabled()});
  }
  return entries;
}

// Undo, redo, cut, copy, paste, clear and select all of an editable field.
std::vector<bool> EnabledStates(CLineEdit& field) {
  std::vector<bool> states;
  for (Entry const& entry : VisibleEntries(field)) {
    if (entry.text != "-") states.push_back(entry.enabled);
  }
  return states;
}

class LineEditTest : public ::testing::Test {
 protected:
  void SetUp() override { QApplication::clipboard()->clear(); }
  CLineEdit field_{QStringLiteral("/data/export"), nullptr};
};

TEST_F(LineEditTest, EditableFieldShowsEveryEntryWithItsTranslatedText) {
  EXPECT_EQ(VisibleEntries(field_), (std::vector<Entry>{{"tr:M0053", false},
                                                        {"tr:M0054", false},
                                                        {"-", true},
                                                        {"tr:C0109", false},
                                                        {"tr:C0107", false},
                                                        {"tr:C0108", false},
                                                        {"tr:M0264", true},
                                                        {"-", true},
                                                        {"tr:M0177", true}}));
}

TEST_F(LineEditTest, EntriesFollowSelectionUndoAndClipboard) {
  field_.setSelection(1, 4);
  field_.insert(QStringLiteral("x"));  // undo becomes available
  field_.setSelection(0, 3);
  QApplication::clipboard()->setText(QStringLiteral("pasted"));
  // Select all stays enabled while only part of the text is selected.
  EXPECT_EQ(EnabledStates(field_), (std::vector<bool>{true, false, true, true, true, true, true}));
  field_.selectAll();
  EXPECT_FALSE(EnabledStates(field_)[6]);
  field_.undo();
  EXPECT_TRUE(EnabledStates(field_)[1]);
  field_.clear();
  const std::vector<bool> empty = EnabledStates(field_);
  EXPECT_FALSE(empty[5]);  // clear
  EXPECT_FALSE(empty[6]);  // select all
}

TEST_F(LineEditTest, ReadOnlyFieldOffersOnlyCopy) {
  field_.setReadOnly(true);
  QApplication::clipboard()->setText(QStringLiteral("pasted"));
  EXPECT_EQ(VisibleEntries(field_), (std::vector<Entry>{{"tr:C0107", false}}));
  field_.setSelection(0, 2);
  EXPECT_EQ(VisibleEntries(field_), (std::vector<Entry>{{"tr:C0107", true}}));
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
