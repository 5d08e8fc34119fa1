#include "measure.h"

#include <ctime>
#include <stdexcept>

#include "check.h"

namespace bench {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;
// Enough for lazily bound symbols, opened queues and the caches of the allocator.
constexpr int kWarmUpCalls = 300;
// A pause on a full queue lasts at most 300 ms; a receiver silent for longer will see no more.
constexpr int kSilenceSeconds = 2;

std::uint64_t now(clockid_t clock = CLOCK_MONOTONIC) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U +
         static_cast<std::uint64_t>(time.tv_nsec);
}

clockid_t cpuClock(pid_t process) {
  clockid_t clock{};
  const int error = clock_getcpuclockid(process, &clock);
  if (error != 0) checkErrno(-error, "clock_getcpuclockid");
  return clock;
}

/// Sums up what the processes spend between its making and stop().
class Meter {
 public:
  Meter(Transport& transport, pid_t receiver, SharedPage& page)
      : page_(page), receiver_(cpuClock(receiver)), has_helper_(transport.helper() != 0) {
    if (has_helper_) helper_ = cpuClock(transport.helper());
    heap_ = heapInUse();
    receiver_start_ = now(receiver_);
    if (has_helper_) helper_start_ = now(helper_);
    sender_start_ = now(CLOCK_PROCESS_CPUTIME_ID);
    start_ = now();
  }

  void stop(std::uint64_t messages) {
    Outcome& outcome = page_.outcome;
    outcome.seconds = static_cast<double>(now() - start_) / kNanosecondsPerSecond;
    outcome.sender_cpu_ns = static_cast<double>(now(CLOCK_PROCESS_CPUTIME_ID) - sender_start_);
    outcome.receiver_cpu_ns = static_cast<double>(now(receiver_) - receiver_start_);
    if (has_helper_) outcome.helper_cpu_ns = static_cast<double>(now(helper_) - helper_start_);
    outcome.sender_heap_growth = static_cast<double>(heapInUse()) - static_cast<double>(heap_);
    outcome.receiver_heap_growth = page_.heapGrowth();
    outcome.messages = messages;
  }

 private:
  SharedPage& page_;
  clockid_t receiver_;
  clockid_t helper_{};
  bool has_helper_;
  std::size_t heap_ = 0;
  std::uint64_t receiver_start_ = 0;
  std::uint64_t helper_start_ = 0;
  std::uint64_t sender_start_ = 0;
  std::uint64_t start_ = 0;
};

void burst(Transport& transport, SharedPage& page) {
  page.expect(kBurstMessages);
  for (int i = 0; i < kBurstMessages; ++i) transport.notify();
  if (page.waitUntilSeen(kSilenceSeconds) != 0) throw std::runtime_error("notifications were lost");
}

void roundTrips(int calls, Transport& transport, pid_t receiver, SharedPage& page) {
  for (int i = 0; i < kWarmUpCalls; ++i) transport.getVisible();
  const auto count = static_cast<std::uint64_t>(calls);
  page.probeHeap(count);
  Meter meter(transport, receiver, page);
  for (int i = 0; i < calls; ++i) {
    const std::uint64_t start = now();
    transport.getVisible();
    page.addSample(now() - start);
  }
  meter.stop(count);
}

// The receiver says through shared memory, not through the transport, that it has handled the last
// message of a burst: the same in every row, and timed.
void bursts(int number, Transport& transport, pid_t receiver, SharedPage& page) {
  for (int i = 0; i < kWarmUpCalls / kBurstMessages; ++i) burst(transport, page);
  const auto count = static_cast<std::uint64_t>(number) * kBurstMessages;
  page.probeHeap(count);
  Meter meter(transport, receiver, page);
  for (int i = 0; i < number; ++i) {
    const std::uint64_t start = now();
    burst(transport, page);
    page.addSample(now() - start);
  }
  meter.stop(count);
}

void sweep(int calls, Transport& transport, pid_t receiver, SharedPage& page) {
  for (const int bytes : sweepSizes()) {
    for (int i = 0; i < kWarmUpCalls / 10; ++i) transport.exchange(bytes);
  }
  Meter meter(transport, receiver, page);
  for (const int bytes : sweepSizes()) {
    for (int i = 0; i < calls; ++i) {
      const std::uint64_t start = now();
      transport.exchange(bytes);
      page.addSample(now() - start);
    }
  }
  meter.stop(static_cast<std::uint64_t>(calls) * sweepSizes().size());
}

void flood(int messages, Transport& transport, pid_t receiver, SharedPage& page) {
  burst(transport, page);
  const auto count = static_cast<std::uint64_t>(messages);
  page.expect(count);
  Meter meter(transport, receiver, page);
  for (int i = 0; i < messages; ++i) transport.notify();
  page.outcome.lost = page.waitUntilSeen(kSilenceSeconds);
  meter.stop(count);
}

}  // namespace

const std::vector<int>& sweepSizes() {
  static const std::vector<int> sizes = {64,   256,  1024,  2048,  3072,  4096,
                                         6144, 8192, 10240, 12288, 14336, 16000};
  return sizes;
}

void measure(Work work, const Amount& amount, Transport& transport, pid_t receiver, SharedPage& page) {
  switch (work) {
    case Work::kRoundTrip:
      return roundTrips(amount.round_trips, transport, receiver, page);
    case Work::kBurst:
      return bursts(amount.bursts, transport, receiver, page);
    case Work::kSweep:
      return sweep(amount.calls_per_size, transport, receiver, page);
    case Work::kFlood:
      return flood(amount.flood_messages, transport, receiver, page);
  }
}

}  // namespace bench
