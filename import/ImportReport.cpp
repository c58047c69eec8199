// The lines of an import's report.

#include "ImportReport.h"
#include "Period.h"

namespace {

// "EURUSD "Euro vs US Dollar" D": the symbol, its name when it has one, the period.
QString Instrument(IndexEntry const& entry) {
  QString text = entry.symbol;
  if (!entry.fullName.isEmpty()) text += QStringLiteral(" \"%1\"").arg(entry.fullName);
  return text + QLatin1Char(' ') + CompactPeriodText(entry);
}

}  // namespace

QString CompactPeriodText(IndexEntry const& entry) {
  if (entry.periodLetter == 0) return QStringLiteral("?");
  return QString::fromLatin1(period::Text(entry.periodLetter, entry.intradaySize));
}

QString SkipReasonText(IndexEntry const& entry, ConversionOutcome outcome) {
  const QString file = entry.dataFileName();
  switch (outcome) {
    case ConversionOutcome::kMissingFile: return QStringLiteral("missing data file %1").arg(file);
    case ConversionOutcome::kNoRecords: return QStringLiteral("no records in %1").arg(file);
    case ConversionOutcome::kUnreadableRecords:
      return QStringLiteral("unreadable records in %1").arg(file);
    case ConversionOutcome::kPeriodNotImported:
      return QStringLiteral("period %1 is not imported").arg(CompactPeriodText(entry));
    case ConversionOutcome::kOutOfMemory:
      return QStringLiteral("%1 does not fit in memory").arg(file);
    case ConversionOutcome::kStoredWithOtherRecordSize:
      return QStringLiteral("stored before with another record size");
    case ConversionOutcome::kRefusedByStore: return QStringLiteral("refused by the store");
    case ConversionOutcome::kConverted: break;
  }
  return {};
}

void ImportReport::AddImported(IndexEntry const& entry, QString const& code, int points,
                               int skippedRecords) {
  QString line =
      QStringLiteral("Imported %1 %2: %3 points").arg(Instrument(entry), code).arg(points);
  if (skippedRecords > 0) {
    line += QStringLiteral(", %1 records skipped (date or time unreadable)").arg(skippedRecords);
  }
  lines_ << line;
  ++imported_;
  points_ += points;
}

void ImportReport::AddSkipped(IndexEntry const& entry, ConversionOutcome outcome) {
  lines_ << QStringLiteral("Skipped %1: %2").arg(Instrument(entry), SkipReasonText(entry, outcome));
  ++skipped_;
}

QString ImportReport::Summary() const {
  return QStringLiteral("Imported %1 instruments, %2 points stored; skipped %3.")
      .arg(imported_)
      .arg(points_)
      .arg(skipped_);
}

QStringList ImportReport::Lines() const { return lines_ + QStringList{Summary()}; }
