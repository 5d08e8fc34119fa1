// The trace of one message at either end. While the trace is off an object reads the switch once, and
// nothing else of it runs.
#ifndef HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_TRACE_H
#define HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_TRACE_H

#include <cstdint>
#include <string_view>

#include "hbbtv_ryn/ipc.h"
#include "ipc/protocol/catalogue.h"
#include "trace/trace.h"

namespace hbbtv_ryn {

// The sender's end. Each call hands its argument through.
class SendTrace {
 public:
  // Traces the message as sent. The text must outlive the object.
  SendTrace(Code code, std::string_view text) : on_(trace::isOn()) {
    if (on_) begin(code, text);
  }
  // An answer of which understood() has not been told by now was not usable.
  ~SendTrace() {
    if (on_ && !settled_) traceUnusable();
  }
  SendTrace(const SendTrace&) = delete;
  SendTrace& operator=(const SendTrace&) = delete;

  // Of a one-way message: the channel's result.
  int told(int result) {
    if (on_) traceTold(result);
    return result;
  }
  // Of a question: either the channel's failure,
  int unanswered(int result) {
    if (on_) traceUnanswered(result);
    return result;
  }
  // or its answer,
  void answered(const IpcMessage& reply) {
    if (on_) traceAnswered(reply);
  }
  // and whether the answer could be read.
  int understood(int result) {
    settled_ = true;
    return result;
  }

 private:
  void begin(Code code, std::string_view text);
  void traceTold(int result);
  void traceUnanswered(int result);
  void traceAnswered(const IpcMessage& reply);
  void traceUnusable();

  const bool on_;
  bool settled_ = true;
  Code code_{};
  std::string_view text_;
  std::int64_t sent_at_ = 0;
};

// The receiver's end.
class ServeTrace {
 public:
  // `any_code` is a code that the same queue carries.
  ServeTrace(const IpcMessage& message, int32_t kind, Code any_code) : on_(trace::isOn()) {
    if (on_) begin(message, kind, any_code);
  }
  // What has neither been dropped nor answered by now was left by an exception.
  ~ServeTrace() {
    if (on_ && !settled_) drop(trace::Drop::kThrew);
  }
  ServeTrace(const ServeTrace&) = delete;
  ServeTrace& operator=(const ServeTrace&) = delete;

  IpcMessage* dropped(trace::Drop reason, int code = 0) {
    if (on_) {
      code_ = code;
      drop(reason);
    }
    return nullptr;
  }
  void received(Code code) {
    if (on_) traceReceived(code);
  }
  IpcMessage* answered(IpcMessage* reply) {
    if (on_) traceAnswered(reply);
    return reply;
  }

 private:
  void begin(const IpcMessage& message, int32_t kind, Code any_code);
  void drop(trace::Drop reason);
  void traceReceived(Code code);
  void traceAnswered(const IpcMessage* reply);

  const bool on_;
  bool settled_ = false;
  key_t queue_ = 0;
  int32_t record_kind_ = IPC_KIND_ONEWAY;
  trace::Kind kind_ = trace::Kind::kUnknown;
  int code_ = 0;
  std::string_view text_;
  std::int64_t received_at_ = 0;
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_TRACE_H
