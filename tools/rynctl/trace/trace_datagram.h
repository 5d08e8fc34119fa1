// What a traced process has sent, as docs/trace.md describes it.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TRACE_TRACE_DATAGRAM_H
#define HBBTV_RYN_TOOLS_RYNCTL_TRACE_TRACE_DATAGRAM_H

#include <json/value.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "trace/datagram.h"

namespace hbbtv_ryn::rynctl {

/// Where and when one process saw a message.
struct Sight {
  std::int64_t time = 0;  // microseconds since 1970
  pid_t pid = 0;
  unsigned long line = 0;  // of the capture, if it is from one
};

struct TraceEvent {
  Sight at;
  std::uint64_t sequence = 0;
  key_t queue = 0;
  trace::Way way = trace::Way::kOut;
  trace::Kind kind = trace::Kind::kUnknown;
  int code = 0;
  std::size_t length = 0;              // of the whole text
  std::optional<std::int64_t> waited;  // microseconds
  std::optional<std::int64_t> handling;
  trace::Drop drop = trace::Drop::kNone;
  int result = 0;
  std::string text;     // with trace::kCutMark at its end when it was cut
  std::string process;  // its name, where somebody has looked it up
  Json::Value json;     // all that was sent, and the name of the message

  bool isAnswer() const { return kind == trace::Kind::kReply || kind == trace::Kind::kFailure; }
  /// Whether the process is the one that has asked or told.
  bool isFromClient() const { return (way == trace::Way::kOut) != isAnswer(); }
  bool isCut() const {
    const std::size_t mark = sizeof trace::kCutMark - 1;
    return text.size() >= mark && text.compare(text.size() - mark, mark, trace::kCutMark) == 0 &&
           length > text.size() - mark;
  }
  bool isProblem() const {
    return drop != trace::Drop::kNone || result != 0 || kind == trace::Kind::kFailure;
  }
};

/// Nothing when the datagram is none of a traced process. Fields that are not known are passed over.
std::optional<TraceEvent> parseTrace(std::string_view datagram);

/// The trace whose `json` this was. Throws Failure (Malformed) that begins with `where`.
TraceEvent savedTrace(const std::string& where, const Json::Value& saved);

template <typename Word, std::size_t Count>
const char* wordOf(Word word, const char* const (&names)[Count]) {
  return names[static_cast<std::size_t>(word)];
}

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TRACE_TRACE_DATAGRAM_H
