// Where symbol files go: the provider join, escaped names, base names.
#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include "CjdTestFiles.h"
#include "ProviderPath.h"

namespace {

QString Joined(QString path, QString const& provider) {
  AddProvider(path, provider);
  return path;
}

TEST(AddProviderTest, JoinsOnceAndKeepsTheTrailingSlashRule) {
  EXPECT_EQ(Joined("/data", "Demo"), "/data/Demo");
  EXPECT_EQ(Joined("/data/", "Demo"), "/data/Demo");
  EXPECT_EQ(Joined("/data/Demo", "Demo"), "/data/Demo/");
  EXPECT_EQ(Joined("/data/Demo/", "Demo"), "/data/Demo/");
  EXPECT_EQ(Joined("/data/XDemo", "Demo"), "/data/XDemo/");  // a plain suffix test
}

TEST(EscapeTest, SeparatorsPercentAndControlsAreEscaped) {
  EXPECT_EQ(EscapeFileNamePart("EUR/USD"), "EUR%2FUSD");
  EXPECT_EQ(EscapeFileNamePart("a\\b%c"), "a%5Cb%25c");
  EXPECT_EQ(EscapeFileNamePart(QString("x") + QChar(1) + QChar(0x7F)), "x%01%7F");
  EXPECT_EQ(EscapeFileNamePart("EURUSD .-_x"), "EURUSD .-_x");
  EXPECT_EQ(ProviderFolderName(".."), "");
  EXPECT_EQ(ProviderFolderName("."), "");
  EXPECT_EQ(ProviderFolderName("../x"), "..%2Fx");
  EXPECT_EQ(ProviderFolderName("Demo"), "Demo");
  // 8-bit codes: text that decodes keeps its characters, bytes that do not
  // are escaped one by one, so two such codes never share a file.
  EXPECT_EQ(EscapeFileNameBytes("E/U\xC3\xA9"), QString("E%2FU") + QChar(0xE9));
  EXPECT_EQ(EscapeFileNameBytes("E/U\xE9"), "E%2FU%E9");
  EXPECT_EQ(EscapeFileNameBytes("E/U\xE8"), "E%2FU%E8");
}

// The folder is joined as given; names that would leave it are escaped.
TEST(SymbolPathTest, FileNamesOfTheFormat) {
  QTemporaryDir dir;
  cjdtest::TestOwner owner;
  QDir(dir.path()).mkdir("Demo");
  const std::string root = dir.path().toStdString();
  auto pathOf = [&](const char* name, SYMBOL_PERIOD period, const char* folder,
                    const char* code = "EURUSD") {
    auto symbol = cjdtest::MakeSymbol(&owner, name, period, code);
    EXPECT_EQ(symbol->Create(dir.path() + folder), 0);
    return symbol->file()->path();
  };
  EXPECT_EQ(pathOf("EURUSD", {'I', 15, 0}, "/Demo"), root + "/Demo/EURUSD_I15_EURUSD.cjd");
  EXPECT_EQ(pathOf("EURUSD", {'I', 15, 0}, ""), root + "/DemoEURUSD_I15_EURUSD.cjd");
  EXPECT_EQ(pathOf("EURUSD", {'I', 0, 0}, "/Demo/"), root + "/Demo/EURUSD_I0_EURUSD.cjd");
  EXPECT_EQ(pathOf("EURUSD", {'D', 3, 0}, "/Demo"), root + "/Demo/EURUSD_D_EURUSD.cjd");
  EXPECT_EQ(pathOf("EUR/USD", {'I', 5, 0}, "/Demo"), root + "/Demo/EUR%2FUSD_I5_EURUSD.cjd");
  EXPECT_EQ(pathOf("X", {'M', 0, 0}, "/Demo", "../../etc"), root + "/Demo/X_M_..%2F..%2Fetc.cjd");
  EXPECT_EQ(QDir(dir.path() + "/Demo").entryList(QDir::Files).size(), 5);
}

}  // namespace
