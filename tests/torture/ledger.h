/// @file
/// What the hosts, the hostile writer and their supervisor know of each other: a piece of memory that all
/// of these processes share, so that what a killed process has counted stays counted.
#ifndef HBBTV_RYN_TESTS_TORTURE_LEDGER_H
#define HBBTV_RYN_TESTS_TORTURE_LEDGER_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace hbbtv_ryn::test {

enum Side : int { kBrowserSide, kPluginSide, kSideCount };
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
  std::atomic<bool> paused;

  // By side. Calls in progress are 0 or the time when they began.
  std::array<std::array<std::atomic<Nanoseconds>, kCallers>, kSideCount> calls;
  std::array<std::atomic<Nanoseconds>, kSideCount> killed_at;
  std::array<std::atomic<uint64_t>, kSideCount> right_in_a_row;

  std::atomic<uint64_t> exchanges;   // synchronous calls that got the right answer
  std::atomic<uint64_t> unanswered;  // that got none
  std::atomic<uint64_t> wrong;       // that got a wrong one, or an unheard-of result, where it may not be
  std::atomic<uint64_t> disturbed;   // that got a wrong one where it may be
  std::atomic<uint64_t> one_way;
  std::atomic<uint64_t> received;  // one-way messages that reached a handler
  std::atomic<uint64_t> hostile;
  std::atomic<bool> hostile_writing;
  std::atomic<Nanoseconds> longest_dead_call;
  // The first wrong answer in words.
  std::atomic<bool> wrong_told;
  char wrong_text[256];
};
static_assert(std::atomic<Nanoseconds>::is_always_lock_free && std::atomic<Phase>::is_always_lock_free);

/// Whether a host's memory says anything about the library. A sanitizer's own use drowns ours, and so does
/// that of an emulator.
bool memoryIsTelling();

/// A new ledger, all zero, whose descriptor children inherit.
class SharedLedger {
 public:
  SharedLedger();
  Ledger* operator->() const { return m_ledger; }
  Ledger& operator*() const { return *m_ledger; }
  /// For the command line of a child, which finds the ledger with openLedger().
  std::string argument() const { return std::to_string(m_descriptor); }

 private:
  int m_descriptor;
  Ledger* m_ledger;
};

Ledger& openLedger(const std::string& argument);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_TORTURE_LEDGER_H
