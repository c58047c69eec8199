// ImportReport.h: what an import did, instrument by instrument, as the user
// reads it in the dialog, the host log and dshost's output.
//
// Lines, one per instrument in the order added, then a summary:
//   Imported EURUSD "Euro vs US Dollar" D Bid: 5000 points
//   Imported EURUSD I5 Bid: 4998 points, 2 records skipped (date or time unreadable)
//   Skipped USDJPY D: missing data file F6.DAT
//   Imported 2 instruments, 9998 points stored; skipped 1.
// Thread-safety: none (a value).

#ifndef DATASTORE_IMPORT_IMPORTREPORT_H_
#define DATASTORE_IMPORT_IMPORTREPORT_H_

#include <QString>
#include <QStringList>
#include <cstdint>

#include "ExportConversion.h"
#include "ExportIndex.h"

class ImportReport {
 public:
  void AddImported(IndexEntry const& entry, QString const& code, int points, int skippedRecords);
  // REQUIRES: outcome is not kConverted.
  void AddSkipped(IndexEntry const& entry, ConversionOutcome outcome);

  int imported() const { return imported_; }
  std::int64_t points() const { return points_; }
  int skipped() const { return skipped_; }
  // The instruments' lines, then the summary.
  QStringList Lines() const;
  QString Summary() const;

 private:
  QStringList lines_;        // one per instrument
  int imported_ = 0;         // instruments posted to the store
  std::int64_t points_ = 0;  // points posted to the store
  int skipped_ = 0;          // instruments not posted
};

// Why an instrument was skipped, as the report says it: "missing data file
// F6.DAT", "stored before with another record size".
QString SkipReasonText(IndexEntry const& entry, ConversionOutcome outcome);
// The period as dshost writes it: "D", "W", "M", "Y", "I5", "I0" for ticks.
QString CompactPeriodText(IndexEntry const& entry);

#endif  // DATASTORE_IMPORT_IMPORTREPORT_H_
