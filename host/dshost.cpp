// dshost: the reference host as a program. Loads a module file as a terminal
// does and drives it with one command per run: Initialize, InitModule (3007),
// Start (3004), the command's own messages, then Stop (3005).

#include <QApplication>
#include <QCoreApplication>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "CommandLine.h"

namespace {

constexpr const char* kOffscreenPlatform = "offscreen";

// The application the command runs in, or null after printing why there is
// none. A platform named by QT_QPA_PLATFORM is always used.
std::unique_ptr<QCoreApplication> MakeApplication(CommandDisplay display, int& argc, char** argv) {
  const bool platformChosen = !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
  if (display == CommandDisplay::kNone) return std::make_unique<QCoreApplication>(argc, argv);
  if (display == CommandDisplay::kOffscreen && !platformChosen) {
    qputenv("QT_QPA_PLATFORM", kOffscreenPlatform);
  }
  if (display == CommandDisplay::kScreen && !platformChosen &&
      qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
    Failure("no screen: set DISPLAY or WAYLAND_DISPLAY (or QT_QPA_PLATFORM)");
    return nullptr;
  }
  return std::make_unique<QApplication>(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const Command* command = nullptr;
  Arguments arguments;
  int exitCode = 0;
  if (!ParseCommandLine(args, &command, &arguments, &exitCode)) return exitCode;
  const auto application = MakeApplication(DisplayOf(*command, arguments), argc, argv);
  if (application == nullptr) return kExitFailure;
  try {
    return command->run(arguments);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "dshost: the module threw: %s\n", e.what());
  } catch (...) {
    std::fprintf(stderr, "dshost: the module threw an unknown exception\n");
  }
  return kExitFailure;
}
