// Two real hosts under full load in both directions, while either is killed and started again at random
// moments and a third process writes hostile records to their queues. Every answer is checked.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <thread>

#include "torture/stress.h"

namespace hbbtv_ryn::test {
namespace {

using std::chrono::milliseconds;

constexpr Nanoseconds kMillisecond = 1000000;
// A second is promised; the rest is for a machine that is busy with something else.
constexpr Nanoseconds kDeadCallLimit = 1500 * kMillisecond;
// No call of a host may last longer, whatever is written to its queues.
constexpr Nanoseconds kHangLimit = 30000 * kMillisecond;
constexpr Nanoseconds kSettlingLimit = 10000 * kMillisecond;
constexpr int kSettled = 100;  // right answers in a row
// What a joined text of the largest size costs once it is parsed, with room to spare.
constexpr int kMemoryLimitKb = 8192;

class Torture {
 public:
  Torture(uint64_t seed, std::chrono::seconds duration)
      : engine_(seed), duration_(duration), hosts_(seed, "0") {}

  // False when anything that is promised did not hold.
  bool run() {
    try {
      // Each kind of trouble has its share of every cycle, so that a short run has them all.
      const auto cycles = std::max<int64_t>(1, duration_.count() / 10);
      const auto cycle = std::chrono::duration_cast<milliseconds>(duration_) / cycles;
      for (int64_t i = 0; i < cycles; ++i) {
        trouble(Phase::kKills, cycle * 4 / 10);
        if (i == 0) calm_peak_ = peak_;
        trouble(Phase::kMalformed, cycle * 2 / 10);
        trouble(Phase::kAnything, cycle * 2 / 10);
        settle();
        ledger_.phase = Phase::kRecovered;
        watchFor(cycle * 1 / 10);
      }
      for (const Side side : {kBrowserSide, kPluginSide}) measure(side);
      hosts_.finish();
    } catch (const std::exception& violation) {
      promise(false, violation.what());
    }
    promise(hostile_.kill() == -SIGKILL, "the hostile writer ended by itself");
    promise(ledger_.wrong == 0, std::string("wrong answer: ") + ledger_.first_wrong);
    promise(ledger_.longest_dead_call <= kDeadCallLimit, "a call waited too long for a dead peer");
    promise(!memoryIsTelling() || growthKb() <= kMemoryLimitKb, "hostile records made a host grow");
    promise(ledger_.exchanges > 0 && ledger_.received > 0, "nothing was exchanged");
    report();
    return held_;
  }

 private:
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(engine_); }

  void promise(bool holds, const std::string& violation) {
    if (!holds) std::printf("VIOLATION: %s\n", violation.c_str());
    held_ = held_ && holds;
  }

  void measure(Side side) { peak_ = std::max(peak_, statusOf(hosts_[side].pid(), "VmHWM:")); }
  int growthKb() const { return std::max(0, peak_ - calm_peak_); }

  void kill(Side side) {
    measure(side);
    hosts_.kill(side);
    ++kills_;
  }

  void trouble(Phase phase, milliseconds time) {
    ledger_.phase = phase;
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
      // A life is mostly long enough for some exchanges, now and then over before the first.
      watchFor(milliseconds(below(8) == 0 ? below(20) : 30 + below(250)));
      const bool both = below(6) == 0;
      const auto first = static_cast<Side>(below(2));
      if (phase == Phase::kKills && below(4) == 0) {
        hosts_.replaceOverlapping(first, milliseconds(below(400)));
        ++overlaps_;
        continue;
      }
      kill(first);
      if (both) kill(peerOf(first));
      // Replaced at once, after the peer has had time to notice, or in the browser's place by a plain one.
      if (below(2) == 0) watchFor(milliseconds(below(800)));
      if (phase == Phase::kKills && first == kBrowserSide && !both && below(3) == 0) servePlainly();
      hosts_.start(first);
      if (both) hosts_.start(peerOf(first));
    }
  }

  void servePlainly() {
    ledger_.killed_at[kBrowserSide] = 0;
    ChildProcess plain(kPlainBrowser);
    watchFor(milliseconds(50 + below(300)));
    plain.say("finish");
    if (plain.wait() != 0) throw std::runtime_error("the plain browser met what the format does not name");
    ++plain_turns_;
  }

  // After the hostile writing: right answers must come again, on both sides, for good.
  void settle() {
    ledger_.phase = Phase::kSettling;
    const Nanoseconds began = now();
    const auto await = [&](auto settled) {
      while (!settled()) {
        watchFor(milliseconds(1));
        longest_settling_ = std::max(longest_settling_, now() - began);
        if (longest_settling_ > kSettlingLimit)
          throw std::runtime_error("no right answers after the hostile writing");
      }
    };
    await([&] { return !ledger_.hostile_writing; });
    for (auto& right : ledger_.right_in_a_row) right = 0;
    await([&] {
      const auto& right = ledger_.right_in_a_row;
      return *std::min_element(right.begin(), right.end()) >= kSettled;
    });
  }

  void watchFor(milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    do {
      std::this_thread::sleep_for(std::min(time, milliseconds(20)));
      for (const auto& calls : ledger_.calls) {
        for (const Nanoseconds began : calls) {
          if (began != 0 && now() - began > kHangLimit) throw std::runtime_error("a call hangs");
        }
      }
    } while (std::chrono::steady_clock::now() < end);
  }

  void report() const {
    const auto count = [](const char* what, auto value) {
      std::printf("%-46s %10llu\n", what, static_cast<unsigned long long>(value));
    };
    count("kills survived", kills_);
    count("  restarts with both servers at work", overlaps_);
    count("  turns of a plain browser", plain_turns_);
    count("requesters cancelled", ledger_.cancelled.load());
    count("hostile messages", ledger_.hostile.load());
    count("exchanges with the right answer", ledger_.exchanges.load());
    count("  without an answer", ledger_.unanswered.load());
    count("one-way messages sent", ledger_.one_way.load());
    count("  received", ledger_.received.load());
    count("wrong answers", ledger_.wrong.load());
    count("  while a stranger sent what the peer sends", ledger_.disturbed.load());
    count("longest call while the peer was dead, ms", ledger_.longest_dead_call / kMillisecond);
    count("longest wait for right answers afterwards, ms", longest_settling_ / kMillisecond);
    count("peak memory of a host, KiB", peak_);
    count("  above its peak without hostile messages", growthKb());
  }

  std::mt19937_64 engine_;
  const std::chrono::seconds duration_;
  HostPair hosts_;
  Ledger& ledger_ = hosts_.ledger();
  ChildProcess hostile_{kHostileWriter, hosts_.arguments()};
  int kills_ = 0;
  int overlaps_ = 0;
  int plain_turns_ = 0;
  int peak_ = 0;
  int calm_peak_ = 0;
  Nanoseconds longest_settling_ = 0;
  bool held_ = true;
};

}  // namespace
}  // namespace hbbtv_ryn::test

int main(int argc, char** argv) {
  CLI::App app(
      "Two hosts under load, killed and restarted at random, amid hostile records.\n"
      "Exit code 0 when everything held that is promised, 1 when not.");
  int seconds = 10;
  uint64_t seed = std::random_device()();
  app.add_option("--seconds", seconds, "how long; 10 seconds are a cycle of all kinds of trouble")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--seed", seed, "of the random numbers; otherwise a new one each time");
  return hbbtv_ryn::test::runStress(argc, argv, app, [&] {
    std::printf("%d s, --seed %llu\n", seconds, static_cast<unsigned long long>(seed));
    return hbbtv_ryn::test::Torture(seed, std::chrono::seconds(seconds)).run();
  });
}
