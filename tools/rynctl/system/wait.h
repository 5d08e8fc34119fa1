// Waiting: for input, for a time, for the user's wish to end a command that would run on.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_WAIT_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_WAIT_H

#include <chrono>
#include <csignal>
#include <initializer_list>

namespace hbbtv_ryn::rynctl {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// Throws std::system_error for errno.
[[noreturn]] void failErrno(const char* what);

/// Waits until one of the descriptors is readable. False at the deadline.
bool awaitInput(std::initializer_list<int> descriptors, Clock::time_point deadline);

/// While it lives, SIGINT, SIGTERM and SIGHUP do not end the process but make a descriptor readable. One
/// at a time, made before other threads are started: it changes the calling thread's signal mask.
class Interrupt {
 public:
  Interrupt();
  /// Restores the mask. The signals that have come are spent.
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// To be waited for as input; readable from the first signal on.
  int descriptor() const { return descriptor_; }
  /// Whether a signal has come, or comes within this time.
  bool raised(Seconds within = {}) const {
    return awaitInput({descriptor_}, Clock::now() + std::chrono::duration_cast<Clock::duration>(within));
  }
  void wait() const {
    while (!raised(std::chrono::hours(1))) continue;
  }

 private:
  sigset_t former_mask_{};
  int descriptor_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_WAIT_H
