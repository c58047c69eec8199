#include "ProviderPath.h"

namespace {

constexpr char16_t kFirstPrintable = 0x20;
constexpr char16_t kDelete = 0x7F;

bool NeedsEscape(QChar c) {
  const char16_t unit = c.unicode();
  return unit == u'/' || unit == u'\\' || unit == u'%' || unit < kFirstPrintable || unit == kDelete;
}

}  // namespace

void AddProvider(QString& path, QString const& provider) {
  if (!path.endsWith(QLatin1Char('/'))) path += QLatin1Char('/');
  if (!path.endsWith(provider + QLatin1Char('/'))) path += provider;
}

QString EscapeFileNamePart(QString const& text) {
  QString escaped;
  escaped.reserve(text.size());
  for (QChar c : text) {
    if (NeedsEscape(c)) {
      escaped += QStringLiteral("%%1").arg(c.unicode(), 2, 16, QLatin1Char('0')).toUpper();
    } else {
      escaped += c;
    }
  }
  return escaped;
}

QString ProviderFolderName(QString const& provider) {
  if (provider.isEmpty() || provider == QLatin1String(".") || provider == QLatin1String("..")) {
    return QString();
  }
  return EscapeFileNamePart(provider);
}
