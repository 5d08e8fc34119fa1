/// @file
/// One run of one row: two processes in an IPC namespace of their own.
#ifndef BENCH_PAIR_H
#define BENCH_PAIR_H

#include <cstdint>
#include <string>
#include <vector>

#include "measure.h"

namespace bench {

/// What kernel.msgmnb is when nobody has set it.
inline constexpr int kDefaultQueueBytes = 16384;

struct Conditions {
  Work work = Work::kRoundTrip;
  bool pinned = true;
  int cpu = 0;                           ///< where both processes run when pinned
  int queue_bytes = kDefaultQueueBytes;  ///< kernel.msgmnb
};

struct Run {
  std::vector<std::uint32_t> samples;  ///< nanoseconds
  Outcome outcome;
  std::string failure;  ///< empty when the run worked
};

/// Leaves the caller's IPC namespace, so that the queues of a running system are out of reach. To be
/// called once, before any run, by a process with one thread.
/// @throws std::system_error when the kernel refuses.
void enterPrivateNamespace();

/// @param directory  an existing directory for sockets.
Run runPair(const Row& row, const Conditions& conditions, const Amount& amount,
            const std::string& directory);

}  // namespace bench

#endif  // BENCH_PAIR_H
