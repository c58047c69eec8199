// The gui command: the host's main window, with the modules' menu entries
// and the data window.

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QMainWindow>
#include <QMenuBar>
#include <QStatusBar>
#include <algorithm>
#include <cstring>
#include <iterator>

#include "Commands.h"
#include "DataWindow.h"
#include "ImportCommands.h"

namespace {

constexpr const char* kModulesMenu = "&Modules";  // the menu of the modules' entries
constexpr int kWindowWidth = 1200;                // the main window
constexpr int kWindowHeight = 720;

QString MenuText(const mm_menu_item& item) {
  return QString::fromStdU16String(hostfield::WideText(&item.text));
}

// The menu of the modules' entries (5508); choosing one sends 5511. The
// dialog it opens is modal, so an entry is never chosen while it is open.
// Each import through it refreshes the data window.
void AddModulesMenu(QMainWindow& window, ModuleHost& host, InsertCompletion& completion,
                    const HostTranslator& translator, DataWindow& data) {
  QMenu* menu = window.menuBar()->addMenu(QString::fromLatin1(kModulesMenu));
  const std::vector<mm_menu_item> items = host.menuItems();
  for (std::size_t index = 0; index < items.size(); ++index) {
    QObject::connect(menu->addAction(MenuText(items[index])), &QAction::triggered, &window,
                     [index, &host, &completion, &translator, &data] {
                       host.pressMenuItem(index);
                       if (QDialog* dialog = FindOpenDialog()) {
                         ReportImportsOf(dialog, host, completion, translator,
                                         [&data] { data.refresh(); });
                       }
                     });
  }
}

// Shows the window with the first symbol chosen and saves a picture of it.
bool Grab(QMainWindow& window, DataWindow& data, const QString& file) {
  window.show();
  data.selectFirstSymbol();
  QCoreApplication::processEvents();  // lays the window out
  return window.grab().save(file);
}

}  // namespace

// The host's main window (3502 answers its window id) until it is closed, or
// with --grab until its picture is saved.
int RunGui(const Arguments& given) {
  const Arguments arguments = ImportArguments(given);
  InsertCompletion completion;
  HostTranslator translator;
  ModuleHost host;
  QMainWindow window;  // with any dialog of the module's on it, gone before the host unloads it
  window.setWindowTitle(QStringLiteral("dshost"));
  window.resize(kWindowWidth, kWindowHeight);
  HandleCompletions(host, completion);
  host.setMainWindowId(static_cast<HostWord>(window.winId()));
  if (!StartImportMenu(arguments, QString(), &host, &translator)) return kExitFailure;
  auto* data = new DataWindow(host, DataFolder(arguments, QDir::currentPath()),
                              Option(arguments, "--provider"));
  window.setCentralWidget(data);
  window.statusBar()->addWidget(
      new QLabel(QStringLiteral("Module: %1").arg(QString::fromStdString(ModulePath(arguments)))));
  AddModulesMenu(window, host, completion, translator, *data);
  int result = 0;
  if (Has(arguments, "--grab")) {
    const QString file = QString::fromLocal8Bit(Option(arguments, "--grab"));
    if (!Grab(window, *data, file)) result = Failure("cannot write " + Utf8(file));
  } else {
    window.show();
    result = QApplication::exec();
  }
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  host.send(HostMessage::Stop);
  return result;
}
