// The traces of one message and of its answer, put together again.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TRACE_EXCHANGE_H
#define HBBTV_RYN_TOOLS_RYNCTL_TRACE_EXCHANGE_H

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/trace/trace_datagram.h"

namespace hbbtv_ryn::rynctl {

/// A message, and its answer if it is a question. What has not been traced is left out.
struct Exchange {
  TraceEvent trace;        // the first; its times, drop and result are those of all
  const Message* message;  // null for none of the catalogue
  std::optional<Sight> sent, received, answered, arrived;
  bool failed = false;  // the answer says that there is none
  std::string answer;

  Side to() const { return queueAt(trace.queue).reader; }
};

/// Memory stays bounded: what has been sent is forgotten when much more has been since.
class Exchanges {
 public:
  /// The exchange that the trace belongs to, with what the trace tells of it; a new one has it as its
  /// first. Traces come in the order in which they were received: it is that of cause and effect, whatever
  /// the clocks say.
  std::shared_ptr<const Exchange> take(const TraceEvent& event);

 private:
  using Pointer = std::shared_ptr<Exchange>;
  /// The client of a queue and its server have one exchange at a time.
  struct Queue {
    std::deque<Pointer> sent;  // not yet seen to be received
    Pointer asked, served;
  };

  static Pointer find(const TraceEvent& event, Queue* queue);

  std::map<key_t, Queue> queues_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TRACE_EXCHANGE_H
