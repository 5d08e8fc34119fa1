// What two processes said to each other, put together from the traces of both.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CONVERSATION_H
#define HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CONVERSATION_H

#include <deque>
#include <map>
#include <optional>
#include <string>
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
  key_t queue = 0;
  int code = 0;
  const Message* message = nullptr;  // null for none of the catalogue
  std::optional<Sight> sent;
  std::optional<Sight> received;
  std::optional<Sight> answered;
  std::optional<Sight> arrived;  // the answer
  std::optional<std::int64_t> waited;
  std::optional<std::int64_t> handling;
  trace::Drop drop = trace::Drop::kNone;
  int result = 0;
  bool failed = false;  // the answer says that there is none
  std::size_t length = 0;
  std::string text;
  std::string answer;
  bool cut = false;
  bool answer_cut = false;

  Side to() const { return queueAt(queue).reader; }
  bool wasSeen() const { return sent || received; }
  bool wasAnswered() const { return answered || arrived; }
};

class Conversation {
 public:
  /// Traces come in the order of the capture: it is that of cause and effect, whatever the clocks say.
  void take(const TraceEvent& event, unsigned long line);

  const std::vector<Exchange>& exchanges() const { return exchanges_; }

 private:
  using Index = std::size_t;
  /// What is going on on one queue: its client and its server each have one exchange at a time.
  struct Queue {
    std::deque<Index> sent;  // not yet seen to be received
    std::optional<Index> asked;
    std::optional<Index> served;
  };

  Index add(const TraceEvent& event);
  Index sentBefore(const TraceEvent& event, Queue* queue);
  Index answeredBy(const TraceEvent& event, const Queue& queue);
  Index droppedBy(const TraceEvent& event, Queue* queue);

  std::vector<Exchange> exchanges_;
  std::map<key_t, Queue> queues_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CONVERSATION_H
