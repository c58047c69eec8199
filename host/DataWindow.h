// DataWindow.h: dshost's look at the stored data. A tree lists the data
// folder's providers and, under each, its symbols (name, period, code, as
// the file names tell them); for the chosen symbol a chart and a table show
// its newest kShownRecords records, read through the module as dshost get
// reads them (6001, 6007, 6005), oldest first.
//
// The module looks for a symbol in the folder of the provider its host
// reports (3012), so the window has the host report the symbol's provider
// while it reads, and hostProvider again after.
//
// REQUIRES: a QApplication; host holds a started module whose data folder is
// dataFolder, and outlives the window.
// Thread-safety: none; the application's thread only.

#ifndef DATASTORE_HOST_DATAWINDOW_H_
#define DATASTORE_HOST_DATAWINDOW_H_

#include <QString>
#include <QWidget>
#include <cstdint>
#include <string>
#include <vector>

#include "ModuleHost.h"
#include "SymbolFiles.h"

class ChartView;
class QLabel;
class QTableWidget;
class QTreeWidget;
class QTreeWidgetItem;

class DataWindow : public QWidget {
 public:
  static constexpr std::int32_t kShownRecords = 1000;  // newest records read of a symbol

  DataWindow(ModuleHost& host, const QString& dataFolder, const std::string& hostProvider,
             QWidget* parent = nullptr);

  // Lists the folder again and reads the chosen symbol again; it stays
  // chosen while its file is there.
  void refresh();
  // Chooses the first symbol of the tree; false when there is none.
  bool selectFirstSymbol();

  QTreeWidget* tree() const { return tree_; }
  QTableWidget* table() const { return table_; }
  QLabel* status() const { return status_; }  // what is shown, or why nothing is

 private:
  void list();                                   // fills the tree from the folder
  void showSymbol(const QTreeWidgetItem* item);  // the item's symbol, or nothing
  const StoredSymbol* symbolOf(const QTreeWidgetItem* item) const;
  const std::string& providerOf(const QTreeWidgetItem* item) const;

  ModuleHost& host_;                        // reads the records
  const QString dataFolder_;                // listed by list()
  const std::string hostProvider_;          // the host's data source between reads
  std::vector<ProviderSymbols> providers_;  // as last listed; the tree's items index it
  QString chosen_;                          // path of the chosen symbol's file
  QTreeWidget* tree_;                       // providers and their symbols
  ChartView* chart_;                        // the chosen symbol's chart
  QLabel* status_;                          // above the table
  QTableWidget* table_;                     // the chosen symbol's records
};

#endif  // DATASTORE_HOST_DATAWINDOW_H_
