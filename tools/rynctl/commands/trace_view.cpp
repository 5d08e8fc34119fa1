#include "tools/rynctl/commands/trace_view.h"

#include <algorithm>

#include "ipc/protocol/catalogue.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

using trace::Drop;
using trace::Kind;
using trace::Way;

namespace {

std::string durationText(std::int64_t microseconds) {
  return microseconds < 10000 ? compose("{} us", microseconds) : compose("{} ms", microseconds / 1000);
}

/// Who the text went or should have gone to.
std::string arrowTo(const TraceEvent& event, const Message* message) {
  if (message == nullptr) return event.way == Way::kOut ? "->" : "<-";
  const Side receiver = receiverOf(*message);
  return compose("-> {}", nameOf(event.isAnswer() ? other(receiver) : receiver));
}

std::string problemText(const TraceEvent& event) {
  std::string text;
  if (event.drop != Drop::kNone) {
    text = compose("DROPPED: {}", wordOf(event.drop, trace::kDropNames));
  } else if (event.kind == Kind::kFailure) {
    text = "NO ANSWER";
  }
  if (event.result != 0) text += compose("{}result {}", text.empty() ? "" : ", ", event.result);
  return text;
}

}  // namespace

void TraceView::take(const TraceEvent& event) {
  constexpr std::size_t kMostSent = 1024;
  count(event);
  Queue& queue = queues_[event.queue];

  if (event.drop != Drop::kNone) {
    if (event.way == Way::kIn) queue.answer_to_traced = false;
    show(event, event.handling);
    return;
  }
  if (!event.isAnswer() && event.way == Way::kOut) {
    queue.sent.push_back(event);
    if (queue.sent.size() > kMostSent) queue.sent.pop_front();
    show(event, {});
    return;
  }
  if (!event.isAnswer()) {
    const auto same = std::find_if(queue.sent.begin(), queue.sent.end(), [&](const TraceEvent& sent) {
      return sent.code == event.code && sent.length == event.length && sent.text == event.text;
    });
    const bool second_sight = same != queue.sent.end();
    // A queue keeps the order: what was sent before has been lost, or was received untraced.
    if (second_sight) queue.sent.erase(queue.sent.begin(), same + 1);
    if (event.kind == Kind::kRequest) queue.answer_to_traced = second_sight;
    if (!second_sight) show(event, {});
    return;
  }
  if (event.way == Way::kOut) {
    if (queue.answer_to_traced) {
      queue.answers.push_back({event, Clock::now()});
    } else {
      show(event, event.handling);
    }
    return;
  }
  const auto given = std::find_if(queue.answers.begin(), queue.answers.end(),
                                  [&](const Answer& answer) { return answer.event.code == event.code; });
  std::optional<std::int64_t> handling;
  if (given != queue.answers.end()) {
    handling = given->event.handling;
    queue.answers.erase(given);
  }
  show(event, handling);
}

void TraceView::showLeft(Clock::duration patience) {
  for (auto& [key, queue] : queues_) {
    while (!queue.answers.empty()) {
      const Answer& oldest = queue.answers.front();
      if (Clock::now() - oldest.seen < patience) break;
      show(oldest.event, oldest.event.handling);
      queue.answers.pop_front();
    }
  }
}

void TraceView::count(const TraceEvent& event) {
  Numbers& numbers = numbers_[event.pid];
  // The datagrams of two threads may pass each other.
  numbers.first = numbers.count == 0 ? event.sequence : std::min(numbers.first, event.sequence);
  numbers.last = std::max(numbers.last, event.sequence);
  ++numbers.count;
}

std::uint64_t TraceView::lost() const {
  std::uint64_t lost = 0;
  for (const auto& [pid, numbers] : numbers_) {
    const std::uint64_t sent = numbers.last - numbers.first + 1;
    lost += sent - std::min(sent, numbers.count);
  }
  return lost;
}

void TraceView::show(const TraceEvent& event, std::optional<std::int64_t> handling) {
  // What could not be read is seen here for the first time; any other drop is of a message seen before.
  if (event.drop == Drop::kNone || event.kind == Kind::kUnknown) ++messages_;
  if (isShown(event, handling)) print("{}\n", line(event, handling));
}

bool TraceView::isShown(const TraceEvent& event, std::optional<std::int64_t> handling) const {
  const Message* const message = findMessage(event.code);
  if (!matches(filter_.glob, nameText(message, event.code))) return false;
  if (!filter_.slow && !filter_.errors) return true;
  if (filter_.errors && event.isProblem()) return true;
  const auto took = std::max(event.waited.value_or(-1), handling.value_or(-1));
  return filter_.slow && static_cast<double>(took) >= *filter_.slow * 1000;
}

std::string TraceView::line(const TraceEvent& event, std::optional<std::int64_t> handling) {
  // As wide as the longest name of an answer, so that the members stand below each other.
  constexpr int kNameColumns = 30;
  const Message* const message = findMessage(event.code);
  std::string text =
      compose("{}  {}  {:{}}  ", clockText(event.time), arrowTo(event, message),
              nameText(message, event.code) + (event.isAnswer() ? " answer" : ""), kNameColumns);
  text += membersIn(event.text, message, event.isAnswer());
  std::string times;
  if (event.waited) times = "in flight " + durationText(*event.waited);
  if (handling) times += (times.empty() ? "" : ", ") + ("in the handler " + durationText(*handling));
  if (!times.empty()) text += compose("  ({})", times);
  if (event.isProblem()) {
    text += compose("  {} by {}", styled(Style::kProblem, problemText(event)), processName(event));
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

const std::string& TraceView::processName(const TraceEvent& event) {
  constexpr std::int64_t kPerSecond = 1000000;
  std::string& name = names_[event.pid];
  if (name.empty()) name = processAt(event.pid, static_cast<std::time_t>(event.time / kPerSecond)).text();
  return name;
}

}  // namespace hbbtv_ryn::rynctl
