#include "ipc/endpoint/exchange_trace.h"

#include "ipc/protocol/queues.h"

namespace hbbtv_ryn {

using trace::Drop;
using trace::Event;
using trace::Kind;
using trace::Way;

namespace {

std::string_view textOf(const IpcMessage& message) {
  if (message.text == nullptr || message.length <= 0) return {};
  return {message.text, static_cast<std::size_t>(message.length)};
}

Kind kindOf(const Message& row) {
  return row.delivery == Delivery::kSync ? Kind::kRequest : Kind::kOneWay;
}

Event eventOf(const Message& row, Way way, Kind kind, std::string_view text) {
  return {queueOf(row), way, kind, static_cast<int>(row.code), text};
}

}  // namespace

SendTrace::SendTrace(const Message& row, std::string_view text)
    : row_(row), text_(text), on_(trace::isOn()) {
  if (!on_) return;
  trace::emit(eventOf(row_, Way::kOut, kindOf(row_), text_));
  sent_at_ = trace::now();
}

void SendTrace::ended(int result, const IpcMessage& reply) const {
  const bool one_way = row_.delivery == Delivery::kOneWay;
  if (!on_ || (one_way && result == 0)) return;
  Event event = eventOf(row_, Way::kOut, kindOf(row_), text_);
  event.result = result;
  if (!one_way) event.waited = trace::now() - sent_at_;
  if (result != 0) {
    // The channel tells a queue that cannot be opened from the rest, which has simply failed.
    const bool refused = one_way || result == -3 || text_.size() > IPC_MAX_MESSAGE;
    event.drop = refused ? Drop::kNotSent : Drop::kNoAnswer;
  } else {
    const bool proper = reply.length > 0;
    event.way = Way::kIn;
    event.kind = proper ? Kind::kReply : Kind::kFailure;
    event.text = textOf(reply);
    if (!proper) event.result = -1;
  }
  trace::emit(event);
}

void SendTrace::unusable() const {
  if (!on_) return;
  Event event = eventOf(row_, Way::kIn, Kind::kReply, {});
  event.drop = Drop::kUnparseable;
  event.result = -1;
  trace::emit(event);
}

void ServeTrace::received(const Message& row) {
  if (!on_) return;
  row_ = &row;
  code_ = static_cast<int>(row.code);
  trace::emit({queue_, Way::kIn, kindOf(row), code_, textOf(message_)});
  received_at_ = trace::now();
}

ServeTrace::~ServeTrace() {
  if (!on_) return;
  Event event{queue_, Way::kIn, Kind::kUnknown, code_, textOf(message_), drop_};
  if (row_ != nullptr) {
    event.kind = kindOf(*row_);
    event.handling = trace::now() - received_at_;
  }
  if (drop_ == Drop::kNone) {
    // Nobody waits for an answer.
    if (event.kind == Kind::kOneWay || kind_ != IPC_KIND_REQUEST) return;
    event.way = Way::kOut;
    event.kind = Kind::kReply;
    event.text = {};
    if (reply_ == nullptr) {
      event.drop = Drop::kNoMemory;
    } else {
      event.text = textOf(*reply_);
      if (reply_->length > IPC_MAX_MESSAGE) event.drop = Drop::kReplyTooLong;
    }
  }
  trace::emit(event);
}

}  // namespace hbbtv_ryn
