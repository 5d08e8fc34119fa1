/// @file
/// The timed loops. They run in the sender.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <vector>

#include "transport.h"

namespace bench {

/// How much one run does.
struct Amount {
  int round_trips = 4000;
  int bursts = 400;
  int calls_per_size = 300;
  int flood_messages = 20000;
};

/// Message sizes of the sweep in bytes.
const std::vector<int>& sweepSizes();

/// @param receiver  the process that receives.
void measure(Work work, const Amount& amount, Transport& transport, pid_t receiver, SharedPage& page);

}  // namespace bench

#endif  // BENCH_MEASURE_H
