/// @file
/// The runs of every row under every condition, and what is computed from them.
#ifndef BENCH_STATISTICS_H
#define BENCH_STATISTICS_H

#include <functional>
#include <optional>
#include <vector>

#include "pair.h"

namespace bench {

/// Of one figure, taken once per round.
struct Spread {
  double median = 0;
  double low = 0;
  double high = 0;
};

/// @param values  not empty.
Spread spread(std::vector<double> values);

/// @param part  0 to 1.
double percentile(std::vector<std::uint32_t> samples, double part);

/// One row under one condition, a run per round. Rounds in which a run failed are missing.
struct Series {
  const Row* row = nullptr;
  Conditions conditions;
  std::vector<Run> runs;
};

/// A figure of one run.
using Figure = std::function<double(const Run&)>;

/// Microseconds per round trip, or per burst.
double medianMicroseconds(const Run& run);
/// Notifications per second in bursts.
double burstRate(const Run& run);
/// Microseconds per round trip of the size with this index.
double sweepMicroseconds(const Run& run, std::size_t size_index);
/// Microseconds that one more record costs: the slope of a line through the sweep.
double microsecondsPerRecord(const Run& run);
/// Records that a message of `bytes` bytes takes on the queue.
int recordsOf(int bytes);

class Results {
 public:
  void add(const Row& row, const Conditions& conditions, Run run);
  /// All series of a kind, in the order of the rows.
  [[nodiscard]] std::vector<const Series*> select(Work work, bool pinned) const;
  /// At the default size of the queue; null when the row did not run.
  [[nodiscard]] const Series* find(const std::string& row, Work work, bool pinned) const;
  [[nodiscard]] bool empty() const { return series_.empty(); }

 private:
  std::vector<Series> series_;
};

Spread spreadOf(const Series& series, const Figure& figure);

/// The figure of one row over that of another, round by round, so that drift of the machine cancels out.
/// @return nothing when one of them did not run.
std::optional<Spread> ratio(const Series* over, const Series* under, const Figure& figure);

}  // namespace bench

#endif  // BENCH_STATISTICS_H
