#include "DataWindow.h"

#include <QHeaderView>
#include <QLabel>
#include <QPainter>
#include <QSplitter>
#include <QTableWidget>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <QVBoxLayout>
#include <charconv>
#include <cstring>
#include <utility>

#include "PriceChart.h"
#include "RecordCsv.h"
#include "SymbolQuery.h"

// The chosen symbol's chart, drawn to the widget's size.
class ChartView : public QWidget {
 public:
  void setChart(ChartSeries series, QString title) {
    series_ = std::move(series);
    title_ = std::move(title);
    update();
  }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    DrawChart(painter, rect(), series_, title_);
  }

 private:
  ChartSeries series_;  // what is drawn
  QString title_;       // above it
};

namespace {

constexpr int kProviderRole = Qt::UserRole;    // item data: index into the providers
constexpr int kSymbolRole = Qt::UserRole + 1;  // item data: index into their symbols
constexpr int kTreeWidth = 280;                // the tree's share of the window at first
constexpr int kViewsWidth = 900;               // the chart's and the table's
constexpr int kChartHeight = 360;              // the chart's share of the right side
constexpr int kTableHeight = 240;              // the table's
constexpr int kValueText = 32;                 // bytes of a float's shortest text
constexpr int kRowPadding = 6;                 // of a table row, beyond its text

// The shortest text that reads back as the same float, as get writes it.
QString ValueText(float value) {
  char text[kValueText];
  const auto [end, status] = std::to_chars(text, text + sizeof text, value);
  return QString::fromLatin1(text, status == std::errc() ? end - text : 0);
}

QTableWidgetItem* Cell(const QString& text) {
  auto* item = new QTableWidgetItem(text);
  item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
  return item;
}

// The records into the table, a row each: time, then one column per view.
void FillTable(QTableWidget& table, const RecordLayout& layout,
               const std::vector<unsigned char>& records) {
  QStringList header{QStringLiteral("time")};
  for (const std::string& view : layout.views) header << QString::fromStdString(view);
  const std::size_t size = layout.recordSize();
  table.setColumnCount(int(header.size()));
  table.setHorizontalHeaderLabels(header);
  table.setRowCount(int(records.size() / size));
  for (int row = 0; row < table.rowCount(); ++row) {
    const unsigned char* record = records.data() + row * size;
    std::int32_t time = 0;
    std::memcpy(&time, record, sizeof time);
    table.setItem(row, 0, Cell(QString::fromStdString(FormatTime(time))));
    for (std::size_t view = 0; view < layout.views.size(); ++view) {
      float value = 0;
      std::memcpy(&value, record + kRecordTimeBytes + view * kRecordValueBytes, sizeof value);
      table.setItem(row, int(view) + 1, Cell(ValueText(value)));
    }
  }
  table.resizeColumnsToContents();
  table.scrollToBottom();
}

// The symbol's request and record layout.
bool MakeTarget(const std::string& provider, const StoredSymbol& symbol, Target* target,
                std::string* error) {
  SYMBOL_PERIOD period{};
  if (!ParsePeriod(symbol.period, &period, error)) return false;
  target->layout = LayoutOf(period);
  return MakeSymbolRequest(provider, symbol.name.toStdU16String(), symbol.code, period,
                           &target->request, error);
}

}  // namespace

DataWindow::DataWindow(ModuleHost& host, const QString& dataFolder, const std::string& hostProvider,
                       QWidget* parent)
    : QWidget(parent),
      host_(host),
      dataFolder_(dataFolder),
      hostProvider_(hostProvider),
      tree_(new QTreeWidget),
      chart_(new ChartView),
      status_(new QLabel),
      table_(new QTableWidget) {
  tree_->setHeaderLabels(
      {QStringLiteral("Symbol"), QStringLiteral("Period"), QStringLiteral("Code")});
  tree_->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
  table_->verticalHeader()->hide();
  table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + kRowPadding);
  auto* records = new QWidget;
  auto* recordsLayout = new QVBoxLayout(records);
  recordsLayout->setContentsMargins(0, 0, 0, 0);
  recordsLayout->addWidget(status_);
  recordsLayout->addWidget(table_);
  auto* views = new QSplitter(Qt::Vertical);
  views->addWidget(chart_);
  views->addWidget(records);
  views->setSizes({kChartHeight, kTableHeight});
  auto* sides = new QSplitter(Qt::Horizontal);
  sides->addWidget(tree_);
  sides->addWidget(views);
  sides->setSizes({kTreeWidth, kViewsWidth});
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(sides);
  connect(tree_, &QTreeWidget::currentItemChanged, this,
          [this](QTreeWidgetItem* current) { showSymbol(current); });
  refresh();
}

void DataWindow::refresh() {
  list();
  QTreeWidgetItem* chosen = nullptr;
  for (QTreeWidgetItemIterator it(tree_); *it != nullptr && chosen == nullptr; ++it) {
    const StoredSymbol* symbol = symbolOf(*it);
    if (symbol != nullptr && symbol->path == chosen_) chosen = *it;
  }
  {
    const QSignalBlocker blocker(tree_);
    tree_->setCurrentItem(chosen);
  }
  showSymbol(chosen);
}

bool DataWindow::selectFirstSymbol() {
  for (QTreeWidgetItemIterator it(tree_); *it != nullptr; ++it) {
    if (symbolOf(*it) == nullptr) continue;
    tree_->setCurrentItem(*it);
    return true;
  }
  return false;
}

void DataWindow::list() {
  const QSignalBlocker blocker(tree_);
  tree_->clear();
  providers_ = ListSymbols(dataFolder_);
  for (std::size_t p = 0; p < providers_.size(); ++p) {
    auto* provider = new QTreeWidgetItem(tree_, {QString::fromLocal8Bit(providers_[p].provider)});
    provider->setData(0, kProviderRole, qulonglong(p));
    provider->setFirstColumnSpanned(true);
    for (std::size_t s = 0; s < providers_[p].symbols.size(); ++s) {
      const StoredSymbol& symbol = providers_[p].symbols[s];
      auto* item =
          new QTreeWidgetItem(provider, {symbol.name, QString::fromStdString(symbol.period),
                                         QString::fromLocal8Bit(symbol.code)});
      item->setData(0, kProviderRole, qulonglong(p));
      item->setData(0, kSymbolRole, qulonglong(s));
    }
  }
  tree_->expandAll();
}

void DataWindow::showSymbol(const QTreeWidgetItem* item) {
  const StoredSymbol* symbol = symbolOf(item);
  table_->clear();
  table_->setRowCount(0);
  table_->setColumnCount(0);
  if (symbol == nullptr) {
    chosen_.clear();
    chart_->setChart({}, QString());
    status_->setText(QStringLiteral("Choose a symbol."));
    return;
  }
  chosen_ = symbol->path;
  const std::string& provider = providerOf(item);
  const QString title = ChartTitle(symbol->name, QString::fromStdString(symbol->period),
                                   QString::fromLocal8Bit(symbol->code));
  Target target;
  std::vector<unsigned char> records;
  std::string error;
  bool read = MakeTarget(provider, *symbol, &target, &error);
  if (read) {
    host_.setDataSource(provider);
    read = ReadRecords(host_, target, {kGetNewest, 0, 0, kShownRecords}, &records, &error);
    host_.setDataSource(hostProvider_);
  }
  if (!read) {
    chart_->setChart({}, title);
    status_->setText(
        QStringLiteral("Cannot read %1: %2").arg(title, QString::fromStdString(error)));
    return;
  }
  chart_->setChart(SeriesOf(target.layout, records), title);
  FillTable(*table_, target.layout, records);
  status_->setText(QStringLiteral("%1 / %2: the newest %3 records, oldest first")
                       .arg(QString::fromLocal8Bit(provider), title)
                       .arg(table_->rowCount()));
}

const StoredSymbol* DataWindow::symbolOf(const QTreeWidgetItem* item) const {
  if (item == nullptr || !item->data(0, kSymbolRole).isValid()) return nullptr;
  return &providers_[item->data(0, kProviderRole).toULongLong()]
              .symbols[item->data(0, kSymbolRole).toULongLong()];
}

const std::string& DataWindow::providerOf(const QTreeWidgetItem* item) const {
  return providers_[item->data(0, kProviderRole).toULongLong()].provider;
}
