#include "tools/rynctl/system/waiting_messages.h"

#include <sys/msg.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include "ipc/record.h"
#include "tools/rynctl/failure.h"

#ifndef MSG_COPY
#define MSG_COPY 040000
#endif

namespace hbbtv_ryn::rynctl {

namespace {

struct Copy {
  IpcRecord record;
  std::size_t bytes;  // behind the type word

  bool hasHeader() const { return bytes >= offsetof(IpcRecord, data) - sizeof(long); }
};

/// The record at this position; nothing behind the last one.
std::optional<Copy> copyAt(const QueueState& queue, long position) {
  Copy copy{};
  // MSG_COPY works with IPC_NOWAIT only, takes the position for the type, and refuses a record that is
  // larger than the buffer unless it may cut it.
  const ssize_t bytes = msgrcv(queue.id, &copy.record, recordPayloadBytes(IPC_CHUNK_SIZE), position,
                               MSG_COPY | IPC_NOWAIT | MSG_NOERROR);
  if (bytes >= 0) {
    copy.bytes = static_cast<std::size_t>(bytes);
    return copy;
  }
  if (errno == ENOMSG) return std::nullopt;
  if (errno == ENOSYS) {
    throw Failure(ExitCode::kRefused,
                  "this kernel cannot show a message without taking it off: it is built without "
                  "CONFIG_CHECKPOINT_RESTORE");
  }
  throw Failure(ExitCode::kNoPeer, "the queue '{}' cannot be read: {}", queue.name->name,
                std::strerror(errno));
}

/// Why the record is none of a message; empty when it is.
std::string faultOf(const Copy& copy) {
  if (isWhole(copy.record, copy.bytes, IPC_CHUNK_SIZE)) return "";
  if (!copy.hasHeader()) return "shorter than a record";
  return compose("its chunk length is {}", copy.record.chunk_length);
}

std::string kindName(const Copy& copy) {
  constexpr const char* kNames[] = {"stop", "one-way", "request", "reply", "failure"};
  static_assert(IPC_KIND_STOP == 0 && IPC_KIND_FAILURE + 1 == std::size(kNames));
  if (!copy.hasHeader()) return "?";
  const std::int32_t kind = copy.record.kind;
  if (kind == IPC_KIND_FAILURE && copy.record.chunk_length == 0) return "fence";
  return kind < 0 || kind > IPC_KIND_FAILURE ? compose("kind {}", kind) : kNames[kind];
}

}  // namespace

std::vector<WaitingMessage> peek(const QueueState& queue, std::size_t most) {
  constexpr char kOpen[] = "its last record is missing";
  std::vector<WaitingMessage> messages;
  bool open = false;  // the last message waits for its next record
  for (long position = 0;; ++position) {
    const auto copy = copyAt(queue, position);
    if (!copy) break;
    const std::string fault = faultOf(*copy);
    const bool whole = fault.empty();
    const bool continues = whole && copy->record.sequence > 1;
    if (!open || !continues) {
      if (open) messages.back().fault = kOpen;
      if (most != 0 && messages.size() == most) return messages;
      messages.push_back({kindName(*copy), 0, "", continues ? "its first record is missing" : fault});
    }
    WaitingMessage& message = messages.back();
    ++message.records;
    if (whole) message.text.append(copy->record.data, static_cast<std::size_t>(copy->record.chunk_length));
    open = whole && copy->record.last == 0;
  }
  if (open) messages.back().fault = kOpen;
  return messages;
}

}  // namespace hbbtv_ryn::rynctl
