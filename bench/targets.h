/// @file
/// The ratios that the library is held to.
#ifndef BENCH_TARGETS_H
#define BENCH_TARGETS_H

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "statistics.h"

namespace bench {

struct Judgement {
  std::string ratio;
  bool at_most;  ///< else at least
  double limit;
  std::optional<Spread> measured;  ///< nothing when a row of the ratio did not run
  /// The same with the raw queue and StyledWriter in the library's place: what is within reach of any
  /// library on this machine, whose kernel has its own price of a message.
  std::optional<Spread> within_reach;

  [[nodiscard]] bool met() const {
    return measured && (at_most ? measured->median <= limit : measured->median >= limit);
  }
};

/// Computed from the pinned runs.
std::vector<Judgement> judge(const Results& results);

void printJudgements(std::ostream& out, const std::vector<Judgement>& judgements);

}  // namespace bench

#endif  // BENCH_TARGETS_H
