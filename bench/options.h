/// @file
/// The command line of ryn_bench.
#ifndef BENCH_OPTIONS_H
#define BENCH_OPTIONS_H

#include <string>
#include <vector>

#include "measure.h"

namespace bench {

struct Options {
  int rounds = 7;
  Amount amount;
  std::vector<const Row*> rows;
  std::vector<Work> works;
  std::vector<bool> pinned;
  int cpu = 0;
  std::string csv_directory;  ///< empty: none
  bool show_help = false;
  bool show_rows = false;
};

/// @throws std::invalid_argument with a text that says what is wrong.
Options parseOptions(int argc, char** argv);

const char* usage();

const char* nameOf(Work work);
const char* nameOfMode(bool pinned);

}  // namespace bench

#endif  // BENCH_OPTIONS_H
