// The data window over a data folder that the built dshost imported a sample
// into, its records read through the built module loaded as dshost loads it.

#include <QApplication>
#include <QLabel>
#include <QTableWidget>
#include <QTreeWidget>
#include <cstring>
#include <string>
#include <vector>

#include "DataWindow.h"
#include "ProgramRun.h"
#include "RecordCsv.h"
#include "SymbolQuery.h"

namespace {

constexpr const char* kImportProvider = "QUENDAL";  // where dshost import stores
constexpr const char* kHostProvider = "dshost";     // what the host reports otherwise
constexpr std::int32_t kDay = 86400;

class DataWindowTest : public ProgramTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(run("'" EXPORT_GENERATOR_PATH "' --out export --sample").status, 0);
    ASSERT_EQ(
        run("'" DSHOST_PATH "' --module '" DATASTORE_MODULE_PATH "' --data data import export")
            .status,
        0);
    ASSERT_TRUE(host_.load(DATASTORE_MODULE_PATH)) << host_.error();
    const std::u16string data = (dir_ / "data").u16string();
    for (std::uint32_t folder : {VD_FOLDER_CONFIG, VD_FOLDER_DATA, VD_FOLDER_IMPORT}) {
      host_.setFolder(folder, data);
    }
    host_.setWorkFolder(data);
    host_.setDataSource(kHostProvider);
    host_.setLanguages({{"English", true}});
    host_.initialize();
    host_.send(HostMessage::InitModule);
    host_.send(HostMessage::Start);
  }

  QString dataFolder() const { return QString::fromStdString((dir_ / "data").string()); }

  Target target(const char* name, const char* period, const char* code) {
    Target made;
    SYMBOL_PERIOD parsed{};
    std::string error;
    EXPECT_TRUE(ParsePeriod(period, &parsed, &error));
    made.layout = LayoutOf(parsed);
    EXPECT_TRUE(MakeSymbolRequest(kImportProvider, QString::fromUtf8(name).toStdU16String(), code,
                                  parsed, &made.request, &error));
    return made;
  }

  // The newest records the module holds of the importer's symbol.
  std::vector<unsigned char> newest(const char* name, const char* period, const char* code) {
    Target symbol = target(name, period, code);
    std::vector<unsigned char> records;
    std::string error;
    host_.setDataSource(kImportProvider);
    EXPECT_TRUE(
        ReadRecords(host_, symbol, {kGetNewest, 0, 0, DataWindow::kShownRecords}, &records, &error))
        << error;
    host_.setDataSource(kHostProvider);
    return records;
  }

  // Stores bars of the importer's symbol with 6003.
  void insert(const char* name, const char* code, const std::vector<unsigned char>& records) {
    Target symbol = target(name, "D", code);
    HostWord handle = 0;
    std::string error;
    host_.setDataSource(kImportProvider);
    ASSERT_TRUE(OpenSymbol(host_, symbol, &handle, &error)) << error;
    INSERT_SYMBOL_DATA_REQUEST request{};
    request.handle = handle;
    request.number = std::int32_t(records.size() / symbol.layout.recordSize());
    request.data = reinterpret_cast<HostWord>(records.data());
    EXPECT_EQ(host_.send(HostMessage::InsertDataSend, reinterpret_cast<HostArg>(&request)), 0);
    host_.setDataSource(kHostProvider);
  }

  ModuleHost host_;  // unloaded before the folder is removed
};

// A bar of five equal prices.
void AppendBar(std::vector<unsigned char>* records, std::int32_t time, float price) {
  const float values[] = {price, price, price, price, 1};
  const auto* bytes = reinterpret_cast<const unsigned char*>(&time);
  records->insert(records->end(), bytes, bytes + sizeof time);
  bytes = reinterpret_cast<const unsigned char*>(values);
  records->insert(records->end(), bytes, bytes + sizeof values);
}

std::int32_t TimeAt(const std::vector<unsigned char>& records, std::size_t size,
                    std::size_t index) {
  std::int32_t time = 0;
  std::memcpy(&time, records.data() + index * size, sizeof time);
  return time;
}

float ValueAt(const std::vector<unsigned char>& records, std::size_t size, std::size_t index,
              int view) {
  float value = 0;
  std::memcpy(&value, records.data() + index * size + kRecordTimeBytes + view * kRecordValueBytes,
              sizeof value);
  return value;
}

// The table's row against the index-th record: its time, then every view.
void ExpectRow(const QTableWidget& table, int row, const std::vector<unsigned char>& records,
               const RecordLayout& layout, std::size_t index) {
  SCOPED_TRACE("row " + std::to_string(row));
  std::int32_t time = 0;
  std::string error;
  ASSERT_TRUE(ParseTime(table.item(row, 0)->text().toStdString(), &time, &error)) << error;
  EXPECT_EQ(time, TimeAt(records, layout.recordSize(), index));
  for (std::size_t view = 0; view < layout.views.size(); ++view) {
    EXPECT_EQ(table.horizontalHeaderItem(int(view) + 1)->text().toStdString(), layout.views[view]);
    EXPECT_EQ(table.item(row, int(view) + 1)->text().toFloat(),
              ValueAt(records, layout.recordSize(), index, int(view)));
  }
}

// The symbol's item under the provider, or null.
QTreeWidgetItem* SymbolItem(const QTreeWidget& tree, const QString& name, const QString& period) {
  const QTreeWidgetItem* provider = tree.topLevelItem(0);
  for (int i = 0; provider != nullptr && i < provider->childCount(); ++i) {
    QTreeWidgetItem* item = provider->child(i);
    if (item->text(0) == name && item->text(1) == period) return item;
  }
  return nullptr;
}

TEST_F(DataWindowTest, ListsTheImportedSymbolsAndShowsWhatTheModuleHolds) {
  DataWindow window(host_, dataFolder(), kHostProvider);
  QTreeWidget& tree = *window.tree();
  ASSERT_EQ(tree.topLevelItemCount(), 1) << "the host's own folder holds no symbol";
  const QTreeWidgetItem* provider = tree.topLevelItem(0);
  EXPECT_EQ(provider->text(0), kImportProvider);
  const char* const kListed[][2] = {
      {"EURUSD", "D"}, {"EURUSD", "I0"}, {"EURUSD", "I5"}, {"GBPUSD", "D"}, {"USDCHF", "D"}};
  ASSERT_EQ(provider->childCount(), int(std::size(kListed)));
  EXPECT_EQ(window.table()->rowCount(), 0) << "nothing is chosen yet";
  for (int i = 0; i < provider->childCount(); ++i) {
    const auto& [name, period] = kListed[i];
    SCOPED_TRACE(std::string(name) + " " + period);
    EXPECT_EQ(provider->child(i)->text(0), name);
    EXPECT_EQ(provider->child(i)->text(1), period);
    EXPECT_EQ(provider->child(i)->text(2), "Bid");
    tree.setCurrentItem(provider->child(i));
    const std::vector<unsigned char> records = newest(name, period, "Bid");
    const RecordLayout layout = target(name, period, "Bid").layout;
    const int count = int(records.size() / layout.recordSize());
    ASSERT_GT(count, 0);
    ASSERT_EQ(window.table()->rowCount(), count) << window.status()->text().toStdString();
    ExpectRow(*window.table(), 0, records, layout, 0);
    ExpectRow(*window.table(), count - 1, records, layout, count - 1);
  }
}

// New records of the chosen symbol and a new symbol show after a refresh;
// the table holds only the newest records.
TEST_F(DataWindowTest, RefreshShowsNewRecordsAndSymbols) {
  DataWindow window(host_, dataFolder(), kHostProvider);
  ASSERT_TRUE(window.selectFirstSymbol());
  const int before = window.table()->rowCount();
  const std::vector<unsigned char> stored = newest("EURUSD", "D", "Bid");
  const RecordLayout bars = target("EURUSD", "D", "Bid").layout;
  const std::int32_t later = TimeAt(stored, bars.recordSize(), before - 1) + kDay;
  std::vector<unsigned char> added;
  AppendBar(&added, later, 2.5f);
  insert("EURUSD", "Bid", added);
  const int kMany = DataWindow::kShownRecords + 100;
  std::vector<unsigned char> many;
  for (int i = 0; i < kMany; ++i) AppendBar(&many, later + i * kDay, float(i));
  insert("NEW/SYM", "NEWSYM", many);

  window.refresh();
  EXPECT_EQ(window.tree()->topLevelItem(0)->childCount(), 6);
  EXPECT_EQ(window.tree()->currentItem(), SymbolItem(*window.tree(), "EURUSD", "D"))
      << "still chosen";
  ASSERT_EQ(window.table()->rowCount(), before + 1);
  ExpectRow(*window.table(), before, added, bars, 0);

  QTreeWidgetItem* created = SymbolItem(*window.tree(), "NEW/SYM", "D");
  ASSERT_NE(created, nullptr) << "its file name escapes the slash";
  EXPECT_EQ(created->text(2), "NEWSYM");
  window.tree()->setCurrentItem(created);
  ASSERT_EQ(window.table()->rowCount(), DataWindow::kShownRecords);
  ExpectRow(*window.table(), 0, many, bars, kMany - DataWindow::kShownRecords);
  ExpectRow(*window.table(), DataWindow::kShownRecords - 1, many, bars, kMany - 1);
}

}  // namespace

// Widgets need no display: offscreen unless the runner chose a platform.
int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
