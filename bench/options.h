/// @file
/// The command line of ryn_bench.
#ifndef BENCH_OPTIONS_H
#define BENCH_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "measure.h"

namespace bench {

struct Options {
  int rounds = 7;
  Amount amount;
  std::vector<const Row*> rows;
  std::vector<Work> works = {Work::kRoundTrip, Work::kBurst, Work::kSweep, Work::kFlood};
  std::vector<bool> pinned = {true, false};
  int cpu = 0;
  std::string csv_directory;  ///< empty: none
};

/// @return the exit code when the command line is wrong or has asked for a text only, which is printed.
std::optional<int> parseOptions(int argc, char** argv, Options* options);

const char* nameOf(Work work);
const char* nameOfMode(bool pinned);

}  // namespace bench

#endif  // BENCH_OPTIONS_H
