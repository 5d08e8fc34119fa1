#include "targets.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace bench {
namespace {

struct Target {
  const char* text;
  Work work;
  double (*figure)(const Run&);
  const char* over;
  const char* under;
  bool at_most;
  double limit;
};

constexpr bool kAtMost = true;
constexpr bool kAtLeast = false;

constexpr Target kTargets[] = {
    {"round trip: library / raw queue, no JSON", Work::kRoundTrip, medianMicroseconds, "library", "raw",
     kAtMost, 2.9},
    {"round trip: library / raw queue, StyledWriter", Work::kRoundTrip, medianMicroseconds, "library",
     "raw-floor", kAtMost, 1.10},
    {"round trip: POSIX message queue / library", Work::kRoundTrip, medianMicroseconds, "posix-mq",
     "library", kAtLeast, 1.5},
    {"round trip: UNIX SOCK_SEQPACKET / library", Work::kRoundTrip, medianMicroseconds, "seqpacket",
     "library", kAtLeast, 1.5},
    {"round trip: sd-bus peer to peer / library", Work::kRoundTrip, medianMicroseconds, "sdbus-p2p",
     "library", kAtLeast, 2.3},
    {"round trip: ZeroMQ / library", Work::kRoundTrip, medianMicroseconds, "zeromq", "library", kAtLeast,
     3.8},
    {"round trip: sd-bus, bus daemon / library", Work::kRoundTrip, medianMicroseconds, "sdbus-daemon",
     "library", kAtLeast, 5},
    {"round trip: nng / library", Work::kRoundTrip, medianMicroseconds, "nng", "library", kAtLeast, 6},
    {"burst rate: library / raw queue, StyledWriter", Work::kBurst, burstRate, "library", "raw-floor",
     kAtLeast, 0.85},
    {"time per record: channel / raw queue, no JSON", Work::kSweep, microsecondsPerRecord, "channel", "raw",
     kAtMost, 1.5},
};

// A single small block more or less in the allocator's caches, over thousands of messages, is no growth.
constexpr double kHeapLimit = 0.05;

// Both directions and both processes; the worst counts.
std::optional<Spread> heapGrowthPerMessage(const Results& results) {
  std::vector<double> values;
  for (const Work work : {Work::kRoundTrip, Work::kBurst}) {
    const Series* series = results.find("library", work, true);
    if (series == nullptr) return std::nullopt;
    for (const Run& run : series->runs) {
      const Outcome& outcome = run.outcome;
      values.push_back(std::max(outcome.sender_heap_growth, outcome.receiver_heap_growth) /
                       static_cast<double>(outcome.messages));
    }
  }
  return spread(std::move(values));
}

}  // namespace

std::vector<Judgement> judge(const Results& results) {
  std::vector<Judgement> judgements;
  for (const Target& target : kTargets) {
    judgements.push_back({target.text, target.at_most, target.limit,
                          ratio(results.find(target.over, target.work, true),
                                results.find(target.under, target.work, true), target.figure)});
  }
  judgements.push_back(
      {"heap: bytes left per message", kAtMost, kHeapLimit, heapGrowthPerMessage(results)});
  return judgements;
}

void printJudgements(std::ostream& out, const std::vector<Judgement>& judgements) {
  out << "Targets (pinned, medians over the rounds)\n";
  for (const Judgement& judgement : judgements) {
    if (!judgement.measured) continue;
    out << "  " << std::left << std::setw(48) << judgement.ratio << std::right << std::fixed
        << std::setprecision(2) << std::setw(8) << judgement.measured->median << "  ["
        << judgement.measured->low << " .. " << judgement.measured->high << "]  target "
        << (judgement.at_most ? "at most " : "at least ") << judgement.limit << "  "
        << (judgement.met() ? "met" : "MISSED") << '\n';
  }
  out << '\n';
}

}  // namespace bench
