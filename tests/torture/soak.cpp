// Normal traffic between two hosts over a long time, with restarts: a host that lives through all of it
// must end with the memory, threads and descriptors that it had after the first interval.
//
// One browser host and one plug-in host cannot both be killed and be measured, so there are two pairs, each
// with queues of its own: in each, one host survives, and its peer is killed once per interval. The
// survivor's endpoint is stopped and started in an orderly way as often.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "support/child_process.h"
#include "support/deadline.h"
#include "support/isolation.h"
#include "torture/hosts.h"
#include "torture/ledger.h"

namespace hbbtv_ryn::test {
namespace {

using std::chrono::milliseconds;

// What the allocator may keep between blocks in use. A leak of 50 bytes per exchange shows within seconds.
constexpr int kAllocatorSlackKb = 256;
constexpr const char* kPauseBetweenCalls = "2000";  // microseconds

struct Size {
  int resident_kb = 0;
  int threads = 0;
  int descriptors = 0;
};

Size sizeOf(pid_t pid) {
  Size size;
  const std::filesystem::path process = "/proc/" + std::to_string(pid);
  std::ifstream status(process / "status");
  for (std::string word; status >> word;) {
    if (word == "RssAnon:") status >> size.resident_kb;
    if (word == "Threads:") status >> size.threads;
  }
  const std::filesystem::directory_iterator descriptors(process / "fd");
  size.descriptors = static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
  return size;
}

class Pair {
 public:
  explicit Pair(Side survivor) : m_survivor(survivor) {
    if (isIsolated()) isolateTest();
    start(m_survivor);
    start(peerOf(m_survivor));
  }

  void restart() {
    m_hosts[peerOf(m_survivor)]->kill();
    start(peerOf(m_survivor));
    order("restart");
  }

  // The survivor's size while it does nothing but wait.
  Size survivorAtRest() {
    m_ledger->paused = true;
    waitUntil("no call was in progress", [this] {
      return std::all_of(m_ledger->calls[m_survivor].begin(), m_ledger->calls[m_survivor].end(),
                         [](const auto& call) { return call == 0; });
    });
    order("trim");
    const Size size = sizeOf(m_hosts[m_survivor]->pid());
    m_ledger->paused = false;
    return size;
  }

  void finish() {
    for (auto& host : m_hosts) host->say("finish");
    for (auto& host : m_hosts) m_ended_in_order = host->wait() == 0 && m_ended_in_order;
  }

  bool report(const Size& first, const Size& last) const {
    const Ledger& ledger = *m_ledger;
    std::printf("%s that survives: %llu exchanges, %llu without an answer, %llu wrong, %llu one-way\n",
                kSideNames[m_survivor], static_cast<unsigned long long>(ledger.exchanges),
                static_cast<unsigned long long>(ledger.unanswered),
                static_cast<unsigned long long>(ledger.wrong),
                static_cast<unsigned long long>(ledger.one_way));
    std::printf("  after the first interval %5d KiB, %d threads, %d descriptors\n", first.resident_kb,
                first.threads, first.descriptors);
    std::printf("  at the end               %5d KiB, %d threads, %d descriptors\n", last.resident_kb,
                last.threads, last.descriptors);
    return m_ended_in_order && ledger.wrong == 0 && ledger.exchanges > 0 && first.threads == last.threads &&
           first.descriptors == last.descriptors &&
           (!memoryIsTelling() || last.resident_kb - first.resident_kb <= kAllocatorSlackKb);
  }

 private:
  // Has the survivor do something, and waits until it has.
  void order(const char* what) {
    m_hosts[m_survivor]->say(what);
    m_hosts[m_survivor]->hear();
  }
  void start(Side side) {
    m_hosts[side].emplace(
        hostOf(side),
        std::vector<std::string>{m_ledger.argument(), std::to_string(++m_seed), kPauseBetweenCalls});
  }

  const Side m_survivor;
  SharedLedger m_ledger;
  std::optional<ChildProcess> m_hosts[kSideCount];
  int m_seed = 0;
  bool m_ended_in_order = true;
};

// Traffic for one interval, its restarts in the middle, so that both hosts are in full swing at its end.
void passInterval(Pair& pair, milliseconds interval) {
  std::this_thread::sleep_for(interval / 2);
  pair.restart();
  std::this_thread::sleep_for(interval / 2);
}

bool soak(Side survivor, milliseconds duration, milliseconds interval) {
  Pair pair(survivor);
  passInterval(pair, interval);
  const Size first = pair.survivorAtRest();
  for (auto passed = interval; passed < duration; passed += interval) passInterval(pair, interval);
  const Size last = pair.survivorAtRest();
  pair.finish();
  return pair.report(first, last);
}

int runSoak(int argc, char** argv) {
  CLI::App app(
      "Normal traffic with restarts; the hosts must not grow.\n"
      "Exit code 0 when they have not and every answer was right, 1 otherwise.");
  int seconds = 1800;
  int interval = 60;
  app.add_option("--seconds", seconds, "how long")->check(CLI::PositiveNumber)->capture_default_str();
  app.add_option("--interval", interval, "seconds between restarts")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  isolateProcess();
  isolateTest();
  std::printf("%d s, restarts every %d s\n", seconds, interval);
  std::fflush(stdout);
  const auto run = [&](Side survivor) {
    return soak(survivor, std::chrono::seconds(seconds), std::chrono::seconds(interval));
  };
  // Namespaces belong to threads, so each pair gets a thread. Without namespaces they take turns.
  if (!isIsolated()) return run(kBrowserSide) && run(kPluginSide) ? 0 : 1;
  auto browser = std::async(std::launch::async, run, kBrowserSide);
  auto plugin = std::async(std::launch::async, run, kPluginSide);
  const bool browser_is_sound = browser.get();
  return plugin.get() && browser_is_sound ? 0 : 1;
}

}  // namespace
}  // namespace hbbtv_ryn::test

int main(int argc, char** argv) {
  using namespace hbbtv_ryn::test;
  if (const auto exit_code = runAsChild(argc, argv)) return *exit_code;
  try {
    return runSoak(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
