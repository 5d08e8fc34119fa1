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
      : m_engine(seed), m_duration(duration), m_hosts(seed, "0") {}

  // False when anything that is promised did not hold.
  bool run() {
    try {
      // Each kind of trouble has its share of every cycle, so that a short run has them all.
      const auto cycles = std::max<int64_t>(1, m_duration.count() / 10);
      const auto cycle = std::chrono::duration_cast<milliseconds>(m_duration) / cycles;
      for (int64_t i = 0; i < cycles; ++i) {
        trouble(Phase::kKills, cycle * 4 / 10);
        if (i == 0) m_calm_peak = m_peak;
        trouble(Phase::kMalformed, cycle * 2 / 10);
        trouble(Phase::kAnything, cycle * 2 / 10);
        settle();
        m_ledger.phase = Phase::kRecovered;
        watchFor(cycle * 1 / 10);
      }
      for (const Side side : {kBrowserSide, kPluginSide}) measure(side);
      m_hosts.finish();
    } catch (const std::exception& violation) {
      promise(false, violation.what());
    }
    promise(m_hostile.kill() == -SIGKILL, "the hostile writer ended by itself");
    promise(m_ledger.wrong == 0, std::string("wrong answer: ") + m_ledger.first_wrong);
    promise(m_ledger.longest_dead_call <= kDeadCallLimit, "a call waited too long for a dead peer");
    promise(!memoryIsTelling() || growthKb() <= kMemoryLimitKb, "hostile records made a host grow");
    promise(m_ledger.exchanges > 0 && m_ledger.received > 0, "nothing was exchanged");
    report();
    return m_held;
  }

 private:
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_engine); }

  void promise(bool holds, const std::string& violation) {
    if (!holds) std::printf("VIOLATION: %s\n", violation.c_str());
    m_held = m_held && holds;
  }

  void measure(Side side) { m_peak = std::max(m_peak, statusOf(m_hosts[side].pid(), "VmHWM:")); }
  int growthKb() const { return std::max(0, m_peak - m_calm_peak); }

  void kill(Side side) {
    measure(side);
    m_hosts.kill(side);
    ++m_kills;
  }

  void trouble(Phase phase, milliseconds time) {
    m_ledger.phase = phase;
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
      // A life is mostly long enough for some exchanges, now and then over before the first.
      watchFor(milliseconds(below(8) == 0 ? below(20) : 30 + below(250)));
      const bool both = below(6) == 0;
      const auto first = static_cast<Side>(below(2));
      if (phase == Phase::kKills && below(4) == 0) {
        m_hosts.replaceOverlapping(first, milliseconds(below(400)));
        ++m_overlaps;
        continue;
      }
      kill(first);
      if (both) kill(peerOf(first));
      // Replaced at once, after the peer has had time to notice, or in the browser's place by a plain one.
      if (below(2) == 0) watchFor(milliseconds(below(800)));
      if (phase == Phase::kKills && first == kBrowserSide && !both && below(3) == 0) servePlainly();
      m_hosts.start(first);
      if (both) m_hosts.start(peerOf(first));
    }
  }

  void servePlainly() {
    m_ledger.killed_at[kBrowserSide] = 0;
    ChildProcess plain(kPlainBrowser);
    watchFor(milliseconds(50 + below(300)));
    plain.say("finish");
    if (plain.wait() != 0) throw std::runtime_error("the plain browser met what the format does not name");
    ++m_plain_turns;
  }

  // After the hostile writing: right answers must come again, on both sides, for good.
  void settle() {
    m_ledger.phase = Phase::kSettling;
    const Nanoseconds began = now();
    const auto await = [&](auto settled) {
      while (!settled()) {
        watchFor(milliseconds(1));
        m_longest_settling = std::max(m_longest_settling, now() - began);
        if (m_longest_settling > kSettlingLimit)
          throw std::runtime_error("no right answers after the hostile writing");
      }
    };
    await([&] { return !m_ledger.hostile_writing; });
    for (auto& right : m_ledger.right_in_a_row) right = 0;
    await([&] {
      const auto& right = m_ledger.right_in_a_row;
      return *std::min_element(right.begin(), right.end()) >= kSettled;
    });
  }

  void watchFor(milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    do {
      std::this_thread::sleep_for(std::min(time, milliseconds(20)));
      for (const auto& calls : m_ledger.calls) {
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
    count("kills survived", m_kills);
    count("  restarts with both servers at work", m_overlaps);
    count("  turns of a plain browser", m_plain_turns);
    count("requesters cancelled", m_ledger.cancelled.load());
    count("hostile messages", m_ledger.hostile.load());
    count("exchanges with the right answer", m_ledger.exchanges.load());
    count("  without an answer", m_ledger.unanswered.load());
    count("one-way messages sent", m_ledger.one_way.load());
    count("  received", m_ledger.received.load());
    count("wrong answers", m_ledger.wrong.load());
    count("  while a stranger sent what the peer sends", m_ledger.disturbed.load());
    count("longest call while the peer was dead, ms", m_ledger.longest_dead_call / kMillisecond);
    count("longest wait for right answers afterwards, ms", m_longest_settling / kMillisecond);
    count("peak memory of a host, KiB", m_peak);
    count("  above its peak without hostile messages", growthKb());
  }

  std::mt19937_64 m_engine;
  const std::chrono::seconds m_duration;
  HostPair m_hosts;
  Ledger& m_ledger = m_hosts.ledger();
  ChildProcess m_hostile{kHostileWriter, m_hosts.arguments()};
  int m_kills = 0;
  int m_overlaps = 0;
  int m_plain_turns = 0;
  int m_peak = 0;
  int m_calm_peak = 0;
  Nanoseconds m_longest_settling = 0;
  bool m_held = true;
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
