/// @file
/// What the two stress programs share: their main(), and the pair of hosts that they put under load.
#ifndef HBBTV_RYN_TESTS_TORTURE_STRESS_H
#define HBBTV_RYN_TESTS_TORTURE_STRESS_H

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "torture/processes.h"

namespace hbbtv_ryn::test {

/// Two hosts on queues of their own, started with it, and the ledger that they share.
class HostPair {
 public:
  /// @param pause  of each of their threads between two calls, in microseconds.
  HostPair(uint64_t seed, const char* pause);
  ChildProcess& operator[](Side side) { return *hosts_[side]; }
  Ledger& ledger() const { return ledger_; }
  /// What the next process is started with: the ledger and a seed.
  std::vector<std::string> arguments();

  void start(Side side);
  /// Has a successor serve beside the host for a while, and kills the host.
  void replaceOverlapping(Side side, std::chrono::milliseconds overlap);
  /// Throws when the host had ended by itself.
  void kill(Side side);
  /// Has both end in order, and throws when one does not.
  void finish();

 private:
  std::unique_ptr<ChildProcess> newHost(Side side);

  const std::string ledger_argument_ = createLedger();
  Ledger& ledger_ = openLedger(ledger_argument_);
  std::mt19937_64 seeds_;
  const std::string pause_;
  std::unique_ptr<ChildProcess> hosts_[kSideCount];
};

/// A number from the kernel's status file of a process, such as "VmHWM:"; 0 when it is not there.
int statusOf(pid_t pid, const std::string& field);

/// Whether a host's memory says anything about the library. A sanitizer's own use drowns ours, and so does
/// that of an emulator.
bool memoryIsTelling();

/// main() of both: the command line, the namespaces, then the run.
/// @return 0 when `run` says that everything held, 1 when not, or when it throws.
int runStress(int argc, char** argv, CLI::App& app, const std::function<bool()>& run);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_TORTURE_STRESS_H
