// The import dialog driven as the host and a user drive it, with a host
// callback that records every call and a store that records what it is asked
// to do. This file also holds the program's main(); the test module's texts
// come back as "tr:" + key.
#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QScrollBar>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionViewItem>
#include <QTableWidget>
#include <QTest>
#include <QTranslator>
#include <array>
#include <stdexcept>
#include <utility>

#include "Convertor.h"
#include "DialogConvertor.h"
#include "ImportTarget.h"
#include "ImportTestSupport.h"
#include "LineEdit.h"
#include "Log.h"
#include "Module.h"

namespace {

constexpr char kTranslationContext[] = "CTransImportTest";
void* const kContext = reinterpret_cast<void*>(0x5eed);
constexpr HostWord kModuleHandle = 0x77;

// Returns "tr:" + key for the test module's context, nothing for others.
class KeyTranslator : public QTranslator {
 public:
  QString translate(const char* context, const char* key, const char*, int) const override {
    return std::strcmp(context, kTranslationContext) == 0 ? "tr:" + QLatin1String(key) : QString();
  }
  bool isEmpty() const override { return false; }
};

CModule& TestModule() {
  static CModule module("Import test", 1, 2, 3, "CImportTest",
                        QString::fromLatin1(kTranslationContext));
  return module;
}

// The host: records every call as "message: what its record holds", answers
// 3502, 3506 and 3205, and keeps the log's texts.
struct Host {
  QStringList calls;
  QStringList logs;                           // texts given to the log sink
  HostWord mainWindowId = 0;                  // 0: left unanswered
  std::optional<std::int32_t> useWorkFolder;  // none: left unanswered
} host;

int RecordLog(LogRecord* record) {
  host.logs << QString::fromUtf16(
      reinterpret_cast<const char16_t*>(record->text));  // NUL-terminated
  return 0;
}

int RecordCall(void* context, unsigned int message, HostArg a, HostArg) {
  QString call = QString::number(message);
  if (context != kContext) call += " from a wrong context";
  if (message == HostMessage::GetInterface || message == HostMessage::GetMainMenu) {
    const char* names = reinterpret_cast<const char*>(a);  // at 0, 255 and 510
    const auto* record = reinterpret_cast<const INTERFACE_REQUEST_RECORD*>(a);
    call += QString(": %1|%2|%3 %4")
                .arg(names, names + 255, names + 510)
                .arg(std::uint32_t{record->one});
  }
  if (message == HostMessage::SetMenuParent) {
    const auto* record = reinterpret_cast<const MENU_PARENT_RECORD*>(a);
    const QString values[] = {QString::number(record->value0), QString::number(record->value1)};
    call += QString(": %1 %2 %3").arg(WideText(&record->parentKey), values[0], values[1]);
  }
  if (message == HostMessage::AddMenuItem) {
    const auto* item = reinterpret_cast<const mm_menu_item*>(a);
    call += QString(": %1 owner %2").arg(WideText(&item->text)).arg(HostWord{item->owner}, 0, 16);
  }
  host.calls << call;
  if (message == HostMessage::GetMainWindowId && host.mainWindowId != 0) {
    *reinterpret_cast<HostWord*>(a) = host.mainWindowId;
  }
  if (message == HostMessage::UseWorkFolder && host.useWorkFolder) {
    *reinterpret_cast<std::int32_t*>(a) = *host.useWorkFolder;
  }
  if (message == HostMessage::GetLogSink)
    *reinterpret_cast<HostWord*>(a) = reinterpret_cast<HostWord>(&RecordLog);
  return 0;
}

struct Candle {
  std::int32_t time;
  float open, high, low, close, volume;
  bool operator==(Candle const&) const = default;
};

// Records what it is asked to do; handles are 1, 2, ... in opening order.
class FakeTarget : public ImportTarget {
 public:
  struct Insert {
    void* handle;
    std::vector<Candle> points;  // copied during the call
  };
  QStringList opened;  // "name code kind length" of every request
  std::vector<Insert> inserts;
  std::vector<void*> closed;
  bool refuseOpen = false;           // leave the handle null
  bool throwOnFirstInsert = false;   // throw std::runtime_error once
  unsigned int storedPointSize = 0;  // the record size of the opened symbols; 0: whatever is given
  std::function<void()> onOpen;      // runs inside OpenSymbol

  int OpenSymbol(SYMBOL_NAME_PERIOD* request, void** handle) override {
    const QString period =
        QChar::fromLatin1(request->period.kind) + QString::number(request->period.length);
    opened << QString("%1 %2 %3").arg(WideText(&request->name), request->code, period);
    if (onOpen) onOpen();
    if (!refuseOpen) *handle = reinterpret_cast<void*>(opened.size());
    return 0;
  }
  bool AcceptsPoints(void*, unsigned int pointSize) override {
    return storedPointSize == 0 || storedPointSize == pointSize;
  }
  int InsertSymbolDataPost(INSERT_SYMBOL_DATA_REQUEST* request) override {
    if (std::exchange(throwOnFirstInsert, false)) throw std::runtime_error("refused");
    std::vector<Candle> points(static_cast<std::size_t>(request->number));
    std::memcpy(points.data(), reinterpret_cast<const void*>(request->data),
                points.size() * sizeof(Candle));
    EXPECT_EQ(HostWord{request->completionContext}, 0u);  // no completion call (packed: copied)
    inserts.push_back({reinterpret_cast<void*>(request->handle), points});
    return 0;
  }
  int CloseSymbol(void* handle) override {
    closed.push_back(handle);
    return 0;
  }
};

std::int32_t UtcSeconds(QDate date, QTime time = QTime(0, 0)) {
  return static_cast<std::int32_t>(QDateTime(date, time, Qt::UTC).toSecsSinceEpoch());
}

using ButtonStates = std::array<bool, 4>;  // select all, deselect, invert, OK enabled

class ConvertorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    host = Host{};
    TestModule().InitializeWrap(&RecordCall, nullptr, &host, nullptr);
    TestModule().setModuleHandle(kModuleHandle);
    TestModule().GetLog()->Create(QStringLiteral("Import test"), &RecordCall, kContext);
    host.calls.clear();
    convertor_.setHostContext(kContext);
    convertor_.setFolders({[] { return QStringLiteral("/work"); }, [this] { return dir_.path(); }});
    convertor_.setDirectoryChooser([this](QWidget*, QString const& start) {
      chooserStarts_ << start;
      return chooserAnswer_;
    });
  }
  void TearDown() override { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

  // F<n>.dat of R-byte records holding the rows' values.
  void WriteData(int number, int recordLength, std::vector<std::vector<float>> const& rows) {
    std::vector<std::vector<std::uint32_t>> words(rows.size());
    for (std::size_t k = 0; k < rows.size(); ++k) {
      for (float value : rows[k]) words[k].push_back(MbfWord(value));
    }
    dir_.WriteData(number, recordLength, words);
  }
  // Six entries: three with data (EUR/USD daily, .DJI 15-minute, USD/JPY
  // daily), one without a file, one with R = 0, one holding only its header.
  void WriteExport() {
    dir_.WriteMaster({{1, 24, 6, 'D', 0, "EUR/USD"},
                      {2, 28, 7, 'I', 15, ".DJI"},
                      {3, 24, 6, 'D', 0, "GONE"},
                      {4, 0, 6, 'D', 0, "ZERO"},
                      {5, 24, 6, 'D', 0, "EMPTY"},
                      {6, 24, 6, 'D', 0, "USD/JPY"}});
    WriteData(1, 24,
              {{1000103, 2.5f, 3, 2.25f, 2.75f, 1000}, {1000104, 2.75f, 3.5f, 2.5f, 3.25f, 2000}});
    WriteData(2, 28, {{1000229, 93000, 10500, 10600, 10400, 10550, 300}});
    WriteData(4, 24, {{1000103, 1, 1, 1, 1, 1}});
    WriteData(5, 24, {});
    WriteData(6, 24, {{991231, 105, 106, 104, 105.5f, 50}});
  }
  void Open() {
    convertor_.UpdatePath();
    convertor_.pressMenuItem(nullptr);
    ASSERT_NE(c().dialog, nullptr);
  }
  void Click(QPushButton* button) { QTest::mouseClick(button, Qt::LeftButton); }
  // Clicks the check box of the row as a user does.
  void ClickCheckBox(int row) {
    QStyleOptionViewItem option;
    option.initFrom(c().table->viewport());
    option.rect = c().table->visualItemRect(c().table->item(row, 0));
    option.features = QStyleOptionViewItem::HasCheckIndicator;
    const QRect box = c().table->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator,
                                                         &option, c().table);
    QTest::mouseClick(c().table->viewport(), Qt::LeftButton, {}, box.center());
  }
  ConvertorControls const& c() const { return convertor_.controls(); }
  QComboBox* priceTypeBox(int row) const {
    return qobject_cast<QComboBox*>(c().table->cellWidget(row, CConvertor::kPriceTypeColumn));
  }
  QStringList priceTypes(int row) const {
    QStringList texts;
    for (int i = 0; i < priceTypeBox(row)->count(); ++i) texts << priceTypeBox(row)->itemText(i);
    return texts;
  }
  QString cell(int row, int column) const { return c().table->item(row, column)->text(); }
  int checkState(int row) const {
    return c().table->item(row, 0)->data(Qt::CheckStateRole).toInt();
  }
  QList<int> checkStates() const { return {checkState(0), checkState(1), checkState(5)}; }
  ButtonStates buttons() const {
    return {c().selectAllButton->isEnabled(), c().deselectButton->isEnabled(),
            c().invertButton->isEnabled(), c().okButton->isEnabled()};
  }

  ExportDir dir_;
  FakeTarget target_;
  CConvertor convertor_{&target_, &TestModule()};
  QStringList chooserStarts_;  // every start directory the chooser was given
  QString chooserAnswer_;      // what it answers; empty: cancelled
};

TEST_F(ConvertorTest, MenuEntryIsRegisteredThroughTheHostMenuProtocol) {
  convertor_.CreateMenuConvertor();
  EXPECT_EQ(host.calls,
            QStringList({"3001: MAINWINDOW|QUENDAL| 1", "3002: MAINMENU|QUENDAL|quendalMainMenu 1",
                         "3001: MAINWINDOW|QUENDAL| 1", "5503: C0030Propes 0 3", "5500",
                         "5508: tr:M0150... owner 77"}));
}

TEST_F(ConvertorTest, DialogOpensOnTheMainWindowWithOnlyBrowseAndRejectUsable) {
  convertor_.setHostContext(nullptr);
  convertor_.pressMenuItem(nullptr);  // not connected: nothing is built or asked
  EXPECT_EQ(c().dialog, nullptr);
  EXPECT_TRUE(host.calls.isEmpty());

  convertor_.setHostContext(kContext);
  QWidget mainWindow;
  host.mainWindowId = mainWindow.winId();
  Open();  // an empty directory: the table is cleared
  CDialogConvertor* dialog = c().dialog;
  EXPECT_EQ(dialog->parentWidget(), &mainWindow);
  EXPECT_EQ(host.calls.value(1), "3502");
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
  for (int i = 0; i < c().table->columnCount(); ++i)
    headers << c().table->horizontalHeaderItem(i)->text();
  EXPECT_EQ(headers, QStringList({"", "tr:C0028Name", "tr:M0176", "tr:Tra0010", "tr:Tra0011",
                                  "tr:C0075Type"}));

  convertor_.pressMenuItem(nullptr);  // already open: the same dialog
  EXPECT_EQ(c().dialog, dialog);
  Click(c().rejectButton);
  EXPECT_FALSE(dialog->isVisible());
}

TEST_F(ConvertorTest, TableListsTheEntriesAndTheButtonsFollowTheirCheckStates) {
  WriteExport();
  Open();
  ASSERT_EQ(c().table->rowCount(), 6);
  for (int row : {2, 3, 4}) EXPECT_TRUE(c().table->isRowHidden(row)) << row;
  const std::pair<int, QStringList> visible[] = {
      {0, {"EUR/USD", "D", "03.01.00", "04.01.00"}},
      {1, {".DJI", "I  15", "29.02.00 09:30:00", "29.02.00 09:30:00"}},
      {5, {"USD/JPY", "D", "31.12.99", "31.12.99"}}};
  for (auto const& [row, texts] : visible) {
    SCOPED_TRACE(row);
    EXPECT_FALSE(c().table->isRowHidden(row));
    // Symbols as the index holds them: padded to 17 bytes.
    EXPECT_EQ(QStringList({cell(row, 1).trimmed(), cell(row, 2), cell(row, 3), cell(row, 4)}),
              texts);
    EXPECT_EQ(checkState(row), Qt::Checked);
    EXPECT_TRUE(c().table->item(row, 0)->flags() & Qt::ItemIsUserCheckable);
  }
  EXPECT_EQ(priceTypes(0), QStringList({"Bid", "Ask"}));
  EXPECT_EQ(priceTypes(1), QStringList({"Last", "Proc"}));
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));

  // The buttons follow the check states.
  ClickCheckBox(0);
  EXPECT_EQ(checkState(0), Qt::Unchecked);
  EXPECT_EQ(buttons(), (ButtonStates{true, true, true, true}));  // some checked

  Click(c().selectAllButton);
  EXPECT_EQ(checkState(0), Qt::Checked);
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));

  Click(c().deselectButton);  // clears every check
  EXPECT_EQ(checkStates(), QList<int>({0, 0, 0}));
  EXPECT_EQ(buttons(), (ButtonStates{true, false, true, false}));
  convertor_.change(0, 3);  // another column: no recount
  EXPECT_EQ(buttons(), (ButtonStates{true, false, true, false}));

  Click(c().invertButton);
  EXPECT_EQ(checkStates(), QList<int>({2, 2, 2}));
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));  // all checked

  ClickCheckBox(1);
  EXPECT_EQ(buttons(), (ButtonStates{true, true, true, true}));
  Click(c().invertButton);
  EXPECT_EQ(checkStates(), QList<int>({0, 2, 0}));
  ClickCheckBox(1);
  EXPECT_EQ(buttons(), (ButtonStates{true, false, true, false}));  // none checked
}

// Every column as wide as its contents; the price type is in view without
// scrolling, the long names are the symbols' tooltips.
TEST_F(ConvertorTest, ColumnsFitTheirContentsWithinTheTable) {
  WriteExport();
  Open();
  QTableWidget* table = c().table;
  EXPECT_GT(table->columnWidth(CConvertor::kPeriodColumn),
            table->fontMetrics().horizontalAdvance(cell(1, 2)));
  EXPECT_GE(table->columnWidth(CConvertor::kSymbolColumn), 60);
  const int typeEnd = table->columnViewportPosition(CConvertor::kPriceTypeColumn) +
                      table->columnWidth(CConvertor::kPriceTypeColumn);
  EXPECT_LE(typeEnd, table->viewport()->width());
  EXPECT_GE(table->columnWidth(CConvertor::kPriceTypeColumn), priceTypeBox(0)->sizeHint().width());
}

// 255 instruments in MASTER with EMASTER's long names, 45 in XMASTER: one row
// each, in that order, the long names as tooltips; every date column whole.
TEST_F(ConvertorTest, RowsOfMasterThenXmasterWithLongNames) {
  std::vector<ExportIndexRecord> master, extra;
  for (int number = 1; number <= 300; ++number) {
    ExportIndexRecord record{number, 24, 6, 'D', 0, "S" + QByteArray::number(number)};
    record.name = "Name " + QByteArray::number(number);
    (number <= 255 ? master : extra).push_back(record);
    const QString file =
        number <= 255 ? QString("F%1.dat").arg(number) : QString("F%1.MWD").arg(number);
    dir_.Write(file,
               EncodeDataFile(24, {{MbfWord(1000103), MbfWord(2.5f), 0, 0, MbfWord(2.75f), 0}}));
  }
  dir_.WriteMaster(master);
  dir_.Write("EMASTER", EncodeEmaster(master));
  dir_.Write("XMASTER", EncodeXmaster(extra));
  Open();
  ASSERT_EQ(c().table->rowCount(), 300);
  for (int row : {0, 254, 255, 299}) {
    EXPECT_FALSE(c().table->isRowHidden(row));
    EXPECT_EQ(cell(row, 1), QString("S%1").arg(row + 1));
    EXPECT_EQ(c().table->item(row, 1)->toolTip(), QString("Name %1").arg(row + 1));
    EXPECT_EQ(cell(row, 4), "03.01.00");
  }
  for (int column : {CConvertor::kFirstDateColumn, CConvertor::kLastDateColumn}) {
    EXPECT_GT(c().table->columnWidth(column),
              c().table->fontMetrics().horizontalAdvance("03.01.00"));
  }
  Click(c().okButton);
  EXPECT_EQ(target_.inserts.size(), 300u);
  EXPECT_EQ(target_.opened.value(299), "S300 Bid D0");
  EXPECT_EQ(convertor_.lastReport().Lines().value(299),
            "Imported S300 \"Name 300\" D Bid: 1 points");
}

TEST_F(ConvertorTest, DirectoryLineReadsADirectoryOrAsksForOne) {
  WriteExport();
  Open();
  const QString other = dir_.path() + QStringLiteral("/none");
  c().directoryLine->clear();
  QTest::keyClicks(c().directoryLine, other);
  QTest::keyClick(c().directoryLine, Qt::Key_Return);  // no index: the chooser; cancelled
  EXPECT_EQ(chooserStarts_, QStringList({dir_.path()}));
  EXPECT_EQ(c().table->rowCount(), 6);  // the table and the folder stay as they were
  EXPECT_EQ(convertor_.entries().size(), 6u);
  EXPECT_EQ(c().directoryLine->text(), dir_.path());
  EXPECT_EQ(convertor_.currentDir(), dir_.path());
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));

  chooserAnswer_ = dir_.path();
  Click(c().browseButton);
  EXPECT_EQ(c().table->rowCount(), 6);
  EXPECT_EQ(convertor_.currentDir(), dir_.path());

  QTest::keyClick(c().directoryLine, Qt::Key_Return);  // has MASTER: read at once
  EXPECT_EQ(chooserStarts_.size(), 2);
  EXPECT_EQ(c().table->rowCount(), 6);

  QDir(dir_.path()).mkpath("folder/MASTER");  // a folder named MASTER is no index
  convertor_.readMakeFile(dir_.path() + "/folder");
  EXPECT_EQ(c().table->rowCount(), 0);
  EXPECT_TRUE(c().reportView->isVisible());
  EXPECT_EQ(
      c().reportView->toPlainText(),
      "No importable instrument in " + QDir::toNativeSeparators(dir_.path() + "/folder") + ".");
  EXPECT_EQ(buttons(), (ButtonStates{false, false, false, false}));

  convertor_.readMakeFile(QStringLiteral("C:\\export\\daily"));
  EXPECT_EQ(c().directoryLine->text(), "C:/export/daily");
  EXPECT_EQ(convertor_.currentDir(), "C:\\export\\daily");
}

TEST_F(ConvertorTest, DefaultDirectoryComesFromTheHost) {
  EXPECT_EQ(convertor_.GetUserPath(), dir_.path());
  host.useWorkFolder = 1;
  EXPECT_EQ(convertor_.GetUserPath(), "/work/");
  EXPECT_EQ(host.calls.last(), "3506");
  host.useWorkFolder = 0;
  convertor_.setModule(nullptr);
  EXPECT_EQ(convertor_.GetUserPath(), "");
}

TEST_F(ConvertorTest, OkImportsTheCheckedRowsThenReports) {
  WriteExport();
  Open();
  ClickCheckBox(5);  // USD/JPY stays out
  priceTypeBox(1)->setCurrentIndex(1);
  int maximum = 0;
  target_.onOpen = [&] {
    EXPECT_TRUE(convertor_.isBusy());
    for (QWidget* w : std::initializer_list<QWidget*>{
             c().directoryLine, c().browseButton, c().table, c().selectAllButton,
             c().deselectButton, c().invertButton, c().okButton, c().rejectButton}) {
      EXPECT_FALSE(w->isEnabled());
    }
    EXPECT_FALSE(c().dialog->close());
    QTest::keyClick(c().dialog, Qt::Key_Escape);
    EXPECT_TRUE(c().dialog->isVisible());
    maximum = c().progressBar->maximum();
  };
  Click(c().okButton);

  EXPECT_EQ(maximum,
            QFileInfo(dir_.FilePath("F1.dat")).size() + QFileInfo(dir_.FilePath("F2.dat")).size());
  EXPECT_EQ(target_.opened, QStringList({"EUR/USD Bid D0", ".DJI Proc I15"}));
  ASSERT_EQ(target_.inserts.size(), 2u);
  EXPECT_EQ(target_.inserts[0].points,
            (std::vector<Candle>{{UtcSeconds(QDate(2000, 1, 3)), 2.5f, 3, 2.25f, 2.75f, 1000},
                                 {UtcSeconds(QDate(2000, 1, 4)), 2.75f, 3.5f, 2.5f, 3.25f, 2000}}));
  EXPECT_EQ(target_.inserts[1].points,
            (std::vector<Candle>{
                {UtcSeconds(QDate(2000, 2, 29), QTime(9, 30)), 10500, 10600, 10400, 10550, 300}}));
  EXPECT_EQ(target_.closed,
            (std::vector<void*>{target_.inserts[0].handle, target_.inserts[1].handle}));
  EXPECT_FALSE(convertor_.isBusy());

  // The report stands where the table was, and in the host log; only Reject
  // and the directory controls stay usable.
  const QStringList report = {"Imported EUR/USD D Bid: 2 points",
                              "Imported .DJI I15 Proc: 1 points",
                              "Skipped GONE D: missing data file F3.dat",
                              "Skipped ZERO D: unreadable records in F4.dat",
                              "Skipped EMPTY D: no records in F5.dat",
                              "Imported 2 instruments, 3 points stored; skipped 3."};
  EXPECT_TRUE(c().dialog->isVisible());
  EXPECT_TRUE(c().reportView->isVisible());
  EXPECT_FALSE(c().table->isVisible());
  EXPECT_EQ(c().reportView->toPlainText(), report.join('\n'));
  EXPECT_EQ(host.logs, report);
  EXPECT_EQ(c().dialog->property(CConvertor::kImportedProperty).toInt(), 2);
  EXPECT_EQ(buttons(), (ButtonStates{false, false, false, false}));
  EXPECT_TRUE(c().rejectButton->isEnabled() && c().browseButton->isEnabled() &&
              c().directoryLine->isEnabled());

  // Reading a directory again brings the table back.
  QTest::keyClick(c().directoryLine, Qt::Key_Return);
  EXPECT_TRUE(c().table->isVisible());
  EXPECT_FALSE(c().reportView->isVisible());
  EXPECT_EQ(buttons(), (ButtonStates{false, true, true, true}));
}

// Every data file missing or empty: the dialog says so and OK stays off.
TEST_F(ConvertorTest, AFolderWithoutImportableInstrumentsSaysSo) {
  dir_.WriteMaster({{1, 24, 6, 'D', 0, "GONE"}, {2, 24, 6, 'D', 0, "EMPTY"}});
  WriteData(2, 24, {});
  Open();
  const QStringList message = {
      "No importable instrument in " + QDir::toNativeSeparators(dir_.path()) + ".",
      "Skipped GONE D: missing data file F1.dat", "Skipped EMPTY D: no records in F2.dat"};
  EXPECT_TRUE(c().reportView->isVisible());
  EXPECT_EQ(c().reportView->toPlainText(), message.join('\n'));
  EXPECT_EQ(host.logs, message);
  EXPECT_EQ(buttons(), (ButtonStates{false, false, false, false}));
}

TEST_F(ConvertorTest, RowsTheStoreRefusesAreSkippedWithTheirReason) {
  WriteExport();
  Open();
  target_.throwOnFirstInsert = true;
  Click(c().okButton);
  EXPECT_EQ(target_.opened.size(), 3);
  EXPECT_EQ(target_.inserts.size(), 2u);  // the first one threw
  EXPECT_EQ(target_.closed.size(), 3u);   // its handle was closed all the same
  EXPECT_EQ(convertor_.lastReport().Lines().value(0), "Skipped EUR/USD D: refused by the store");
  Click(c().rejectButton);

  FakeTarget refusing;
  refusing.refuseOpen = true;
  convertor_.setTarget(&refusing);
  Open();
  Click(c().okButton);
  EXPECT_EQ(refusing.opened.size(), 3);
  EXPECT_TRUE(refusing.inserts.empty());
  EXPECT_TRUE(refusing.closed.empty());
  EXPECT_EQ(c().dialog->property(CConvertor::kImportedProperty).toInt(), 0);
  Click(c().rejectButton);

  FakeTarget otherLayout;  // symbols stored with tick records get no candles
  otherLayout.storedPointSize = 12;
  convertor_.setTarget(&otherLayout);
  Open();
  Click(c().okButton);
  EXPECT_EQ(otherLayout.opened.size(), 3);
  EXPECT_TRUE(otherLayout.inserts.empty());
  EXPECT_EQ(otherLayout.closed.size(), 3u);
  EXPECT_EQ(convertor_.lastReport().Lines().value(0),
            "Skipped EUR/USD D: stored before with another record size");
}

// Two entries with one symbol and period are each read with their own
// record length and field count.
TEST_F(ConvertorTest, DuplicateEntriesReadTheirOwnFieldsAndFiles) {
  dir_.WriteMaster({{1, 28, 7, 'D', 0, "DUP"}, {2, 20, 5, 'D', 0, "DUP"}});
  WriteData(1, 28, {{1000103, 2.5f, 3, 2.25f, 2.75f, 1000}});
  WriteData(2, 20, {{1000104, 5, 4.25f, 4.75f, 10}});
  Open();
  Click(c().okButton);
  ASSERT_EQ(target_.inserts.size(), 2u);
  EXPECT_EQ(target_.inserts[0].points,
            (std::vector<Candle>{{UtcSeconds(QDate(2000, 1, 3)), 2.5f, 3, 2.25f, 2.75f, 1000}}));
  EXPECT_EQ(target_.inserts[1].points,
            (std::vector<Candle>{{UtcSeconds(QDate(2000, 1, 4)), 4.75f, 5, 4.25f, 4.75f, 10}}));
}

}  // namespace

// Widgets need no display: offscreen unless the runner chose a platform.
int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  TestModule();  // the framework's module, before any test asks for it
  KeyTranslator translator;
  QApplication::installTranslator(&translator);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
