#include "torture/stress.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tools/support/isolation.h"

namespace hbbtv_ryn::test {
namespace {

void require(int code, int expected, Side side, const char* what) {
  if (code == expected) return;
  throw std::runtime_error(std::string("the ") + kSideNames[side] + " host " + what + ", code " +
                           std::to_string(code));
}

}  // namespace

HostPair::HostPair(uint64_t seed, const char* pause) : seeds_(seed), pause_(pause) {
  isolateTest();
  start(kBrowserSide);
  start(kPluginSide);
}

void HostPair::start(Side side) {
  ledger_.killed_at[side] = 0;
  hosts_[side] = newHost(side);
  hosts_[side]->say("call");
}

std::vector<std::string> HostPair::arguments() {
  return {ledger_argument_, std::to_string(seeds_() >> 1)};
}

std::unique_ptr<ChildProcess> HostPair::newHost(Side side) {
  auto with_pause = arguments();
  with_pause.push_back(pause_);
  return std::make_unique<ChildProcess>(side == kBrowserSide ? kBrowserHost : kPluginHost, with_pause);
}

// Only one of them may ask: there is one client to a queue.
void HostPair::replaceOverlapping(Side side, std::chrono::milliseconds overlap) {
  auto successor = newHost(side);
  successor->hear();  // it serves
  std::this_thread::sleep_for(overlap);
  kill(side);
  ledger_.killed_at[side] = 0;
  successor->say("call");
  hosts_[side] = std::move(successor);
}

void HostPair::kill(Side side) {
  ledger_.killed_at[side] = now();
  require(hosts_[side]->kill(), -SIGKILL, side, "ended by itself");
  for (auto& call : ledger_.calls[side]) call = 0;
}

void HostPair::finish() {
  for (auto& host : hosts_) host->say("finish");
  for (const Side side : {kPluginSide, kBrowserSide}) {
    require(hosts_[side]->wait(), 0, side, "did not end in order");
  }
}

int statusOf(pid_t pid, const std::string& field) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; status >> word;) {
    int value = 0;
    if (word == field && status >> value) return value;
  }
  return 0;
}

bool memoryIsTelling() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return false;
#else
  return std::getenv("HBBTV_RYN_EMULATOR") == nullptr;
#endif
}

int runStress(int argc, char** argv, CLI::App& app, const std::function<bool()>& run) {
  if (const auto exit_code = runAsChild(argc, argv)) return *exit_code;
  CLI11_PARSE(app, argc, argv);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    isolateProcess();
    return run() ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}

}  // namespace hbbtv_ryn::test
