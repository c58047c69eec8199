// dshost import: the built dshost drives the built module's import dialog over
// a folder that export_generator wrote; a later dshost run reads the stored
// symbols back, so everything reported must have reached the files.

#include <QImageReader>
#include <algorithm>
#include <filesystem>
#include <map>
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

// One line of export_generator's listing.
struct Listed {
  std::string file, index, symbol, period, name;  // file "-": none
  int records = 0;
  float firstClose = 0, lastClose = 0;
};

std::vector<Listed> ParseListing(const std::string& text) {
  std::vector<Listed> listed;
  for (const std::string& line : Split(text, '\n')) {
    if (line.starts_with("#")) continue;
    // number, file, index, symbol, period, fields, R, records, first and
    // last time, first and last close, name
    const std::vector<std::string> f = Split(line, '\t');
    EXPECT_EQ(f.size(), 13u) << line;
    if (f.size() != 13u) continue;
    const bool none = f[7] == "0";
    listed.push_back({f[1], f[2], f[3], f[4], f[12], std::stoi(f[7]), none ? 0 : std::stof(f[10]),
                      none ? 0 : std::stof(f[11])});
  }
  return listed;
}

// The report's line for an instrument: "Imported SYMBOL "NAME" PERIOD Bid:
// N points" or "Skipped SYMBOL "NAME" PERIOD: missing data file F<n>.DAT".
std::string ReportLine(const Listed& listed, const std::string& dataFile) {
  const std::string instrument = listed.symbol + " \"" + listed.name + "\" " + listed.period;
  if (listed.file == "-") return "Skipped " + instrument + ": missing data file " + dataFile;
  return "Imported " + instrument + " Bid: " + std::to_string(listed.records) + " points";
}

class DshostImportTest : public ProgramTest {
 protected:
  // dshost with its data in "data"; import takes the importer's provider.
  Outcome dshost(const std::string& arguments, const std::string& zone = "UTC") {
    return run("TZ=" + zone +
               " '" DSHOST_PATH "' --module '" DATASTORE_MODULE_PATH "' --data data " + arguments);
  }
  Outcome get(const std::string& symbolAndPeriod) {
    return dshost("--provider QUENDAL get " + symbolAndPeriod + " --code Bid");
  }

  // Writes the folder "export"; returns its listing.
  std::vector<Listed> generate(const std::string& arguments) {
    const Outcome generated = run("'" EXPORT_GENERATOR_PATH "' --out export --list " + arguments);
    EXPECT_EQ(generated.status, 0) << generated.err;
    return ParseListing(generated.out);
  }
};

// 255 instruments in MASTER (long names in EMASTER) and 45 in XMASTER with
// F<n>.MWD files, every period and field count, some without a data file:
// the report names each, and what it reports is stored where get finds it.
TEST_F(DshostImportTest, EveryInstrumentOfMasterAndXmasterIsStored) {
  const std::vector<Listed> listing = generate("--instruments 300 --records 40 --data-case lower");
  ASSERT_EQ(listing.size(), 300u);
  const Outcome imported = dshost("import export");
  ASSERT_EQ(imported.status, 0) << imported.err;
  const std::vector<std::string> report = Split(imported.out, '\n');
  ASSERT_EQ(report.size(), 301u) << imported.out;
  int stored = 0, points = 0;
  for (std::size_t k = 0; k < listing.size(); ++k) {
    const Listed& listed = listing[k];
    const std::string dataFile = "F" + std::to_string(k + 1) + (k < 255 ? ".dat" : ".MWD");
    EXPECT_EQ(listed.index, k < 255 ? "MASTER" : "XMASTER");
    EXPECT_EQ(report[k], ReportLine(listed, dataFile));
    if (listed.file == "-") continue;
    ++stored;
    points += listed.records;
    if (k % 15 != 0 && k < 290) continue;  // every period and both indexes are read back
    const std::vector<float> closes = Closes(get(listed.symbol + " " + listed.period).out);
    ASSERT_FALSE(closes.empty()) << listed.symbol << " " << listed.period;
    EXPECT_EQ(closes.back(), listed.lastClose) << listed.symbol;
    if (listed.period != "I0") {  // a tick second may hold several
      EXPECT_EQ(closes.size(), std::size_t(listed.records)) << listed.symbol;
      EXPECT_EQ(closes.front(), listed.firstClose) << listed.symbol;
    }
  }
  EXPECT_EQ(report.back(), "Imported " + std::to_string(stored) + " instruments, " +
                               std::to_string(points) + " points stored; skipped " +
                               std::to_string(300 - stored) + ".");
}

// The same directory imported under three zones gives the same bytes.
TEST_F(DshostImportTest, StoredFilesDoNotDependOnTheTimeZone) {
  generate("--sample --instrument EURUSD,W --instrument EURUSD,I60 --records 400");
  std::vector<std::map<std::string, std::string>> folders;
  for (const char* zone : {"UTC", "Europe/Berlin", "Asia/Amman"}) {
    std::filesystem::remove_all(dir_ / "data");
    ASSERT_EQ(dshost("import export", zone).status, 0) << zone;
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_ / "data")) {
      if (entry.path().extension() == ".cjd")
        files[entry.path().filename().string()] = ReadFile(entry.path());
    }
    EXPECT_EQ(files.size(), 7u) << zone;  // the sample without USDJPY, W and I60
    folders.push_back(files);
  }
  EXPECT_EQ(folders[0], folders[1]);
  EXPECT_EQ(folders[0], folders[2]);
}

// Zero-filled tails and counts larger than the file add no bar; two symbols
// that share a first word stay apart.
TEST_F(DshostImportTest, TailsCountsAndNamesAsOtherProgramsWriteThem) {
  const std::vector<Listed> listing = generate(
      "--instrument 'BRK A,D,7,620000' --instrument 'BRK B,D,7,410' --instrument ' SPY ,D' "
      "--records 30 --tail 3 --header-count-extra 2");
  ASSERT_EQ(listing.size(), 3u);
  const Outcome imported = dshost("import export");
  ASSERT_EQ(imported.status, 0) << imported.err;
  for (const char* symbol : {"'BRK A' D", "'BRK B' D", "SPY D"}) {
    const std::vector<float> closes = Closes(get(symbol).out);
    EXPECT_EQ(closes.size(), 30u) << symbol;
  }
  EXPECT_EQ(Closes(get("'BRK A' D").out).back(), listing[0].lastClose);
  EXPECT_EQ(Closes(get("'BRK B' D").out).back(), listing[1].lastClose);
  EXPECT_EQ(Closes(get("BRK D").out).size(), 0u);
}

TEST_F(DshostImportTest, NothingToImportFailsWithTheReason) {
  std::filesystem::create_directories(dir_ / "empty");
  for (const char* folder : {"empty", "missing"}) {
    const Outcome imported = dshost(std::string("import ") + folder);
    EXPECT_EQ(imported.status, 1) << folder;
    EXPECT_TRUE(imported.out.starts_with("No importable instrument in ")) << imported.out;
    EXPECT_NE(imported.err.find("nothing to import in"), std::string::npos) << imported.err;
  }
  generate("--instrument X,D --instrument Y,I5 --missing 1 --missing 2");
  const Outcome imported = dshost("import export");
  EXPECT_EQ(imported.status, 1);
  EXPECT_NE(imported.out.find("Skipped X \"X daily\" D: missing data file F1.dat\n"),
            std::string::npos)
      << imported.out;
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
