/// @file
/// What the processes of a run and their supervisor know of each other: a piece of memory that all of them
/// share, so that what a killed process has counted stays counted.
#ifndef HBBTV_RYN_TOOLS_TORTURE_LEDGER_H
#define HBBTV_RYN_TOOLS_TORTURE_LEDGER_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace hbbtv_ryn::test {

enum Side : std::size_t { kBrowserSide, kPluginSide, kSideCount };
inline constexpr const char* kSideNames[] = {"browser", "plug-in"};
inline constexpr Side peerOf(Side side) {
  return side == kBrowserSide ? kPluginSide : kBrowserSide;
}

enum class Phase : int {
  kKills,      // processes are killed; every answer must be right
  kMalformed,  // and junk is written to the queues; every answer must still be right, or none
  kAnything,  // and requests that are answered, as if they were the peer's own: answers may be a stranger's
  kSettling,  // the writing has ended, nobody is killed; right answers must come again
  kRecovered,  // as kKills, but nobody is killed
};

using Nanoseconds = int64_t;
inline Nanoseconds now() {
  return std::chrono::steady_clock::now().time_since_epoch().count();
}

inline constexpr int kCallers = 3;  // threads per side that call the library

struct Ledger {
  std::atomic<Phase> phase;

  // By side. Calls in progress are 0 or the time when they began.
  std::array<std::array<std::atomic<Nanoseconds>, kCallers>, kSideCount> calls;
  std::array<std::atomic<Nanoseconds>, kSideCount> killed_at;  // 0: a host lives
  std::array<std::atomic<uint64_t>, kSideCount> right_in_a_row;

  std::atomic<uint64_t> exchanges;   // synchronous calls that got the right answer
  std::atomic<uint64_t> unanswered;  // that got none
  std::atomic<uint64_t> wrong;       // that got a wrong one, or an unheard-of result, where it may not be
  std::atomic<uint64_t> disturbed;   // that got a wrong one where it may be
  std::atomic<uint64_t> one_way;
  std::atomic<uint64_t> received;  // one-way messages that reached a handler
  std::atomic<uint64_t> hostile;
  std::atomic<uint64_t> cancelled;  // threads, in their calls or between them
  std::atomic<bool> hostile_writing;
  std::atomic<Nanoseconds> longest_dead_call;
  char first_wrong[256];  // in words
};
static_assert(std::atomic<Nanoseconds>::is_always_lock_free && std::atomic<Phase>::is_always_lock_free);

/// @return the descriptor of a new, empty file in memory, which children inherit under the same number.
int createShared(const char* name);

/// Makes a ledger, all zero. @return what openLedger() finds it by, in this process and in its children.
std::string createLedger();
Ledger& openLedger(const std::string& argument);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_TORTURE_LEDGER_H
