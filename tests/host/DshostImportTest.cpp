// dshost import: the built dshost drives the built module's import dialog over
// a folder that export_generator wrote; a later dshost run reads the stored
// symbols back, so everything reported must have reached the files.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "ProgramRun.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kCode = "Bid";  // the price type every row starts with
constexpr char kNoFile[] = "-";       // the listing's file of an instrument without data
constexpr std::uint32_t kDialogWidth = 420;
constexpr std::uint32_t kDialogHeight = 440;
constexpr char kPngSignature[] = "\x89PNG\r\n\x1a\n";
constexpr std::size_t kPngWidthOffset = 16;   // IHDR: width, then height, big-endian
constexpr std::size_t kPngHeightOffset = 20;

// One line of export_generator --list.
struct Listed {
  std::string file;    // data file name, kNoFile when missing
  std::string symbol;
  std::string period;  // D, W, M, Y or I<size>
  int records = 0;
  float firstClose = 0;
  float lastClose = 0;
};

std::vector<std::string> Split(const std::string& line, char separator) {
  std::vector<std::string> fields;
  std::istringstream in(line);
  for (std::string field; std::getline(in, field, separator);) fields.push_back(field);
  return fields;
}

std::vector<std::string> Lines(const std::string& text) { return Split(text, '\n'); }

// number, file, symbol, period, fields, R, records, first and last time,
// first and last close.
std::vector<Listed> ParseListing(const std::string& text) {
  std::vector<Listed> listed;
  for (const std::string& line : Lines(text)) {
    if (line.empty() || line[0] == '#') continue;
    const std::vector<std::string> f = Split(line, '\t');
    Listed entry{f.at(1), f.at(2), f.at(3), std::stoi(f.at(6))};
    if (entry.file != kNoFile) {
      entry.firstClose = std::stof(f.at(9));
      entry.lastClose = std::stof(f.at(10));
    }
    listed.push_back(entry);
  }
  return listed;
}

bool IsTicks(const Listed& entry) { return entry.period == "I0"; }

// The close of the only record of a `get` output: Close for bars, Value for ticks.
float OnlyClose(const std::string& csv) {
  const std::vector<std::string> lines = Lines(csv);
  EXPECT_EQ(lines.size(), 2u) << csv;
  if (lines.size() != 2) return 0;
  const std::vector<std::string> header = Split(lines[0], ',');
  auto column = std::find(header.begin(), header.end(), "Close");
  if (column == header.end()) column = std::find(header.begin(), header.end(), "Value");
  return std::stof(Split(lines[1], ',').at(column - header.begin()));
}

std::uint32_t BigEndianWord(const std::string& bytes, std::size_t offset) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < sizeof word; ++i) {
    word = word << 8 | static_cast<unsigned char>(bytes.at(offset + i));
  }
  return word;
}

class DshostImportTest : public ProgramTest {
 protected:
  // dshost with its data in "data", under the provider of imported symbols.
  // The importer reads export times as local time; in UTC every generated
  // moment exists exactly once.
  Outcome dshost(const std::string& arguments) {
    return run("TZ=UTC '" DSHOST_PATH "' --module '" DATASTORE_MODULE_PATH
               "' --data data --provider QUENDAL " + arguments);
  }

  // Writes the folder "export" and returns its listing.
  std::vector<Listed> generate(const std::string& arguments) {
    const Outcome generated =
        run("TZ=UTC '" EXPORT_GENERATOR_PATH "' --out export --list " + arguments);
    EXPECT_EQ(generated.status, 0) << generated.err;
    return ParseListing(generated.out);
  }

  // Imports "export" and checks the report and the stored symbols against
  // the listing: every bar is stored, ticks of one second keep the last.
  void importAndCompare(const std::vector<Listed>& listed) {
    const Outcome imported = dshost("import export");
    ASSERT_EQ(imported.status, 0) << imported.err;
    const std::vector<std::string> report = Lines(imported.out);
    std::size_t line = 0;
    for (const Listed& entry : listed) {
      if (entry.file == kNoFile) continue;
      ASSERT_LT(line, report.size()) << "no line for " << entry.symbol << " " << entry.period;
      expectStored(entry, expectReported(entry, report[line++]));
    }
    EXPECT_EQ(line, report.size()) << imported.out;
  }

  // Checks the entry's line NAME PERIOD CODE RECORDS; returns RECORDS.
  static int expectReported(const Listed& entry, const std::string& line) {
    const std::vector<std::string> words = Split(line, ' ');
    EXPECT_EQ(words.size(), 4u) << line;
    if (words.size() != 4) return 0;
    EXPECT_EQ(words[0], entry.symbol);
    EXPECT_EQ(words[1], entry.period);
    EXPECT_EQ(words[2], kCode);
    const int stored = std::stoi(words[3]);
    if (IsTicks(entry)) {
      EXPECT_GT(stored, 0) << line;
      EXPECT_LE(stored, entry.records) << line;
    } else {
      EXPECT_EQ(stored, entry.records) << line;
    }
    return stored;
  }

  void expectStored(const Listed& entry, int stored) {
    const std::string symbol = entry.symbol + " " + entry.period + " --code " + kCode;
    const Outcome count = dshost("count " + symbol);
    ASSERT_EQ(count.status, 0) << count.err;
    EXPECT_EQ(count.out, std::to_string(stored) + "\n") << symbol;
    const Outcome last = dshost("get " + symbol + " --last 1");
    ASSERT_EQ(last.status, 0) << last.err;
    EXPECT_EQ(OnlyClose(last.out), entry.lastClose) << symbol;
    if (IsTicks(entry)) return;  // the first second may hold several ticks
    const Outcome first = dshost("get " + symbol + " --first 1");
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(OnlyClose(first.out), entry.firstClose) << symbol;
  }
};

TEST_F(DshostImportTest, SampleImportReportsAndStoresEveryInstrumentWithData) {
  const std::vector<Listed> listed = generate("--sample");
  ASSERT_TRUE(std::any_of(listed.begin(), listed.end(),
                          [](const Listed& entry) { return entry.file == kNoFile; }))
      << "the sample lists an instrument without a data file";
  importAndCompare(listed);
}

TEST_F(DshostImportTest, EveryPeriodAndFieldCountIsStored) {
  importAndCompare(generate("--instruments 27 --records 1500 --data-case lower"));
}

TEST_F(DshostImportTest, FolderWithoutIndexFailsWithAMessage) {
  fs::create_directories(dir_ / "empty");
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
  const std::string png = ReadFile(dir_ / "dialog.png");
  ASSERT_EQ(png.compare(0, sizeof kPngSignature - 1, kPngSignature), 0);
  EXPECT_EQ(BigEndianWord(png, kPngWidthOffset), kDialogWidth);
  EXPECT_EQ(BigEndianWord(png, kPngHeightOffset), kDialogHeight);
}

}  // namespace
