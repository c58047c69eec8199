// dshost: the reference host as a program. Loads a module file as a terminal
// does and drives it with one command per run, printing what the module asked
// of its host.

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QString>
#include <QTemporaryDir>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ModuleHost.h"

namespace {

constexpr int kExitUsage = 2;                        // bad arguments
constexpr int kExitFailure = 1;                      // the command failed
constexpr const char* kModuleEnvironment = "DATASTORE_MODULE";
constexpr const char* kModuleFileName = "libdatastore.so";
constexpr const char* kDefaultProvider = "dshost";   // data source the host reports
constexpr const char* kCurrentLanguage = "English";  // the only language the host offers

struct Arguments {
  std::map<std::string, std::string> options;        // "--module" -> value
};

struct Command {
  const char* name;                                  // first argument
  const char* summary;                               // one line for --help
  std::vector<std::string> options;                  // value options it accepts
  int (*run)(const Arguments& arguments);
};

struct OptionHelp {
  const char* name;                                  // "--module"
  const char* value;                                 // "PATH"
  const char* text;                                  // what it does
};

const OptionHelp kOptionHelp[] = {
    {"--module", "PATH",
     "module file; default: $DATASTORE_MODULE, else ../" DSHOST_INSTALL_LIBDIR
     "/libdatastore.so next to dshost, else the build tree's"},
    {"--data", "DIR",
     "folder the host hands out as configuration, data, import and work folder; "
     "default: a temporary folder removed on exit"},
};

std::string Utf8(const QString& text) { return text.toStdString(); }
std::string Utf8(const std::u16string& text) { return Utf8(QString::fromStdU16String(text)); }

// A fixed 8-bit field as printable text: bytes outside ASCII as \xNN.
std::string Printable(const char* field, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size && field[i] != 0; ++i) {
    const auto byte = static_cast<unsigned char>(field[i]);
    if (std::isprint(byte)) {
      text += static_cast<char>(byte);
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
      text += escaped;
    }
  }
  return text;
}

std::string ModulePath(const Arguments& arguments) {
  const auto given = arguments.options.find("--module");
  if (given != arguments.options.end()) return given->second;
  if (const char* environment = std::getenv(kModuleEnvironment)) return environment;
  const QString installed = QDir(QCoreApplication::applicationDirPath())
                                .filePath(QStringLiteral("../" DSHOST_INSTALL_LIBDIR "/") +
                                          QString::fromLatin1(kModuleFileName));
  if (QFileInfo::exists(installed)) return Utf8(QDir::cleanPath(installed));
  return DSHOST_BUILD_MODULE;
}

// Points every folder the module may ask for into root.
void ConfigureFolders(ModuleHost& host, const QString& root) {
  const std::u16string base = QDir(root).absolutePath().toStdU16String();
  host.setFolder(VD_FOLDER_CONFIG, base);
  host.setFolder(VD_FOLDER_DATA, base + u"/data");
  host.setFolder(VD_FOLDER_IMPORT, base);
  host.setWorkFolder(base);
  host.setDataSource(kDefaultProvider);
  host.setLanguages({{kCurrentLanguage, true}});
}

void PrintInfo(const MODULE_INFO& info) {
  std::printf("Module information\n");
  std::printf("  name          %s\n", Printable(info.name, sizeof info.name).c_str());
  std::printf("  description   %s\n", Printable(info.description, sizeof info.description).c_str());
  std::printf("  number1       %u\n", info.number1);
  std::printf("  number2       %u\n", info.number2);
  std::printf("  number3       %u\n", info.number3);
  std::printf("  kind          %u\n", info.kind);
  std::printf("  context name  %s\n", Printable(info.contextName, sizeof info.contextName).c_str());
  std::printf("  extra         %u\n", info.extra);
}

void PrintCalls(const ModuleHost& host, std::thread::id hostThread) {
  const auto calls = host.calls();
  std::printf("Host calls (%zu)\n", calls.size());
  for (const auto& call : calls) {
    std::printf("  %4u %-22s a=%#llx b=%#llx%s\n", call.message,
                ModuleHost::messageName(call.message), static_cast<unsigned long long>(call.a),
                static_cast<unsigned long long>(call.b),
                call.thread == hostThread ? "" : "  (module thread)");
  }
}

void PrintRecords(const ModuleHost& host) {
  const auto logs = host.logs();
  std::printf("Log records (%zu)\n", logs.size());
  for (const auto& entry : logs) {
    std::printf("  %s type %u level %u: %s\n", Utf8(entry.module).c_str(), entry.type,
                entry.level, Utf8(entry.text).c_str());
  }
  const auto translations = host.translations();
  std::printf("Translations (%zu)\n", translations.size());
  for (const auto& t : translations) {
    std::printf("  %s  %-16s \"%s\"\n", t.context.c_str(), t.key.c_str(), t.text.c_str());
  }
  const auto created = host.createdEvents();
  std::printf("Events created (%zu)\n", created.size());
  for (const auto& event : created) {
    std::printf("  %s  handle %#llx\n", event.name.c_str(),
                static_cast<unsigned long long>(event.handle));
  }
  const auto subscriptions = host.subscriptions();
  std::printf("Subscriptions (%zu)\n", subscriptions.size());
  for (const auto& s : subscriptions) {
    std::printf("  %s  module handle %#llx  module %#llx\n", s.name.c_str(),
                static_cast<unsigned long long>(s.moduleHandle),
                static_cast<unsigned long long>(s.module));
  }
  const auto emits = host.emits();
  std::printf("Events emitted (%zu)\n", emits.size());
  for (const auto& emitted : emits) {
    std::printf("  %s  handle %#llx  sender %#llx\n",
                Printable(emitted.event.name, sizeof emitted.event.name).c_str(),
                static_cast<unsigned long long>(emitted.handle),
                static_cast<unsigned long long>(emitted.event.sender));
  }
}

int RunInfo(const Arguments& arguments) {
  const auto data = arguments.options.find("--data");
  QTemporaryDir temporary;
  const QString root = data != arguments.options.end()
                           ? QString::fromStdString(data->second)
                           : temporary.path();
  if (root.isEmpty() || !QDir().mkpath(root)) {
    std::fprintf(stderr, "dshost: cannot use data folder '%s'\n", Utf8(root).c_str());
    return kExitFailure;
  }
  ModuleHost host;
  const std::string path = ModulePath(arguments);
  if (!host.load(path)) {
    std::fprintf(stderr, "dshost: %s\n", host.error().c_str());
    return kExitFailure;
  }
  ConfigureFolders(host, root);
  std::printf("Module file   %s\n", path.c_str());
  PrintInfo(host.info());
  host.initialize();
  for (unsigned int message : {HostMessage::InitModule, HostMessage::Start, HostMessage::Stop}) {
    const int result = host.send(message);
    std::printf("Sent %s (%u): %d\n", ModuleHost::messageName(message), message, result);
  }
  PrintCalls(host, std::this_thread::get_id());
  PrintRecords(host);
  return 0;
}

const std::vector<Command>& Commands() {
  static const std::vector<Command> kCommands = {
      {"info",
       "load the module, print its information, send InitModule, Start and Stop, "
       "and print every call it made to the host",
       {"--module", "--data"},
       &RunInfo},
  };
  return kCommands;
}

const char* ValueName(const std::string& option) {
  for (const OptionHelp& help : kOptionHelp) {
    if (option == help.name) return help.value;
  }
  return "VALUE";
}

void PrintUsage() {
  std::printf("Usage: dshost <command> [options]\n\nCommands:\n");
  for (const Command& command : Commands()) {
    std::printf("  %s", command.name);
    for (const std::string& option : command.options) {
      std::printf(" [%s %s]", option.c_str(), ValueName(option));
    }
    std::printf("\n      %s\n", command.summary);
  }
  std::printf("\nOptions:\n");
  for (const OptionHelp& option : kOptionHelp) {
    std::printf("  %s %s\n      %s\n", option.name, option.value, option.text);
  }
  std::printf("  --help\n      print this text\n");
}

int UsageError(const std::string& message) {
  std::fprintf(stderr, "dshost: %s\nRun 'dshost --help' for usage.\n", message.c_str());
  return kExitUsage;
}

const Command* FindCommand(const std::string& name) {
  for (const Command& command : Commands()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

bool IsHelp(const std::string& argument) { return argument == "--help" || argument == "-h"; }

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return UsageError("no command given");
  if (IsHelp(args[0]) || args[0] == "help") {
    PrintUsage();
    return 0;
  }
  const Command* command = FindCommand(args[0]);
  if (command == nullptr) return UsageError("unknown command '" + args[0] + "'");
  Arguments arguments;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (IsHelp(args[i])) {
      PrintUsage();
      return 0;
    }
    const auto& accepted = command->options;
    if (std::find(accepted.begin(), accepted.end(), args[i]) == accepted.end()) {
      return UsageError("'" + args[i] + "' is not an option of " + command->name);
    }
    if (i + 1 == args.size()) return UsageError(args[i] + " needs a value");
    arguments.options[args[i]] = args[i + 1];
    ++i;
  }
  try {
    return command->run(arguments);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "dshost: the module threw: %s\n", e.what());
  } catch (...) {
    std::fprintf(stderr, "dshost: the module threw an unknown exception\n");
  }
  return kExitFailure;
}
