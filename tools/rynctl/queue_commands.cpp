/// @file
/// `rynctl queues`, `rynctl peek` and `rynctl reset`: what lies on the queues.

#include <poll.h>
#include <sys/msg.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "interrupt.h"
#include "ipc/protocol/envelope.h"
#include "message_text.h"
#include "queue_state.h"
#include "table.h"
#include "terminal.h"
#include "tools/catalogue/catalogue_text.h"
#include "waiting_messages.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  double watch = 0;
  bool json = false;
  std::string queue;
  unsigned count = 0;
  bool all = false;
  bool yes = false;
};

// --- queues --------------------------------------------------------------------------------------------

std::string seen(const Process& process, std::time_t when) {
  return process.pid == 0 ? "-" : process.text() + ", " + ageText(when);
}

std::string serverText(const QueueState& state) {
  if (state.name->carriesReplies()) return "";
  if (!state.server.known()) return "unknown";
  if (!state.server.alive()) return "gone";
  const std::string text = state.server.process.text();
  return state.server.count == 1 ? text : text + " and " + std::to_string(state.server.count - 1) + " more";
}

std::string judgementText(Judgement judgement, bool colour) {
  const bool problem = judgement == Judgement::kStuck || judgement == Judgement::kOrphaned;
  return styled(problem ? Style::Problem : Style::Good, wordOf(judgement), colour);
}

std::string queueTable(bool colour) {
  std::vector<Row> rows;
  for (const JudgedQueue& queue : judgeQueues()) {
    const QueueState& state = queue.state;
    rows.push_back({state.name->name, std::to_string(state.messages),
                    std::to_string(state.bytes) + " of " + std::to_string(state.limit),
                    seen(state.writer, state.written), seen(state.reader, state.read), serverText(state),
                    judgementText(queue.judgement, colour)});
  }
  if (rows.empty()) return "no queue exists: neither process has run since the system started\n";
  return tableText({"QUEUE", "MESSAGES", "BYTES", "LAST WRITER", "LAST READER", "SERVER", "STATE"}, rows,
                   colour);
}

Json::Value jsonOf(const Process& process) {
  if (process.pid == 0) return {};
  Json::Value value(Json::objectValue);
  value["pid"] = process.pid;
  value["alive"] = process.alive;
  if (process.alive) value["process"] = process.name;
  return value;
}

std::string queueLines() {
  std::string lines;
  for (const JudgedQueue& queue : judgeQueues()) {
    const QueueState& state = queue.state;
    Json::Value value(Json::objectValue);
    value["queue"] = state.name->name;
    value["key"] = keyText(state.name->key);
    value["messages"] = static_cast<Json::UInt64>(state.messages);
    value["bytes"] = static_cast<Json::UInt64>(state.bytes);
    value["limit"] = static_cast<Json::UInt64>(state.limit);
    value["writer"] = jsonOf(state.writer);
    value["reader"] = jsonOf(state.reader);
    value["written"] = static_cast<Json::Int64>(state.written);
    value["read"] = static_cast<Json::Int64>(state.read);
    if (!state.name->carriesReplies() && state.server.known()) value["servers"] = state.server.count;
    value["state"] = wordOf(queue.judgement);
    lines += oneLine(value) + '\n';
  }
  return lines;
}

ExitCode queues(const Options& options) {
  constexpr char kHomeAndClear[] = "\033[H\033[2J";
  constexpr double kMilliseconds = 1000;
  const Interrupt interrupt;
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  do {
    const std::string text = options.json ? queueLines() : queueTable(hasColour(STDOUT_FILENO));
    const bool redraw = terminal && options.watch > 0 && !options.json;
    std::cout << (redraw ? kHomeAndClear : "") << text << std::flush;
    if (options.watch == 0) break;
    pollfd wake{interrupt.descriptor(), POLLIN, 0};
    poll(&wake, 1, static_cast<int>(options.watch * kMilliseconds));
  } while (!interrupt.raised() && std::cout);
  return ExitCode::Done;
}

// --- peek ----------------------------------------------------------------------------------------------

/// Name and members, or the text where it is no message of the catalogue.
std::string decoded(const WaitingMessage& message, const QueueName& queue) {
  Json::Value members;
  int code = 0;
  try {
    if (parse(message.text.c_str(), &members)) code = integer(members, key::kCode);
  } catch (const Json::Exception&) {
    code = 0;
  }
  const Message* const known = findMessage(code);
  if (known == nullptr || queue.carriesReplies()) return onOneLine(message.text);
  const std::string arguments = membersText(members, known->request);
  return std::string(known->name) + (arguments.empty() ? "" : " ") + arguments;
}

ExitCode peek(const Options& options) {
  const QueueName& name = findQueue(options.queue);
  const auto state = look(name);
  if (!state) {
    throw Failure(ExitCode::NoPeer, "the queue '" + std::string(name.name) +
                                        "' does not exist: no process has served it since the system "
                                        "started");
  }
  const auto messages = peek(*state, options.count);
  std::vector<Row> rows;
  for (const WaitingMessage& message : messages) {
    std::string text = decoded(message, name);
    if (!message.fault.empty()) text.insert(0, '(' + message.fault + (text.empty() ? ")" : ") "));
    if (options.json) {
      Json::Value value(Json::objectValue);
      value["kind"] = kindName(message.kind);
      value["records"] = message.records;
      value["text"] = message.text;
      if (!message.fault.empty()) value["fault"] = message.fault;
      std::cout << oneLine(value) << '\n';
    }
    rows.push_back(
        {std::to_string(rows.size() + 1), kindName(message.kind), std::to_string(message.records), text});
  }
  if (options.json) return ExitCode::Done;
  if (rows.empty()) {
    std::cout << "nothing waits on the queue '" << name.name << "'\n";
  } else {
    std::cout << tableText({"#", "KIND", "RECORDS", "MESSAGE"}, rows, hasColour(STDOUT_FILENO));
  }
  return ExitCode::Done;
}

// --- reset ---------------------------------------------------------------------------------------------

/// Whether what waits was left by dead processes: neither who sent it nor who would read it lives.
bool isStale(const JudgedQueue& queue) {
  return queue.judgement == Judgement::kOrphaned && !queue.state.writer.alive;
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
    throw Failure(ExitCode::Usage, "standard input is no terminal to ask on: add --yes");
  }
  std::cout << question << " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

ExitCode reset(const Options& options) {
  std::vector<QueueState> chosen;
  std::vector<std::string> texts;
  std::vector<std::string> kept;
  for (const JudgedQueue& queue : judgeQueues()) {
    const QueueState& state = queue.state;
    if (state.messages == 0) continue;
    const std::string text = std::to_string(state.messages) + " on '" + state.name->name + "'";
    if (options.all || isStale(queue)) {
      chosen.push_back(state);
      texts.push_back(text);
    } else {
      kept.push_back(text);
    }
  }
  if (!kept.empty()) {
    std::cerr << "kept, since a living process sent or reads them: " << joined(kept, ", ")
              << "; --all takes them too\n";
  }
  if (chosen.empty()) {
    std::cout << "nothing to take off\n";
    return ExitCode::Done;
  }
  if (!options.yes && !isConfirmed("Take off the messages " + joined(texts, ", ") + "?")) {
    std::cout << "nothing was taken off\n";
    return ExitCode::Refused;
  }
  for (const QueueState& state : chosen) {
    std::cout << "took " << takeOff(state) << " off '" << state.name->name << "'\n";
  }
  return ExitCode::Done;
}

}  // namespace

void addQueueCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  std::vector<std::string> names;
  names.reserve(std::size(kQueues));
  for (const QueueName& queue : kQueues) names.emplace_back(queue.name);

  CLI::App* const queues_command =
      app.add_subcommand("queues", "Show the queues, who writes and reads them, and whether they flow");
  queues_command
      ->add_option("--watch", options->watch, "Show them again every S seconds, until interrupted")
      ->type_name("S")
      ->check(CLI::Range(0.1, 3600.0));
  queues_command->add_flag("--json", options->json, "Print each queue as a line of JSON");
  queues_command->footer(
      "States: idle, nothing waits; busy, messages wait and are read; STUCK, messages wait and the living\n"
      "reader does not read; ORPHANED, messages wait and nobody is there to read them.");
  queues_command->callback([options, &action] { action = [options] { return queues(*options); }; });

  CLI::App* const peek_command =
      app.add_subcommand("peek", "Show the messages that wait on a queue, and leave them there");
  peek_command->add_option("QUEUE", options->queue, joined(names, ", ") + ", or a key")->required();
  peek_command->add_option("-n,--count", options->count, "Only the first N messages")->type_name("N");
  peek_command->add_flag("--json", options->json, "Print each message as a line of JSON");
  peek_command->callback([options, &action] { action = [options] { return peek(*options); }; });

  CLI::App* const reset_command =
      app.add_subcommand("reset", "Take off the queues what dead processes have left there");
  CLI::Option* const all = reset_command->add_flag("--all", options->all,
                                                   "Take off every message, those of living processes too");
  reset_command
      ->add_flag("--stale", "Only what was sent and would be read by processes that are gone (default)")
      ->excludes(all);
  reset_command->add_flag("--yes", options->yes, "Do not ask");
  reset_command->callback([options, &action] { action = [options] { return reset(*options); }; });
}

}  // namespace hbbtv_ryn::rynctl
