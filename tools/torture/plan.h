/// @file
/// What a run does to its hosts, and when: decided by the seed alone, before anything runs, and by
/// arithmetic that is the same on every machine.
#ifndef HBBTV_RYN_TOOLS_TORTURE_PLAN_H
#define HBBTV_RYN_TOOLS_TORTURE_PLAN_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/torture/ledger.h"

namespace hbbtv_ryn::test {

enum class Deed {
  kKill,       // one host, and start it again
  kKillBoth,   // of them `side` first
  kOverlap,    // a successor serves beside the host, then the host is killed
  kPlainTurn,  // kill the browser host, and let a plain browser serve before it is started again
  kSettle,     // no trouble, until right answers come again
  kNothing,
};

struct Step {
  Phase phase;
  std::chrono::milliseconds before;  // traffic before the deed
  Deed deed;
  Side side;                       // whom it strikes
  std::chrono::milliseconds gap;   // in which nobody is in the place of the killed
  std::chrono::milliseconds turn;  // of the successor beside its predecessor, or of the plain browser
};

/// The steps for a run of about this time: cycles of ten seconds, with all kinds of trouble in each.
std::vector<Step> planOf(uint64_t seed, std::chrono::seconds duration);

/// In words, such as "kills      after 112 ms: kill the browser host, start it 340 ms later".
std::string textOf(const Step& step);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_TORTURE_PLAN_H
