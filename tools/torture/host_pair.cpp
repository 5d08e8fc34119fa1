#include "tools/torture/host_pair.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tools/torture/roles.h"

namespace hbbtv_ryn::test {
namespace {

// The end of what a host has written: room for a sanitizer's report.
std::string endOf(int file) {
  constexpr off_t kMost = 16384;
  const off_t size = lseek(file, 0, SEEK_END);
  std::string text(static_cast<std::size_t>(std::min(size, kMost)), '\0');
  const ssize_t length = pread(file, text.data(), text.size(), size - static_cast<off_t>(text.size()));
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return text;
}

// A sanitizer's own memory drowns ours, and so does that of an emulator.
bool memoryIsTelling() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return false;
#else
  return std::getenv("HBBTV_RYN_EMULATOR") == nullptr;
#endif
}

}  // namespace

HostPair::HostPair(uint64_t seed) : seeds_(seed) {
  for (int& errors : errors_) {
    errors = createShared("error output");
    fcntl(errors, F_SETFL, O_APPEND);
  }
  start(kBrowserSide);
  start(kPluginSide);
}

std::vector<std::string> HostPair::arguments() {
  return {ledger_argument_, std::to_string(seeds_.number() >> 1)};
}

std::unique_ptr<ChildProcess> HostPair::newHost(Side side) {
  if (ftruncate(errors_[side], 0) != 0) throw std::runtime_error("cannot empty a file in memory");
  return std::make_unique<ChildProcess>(side == kBrowserSide ? kBrowserHost : kPluginHost, arguments(),
                                        errors_[side]);
}

void HostPair::start(Side side) {
  ledger_.killed_at[side] = 0;
  hosts_[side] = newHost(side);
  hosts_[side]->say("call");
}

void HostPair::kill(Side side) {
  ledger_.killed_at[side] = now();
  if (const int end = hosts_[side]->kill(); end != -SIGKILL) fail(side, "ended by itself", end);
  hosts_[side].reset();
  for (auto& call : ledger_.calls[side]) call = 0;
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

void HostPair::finish() {
  for (auto& host : hosts_) host->say("finish");
  for (const Side side : {kPluginSide, kBrowserSide}) {
    if (const int end = hosts_[side]->wait(); end != 0) fail(side, "did not end in order", end);
  }
}

void HostPair::requireLife() {
  for (const Side side : {kPluginSide, kBrowserSide}) {
    if (hosts_[side] && !hosts_[side]->lives()) fail(side, "ended by itself", hosts_[side]->wait());
  }
}

int HostPair::peakMemoryKb(Side side) const {
  std::ifstream status("/proc/" + std::to_string(hosts_[side]->pid()) + "/status");
  int peak = 0;
  for (std::string word; memoryIsTelling() && status >> word;) {
    if (word == "VmHWM:" && status >> peak) break;
  }
  return peak;
}

void HostPair::fail(Side side, const char* what, int end) {
  throw std::runtime_error(
      std::string("the ") + kSideNames[side] + " host " + what + ", with " +
      (end < 0 ? "signal " + std::to_string(-end) : "exit code " + std::to_string(end)) +
      "; the end of its error output:\n" + endOf(errors_[side]));
}

}  // namespace hbbtv_ryn::test
