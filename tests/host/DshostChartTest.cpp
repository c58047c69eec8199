// dshost chart: the built dshost draws symbols that the built module stored
// from an imported sample.

#include <QImage>
#include <QSet>
#include <string>
#include <tuple>

#include "ProgramRun.h"

namespace {

constexpr int kManyColours = 8;  // a chart has more than its background, grid and text

int DistinctColours(const QImage& image) {
  QSet<QRgb> colours;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) colours.insert(image.pixel(x, y));
  }
  return int(colours.size());
}

class DshostChartTest : public ProgramTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(run("'" EXPORT_GENERATOR_PATH "' --out export --sample").status, 0);
    ASSERT_EQ(dshost("import export").status, 0);
  }
  Outcome dshost(const std::string& arguments) {
    return run("'" DSHOST_PATH "' --module '" DATASTORE_MODULE_PATH "' --data data " + arguments);
  }
  QImage picture(const std::string& file) {
    return QImage(QString::fromStdString((dir_ / file).string()));
  }
};

// Candles of bars and a line of ticks, each a full picture.
TEST_F(DshostChartTest, DrawsBarsAndTicksOfAnImportedSymbol) {
  for (const char* symbol : {"EURUSD D", "EURUSD I5 --last 50", "EURUSD I0"}) {
    const Outcome chart =
        dshost(std::string("--provider QUENDAL chart ") + symbol + " --code Bid --out chart.png");
    ASSERT_EQ(chart.status, 0) << symbol << ": " << chart.err;
    const QImage image = picture("chart.png");
    EXPECT_EQ(image.size(), QSize(960, 540)) << symbol;
    EXPECT_GT(DistinctColours(image), kManyColours) << symbol;
  }
}

TEST_F(DshostChartTest, RefusesWhatItCannotDraw) {
  // Arguments, exit status, a part of the message.
  const std::tuple<const char*, int, const char*> kCases[] = {
      {"--provider QUENDAL chart NOPE D --code Bid --out x.png", 1, "no records of NOPE D"},
      {"--provider QUENDAL chart EURUSD D --code Bid --from 1990-01-01 --to 1990-02-01 --out x.png",
       1, "no records of EURUSD D"},
      {"--provider QUENDAL chart EURUSD D --code Bid --out missing/x.png", 1, "cannot write"},
      {"--provider QUENDAL chart EURUSD D --code Bid", 2, "chart needs --out"},
      {"chart EURUSD Q --out x.png", 2, "bad period 'Q'"},
  };
  for (const auto& [arguments, status, error] : kCases) {
    const Outcome chart = dshost(arguments);
    EXPECT_EQ(chart.status, status) << arguments;
    EXPECT_NE(chart.err.find(error), std::string::npos) << arguments << ": " << chart.err;
    EXPECT_EQ(chart.out, "") << arguments;
  }
  EXPECT_FALSE(std::filesystem::exists(dir_ / "x.png"));
}

// The main window offscreen, its first symbol chosen.
TEST_F(DshostChartTest, GuiGrabsItsWindow) {
  const Outcome grab = dshost("gui --grab window.png");
  ASSERT_EQ(grab.status, 0) << grab.err;
  const QImage image = picture("window.png");
  EXPECT_EQ(image.size(), QSize(1200, 720));
  EXPECT_GT(DistinctColours(image), kManyColours);
}

}  // namespace
