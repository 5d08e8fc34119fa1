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

/// A run from its start to its end. Several may be under way at once.
class PairRun {
 public:
  /// Starts the processes.
  /// @param directory  where to make a directory for the sockets of this run.
  PairRun(const Row& row, const Conditions& conditions, const Amount& amount, const std::string& directory);
  PairRun(const PairRun&) = delete;
  PairRun& operator=(const PairRun&) = delete;
  ~PairRun();

  /// Waits for the end. To be called once.
  Run finish();

  [[nodiscard]] const Row& row() const { return row_; }
  [[nodiscard]] const Conditions& conditions() const { return conditions_; }

 private:
  const Row& row_;
  Conditions conditions_;
  std::string directory_;
  SharedPage* page_;
  pid_t sender_ = 0;
};

}  // namespace bench

#endif  // BENCH_PAIR_H
