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

Kind kindOf(const Message& message) {
  return message.delivery == Delivery::kSync ? Kind::kRequest : Kind::kOneWay;
}

Event eventOf(Code code, Way way, Kind kind, std::string_view text) {
  return {queueOf(messageOf(code)), way, kind, static_cast<int>(code), text};
}

}  // namespace

void SendTrace::begin(Code code, std::string_view text) {
  code_ = code;
  text_ = text;
  trace::emit(eventOf(code, Way::kOut, kindOf(messageOf(code)), text));
  sent_at_ = trace::now();
}

void SendTrace::traceTold(int result) {
  if (result == 0) return;
  Event event = eventOf(code_, Way::kOut, Kind::kOneWay, text_);
  event.drop = Drop::kNotSent;
  event.result = result;
  trace::emit(event);
}

void SendTrace::traceUnanswered(int result) {
  Event event = eventOf(code_, Way::kOut, Kind::kRequest, text_);
  // The channel tells a queue that cannot be opened from the rest, which has simply failed.
  const bool refused = result == -3 || text_.size() > IPC_MAX_MESSAGE;
  event.drop = refused ? Drop::kNotSent : Drop::kNoAnswer;
  event.result = result;
  event.waited = trace::now() - sent_at_;
  trace::emit(event);
}

void SendTrace::traceAnswered(const IpcMessage& reply) {
  settled_ = false;
  const bool proper = reply.length > 0;
  Event event = eventOf(code_, Way::kIn, proper ? Kind::kReply : Kind::kFailure, textOf(reply));
  event.waited = trace::now() - sent_at_;
  if (!proper) {
    settled_ = true;
    event.result = -1;
  }
  trace::emit(event);
}

void SendTrace::traceUnusable() {
  Event event = eventOf(code_, Way::kIn, Kind::kReply, {});
  event.drop = Drop::kUnparseable;
  event.result = -1;
  trace::emit(event);
}

void ServeTrace::begin(const IpcMessage& message, int32_t kind, Code any_code) {
  record_kind_ = kind;
  queue_ = queueOf(messageOf(any_code));
  text_ = textOf(message);
}

void ServeTrace::drop(Drop reason) {
  settled_ = true;
  Event event{queue_, Way::kIn, kind_, code_, text_};
  event.drop = reason;
  if (received_at_ != 0) event.handling = trace::now() - received_at_;
  trace::emit(event);
}

void ServeTrace::traceReceived(Code code) {
  kind_ = kindOf(messageOf(code));
  code_ = static_cast<int>(code);
  trace::emit({queue_, Way::kIn, kind_, code_, text_});
  received_at_ = trace::now();
}

void ServeTrace::traceAnswered(const IpcMessage* reply) {
  settled_ = true;
  if (kind_ == Kind::kOneWay || record_kind_ != IPC_KIND_REQUEST) return;
  Event event{queue_, Way::kOut, Kind::kReply, code_, {}};
  event.handling = trace::now() - received_at_;
  if (reply == nullptr) {
    event.drop = Drop::kNoMemory;
  } else {
    event.text = textOf(*reply);
    if (reply->length > IPC_MAX_MESSAGE) event.drop = Drop::kReplyTooLong;
  }
  trace::emit(event);
}

}  // namespace hbbtv_ryn
