// `rynctl queues`, `rynctl peek` and `rynctl reset`: what lies on the queues.

#include <sys/msg.h>
#include <unistd.h>

#include <iostream>

#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/system/wait.h"
#include "tools/rynctl/system/waiting_messages.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"
#include "tools/rynctl/text/table.h"

namespace hbbtv_ryn::rynctl {

namespace {

std::string seen(const Process& process, std::time_t when) {
  return process.pid == 0 ? "-" : compose("{}, {}", process.text(), ageText(when));
}

std::string serverText(const QueueState& state) {
  if (state.name->carriesReplies()) return "";
  if (state.isServedPlainly()) return state.reader.text() + ", plain";
  if (!state.servers.known()) return "unknown";
  if (!state.servers.alive()) return "gone";
  const std::string text = state.servers.latest.text();
  return state.servers.count == 1 ? text : compose("{} and {} more", text, state.servers.count - 1);
}

Json::Value jsonOf(const Process& process) {
  if (process.pid == 0) return {};
  return jsonObject(
      {{"pid", process.pid}, {"alive", process.alive}, {"process", process.name, process.alive}});
}

Json::Value jsonOf(const QueueState& queue, const char* state) {
  return jsonObject(
      {{"queue", queue.name->name},
       {"key", keyText(queue.name->key)},
       {"messages", Json::UInt64{queue.messages}},
       {"bytes", Json::UInt64{queue.bytes}},
       {"limit", Json::UInt64{queue.limit}},
       {"writer", jsonOf(queue.writer)},
       {"reader", jsonOf(queue.reader)},
       {"written", Json::Int64{queue.written}},
       {"read", Json::Int64{queue.read}},
       {"servers", queue.servers.count, !queue.name->carriesReplies() && queue.servers.known()},
       {"state", state}});
}

std::string queueTable(bool json) {
  constexpr const char* kStates[] = {"idle", "busy", "STUCK", "ORPHANED"};
  Table table(json, {"QUEUE", "MESSAGES", "BYTES", "LAST WRITER", "LAST READER", "SERVER", "STATE"});
  for (const QueueState& queue : judgeQueues()) {
    const char* const state = kStates[queue.judgement];
    table.add(
        jsonOf(queue, state),
        {queue.name->name, compose("{}", queue.messages), compose("{} of {}", queue.bytes, queue.limit),
         seen(queue.writer, queue.written), seen(queue.reader, queue.read), serverText(queue),
         styled(queue.judgement >= QueueState::kStuck ? Style::kProblem : Style::kGood, state)});
  }
  return table.text("no queue exists: neither process has run since the system started\n");
}

/// Name and members, or the text where it is no message of the catalogue.
std::string textOf(const WaitingMessage& waiting, const QueueName& queue) {
  const auto [message, members] = decode(waiting.text);
  std::string text = message == nullptr || queue.carriesReplies() ? onOneLine(waiting.text)
                                                                  : commandText(*message, members);
  if (waiting.fault.empty()) return text;
  return compose("({}){}{}", waiting.fault, text.empty() ? "" : " ", text);
}

unsigned long takeOff(const QueueState& state) {
  unsigned long taken = 0;
  long type = 0;  // the buffer of a message that is cut to nothing
  // No more than waited: a process that has started meanwhile keeps what it sends.
  while (taken < state.messages && msgrcv(state.id, &type, 0, 0, IPC_NOWAIT | MSG_NOERROR) >= 0) ++taken;
  return taken;
}

bool isConfirmed(const std::string& question) {
  if (isatty(STDIN_FILENO) == 0) {
    throw Failure(ExitCode::kUsage, "standard input is no terminal to ask on: add --yes");
  }
  print("{} [y/N] ", question);
  std::fflush(output());
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

ExitCode queues(const QueueOptions& options) {
  const Interrupt interrupt;
  do {
    const std::string text = queueTable(options.json);
    if (options.json || options.watch == 0) {
      print("{}", text);
    } else {
      redraw(text);
    }
  } while (options.watch != 0 && !interrupt.raised(Seconds(options.watch)) && std::ferror(output()) == 0);
  return ExitCode::kDone;
}

ExitCode peek(const QueueOptions& options) {
  const QueueName& name = findQueue(options.queue);
  const auto state = look(name);
  if (!state) {
    throw Failure(ExitCode::kNoPeer,
                  "the queue '{}' does not exist: no process has served it since the system started",
                  name.name);
  }
  Table table(options.json, {"#", "KIND", "RECORDS", "MESSAGE"});
  for (const WaitingMessage& message : peek(*state, options.count)) {
    table.add(jsonObject({{"kind", message.kind},
                          {"records", message.records},
                          {"text", message.text},
                          {"fault", message.fault, !message.fault.empty()}}),
              {compose("{}", table.size() + 1), message.kind, compose("{}", message.records),
               textOf(message, name)});
  }
  print("{}", table.text(compose("nothing waits on the queue '{}'\n", name.name)));
  return ExitCode::kDone;
}

ExitCode reset(const QueueOptions& options) {
  std::vector<QueueState> chosen;
  std::vector<std::string> texts;
  std::vector<std::string> kept;
  for (const QueueState& queue : judgeQueues()) {
    if (queue.messages == 0) continue;
    // Neither who sent it nor who would read it lives.
    const bool stale = queue.judgement == QueueState::kOrphaned && !queue.writer.alive;
    const bool goes = stale || options.all;
    (goes ? texts : kept).push_back(compose("{} on '{}'", queue.messages, queue.name->name));
    if (goes) chosen.push_back(queue);
  }
  if (!kept.empty()) {
    remark("kept, since a living process sent or reads them: {}; --all takes them too", joined(kept, ", "));
  }
  if (chosen.empty()) {
    print("nothing to take off\n");
    return ExitCode::kDone;
  }
  if (!options.yes && !isConfirmed(compose("Take off the messages {}?", joined(texts, ", ")))) {
    print("nothing was taken off\n");
    return ExitCode::kRefused;
  }
  for (const QueueState& state : chosen) print("took {} off '{}'\n", takeOff(state), state.name->name);
  return ExitCode::kDone;
}

}  // namespace hbbtv_ryn::rynctl
