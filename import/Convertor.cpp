#include "Convertor.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRect>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTableWidget>
#include <QThread>
#include <algorithm>
#include <exception>
#include <initializer_list>
#include <limits>

#include "DialogConvertor.h"
#include "ExportDirectory.h"
#include "ImportTarget.h"
#include "LineEdit.h"
#include "Module.h"

namespace {

// Host menu protocol.
constexpr char kMainWindowInterface[] = "MAINWINDOW";
constexpr char kMainMenuInterface[] = "MAINMENU";
constexpr char kMenuMaker[] = "QUENDAL";
constexpr char kMainMenuName[] = "quendalMainMenu";
// Compat: the parent menu is named by its key, untranslated: hosts match the key.
constexpr char16_t kMenuParentKey[] = u"C0030Propes";
constexpr std::int32_t kMenuParentValue0 = 0;
constexpr std::int32_t kMenuParentValue1 = 3;
constexpr std::uint32_t kInterfaceRequestFlag = 1;
constexpr std::int32_t kHostSaysYes = 1;  // answer of UseWorkFolder
constexpr HostWord kNoWindow = static_cast<HostWord>(-1);
constexpr char kEllipsis[] = "...";

// Dialog geometry, in pixels.
constexpr int kDialogWidth = 420;
constexpr int kDialogHeight = 440;
constexpr int kLabelX = 10;
constexpr int kLabelY = 10;
constexpr int kLabelWidth = 250;
constexpr QRect kDirectoryLineRect(10, 40, 355, 20);
constexpr QRect kBrowseButtonRect(370, 40, 40, 20);
constexpr QRect kTableRect(10, 80, 400, 240);
constexpr QRect kSelectAllRect(10, 330, 120, 25);
constexpr QRect kDeselectRect(150, 330, 120, 25);
constexpr QRect kInvertRect(290, 330, 120, 25);
constexpr QRect kProgressBarRect(10, 365, 400, 20);
constexpr QRect kOkRect(80, 400, 100, 25);
constexpr QRect kRejectRect(240, 400, 100, 25);

constexpr Qt::WindowFlags kDialogFlags = Qt::Dialog | Qt::WindowTitleHint |
                                         Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint |
                                         Qt::MSWindowsFixedSizeDialogHint;

// Price types offered for a symbol, and for an index symbol (a leading ".").
constexpr const char* kQuotePriceTypes[] = {"Bid", "Ask"};
constexpr const char* kIndexPriceTypes[] = {"Last", "Proc"};
constexpr QChar kIndexSymbolMark = QLatin1Char('.');

constexpr int kPumpMs = 100;                           // longest event processing per progress step
constexpr int kProgressIntervalMs = 50;                // shortest time between two progress steps
constexpr int kNarrowestSymbolColumn = 60;             // the symbol column gives way down to this
constexpr char kWidestDate[] = "00.00.00";             // what a date column keeps in view
constexpr int kCellPadding = 12;                       // a cell's margins around its text
constexpr coreLogMsgLevel kReportLevel = LOG_LEVEL_3;  // the host log's level of the report

template <std::size_t N>
QStringList Texts(const char* const (&texts)[N]) {
  QStringList list;
  for (const char* text : texts) list << QString::fromLatin1(text);
  return list;
}

QTableWidgetItem* TextItem(QString const& text) {
  auto* item = new QTableWidgetItem(text);
  item->setFlags(Qt::ItemIsEnabled);
  return item;
}

QTableWidgetItem* CheckItem() {
  auto* item = new QTableWidgetItem();
  item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
  item->setCheckState(Qt::Checked);
  return item;
}

// Widgets need the application object and its thread.
bool CanBuildWidgets() {
  return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr &&
         QThread::currentThread() == QCoreApplication::instance()->thread();
}

QString DefaultChooser(QWidget* parent, QString const& start) {
  return QFileDialog::getExistingDirectory(parent, QString(), start, QFileDialog::ShowDirsOnly);
}

}  // namespace

CConvertor::CConvertor(ImportTarget* target, CModule* module)
    : dir_(QDir::currentPath()), target_(target), module_(module), chooser_(&DefaultChooser) {}

CConvertor::~CConvertor() { delete controls_.dialog.data(); }

QString CConvertor::text(const char* key) const {
  return module_ != nullptr ? module_->tr(key) : QString::fromLatin1(key);
}

int CConvertor::callHost(unsigned int message, HostArg a, HostArg b) const {
  if (module_ == nullptr || module_->callback() == nullptr) return 0;
  return module_->callback()(hostContext_, message, a, b);
}

// ---------------------------------------------------------------------------
// Host menu.

// The record's text fields by offset: first at 0, third at 255, second at 510.
void CConvertor::sendInterfaceRequest(unsigned int message, const char* first, const char* third,
                                      const char* second) {
  INTERFACE_REQUEST_RECORD record{};
  CopyHostName(record.first, kHostNameField, QString::fromLatin1(first));
  CopyHostName(record.third, kHostNameField, QString::fromLatin1(third));
  CopyHostName(record.second, kHostNameField, QString::fromLatin1(second));
  record.one = kInterfaceRequestFlag;
  callHost(message, reinterpret_cast<HostArg>(&record), 0);
}

void CConvertor::CreateMenuConvertor() {
  sendInterfaceRequest(HostMessage::GetInterface, kMainWindowInterface, kMenuMaker, "");
  sendInterfaceRequest(HostMessage::GetMainMenu, kMainMenuInterface, kMenuMaker, kMainMenuName);
  sendInterfaceRequest(HostMessage::GetInterface, kMainWindowInterface, kMenuMaker, "");

  MENU_PARENT_RECORD parent{};
  hostfield::SetWideText(&parent.parentKey, kMenuParentKey);
  parent.value0 = kMenuParentValue0;
  parent.value1 = kMenuParentValue1;
  callHost(HostMessage::SetMenuParent, reinterpret_cast<HostArg>(&parent), 0);
  callHost(HostMessage::RefreshMenu, 0, 0);

  mm_menu_item item{};
  hostfield::SetWideText(&item.text, (text("M0150") + QLatin1String(kEllipsis)).toStdU16String());
  item.owner = module_ != nullptr ? module_->moduleHandle() : 0;
  callHost(HostMessage::AddMenuItem, reinterpret_cast<HostArg>(&item), 0);
}

QString CConvertor::GetUserPath() const {
  std::int32_t useWorkFolder = 0;
  callHost(HostMessage::UseWorkFolder, reinterpret_cast<HostArg>(&useWorkFolder), 0);
  auto folder = [](std::function<QString()> const& lookup) {
    return lookup ? lookup() : QString();
  };
  if (useWorkFolder == kHostSaysYes) return folder(folders_.workFolder) + QLatin1Char('/');
  if (module_ == nullptr) return QString();
  return folder(folders_.importFolder);
}

// ---------------------------------------------------------------------------
// The dialog.

QWidget* CConvertor::mainWindow() const {
  HostWord windowId = kNoWindow;
  callHost(HostMessage::GetMainWindowId, reinterpret_cast<HostArg>(&windowId), 0);
  return QWidget::find(static_cast<WId>(windowId));
}

void CConvertor::pressMenuItem(mm_menu_item*) {
  if (hostContext_ == nullptr || !CanBuildWidgets()) return;
  if (hasDialog() && controls_.dialog->isVisible()) {
    controls_.dialog->raise();
    controls_.dialog->activateWindow();
    return;
  }
  buildDialog(mainWindow());
  controls_.dialog->setWindowModality(Qt::ApplicationModal);
  controls_.dialog->show();
  loading_ = 1;
  readMakeFile(dir_);
}

void CConvertor::buildDialog(QWidget* parent) {
  const QString title = text("M0150");
  auto* dialog =
      new CDialogConvertor(this, parent, title.toLocal8Bit().constData(), true, kDialogFlags);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFixedSize(kDialogWidth, kDialogHeight);
  dialog->activateWindow();
  dialog->setWindowTitle(title);
  controls_ = ConvertorControls{};
  controls_.dialog = dialog;
  buildDirectoryRow();
  buildTable();
  buildButtons();
}

void CConvertor::buildDirectoryRow() {
  CDialogConvertor* dialog = controls_.dialog;
  controls_.label = new QLabel(text("C0110") + QLatin1Char(':'), dialog);
  controls_.label->setGeometry(kLabelX, kLabelY, kLabelWidth, controls_.label->sizeHint().height());
  controls_.directoryLine = new CLineEdit(dir_, dialog);
  controls_.directoryLine->setGeometry(kDirectoryLineRect);
  connect(controls_.directoryLine, &QLineEdit::returnPressed, this, &CConvertor::lineEditPressed);
  controls_.browseButton =
      addButton(QLatin1String(kEllipsis), kBrowseButtonRect, &CConvertor::selectDir, true);
}

void CConvertor::buildTable() {
  auto* table = new QTableWidget(0, kColumnCount, controls_.dialog);
  table->setGeometry(kTableRect);
  table->setHorizontalHeaderLabels({QString(), text("C0028Name"), text("M0176"), text("Tra0010"),
                                    text("Tra0011"), text("C0075Type")});
  table->setShowGrid(false);
  table->setSelectionMode(QAbstractItemView::NoSelection);
  table->setEditTriggers(QAbstractItemView::NoEditTriggers);
  table->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
  table->verticalScrollBar()->setContextMenuPolicy(Qt::NoContextMenu);
  table->horizontalScrollBar()->setContextMenuPolicy(Qt::NoContextMenu);
  table->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
  table->verticalHeader()->setSectionResizeMode(QHeaderView::Interactive);
  table->verticalHeader()->hide();  // row numbers would take the price type's room
  table->setWordWrap(false);        // a narrowed date column elides, rows stay one line high
  connect(table, &QTableWidget::cellChanged, this, &CConvertor::change);
  controls_.table = table;
  controls_.reportView = new QPlainTextEdit(controls_.dialog);
  controls_.reportView->setGeometry(kTableRect);
  controls_.reportView->setReadOnly(true);
  controls_.reportView->hide();
}

void CConvertor::buildButtons() {
  controls_.selectAllButton =
      addButton(text("M0177"), kSelectAllRect, &CConvertor::selectAll, false);
  controls_.deselectButton =
      addButton(text("C0042SelectOff"), kDeselectRect, &CConvertor::unSelectAll, false);
  controls_.invertButton = addButton(text("C0111"), kInvertRect, &CConvertor::inversAll, false);
  controls_.progressBar = new QProgressBar(controls_.dialog);
  controls_.progressBar->setGeometry(kProgressBarRect);
  controls_.progressBar->setAlignment(Qt::AlignCenter);
  controls_.okButton = addButton(text("C0049Ok"), kOkRect, &CConvertor::readFile, false);
  controls_.rejectButton =
      addButton(text("Tr0019Reject"), kRejectRect, &CConvertor::closeConvertor, true);
}

QPushButton* CConvertor::addButton(QString const& label, QRect const& geometry,
                                   void (CConvertor::*slot)(), bool enabled) {
  auto* button = new QPushButton(label, controls_.dialog);
  button->setGeometry(geometry);
  button->setEnabled(enabled);
  button->setAutoDefault(false);  // Return in the directory line presses no button
  connect(button, &QPushButton::clicked, this, slot);
  return button;
}

void CConvertor::closeConvertor() {
  if (hasDialog()) controls_.dialog->close();
}

// ---------------------------------------------------------------------------
// Directory.

// The directory is shown with slashes and opened as given. An index that
// cannot be held in memory is treated as a missing one; one that exists but
// does not open leaves the table as it was.
void CConvertor::readMakeFile(QString dir) {
  dir_ = dir;
  if (hasDialog())
    controls_.directoryLine->setText(dir.replace(QLatin1Char('\\'), QLatin1Char('/')));
  // A folder without an index reads as one without entries: InitTable says so.
  if (!loadIndex()) {
    clearTable();
    sayNothingImports();
  }
  loading_ = 0;
}

bool CConvertor::loadIndex() {
  try {
    entries_ = ReadExportIndex(dir_);
    InitTable();
    return true;
  } catch (std::exception const&) {
    return false;
  }
}

void CConvertor::lineEditPressed() {
  if (!hasDialog()) return;
  const QString typed = controls_.directoryLine->text();
  if (IndexExists(typed)) {
    readMakeFile(typed);
  } else {
    selectDir();
  }
}

void CConvertor::selectDir() {
  const QString chosen = chooser_ ? chooser_(controls_.dialog, dir_) : QString();
  if (!chosen.isEmpty()) {
    readMakeFile(chosen);
  } else if (hasDialog()) {
    controls_.directoryLine->setText(QString(dir_).replace(QLatin1Char('\\'), QLatin1Char('/')));
  }
}

// ---------------------------------------------------------------------------
// Table.

int CConvertor::entryRows() const {
  return std::min(controls_.table->rowCount(), static_cast<int>(entries_.size()));
}

// Filled with the table's signals held and its painting paused: thousands of
// rows cost one layout.
void CConvertor::InitTable() {
  if (!hasDialog()) return;
  QTableWidget* table = controls_.table;
  {
    const QSignalBlocker blocker(table);
    table->setUpdatesEnabled(false);
    table->setRowCount(0);
    table->setRowCount(static_cast<int>(entries_.size()));
    rowProblems_.assign(entries_.size(), ConversionOutcome::kConverted);
    for (int row = 0; row < entryRows(); ++row) fillRow(row);
    fitColumns();
    table->setUpdatesEnabled(true);
  }
  showTable();
  setSelectionButtons(false, true, true);
  controls_.invertButton->setEnabled(true);
  const bool anyShown = std::any_of(
      rowProblems_.begin(), rowProblems_.end(),
      [](ConversionOutcome problem) { return problem == ConversionOutcome::kConverted; });
  if (!anyShown) sayNothingImports();
}

void CConvertor::fillRow(int row) {
  const IndexEntry& entry = entries_[static_cast<std::size_t>(row)];
  const DataFileSpan span =
      ReadDataFileSpan(entry.dataFile, entry.recordLength, entry.periodLetter);
  ConversionOutcome& problem = rowProblems_[static_cast<std::size_t>(row)];
  if (entry.dataFile.isEmpty()) {
    problem = ConversionOutcome::kMissingFile;
  } else if (entry.recordLength == 0) {
    problem = ConversionOutcome::kUnreadableRecords;
  } else if (span.records == 0) {
    problem = ConversionOutcome::kNoRecords;
  }
  if (problem != ConversionOutcome::kConverted) {
    controls_.table->setRowHidden(row, true);
    return;
  }
  auto* priceTypes = new QComboBox();
  priceTypes->addItems(entry.symbol.startsWith(kIndexSymbolMark) ? Texts(kIndexPriceTypes)
                                                                 : Texts(kQuotePriceTypes));
  priceTypes->setCurrentIndex(0);
  controls_.table->setCellWidget(row, kPriceTypeColumn, priceTypes);
  controls_.table->setItem(row, kCheckColumn, CheckItem());
  QTableWidgetItem* symbol = TextItem(entry.symbol);
  symbol->setToolTip(entry.fullName);
  controls_.table->setItem(row, kSymbolColumn, symbol);
  controls_.table->setItem(row, kPeriodColumn, TextItem(entry.periodText()));
  for (auto [column, text] :
       {std::pair{kFirstDateColumn, span.first}, std::pair{kLastDateColumn, span.last}}) {
    QTableWidgetItem* date = TextItem(text);
    date->setToolTip(text);
    controls_.table->setItem(row, column, date);
  }
}

// Every column as wide as its cells and its header. When they do not fit
// beside the vertical scroll bar, the date columns give way first, down to
// their dates (the times are elided, the cells' tooltips hold them), then the
// symbol column (its tooltip holds the long name): the price type stays in view.
void CConvertor::fitColumns() {
  QTableWidget* table = controls_.table;
  table->resizeColumnsToContents();
  const int dateWidth =
      table->fontMetrics().horizontalAdvance(QString::fromLatin1(kWidestDate)) + kCellPadding;
  for (int column : {kFirstDateColumn, kLastDateColumn, kLastDateColumn})
    giveWay(column, dateWidth);
  giveWay(kSymbolColumn, kNarrowestSymbolColumn);
}

// Narrows the column by what the columns exceed the table, down to `narrowest`;
// the first date column takes half of the excess, the last one the rest.
void CConvertor::giveWay(int column, int narrowest) {
  QTableWidget* table = controls_.table;
  const int excess = columnsExcess();
  if (excess <= 0) return;
  const int share = column == kFirstDateColumn ? (excess + 1) / 2 : excess;
  const int width = table->columnWidth(column);
  table->setColumnWidth(column, std::max(std::min(width, narrowest), width - share));
}

int CConvertor::columnsExcess() const {
  const QTableWidget* table = controls_.table;
  const int available =
      table->width() - 2 * table->frameWidth() - table->verticalScrollBar()->sizeHint().width();
  int used = 0;
  for (int column = 0; column < kColumnCount; ++column) used += table->columnWidth(column);
  return used - available;
}

void CConvertor::showTable() {
  controls_.reportView->hide();
  controls_.table->show();
}

void CConvertor::showReport(QStringList const& lines) {
  controls_.reportView->setPlainText(lines.join(QLatin1Char('\n')));
  controls_.table->hide();
  controls_.reportView->show();
}

// The folder's entries that cannot be imported, each with its reason; the
// same lines go to the host log.
void CConvertor::sayNothingImports() {
  ImportReport reasons;
  for (std::size_t k = 0; k < entries_.size() && k < rowProblems_.size(); ++k) {
    reasons.AddSkipped(entries_[k], rowProblems_[k]);
  }
  QStringList lines{
      QStringLiteral("No importable instrument in %1.").arg(QDir::toNativeSeparators(dir_))};
  lines += reasons.Lines().mid(0, reasons.skipped());
  for (QString const& line : lines) logReport(line);
  if (!hasDialog()) return;
  setSelectionButtons(false, false, false);
  controls_.invertButton->setEnabled(false);
  showReport(lines);
}

void CConvertor::clearTable() {
  entries_.clear();
  rowProblems_.clear();
  if (!hasDialog()) return;
  controls_.table->setRowCount(0);
  setSelectionButtons(false, false, false);
  controls_.invertButton->setEnabled(false);
}

bool CConvertor::isRowChecked(int row) const {
  const QTableWidgetItem* item = controls_.table->item(row, kCheckColumn);
  return item != nullptr && item->checkState() == Qt::Checked;
}

bool CConvertor::isRowSelected(int row) const {
  return !controls_.table->isRowHidden(row) && isRowChecked(row);
}

void CConvertor::setSelectionButtons(bool selectAll, bool deselect, bool ok) {
  controls_.selectAllButton->setEnabled(selectAll);
  controls_.deselectButton->setEnabled(deselect);
  controls_.okButton->setEnabled(ok);
}

// One recount at the caller's end instead of one per row: the table's
// signals are held while the states are written.
void CConvertor::setCheckStates(CheckChange change) {
  const QSignalBlocker blocker(controls_.table);
  for (int row = 0; row < controls_.table->rowCount(); ++row) {
    QTableWidgetItem* item = controls_.table->item(row, kCheckColumn);
    if (controls_.table->isRowHidden(row) || item == nullptr) continue;
    const bool check = change == CheckChange::kInvert ? item->checkState() == Qt::Unchecked
                                                      : change == CheckChange::kCheck;
    item->setCheckState(check ? Qt::Checked : Qt::Unchecked);
  }
}

void CConvertor::selectAll() {
  if (!hasDialog()) return;
  setCheckStates(CheckChange::kCheck);
  setSelectionButtons(false, true, true);
}

void CConvertor::unSelectAll() {
  if (!hasDialog()) return;
  setCheckStates(CheckChange::kUncheck);
  setSelectionButtons(true, false, false);
}

void CConvertor::inversAll() {
  if (!hasDialog()) return;
  setCheckStates(CheckChange::kInvert);
  change(0, kCheckColumn);
}

void CConvertor::change(int, int column) {
  if (column != kCheckColumn || !hasDialog()) return;
  int visible = 0;
  int checked = 0;
  for (int row = 0; row < controls_.table->rowCount(); ++row) {
    if (controls_.table->isRowHidden(row)) continue;
    ++visible;
    if (isRowChecked(row)) ++checked;
  }
  if (checked == visible) {
    setSelectionButtons(false, true, true);
  } else if (checked == 0) {
    setSelectionButtons(true, false, false);
  } else {
    setSelectionButtons(true, true, true);
  }
}

// ---------------------------------------------------------------------------
// Import.

void CConvertor::setControlsEnabled(bool enabled) {
  const ConvertorControls& c = controls_;
  for (QWidget* control : std::initializer_list<QWidget*>{
           c.browseButton, c.selectAllButton, c.deselectButton, c.invertButton, c.okButton,
           c.rejectButton, c.directoryLine, c.table}) {
    control->setEnabled(enabled);
  }
}

std::int64_t CConvertor::selectedBytes() const {
  std::int64_t total = 0;
  for (int row = 0; row < entryRows(); ++row) {
    if (isRowSelected(row))
      total += QFileInfo(entries_[static_cast<std::size_t>(row)].dataFile).size();
  }
  return total;
}

void CConvertor::readFile() {
  if (!hasDialog()) return;
  setControlsEnabled(false);
  busy_ = 1;
  report_ = ImportReport{};
  const std::int64_t total = selectedBytes();
  progressScale_ = total / std::numeric_limits<int>::max() + 1;
  progressDone_ = 0;
  controls_.progressBar->setRange(0, static_cast<int>(total / progressScale_));
  controls_.progressBar->setValue(0);
  for (int row = 0; hasDialog() && row < entryRows(); ++row) {
    const ConversionOutcome problem = rowProblems_[static_cast<std::size_t>(row)];
    if (problem != ConversionOutcome::kConverted) {
      report_.AddSkipped(entries_[static_cast<std::size_t>(row)], problem);
    } else if (isRowChecked(row)) {
      importRow(row);
    }
  }
  busy_ = 0;
  finishImport();
}

QString CConvertor::priceType(int row) const {
  const auto* box =
      qobject_cast<const QComboBox*>(controls_.table->cellWidget(row, kPriceTypeColumn));
  return box != nullptr ? box->currentText() : QString();
}

void CConvertor::importRow(int row) {
  IndexEntry const& entry = entries_[static_cast<std::size_t>(row)];
  std::int64_t bytesRead = 0;
  ConversionOutcome outcome = ConversionOutcome::kRefusedByStore;
  ConvertedInstrument instrument;
  try {
    outcome = ConvertInstrument(entry, priceType(row), instrument,
                                [this, &bytesRead](std::int64_t bytes) {
                                  bytesRead = bytes;
                                  showProgress(progressDone_ + bytes);
                                });
    if (outcome == ConversionOutcome::kConverted) outcome = store(instrument);
  } catch (std::bad_alloc const&) {
    outcome = ConversionOutcome::kOutOfMemory;
  } catch (std::exception const&) {
    outcome = ConversionOutcome::kRefusedByStore;
  }
  progressDone_ += bytesRead;
  if (outcome == ConversionOutcome::kConverted) {
    report_.AddImported(entry, priceType(row), instrument.pointCount, instrument.skippedRecords);
  } else {
    report_.AddSkipped(entry, outcome);
  }
}

ConversionOutcome CConvertor::store(ConvertedInstrument& instrument) {
  if (target_ == nullptr) return ConversionOutcome::kRefusedByStore;
  void* handle = nullptr;
  target_->OpenSymbol(&instrument.request, &handle);
  if (handle == nullptr) return ConversionOutcome::kRefusedByStore;
  ConversionOutcome outcome = ConversionOutcome::kConverted;
  if (!target_->AcceptsPoints(handle, instrument.pointSize)) {
    outcome = ConversionOutcome::kStoredWithOtherRecordSize;
  } else {
    insertRequest_ = INSERT_SYMBOL_DATA_REQUEST{};
    insertRequest_.handle = reinterpret_cast<HostWord>(handle);
    insertRequest_.number = instrument.pointCount;
    insertRequest_.data = reinterpret_cast<HostWord>(instrument.points.data());
    try {
      target_->InsertSymbolDataPost(&insertRequest_);
    } catch (std::exception const&) {
      outcome = ConversionOutcome::kRefusedByStore;  // the handle is still closed below
    }
  }
  target_->CloseSymbol(handle);
  return outcome;
}

// The bar moves at most every kProgressIntervalMs, across files: an import of
// many small files repaints no more often than one of a big file.
void CConvertor::showProgress(std::int64_t bytes) {
  if (!hasDialog()) return;
  const auto now = std::chrono::steady_clock::now();
  if (now - lastProgress_ < std::chrono::milliseconds(kProgressIntervalMs)) return;
  lastProgress_ = now;
  controls_.progressBar->setValue(static_cast<int>(bytes / progressScale_));
  QCoreApplication::processEvents(QEventLoop::AllEvents, kPumpMs);
  if (hasDialog()) controls_.dialog->repaint();
}

void CConvertor::logReport(QString const& line) const {
  if (module_ != nullptr && module_->GetLog() != nullptr)
    module_->GetLog()->ShowLogInfo(LOG_TYPE_1, kReportLevel, line);
}

// The report replaces the table; the user closes the dialog or reads
// another directory.
void CConvertor::finishImport() {
  const QStringList lines = report_.Lines();
  for (QString const& line : lines) logReport(line);
  if (!hasDialog()) return;
  controls_.dialog->setProperty(kImportedProperty, report_.imported());
  controls_.progressBar->setValue(controls_.progressBar->maximum());
  showReport(lines);
  for (QWidget* control : std::initializer_list<QWidget*>{
           controls_.rejectButton, controls_.directoryLine, controls_.browseButton}) {
    control->setEnabled(true);
  }
}
