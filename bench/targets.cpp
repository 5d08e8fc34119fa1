#include "targets.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace bench {
namespace {

struct Target {
  const char* text;
  const char* over;
  const char* under;
  double (*figure)(const Run&);
  double limit;
  Work work;
  bool at_most;
};

constexpr bool kAtMost = true;
constexpr bool kAtLeast = false;
constexpr auto kTime = medianMicroseconds;
constexpr auto kSlope = microsecondsPerRecord;
constexpr Work kTrip = Work::kRoundTrip;

constexpr Target kTargets[] = {
    {"round trip: library / raw queue, no JSON", "library", "raw", kTime, 2.9, kTrip, kAtMost},
    {"round trip: library / raw queue, StyledWriter", "library", "raw-floor", kTime, 1.10, kTrip, kAtMost},
    {"round trip: POSIX message queue / library", "posix-mq", "library", kTime, 1.5, kTrip, kAtLeast},
    {"round trip: UNIX SOCK_SEQPACKET / library", "seqpacket", "library", kTime, 1.5, kTrip, kAtLeast},
    {"round trip: sd-bus peer to peer / library", "sdbus-p2p", "library", kTime, 2.3, kTrip, kAtLeast},
    {"round trip: ZeroMQ / library", "zeromq", "library", kTime, 3.8, kTrip, kAtLeast},
    {"round trip: sd-bus, bus daemon / library", "sdbus-daemon", "library", kTime, 5, kTrip, kAtLeast},
    {"round trip: nng / library", "nng", "library", kTime, 6, kTrip, kAtLeast},
    {"burst rate: library / raw queue, StyledWriter", "library", "raw-floor", burstRate, 0.85, Work::kBurst,
     kAtLeast},
    {"time per record: channel / raw queue, no JSON", "channel", "raw", kSlope, 1.5, Work::kSweep, kAtMost},
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
    const Series* over = results.find(target.over, target.work, true);
    Judgement judgement{target.text, target.at_most, target.limit,
                        ratio(over, results.find(target.under, target.work, true), target.figure),
                        std::nullopt};
    if (target.under == std::string("library")) {
      judgement.within_reach = ratio(over, results.find("raw-floor", target.work, true), target.figure);
    }
    judgements.push_back(judgement);
  }
  judgements.push_back(
      {"heap: bytes left per message", kAtMost, kHeapLimit, heapGrowthPerMessage(results), std::nullopt});
  return judgements;
}

void printJudgements(std::ostream& out, const std::vector<Judgement>& judgements) {
  const auto ran = [](const Judgement& judgement) { return judgement.measured.has_value(); };
  if (std::none_of(judgements.begin(), judgements.end(), ran)) return;
  out << "Targets (pinned, medians over the rounds)\n";
  for (const Judgement& judgement : judgements) {
    if (!judgement.measured) continue;
    out << "  " << std::left << std::setw(48) << judgement.ratio << std::right << std::fixed
        << std::setprecision(2) << std::setw(8) << judgement.measured->median << "  ["
        << judgement.measured->low << " .. " << judgement.measured->high << "]  target "
        << (judgement.at_most ? "at most " : "at least ") << judgement.limit << "  "
        << (judgement.met() ? "met" : "MISSED");
    if (judgement.within_reach && !judgement.met()) {
      out << " (raw queue, StyledWriter: " << judgement.within_reach->median << ')';
    }
    out << '\n';
  }
  out << '\n';
}

}  // namespace bench
