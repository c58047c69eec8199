// Directories written by export_generator read back with the values it
// listed, its index files and data files hold what it listed, and data files
// take the shapes asked for. Importing its sample through dshost is tested
// with the host.
#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <set>
#include <tuple>

#include "DataPoint.h"
#include "ExportConversion.h"
#include "ExportDirectory.h"
#include "ExportIndex.h"
#include "ImportTestSupport.h"

namespace {

constexpr int kListedFields = 13;
constexpr int kMasterNumbers = 255;  // file numbers in MASTER; XMASTER from 256 on
const QString kMomentFormat = QStringLiteral("yyyy-MM-ddThh:mm:ss");

// One line of the generator's --list output.
struct Listed {
  int number;
  QString file, index, symbol,
      period;  // file "-": none; index MASTER or XMASTER; period D, W, M, Y or I<size>
  int fields, recordLength, records;
  QString firstTime, lastTime;  // kMomentFormat
  float firstClose, lastClose;
  QString name;
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
    listed.push_back({f[0].toInt(), f[1], f[2], f[3], f[4], f[5].toInt(), f[6].toInt(),
                      f[7].toInt(), f[8], f[9], f[10].toFloat(), f[11].toFloat(), f[12]});
  }
  return listed;
}

// ---------------------------------------------------------------------------
// The files' bytes.

QByteArray FileBytes(QString const& path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
int U8(QByteArray const& bytes, int offset) { return static_cast<unsigned char>(bytes[offset]); }
int U16(QByteArray const& bytes, int offset) {
  return U8(bytes, offset) | U8(bytes, offset + 1) << 8;
}
std::uint32_t U32(QByteArray const& bytes, int offset) {
  return std::uint32_t(U16(bytes, offset)) | std::uint32_t(U16(bytes, offset + 2)) << 16;
}

// YYYYMMDD of a listed moment; 0 for "-".
std::uint32_t LongDate(QString const& moment) {
  const QDate date = QDateTime::fromString(moment, kMomentFormat).date();
  return date.isValid() ? date.year() * 10000 + date.month() * 100 + date.day() : 0;
}

// D, W, M, Y or I<size>, as listed.
QString PeriodText(char letter, int size) {
  return letter == 'I' ? QStringLiteral("I%1").arg(size) : QString(QLatin1Char(letter));
}

// A listed data file: the header count, the first and last record's date,
// time and close as listed, then `tail` zero records.
void ExpectDataFile(QString const& dir, Listed const& l, int tail, int headerCount) {
  SCOPED_TRACE(l.file.toStdString());
  const QByteArray bytes = FileBytes(dir + '/' + l.file);
  const int r = l.recordLength;
  ASSERT_EQ(bytes.size(), r * (1 + l.records + tail));
  EXPECT_EQ(U16(bytes, 2), headerCount);
  const bool intraday = l.period.startsWith('I');
  const bool open = l.fields > (intraday ? 6 : 5);
  const int close = kMbfFieldSize * (3 + intraday + open);  // after date, time, open, high and low
  for (auto const& [record, moment, value] :
       {std::tuple{1, l.firstTime, l.firstClose}, std::tuple{l.records, l.lastTime, l.lastClose}}) {
    const QDateTime at = QDateTime::fromString(moment, kMomentFormat);
    EXPECT_EQ(U32(bytes, record * r), MbfDate(at.date()));
    if (intraday) {
      EXPECT_EQ(U32(bytes, record * r + kMbfFieldSize), MbfTime(at.time()));
    }
    EXPECT_EQ(U32(bytes, record * r + close), MbfWord(value));
  }
  EXPECT_EQ(bytes.mid(r * (1 + l.records)), QByteArray(r * tail, '\0'));
}

// EMASTER's count, highest file number and long names.
void ExpectEmaster(QString const& path, std::vector<Listed> const& inMaster) {
  const QByteArray bytes = FileBytes(path);
  const int count = int(inMaster.size());
  ASSERT_EQ(bytes.size(), kEmasterRecordSize * (count + 1));
  EXPECT_EQ(U8(bytes, 0), count);
  EXPECT_EQ(U8(bytes, 2), inMaster.back().number);
  for (int k = 0; k < count; ++k) {
    const QByteArray record = bytes.mid((k + 1) * kEmasterRecordSize, kEmasterRecordSize);
    EXPECT_EQ(U8(record, 2), inMaster[k].number);
    EXPECT_EQ(record.mid(139),
              inMaster[k].name.toLatin1().leftJustified(kEmasterLongNameSize, '\0'));
  }
}

// XMASTER's header and every record against the listing.
void ExpectXmaster(QString const& path, std::vector<Listed> const& inXmaster) {
  const QByteArray bytes = FileBytes(path);
  const int count = int(inXmaster.size());
  ASSERT_EQ(bytes.size(), kXmasterRecordSize * (count + 1));
  EXPECT_EQ(bytes.left(4), "\x5D\xFE\x58\x4D");
  EXPECT_EQ(U16(bytes, 10), count);
  EXPECT_EQ(U16(bytes, 14), count);
  EXPECT_EQ(U16(bytes, 18), inXmaster.back().number + 1);
  for (int k = 0; k < count; ++k) {
    Listed const& l = inXmaster[k];
    SCOPED_TRACE(l.number);
    const QByteArray record = bytes.mid((k + 1) * kXmasterRecordSize, kXmasterRecordSize);
    EXPECT_EQ(U8(record, 0), 1);
    EXPECT_EQ(record.mid(1, kXmasterSymbolSize),
              l.symbol.toLatin1().leftJustified(kXmasterSymbolSize, '\0'));
    EXPECT_EQ(record.mid(16, kXmasterNameSize),
              l.name.toLatin1().leftJustified(kXmasterNameSize, '\0'));
    EXPECT_EQ(PeriodText(record[62], U16(record, 63)), l.period);
    EXPECT_EQ(U16(record, 65), l.number);
    EXPECT_EQ(U32(record, 108), LongDate(l.firstTime));
    EXPECT_EQ(U32(record, 116), LongDate(l.lastTime));
  }
}

// The only reader call outside ExpectReadBack.
int MasterEntryCount(QString const& dir) { return int(ReadMaster(ExportFolder(dir)).size()); }

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

QString Moment(std::int32_t time) {
  return QDateTime::fromSecsSinceEpoch(time, Qt::UTC).toString(kMomentFormat);
}

// "dd.MM.yy" and for intraday " hh:mm:ss" of a listed moment.
QString ShownTime(QString const& moment, bool intraday) {
  return QDateTime::fromString(moment, kMomentFormat)
      .toString(intraday ? "dd.MM.yy hh:mm:ss" : "dd.MM.yy");
}

// Every listed instrument against the index entry and the converted points.
void ExpectReadBack(QString const& dir, std::vector<Listed> const& listed) {
  const std::vector<IndexEntry> entries = ReadExportIndex(dir);
  ASSERT_EQ(entries.size(), listed.size());
  for (std::size_t k = 0; k < listed.size(); ++k) {
    Listed const& l = listed[k];
    IndexEntry const& entry = entries[k];
    SCOPED_TRACE(testing::Message()
                 << l.number << ' ' << l.symbol.toStdString() << ' ' << l.period.toStdString());
    const QString periodText =
        l.period.size() > 1 ? l.period.left(1) + "  " + l.period.mid(1) : l.period;
    EXPECT_EQ(entry.fileNumber, l.number);
    EXPECT_EQ(entry.symbol, l.symbol.trimmed());
    EXPECT_EQ(entry.fullName, l.name);
    EXPECT_EQ(entry.periodText(), periodText);
    EXPECT_EQ(entry.fieldCount, l.fields);
    EXPECT_EQ(entry.recordLength, l.recordLength);
    EXPECT_EQ(entry.source == IndexFile::kXmaster ? "XMASTER" : "MASTER", l.index);

    ConvertedInstrument converted;
    const ConversionOutcome outcome = ConvertInstrument(entry, "Bid", converted);
    if (l.file == "-") {
      EXPECT_EQ(entry.dataFile, "");
      EXPECT_EQ(outcome, ConversionOutcome::kMissingFile);
      continue;
    }
    EXPECT_EQ(entry.dataFile, dir + '/' + l.file);
    ASSERT_EQ(outcome, ConversionOutcome::kConverted);
    ASSERT_EQ(converted.pointCount, l.records);
    const auto [firstTime, firstClose] = PointAt(converted, 0);
    const auto [lastTime, lastClose] = PointAt(converted, l.records - 1);
    EXPECT_EQ(firstClose, l.firstClose);
    EXPECT_EQ(lastClose, l.lastClose);
    EXPECT_EQ(Moment(firstTime), l.firstTime);
    EXPECT_EQ(Moment(lastTime), l.lastTime);
    const bool intraday = entry.periodLetter == 'I';
    EXPECT_EQ(getFirstTime(l.recordLength, entry.periodLetter, entry.dataFile),
              ShownTime(l.firstTime, intraday));
    EXPECT_EQ(getLastTime(l.recordLength, entry.periodLetter, entry.dataFile),
              ShownTime(l.lastTime, intraday));
  }
}

using GeneratedDirectoryTest = PinnedTimeZone;

TEST_F(GeneratedDirectoryTest, FullIndexOfMixedInstruments) {
  QTemporaryDir dir;
  const auto listed =
      Generate({"--out", dir.path(), "--instruments", "255", "--records", "60", "--seed", "7"});
  ASSERT_EQ(listed.size(), 255u);
  std::set<QString> periods, fields, names;
  int missing = 0;
  for (Listed const& l : listed) {
    periods.insert(l.period);
    fields.insert(l.period.left(1) + QString::number(l.fields));
    names.insert(l.name);
    missing += l.file == "-";
    EXPECT_EQ(l.index, "MASTER");
    if (l.file != "-") ExpectDataFile(dir.path(), l, 0, l.records + 1);
  }
  EXPECT_EQ(periods, (std::set<QString>{"D", "W", "M", "Y", "I0", "I1", "I5", "I15", "I60"}));
  EXPECT_EQ(fields.size(), 15u);  // D, W, M, Y with 5 to 7 fields, I with 6 to 8
  EXPECT_EQ(names.size(), listed.size());
  EXPECT_GT(missing, 0);
  EXPECT_TRUE(QFileInfo::exists(dir.filePath("master")));
  EXPECT_FALSE(QFileInfo::exists(dir.filePath("xmaster")));
  ExpectEmaster(dir.filePath("emaster"), listed);
  ExpectReadBack(dir.path(), listed);
}

TEST_F(GeneratedDirectoryTest, ChosenInstrumentsNamesAndCases) {
  QTemporaryDir dir;
  const auto listed =
      Generate({"--out", dir.path(), "--instrument", "ABC DEF,I15,6,1.25,Alpha Beta quarter hours",
                "--instrument", "EUR/USD,D,5,0.75", "--instrument", "GBPUSD,W", "--missing", "3",
                "--master-name", "MASTER", "--data-case", "lower", "--records", "10"});
  ASSERT_EQ(listed.size(), 3u);
  EXPECT_EQ(listed[0].firstClose, 1.25f);
  EXPECT_EQ(listed[1].firstClose, 0.75f);
  EXPECT_EQ(listed[0].file, "f1.dat");
  EXPECT_EQ(listed[2].file, "-");
  EXPECT_EQ(listed[0].name, "Alpha Beta quarter hours");
  EXPECT_EQ(listed[1].name, "EUR/USD daily");
  EXPECT_EQ(listed[2].name, "British Pound vs US Dollar weekly");
  EXPECT_TRUE(QFileInfo::exists(dir.filePath("MASTER")));
  EXPECT_FALSE(QFileInfo::exists(dir.filePath("XMASTER")));
  ExpectEmaster(dir.filePath("EMASTER"), listed);
  ExpectReadBack(dir.path(), listed);
}

TEST_F(GeneratedDirectoryTest, FileNumbersAbove255GoToXmasterWithShapedDataFiles) {
  QTemporaryDir dir;
  const auto listed =
      Generate({"--out", dir.path(), "--instruments", "300", "--records", "3", "--data-case",
                "lower", "--tail", "2", "--header-count-extra", "5"});
  ASSERT_EQ(listed.size(), 300u);
  const std::vector<Listed> inMaster(listed.begin(), listed.begin() + kMasterNumbers);
  const std::vector<Listed> inXmaster(listed.begin() + kMasterNumbers, listed.end());
  EXPECT_EQ(MasterEntryCount(dir.path()), kMasterNumbers);
  ExpectEmaster(dir.filePath("emaster"), inMaster);
  ExpectXmaster(dir.filePath("xmaster"), inXmaster);
  for (Listed const& l : listed) {
    const bool above = l.number > kMasterNumbers;
    const QString name = QString(above ? "f%1.mwd" : "f%1.dat").arg(l.number);
    EXPECT_EQ(l.index, above ? "XMASTER" : "MASTER");
    EXPECT_EQ(QFileInfo::exists(dir.filePath(name)), l.file != "-") << name.toStdString();
    if (l.file == "-") continue;
    EXPECT_EQ(l.file, name);
    ExpectDataFile(dir.path(), l, 2, l.records + 1 + 5);
  }
  EXPECT_EQ(listed.back().file, "-");  // every 50th is missing
}

TEST_F(GeneratedDirectoryTest, HeaderCountZeroWithoutEmaster) {
  QTemporaryDir dir;
  const auto listed = Generate({"--out", dir.path(), "--instrument", "EURUSD,I0", "--records", "4",
                                "--header-count-zero", "--no-emaster"});
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(listed[0].name, "Euro vs US Dollar ticks");
  ExpectDataFile(dir.path(), listed[0], 0, 0);
  EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), (QStringList{"F1.DAT", "master"}));
}

}  // namespace
