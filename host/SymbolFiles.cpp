#include "SymbolFiles.h"

#include <QByteArray>
#include <QDir>
#include <QStringList>

#include "SymbolRequest.h"

namespace {

constexpr char kSuffix[] = ".cjd";  // of a symbol file
constexpr char kFilePattern[] = "*.cjd";
constexpr QChar kSeparator = u'_';  // between name, period and code

// A file name part with its %XX escapes undone, in the local encoding.
QByteArray Unescaped(const QString& part) {
  return QByteArray::fromPercentEncoding(part.toLocal8Bit());
}

bool IsPeriod(const QString& field) {
  SYMBOL_PERIOD period{};
  std::string ignored;
  return ParsePeriod(field.toStdString(), &period, &ignored);
}

}  // namespace

bool ParseSymbolFileName(const QString& fileName, StoredSymbol* symbol) {
  if (!fileName.endsWith(QLatin1String(kSuffix))) return false;
  const QStringList fields = fileName.chopped(int(sizeof kSuffix) - 1).split(kSeparator);
  for (qsizetype period = fields.size() - 2; period >= 1; --period) {
    if (!IsPeriod(fields[period])) continue;
    const QString name = fields.mid(0, period).join(kSeparator);
    const QString code = fields.mid(period + 1).join(kSeparator);
    if (name.isEmpty() || code.isEmpty()) continue;
    symbol->name = QString::fromLocal8Bit(Unescaped(name));
    symbol->period = fields[period].toStdString();
    symbol->code = Unescaped(code).toStdString();
    return true;
  }
  return false;
}

std::vector<ProviderSymbols> ListSymbols(const QString& dataFolder) {
  std::vector<ProviderSymbols> providers;
  const QDir data(dataFolder);
  for (const QString& folder : data.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
    const QDir files(data.filePath(folder));
    ProviderSymbols provider{Unescaped(folder).toStdString(), {}};
    const QStringList names =
        files.entryList({QLatin1String(kFilePattern)}, QDir::Files, QDir::Name | QDir::IgnoreCase);
    for (const QString& name : names) {
      StoredSymbol symbol;
      symbol.path = files.filePath(name);
      if (ParseSymbolFileName(name, &symbol)) provider.symbols.push_back(symbol);
    }
    if (!provider.symbols.empty()) providers.push_back(std::move(provider));
  }
  return providers;
}
