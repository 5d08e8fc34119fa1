#include "tools/rynctl/commands/trace_view.h"

#include <algorithm>
#include <charconv>

#include "ipc/protocol/catalogue.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

constexpr std::int64_t kPerSecond = 1000000;

template <typename Number>
bool read(std::string_view text, Number* number, int base = 10) {
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), *number, base);
  return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

bool read(std::string_view text, std::optional<std::int64_t>* number) {
  return read(text, &number->emplace());
}

template <typename Word, std::size_t Count>
bool readWord(std::string_view text, const char* const (&names)[Count], Word* word) {
  for (std::size_t i = 0; i < Count; ++i) {
    if (text != names[i]) continue;
    *word = static_cast<Word>(i);
    return true;
  }
  return false;
}

bool readTime(std::string_view text, std::int64_t* time) {
  std::int64_t seconds = 0;
  std::int64_t microseconds = 0;
  const auto dot = text.find('.');
  if (dot == std::string_view::npos) return false;
  if (!read(text.substr(0, dot), &seconds) || !read(text.substr(dot + 1), &microseconds)) return false;
  *time = seconds * kPerSecond + microseconds;
  return true;
}

bool readKey(std::string_view text, key_t* key) {
  constexpr int kHex = 16;
  std::uint32_t number = 0;
  if (text.substr(0, 2) != "0x" || !read(text.substr(2), &number, kHex)) return false;
  *key = static_cast<key_t>(number);
  return true;
}

bool readField(std::string_view name, std::string_view value, TraceEvent* event) {
  if (name == "pid") return read(value, &event->pid);
  if (name == "tid") return read(value, &event->thread);
  if (name == "seq") return read(value, &event->sequence);
  if (name == "time") return readTime(value, &event->time);
  if (name == "queue") return readKey(value, &event->queue);
  if (name == "way") return readWord(value, trace::kWayNames, &event->way);
  if (name == "kind") return readWord(value, trace::kKindNames, &event->kind);
  if (name == "code") return read(value, &event->code);
  if (name == "length") return read(value, &event->length);
  if (name == "waited") return read(value, &event->waited);
  if (name == "handling") return read(value, &event->handling);
  if (name == "drop") return readWord(value, trace::kDropNames, &event->drop);
  if (name == "result") return read(value, &event->result);
  return true;
}

}  // namespace

std::optional<TraceEvent> parseTrace(std::string_view datagram) {
  const auto end = datagram.find('\n');
  std::string_view header = datagram.substr(0, end);
  const std::string magic = std::string(trace::kMagic) + ' ';
  if (end == std::string_view::npos || header.substr(0, magic.size()) != magic) return std::nullopt;
  header.remove_prefix(magic.size());

  TraceEvent event;
  while (!header.empty()) {
    const auto space = std::min(header.find(' '), header.size());
    const std::string_view field = header.substr(0, space);
    header.remove_prefix(std::min(space + 1, header.size()));
    const auto equals = field.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    const std::string_view name = field.substr(0, equals);
    const std::string_view value = field.substr(equals + 1);
    if (!readField(name, value, &event)) return std::nullopt;
    std::int64_t number = 0;
    event.json[std::string(name)] =
        read(value, &number) ? Json::Value(Json::Int64{number}) : Json::Value(std::string(value));
  }
  event.text = datagram.substr(end + 1);
  event.json["text"] = event.text;
  event.json["time"] = static_cast<double>(event.time) / static_cast<double>(kPerSecond);
  if (const Message* const message = findMessage(event.code))
    event.json["name"] = std::string(message->name);
  if (event.pid <= 0 || event.sequence == 0) return std::nullopt;
  return event;
}

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

std::string nameText(const TraceEvent& event, const Message* message) {
  if (message == nullptr) return event.code == 0 ? "?" : compose("code {}", event.code);
  return std::string(message->name);
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
  if (!matches(filter_.glob, nameText(event, message))) return false;
  if (!filter_.slow && !filter_.errors) return true;
  if (filter_.errors && event.isProblem()) return true;
  const auto took = std::max(event.waited.value_or(-1), handling.value_or(-1));
  return filter_.slow && static_cast<double>(took) >= *filter_.slow * 1000;
}

std::string TraceView::line(const TraceEvent& event, std::optional<std::int64_t> handling) {
  // As wide as the longest name of an answer, so that the members stand below each other.
  constexpr int kNameColumns = 30;
  const Message* const message = findMessage(event.code);
  std::string text = compose("{}  {}  {:{}}  ", clockText(event.time), arrowTo(event, message),
                             nameText(event, message) + (event.isAnswer() ? " answer" : ""), kNameColumns);
  text += membersIn(event.text, message, event.isAnswer());
  std::string times;
  if (event.waited) times = "in flight " + durationText(*event.waited);
  if (handling) times += (times.empty() ? "" : ", ") + ("in the handler " + durationText(*handling));
  if (!times.empty()) text += compose("  ({})", times);
  if (event.isProblem()) {
    text += compose("  {} by {}", styled(Style::Problem, problemText(event)), processName(event));
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

const std::string& TraceView::processName(const TraceEvent& event) {
  std::string& name = names_[event.pid];
  if (name.empty()) name = processAt(event.pid, static_cast<std::time_t>(event.time / kPerSecond)).text();
  return name;
}

}  // namespace hbbtv_ryn::rynctl
