// dshost import: the built dshost drives the built module's import dialog over
// a folder that export_generator wrote; a later dshost run reads the stored
// symbols back, so everything reported must have reached the files.

#include <QImageReader>
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "ProgramRun.h"

namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> fields;
  std::istringstream in(text);
  for (std::string field; std::getline(in, field, separator);) fields.push_back(field);
  return fields;
}

// The closes of a `get` output, oldest first: Close for bars, Value for ticks.
std::vector<float> Closes(const std::string& csv) {
  const std::vector<std::string> lines = Split(csv, '\n');
  if (lines.empty()) return {};
  const std::vector<std::string> header = Split(lines[0], ',');
  auto column = std::find(header.begin(), header.end(), "Close");
  if (column == header.end()) column = std::find(header.begin(), header.end(), "Value");
  std::vector<float> closes;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    closes.push_back(std::stof(Split(lines[i], ',').at(column - header.begin())));
  }
  return closes;
}

class DshostImportTest : public ProgramTest {
 protected:
  // dshost with its data in "data", under the provider of imported symbols.
  // The importer reads export times as local time; in UTC every generated
  // moment exists exactly once.
  Outcome dshost(const std::string& arguments) {
    return run("TZ=UTC '" DSHOST_PATH "' --module '" DATASTORE_MODULE_PATH
               "' --data data --provider QUENDAL " +
               arguments);
  }

  // Writes the folder "export"; returns the lines of its listing.
  std::vector<std::string> generate(const std::string& arguments) {
    const Outcome generated =
        run("TZ=UTC '" EXPORT_GENERATOR_PATH "' --out export --list " + arguments);
    EXPECT_EQ(generated.status, 0) << generated.err;
    return Split(generated.out, '\n');
  }
};

// A full index of 255 instruments, every period and field count, some
// without a data file: the report has a line NAME PERIOD CODE RECORDS for each
// instrument with data, and what it reports is stored. Every bar is stored;
// ticks of one second keep the last.
TEST_F(DshostImportTest, EveryInstrumentOfAFullIndexIsStored) {
  const auto listing = generate("--instruments 255 --records 60 --data-case lower");
  const Outcome imported = dshost("import export");
  ASSERT_EQ(imported.status, 0) << imported.err;
  const std::vector<std::string> report = Split(imported.out, '\n');
  std::size_t line = 0, missing = 0;
  for (const std::string& listed : listing) {
    // number, file ("-" when missing), symbol, period, fields, R, records,
    // first and last time, first and last close
    const std::vector<std::string> f = Split(listed, '\t');
    if (listed.starts_with("#")) continue;
    if (f.at(1) == "-") {
      ++missing;
      continue;
    }
    const std::string symbol = f.at(2) + " " + f.at(3);
    ASSERT_LT(line, report.size()) << "no line for " << symbol;
    const std::vector<std::string> words = Split(report[line++], ' ');
    ASSERT_EQ(words.size(), 4u) << report[line - 1];
    EXPECT_EQ(words[0] + " " + words[1] + " " + words[2], symbol + " Bid");
    const int stored = std::stoi(words[3]);
    const bool ticks = f.at(3) == "I0";
    if (ticks) {
      EXPECT_GT(stored, 0) << symbol;
      EXPECT_LE(stored, std::stoi(f.at(6))) << symbol;
    } else {
      EXPECT_EQ(stored, std::stoi(f.at(6))) << symbol;
    }
    const std::vector<float> closes = Closes(dshost("get " + symbol + " --code Bid").out);
    ASSERT_EQ(closes.size(), static_cast<std::size_t>(stored)) << symbol;
    EXPECT_EQ(closes.back(), std::stof(f.at(10))) << symbol;
    if (!ticks) {  // a tick second may hold several
      EXPECT_EQ(closes.front(), std::stof(f.at(9))) << symbol;
    }
  }
  EXPECT_EQ(line + missing, 255u);
  EXPECT_GT(missing, 0u);
  EXPECT_EQ(line, report.size()) << imported.out;
}

TEST_F(DshostImportTest, FolderWithoutIndexFailsWithAMessage) {
  std::filesystem::create_directories(dir_ / "empty");
  for (const char* folder : {"empty", "missing"}) {
    const Outcome imported = dshost(std::string("import ") + folder);
    EXPECT_EQ(imported.status, 1) << folder;
    EXPECT_NE(imported.err.find("no MASTER index in"), std::string::npos) << imported.err;
    EXPECT_EQ(imported.out, "") << folder;
  }
}

TEST_F(DshostImportTest, ScreenshotIsAPictureOfTheDialog) {
  generate("--sample");
  const Outcome shot = dshost("screenshot export dialog.png");
  ASSERT_EQ(shot.status, 0) << shot.err;
  QImageReader picture(QString::fromStdString((dir_ / "dialog.png").string()));
  EXPECT_EQ(picture.format().toStdString(), "png");
  EXPECT_EQ(picture.size(), QSize(420, 440));
}

}  // namespace
