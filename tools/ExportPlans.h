// ExportPlans.h: what export_generator writes for each instrument: its plan
// (symbol, long name, period, fields, first price), made up for the sample and
// the mixed sets or parsed from the command line, and its bars.
//
// Guarantees: bars are a pure function of the plans taken in order and the
// random engine's state; every moment lies before 2038 and every price is a
// positive value MBF holds.
// Thread-safety: pure functions; the random engine is the caller's.

#ifndef DATASTORE_TOOLS_EXPORTPLANS_H_
#define DATASTORE_TOOLS_EXPORTPLANS_H_

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

struct Period {
  char letter;  // 'D', 'W', 'M', 'Y' or 'I'
  int size;     // minutes for 'I'; 0: ticks
};

struct Plan {
  QByteArray symbol;
  QByteArray name;  // long name
  Period period;
  int fields;    // four-byte fields per record
  double price;  // first close
  bool missing;  // the index lists it, no data file is written
};

struct Bar {
  QDateTime moment;  // as written; no time zone
  float open, high, low, close, volume;
};

bool IsIntraday(Period period);
// D, W, M, Y or I<size>.
QString PeriodText(Period period);

// Daily EURUSD, GBPUSD and USDCHF, EURUSD 5-minute bars and ticks, and daily
// USDJPY without a data file.
std::vector<Plan> SamplePlans();
// `count` plans of pairs by periods, field counts varied, every 50th missing.
std::vector<Plan> MixedPlans(int count);
// SYMBOL,PERIOD[,FIELDS[,PRICE[,NAME]]]; nothing when any part is bad.
std::optional<Plan> ParsePlan(QString const& text);

// Up to `records` bars of the plan, fewer when its period reaches 2038.
std::vector<Bar> Bars(Plan const& plan, int records, std::mt19937& random);
// The MBF words of one record, in the order the plan's field count implies.
std::vector<std::uint32_t> RecordWords(Plan const& plan, Bar const& bar);

#endif  // DATASTORE_TOOLS_EXPORTPLANS_H_
