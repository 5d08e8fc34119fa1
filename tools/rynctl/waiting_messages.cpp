#include "waiting_messages.h"

#include <sys/msg.h>

#include <cerrno>
#include <optional>
#include <system_error>

#include "exit_code.h"
#include "ipc/record.h"

#ifndef MSG_COPY
#define MSG_COPY 040000
#endif

namespace hbbtv_ryn::rynctl {

namespace {

struct Copy {
  IpcRecord record;
  std::size_t bytes;  // behind the type word
};

/// The record at this position; nothing behind the last one.
std::optional<Copy> copyAt(const QueueState& queue, long position) {
  Copy copy{};
  // MSG_COPY works with IPC_NOWAIT only, takes the position for the type, and refuses a record that is
  // larger than the buffer unless it may cut it.
  const ssize_t bytes = msgrcv(queue.id, &copy.record, sizeof copy.record - sizeof copy.record.mtype,
                               position, MSG_COPY | IPC_NOWAIT | MSG_NOERROR);
  if (bytes >= 0) {
    copy.bytes = static_cast<std::size_t>(bytes);
    return copy;
  }
  if (errno == ENOMSG) return std::nullopt;
  if (errno == ENOSYS) {
    throw Failure(ExitCode::Refused,
                  "this kernel cannot show a message without taking it off: it is built without "
                  "CONFIG_CHECKPOINT_RESTORE");
  }
  throw Failure(ExitCode::NoPeer, std::string("the queue '") + queue.name->name +
                                      "' cannot be read: " + std::generic_category().message(errno));
}

constexpr std::size_t kHeaderBytes = offsetof(IpcRecord, data) - sizeof(long);

/// Why the record is none of a message; empty when it is.
std::string faultOf(const Copy& copy) {
  if (copy.bytes < kHeaderBytes) return "shorter than a record";
  const std::int32_t chunk = copy.record.chunk_length;
  if (chunk < 0 || chunk > IPC_CHUNK_SIZE + 1 ||
      static_cast<std::size_t>(chunk) > copy.bytes - kHeaderBytes) {
    return "its chunk length is " + std::to_string(chunk);
  }
  return "";
}

}  // namespace

std::string kindName(std::optional<std::int32_t> kind) {
  if (!kind) return "?";
  switch (*kind) {
    case IPC_KIND_STOP:
      return "stop";
    case IPC_KIND_ONEWAY:
      return "one-way";
    case IPC_KIND_REQUEST:
      return "request";
    case IPC_KIND_REPLY:
      return "reply";
    case IPC_KIND_FAILURE:
      return "failure";
    default:
      return "kind " + std::to_string(*kind);
  }
}

std::vector<WaitingMessage> peek(const QueueState& queue, std::size_t most) {
  std::vector<WaitingMessage> messages;
  bool open = false;  // the last message waits for its next record
  for (long position = 0;; ++position) {
    const auto copy = copyAt(queue, position);
    if (!copy) break;
    const std::string fault = faultOf(*copy);
    const bool continues = open && fault.empty() && copy->record.sequence > 1;
    if (!continues) {
      if (open) messages.back().fault = "its last record is missing";
      if (most != 0 && messages.size() == most) return messages;
      messages.push_back({std::nullopt, 0, "", fault});
      if (copy->bytes >= kHeaderBytes) messages.back().kind = copy->record.kind;
      if (fault.empty() && copy->record.sequence > 1) messages.back().fault = "its first record is missing";
    }
    WaitingMessage& message = messages.back();
    ++message.records;
    open = false;
    if (!fault.empty()) continue;
    message.text.append(copy->record.data, static_cast<std::size_t>(copy->record.chunk_length));
    open = copy->record.last == 0;
  }
  if (open) messages.back().fault = "its last record is missing";
  return messages;
}

}  // namespace hbbtv_ryn::rynctl
