/// @file
/// The two hosts that a run puts under load.
#ifndef HBBTV_RYN_TOOLS_TORTURE_HOST_PAIR_H
#define HBBTV_RYN_TOOLS_TORTURE_HOST_PAIR_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/support/child_process.h"
#include "tools/torture/ledger.h"
#include "tools/torture/random.h"

namespace hbbtv_ryn::test {

/// Two hosts, started with it, and the ledger that they share. What a host did against its orders throws an
/// exception with its last error output.
class HostPair {
 public:
  explicit HostPair(uint64_t seed);
  Ledger& ledger() const { return ledger_; }
  /// What the next process is started with: the ledger and a seed.
  std::vector<std::string> arguments();

  void start(Side side);
  void kill(Side side);
  /// Has a successor serve beside the host for a while, and kills the host.
  void replaceOverlapping(Side side, std::chrono::milliseconds overlap);
  /// Has both end in order.
  void finish();

  /// Throws when a host that was not killed is no more.
  void requireLife();
  /// The most memory that the host has had, in KiB; 0 under a sanitizer or an emulator, where it says
  /// nothing about the library.
  int peakMemoryKb(Side side) const;

 private:
  std::unique_ptr<ChildProcess> newHost(Side side);
  [[noreturn]] void fail(Side side, const char* what, int end);

  const std::string ledger_argument_ = createLedger();
  Ledger& ledger_ = openLedger(ledger_argument_);
  Random seeds_;
  int errors_[kSideCount];  // descriptors of what the hosts write to standard error
  std::unique_ptr<ChildProcess> hosts_[kSideCount];  // null while killed
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_TORTURE_HOST_PAIR_H
