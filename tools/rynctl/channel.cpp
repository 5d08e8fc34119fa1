#include "channel.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <ext/stdio_filebuf.h>
#include <future>
#include <iostream>
#include <system_error>
#include <thread>

#include "base/malloc_ptr.h"
#include "exit_code.h"
#include "message_text.h"
#include "queue_state.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// Payload of every record, as the kernel counts it.
constexpr std::size_t kRecordBytes = ipc_record_bytes(IPC_CHUNK_SIZE) - sizeof(long);
constexpr std::size_t kTextPerRecord = IPC_CHUNK_SIZE + 1;

std::size_t queueBytesOf(const std::string& text) {
  return (text.size() + kTextPerRecord - 1) / kTextPerRecord * kRecordBytes;
}

[[noreturn]] void failWithoutPeer(const Message& message, const std::string& why) {
  throw Failure(ExitCode::NoPeer, "no " + std::string(receiverOf(message)) + " process: " + why);
}

}  // namespace

OwnOutput::OwnOutput() {
  std::cout.flush();
  std::fflush(stdout);
  output_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  if (output_ == -1) throw std::system_error(errno, std::generic_category(), "standard output");
  dup2(STDERR_FILENO, STDOUT_FILENO);
  buffer_ = std::make_unique<__gnu_cxx::stdio_filebuf<char>>(output_, std::ios::out);
  former_ = std::cout.rdbuf(buffer_.get());
  // It would flush std::cout while another thread writes a line, and this buffer has no lock.
  former_tie_ = std::cerr.tie(nullptr);
}

OwnOutput::~OwnOutput() {
  std::cout.flush();
  std::fflush(stdout);
  std::cerr.tie(former_tie_);
  std::cout.rdbuf(former_);
  dup2(output_, STDOUT_FILENO);
}

Client::Client(const Message& message) : message_(message) {
  IpcClient* created = nullptr;
  const int with_reply = message.delivery == Delivery::kSync ? kWithReply : kOneWayOnly;
  if (zunt_ipc_client_create(queueOf(message), kChannel, with_reply, IPC_CHUNK_SIZE, &created) != 0) {
    throw std::bad_alloc();
  }
  client_.reset(created, &zunt_ipc_client_destroy);
}

void Client::requirePeer(Unserved unserved) const {
  const QueueName& queue = queueAt(queueOf(message_));
  const std::string peer = receiverOf(message_);
  if (!look(queue)) {
    failWithoutPeer(message_, "none has run since the system started; start it, or 'rynctl serve " +
                                  std::string(queue.reader == Side::kBrowser ? "browser'" : "plugin'"));
  }
  const ServerLife life = lifeOfServer(queue.key);
  if (unserved == Unserved::kRefused && life.known() && !life.alive()) {
    failWithoutPeer(message_, "the last one is gone; start it again, or see 'rynctl queues'");
  }
}

void Client::requireRoom(const std::string& text) const {
  // As long as the channel itself keeps trying before it drops a record.
  constexpr std::chrono::milliseconds kPatience{300};
  constexpr std::chrono::milliseconds kPause{10};
  if (text.size() > IPC_MAX_MESSAGE) {
    throw Failure(ExitCode::NoRoom, "the message has " + std::to_string(text.size()) +
                                        " bytes as JSON text, " + std::to_string(IPC_MAX_MESSAGE) +
                                        " are the most");
  }
  const QueueName& queue = queueAt(queueOf(message_));
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  for (;;) {
    const auto state = look(queue);
    if (!state) return;
    // A message that no empty queue would hold passes in pieces while the server reads.
    const bool passes = state->messages == 0 && state->server.alive();
    if (passes || state->bytes + queueBytesOf(text) <= state->limit) return;
    if (std::chrono::steady_clock::now() > deadline) {
      throw Failure(ExitCode::NoRoom, "the queue '" + std::string(queue.name) +
                                          "' is full: " + std::to_string(state->messages) +
                                          " messages wait, " + std::to_string(state->bytes) + " of " +
                                          std::to_string(state->limit) +
                                          " bytes; 'rynctl doctor' says why");
    }
    std::this_thread::sleep_for(kPause);
  }
}

void Client::tell(const std::string& text, bool unserved) const {
  requirePeer(unserved ? Unserved::kAllowed : Unserved::kRefused);
  requireRoom(text);
  std::string bytes = text;
  const IpcMessage message{static_cast<int32_t>(bytes.size()), bytes.data()};
  const int result = zunt_ipc_client_send(client_.get(), &message);
  if (result != 0) {
    failWithoutPeer(message_, "the queue cannot be written, result " + std::to_string(result));
  }
}

Reply Client::ask(const std::string& text, std::chrono::milliseconds limit) const {
  requirePeer(Unserved::kRefused);
  requireRoom(text);
  struct Exchange {
    std::shared_ptr<IpcClient> client;
    std::string request;
    int result = 0;
    Reply reply{true, "", {}};
  };
  const auto exchange = std::make_shared<Exchange>();
  exchange->client = client_;
  exchange->request = text;
  std::packaged_task<void()> task([exchange] {
    const IpcMessage request{static_cast<int32_t>(exchange->request.size()), exchange->request.data()};
    IpcMessage reply{0, nullptr};
    const auto start = std::chrono::steady_clock::now();
    exchange->result = zunt_ipc_client_send_sync_with_params(exchange->client.get(), &request, &reply);
    const auto end = std::chrono::steady_clock::now();
    const MallocPtr<char> owner(reply.text);
    exchange->reply.took = std::chrono::duration_cast<std::chrono::microseconds>(end - start);
    exchange->reply.failure = reply.length == 0;
    if (reply.length > 0) exchange->reply.text.assign(reply.text, static_cast<std::size_t>(reply.length));
  });
  const auto done = task.get_future();
  // The wait itself cannot be ended from outside, so it has a thread that may be left behind.
  std::thread(std::move(task)).detach();
  if (limit.count() == 0) {
    done.wait();
  } else if (done.wait_for(limit) != std::future_status::ready) {
    throw Failure(ExitCode::NoAnswer, std::string(message_.name) + ": the " + receiverOf(message_) +
                                          " process lives, but has not answered in " +
                                          std::to_string(limit.count()) +
                                          " ms; 'rynctl queues' shows whether it reads");
  }
  if (exchange->result != 0) {
    failWithoutPeer(message_, "it went away before it answered, or its answer was lost");
  }
  return exchange->reply;
}

}  // namespace hbbtv_ryn::rynctl
