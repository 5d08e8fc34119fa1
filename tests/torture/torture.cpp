// Two real hosts under full load in both directions, while either is killed and started again at random
// moments and a third process writes hostile records to their queues. Every answer is checked.
#include <sys/wait.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/child_process.h"
#include "support/isolation.h"
#include "torture/hostile_writer.h"
#include "torture/hosts.h"
#include "torture/ledger.h"

namespace hbbtv_ryn::test {
namespace {

using std::chrono::milliseconds;

constexpr Nanoseconds kMillisecond = 1000000;
// A second is promised; the rest is for a machine that is busy with something else.
constexpr Nanoseconds kDeadCallLimit = 1500 * kMillisecond;
// No call of a host may last longer, whatever is written to its queues.
constexpr Nanoseconds kHangLimit = 30000 * kMillisecond;
constexpr milliseconds kSettlingLimit{10000};
constexpr int kSettled = 100;  // right answers in a row
// What a joined text of the largest size costs once it is parsed, with room to spare.
constexpr int kMemoryLimitKb = 8192;

int peakResidentKb(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; status >> word;) {
    int kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes;
  }
  return 0;
}

bool hasEnded(const ChildProcess& child) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(child.pid()), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         info.si_pid != 0;
}

class Torture {
 public:
  Torture(uint64_t seed, std::chrono::seconds duration) : m_engine(seed), m_duration(duration) {}

  // False when anything that is promised did not hold.
  bool run() {
    start(kBrowserSide);
    start(kPluginSide);
    m_hostile.emplace(kHostileWriter, std::vector<std::string>{m_ledger.argument(), seed()});
    // Each kind of trouble has its share of every cycle, so that a short run has them all.
    const auto cycles = std::max<int64_t>(1, m_duration.count() / 10);
    const auto cycle = std::chrono::duration_cast<milliseconds>(m_duration) / cycles;
    for (int64_t i = 0; i < cycles && !m_failed; ++i) {
      trouble(Phase::kKills, cycle * 4 / 10);
      if (i == 0) m_calm_peak = m_peak;
      trouble(Phase::kMalformed, cycle * 2 / 10);
      trouble(Phase::kAnything, cycle * 2 / 10);
      settle();
      enter(Phase::kRecovered);
      watchFor(cycle * 1 / 10);
    }
    finish();
    report();
    return !m_failed;
  }

 private:
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_engine); }
  std::string seed() { return std::to_string(m_engine() >> 1); }

  void fail(const std::string& what) {
    std::printf("VIOLATION: %s\n", what.c_str());
    m_failed = true;
  }

  void enter(Phase phase) { m_ledger->phase = phase; }

  void start(Side side) {
    m_hosts[side].emplace(hostOf(side), std::vector<std::string>{m_ledger.argument(), seed(), "0"});
  }

  void kill(Side side) {
    m_peak = std::max(m_peak, peakResidentKb(m_hosts[side]->pid()));
    m_ledger->killed_at[side] = now();
    const int code = m_hosts[side]->kill();
    if (code != -SIGKILL)
      fail(std::string("the ") + kSideNames[side] + " host ended by itself, code " + std::to_string(code));
    for (auto& call : m_ledger->calls[side]) call = 0;
    ++m_kills;
  }

  void trouble(Phase phase, milliseconds time) {
    enter(phase);
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end && !m_failed) {
      // A life is mostly long enough for some exchanges, now and then over before the first.
      watchFor(milliseconds(below(8) == 0 ? below(20) : 30 + below(250)));
      const bool both = below(6) == 0;
      const auto first = static_cast<Side>(below(2));
      kill(first);
      if (both) kill(peerOf(first));
      // Replaced at once, or after the peer has had time to notice.
      if (below(2) == 0) watchFor(milliseconds(below(800)));
      start(first);
      if (both) start(peerOf(first));
    }
  }

  // After the hostile writing: right answers must come again, on both sides, for good.
  void settle() {
    enter(Phase::kSettling);
    const auto began = std::chrono::steady_clock::now();
    while (m_ledger->hostile_writing && !m_failed) watchFor(milliseconds(1));
    for (auto& right : m_ledger->right_in_a_row) right = 0;
    const auto settled = [this](Side side) { return m_ledger->right_in_a_row[side] >= kSettled; };
    while (!m_failed && (!settled(kBrowserSide) || !settled(kPluginSide))) {
      watchFor(milliseconds(1));
      const auto lasted =
          std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - began);
      m_longest_settling = std::max(m_longest_settling, lasted);
      if (lasted > kSettlingLimit) return fail("no right answers after the hostile writing had ended");
    }
  }

  void watchFor(milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    do {
      std::this_thread::sleep_for(std::min(time, milliseconds(20)));
      if (hasEnded(*m_hostile)) return fail("the hostile writer ended by itself");
      for (const Side side : {kBrowserSide, kPluginSide}) {
        for (const auto& call : m_ledger->calls[side]) {
          const Nanoseconds began = call;
          if (began != 0 && now() - began > kHangLimit) {
            return fail(std::string("a call of the ") + kSideNames[side] + " hangs");
          }
        }
      }
    } while (std::chrono::steady_clock::now() < end);
  }

  void finish() {
    for (const Side side : {kPluginSide, kBrowserSide}) {
      m_peak = std::max(m_peak, peakResidentKb(m_hosts[side]->pid()));
      m_hosts[side]->say("finish");
      const int code = m_hosts[side]->wait();
      if (code != 0)
        fail(std::string("the ") + kSideNames[side] + " host did not end in order, code " +
             std::to_string(code));
    }
    if (m_ledger->wrong != 0) fail(std::string("wrong answer: ") + m_ledger->wrong_text);
    if (m_ledger->longest_dead_call > kDeadCallLimit) fail("a call waited too long for a dead peer");
    if (memoryIsTelling() && growthKb() > kMemoryLimitKb) fail("hostile records made a host grow");
    if (m_ledger->exchanges == 0 || m_ledger->received == 0) fail("nothing was exchanged");
  }

  int growthKb() const { return std::max(0, m_peak - m_calm_peak); }

  void report() const {
    const auto count = [](const char* what, uint64_t value) {
      std::printf("%-46s %10llu\n", what, static_cast<unsigned long long>(value));
    };
    count("kills survived", m_kills);
    count("hostile messages", m_ledger->hostile);
    count("exchanges with the right answer", m_ledger->exchanges);
    count("  without an answer", m_ledger->unanswered);
    count("one-way messages sent", m_ledger->one_way);
    count("  received", m_ledger->received);
    count("wrong answers", m_ledger->wrong);
    count("  while a stranger sent what the peer sends", m_ledger->disturbed);
    count("longest call while the peer was dead, ms",
          static_cast<uint64_t>(m_ledger->longest_dead_call / kMillisecond));
    count("longest wait for right answers afterwards, ms",
          static_cast<uint64_t>(m_longest_settling.count()));
    count("peak memory of a host, KiB", static_cast<uint64_t>(m_peak));
    count("  above its peak without hostile messages", static_cast<uint64_t>(growthKb()));
  }

  std::mt19937_64 m_engine;
  const std::chrono::seconds m_duration;
  SharedLedger m_ledger;
  std::optional<ChildProcess> m_hosts[kSideCount];
  std::optional<ChildProcess> m_hostile;
  uint64_t m_kills = 0;
  int m_peak = 0;
  int m_calm_peak = 0;
  milliseconds m_longest_settling{0};
  bool m_failed = false;
};

int runTorture(int argc, char** argv) {
  CLI::App app(
      "Two hosts under load, killed and restarted at random, amid hostile records.\n"
      "Exit code 0 when everything held that is promised, 1 when not.");
  int seconds = 10;
  uint64_t seed = std::random_device()();
  app.add_option("--seconds", seconds, "how long; 10 seconds are a cycle of all kinds of trouble")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--seed", seed, "of the random numbers; otherwise a new one each time");
  CLI11_PARSE(app, argc, argv);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  isolateProcess();
  isolateTest();
  std::printf("%d s, --seed %llu\n", seconds, static_cast<unsigned long long>(seed));
  return Torture(seed, std::chrono::seconds(seconds)).run() ? 0 : 1;
}

}  // namespace
}  // namespace hbbtv_ryn::test

int main(int argc, char** argv) {
  using namespace hbbtv_ryn::test;
  if (const auto exit_code = runAsChild(argc, argv)) return *exit_code;
  try {
    return runTorture(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
