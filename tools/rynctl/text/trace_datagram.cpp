#include "tools/rynctl/text/trace_datagram.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

#include "ipc/protocol/queues.h"
#include "tools/catalogue/catalogue_text.h"
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
  return !__builtin_mul_overflow(seconds, kPerSecond, time) &&
         !__builtin_add_overflow(*time, microseconds, time);
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

namespace {

bool isTime(double microseconds) {
  constexpr double kMost = 9.0e15;  // it and its double are the same
  return microseconds >= 0 && microseconds <= kMost;
}

bool readSaved(const std::string& name, const Json::Value& value, TraceEvent* event) {
  if (name == "text" || name == "process") {
    if (value.isString()) (name == "text" ? event->text : event->process) = value.asString();
    return value.isString();
  }
  if (name != "time") {
    return value.isConvertibleTo(Json::stringValue) && readField(name, value.asString(), event);
  }
  const double time = value.isNumeric() ? value.asDouble() * kPerSecond : -1;
  if (isTime(time)) event->time = std::llround(time);
  return isTime(time);
}

}  // namespace

TraceEvent savedTrace(const std::string& where, const Json::Value& saved) {
  if (!saved.isObject()) failMalformed(where, "no JSON object");
  TraceEvent event;
  for (const std::string& name : saved.getMemberNames()) {
    if (readSaved(name, saved[name], &event)) continue;
    failMalformed(where, printable(name) + " is none of a trace: " + printable(oneLine(saved[name])));
  }
  const key_t queues[] = {kRequestQueueKey, kNotificationQueueKey, kQueryQueueKey};
  const bool times = isTime(static_cast<double>(event.waited.value_or(0))) &&
                     isTime(static_cast<double>(event.handling.value_or(0)));
  if (event.pid <= 0 || event.sequence == 0 || !times ||
      std::find(std::begin(queues), std::end(queues), event.queue) == std::end(queues)) {
    failMalformed(where, "no trace: its pid, seq, queue or a time is none");
  }
  return event;
}

}  // namespace hbbtv_ryn::rynctl
