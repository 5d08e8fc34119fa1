// What `rynctl monitor --save` has written, put together again. The file is anybody's.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H
#define HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/text/trace_datagram.h"

namespace hbbtv_ryn::rynctl {

/// Where and when one process saw a message.
struct Sight {
  std::int64_t time = 0;  // microseconds since 1970
  pid_t pid = 0;
  unsigned long line = 0;  // of the capture
};

/// A message, and its answer if it is a question. What has not been traced is left out.
struct Exchange {
  TraceEvent trace;        // the first; its times, drop and result are those of all
  const Message* message;  // null for none of the catalogue
  std::optional<Sight> sent, received, answered, arrived;
  bool failed = false;  // the answer says that there is none
  std::string answer;

  Side to() const { return queueAt(trace.queue).reader; }
  const Sight& first() const {
    return sent ? *sent : received ? *received : answered ? *answered : *arrived;
  }
};

struct TracedProcess {
  std::string name;  // empty when it is not known
  Side side;
  std::vector<std::pair<std::uint64_t, Sight>> numbers;  // of its traces, as they came
};

class Capture {
 public:
  /// Memory stays bounded whatever the file holds: lines that are no trace are passed over, and what comes
  /// behind the first few hundred thousand traces is left out. `notes` says so, with line numbers.
  /// Throws Failure: Usage when the file cannot be read, Malformed when no line of it is a trace.
  static Capture load(const std::string& file);

  std::vector<Exchange> exchanges;
  std::map<pid_t, TracedProcess> processes;
  std::vector<std::string> notes;

 private:
  using Index = std::size_t;
  /// The client of a queue and its server have one exchange at a time.
  struct Queue {
    std::deque<Index> sent;  // not yet seen to be received
    std::optional<Index> asked, served;
  };

  void take(const TraceEvent& event, unsigned long line);
  Index exchangeOf(const TraceEvent& event, Queue* queue);

  std::map<key_t, Queue> queues_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H
