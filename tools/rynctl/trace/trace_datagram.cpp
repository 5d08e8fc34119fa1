#include "tools/rynctl/trace/trace_datagram.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <sstream>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// Microseconds.
bool readTime(double microseconds, std::int64_t* time) {
  constexpr double kMost = 9.0e15;  // it and its double are the same
  if (!(microseconds >= 0 && microseconds <= kMost)) return false;
  *time = std::llround(microseconds);
  return true;
}

template <typename Word, std::size_t Count>
bool readWord(std::string_view text, const char* const (&names)[Count], Word* word) {
  const auto* const found = std::find(std::begin(names), std::end(names), text);
  *word = static_cast<Word>(found - std::begin(names));
  return found != std::end(names);
}

/// A queue of requests: an answer is traced with that of its request.
bool readQueue(const std::string& text, key_t* key) {
  for (const QueueName& queue : kQueues) {
    if (!queue.carriesReplies() && text == keyText(queue.key)) *key = queue.key;
  }
  return *key != 0;
}

bool readField(const std::string& name, const Json::Value& value, TraceEvent* event) {
  constexpr double kPerSecond = 1e6;
  if (name == "time") return value.isNumeric() && readTime(value.asDouble() * kPerSecond, &event->at.time);
  if (name == "waited" || name == "handling") {
    auto& span = name == "waited" ? event->waited : event->handling;
    return value.isNumeric() && readTime(value.asDouble(), &span.emplace());
  }
  if (!value.isConvertibleTo(Json::stringValue)) return false;
  const std::string text = value.asString();
  if (name == "text" || name == "process") {
    (name == "text" ? event->text : event->process) = text;
    return value.isString();
  }
  if (name == "pid") return readNumber(text, &event->at.pid);
  if (name == "seq") return readNumber(text, &event->sequence);
  if (name == "queue") return readQueue(text, &event->queue);
  if (name == "way") return readWord(text, trace::kWayNames, &event->way);
  if (name == "kind") return readWord(text, trace::kKindNames, &event->kind);
  if (name == "code") return readNumber(text, &event->code);
  if (name == "length") return readNumber(text, &event->length);
  if (name == "drop") return readWord(text, trace::kDropNames, &event->drop);
  if (name == "result") return readNumber(text, &event->result);
  return true;
}

}  // namespace

std::optional<TraceEvent> parseTrace(std::string_view datagram) {
  const std::string magic = std::string(trace::kMagic) + ' ';
  const auto end = datagram.find('\n');
  if (end == std::string_view::npos || datagram.substr(0, magic.size()) != magic) return std::nullopt;
  std::istringstream header(std::string(datagram.substr(magic.size(), end - magic.size())));
  Json::Value json(Json::objectValue);
  for (std::string name, value; std::getline(header, name, '=') && std::getline(header, value, ' ');) {
    Json::Int64 number = 0;
    json[name] = name == "time"               ? Json::Value(std::strtod(value.c_str(), nullptr))
                 : readNumber(value, &number) ? Json::Value(number)
                                              : Json::Value(value);
  }
  json["text"] = std::string(datagram.substr(end + 1));
  try {
    TraceEvent event = savedTrace("", json);
    if (const Message* const message = findMessage(event.code)) json["name"] = std::string(message->name);
    event.json = std::move(json);
    return event;
  } catch (const Failure&) {
    return std::nullopt;
  }
}

TraceEvent savedTrace(const std::string& where, const Json::Value& saved) {
  if (!saved.isObject()) failMalformed(where, "no JSON object");
  TraceEvent event;
  for (const std::string& name : saved.getMemberNames()) {
    if (readField(name, saved[name], &event)) continue;
    failMalformed(where, printable(name) + " is none of a trace: " + printable(oneLine(saved[name])));
  }
  if (event.at.pid <= 0 || event.sequence == 0 || event.queue == 0) {
    failMalformed(where, "no trace: its pid, seq or queue is missing");
  }
  return event;
}

}  // namespace hbbtv_ryn::rynctl
