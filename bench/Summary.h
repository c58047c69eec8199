// Summary.h: collects the results of the run and prints, per case, the time
// of every store, the engine's ratios to SQLite and to raw I/O, and whether
// the engine meets its targets.

#ifndef DATASTORE_BENCH_SUMMARY_H_
#define DATASTORE_BENCH_SUMMARY_H_

#include <benchmark/benchmark.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

// The console output, plus the real time of one iteration of each benchmark
// that finished without an error: the median when it was repeated.
class CollectingReporter : public benchmark::ConsoleReporter {
 public:
  CollectingReporter();   // colours only on a terminal
  void ReportRuns(std::vector<Run> const& runs) override;
  std::map<std::string, double> const& seconds() const { return seconds_; }

 private:
  std::map<std::string, double> seconds_;   // by benchmark name
};

void PrintSummary(std::map<std::string, double> const& seconds, std::ostream& out);

#endif  // DATASTORE_BENCH_SUMMARY_H_
