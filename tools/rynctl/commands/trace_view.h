// What traced processes send, as docs/trace.md describes it, made into one line per message.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_TRACE_VIEW_H
#define HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_TRACE_VIEW_H

#include <json/value.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "trace/datagram.h"

namespace hbbtv_ryn::rynctl {

struct TraceEvent {
  pid_t pid = 0;
  long thread = 0;
  std::uint64_t sequence = 0;
  std::int64_t time = 0;  // microseconds since 1970
  key_t queue = 0;
  trace::Way way = trace::Way::kOut;
  trace::Kind kind = trace::Kind::kUnknown;
  int code = 0;
  std::size_t length = 0;              // of the whole text
  std::optional<std::int64_t> waited;  // microseconds
  std::optional<std::int64_t> handling;
  trace::Drop drop = trace::Drop::kNone;
  int result = 0;
  std::string text;  // with trace::kCutMark at its end when it was cut
  Json::Value json;  // all that was sent, and the name of the message

  bool isAnswer() const { return kind == trace::Kind::kReply || kind == trace::Kind::kFailure; }
  bool isProblem() const {
    return drop != trace::Drop::kNone || result != 0 || kind == trace::Kind::kFailure;
  }
};

/// Nothing when the datagram is none of a traced process. Fields that are not known are passed over.
std::optional<TraceEvent> parseTrace(std::string_view datagram);

template <typename Word, std::size_t Count>
const char* wordOf(Word word, const char* const (&names)[Count]) {
  return names[static_cast<std::size_t>(word)];
}

/// A message is traced where it is sent and where it is received, an answer where it is given and where it
/// arrives. When both ends are traced the second sight of a message is not shown, and an answer is shown
/// with what both ends know of it.
class TraceView {
 public:
  using Clock = std::chrono::steady_clock;

  struct Filter {
    std::string glob;
    std::optional<double> slow;  // only answers that took so many milliseconds
    bool errors;                 // only what went wrong
  };

  explicit TraceView(Filter filter) : filter_(std::move(filter)) {}

  /// Prints what is to be shown now.
  void take(const TraceEvent& event);
  /// Prints the answers whose other end has not been seen for so long.
  void showLeft(Clock::duration patience = {});

  /// Messages shown or hidden by the filter, without second sights.
  std::uint64_t messages() const { return messages_; }
  /// Datagrams that are missing between the first and the last of each process.
  std::uint64_t lost() const;

 private:
  struct Numbers {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t count = 0;
  };
  struct Answer {
    TraceEvent event;
    Clock::time_point seen;
  };
  /// What is known of one queue.
  struct Queue {
    std::deque<TraceEvent> sent;    // not yet seen to be received
    std::deque<Answer> answers;     // given to a traced client, not yet seen to arrive
    bool answer_to_traced = false;  // the request that is being handled came from a traced client
  };

  void count(const TraceEvent& event);
  void show(const TraceEvent& event, std::optional<std::int64_t> handling);
  bool isShown(const TraceEvent& event, std::optional<std::int64_t> handling) const;
  std::string line(const TraceEvent& event, std::optional<std::int64_t> handling);
  const std::string& processName(const TraceEvent& event);

  const Filter filter_;
  std::map<pid_t, Numbers> numbers_;
  std::map<pid_t, std::string> names_;
  std::map<key_t, Queue> queues_;
  std::uint64_t messages_ = 0;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_TRACE_VIEW_H
