// Commands.h: dshost's commands. Each loads the module, drives it through its
// own messages and returns the process's exit code; the command line has been
// checked against the command's table entry (CommandLine.cpp) before.
//
// REQUIRES: the application of the command's CommandDisplay exists.
// Thread-safety: none; main's thread only.

#ifndef DATASTORE_HOST_COMMANDS_H_
#define DATASTORE_HOST_COMMANDS_H_

#include "CommandLine.h"

// DataCommands.cpp
int RunInfo(const Arguments& arguments);
int RunGet(const Arguments& arguments);
int RunCount(const Arguments& arguments);
int RunInsert(const Arguments& arguments);
int RunChart(const Arguments& arguments);

// ImportCommands.cpp
int RunImport(const Arguments& arguments);
int RunScreenshot(const Arguments& arguments);

// DshostGui.cpp
int RunGui(const Arguments& arguments);

#endif  // DATASTORE_HOST_COMMANDS_H_
