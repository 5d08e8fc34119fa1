#include "tools/torture/plan.h"

#include <algorithm>
#include <utility>

#include "tools/torture/random.h"

namespace hbbtv_ryn::test {
namespace {

using std::chrono::milliseconds;

class Planner {
 public:
  explicit Planner(uint64_t seed) : random_(seed) {}

  std::vector<Step> plan(std::chrono::seconds duration) {
    const auto cycles = std::max<int64_t>(1, duration.count() / 10);
    const milliseconds cycle = milliseconds(duration) / cycles;
    for (int64_t i = 0; i < cycles; ++i) {
      planTrouble(Phase::kKills, cycle * 4 / 10);
      planTrouble(Phase::kMalformed, cycle * 2 / 10);
      planTrouble(Phase::kAnything, cycle * 2 / 10);
      steps_.push_back({Phase::kSettling, {}, Deed::kSettle, kBrowserSide, {}, {}});
      steps_.push_back({Phase::kRecovered, cycle / 10, Deed::kNothing, kBrowserSide, {}, {}});
    }
    return std::move(steps_);
  }

 private:
  void planTrouble(Phase phase, milliseconds time) {
    while (time > milliseconds(0)) {
      // A life is mostly long enough for some exchanges, now and then over before the first.
      const milliseconds life(random_.oneIn(8) ? random_.below(20) : 30 + random_.below(250));
      Step step{phase, life, Deed::kKill, random_.oneIn(2) ? kBrowserSide : kPluginSide, {}, {}};
      if (phase == Phase::kKills && random_.oneIn(4)) {
        step.deed = Deed::kOverlap;
        step.turn = milliseconds(random_.below(400));
      } else {
        if (random_.oneIn(6)) step.deed = Deed::kKillBoth;
        // Replaced at once, or after the peer has had time to notice.
        if (random_.oneIn(2)) step.gap = milliseconds(random_.below(800));
        if (phase == Phase::kKills && step.deed == Deed::kKill && step.side == kBrowserSide &&
            random_.oneIn(3)) {
          step.deed = Deed::kPlainTurn;
          step.turn = milliseconds(50 + random_.below(300));
        }
      }
      time -= step.before + step.gap + step.turn;
      steps_.push_back(step);
    }
  }

  Random random_;
  std::vector<Step> steps_;
};

const char* nameOf(Phase phase) {
  switch (phase) {
    case Phase::kKills:
      return "kills";
    case Phase::kMalformed:
      return "malformed";
    case Phase::kAnything:
      return "anything";
    case Phase::kSettling:
      return "settling";
    case Phase::kRecovered:
      return "recovered";
  }
  return "";
}

std::string textOf(milliseconds time) {
  return std::to_string(time.count()) + " ms";
}

std::string textOf(Deed deed, const Step& step) {
  const std::string host = std::string(kSideNames[step.side]) + " host";
  const std::string later = step.gap.count() == 0 ? " at once" : ' ' + textOf(step.gap) + " later";
  switch (deed) {
    case Deed::kKill:
      return "kill the " + host + ", start it" + later;
    case Deed::kKillBoth:
      return "kill both hosts, the " + host + " first, start them" + later;
    case Deed::kOverlap:
      return "start a second " + host + ", kill the first " + textOf(step.turn) + " later";
    case Deed::kPlainTurn:
      return "kill the " + host + ", have a plain one serve" + later + " for " + textOf(step.turn);
    case Deed::kSettle:
      return "wait until right answers come again";
    case Deed::kNothing:
      return "end the cycle";
  }
  return "";
}

}  // namespace

std::vector<Step> planOf(uint64_t seed, std::chrono::seconds duration) {
  return Planner(seed).plan(duration);
}

std::string textOf(const Step& step) {
  std::string text = nameOf(step.phase);
  text.resize(11, ' ');
  return text + "after " + textOf(step.before) + ": " + textOf(step.deed, step);
}

}  // namespace hbbtv_ryn::test
