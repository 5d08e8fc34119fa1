#include "tools/rynctl/system/place.h"

#include <unistd.h>

#include "tools/rynctl/failure.h"

namespace hbbtv_ryn::rynctl {

namespace {

bool isOther(const Process& process) {
  return process.alive && process.pid != getpid();
}

/// The server of a queue, as far as it can be told.
std::optional<Process> serverOf(const QueueName& queue) {
  const auto state = look(queue);
  const Servers servers = serversOf(queue.key);
  if (servers.alive() && isOther(servers.latest)) return servers.latest;
  // One of several servers has ended since, or a plain one shows no life: the one that reads is left.
  const bool may_read = servers.alive() || !servers.known();
  if (may_read && state && isOther(state->reader)) return state->reader;
  return servers.alive() && !servers.latest.alive ? std::optional<Process>(servers.latest) : std::nullopt;
}

std::optional<Process> clientOf(const QueueName& queue) {
  const auto server = serverOf(queue);
  const auto state = look(queue);
  // A server ends its receive thread with a message to itself.
  if (state && isOther(state->writer) && !(server && server->pid == state->writer.pid)) {
    return state->writer;
  }
  for (const QueueName& own : kQueues) {
    if (own.carriesReplies() || own.reader == queue.reader) continue;
    auto endpoint = serverOf(own);
    if (endpoint && endpoint->alive && endpoint->name != "rynctl") return endpoint;
  }
  return std::nullopt;
}

}  // namespace

void requireFree(Role role, const QueueName& queue) {
  const auto holder = role == Role::kServer ? serverOf(queue) : clientOf(queue);
  if (!holder) return;
  throw Failure(ExitCode::kNoPeer,
                "the {}'s place on the queue '{}' is held by {}; end that process, or use --force and "
                "disturb it",
                nameOf(role == Role::kServer ? queue.reader : other(queue.reader)), queue.name,
                holder->text());
}

void requireFree(Side side) {
  for (const QueueName& queue : kQueues) {
    if (!queue.carriesReplies()) requireFree(queue.reader == side ? Role::kServer : Role::kClient, queue);
  }
}

}  // namespace hbbtv_ryn::rynctl
