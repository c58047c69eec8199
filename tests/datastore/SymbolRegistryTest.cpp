// The symbol registry on its own: its hash lookup against the match rules
// walked linearly, stored files registered from their headers, and the
// bound on open files.

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <filesystem>
#include <random>

#include "CjdTestFiles.h"
#include "SymbolRegistry.h"

namespace {

namespace fs = std::filesystem;
using cjdtest::Candle;
using cjdtest::MakeSymbol;
using cjdtest::TestOwner;

// A request as a caller fills one: every field written to its full width when
// `full` (no terminator), as a caller past the limits would.
struct RequestText {
  std::u16string name;
  std::string code, provider;
  char kind;
  std::int32_t length;
};

// The wide name lies at an odd offset of the packed record: it is copied as
// bytes, never through a char16_t pointer.
void SetName(SYMBOL_NAME_PERIOD& request, std::u16string const& name) {
  std::memcpy(reinterpret_cast<char*>(&request) + offsetof(SYMBOL_NAME_PERIOD, name), name.data(),
              std::min<std::size_t>(name.size(), kHostWideNameUnits) * sizeof(char16_t));
}

std::u16string NameOf(SYMBOL_NAME_PERIOD const& request) {
  std::u16string name(kHostWideNameUnits, u'\0');
  std::memcpy(name.data(),
              reinterpret_cast<const char*>(&request) + offsetof(SYMBOL_NAME_PERIOD, name),
              name.size() * sizeof(char16_t));
  return name.substr(0, name.find(u'\0'));
}

SYMBOL_NAME_PERIOD ToRequest(RequestText const& text) {
  SYMBOL_NAME_PERIOD request{};
  SetName(request, text.name);
  std::copy_n(text.code.begin(), std::min(text.code.size(), sizeof(request.code)), request.code);
  std::copy_n(text.provider.begin(), std::min(text.provider.size(), sizeof(request.provider)),
              request.provider);
  request.period.kind = text.kind;
  request.period.length = text.length;
  return request;
}

std::unique_ptr<CSymbol> SymbolOf(SymbolOwner* owner, SYMBOL_NAME_PERIOD const& request) {
  std::string code(request.code, strnlen(request.code, sizeof(request.code)));
  const std::u16string provider = QString::fromLocal8Bit(request.provider).toStdU16String();
  const std::u16string wideName = NameOf(request);
  const auto* name = reinterpret_cast<const unsigned short*>(wideName.c_str());
  return std::make_unique<CSymbol>(owner, name, request.period, name, code.data(),
                                   reinterpret_cast<const unsigned short*>(provider.c_str()));
}

// The match rules, walked over every registered symbol in order.
CSymbol* LinearFind(std::vector<std::pair<QString, CSymbol*>> const& all, QString const& folder,
                    SYMBOL_NAME_PERIOD const& request) {
  const QString name = QString::fromStdU16String(NameOf(request));
  const std::string code(request.code, strnlen(request.code, sizeof(request.code)));
  const QString provider = QString::fromLocal8Bit(
      request.provider, qsizetype(strnlen(request.provider, sizeof(request.provider))));
  for (auto const& [key, symbol] : all) {
    if (key == folder && QString::fromUtf16(symbol->name()) == name && code == symbol->code() &&
        QString::fromUtf16(symbol->providerName()) == provider &&
        symbol->period().kind == request.period.kind &&
        (request.period.kind != 'I' || symbol->period().length == request.period.length)) {
      return symbol;
    }
  }
  return nullptr;
}

// Random requests from a small space, so that most meet an earlier one, some
// differ in one field only, and some fill a field to its full width.
RequestText RandomText(std::mt19937& random) {
  auto pick = [&](int n) { return static_cast<int>(random() % unsigned(n)); };
  RequestText text{u"EUR", "EURUSD", "Demo", "IDWM"[pick(4)], pick(3)};
  if (pick(2)) text.name = pick(2) ? u"EUR/USD" : u"eur";
  if (pick(3) == 0) text.code = pick(2) ? "" : "EURUSD.x";
  if (pick(3) == 0) text.provider = "Other";
  if (pick(20) == 0) text.name = std::u16string(kHostWideNameUnits, u'N');
  if (pick(20) == 0) text.code = std::string(kHostNameField, 'C');
  return text;
}

TEST(SymbolRegistryTest, HashLookupGivesTheSymbolTheMatchRulesGive) {
  std::mt19937 random(20261124);
  SymbolRegistry registry(nullptr, OpenFileCache::kDefaultCapacity);
  std::vector<std::pair<QString, CSymbol*>> all;
  const QString folders[] = {"/data/Demo", "/data/Demo/"};
  int found = 0;
  for (int round = 0; round < 4000; ++round) {
    const QString folder = folders[random() % 2];
    const SYMBOL_NAME_PERIOD request = ToRequest(RandomText(random));
    CSymbol* expected = LinearFind(all, folder, request);
    ASSERT_EQ(registry.Find(folder, request, nullptr), expected) << "round " << round;
    found += expected != nullptr;
    if (expected == nullptr && random() % 2 == 0) {
      CSymbol* added = registry.Add(folder, SymbolOf(nullptr, request));
      all.emplace_back(folder, added);
      EXPECT_TRUE(registry.Contains(added));
    }
  }
  EXPECT_GT(found, 2000);
  EXPECT_EQ(registry.count(), all.size());
  EXPECT_FALSE(registry.Contains(&all));
  EXPECT_FALSE(registry.Contains(nullptr));
}

class StoredFilesTest : public ::testing::Test {
 protected:
  QString folder() const { return dir_.path(); }
  // A symbol file made as the store makes one, holding `records` candles.
  std::string Store(const char* name, SYMBOL_PERIOD period, int records) {
    std::unique_ptr<CSymbol> symbol = MakeSymbol(&owner_, name, period);
    EXPECT_EQ(symbol->Create(folder()), 0);
    EXPECT_TRUE(symbol->Open().ok());
    std::vector<CCandleDataPoint> candles;
    for (int i = 0; i < records; ++i) candles.push_back(Candle(1000 + 60 * i));
    EXPECT_TRUE(symbol->InsertData(records, reinterpret_cast<unsigned char*>(candles.data())).ok());
    return symbol->file()->path();
  }
  SYMBOL_NAME_PERIOD Request(const char* name, SYMBOL_PERIOD period) {
    std::unique_ptr<CSymbol> symbol = MakeSymbol(nullptr, name, period);
    SYMBOL_NAME_PERIOD request{};
    SetName(request, symbol->name());
    std::strcpy(request.code, symbol->code());
    std::strcpy(request.provider, "Demo");
    request.period = period;
    return request;
  }

  QTemporaryDir dir_;
  TestOwner owner_;
};

// Headers only at registration; the symbol loads when a request finds it. A
// damaged file is refused by name, other suffixes and links are not looked
// at, and of two files with one key the first by name wins.
TEST_F(StoredFilesTest, RegisteredFromTheirHeadersAndLoadedWhenFound) {
  const std::string daily = Store("EUR", {'D', 0, 0}, 3);
  Store("EUR", {'I', 5, 0}, 2);
  fs::copy_file(daily, folder().toStdString() + "/zz_copy.cjd");
  std::ofstream(folder().toStdString() + "/broken.cjd") << "not a data file";
  fs::copy_file(daily, folder().toStdString() + "/upper.CJD");
  fs::create_symlink(daily, folder().toStdString() + "/link.cjd");

  SymbolRegistry registry(&owner_, OpenFileCache::kDefaultCapacity);
  std::vector<QString> refused;
  const int added = registry.AddStoredFiles(
      folder(), [&](QString const& path, Status const&) { refused.push_back(path); });
  EXPECT_EQ(added, 3);
  EXPECT_EQ(refused, std::vector<QString>{folder() + "/broken.cjd"});

  CSymbol* symbol = registry.Find(folder(), Request("EUR", {'D', 9, 0}), nullptr);
  ASSERT_NE(symbol, nullptr);
  EXPECT_EQ(symbol->file()->path(), daily);
  EXPECT_TRUE(registry.Contains(symbol));
  EXPECT_EQ(registry.Find(folder(), Request("EUR", {'D', 0, 0}), nullptr), symbol);
  ASSERT_TRUE(registry.Use(*symbol).ok());
  EXPECT_EQ(symbol->GetDataPointCount(), 3);
  EXPECT_NE(registry.Find(folder(), Request("EUR", {'I', 5, 0}), nullptr), nullptr);
  EXPECT_EQ(registry.Find(folder(), Request("EUR", {'I', 1, 0}), nullptr), nullptr);
  EXPECT_EQ(registry.Find(folder() + "/", Request("EUR", {'D', 0, 0}), nullptr), nullptr);
}

// Never more files open than the bound; a symbol whose file was closed for
// another reads on as before.
TEST_F(StoredFilesTest, OpenFilesStayWithinTheBound) {
  constexpr int kSymbols = 7;
  constexpr std::size_t kBound = 3;
  SymbolRegistry registry(&owner_, kBound);
  std::vector<CSymbol*> symbols;
  for (int i = 0; i < kSymbols; ++i) {
    const std::string name = "S" + std::to_string(i);
    Store(name.c_str(), {'D', 0, 0}, i + 1);
    symbols.push_back(registry.Add(folder(), MakeSymbol(&owner_, name.c_str(), {'D', 0, 0})));
    ASSERT_EQ(symbols.back()->Create(folder()), 0);
  }
  for (int round = 0; round < 3 * kSymbols; ++round) {
    CSymbol& symbol = *symbols[(round * 5) % kSymbols];
    ASSERT_TRUE(registry.Use(symbol).ok());
    EXPECT_EQ(symbol.GetDataPointCount(), (round * 5) % kSymbols + 1);
    const auto open = std::count_if(symbols.begin(), symbols.end(),
                                    [](CSymbol* s) { return s->file()->IsOpen(); });
    EXPECT_LE(std::size_t(open), kBound);
    EXPECT_EQ(registry.openFiles().openCount(), std::size_t(open));
  }
  registry.openFiles().setCapacity(1);
  EXPECT_EQ(
      std::count_if(symbols.begin(), symbols.end(), [](CSymbol* s) { return s->file()->IsOpen(); }),
      1);
}

}  // namespace
