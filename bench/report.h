/// @file
/// The results as tables for people and as CSV files for plots.
#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include <iosfwd>
#include <string>

#include "statistics.h"

namespace bench {

void printTables(std::ostream& out, const Results& results);

/// @throws std::runtime_error when a file cannot be written.
void writeCsv(const std::string& directory, const Results& results);

}  // namespace bench

#endif  // BENCH_REPORT_H
