/// @file
/// The processes of a stress run, and what they and their supervisor know of each other: a piece of memory
/// that all of them share, so that what a killed process has counted stays counted.
#ifndef HBBTV_RYN_TESTS_TORTURE_PROCESSES_H
#define HBBTV_RYN_TESTS_TORTURE_PROCESSES_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/support/child_process.h"

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
  std::atomic<bool> paused;

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

/// Makes a ledger, all zero, that children inherit. @return what openLedger() finds it by.
std::string createLedger();

Ledger& openLedger(const std::string& argument);

// Each process is started with the ledger's argument and a seed.

/// A browser host and a plug-in host that call each other without end and check every answer. What a
/// handler answers is computed from the question alone, so the asker knows the only right answer.
///
/// A third argument is the pause between two calls of a thread in microseconds; without a pause, waits are
/// broken by signals, and one of the threads is cancelled again and again. A host says "up" when it serves,
/// and calls once it has been told "call". Told "restart", it stops and starts its endpoint; told "trim",
/// it gives the memory back that it does not use; either time it says "done". Told "finish", it stops
/// everything in an orderly way and ends with exit code 0.
extern const ChildRole kBrowserHost;
extern const ChildRole kPluginHost;

/// A browser that shares no code with the library and knows the record format alone. It answers the plug-in
/// host's questions until it is told to finish, and then ends between two messages.
extern const ChildRole kPlainBrowser;

/// Writes to the three request queues what no peer would: as long as the ledger's phase is kMalformed
/// records that nobody can answer, in phase kAnything also such as the peer itself might have sent. Two
/// things it leaves out, since the format gives everyone the right to them: the stop record and the
/// one-way message "exit".
extern const ChildRole kHostileWriter;

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_TORTURE_PROCESSES_H
