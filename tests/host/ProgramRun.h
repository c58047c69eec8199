// ProgramRun.h: built programs run from a shell, as a user runs them, in a
// temporary folder of the test's own.

#ifndef DATASTORE_TESTS_HOST_PROGRAMRUN_H_
#define DATASTORE_TESTS_HOST_PROGRAMRUN_H_

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

struct Outcome {
  int status;       // exit status, -1 when the program did not exit
  std::string out;  // standard output
  std::string err;  // standard error
};

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class ProgramTest : public ::testing::Test {
 protected:
  ProgramTest() { std::filesystem::create_directories(dir_); }
  ~ProgramTest() override { std::filesystem::remove_all(dir_); }

  // Runs command (shell words) in dir_, input on its standard input.
  Outcome run(const std::string& command, const std::string& input = "") {
    std::ofstream(dir_ / "stdin.txt") << input;
    const std::string line =
        "cd '" + dir_.string() + "' && " + command + " < stdin.txt > stdout.txt 2> stderr.txt";
    const int raw = std::system(line.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadFile(dir_ / "stdout.txt"),
            ReadFile(dir_ / "stderr.txt")};
  }

  const std::filesystem::path dir_ =  // removed with the test
      std::filesystem::temp_directory_path() / ("program_test_" + std::to_string(::getpid()));
};

#endif  // DATASTORE_TESTS_HOST_PROGRAMRUN_H_
