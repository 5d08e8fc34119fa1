#include "tools/rynctl/capture/conversation.h"

#include <algorithm>

namespace hbbtv_ryn::rynctl {

using trace::Drop;
using trace::Kind;
using trace::Way;

namespace {

bool isCut(const TraceEvent& event) {
  const std::string_view mark = trace::kCutMark;
  const std::string_view text = event.text;
  return text.size() >= mark.size() && text.substr(text.size() - mark.size()) == mark &&
         event.length > text.size() - mark.size();
}

}  // namespace

void Conversation::take(const TraceEvent& event, unsigned long line) {
  Queue& queue = queues_[event.queue];
  const bool out = event.way == Way::kOut;
  const Sight sight{event.time, event.pid, line};

  if (event.drop != Drop::kNone) {
    Exchange& exchange = exchanges_[droppedBy(event, &queue)];
    std::optional<Sight>& end = out ? exchange.sent : exchange.received;
    if (!event.isAnswer() && !end) end = sight;
    exchange.drop = event.drop;
    if (event.result != 0) exchange.result = event.result;
    if (event.waited) exchange.waited = event.waited;
    if (event.handling) exchange.handling = event.handling;
  } else if (event.isAnswer()) {
    Exchange& exchange = exchanges_[answeredBy(event, queue)];
    (out ? exchange.answered : exchange.arrived) = sight;
    if (exchange.answer.empty()) exchange.answer = event.text;
    if (event.waited) exchange.waited = event.waited;
    if (event.handling) exchange.handling = event.handling;
    if (event.result != 0) exchange.result = event.result;
    exchange.failed = event.kind == Kind::kFailure;
    exchange.answer_cut = isCut(event);
  } else if (out) {
    const Index index = add(event);
    exchanges_[index].sent = sight;
    queue.sent.push_back(index);
    if (event.kind == Kind::kRequest) queue.asked = index;
  } else {
    const Index index = sentBefore(event, &queue);
    exchanges_[index].received = sight;
    queue.served = index;
  }
}

Conversation::Index Conversation::add(const TraceEvent& event) {
  Exchange exchange;
  exchange.queue = event.queue;
  exchange.code = event.code;
  exchange.message = findMessage(event.code);
  exchange.length = event.length;
  if (!event.isAnswer()) {
    exchange.text = event.text;
    exchange.cut = isCut(event);
  }
  exchanges_.push_back(std::move(exchange));
  return exchanges_.size() - 1;
}

/// The exchange that has begun with the sending of what is received now.
Conversation::Index Conversation::sentBefore(const TraceEvent& event, Queue* queue) {
  const auto same = std::find_if(queue->sent.begin(), queue->sent.end(), [&](Index index) {
    const Exchange& sent = exchanges_[index];
    return sent.length == event.length && sent.text == event.text;
  });
  if (same == queue->sent.end()) return add(event);
  const Index index = *same;
  // A queue keeps the order: what was sent before has been lost, or was received untraced.
  queue->sent.erase(queue->sent.begin(), same + 1);
  return index;
}

Conversation::Index Conversation::answeredBy(const TraceEvent& event, const Queue& queue) {
  const bool out = event.way == Way::kOut;
  const auto waits = [&](std::optional<Index> index) {
    return index && exchanges_[*index].code == event.code &&
           !(out ? exchanges_[*index].answered : exchanges_[*index].arrived);
  };
  if (out) return waits(queue.served) ? *queue.served : add(event);
  // Who asked before the capture began is known by the one who answered.
  return waits(queue.asked) ? *queue.asked : waits(queue.served) ? *queue.served : add(event);
}

Conversation::Index Conversation::droppedBy(const TraceEvent& event, Queue* queue) {
  const bool at_client = (event.way == Way::kOut) != event.isAnswer();
  if (!at_client) {
    // What could not be read has not been traced before where it arrived.
    if (event.drop == Drop::kUnparseable || event.drop == Drop::kUnknownCode) {
      return sentBefore(event, queue);
    }
    return queue->served && exchanges_[*queue->served].code == event.code ? *queue->served : add(event);
  }
  if (event.kind == Kind::kOneWay) {
    const auto last = std::find_if(queue->sent.rbegin(), queue->sent.rend(),
                                   [&](Index index) { return exchanges_[index].text == event.text; });
    if (last == queue->sent.rend()) return add(event);
    const Index index = *last;
    queue->sent.erase(std::next(last).base());
    return index;
  }
  return queue->asked && exchanges_[*queue->asked].code == event.code ? *queue->asked : add(event);
}

}  // namespace hbbtv_ryn::rynctl
