// ImportCommands.h: what the import commands share with gui: the module
// started for its import dialog, and the report of each import made in it.
//
// REQUIRES: a QApplication.
// Thread-safety: none; the application's thread only.

#ifndef DATASTORE_HOST_IMPORTCOMMANDS_H_
#define DATASTORE_HOST_IMPORTCOMMANDS_H_

#include <QString>
#include <functional>

#include "CommandLine.h"
#include "HostSession.h"
#include "ImportDialogDriver.h"

class QDialog;

// The arguments with the importer's provider unless one is given, so that
// the host's provider folder is where the importer stores its symbols.
Arguments ImportArguments(const Arguments& arguments);

// Starts the module for its import dialog: from then on the host shows the
// module's default texts (3019), then the module adds its menu entry (3066).
// The dialog starts in importFolder (3128, VD_FOLDER_IMPORT); an empty one
// keeps the data folder. Returns false after printing the problem.
bool StartImportMenu(const Arguments& arguments, const QString& importFolder, ModuleHost* host,
                     HostTranslator* translator);

// After each import through the open dialog, waits until the worker has
// written it, prints the module's report and calls imported.
// REQUIRES: host, completion and translator outlive the dialog.
void ReportImportsOf(QDialog* dialog, ModuleHost& host, InsertCompletion& completion,
                     const HostTranslator& translator, std::function<void()> imported);

#endif  // DATASTORE_HOST_IMPORTCOMMANDS_H_
