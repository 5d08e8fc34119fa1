#include "tools/rynctl/trace/trace_view.h"

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

/// The processes' names have been looked up by whoever heard them.
std::string lineOf(const TraceEvent& event, const Exchange& exchange) {
  // As wide as the longest name of an answer, so that the members stand below each other.
  constexpr int kNameColumns = 30;
  const bool answer = event.isAnswer();
  const std::string name = nameText(exchange.message, event.code) + (answer ? " answer" : "");
  std::string text =
      compose("{}  {}  {:{}}  {}", clockText(event.at.time), arrowTo(event, exchange.message), name,
              kNameColumns, membersIn(event.text, exchange.message, answer));
  std::vector<std::string> times;
  if (const auto took = exchange.trace.waited) times.push_back("in flight " + durationText(*took));
  if (const auto took = exchange.trace.handling) times.push_back("in the handler " + durationText(*took));
  if (!times.empty()) text += compose("  ({})", joined(times, ", "));
  if (event.isProblem()) {
    const Process process{event.at.pid, !event.process.empty(), event.process};
    text += compose("  {} by {}", styled(Style::kProblem, problemText(event)), process.text());
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

}  // namespace

void TraceView::take(const TraceEvent& event) {
  count(event);
  const auto exchange = exchanges_.take(event);
  if (event.isAnswer()) {
    if (event.drop == Drop::kNone && event.way == Way::kOut && exchange->sent) {
      answers_.push_back({event, exchange, Clock::now()});
      return;
    }
    const auto given = std::find_if(answers_.begin(), answers_.end(),
                                    [&](const Answer& answer) { return answer.exchange == exchange; });
    if (given != answers_.end()) answers_.erase(given);
  } else if (event.drop == Drop::kNone && exchange->sent && exchange->received) {
    return;
  }
  show(event, *exchange);
}

void TraceView::showLeft(Clock::duration patience) {
  while (!answers_.empty() && Clock::now() - answers_.front().seen >= patience) {
    show(answers_.front().event, *answers_.front().exchange);
    answers_.pop_front();
  }
}

void TraceView::count(const TraceEvent& event) {
  Numbers& numbers = numbers_[event.at.pid];
  // The datagrams of two threads may pass each other.
  numbers.first = std::min(numbers.first, event.sequence);
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

void TraceView::show(const TraceEvent& event, const Exchange& exchange) {
  // What could not be read is seen here for the first time; any other drop is of a message seen before.
  if (event.drop == Drop::kNone || event.kind == Kind::kUnknown) ++messages_;
  if (isShown(event, exchange)) print("{}\n", lineOf(event, exchange));
}

bool TraceView::isShown(const TraceEvent& event, const Exchange& exchange) const {
  if (!matches(filter_.glob, nameText(exchange.message, event.code))) return false;
  if (!filter_.slow && !filter_.errors) return true;
  if (filter_.errors && event.isProblem()) return true;
  const auto took = std::max(exchange.trace.waited.value_or(-1), exchange.trace.handling.value_or(-1));
  return filter_.slow && static_cast<double>(took) >= *filter_.slow * 1000;
}

}  // namespace hbbtv_ryn::rynctl
