/// @file
/// The user's wish to end a command that would run on.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_INTERRUPT_H
#define HBBTV_RYN_TOOLS_RYNCTL_INTERRUPT_H

#include <csignal>

namespace hbbtv_ryn::rynctl {

/// While it lives, SIGINT, SIGTERM and SIGHUP do not end the process but make a descriptor readable. One
/// at a time, made before other threads are started: it changes the calling thread's signal mask.
class Interrupt {
 public:
  Interrupt();
  /// Restores the mask. The signals that have come are spent.
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// To be polled for input; readable from the first signal on.
  int descriptor() const { return descriptor_; }
  bool raised() const;

 private:
  sigset_t former_mask_{};
  int descriptor_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_INTERRUPT_H
