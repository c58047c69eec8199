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
    if (action->isVisible())
      entries.push_back({action->isSeparator() ? "-" : action->text(), action->isEnabled()});
  }
  return entries;
}

QAction* EntryAt(QMenu& menu, int visibleIndex) {
  for (QAction* action : menu.actions()) {
    if (action->isVisible() && visibleIndex-- == 0) return action;
  }
  return nullptr;
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
  auto entries = VisibleEntries(field_);
  EXPECT_TRUE(entries[0].enabled);   // undo
  EXPECT_FALSE(entries[1].enabled);  // redo
  EXPECT_TRUE(entries[3].enabled);   // cut
  EXPECT_TRUE(entries[4].enabled);   // copy
  EXPECT_TRUE(entries[5].enabled);   // paste
  EXPECT_TRUE(entries[8].enabled);   // select all: part of the text is selected

  field_.selectAll();
  EXPECT_FALSE(VisibleEntries(field_)[8].enabled);
  field_.undo();
  EXPECT_TRUE(VisibleEntries(field_)[1].enabled);
  field_.clear();
  entries = VisibleEntries(field_);
  EXPECT_FALSE(entries[6].enabled);  // clear
  EXPECT_FALSE(entries[8].enabled);  // select all
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
  EntryAt(*menu, 8)->trigger();  // select all
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

TEST_F(LineEditTest, ConstructorsSetTextAndInputMask) {
  EXPECT_TRUE(CLineEdit(nullptr, "name").text().isEmpty());
  const CLineEdit masked(QStringLiteral("12"), QStringLiteral("99-99"), nullptr, "name");
  EXPECT_EQ(masked.inputMask(), QStringLiteral("99-99"));
  EXPECT_EQ(masked.text(), QStringLiteral("12-"));
}

TEST_F(LineEditTest, ContextMenuRequestShowsTheMenu) {
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
  EXPECT_TRUE(field_.findChildren<QMenu*>().isEmpty());  // deleted after use
}

}  // namespace
