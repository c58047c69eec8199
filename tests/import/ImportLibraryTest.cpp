// The import as the host reaches it: the built library loaded by the
// reference host, its menu entry pressed, OK clicked, the points read back.
#include <gtest/gtest.h>

#include <QDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include "DataStoreFixture.h"
#include "DialogTestSupport.h"

namespace {

namespace M = HostMessage;
using datastore_test::Candle;

QPushButton* ButtonNamed(QDialog* dialog, QString const& text) {
  for (QPushButton* button : dialog->findChildren<QPushButton*>()) {
    if (button->text() == text) return button;
  }
  return nullptr;
}

TEST(ImportLibraryTest, MenuEntryOpensTheDialogAndOkStoresTheInstrument) {
  QTemporaryDir exportDir;
  dialog_test::WriteMaster(exportDir.path(), {{1, 24, 6, 'D', 0, "EUR/USD"}});
  dialog_test::WriteDataFile(
      exportDir.path(), 1, 24,
      {{1000103, 2.5f, 3, 2.25f, 2.75f, 1000}, {1000104, 2.75f, 3.5f, 2.5f, 3.25f, 2000}});
  QWidget mainWindow;
  datastore_test::TestTree tree;
  datastore_test::DataStoreSession session(tree, "QUENDAL");
  ModuleHost& host = session.host();
  host.setFolder(VD_FOLDER_IMPORT, exportDir.path().toStdU16String());
  host.setUseWorkFolder(0);
  host.setMainWindowId(mainWindow.winId());
  session.start();
  host.clearRecords();

  EXPECT_EQ(session.send(M::CreateMenu), 0);
  EXPECT_EQ(host.messages(),
            (std::vector<unsigned int>{M::GetInterface, M::GetMainMenu, M::GetInterface, M::SetMenuParent,
                                       M::RefreshMenu, M::AddMenuItem, M::UseWorkFolder, M::GetFolder}));
  ASSERT_EQ(host.menuItems().size(), 1u);
  EXPECT_EQ(dialog_test::WideField(host.menuItems()[0].text, kHostWideNameUnits), u"M0150...");

  host.pressMenuItem(0);
  const QList<QDialog*> dialogs = mainWindow.findChildren<QDialog*>();
  ASSERT_EQ(dialogs.size(), 1);
  QDialog* dialog = dialogs.front();
  EXPECT_TRUE(dialog->isVisible());
  EXPECT_EQ(dialog->findChild<QLineEdit*>()->text(), exportDir.path());
  ASSERT_NE(ButtonNamed(dialog, "C0049Ok"), nullptr);
  QTest::mouseClick(ButtonNamed(dialog, "C0049Ok"), Qt::LeftButton);
  EXPECT_FALSE(dialog->isVisible());
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);  // before the library goes

  const HostWord handle = session.open({u"EUR/USD", 'D', 0, "Bid", "QUENDAL"});
  EXPECT_TRUE(datastore_test::WaitUntil([&] { return session.count(handle) == 2; }));
  EXPECT_EQ(session.readAll<Candle>(handle),
            (std::vector<Candle>{{dialog_test::LocalSeconds(2000, 1, 3), 2.5f, 3, 2.25f, 2.75f, 1000},
                                 {dialog_test::LocalSeconds(2000, 1, 4), 2.75f, 3.5f, 2.5f, 3.25f, 2000}}));
}

}  // namespace
