// Normal traffic between two hosts over a long time, with restarts: a host that lives through all of it
// must end with the memory, threads and descriptors that it had after the first interval.
//
// One browser host and one plug-in host cannot both be killed and be measured, so there are two pairs, each
// with queues of its own: in each, one host survives, and its peer is killed once per interval. The
// survivor's endpoint is stopped and started in an orderly way as often.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <thread>

#include "tools/support/deadline.h"
#include "tools/support/isolation.h"
#include "torture/stress.h"

namespace hbbtv_ryn::test {
namespace {

using std::chrono::seconds;

// What the allocator may keep between blocks in use. A leak of 50 bytes per exchange shows within seconds.
constexpr int kAllocatorSlackKb = 256;
constexpr const char* kPauseBetweenCalls = "2000";  // microseconds

struct Size {
  int resident_kb;
  int threads;
  int descriptors;
};

Size sizeOf(pid_t pid) {
  const std::filesystem::directory_iterator descriptors("/proc/" + std::to_string(pid) + "/fd");
  return {statusOf(pid, "RssAnon:"), statusOf(pid, "Threads:"),
          static_cast<int>(std::distance(begin(descriptors), end(descriptors)))};
}

class Soak {
 public:
  explicit Soak(Side survivor) : survivor_(survivor), hosts_(survivor, kPauseBetweenCalls) {}

  // False when an answer was wrong, or the survivor has grown.
  bool run(seconds duration, seconds interval) {
    passInterval(interval);
    const Size first = survivorAtRest();
    for (auto passed = interval; passed < duration; passed += interval) passInterval(interval);
    const Size last = survivorAtRest();
    hosts_.finish();
    report(first, last);
    return ledger_.wrong == 0 && ledger_.exchanges > 0 && first.threads == last.threads &&
           first.descriptors == last.descriptors &&
           (!memoryIsTelling() || last.resident_kb - first.resident_kb <= kAllocatorSlackKb);
  }

 private:
  // The restarts are in the middle, so that both hosts are in full swing at the end.
  void passInterval(std::chrono::milliseconds interval) {
    std::this_thread::sleep_for(interval / 2);
    hosts_.kill(peerOf(survivor_));
    hosts_.start(peerOf(survivor_));
    order("restart");
    std::this_thread::sleep_for(interval / 2);
  }

  // The survivor's size while it does nothing but wait.
  Size survivorAtRest() {
    ledger_.paused = true;
    const auto& calls = ledger_.calls[survivor_];
    waitUntil("no call was in progress", [&] {
      return std::all_of(calls.begin(), calls.end(), [](const auto& call) { return call == 0; });
    });
    order("trim");
    const Size size = sizeOf(hosts_[survivor_].pid());
    ledger_.paused = false;
    return size;
  }

  // Has the survivor do something, and waits until it has.
  void order(const char* what) {
    hosts_[survivor_].say(what);
    while (hosts_[survivor_].hear() != "done") continue;
  }

  void report(const Size& first, const Size& last) const {
    const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf("%s that survives: %llu exchanges, %llu without an answer, %llu wrong, %llu one-way\n",
                kSideNames[survivor_], number(ledger_.exchanges), number(ledger_.unanswered),
                number(ledger_.wrong), number(ledger_.one_way));
    std::printf("  after the first interval %5d KiB, %d threads, %d descriptors\n", first.resident_kb,
                first.threads, first.descriptors);
    std::printf("  at the end               %5d KiB, %d threads, %d descriptors\n", last.resident_kb,
                last.threads, last.descriptors);
  }

  const Side survivor_;
  HostPair hosts_;
  Ledger& ledger_ = hosts_.ledger();
};

bool soakBoth(seconds duration, seconds interval) {
  const auto soak = [=](Side survivor) { return Soak(survivor).run(duration, interval); };
  // Namespaces belong to threads, so each pair gets a thread. Without namespaces they take turns.
  const auto policy = isIsolated() ? std::launch::async : std::launch::deferred;
  auto browser = std::async(policy, soak, kBrowserSide);
  auto plugin = std::async(policy, soak, kPluginSide);
  const bool browser_is_sound = browser.get();
  return plugin.get() && browser_is_sound;
}

}  // namespace
}  // namespace hbbtv_ryn::test

int main(int argc, char** argv) {
  CLI::App app(
      "Normal traffic with restarts; the hosts must not grow.\n"
      "Exit code 0 when they have not and every answer was right, 1 otherwise.");
  int seconds = 1800;
  int interval = 60;
  app.add_option("--seconds", seconds, "how long")->check(CLI::PositiveNumber)->capture_default_str();
  app.add_option("--interval", interval, "seconds between restarts")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  return hbbtv_ryn::test::runStress(argc, argv, app, [&] {
    std::printf("%d s, restarts every %d s\n", seconds, interval);
    return hbbtv_ryn::test::soakBoth(std::chrono::seconds(seconds), std::chrono::seconds(interval));
  });
}
