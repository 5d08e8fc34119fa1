/// @file
/// How tests wait: for an event, never for a time. The deadline only turns a hang into a failure, so it is
/// far beyond what a loaded or emulated machine needs.
#ifndef HBBTV_RYN_TOOLS_SUPPORT_DEADLINE_H
#define HBBTV_RYN_TOOLS_SUPPORT_DEADLINE_H

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

namespace hbbtv_ryn::test {

inline constexpr std::chrono::seconds kDeadline{30};

/// Returns as soon as `happened()` is true; throws, which fails the test, when the deadline passes.
template <typename Predicate>
void waitUntil(const char* what, Predicate happened) {
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (!happened()) {
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error(std::string("waited in vain until ") + what);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

/// A call made on a thread of its own while the test plays its peer.
/// A call that never ends would hang the test in the future's destructor: then the process is ended.
template <typename Call>
class Concurrently {
 public:
  explicit Concurrently(Call call) : result_(std::async(std::launch::async, std::move(call))) {}

  auto result() {
    if (result_.wait_for(kDeadline) != std::future_status::ready) {
      std::fputs("a call that should have returned is still blocked: giving up this test process\n",
                 stderr);
      std::_Exit(EXIT_FAILURE);
    }
    return result_.get();
  }

  bool returned() const { return result_.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }

  ~Concurrently() {
    if (result_.valid()) static_cast<void>(result());
  }
  Concurrently(const Concurrently&) = delete;
  Concurrently& operator=(const Concurrently&) = delete;

 private:
  std::future<std::invoke_result_t<Call>> result_;
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_SUPPORT_DEADLINE_H
