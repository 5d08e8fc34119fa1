#include "tools/rynctl/trace/exchange.h"

#include <algorithm>

namespace hbbtv_ryn::rynctl {

using trace::Drop;
using trace::Kind;
using trace::Way;

std::shared_ptr<const Exchange> Exchanges::take(const TraceEvent& event) {
  Queue& queue = queues_[event.queue];
  const Pointer exchange = find(event, &queue);
  (event.isFromClient() ? queue.asked : queue.served) = exchange;
  const bool out = event.way == Way::kOut;
  std::optional<Sight>& place = event.isAnswer() ? (out ? exchange->answered : exchange->arrived)
                                                 : (out ? exchange->sent : exchange->received);
  if (!place) place = event.at;
  if (event.isAnswer()) {
    exchange->failed = event.kind == Kind::kFailure;
    if (exchange->answer.empty()) exchange->answer = event.text;
  }
  TraceEvent& known = exchange->trace;
  if (event.waited) known.waited = event.waited;
  if (event.handling) known.handling = event.handling;
  if (event.drop != Drop::kNone) known.drop = event.drop;
  if (event.result != 0) known.result = event.result;
  return exchange;
}

Exchanges::Pointer Exchanges::find(const TraceEvent& event, Queue* queue) {
  // Not measured: far more than a queue holds.
  constexpr std::size_t kMostSent = 1024;
  const bool client = event.isFromClient();
  const bool goes_on = event.isAnswer() || (event.drop != Drop::kNone && event.kind != Kind::kUnknown);
  // Who asked before the first trace is known by the one who answered.
  for (const Pointer& open : {client ? queue->asked : queue->served, queue->served}) {
    if (!goes_on || !open || open->trace.code != event.code) continue;
    if (event.drop != Drop::kNone || !(client ? open->arrived : open->answered)) return open;
  }
  const auto same = std::find_if(queue->sent.begin(), queue->sent.end(), [&](const Pointer& sent) {
    return !goes_on && !client && sent->trace.length == event.length && sent->trace.text == event.text;
  });
  if (same != queue->sent.end()) {
    Pointer exchange = *same;
    // A queue keeps the order: what was sent before has been lost, or was received untraced.
    queue->sent.erase(queue->sent.begin(), same + 1);
    return exchange;
  }
  Pointer made =
      std::make_shared<Exchange>(Exchange{event, findMessage(event.code), {}, {}, {}, {}, false, {}});
  if (event.isAnswer()) made->trace.text.clear();
  if (!goes_on && client) queue->sent.push_back(made);
  if (queue->sent.size() > kMostSent) queue->sent.pop_front();
  return made;
}

}  // namespace hbbtv_ryn::rynctl
