// CommandLine.h: dshost's command line: its commands with their options,
// operands and help text, and what a command is given to run.
//
// A command line is [OPTIONS] COMMAND [ARGUMENTS]. Every "--name" takes the
// next argument as its value wherever it stands; the options of every command
// are accepted anywhere, a command's own ones after its name. "--help", "-h",
// or "help" as the command print the usage. Any other fault prints a message
// and a pointer to --help and exits with kExitUsage.
//
// Thread-safety: none; main's thread only.

#ifndef DATASTORE_HOST_COMMANDLINE_H_
#define DATASTORE_HOST_COMMANDLINE_H_

#include <QString>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

constexpr int kExitFailure = 1;                     // the command failed
constexpr int kExitUsage = 2;                       // bad arguments
constexpr const char* kDefaultProvider = "dshost";  // data source the host reports

// What a command needs of the user interface.
enum class CommandDisplay {
  kNone,       // no widgets: a QCoreApplication
  kOffscreen,  // widgets nobody sees: the offscreen platform unless QT_QPA_PLATFORM names one
  kScreen,     // widgets on the user's screen
};

struct Arguments {
  const char* command = nullptr;               // the command's name
  std::map<std::string, std::string> options;  // "--module" -> value
  std::vector<std::string> operands;           // what follows the command name
};

struct Command {
  const char* name;                  // first operand
  const char* synopsis;              // what follows the name in a usage line
  const char* summary;               // what it does
  std::vector<std::string> options;  // value options of its own
  std::size_t operands;              // operands it needs after its name
  int (*run)(const Arguments& arguments);
  CommandDisplay display = CommandDisplay::kNone;  // the application it runs in
  const char* offscreenOption = nullptr;           // an option that makes it run offscreen
};

// Parses the arguments after the program name. Returns true with the command
// to run; false with *exitCode set after printing the usage or a usage error.
bool ParseCommandLine(const std::vector<std::string>& args, const Command** command,
                      Arguments* arguments, int* exitCode);
// The display the command runs with under these arguments.
CommandDisplay DisplayOf(const Command& command, const Arguments& arguments);

std::string Option(const Arguments& arguments, const std::string& name,
                   const std::string& fallback = "");
bool Has(const Arguments& arguments, const std::string& name);
// The index-th operand, as Qt takes a file name.
QString PathOperand(const Arguments& arguments, std::size_t index);

// Print "dshost: " and the message to standard error; UsageError adds a
// pointer to the command's --help. They return the exit code.
int UsageError(const std::string& message, const char* command = nullptr);
int Failure(const std::string& message);
// Failure for the steps of a command, which answer whether they succeeded.
bool StepFailed(const std::string& message);

std::string Utf8(const QString& text);
std::string Utf8(const std::u16string& text);

#endif  // DATASTORE_HOST_COMMANDLINE_H_
