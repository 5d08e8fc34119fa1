#include "tools/rynctl/system/client.h"

#include <future>
#include <thread>

#include "base/malloc_ptr.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/system/queue_state.h"

namespace hbbtv_ryn::rynctl {

Client::Client(const Message& message) : message_(message) {
  IpcClient* created = nullptr;
  const int with_reply = message.delivery == Delivery::kSync ? 1 : 0;
  if (zunt_ipc_client_create(queueOf(message), kChannel, with_reply, IPC_CHUNK_SIZE, &created) != 0) {
    throw std::bad_alloc();
  }
  client_.reset(created, &zunt_ipc_client_destroy);
}

void Client::requirePeerAndRoom(const std::string& text, bool unserved) const {
  // As long as the channel itself keeps trying before it drops a record.
  constexpr std::chrono::milliseconds kPatience{300};
  constexpr std::chrono::milliseconds kPause{10};
  const QueueName& queue = queueAt(queueOf(message_));
  auto state = look(queue);
  const bool gone = state && state->servers.known() && !state->servers.alive();
  if (!state || (gone && !unserved)) {
    throw Failure(ExitCode::kNoPeer, "no {} process: {}; start it, or 'rynctl serve {}'",
                  nameOf(queue.reader),
                  gone ? "the last one is gone" : "none has run since the system started",
                  queue.reader == Side::kBrowser ? "browser" : "plugin");
  }
  if (text.size() > IPC_MAX_MESSAGE) {
    throw Failure(ExitCode::kNoRoom, "the message has {} bytes as JSON text, {} are the most", text.size(),
                  IPC_MAX_MESSAGE);
  }
  const unsigned long needed = recordsOf(text.size()) * recordPayloadBytes(IPC_CHUNK_SIZE);
  const auto deadline = Clock::now() + kPatience;
  for (; state; state = look(queue)) {
    // A message that no empty queue would hold passes in pieces while the server reads.
    const bool passes = state->messages == 0 && state->servers.alive();
    if (passes || state->bytes + needed <= state->limit) return;
    if (Clock::now() > deadline) {
      throw Failure(ExitCode::kNoRoom,
                    "the queue '{}' is full: {} messages wait, {} of {} bytes; 'rynctl doctor' says why",
                    queue.name, state->messages, state->bytes, state->limit);
    }
    std::this_thread::sleep_for(kPause);
  }
}

void Client::tell(const std::string& text, bool unserved) const {
  requirePeerAndRoom(text, unserved);
  std::string bytes = text;
  const IpcMessage message{static_cast<int32_t>(bytes.size()), bytes.data()};
  const int result = zunt_ipc_client_send(client_.get(), &message);
  if (result != 0) throw Failure(ExitCode::kNoPeer, "the queue cannot be written, result {}", result);
}

Reply Client::ask(const std::string& text, Seconds limit) const {
  requirePeerAndRoom(text, false);
  // The wait itself cannot be ended from outside, so it has a thread that may be left behind.
  std::packaged_task<std::optional<Reply>()> task([client = client_, question = text]() mutable {
    const IpcMessage request{static_cast<int32_t>(question.size()), question.data()};
    IpcMessage answer{0, nullptr};
    const auto start = Clock::now();
    const int result = zunt_ipc_client_send_sync_with_params(client.get(), &request, &answer);
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
    const MallocPtr<char> owner(answer.text);
    const Reply reply{answer.length == 0, {answer.text, static_cast<std::size_t>(answer.length)}, took};
    return result == 0 ? std::optional(reply) : std::nullopt;
  });
  auto done = task.get_future();
  std::thread(std::move(task)).detach();
  const char* const peer = nameOf(receiverOf(message_));
  if (limit.count() != 0 && done.wait_for(limit) != std::future_status::ready) {
    throw Failure(ExitCode::kNoAnswer,
                  "{}: the {} process lives, but has not answered in {} s; 'rynctl queues' shows whether "
                  "it reads",
                  message_.name, peer, limit.count());
  }
  if (const auto reply = done.get()) return *reply;
  throw Failure(ExitCode::kNoPeer, "no {} process: it went away before it answered, or its answer was lost",
                peer);
}

}  // namespace hbbtv_ryn::rynctl
