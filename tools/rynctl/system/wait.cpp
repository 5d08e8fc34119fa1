#include "tools/rynctl/system/wait.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

namespace hbbtv_ryn::rynctl {

void failErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

bool awaitInput(std::initializer_list<int> descriptors, Clock::time_point deadline) {
  std::vector<pollfd> waits;
  for (const int descriptor : descriptors) waits.push_back({descriptor, POLLIN, 0});
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    // An int holds a minute; the rest is waited for in turn.
    const int limit = static_cast<int>(std::clamp<std::int64_t>(left, 0, 60000));
    const int ready = poll(waits.data(), waits.size(), limit);
    if (ready > 0) return true;
    if (ready == -1 && errno != EINTR) failErrno("cannot wait");
    if (left <= 0) return false;
  }
}

Interrupt::Interrupt() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ == -1) failErrno("cannot wait for signals");
  pthread_sigmask(SIG_BLOCK, &signals, &former_mask_);
}

Interrupt::~Interrupt() {
  // Those that arrived have been obeyed: the command ends.
  signalfd_siginfo taken{};
  while (read(descriptor_, &taken, sizeof taken) == sizeof taken) continue;
  close(descriptor_);
  pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr);
}

}  // namespace hbbtv_ryn::rynctl
