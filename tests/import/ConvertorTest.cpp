#include <gtest/gtest.h>

#include <QComboBox>
#include <QFileInfo>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <array>
#include <cstring>

#include "Convertor.h"
#include "DialogConvertor.h"
#include "DialogTestSupport.h"
#include "LineEdit.h"

namespace {

using namespace dialog_test;

void* const kContext = reinterpret_cast<void*>(0x5eed);
constexpr HostWord kModuleHandle = 0x77;

using ButtonStates = std::array<bool, 4>;  // select all, deselect, invert, OK enabled

template <typename Record>
Record RecordOf(HostCall const& call) {
  Record record;
  std::memcpy(&record, call.record.data(), sizeof record);
  return record;
}

class ConvertorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetHost();
    TestModule().setModuleHandle(kModuleHandle);
    convertor_.setHostContext(kContext);
    convertor_.setFolders({[] { return QStringLiteral("/work"); }, [this] { return dir_.path(); }});
    convertor_.setDirectoryChooser([this](QWidget*, QString const& start) {
      chooserStarts_ << start;
      return chooserAnswer_;
    });
  }
  void TearDown() override { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

  // Six entries: three with data (EUR/USD daily, .DJI 15-minute, USD/JPY
  // daily), one without a file, one with R = 0, one holding only its header.
  void WriteExport() {
    WriteMaster(dir_.path(), {{1, 24, 6, 'D', 0, "EUR/USD"},
                              {2, 28, 7, 'I', 15, ".DJI"},
                              {3, 24, 6, 'D', 0, "GONE"},
                              {4, 0, 6, 'D', 0, "ZERO"},
                              {5, 24, 6, 'D', 0, "EMPTY"},
                              {6, 24, 6, 'D', 0, "USD/JPY"}});
    WriteDataFile(dir_.path(), 1, 24,
                  {{1000103, 2.5f, 3, 2.25f, 2.75f, 1000}, {1000104, 2.75f, 3.5f, 2.5f, 3.25f, 2000}});
    WriteDataFile(dir_.path(), 2, 28, {{1000229, 93000, 10500, 10600, 10400, 10550, 300}});
    WriteDataFile(dir_.path(), 4, 24, {{1000103, 1, 1, 1, 1, 1}});
    WriteDataFile(dir_.path(), 5, 24, {});
    WriteDataFile(dir_.path(), 6, 24, {{991231, 105, 106, 104, 105.5f, 50}});
  }
  void Open() {
    convertor_.UpdatePath();
    mm_menu_item item{};
    convertor_.pressMenuItem(&item);
    ASSERT_NE(c().dialog, nullptr);
  }
  void Click(QPushButton* button) { QTest::mouseClick(button, Qt::LeftButton); }
  ConvertorControls const& c() const { return convertor_.controls(); }
  QString cell(int row, int column) const { return c().table->item(row, column)->text(); }
  QComboBox* priceTypeBox(int row) const {
    return qobject_cast<QComboBox*>(c().table->cellWidget(row, CConvertor::kPriceTypeColumn));
  }
  QStringList priceTypes(int row) const {
    QStringList texts;
    for (int i = 0; i < priceTypeBox(row)->count(); ++i) texts << priceTypeBox(row)->itemText(i);
    return texts;
  }
  int checkState(int row) const { return c().table->item(row, 0)->data(Qt::CheckStateRole).toInt(); }
  QList<int> checkStates() const { return {checkState(0), checkState(1), checkState(5)}; }
  ButtonStates buttons() const {
    return {c().selectAllButton->isEnabled(), c().deselectButton->isEnabled(), c().invertButton->isEnabled(),
            c().okButton->isEnabled()};
  }

  QTemporaryDir dir_;
  FakeTarget target_;
  CConvertor convertor_{&target_, &TestModule()};
  QStringList chooserStarts_;  // every start directory the chooser was given
  QString chooserAnswer_;      // what it answers; empty: cancelled
};

TEST_F(ConvertorTest, MenuEntryIsRegisteredThroughTheHostMenuProtocol) {
  convertor_.CreateMenuConvertor();
  const auto& calls = RecordingHost::instance().calls;
  std::vector<unsigned int> messages;
  for (HostCall const& call : calls) {
    EXPECT_EQ(call.context, kContext);
    messages.push_back(call.message);
  }
  ASSERT_EQ(messages, (std::vector<unsigned int>{3001, 3002, 3001, 5503, 5500, 5508}));

  auto fields = [](HostCall const& call) {
    auto text = [&](int offset) { return std::string(reinterpret_cast<const char*>(&call.record[offset])); };
    return text(0) + "|" + text(255) + "|" + text(510);
  };
  EXPECT_EQ(fields(calls[0]), "MAINWINDOW|QUENDAL|");
  EXPECT_EQ(fields(calls[1]), "MAINMENU|QUENDAL|quendalMainMenu");
  EXPECT_EQ(fields(calls[2]), "MAINWINDOW|QUENDAL|");
  EXPECT_EQ(std::uint32_t{RecordOf<INTERFACE_REQUEST_RECORD>(calls[1]).one}, 1u);

  const auto parent = RecordOf<MENU_PARENT_RECORD>(calls[3]);
  EXPECT_EQ(WideField(parent.parentKey, kHostWideNameUnits), u"C0030Propes");
  EXPECT_EQ(std::int32_t{parent.value0}, 0);
  EXPECT_EQ(std::int32_t{parent.value1}, 3);
  const auto item = RecordOf<mm_menu_item>(calls[5]);
  EXPECT_EQ(WideField(item.text, kHostWideNameUnits), u"tr:M0150...");
  EXPECT_EQ(HostWord{item.owner}, kModuleHandle);
}

TEST_F(ConvertorTest, MenuPressWithoutHostContextDoesNothing) {
  convertor_.setHostContext(nullptr);
  mm_menu_item item{};
  convertor_.pressMenuItem(&item);
  EXPECT_EQ(c().dialog, nullptr);
  EXPECT_TRUE(RecordingHost::instance().calls.empty());
}

TEST_F(ConvertorTest, DialogOpensOnTheMainWindowWithOnlyBrowseAndRejectUsable) {
  QWidget mainWindow;
  RecordingHost::instance().mainWindowId = mainWindow.winId();
  Open();  // an empty directory: the table is cleared
  CDialogConvertor* dialog = c().dialog;
  EXPECT_EQ(dialog->parentWidget(), &mainWindow);
  EXPECT_EQ(RecordingHost::instance().calls.at(1).message, HostMessage::GetMainWindowId);
  EXPECT_TRUE(dialog->isVisible());
  EXPECT_EQ(dialog->windowModality(), Qt::ApplicationModal);
  EXPECT_EQ(dialog->minimumSize(), QSize(420, 440));
  EXPECT_EQ(dialog->maximumSize(), QSize(420, 440));
  EXPECT_EQ(dialog->windowTitle(), "tr:M0150");
  EXPECT_EQ(c().label->text(), "tr:C0110:");
  EXPECT_EQ(c().directoryLine->text(), dir_.path());
  EXPECT_TRUE(c().browseButton->isEnabled() && c().rejectButton->isEnabled());
  EXPECT_EQ(buttons(), (ButtonStates{false, false, false, false}));
  QStringList headers;
  for (int i = 0; i < c().table->columnCount(); ++i) headers << c().table->horizontalHeaderItem(i)->text();
  EXPECT_EQ(headers, QStringList({"", "tr:C0028Name", "tr:M0176", "tr:Tra0010", "tr:Tra0011", "tr:C0075Type"}));

  convertor_.pressMenuItem(nullptr);  // already open: the same dialog
  EXPECT_EQ(c().dialog, dialog);
  Click(c().rejectButton);
  EXPECT_FALSE(dialog->isVisible());
}

TEST_F(ConvertorTest, TableListsTheEntriesAndHidesThoseWithoutData) {
  WriteExport();
  Open();
  ASSERT_EQ(c().table->rowCount(), 6);
  for (int row : {2, 3, 4}) EXPECT_TRUE(c().table->isRowHidden(row)) << row;
  const std::pair<int, QStringList> visible[] = {{0, {"EUR/USD", "D", "03.01.00", "04.01.00"}},
                                                 {1, {".DJI", "I  15", "29.02.00 09:30:00", "29.02.00 09:30:00"}},
                                                 {5, {"USD/JPY", "D", "31.12.99", "31.12.99"}}};
  for (auto const& [row, texts] : visible) {
    SCOPED_TRACE(row);
    EXPECT_FALSE(c().table->isRowHidden(row));
    EXPECT_EQ(QStringList({cell(row, 1), cell(row, 2), cell(row, 3), cell(row, 4)}), texts);
    EXPECT_EQ(checkState(row), Qt::Checked);
    EXPECT_TRUE(c().table->item(row, 0)->flags() & Qt::ItemIsUserCheckable);
  }
  EXPECT_EQ(priceTypes(0), QStringList({"Bid", "Ask"}));
  EXPECT_EQ(priceTypes(1), QStringList({"Last", "Proc"}));
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));
}

TEST_F(ConvertorTest, SelectionButtonsFollowTheCheckStates) {
  WriteExport();
  Open();
  ClickCheckBox(c().table, 0);
  EXPECT_EQ(checkState(0), Qt::Unchecked);
  EXPECT_EQ(buttons(), (ButtonStates{true, true, true, true}));  // some checked

  Click(c().selectAllButton);
  EXPECT_EQ(checkState(0), Qt::Checked);
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));

  Click(c().deselectButton);  // writes 2, sets the buttons as for none
  EXPECT_EQ(checkStates(), QList<int>({2, 2, 2}));
  EXPECT_EQ(buttons(), (ButtonStates{true, false, true, false}));
  convertor_.change(0, 3);  // another column: no recount
  EXPECT_EQ(buttons(), (ButtonStates{true, false, true, false}));

  Click(c().invertButton);
  EXPECT_EQ(checkStates(), QList<int>({0, 0, 0}));
  EXPECT_EQ(buttons(), (ButtonStates{true, false, true, false}));  // none checked

  ClickCheckBox(c().table, 1);
  EXPECT_EQ(buttons(), (ButtonStates{true, true, true, true}));
  Click(c().invertButton);
  EXPECT_EQ(checkStates(), QList<int>({2, 0, 2}));
  ClickCheckBox(c().table, 1);
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));  // all checked
}

TEST_F(ConvertorTest, DirectoryLineReadsADirectoryOrAsksForOne) {
  WriteExport();
  Open();
  const QString other = dir_.path() + QStringLiteral("/none");
  c().directoryLine->clear();
  QTest::keyClicks(c().directoryLine, other);
  QTest::keyClick(c().directoryLine, Qt::Key_Return);  // no MASTER: the chooser; cancelled
  EXPECT_EQ(chooserStarts_, QStringList({other}));
  EXPECT_EQ(c().table->rowCount(), 0);
  EXPECT_TRUE(convertor_.entries().empty());
  EXPECT_EQ(buttons(), (ButtonStates{false, false, false, false}));

  chooserAnswer_ = dir_.path();
  Click(c().browseButton);
  EXPECT_EQ(c().table->rowCount(), 6);
  EXPECT_EQ(convertor_.currentDir(), dir_.path());

  QTest::keyClick(c().directoryLine, Qt::Key_Return);  // has MASTER: read at once
  EXPECT_EQ(chooserStarts_.size(), 2);
  EXPECT_EQ(c().table->rowCount(), 6);

  convertor_.readMakeFile(QStringLiteral("C:\\export\\daily"));
  EXPECT_EQ(c().directoryLine->text(), "C:/export/daily");
  EXPECT_EQ(convertor_.currentDir(), "C:\\export\\daily");
}

TEST_F(ConvertorTest, DefaultDirectoryComesFromTheHost) {
  EXPECT_EQ(convertor_.GetUserPath(), dir_.path());
  RecordingHost::instance().useWorkFolder = 1;
  EXPECT_EQ(convertor_.GetUserPath(), "/work/");
  EXPECT_EQ(RecordingHost::instance().calls.back().message, HostMessage::UseWorkFolder);
  EXPECT_EQ(RecordingHost::instance().calls.back().context, kContext);
  RecordingHost::instance().useWorkFolder = 0;
  convertor_.setModule(nullptr);
  EXPECT_EQ(convertor_.GetUserPath(), "");
}

TEST_F(ConvertorTest, OkImportsTheCheckedRowsWhileTheDialogCannotBeClosed) {
  WriteExport();
  Open();
  ClickCheckBox(c().table, 5);  // USD/JPY stays out
  priceTypeBox(1)->setCurrentIndex(1);
  int maximum = 0;
  target_.onOpen = [&] {
    EXPECT_TRUE(convertor_.isBusy());
    for (QWidget* w : std::initializer_list<QWidget*>{c().directoryLine, c().browseButton, c().table,
                                                      c().selectAllButton, c().deselectButton,
                                                      c().invertButton, c().okButton, c().rejectButton}) {
      EXPECT_FALSE(w->isEnabled());
    }
    EXPECT_FALSE(c().dialog->close());
    QTest::keyClick(c().dialog, Qt::Key_Escape);
    EXPECT_TRUE(c().dialog->isVisible());
    maximum = c().progressBar->maximum();
  };
  Click(c().okButton);

  EXPECT_EQ(maximum, QFileInfo(dir_.filePath("F1.dat")).size() + QFileInfo(dir_.filePath("F2.dat")).size());
  ASSERT_EQ(target_.opened.size(), 2u);
  EXPECT_EQ(WideField(target_.opened[0].name, kHostWideNameUnits), u"EUR/USD");
  EXPECT_STREQ(target_.opened[0].code, "Bid");
  EXPECT_EQ(target_.opened[0].period.kind, 'D');
  EXPECT_EQ(WideField(target_.opened[1].name, kHostWideNameUnits), u".DJI");
  EXPECT_STREQ(target_.opened[1].code, "Proc");
  EXPECT_EQ(int{target_.opened[1].period.length}, 15);
  ASSERT_EQ(target_.inserts.size(), 2u);
  EXPECT_EQ(target_.inserts[0].points,
            (std::vector<Candle>{{LocalSeconds(2000, 1, 3), 2.5f, 3, 2.25f, 2.75f, 1000},
                                 {LocalSeconds(2000, 1, 4), 2.75f, 3.5f, 2.5f, 3.25f, 2000}}));
  EXPECT_EQ(target_.inserts[1].points,
            (std::vector<Candle>{{LocalSeconds(2000, 2, 29, 9, 30), 10500, 10600, 10400, 10550, 300}}));
  for (auto const& insert : target_.inserts) EXPECT_EQ(insert.completionContext, 0u);
  EXPECT_EQ(target_.closed, (std::vector<void*>{target_.inserts[0].handle, target_.inserts[1].handle}));
  EXPECT_FALSE(convertor_.isBusy());
  EXPECT_FALSE(c().dialog->isVisible());
}

TEST_F(ConvertorTest, RowsTheStoreRefusesAreSkipped) {
  WriteExport();
  Open();
  target_.throwOnFirstInsert = true;
  Click(c().okButton);
  EXPECT_EQ(target_.opened.size(), 3u);
  EXPECT_EQ(target_.inserts.size(), 2u);  // the first one threw
  EXPECT_EQ(target_.closed.size(), 3u);   // its handle was closed all the same

  FakeTarget refusing;
  refusing.refuseOpen = true;
  convertor_.setTarget(&refusing);
  Open();
  Click(c().okButton);
  EXPECT_EQ(refusing.opened.size(), 3u);
  EXPECT_TRUE(refusing.inserts.empty());
  EXPECT_TRUE(refusing.closed.empty());
}

// The second row reads F2 with its own R = 24 (R = 28 would find no whole
// record) but maps its fields as the first entry's 7 fields do.
TEST_F(ConvertorTest, DuplicateRowsReadTheirOwnFileWithTheFirstEntrysFields) {
  WriteMaster(dir_.path(), {{1, 28, 7, 'D', 0, "DUP"}, {2, 24, 5, 'D', 0, "DUP"}});
  WriteDataFile(dir_.path(), 1, 28, {{1000103, 2.5f, 3, 2.25f, 2.75f, 1000}});
  WriteDataFile(dir_.path(), 2, 24, {{1000104, 4.5f, 5, 4.25f, 4.75f, 10}});
  Open();
  Click(c().okButton);
  ASSERT_EQ(target_.inserts.size(), 2u);
  EXPECT_EQ(target_.inserts[1].points,
            (std::vector<Candle>{{LocalSeconds(2000, 1, 4), 4.5f, 5, 4.25f, 4.75f, 10}}));
}

TEST_F(ConvertorTest, IndexWithoutDataFilesShowsNoRowYetOkImportsNothing) {
  WriteMaster(dir_.path(), {{7, 24, 6, 'D', 0, "A"}, {8, 24, 6, 'D', 0, "B"}});
  Open();
  EXPECT_TRUE(c().table->isRowHidden(0) && c().table->isRowHidden(1));
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));
  Click(c().okButton);
  EXPECT_TRUE(target_.opened.empty());
  EXPECT_FALSE(c().dialog->isVisible());
}

}  // namespace
