// Two real hosts under full load in both directions, while either is killed and started again at random
// moments and a third process writes hostile records to their queues. Every answer is checked.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tools/support/child_process.h"
#include "tools/support/isolation.h"
#include "tools/support/raw_peer.h"
#include "tools/torture/host_pair.h"
#include "tools/torture/ledger.h"
#include "tools/torture/plan.h"
#include "tools/torture/roles.h"

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

volatile std::sig_atomic_t g_interrupted = 0;

class Torture {
 public:
  explicit Torture(uint64_t seed) : hosts_(seed) {}

  int run(const std::vector<Step>& plan) {
    try {
      for (const Step& step : plan) {
        ledger_.phase = step.phase;
        if (step.phase != Phase::kKills && calm_peak_ == 0) calm_peak_ = peak_;
        watchFor(step.before);
        carryOut(step);
      }
      for (const Side side : {kBrowserSide, kPluginSide}) measure(side);
      hosts_.finish();
    } catch (const std::exception& violation) {
      promise(false, violation.what());
    }
    promise(ledger_.wrong == 0, std::string("wrong answer: ") + ledger_.first_wrong);
    promise(ledger_.longest_dead_call <= kDeadCallLimit, "a call waited too long for a dead peer");
    promise(growthKb() <= kMemoryLimitKb, "hostile records made a host grow");
    promise(ledger_.exchanges > 0 && ledger_.received > 0, "nothing was exchanged");
    report();
    return violations_;
  }

 private:
  void promise(bool holds, const std::string& violation) {
    if (holds) return;
    std::printf("VIOLATION: %s\n", violation.c_str());
    ++violations_;
  }

  void carryOut(const Step& step) {
    switch (step.deed) {
      case Deed::kKill:
      case Deed::kKillBoth:
      case Deed::kPlainTurn:
        return killAndReplace(step);
      case Deed::kOverlap:
        measure(step.side);
        hosts_.replaceOverlapping(step.side, step.turn);
        ++kills_;
        ++overlaps_;
        return;
      case Deed::kSettle:
        return settle();
      case Deed::kNothing:
        return;
    }
  }

  void killAndReplace(const Step& step) {
    const bool both = step.deed == Deed::kKillBoth;
    kill(step.side);
    if (both) kill(peerOf(step.side));
    watchFor(step.gap);
    if (step.deed == Deed::kPlainTurn) servePlainly(step.turn);
    hosts_.start(step.side);
    if (both) hosts_.start(peerOf(step.side));
  }

  void kill(Side side) {
    measure(side);
    hosts_.kill(side);
    ++kills_;
  }

  void servePlainly(milliseconds time) {
    ledger_.killed_at[kBrowserSide] = 0;
    ChildProcess plain(kPlainBrowser);
    watchFor(time);
    plain.say("finish");
    if (plain.wait() != 0) throw std::runtime_error("the plain browser met what the format does not name");
    ++plain_turns_;
  }

  // After the hostile writing: right answers must come again, on both sides, for good.
  void settle() {
    const Nanoseconds began = now();
    const auto await = [&](auto settled) {
      while (!settled()) {
        watchFor(milliseconds(1));
        longest_settling_ = std::max(longest_settling_, now() - began);
        if (longest_settling_ > kSettlingLimit) {
          throw std::runtime_error("no right answers after the hostile writing");
        }
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
      if (g_interrupted != 0) throw std::runtime_error("interrupted before the end of the plan");
      hosts_.requireLife();
      if (!hostile_.lives()) throw std::runtime_error("the hostile writer ended by itself");
      for (const auto& calls : ledger_.calls) {
        for (const Nanoseconds began : calls) {
          if (began != 0 && now() - began > kHangLimit) throw std::runtime_error("a call hangs");
        }
      }
    } while (std::chrono::steady_clock::now() < end);
  }

  void measure(Side side) { peak_ = std::max(peak_, hosts_.peakMemoryKb(side)); }
  int growthKb() const { return calm_peak_ == 0 ? 0 : peak_ - calm_peak_; }

  void report() const {
    const auto count = [](const char* what, auto value, const char* unit = "", auto... limit) {
      std::printf("%-46s %10llu%s", what, static_cast<unsigned long long>(value), unit);
      (std::printf(" (limit %llu)", static_cast<unsigned long long>(limit)), ...);
      std::printf("\n");
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
    count("wrong answers", ledger_.wrong.load(), "", 0);
    count("  while a stranger sent what the peer sends", ledger_.disturbed.load());
    count("longest call while the peer was dead", ledger_.longest_dead_call / kMillisecond, " ms",
          kDeadCallLimit / kMillisecond);
    count("longest wait for right answers afterwards", longest_settling_ / kMillisecond, " ms",
          kSettlingLimit / kMillisecond);
    if (peak_ == 0) return;
    count("peak memory of a host", peak_, " KiB");
    count("  above its peak without hostile messages", growthKb(), " KiB", kMemoryLimitKb);
  }

  HostPair hosts_;
  Ledger& ledger_ = hosts_.ledger();
  ChildProcess hostile_{kHostileWriter, hosts_.arguments()};
  int kills_ = 0;
  int overlaps_ = 0;
  int plain_turns_ = 0;
  int peak_ = 0;
  int calm_peak_ = 0;
  Nanoseconds longest_settling_ = 0;
  int violations_ = 0;
};

// Empty queues to run on. False, and the reason on standard error, where that would disturb somebody.
bool findQueues(bool real_queues) {
  if (!real_queues) {
    if (enterNamespaces()) return true;
    std::fprintf(stderr,
                 "ryn_torture: no IPC and network namespaces of its own (%s).\n"
                 "Run it as root or allow user namespaces; or stop the hosts of this machine and say\n"
                 "--real-queues, which removes the queues of the bridge.\n",
                 std::strerror(errno));
    return false;
  }
  for (const key_t key : {kRequestKey, kNotificationKey, kQueryKey}) {
    if (rawLife(key) != 1) continue;
    std::fprintf(
        stderr,
        "ryn_torture: a living process serves the queue 0x%08x: stop the hosts of this machine first\n",
        static_cast<unsigned>(key));
    return false;
  }
  removeQueues();
  return true;
}

constexpr char kFooter[] =
    R"(Every answer is computed from its question, and checked. A wrong answer, a call that hangs, that waits too
long for a dead peer or that returns what it may not, a host that ends by itself or grows: each is a line
that begins with VIOLATION. What was tried stands in a table at the end, and below it the verdict.

It runs on queues of its own, in an IPC namespace, and disturbs nobody, unless it is told --real-queues: for a
system without namespaces, or to have the limits of its queues tried.

Exit codes:
  0  everything held that is promised
  1  something did not, or the run was interrupted
  2  the command line is wrong, or there are no queues to run on)";

int tortureOnQueues(uint64_t seed, std::chrono::seconds duration) {
  struct sigaction interrupting {};
  interrupting.sa_handler = [](int) { g_interrupted = 1; };
  sigaction(SIGINT, &interrupting, nullptr);
  sigaction(SIGTERM, &interrupting, nullptr);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const auto number = static_cast<unsigned long long>(seed);
  const auto seconds = static_cast<long long>(duration.count());
  std::printf("%lld s, --seed %llu\n", seconds, number);
  const int violations = Torture(seed).run(planOf(seed, duration));
  std::printf(
      "%s: --seconds %lld --seed %llu\n",
      violations == 0 ? "Everything held that is promised" : "NOT everything held, see VIOLATION above",
      seconds, number);
  return violations == 0 ? 0 : 1;
}

int run(int argc, char** argv) {
  CLI::App app(
      "A browser host and a plug-in host under full load, killed and restarted, amid hostile records.",
      "ryn_torture");
  int seconds = 10;
  uint64_t seed = std::random_device()();
  bool only_plan = false;
  bool real_queues = false;
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.set_version_flag("--version", "ryn_torture " RYN_TORTURE_VERSION);
  app.add_option("--seconds", seconds, "how long, about; 10 seconds are a cycle of all kinds of trouble")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  app.add_option("--seed", seed, "of the plan, the messages and the junk; otherwise a new one each time");
  app.add_flag("--plan", only_plan, "print what would be done to the hosts, and when; do nothing");
  app.add_flag("--real-queues", real_queues,
               "run on this machine's own queues; removes them first and last; refused while a host lives");
  app.footer(kFooter);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  const std::chrono::seconds duration(seconds);
  if (only_plan) {
    for (const Step& step : planOf(seed, duration)) std::puts(textOf(step).c_str());
    return 0;
  }
  if (!findQueues(real_queues)) return 2;
  const int exit_code = tortureOnQueues(seed, duration);
  if (real_queues) removeQueues();
  return exit_code;
}

}  // namespace
}  // namespace hbbtv_ryn::test

int main(int argc, char** argv) {
  std::signal(SIGINT, SIG_IGN);  // of a terminal, which means the supervisor
  try {
    const auto child_exit_code = hbbtv_ryn::test::runAsChild(argc, argv);
    return child_exit_code ? *child_exit_code : hbbtv_ryn::test::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ryn_torture: %s\n", error.what());
    return 1;
  }
}
