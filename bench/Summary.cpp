#include "Summary.h"

#include <unistd.h>

#include <cstdio>
#include <optional>

#include "Cases.h"
#include "PerRecordStore.h"

namespace {

constexpr double kMinAppendSpeedup = 10.0;  // appends: at least this many times faster than SQLite
constexpr double kMinReadSpeedup = 20.0;    // reads: at least this many times faster than SQLite
constexpr double kMinUpsertSpeedup = 1.0;   // random upserts: faster than SQLite
constexpr double kThousand = 1000.0;
constexpr int kTitleWidth = 38;
constexpr int kTimeWidth = 12;
constexpr int kRatioWidth = 14;
constexpr int kTargetWidth = 76;
constexpr int kLimitWidth = 9;
constexpr std::size_t kTextCapacity = 64;  // of one formatted number

using Quantity = std::optional<double>;  // seconds or a ratio; empty when not measured

std::string Printf(const char* format, double value, const char* suffix) {
  char text[kTextCapacity];
  std::snprintf(text, sizeof(text), format, value, suffix);
  return text;
}

std::string FormatTime(Quantity seconds) {
  if (!seconds) return "-";
  const char* units[] = {"s", "ms", "us", "ns"};
  double value = *seconds;
  int unit = 0;
  while (value < 1.0 && unit + 1 < static_cast<int>(std::size(units))) {
    value *= kThousand;
    ++unit;
  }
  return Printf("%.3g %s", value, units[unit]);
}

std::string FormatRatio(Quantity ratio) {
  if (!ratio) return "-";
  return Printf(*ratio < kThousand ? "%.3g%s" : "%.0f%s", *ratio, "x");
}

Quantity Ratio(Quantity numerator, Quantity denominator) {
  if (!numerator || !denominator || *denominator <= 0) return std::nullopt;
  return *numerator / *denominator;
}

// How the plain per-record insert's time grows from its scaled-down run to
// full size: appends with the number of records; upserts with the number of
// records times the length of the tail each of them moves.
double PerRecordGrowth(CaseKind kind) {
  double scale = PerRecordStore::kScale;
  return kind == CaseKind::Upsert ? scale * scale : scale;
}

struct Row {
  CaseInfo const* info;
  Quantity engine, sqlite, raw, perRecord;
};

Quantity Find(std::map<std::string, double> const& seconds, std::string const& name) {
  auto found = seconds.find(name);
  return found == seconds.end() ? Quantity{} : Quantity{found->second};
}

std::string Cell(std::string const& text, int width) {
  return text.size() >= static_cast<std::size_t>(width)
             ? " " + text
             : std::string(width - text.size(), ' ') + text;
}

std::string Left(std::string const& text, int width) {
  return text.size() >= static_cast<std::size_t>(width)
             ? text + " "
             : text + std::string(width - text.size(), ' ');
}

void PrintTimes(std::vector<Row> const& rows, std::ostream& out) {
  out << Left("case", kTitleWidth) << Cell("engine", kTimeWidth) << Cell("SQLite", kTimeWidth)
      << Cell("raw", kTimeWidth) << Cell("per-record", kTimeWidth)
      << Cell("(est. full)", kTimeWidth) << Cell("SQLite/engine", kRatioWidth)
      << Cell("engine/raw", kRatioWidth) << "\n";
  for (Row const& row : rows) {
    Quantity estimate;
    if (row.perRecord) estimate = *row.perRecord * PerRecordGrowth(row.info->kind);
    out << Left(row.info->title, kTitleWidth) << Cell(FormatTime(row.engine), kTimeWidth)
        << Cell(FormatTime(row.sqlite), kTimeWidth) << Cell(FormatTime(row.raw), kTimeWidth)
        << Cell(FormatTime(row.perRecord), kTimeWidth) << Cell(FormatTime(estimate), kTimeWidth)
        << Cell(FormatRatio(Ratio(row.sqlite, row.engine)), kRatioWidth)
        << Cell(FormatRatio(Ratio(row.engine, row.raw)), kRatioWidth) << "\n";
  }
}

// Engine to raw I/O where a case sets it, and SQLite to the engine.
std::vector<RatioTarget> CaseTargets() {
  std::vector<RatioTarget> targets;
  for (CaseInfo const& info : AllCases()) {
    const std::string engine = BenchmarkName(info, "engine");
    const std::string sqlite = BenchmarkName(info, "sqlite");
    const std::string raw = BenchmarkName(info, "raw");
    if (info.maxToRaw > 0)
      targets.push_back({info.title + ": engine / raw", engine, raw, sqlite, info.maxToRaw});
    const double speedup = info.kind == CaseKind::Append ? kMinAppendSpeedup
                           : info.kind == CaseKind::Read ? kMinReadSpeedup
                                                         : kMinUpsertSpeedup;
    targets.push_back({info.title + ": SQLite / engine", sqlite, engine, "", speedup, true});
  }
  return targets;
}

void PrintTargets(std::map<std::string, double> const& seconds,
                  std::vector<RatioTarget> const& targets, std::ostream& out) {
  out << Left("target", kTargetWidth) << Cell("measured", kTimeWidth) << Cell("against", kTimeWidth)
      << Cell("ratio", kLimitWidth) << Cell("target", kLimitWidth) << Cell("SQLite", kTimeWidth)
      << "  result\n";
  for (RatioTarget const& target : targets) {
    const Quantity measured = Find(seconds, target.measured);
    const Quantity against = Find(seconds, target.against);
    const Quantity ratio = Ratio(measured, against);
    const bool met = ratio && (target.atLeast ? *ratio >= target.limit : *ratio <= target.limit);
    const std::string bound = (target.atLeast ? ">= " : "<= ") + FormatRatio(target.limit);
    out << Left(target.title, kTargetWidth) << Cell(FormatTime(measured), kTimeWidth)
        << Cell(FormatTime(against), kTimeWidth) << Cell(FormatRatio(ratio), kLimitWidth)
        << Cell(bound, kLimitWidth)
        << Cell(target.peer.empty() ? "" : FormatTime(Find(seconds, target.peer)), kTimeWidth)
        << "  "
        << (!ratio ? "not measured"
            : met  ? "met"
                   : "NOT MET")
        << "\n";
  }
}

}  // namespace

CollectingReporter::CollectingReporter()
    : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

void CollectingReporter::ReportRuns(std::vector<Run> const& runs) {
  ConsoleReporter::ReportRuns(runs);
  for (Run const& run : runs) {
    bool single = run.run_type == Run::RT_Iteration;
    bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
    if (run.error_occurred || run.iterations == 0 || !(single || median)) continue;
    seconds_[run.run_name.function_name] =
        run.real_accumulated_time / static_cast<double>(run.iterations);
    for (auto const& [name, counter] : run.counters) {
      if (name.find('/') != std::string::npos) seconds_[name] = counter.value;
    }
  }
}

void PrintSummary(std::map<std::string, double> const& seconds,
                  std::vector<RatioTarget> const& more, std::ostream& out) {
  std::vector<Row> rows;
  for (CaseInfo const& info : AllCases()) {
    rows.push_back({&info, Find(seconds, BenchmarkName(info, "engine")),
                    Find(seconds, BenchmarkName(info, "sqlite")),
                    Find(seconds, BenchmarkName(info, "raw")),
                    Find(seconds, BenchmarkName(info, "per_record"))});
  }
  out << "\nSummary: real time of one operation (median of the repetitions); X/Y is the time of X "
         "divided by"
      << " the time of Y\n\n";
  PrintTimes(rows, out);
  out << "\nengine: the built library through the reference host, synchronous messages (6003, "
         "6005, 6007),"
      << " Durability 1; its checkpoint on close is not timed.\n"
      << "per-record: the plain one-record-at-a-time insert on the engine's file access, measured "
         "with every"
      << " size divided by " << PerRecordStore::kScale << ".\n"
      << "(est. full): scaled to full size, x" << PerRecordGrowth(CaseKind::Append)
      << " for appends (linear), x" << PerRecordGrowth(CaseKind::Upsert)
      << " for upserts (records x tail moved per record).\n"
      << "raw: append = one write() of the bytes; upsert = read every stored byte, write the "
         "merged size to a new"
      << " file, rename;\n     range = one pread(); last = fstat() + pread(); count = fstat().\n\n"
      << "Targets: measured / against, each the real time of one operation; SQLite: its time for "
         "the same work\n\n";
  std::vector<RatioTarget> targets = CaseTargets();
  targets.insert(targets.end(), more.begin(), more.end());
  PrintTargets(seconds, targets, out);
}
