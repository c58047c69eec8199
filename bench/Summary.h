// Summary.h: collects the results of the run and prints, per case, the time
// of every store, then every target: the ratio of two benchmarks' times
// against its bound, with SQLite's time beside it where SQLite is a peer.

#ifndef DATASTORE_BENCH_SUMMARY_H_
#define DATASTORE_BENCH_SUMMARY_H_

#include <benchmark/benchmark.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

// The console output, plus the real time of one iteration of each benchmark
// that finished without an error: the median when it was repeated. A counter
// named like a benchmark ("case/store") holds that one's seconds per operation.
class CollectingReporter : public benchmark::ConsoleReporter {
 public:
  CollectingReporter();  // colours only on a terminal
  void ReportRuns(std::vector<Run> const& runs) override;
  std::map<std::string, double> const& seconds() const { return seconds_; }

 private:
  std::map<std::string, double> seconds_;  // by benchmark name
};

// A bound on measured's time divided by against's (benchmark names).
struct RatioTarget {
  std::string title;     // what is compared, for people
  std::string measured;  // the benchmark whose time is divided
  std::string against;   // the benchmark it is divided by
  std::string peer;      // SQLite's benchmark of the same work, shown beside; or empty
  double limit;          // the bound
  bool atLeast = false;  // the ratio must be at least limit; otherwise at most
};

// The case table, the targets of the cases and then `more`.
void PrintSummary(std::map<std::string, double> const& seconds,
                  std::vector<RatioTarget> const& more, std::ostream& out);

#endif  // DATASTORE_BENCH_SUMMARY_H_
