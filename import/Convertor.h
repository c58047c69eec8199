// Convertor.h: CConvertor, the user side of the data import: the host menu
// entry, the import dialog (a directory line, the table of the instruments
// that the directory's index lists, selection buttons, OK, Reject and a
// progress bar) and the import of the checked instruments into the store.
//
// Guarantees:
//   - row r of the table always stands for index entry r (MASTER's entries,
//     then XMASTER's); rows whose data file is missing, holds no counted
//     record or has a record length of 0 are hidden;
//   - a directory without an importable instrument says so in the dialog and
//     leaves OK disabled;
//   - the check state of column 0 (Qt::CheckStateRole) is the one selection
//     state: the buttons write it, change() counts it, readFile() reads it;
//   - readFile() posts each instrument in one insert request and releases its
//     points after the post; a row that cannot be read or that the store
//     refuses (a std::exception included) is skipped and the import goes on;
//     no exception leaves a slot;
//   - while an import runs every control is disabled and the dialog cannot
//     be closed; at its end the dialog shows the report (instruments imported,
//     points stored, instruments skipped and why), sends it to the host log,
//     and sets its property "importedInstruments"; it stays open until the
//     user closes it or reads another directory;
//   - no widget is built without a QApplication or off its thread, nor while
//     the host context is 0.
//
// REQUIRES: used on the host's (user-interface) thread; the module and the
// import target outlive the convertor.
// Thread-safety: none.

#ifndef DATASTORE_IMPORT_CONVERTOR_H_
#define DATASTORE_IMPORT_CONVERTOR_H_

#include <QObject>
#include <QPointer>
#include <QString>
#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "ExportConversion.h"
#include "ExportIndex.h"
#include "HostBoundary.h"
#include "ImportReport.h"

class CDialogConvertor;
class CLineEdit;
class CModule;
class ImportTarget;
class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QRect;
class QTableWidget;
class QWidget;

// The host folders the default directory comes from; the data store supplies
// both. A missing lookup yields the empty text.
struct ImportFolders {
  std::function<QString()> workFolder;    // the host's work folder
  std::function<QString()> importFolder;  // the host's folder for imports (VD_FOLDER_IMPORT)
};

// The dialog's widgets; all but dialog are its children and valid only while
// dialog is not null.
struct ConvertorControls {
  QPointer<CDialogConvertor> dialog;     // null while no dialog is open
  QLabel* label = nullptr;               // "Look in:"
  CLineEdit* directoryLine = nullptr;    // the current directory
  QPushButton* browseButton = nullptr;   // "...", opens the directory chooser
  QTableWidget* table = nullptr;         // one row per index entry
  QPlainTextEdit* reportView = nullptr;  // in the table's place: the report, or why nothing imports
  QPushButton* selectAllButton = nullptr;  // checks every visible row
  QPushButton* deselectButton = nullptr;   // see unSelectAll()
  QPushButton* invertButton = nullptr;     // inverts every visible row
  QProgressBar* progressBar = nullptr;     // bytes read during an import
  QPushButton* okButton = nullptr;         // starts the import
  QPushButton* rejectButton = nullptr;     // closes the dialog
};

class CConvertor : public QObject {
  Q_OBJECT

 public:
  // Table columns.
  enum Column : int {
    kCheckColumn = 0,      // check state selects the row
    kSymbolColumn = 1,     // symbol text of the entry
    kPeriodColumn = 2,     // period text of the entry
    kFirstDateColumn = 3,  // first date (and time) of the data file
    kLastDateColumn = 4,   // last date (and time) of the data file
    kPriceTypeColumn = 5,  // combo box: the price type passed to the store
    kColumnCount = 6,
  };

  // Asks for a directory, starting at start; empty when cancelled.
  using DirectoryChooser = std::function<QString(QWidget* parent, QString const& start)>;

  // Either argument may be given later through its setter.
  explicit CConvertor(ImportTarget* target = nullptr, CModule* module = nullptr);
  ~CConvertor() override;  // deletes an open dialog
  CConvertor(const CConvertor&) = delete;
  CConvertor& operator=(const CConvertor&) = delete;

  void setTarget(ImportTarget* target) { target_ = target; }
  void setModule(CModule* module) { module_ = module; }
  void setHostContext(void* context) { hostContext_ = context; }
  void setFolders(ImportFolders folders) { folders_ = std::move(folders); }
  // Replaces QFileDialog::getExistingDirectory (tests script the answer).
  void setDirectoryChooser(DirectoryChooser chooser) { chooser_ = std::move(chooser); }

  // Adds the "Data Import..." entry to the host's menu (3001, 3002, 3001,
  // 5503, 5500, 5508).
  void CreateMenuConvertor();
  // Opens the dialog on the host's main window and reads the current
  // directory; does nothing while the host context is 0. A dialog that is
  // still shown is brought to the front instead.
  void pressMenuItem(mm_menu_item* item);

  // The dialog's property holding the instruments the last import posted.
  static constexpr char kImportedProperty[] = "importedInstruments";

  // Makes dir the current directory and reads its index into the table; a
  // directory without one empties the table and says so.
  void readMakeFile(QString dir);
  // The default directory: the work folder and "/" when the host says to use
  // it (3506), otherwise the import folder; empty without a module.
  QString GetUserPath() const;
  void UpdatePath() { dir_ = GetUserPath(); }
  // Fills the table from the index entries.
  void InitTable();
  // Removes every row, forgets the index entries, disables the selection
  // buttons and OK.
  void clearTable();

  void* hostContext() const { return hostContext_; }
  QString const& currentDir() const { return dir_; }
  std::vector<IndexEntry> const& entries() const { return entries_; }
  bool isBusy() const { return busy_ != 0; }
  bool isLoading() const { return loading_ != 0; }
  ConvertorControls const& controls() const { return controls_; }
  ImportReport const& lastReport() const { return report_; }

 public slots:
  // Asks for a directory: an answer is read; a cancel changes nothing.
  void selectDir();
  // Imports every visible checked row, then shows the report.
  void readFile();
  void closeConvertor();
  // Reads the directory line's directory, or asks for one when it has no
  // index; a cancelled question puts the current directory back in the line.
  void lineEditPressed();
  // Unchecks every visible row.
  void unSelectAll();
  void selectAll();
  // Inverts every visible row, then change(0, 0).
  void inversAll();
  // For column 0: sets select all, deselect and OK from the visible rows'
  // check states. Other columns: nothing.
  void change(int row, int column);

 private:
  bool hasDialog() const { return !controls_.dialog.isNull(); }
  QString text(const char* key) const;  // the module's translation of key
  int callHost(unsigned int message, HostArg a, HostArg b) const;
  void sendInterfaceRequest(unsigned int message, const char* first, const char* third,
                            const char* second);
  QWidget* mainWindow() const;
  bool loadIndex();  // reads dir_'s index and fills the table; false when out of memory

  // Dialog construction.
  void buildDialog(QWidget* parent);
  void buildDirectoryRow();
  void buildTable();
  void buildButtons();
  QPushButton* addButton(QString const& label, QRect const& geometry, void (CConvertor::*slot)(),
                         bool enabled);

  // Table.
  void fillRow(int row);
  void fitColumns();                        // column widths from their contents, within the table
  int columnsExcess() const;                // pixels the columns take beyond the table's width
  void giveWay(int column, int narrowest);  // narrows the column toward the table's width
  void showTable();
  void showReport(QStringList const& lines);  // in the table's place
  void sayNothingImports();                   // why no row can be imported
  bool isRowChecked(int row) const;
  bool isRowSelected(int row) const;  // visible and checked
  enum class CheckChange { kCheck, kUncheck, kInvert };
  void setCheckStates(CheckChange change);  // of every visible row
  void setSelectionButtons(bool selectAll, bool deselect, bool ok);
  int entryRows() const;  // rows that stand for an index entry

  // Import.
  void setControlsEnabled(bool enabled);
  std::int64_t selectedBytes() const;
  QString priceType(int row) const;
  void importRow(int row);
  ConversionOutcome store(ConvertedInstrument& instrument);
  void showProgress(std::int64_t bytes);
  void finishImport();                        // shows and logs the report
  void logReport(QString const& line) const;  // to the host log

  void* hostContext_ = nullptr;                 // first argument of host calls; 0: not connected
  QString dir_;                                 // current directory
  std::vector<IndexEntry> entries_;             // the index of dir_
  std::vector<ConversionOutcome> rowProblems_;  // per entry: why its row is hidden, or kConverted
  std::uint8_t busy_ = 0;                       // 1 while readFile() runs
  std::uint8_t loading_ = 0;                    // 1 from opening to the end of the first read
  ConvertorControls controls_;                  // the open dialog
  INSERT_SYMBOL_DATA_REQUEST insertRequest_{};  // refilled for every imported row
  ImportTarget* target_;                        // the store imported into; may be null
  CModule* module_;                             // translations and the host callback; may be null
  ImportFolders folders_;                       // default directory lookups
  DirectoryChooser chooser_;                    // the directory chooser
  std::int64_t progressDone_ = 0;               // bytes of the rows already imported
  std::int64_t progressScale_ = 1;              // bytes per progress bar unit
  std::chrono::steady_clock::time_point lastProgress_;  // the bar's last step
  ImportReport report_;                                 // of the last import
};

#endif  // DATASTORE_IMPORT_CONVERTOR_H_
