/// @file
/// The memory that the driver and the two processes of one run share: how they wait for each other, and
/// where the sender leaves what it measured.
#ifndef BENCH_SHARED_PAGE_H
#define BENCH_SHARED_PAGE_H

#include <malloc.h>
#include <semaphore.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace bench {

inline constexpr std::size_t kMaxSamples = 1U << 16;

/// Bytes that malloc() has handed out and not got back, over all arenas.
inline std::size_t heapInUse() {
  return mallinfo2().uordblks;
}

/// What one run yields beside its samples. CPU and seconds cover the measured messages only.
struct Outcome {
  double seconds = 0;
  double sender_cpu_ns = 0;
  double receiver_cpu_ns = 0;
  double helper_cpu_ns = 0;  ///< of a third process that carries the messages
  double sender_heap_growth = 0;
  double receiver_heap_growth = 0;
  std::uint64_t messages = 0;
  std::uint64_t full_queue_pauses = 0;
  std::uint64_t lost = 0;
};

/// Lies in anonymous shared memory, made anew before every run.
class SharedPage {
 public:
  SharedPage();

  /// In the receiver, for every message it has handled. The two heap probes fall on the same point of
  /// two messages, so what a message holds while it is handled cancels out.
  void arrived() {
    const std::uint64_t number = received_.load(std::memory_order_relaxed) + 1;
    if (number == probe_first_) heap_first_ = heapInUse();
    if (number == probe_last_) heap_last_ = heapInUse();
    received_.store(number, std::memory_order_release);
    if (number == awaited_.load(std::memory_order_acquire)) sem_post(&all_seen_);
  }
  /// In the receiver, once a message would reach it.
  void receiverIsReady() { sem_post(&ready_); }

  /// In the sender.
  void waitForReceiver();
  /// Announces that the receiver will be waited for after `messages` more.
  void expect(std::uint64_t messages) { awaited_.store(received() + messages, std::memory_order_release); }
  /// Waits until all announced messages were handled.
  /// @return how many were not, when none has come for `seconds`.
  std::uint64_t waitUntilSeen(int seconds);
  /// Announces `messages` of which the receiver shall probe its heap at the first and the last.
  void probeHeap(std::uint64_t messages);
  [[nodiscard]] double heapGrowth() const;
  [[nodiscard]] std::uint64_t received() const { return received_.load(std::memory_order_acquire); }

  void addSample(std::uint64_t nanoseconds) {
    if (sample_count < samples.size()) samples[sample_count++] = static_cast<std::uint32_t>(nanoseconds);
  }

  Outcome outcome;
  std::size_t sample_count = 0;
  std::array<std::uint32_t, kMaxSamples> samples;

 private:
  sem_t ready_{};
  sem_t all_seen_{};
  std::atomic<std::uint64_t> received_{0};
  std::atomic<std::uint64_t> awaited_{0};
  // Written by the sender while no message is under way.
  std::uint64_t probe_first_ = 0;
  std::uint64_t probe_last_ = 0;
  // Written by the receiver.
  std::size_t heap_first_ = 0;
  std::size_t heap_last_ = 0;
};

}  // namespace bench

#endif  // BENCH_SHARED_PAGE_H
