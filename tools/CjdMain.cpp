// cjd: inspects, checks and repairs the data files of the data store.
#include <algorithm>
#include <charconv>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "CjdCommands.h"
#include "RecordCsv.h"

namespace {

constexpr std::string_view kHelpOption = "--help";
constexpr std::string_view kOptionPrefix = "-";

constexpr char kProgramHelp[] =
    "usage: cjd COMMAND [ARGUMENTS]\n"
    "Inspects, checks and repairs data files (.cjd). info, dump, check and ls\n"
    "show each file as the module's readers see it: with the changes its data\n"
    "folder's log (datastore.wal) still holds, touching nothing.\n"
    "\n"
    "commands:\n"
    "  info FILE      every header field and the extent of the records\n"
    "  dump FILE      the records, as a table or as CSV\n"
    "  check FILE     header, whole records, times sorted and unique\n"
    "  ls DATA_DIR    every data file under a folder\n"
    "  repair FILE    recovers the log, cuts a partial record and zero-time records\n"
    "\n"
    "'cjd COMMAND --help' describes a command. Exit status: 0 done, 1 a file\n"
    "that cannot be read or a problem found, 2 a bad command line.\n";

struct Option {
  std::string_view name;  // "--first"
  bool takesValue;        // followed by a value
};

// What the command line holds after the command.
struct Arguments {
  std::vector<std::string> operands;          // in order
  std::map<std::string, std::string> values;  // option name to value ("" for a flag)
  bool help = false;                          // --help was given
};

struct Command {
  std::string_view name;
  std::string_view operand;     // what the one operand names, for messages
  std::string_view help;        // printed by --help
  std::vector<Option> options;  // besides --help
  int (*run)(Arguments const& arguments);
};

int UsageError(std::string_view command, std::string const& message) {
  std::cerr << "cjd " << command << ": " << message << "\nTry 'cjd " << command << " --help'.\n";
  return kExitUsage;
}

bool IsOption(std::string_view argument) {
  return argument.starts_with(kOptionPrefix) && argument.size() > 1;
}

// Fills *arguments from the words after the command; false and *error on an unknown option
// or a missing value.
bool Parse(Command const& command, std::vector<std::string_view> const& argv, Arguments* arguments,
           std::string* error) {
  for (std::size_t i = 0; i < argv.size(); ++i) {
    const std::string_view argument = argv[i];
    if (argument == kHelpOption) {
      arguments->help = true;
      continue;
    }
    if (!IsOption(argument)) {
      arguments->operands.emplace_back(argument);
      continue;
    }
    const auto option = std::find_if(command.options.begin(), command.options.end(),
                                     [&](Option const& known) { return known.name == argument; });
    if (option == command.options.end())
      return *error = "unknown option " + std::string(argument), false;
    if (arguments->values.count(std::string(argument)) != 0) {
      return *error = "option " + std::string(argument) + " given twice", false;
    }
    std::string value;
    if (option->takesValue) {
      if (++i == argv.size())
        return *error = "option " + std::string(argument) + " needs a value", false;
      value = argv[i];
    }
    arguments->values[std::string(argument)] = value;
  }
  return true;
}

// The one operand of every command, or a usage error.
bool OneOperand(Arguments const& arguments, std::string_view what, std::string* error) {
  if (arguments.operands.empty()) return *error = "missing " + std::string(what), false;
  if (arguments.operands.size() > 1)
    return *error = "unexpected argument " + arguments.operands[1], false;
  return true;
}

bool ParseCount(std::string const& text, int* count, std::string* error) {
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, *count);
  if (status != std::errc() || stop != end || *count < 0) {
    return *error = "bad count '" + text + "': expected a number of records", false;
  }
  return true;
}

bool ParseSelection(Arguments const& arguments, DumpSelection* selection, std::string* error) {
  const auto& values = arguments.values;
  const bool first = values.count("--first") != 0;
  const bool last = values.count("--last") != 0;
  const bool from = values.count("--from") != 0;
  const bool to = values.count("--to") != 0;
  if (int(first) + int(last) + int(from || to) > 1) {
    return *error = "choose one of --first, --last and --from/--to", false;
  }
  if (from != to) return *error = "--from and --to go together", false;
  if (first) selection->kind = DumpSelection::Kind::kFirst;
  if (last) selection->kind = DumpSelection::Kind::kLast;
  if (first || last)
    return ParseCount(values.at(first ? "--first" : "--last"), &selection->count, error);
  if (!from) return true;
  selection->kind = DumpSelection::Kind::kRange;
  return ParseTime(values.at("--from"), &selection->from, error) &&
         ParseTime(values.at("--to"), &selection->to, error);
}

int RunInfoCommand(Arguments const& arguments) {
  return RunInfo(arguments.operands[0], std::cout, std::cerr);
}

int RunDumpCommand(Arguments const& arguments) {
  DumpSelection selection;
  std::string error;
  if (!ParseSelection(arguments, &selection, &error)) return UsageError("dump", error);
  return RunDump(arguments.operands[0], selection, arguments.values.count("--csv") != 0, std::cout,
                 std::cerr);
}

int RunCheckCommand(Arguments const& arguments) {
  return RunCheck(arguments.operands[0], std::cout);
}

int RunListCommand(Arguments const& arguments) {
  return RunList(arguments.operands[0], std::cout, std::cerr);
}

int RunRepairCommand(Arguments const& arguments) {
  return RunRepair(arguments.operands[0], std::cout, std::cerr);
}

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"info",
       "FILE",
       "usage: cjd info FILE\n"
       "Prints every header field (type, version, D, descriptions, H, views, name,\n"
       "title, period, provider, code, point size), the record size, the offset of\n"
       "the first record, the file size, the whole records, the bytes of a partial\n"
       "record, and how many changes the data folder's log still holds for FILE\n"
       "(shown, not yet in the file) and whether recovery cuts an unfinished append.\n",
       {},
       RunInfoCommand},
      {"dump",
       "FILE",
       "usage: cjd dump FILE [--first N | --last N | --from T --to T] [--csv]\n"
       "Prints the records (all by default) as an aligned table.\n"
       "  --first N   the oldest N records\n"
       "  --last N    the newest N records\n"
       "  --from T --to T\n"
       "              from the last record before T up to, not including, the\n"
       "              --to time (epoch seconds or YYYY-MM-DD[THH:MM:SS][Z], UTC)\n"
       "  --csv       CSV as 'dshost get' prints it: time,epoch,<views>\n",
       {{"--first", true}, {"--last", true}, {"--from", true}, {"--to", true}, {"--csv", false}},
       RunDumpCommand},
      {"check",
       "FILE",
       "usage: cjd check FILE\n"
       "Checks FILE as readers see it (with its log's changes): that the header\n"
       "loads, that no partial record or run of zero-time records ends it and that\n"
       "every record (numbered from 0) is later than the one before it. Prints each\n"
       "problem; exit 0 when clean, 1 when not.\n",
       {},
       RunCheckCommand},
      {"ls",
       "DATA_DIR",
       "usage: cjd ls DATA_DIR\n"
       "Lists every .cjd file under DATA_DIR and its subfolders: provider (the\n"
       "folder), name, period, code, records, first and last time (UTC). Files\n"
       "that do not load are listed with the reason, and make the exit status 1.\n",
       {},
       RunListCommand},
      {"repair",
       "FILE",
       "usage: cjd repair FILE\n"
       "Takes the data folder's lock and recovers its log as the module does at\n"
       "start (every file of the folder), then cuts a partial last record and the\n"
       "zero-time records at the end. Refuses (exit 1) while a running module holds\n"
       "the folder (nothing changed), and a header that does not load or records\n"
       "out of time order or with repeated times (nothing cut). A clean file is\n"
       "left as it is.\n",
       {},
       RunRepairCommand},
  };
  return commands;
}

int RunCommand(Command const& command, std::vector<std::string_view> const& argv) {
  Arguments arguments;
  std::string error;
  if (!Parse(command, argv, &arguments, &error)) return UsageError(command.name, error);
  if (arguments.help) {
    std::cout << command.help;
    return kExitOk;
  }
  if (!OneOperand(arguments, command.operand, &error)) return UsageError(command.name, error);
  return command.run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string_view> args(argv + 1, argv + argc);
  if (args.empty()) {
    std::cerr << kProgramHelp;
    return kExitUsage;
  }
  if (args[0] == kHelpOption) {
    std::cout << kProgramHelp;
    return kExitOk;
  }
  for (Command const& command : Commands()) {
    if (command.name == args[0]) return RunCommand(command, {args.begin() + 1, args.end()});
  }
  std::cerr << "cjd: unknown command '" << args[0] << "'\nTry 'cjd --help'.\n";
  return kExitUsage;
}
