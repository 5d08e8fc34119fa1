/// @file
/// The trace of one message at either end. An object asks once whether the trace is on; while it is off its
/// functions do nothing.
#ifndef HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_TRACE_H
#define HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_TRACE_H

#include <cstdint>
#include <string_view>

#include "hbbtv_ryn/ipc.h"
#include "ipc/protocol/catalogue.h"
#include "trace/trace.h"

namespace hbbtv_ryn {

/// The sender's end.
class SendTrace {
 public:
  /// About to be sent. The text must outlive the object.
  SendTrace(const Message& row, std::string_view text);
  SendTrace(const SendTrace&) = delete;
  SendTrace& operator=(const SendTrace&) = delete;

  /// The channel has returned: its result, and the answer to a synchronous message.
  void ended(int result, const IpcMessage& reply) const;
  /// The answer could not be read.
  void unusable() const;

 private:
  const Message& row_;
  const std::string_view text_;
  const bool on_;
  std::int64_t sent_at_ = 0;
};

/// The receiver's end.
class ServeTrace {
 public:
  ServeTrace(key_t queue, const IpcMessage& message, int32_t kind)
      : queue_(queue), message_(message), kind_(kind), on_(trace::isOn()) {}
  /// What has not ended by now was ended by an exception.
  ~ServeTrace();
  ServeTrace(const ServeTrace&) = delete;
  ServeTrace& operator=(const ServeTrace&) = delete;

  /// About to be handled.
  void received(const Message& row);
  /// Nothing comes of it. Returns null.
  IpcMessage* dropped(trace::Drop reason, int code = 0) {
    drop_ = reason;
    code_ = code;
    return nullptr;
  }
  /// Handled. Returns the reply, which is null for a one-way message and when memory is out.
  IpcMessage* answered(IpcMessage* reply) {
    drop_ = trace::Drop::kNone;
    reply_ = reply;
    return reply;
  }

 private:
  const key_t queue_;
  const IpcMessage& message_;
  const int32_t kind_;
  const bool on_;
  const Message* row_ = nullptr;
  int code_ = 0;
  std::int64_t received_at_ = 0;
  trace::Drop drop_ = trace::Drop::kThrew;
  const IpcMessage* reply_ = nullptr;
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_TRACE_H
