#include "trace_view.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

#include "ipc/protocol/envelope.h"
#include "message_text.h"
#include "process.h"
#include "terminal.h"

namespace hbbtv_ryn::rynctl {

using trace::Drop;
using trace::Kind;
using trace::Way;

namespace {

std::string clockText(double time) {
  constexpr double kPerSecond = 1e6;
  const auto seconds = static_cast<std::time_t>(std::floor(time));
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%06ld", local.tm_hour, local.tm_min, local.tm_sec,
                std::lround((time - std::floor(time)) * kPerSecond) % std::lround(kPerSecond));
  return text.data();
}

std::string durationText(std::int64_t microseconds) {
  constexpr std::int64_t kLongMicroseconds = 10000;
  constexpr std::int64_t kPerMillisecond = 1000;
  if (microseconds < kLongMicroseconds) return std::to_string(microseconds) + " us";
  return std::to_string(microseconds / kPerMillisecond) + " ms";
}

bool isAnswer(const TraceEvent& event) {
  return event.kind == Kind::kReply || event.kind == Kind::kFailure;
}

/// Who the text went or should have gone to.
const char* arrowTo(const TraceEvent& event, const Message* message) {
  if (message == nullptr) return event.way == Way::kOut ? "->" : "<-";
  const bool to_browser = (message->direction == Direction::kToBrowser) != isAnswer(event);
  return to_browser ? "-> browser" : "-> plug-in";
}

std::string nameText(const TraceEvent& event, const Message* message) {
  if (message == nullptr) return event.code == 0 ? "?" : "code " + std::to_string(event.code);
  return std::string(message->name);
}

std::string textOf(const TraceEvent& event, const Message* message) {
  Json::Value members;
  if (message == nullptr || event.text.empty() || !parse(event.text.c_str(), &members)) {
    return onOneLine(event.text);
  }
  return membersText(members, isAnswer(event) ? message->reply : message->request);
}

std::string problemText(const TraceEvent& event) {
  std::string text;
  if (event.drop != Drop::kNone) {
    text = std::string("DROPPED: ") + trace::kDropNames[static_cast<std::size_t>(event.drop)];
  } else if (event.kind == Kind::kFailure) {
    text = "NO ANSWER";
  }
  if (event.result != 0) text += (text.empty() ? "result " : ", result ") + std::to_string(event.result);
  return text;
}

}  // namespace

std::vector<std::string> TraceView::take(const TraceEvent& event) {
  constexpr std::size_t kMostSent = 1024;
  std::vector<std::string> lines;
  count(event);
  Queue& queue = queues_[event.queue];

  if (event.drop != Drop::kNone) {
    if (event.way == Way::kIn) queue.answer_to_traced = false;
    show(event, event.handling, &lines);
    return lines;
  }
  if (!isAnswer(event) && event.way == Way::kOut) {
    queue.sent.push_back(event);
    if (queue.sent.size() > kMostSent) queue.sent.pop_front();
    show(event, {}, &lines);
    return lines;
  }
  if (!isAnswer(event)) {
    const auto same = std::find_if(queue.sent.begin(), queue.sent.end(), [&](const TraceEvent& sent) {
      return sent.code == event.code && sent.length == event.length && sent.text == event.text;
    });
    const bool second_sight = same != queue.sent.end();
    // A queue keeps the order: what was sent before has been lost, or was received untraced.
    if (second_sight) queue.sent.erase(queue.sent.begin(), same + 1);
    if (event.kind == Kind::kRequest) queue.answer_to_traced = second_sight;
    if (!second_sight) show(event, {}, &lines);
    return lines;
  }
  if (event.way == Way::kOut) {
    if (queue.answer_to_traced) {
      queue.answers.push_back({event, Clock::now()});
    } else {
      show(event, event.handling, &lines);
    }
    return lines;
  }
  const auto given = std::find_if(queue.answers.begin(), queue.answers.end(),
                                  [&](const Answer& answer) { return answer.event.code == event.code; });
  std::optional<std::int64_t> handling;
  if (given != queue.answers.end()) {
    handling = given->event.handling;
    queue.answers.erase(given);
  }
  show(event, handling, &lines);
  return lines;
}

std::vector<std::string> TraceView::left(Which which) {
  constexpr std::chrono::seconds kPatience{1};
  std::vector<std::string> lines;
  for (auto& [key, queue] : queues_) {
    while (!queue.answers.empty()) {
      const Answer& oldest = queue.answers.front();
      if (which == Which::kOverdue && Clock::now() - oldest.seen < kPatience) break;
      show(oldest.event, oldest.event.handling, &lines);
      queue.answers.pop_front();
    }
  }
  return lines;
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

void TraceView::show(const TraceEvent& event, std::optional<std::int64_t> handling,
                     std::vector<std::string>* lines) {
  // What could not be read is seen here for the first time; any other drop is of a message seen before.
  if (event.drop == Drop::kNone || event.kind == Kind::kUnknown) ++messages_;
  if (isShown(event, handling)) lines->push_back(line(event, handling));
}

bool TraceView::isShown(const TraceEvent& event, std::optional<std::int64_t> handling) const {
  const Message* const message = findMessage(event.code);
  if (!matches(filter_.glob, nameText(event, message))) return false;
  if (!filter_.slow && !filter_.errors) return true;
  if (filter_.errors && event.isProblem()) return true;
  return filter_.slow &&
         std::max(event.waited.value_or(-1), handling.value_or(-1)) >= filter_.slow->count();
}

std::string TraceView::line(const TraceEvent& event, std::optional<std::int64_t> handling) {
  // The longest name of an answer, so that the members stand below each other.
  constexpr std::size_t kNameColumns = 30;
  const Message* const message = findMessage(event.code);
  std::string name = nameText(event, message) + (isAnswer(event) ? " answer" : "");
  name.resize(std::max(name.size(), kNameColumns), ' ');
  std::string text = clockText(event.time) + "  " + arrowTo(event, message) + "  " + name;
  const std::string members = textOf(event, message);
  if (!members.empty()) text += "  " + members;
  std::string times;
  if (event.waited) times = "in flight " + durationText(*event.waited);
  if (handling) times += (times.empty() ? "" : ", ") + ("in the handler " + durationText(*handling));
  if (!times.empty()) text += "  (" + times + ')';
  const std::string problem = problemText(event);
  if (!problem.empty()) {
    text += "  " + styled(Style::Problem, problem, colour_) + " by " + processName(event);
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

const std::string& TraceView::processName(const TraceEvent& event) {
  std::string& name = names_[event.pid];
  if (name.empty()) name = processAt(event.pid, static_cast<std::time_t>(event.time)).text();
  return name;
}

}  // namespace hbbtv_ryn::rynctl
