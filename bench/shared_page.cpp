#include "shared_page.h"

#include <cerrno>
#include <ctime>
#include <stdexcept>

#include "check.h"

namespace bench {
namespace {

// Long enough for a loaded machine, short enough that a row which does not work ends.
constexpr int kReadySeconds = 10;

bool waitFor(sem_t& semaphore, int seconds) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += seconds;
  while (sem_clockwait(&semaphore, CLOCK_MONOTONIC, &deadline) != 0) {
    if (errno == ETIMEDOUT) return false;
    if (errno != EINTR) check(-1, "sem_clockwait");
  }
  return true;
}

}  // namespace

SharedPage::SharedPage() {
  check(sem_init(&ready_, 1, 0), "sem_init");
  check(sem_init(&all_seen_, 1, 0), "sem_init");
}

void SharedPage::waitForReceiver() {
  if (!waitFor(ready_, kReadySeconds)) throw std::runtime_error("the receiver does not start");
}

std::uint64_t SharedPage::waitUntilSeen(int seconds) {
  std::uint64_t before = received();
  while (!waitFor(all_seen_, seconds)) {
    const std::uint64_t now = received();
    if (now == before) return awaited_.load() - now;
    before = now;
  }
  return 0;
}

void SharedPage::probeHeap(std::uint64_t messages) {
  probe_first_ = received() + 1;
  probe_last_ = received() + messages;
}

double SharedPage::heapGrowth() const {
  return static_cast<double>(heap_last_) - static_cast<double>(heap_first_);
}

}  // namespace bench
