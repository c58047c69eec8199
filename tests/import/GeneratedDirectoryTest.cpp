// Directories written by export_generator read back with the values it
// listed. Importing its sample through dshost is tested with the host.
#include <gtest/gtest.h>

#include <QDateTime>
#include <QFileInfo>
#include <QProcess>
#include <set>

#include "DataPoint.h"
#include "ExportDirectory.h"
#include "ImportTestSupport.h"

namespace {

constexpr int kListedFields = 11;
const QString kMomentFormat = QStringLiteral("yyyy-MM-ddThh:mm:ss");

// One line of the generator's --list output.
struct Listed {
  int number;
  QString file, symbol, period;  // file "-": none; period D, W, M, Y or I<size>
  int fields, recordLength, records;
  QString firstTime, lastTime;  // kMomentFormat
  float firstClose, lastClose;
};

std::vector<Listed> Generate(QStringList const& arguments) {
  QProcess generator;
  generator.start(QStringLiteral(EXPORT_GENERATOR_PATH), arguments + QStringList{"--list"});
  EXPECT_TRUE(generator.waitForFinished(120000));
  EXPECT_EQ(generator.exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(generator.exitCode(), 0);
  std::vector<Listed> listed;
  for (QByteArray const& line : generator.readAllStandardOutput().split('\n')) {
    if (line.isEmpty() || line.startsWith('#')) continue;
    const QList<QByteArray> f = line.split('\t');
    EXPECT_EQ(f.size(), kListedFields) << line.constData();
    if (f.size() != kListedFields) continue;
    listed.push_back({f[0].toInt(), f[1], f[2], f[3], f[4].toInt(), f[5].toInt(), f[6].toInt(), f[7], f[8],
                      f[9].toFloat(), f[10].toFloat()});
  }
  return listed;
}

// The time and close of point k; a tick's value is its close.
std::pair<std::int32_t, float> PointAt(ConvertedInstrument const& converted, int k) {
  const unsigned char* at = converted.points.data() + std::size_t(k) * converted.pointSize;
  if (converted.pointSize == sizeof(TickDataPoint)) {
    TickDataPoint tick;
    std::memcpy(&tick, at, sizeof tick);
    return {tick.time, tick.value};
  }
  CCandleDataPoint candle;
  std::memcpy(static_cast<void*>(&candle), at, sizeof candle);
  return {candle.time, candle.close};
}

QString Moment(std::int32_t time) { return QDateTime::fromSecsSinceEpoch(time, Qt::UTC).toString(kMomentFormat); }

// "dd.MM.yy" and for intraday " hh:mm:ss" of a listed moment.
QString ShownTime(QString const& moment, bool intraday) {
  return QDateTime::fromString(moment, kMomentFormat).toString(intraday ? "dd.MM.yy hh:mm:ss" : "dd.MM.yy");
}

// Every listed instrument against the index entry and the converted points.
void ExpectReadBack(QString const& dir, std::vector<Listed> const& listed) {
  const std::vector<IndexEntry> entries = ReadMaster(dir);
  ASSERT_EQ(entries.size(), listed.size());
  for (std::size_t k = 0; k < listed.size(); ++k) {
    Listed const& l = listed[k];
    IndexEntry const& entry = entries[k];
    SCOPED_TRACE(testing::Message() << l.number << ' ' << l.symbol.toStdString() << ' ' << l.period.toStdString());
    const QString periodText = l.period.size() > 1 ? l.period.left(1) + "  " + l.period.mid(1) : l.period;
    EXPECT_EQ(entry.fileNumber(), l.number);
    EXPECT_EQ(entry.symbol(), l.symbol.leftJustified(kIndexSymbolSize));
    EXPECT_EQ(entry.periodText(), periodText);
    EXPECT_EQ(entry.fieldCount(), l.fields);
    EXPECT_EQ(entry.recordLength(), l.recordLength);

    ConvertedInstrument converted;
    const bool converts = ConvertInstrument(dir, entry, entry, "Bid", converted);
    const QString path = DataFilePath(dir, l.number);
    if (l.file == "-") {
      EXPECT_FALSE(QFileInfo::exists(path));
      EXPECT_FALSE(converts);
      continue;
    }
    EXPECT_EQ(path, dir + '/' + l.file);
    ASSERT_TRUE(converts);
    ASSERT_EQ(converted.pointCount, l.records);
    const auto [firstTime, firstClose] = PointAt(converted, 0);
    const auto [lastTime, lastClose] = PointAt(converted, l.records - 1);
    EXPECT_EQ(firstClose, l.firstClose);
    EXPECT_EQ(lastClose, l.lastClose);
    EXPECT_EQ(Moment(firstTime), l.firstTime);
    EXPECT_EQ(Moment(lastTime), l.lastTime);
    const bool intraday = entry.periodLetter() == 'I';
    EXPECT_EQ(getFirstTime(l.recordLength, entry.periodLetter(), path), ShownTime(l.firstTime, intraday));
    EXPECT_EQ(getLastTime(l.recordLength, entry.periodLetter(), path), ShownTime(l.lastTime, intraday));
  }
}

using GeneratedDirectoryTest = PinnedTimeZone;

TEST_F(GeneratedDirectoryTest, FullIndexOfMixedInstruments) {
  QTemporaryDir dir;
  const auto listed = Generate({"--out", dir.path(), "--instruments", "255", "--records", "60", "--seed", "7"});
  ASSERT_EQ(listed.size(), 255u);
  std::set<QString> periods, fields;
  int missing = 0;
  for (Listed const& l : listed) {
    periods.insert(l.period);
    fields.insert(l.period.left(1) + QString::number(l.fields));
    missing += l.file == "-";
  }
  EXPECT_EQ(periods, (std::set<QString>{"D", "W", "M", "Y", "I0", "I1", "I5", "I15", "I60"}));
  EXPECT_EQ(fields.size(), 15u);  // D, W, M, Y with 5 to 7 fields, I with 6 to 8
  EXPECT_GT(missing, 0);
  EXPECT_TRUE(QFileInfo::exists(dir.filePath("master")));
  ExpectReadBack(dir.path(), listed);
}

TEST_F(GeneratedDirectoryTest, ChosenInstrumentsNamesAndCases) {
  QTemporaryDir dir;
  const auto listed = Generate({"--out", dir.path(), "--instrument", "ABC DEF,I15,6,1.25", "--instrument",
                                "EUR/USD,D,5,0.75", "--instrument", "GBPUSD,W", "--missing", "3",
                                "--master-name", "MASTER", "--data-case", "lower", "--records", "10"});
  ASSERT_EQ(listed.size(), 3u);
  EXPECT_EQ(listed[0].firstClose, 1.25f);
  EXPECT_EQ(listed[1].firstClose, 0.75f);
  EXPECT_EQ(listed[0].file, "f1.dat");
  EXPECT_EQ(listed[2].file, "-");
  EXPECT_TRUE(QFileInfo::exists(dir.filePath("MASTER")));
  ExpectReadBack(dir.path(), listed);
}

}  // namespace
