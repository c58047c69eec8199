// The import commands: import and screenshot drive the module's own import
// dialog offscreen.

#include "ImportCommands.h"

#include <QCoreApplication>
#include <QDialog>
#include <QPointer>
#include <QPushButton>
#include <cstdio>
#include <memory>

#include "Commands.h"
#include "SymbolQuery.h"

namespace {

constexpr const char* kOkKey = "C0049Ok";  // translation key of its OK button
constexpr const char* kImportedProperty =
    "importedInstruments";                    // the dialog's count of imported instruments
constexpr std::uint32_t kReportLogLevel = 3;  // host log level of the module's reports

// The request the importer opens a row's symbol with: the whole symbol as
// name, the row's price type as code, the importer's provider.
bool ImportedSymbolOf(const ImportRow& row, Target* target, std::string* error) {
  const std::string period = Utf8(QString(row.period).remove(QLatin1Char(' ')));
  SYMBOL_PERIOD parsed{};
  if (!ParsePeriod(period, &parsed, error)) return false;
  target->layout = LayoutOf(parsed);
  return MakeSymbolRequest(kImportProvider, row.symbol.trimmed().toStdU16String(),
                           row.priceType.toLocal8Bit().toStdString(), parsed, &target->request,
                           error);
}

// Waits until the worker has written every insert posted so far. The
// importer posts its inserts (6004) without completion calls, and Stop (3005)
// drops the queued ones. The worker serves inserts one at a time in the order
// they were posted, whereas a posted get overtakes queued inserts (gets are
// served first), so only an insert can follow them: the completion of an
// insert of no records, which changes nothing, posted after the import to
// the first row's symbol.
bool AwaitPostedInserts(ModuleHost& host, const std::vector<ImportRow>& rows,
                        InsertCompletion& completion) {
  for (const ImportRow& row : rows) {
    Target target;
    std::string error;
    HostWord handle = 0;
    if (!ImportedSymbolOf(row, &target, &error)) continue;
    if (!OpenSymbol(host, target, &handle, &error)) return StepFailed(error);
    host.postInsert(handle, 0, nullptr, kInsertDoneMessage);
    std::int32_t ignored = 0;
    return completion.wait(&ignored) || StepFailed(NoCompletion());
  }
  return true;
}

// Prints what the module told the host log from entry `first` on: the
// import's report (one line per instrument, then a summary) to standard
// output, its failures to standard error.
void PrintModuleLog(const ModuleHost& host, std::size_t first) {
  const std::vector<ModuleHost::LogEntry> logs = host.logs();
  for (std::size_t k = first; k < logs.size(); ++k) {
    const std::string text = Utf8(QString::fromStdU16String(logs[k].text));
    std::fprintf(logs[k].level == kReportLogLevel ? stdout : stderr, "%s\n", text.c_str());
  }
  std::fflush(stdout);
}

// Chooses the module's menu entry (5511); returns the dialog it opened, or null.
QDialog* OpenImportDialog(ModuleHost& host) {
  host.pressMenuItem(host.menuItems().size() - 1);
  QDialog* dialog = FindOpenDialog();
  if (dialog == nullptr) StepFailed("the module opened no dialog (5511)");
  return dialog;
}

// The dialog's code is the module's: a closed dialog is deleted before the
// library is unloaded.
void CloseDialog(QDialog* dialog) {
  dialog->close();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace

Arguments ImportArguments(const Arguments& arguments) {
  Arguments withProvider = arguments;
  withProvider.options.emplace("--provider", kImportProvider);
  return withProvider;
}

bool StartImportMenu(const Arguments& arguments, const QString& importFolder, ModuleHost* host,
                     HostTranslator* translator) {
  if (!StartModule(arguments, host)) return false;
  if (!importFolder.isEmpty()) host->setFolder(VD_FOLDER_IMPORT, AbsoluteFolder(importFolder));
  translator->learn(*host);
  QCoreApplication::installTranslator(translator);
  host->send(HostMessage::CreateMenu);
  return !host->menuItems().empty() || StepFailed("the module added no menu entry (3066)");
}

// The module connected OK first, so its import has run when this slot is called.
void ReportImportsOf(QDialog* dialog, ModuleHost& host, InsertCompletion& completion,
                     const HostTranslator& translator, std::function<void()> imported) {
  QPushButton* ok = FindButton(dialog, translator.text(kOkKey));
  if (ok == nullptr) return;
  auto firstLog =
      std::make_shared<std::size_t>(host.logs().size());  // the next report's first line
  QObject::connect(
      ok, &QPushButton::clicked, ok,
      [dialog = QPointer<QDialog>(dialog), firstLog, &host, &completion, imported] {
        if (dialog.isNull() || !AwaitPostedInserts(host, CheckedRows(dialog), completion)) {
          return;
        }
        PrintModuleLog(host, *firstLog);
        *firstLog = host.logs().size();
        imported();
      });
}

// Presses OK with every row checked, as they start, waits until the worker
// has written what the import posted, and prints the module's report. Fails
// when the folder has nothing to import (OK stays disabled) or nothing was
// imported.
int RunImport(const Arguments& given) {
  const Arguments arguments = ImportArguments(given);
  const QString folder = PathOperand(arguments, 0);
  InsertCompletion completion;
  HostTranslator translator;
  ModuleHost host;
  HandleCompletions(host, completion);
  if (!StartImportMenu(arguments, folder, &host, &translator)) return kExitFailure;
  const std::size_t firstLog = host.logs().size();
  QDialog* dialog = OpenImportDialog(host);
  if (dialog == nullptr) return kExitFailure;
  QPushButton* ok = FindButton(dialog, translator.text(kOkKey));
  if (ok == nullptr || !ok->isEnabled()) {
    CloseDialog(dialog);
    PrintModuleLog(host, firstLog);
    host.send(HostMessage::Stop);
    return Failure("nothing to import in " + Utf8(folder) + " (the dialog's OK stays disabled)");
  }
  const std::vector<ImportRow> rows = CheckedRows(dialog);
  ok->click();  // imports, then shows the report
  const int imported = dialog->property(kImportedProperty).toInt();
  CloseDialog(dialog);
  if (!AwaitPostedInserts(host, rows, completion)) return kExitFailure;
  PrintModuleLog(host, firstLog);
  host.send(HostMessage::Stop);
  return imported > 0 ? 0 : Failure("no instrument was imported from " + Utf8(folder));
}

// Saves a picture of the dialog open on the folder.
int RunScreenshot(const Arguments& arguments) {
  const QString file = PathOperand(arguments, 1);
  HostTranslator translator;
  ModuleHost host;
  if (!StartImportMenu(arguments, PathOperand(arguments, 0), &host, &translator)) {
    return kExitFailure;
  }
  QDialog* dialog = OpenImportDialog(host);
  if (dialog == nullptr) return kExitFailure;
  QCoreApplication::processEvents();  // lays out the table's cell widgets
  const bool saved = dialog->grab().save(file);
  CloseDialog(dialog);
  host.send(HostMessage::Stop);
  return saved ? 0 : Failure("cannot write " + Utf8(file));
}
