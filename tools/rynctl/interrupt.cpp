#include "interrupt.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace hbbtv_ryn::rynctl {

Interrupt::Interrupt() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, &former_mask_);
  descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ == -1) {
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr);
    throw std::system_error(error, std::generic_category(), "cannot wait for signals");
  }
}

Interrupt::~Interrupt() {
  // Those that arrived have been obeyed: the command ends.
  signalfd_siginfo taken{};
  while (read(descriptor_, &taken, sizeof taken) == sizeof taken) continue;
  close(descriptor_);
  pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr);
}

bool Interrupt::raised() const {
  pollfd wait{descriptor_, POLLIN, 0};
  return poll(&wait, 1, 0) == 1;
}

}  // namespace hbbtv_ryn::rynctl
