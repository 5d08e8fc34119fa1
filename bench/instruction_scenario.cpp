// The fixed exchange whose instructions bench/instruction_guard.sh counts: one process per side, each run
// under callgrind, which counts from the first message after the warm-up to the last one.
#include <hbbtv_ryn/browser.h>
#include <hbbtv_ryn/plugin.h>
#include <semaphore.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <thread>

namespace {

// Lazily bound symbols, opened queues and grown buffers are behind us then.
constexpr int kWarmUp = 100;
constexpr int kCounted = 2000;
constexpr int kAppId = 17;
constexpr int kOrgId = 4711;

constexpr int kWrongUse = 2;
constexpr int kFailed = 1;

int g_served = 0;
sem_t g_done;

// From the start of one call to the start of the call 2000 later lie 2000 whole exchanges.
void onGetVisible(int, int, bool* visible) {
  *visible = true;
  ++g_served;
  if (g_served == kWarmUp) CALLGRIND_ZERO_STATS;
  if (g_served != kWarmUp + kCounted) return;
  CALLGRIND_DUMP_STATS;
  sem_post(&g_done);
}

int browser() {
  sem_init(&g_done, 0, 0);
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetVisible = onGetVisible;
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  if (Zunt_RYN_Browser_Initialize() != 0) return kFailed;
  while (sem_wait(&g_done) != 0) {
  }
  return Zunt_RYN_Browser_Finalize() == 0 ? 0 : kFailed;
}

bool ask() {
  bool visible = false;
  return Zunt_RYN_Plugin_GetVisible(kAppId, kOrgId, &visible) == 0 && visible;
}

// The browser process creates the queues.
bool waitForBrowser() {
  bool visible = false;
  for (int attempt = 0; attempt < 600; ++attempt) {
    if (Zunt_RYN_Plugin_GetVisible(kAppId, kOrgId, &visible) == 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

int plugin() {
  if (Zunt_RYN_Plugin_Initialize() != 0 || !waitForBrowser()) return kFailed;
  bool answered = true;
  for (int i = 1; i < kWarmUp; ++i) answered = ask() && answered;
  CALLGRIND_ZERO_STATS;
  for (int i = 0; i < kCounted; ++i) answered = ask() && answered;
  CALLGRIND_DUMP_STATS;
  return Zunt_RYN_Plugin_Finalize() == 0 && answered ? 0 : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "count") == 0) {
    std::cout << kCounted << '\n';
    return 0;
  }
  if (argc == 2 && std::strcmp(argv[1], "browser") == 0) return browser();
  if (argc == 2 && std::strcmp(argv[1], "plugin") == 0) return plugin();
  std::cerr << "Usage: instruction_scenario browser|plugin|count\nSee bench/instruction_guard.sh.\n";
  return kWrongUse;
}
