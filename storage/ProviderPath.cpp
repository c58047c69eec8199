#include "ProviderPath.h"

namespace {

constexpr char16_t kFirstPrintable = 0x20;
constexpr char16_t kDelete = 0x7F;
constexpr unsigned int kFirstNonAscii = 0x80;

QString PercentEscaped(unsigned int unit) {
  return QStringLiteral("%%1").arg(unit, 2, 16, QLatin1Char('0')).toUpper();
}

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
      escaped += PercentEscaped(c.unicode());
    } else {
      escaped += c;
    }
  }
  return escaped;
}

QString EscapeFileNameBytes(QByteArray const& text) {
  const QString decoded = QString::fromLocal8Bit(text);
  if (decoded.toLocal8Bit() == text) return EscapeFileNamePart(decoded);
  QString escaped;
  for (char byte : text) {
    const auto unit = static_cast<unsigned char>(byte);
    escaped +=
        unit < kFirstNonAscii ? EscapeFileNamePart(QString(QChar(unit))) : PercentEscaped(unit);
  }
  return escaped;
}

QString ProviderFolderName(QString const& provider) {
  if (provider.isEmpty() || provider == QLatin1String(".") || provider == QLatin1String("..")) {
    return QString();
  }
  return EscapeFileNamePart(provider);
}
