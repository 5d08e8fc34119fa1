#include "place.h"

#include <unistd.h>

#include <optional>

#include "exit_code.h"

namespace hbbtv_ryn::rynctl {

namespace {

constexpr char kOurName[] = "rynctl";

bool isOther(const Process& process) {
  return process.alive && process.pid != getpid();
}

/// The server of a queue, as far as it can be told.
std::optional<Process> serverOf(const QueueName& queue) {
  const ServerLife life = lifeOfServer(queue.key);
  if (life.alive()) {
    if (isOther(life.process)) return life.process;
    // One of several servers has ended since: the one that reads is left.
    const auto state = look(queue);
    if (state && isOther(state->reader)) return state->reader;
    return life.process.alive ? std::nullopt : std::optional<Process>(life.process);
  }
  if (life.known()) return std::nullopt;
  const auto state = look(queue);
  return state && isOther(state->reader) ? std::optional<Process>(state->reader) : std::nullopt;
}

std::optional<Process> clientOf(const QueueName& queue) {
  const auto server = serverOf(queue);
  const auto state = look(queue);
  // A server ends its receive thread with a message to itself.
  if (state && isOther(state->writer) && !(server && server->pid == state->writer.pid)) {
    return state->writer;
  }
  for (const QueueName& own : kQueues) {
    if (own.carriesReplies() || own.reader != queue.writer()) continue;
    auto endpoint = serverOf(own);
    if (endpoint && endpoint->alive && endpoint->name != kOurName) return endpoint;
  }
  return std::nullopt;
}

}  // namespace

void requireFree(const std::vector<Place>& places, bool force) {
  if (force) return;
  for (const Place& place : places) {
    const QueueName& queue = queueAt(place.queue);
    const bool server = place.role == Place::Role::kServer;
    const auto holder = server ? serverOf(queue) : clientOf(queue);
    if (!holder) continue;
    const Side side = server ? queue.reader : queue.writer();
    throw Failure(ExitCode::NoPeer, "the " + std::string(nameOf(side)) + "'s place on the queue '" +
                                        queue.name + "' is held by " + holder->text() +
                                        "; end that process, or use --force and disturb it");
  }
}

}  // namespace hbbtv_ryn::rynctl
