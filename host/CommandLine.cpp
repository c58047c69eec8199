#include "CommandLine.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "Commands.h"

namespace {

constexpr std::size_t kSymbolOperands = 2;  // SYMBOL PERIOD
constexpr std::size_t kHelpWidth = 79;      // columns of --help text
constexpr int kHelpIndent = 6;              // columns before an entry's text

struct OptionHelp {
  const char* name;   // "--module"
  const char* value;  // "PATH"
  const char* text;   // what it does
};

const std::vector<std::string> kGlobalOptions = {"--module", "--data", "--config", "--provider"};
const std::vector<std::string> kQueryOptions = {"--code", "--last", "--first", "--from", "--to"};

const OptionHelp kOptionHelp[] = {
    {"--module", "PATH",
     "module file; default: $DATASTORE_MODULE, else ../" DSHOST_INSTALL_LIBDIR
     "/libdatastore.so next to dshost, else the build tree's"},
    {"--data", "DIR",
     "data folder the host hands out (3128, type 100), also as import and work folder; "
     "default: the current folder, for info a temporary folder removed on exit"},
    {"--config", "DIR",
     "configuration folder, where the module reads pelto.cfg (3128, type 2); "
     "default: the data folder"},
    {"--provider", "NAME",
     "data provider: the host reports it (3012) and names it in symbol requests; "
     "default: dshost"},
    {"--code", "C",
     "the symbol's code (its file name part); default: SYMBOL without every character "
     "that is not an ASCII letter or digit"},
    {"--last", "N", "the newest N records"},
    {"--first", "N", "the oldest N records"},
    {"--from", "T",
     "records from T on, led by the last record before T (the module's time range); "
     "default: the earliest time"},
    {"--to", "T", "records before T; default: the latest time"},
    {"--out", "FILE", "the picture to write (PNG for FILE.png)"},
    {"--grab", "FILE",
     "show the window offscreen with the first symbol chosen, save a picture of it "
     "(PNG for FILE.png) and exit"},
};

constexpr const char* kNotes =
    "SYMBOL is the instrument's name, such as EUR/USD.\n"
    "PERIOD is I0 (ticks), I<n> (intraday bars of length n), D, W, M or Y.\n"
    "T is an epoch number or an ISO 8601 UTC time such as 2024-01-02T03:04:05Z.\n"
    "Records are CSV: time,epoch and then Value,Volume for ticks or\n"
    "Open,High,Low,Close,Volume for bars.\n";

std::vector<std::string> WithOut(std::vector<std::string> options) {
  options.push_back("--out");
  return options;
}

const std::vector<Command>& Commands() {
  static const std::vector<Command> kCommands = {
      {"info",
       "",
       "load the module, print its information, send InitModule, Start and Stop, "
       "and print every call it made to the host",
       {},
       0,
       &RunInfo},
      {"get", "SYMBOL PERIOD [--code C] [--last N | --first N | --from T --to T]",
       "print the symbol's records as CSV (6007, then 6005); all of them by default", kQueryOptions,
       kSymbolOperands, &RunGet},
      {"count", "SYMBOL PERIOD [--code C] [--last N | --first N | --from T --to T]",
       "print how many records the selection holds (6007); all of them by default", kQueryOptions,
       kSymbolOperands, &RunCount},
      {"insert",
       "SYMBOL PERIOD [--code C] < CSV",
       "insert the records of the CSV on standard input (6004, posted) and print how many; "
       "its header names epoch or time and every value column, in any order",
       {"--code"},
       kSymbolOperands,
       &RunInsert},
      {"chart", "SYMBOL PERIOD [--code C] [--last N | --first N | --from T --to T] --out FILE",
       "draw the records get would print as candles (a line of Value for ticks) under a "
       "title of symbol, period and code, with a time axis in UTC and a price axis, into a "
       "picture (offscreen); exit 1 when there is no record",
       WithOut(kQueryOptions), kSymbolOperands, &RunChart, CommandDisplay::kOffscreen},
      {"import",
       "EXPORT_DIR",
       "open the module's import dialog on the folder's index (MASTER, EMASTER, XMASTER; "
       "3066, 5511), press OK with every instrument checked, wait until the worker has "
       "written them, and print the module's report: a line per instrument with its name, "
       "period, price type and points stored, or why it was skipped; exit 1 when nothing "
       "was imported. The provider defaults to the importer's, QUENDAL: read the symbols "
       "back with get --provider QUENDAL",
       {},
       1,
       &RunImport,
       CommandDisplay::kOffscreen},
      {"gui",
       "[--grab FILE]",
       "open a main window that shows the data folder's providers and symbols and, for the "
       "chosen symbol, its chart and its newest records (as get reads them); its Modules "
       "menu holds the module's entry (3066), which opens the import dialog (5511); each "
       "import is reported as by import and shown in the window. The provider defaults to "
       "the importer's, QUENDAL. Runs until the window is closed",
       {"--grab"},
       0,
       &RunGui,
       CommandDisplay::kScreen,
       "--grab"},
      {"screenshot",
       "EXPORT_DIR FILE",
       "open the import dialog on the folder and save a picture of it (PNG for FILE.png)",
       {},
       2,
       &RunScreenshot,
       CommandDisplay::kOffscreen},
  };
  return kCommands;
}

const OptionHelp& HelpOf(const std::string& option) {
  return *std::find_if(std::begin(kOptionHelp), std::end(kOptionHelp),
                       [&option](const OptionHelp& help) { return option == help.name; });
}

// Prints text indented by kHelpIndent, broken between words within kHelpWidth.
void PrintWrapped(std::string_view text) {
  std::string line;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t space = std::min(text.find(' ', start), text.size());
    const std::string_view word = text.substr(start, space - start);
    if (!line.empty() && kHelpIndent + line.size() + 1 + word.size() > kHelpWidth) {
      std::printf("%*s%s\n", kHelpIndent, "", line.c_str());
      line.clear();
    }
    line += (line.empty() ? "" : " ") + std::string(word);
    start = space + 1;
  }
  std::printf("%*s%s\n", kHelpIndent, "", line.c_str());
}

void PrintOptions(const std::vector<std::string>& options) {
  for (const std::string& option : options) {
    const OptionHelp& help = HelpOf(option);
    std::printf("  %s %s\n", help.name, help.value);
    PrintWrapped(help.text);
  }
}

// The command's name and what follows it on its usage line.
std::string Synopsis(const Command& command) {
  std::string line = command.name;
  if (*command.synopsis != 0) line += std::string(" ") + command.synopsis;
  return line;
}

void PrintUsage() {
  std::printf("Usage: dshost [OPTIONS] COMMAND [ARGUMENTS]\n\nCommands:\n");
  for (const Command& command : Commands()) {
    std::printf("  %s\n", Synopsis(command).c_str());
    PrintWrapped(command.summary);
  }
  std::printf("\nOptions of every command:\n");
  PrintOptions(kGlobalOptions);
  std::printf("  --help\n");
  PrintWrapped("print this text; after a command, that command's usage");
  std::printf("\n%s", kNotes);
}

void PrintCommandUsage(const Command& command) {
  std::printf("Usage: dshost [OPTIONS] %s\n\n", Synopsis(command).c_str());
  PrintWrapped(command.summary);
  if (!command.options.empty()) {
    std::printf("\nOptions:\n");
    PrintOptions(command.options);
  }
  std::printf("\nOptions of every command:\n");
  PrintOptions(kGlobalOptions);
  // The notes explain SYMBOL, PERIOD and T.
  if (std::string_view(command.synopsis).find("SYMBOL") != std::string_view::npos) {
    std::printf("\n%s", kNotes);
  }
}

const Command* FindCommand(const std::string& name) {
  for (const Command& command : Commands()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

bool IsHelp(const std::string& argument) { return argument == "--help" || argument == "-h"; }

bool Accepts(const Command* command, const std::string& option) {
  const auto known = [&option](const std::vector<std::string>& options) {
    return std::find(options.begin(), options.end(), option) != options.end();
  };
  return known(kGlobalOptions) || (command != nullptr && known(command->options));
}

}  // namespace

bool ParseCommandLine(const std::vector<std::string>& args, const Command** command,
                      Arguments* arguments, int* exitCode) {
  const Command* found = nullptr;
  const auto stop = [exitCode](int code) {
    *exitCode = code;
    return false;
  };
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& argument = args[i];
    const char* name = found != nullptr ? found->name : nullptr;
    if (IsHelp(argument) || (found == nullptr && argument == "help")) {
      found == nullptr ? PrintUsage() : PrintCommandUsage(*found);
      return stop(0);
    }
    if (argument.starts_with("--")) {
      if (!Accepts(found, argument)) return stop(UsageError("unknown option " + argument, name));
      if (i + 1 == args.size()) return stop(UsageError(argument + " needs a value", name));
      arguments->options[argument] = args[++i];
    } else if (found == nullptr) {
      found = FindCommand(argument);
      if (found == nullptr) return stop(UsageError("unknown command '" + argument + "'"));
      arguments->command = found->name;
    } else {
      arguments->operands.push_back(argument);
    }
  }
  if (found == nullptr) return stop(UsageError("no command given"));
  if (arguments->operands.size() != found->operands) {
    return stop(UsageError("usage: dshost [OPTIONS] " + Synopsis(*found), found->name));
  }
  *command = found;
  return true;
}

CommandDisplay DisplayOf(const Command& command, const Arguments& arguments) {
  const bool offscreen =
      command.offscreenOption != nullptr && Has(arguments, command.offscreenOption);
  return offscreen ? CommandDisplay::kOffscreen : command.display;
}

std::string Option(const Arguments& arguments, const std::string& name,
                   const std::string& fallback) {
  const auto it = arguments.options.find(name);
  return it == arguments.options.end() ? fallback : it->second;
}

bool Has(const Arguments& arguments, const std::string& name) {
  return arguments.options.count(name) != 0;
}

QString PathOperand(const Arguments& arguments, std::size_t index) {
  return QString::fromLocal8Bit(arguments.operands[index]);
}

int UsageError(const std::string& message, const char* command) {
  std::fprintf(stderr, "dshost: %s\nRun 'dshost %s%s--help' for usage.\n", message.c_str(),
               command == nullptr ? "" : command, command == nullptr ? "" : " ");
  return kExitUsage;
}

int Failure(const std::string& message) {
  std::fprintf(stderr, "dshost: %s\n", message.c_str());
  return kExitFailure;
}

bool StepFailed(const std::string& message) {
  Failure(message);
  return false;
}

std::string Utf8(const QString& text) { return text.toStdString(); }
std::string Utf8(const std::u16string& text) { return Utf8(QString::fromStdU16String(text)); }
