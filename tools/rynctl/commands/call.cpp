// `rynctl call` and `rynctl send`: one end of the bridge by hand.

#include <iostream>
#include <iterator>

#include "ipc/protocol/envelope.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/commands/command.h"
#include "tools/rynctl/system/client.h"
#include "tools/rynctl/system/place.h"
#include "tools/rynctl/system/wait.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  std::string name;
  std::vector<std::string> assignments;
  std::string json = "{}";
  double timeout = 10;
  unsigned repeat = 1;
  unsigned every = 0;
  bool force = false;
};

/// The message with its text, when this end of its queue may be taken.
struct Outgoing {
  const Message& message;
  std::string text;
};

Outgoing prepare(const Options& options, Delivery delivery) {
  const Message& message = findByName(options.name);
  if (message.delivery != delivery) {
    throw Failure(ExitCode::kUsage, "{0} is {1}: use 'rynctl {2} {0}'", message.name,
                  deliveryName(message.delivery), delivery == Delivery::kSync ? "send" : "call");
  }
  const bool piped = options.json == "-";
  const std::string json = piped ? std::string(std::istreambuf_iterator<char>(std::cin), {}) : options.json;
  const Json::Value members = parseObject(std::string(message.name), json);
  const std::string text = serialise(buildMessage(message, options.assignments, members));
  if (!options.force) requireFree(Role::kClient, queueAt(queueOf(message)));
  return {message, text};
}

ExitCode call(const Options& options) {
  const auto [message, text] = prepare(options, Delivery::kSync);
  const Reply reply = Client(message).ask(text, Seconds(options.timeout));
  if (reply.failure) {
    throw Failure(ExitCode::kRefused, "the {} process has no answer to {} ({} us)",
                  nameOf(receiverOf(message)), message.name, reply.took.count());
  }
  Json::Value members;
  if (!parse(reply.text.c_str(), &members)) {
    throw Failure(ExitCode::kMalformed, "the answer is no JSON object: {}", onOneLine(reply.text));
  }
  print("{}\n", oneLine(members));
  remark("answered in {} us", reply.took.count());
  return ExitCode::kDone;
}

ExitCode send(const Options& options) {
  const auto [message, text] = prepare(options, Delivery::kOneWay);
  const Interrupt interrupt;
  const Client client(message);
  unsigned sent = 0;
  do {
    client.tell(text, options.force);
    ++sent;
  } while (sent != options.repeat && !interrupt.raised(std::chrono::milliseconds(options.every)));
  remark("sent {}", counted(sent, "message"));
  return ExitCode::kDone;
}

void addOptions(CLI::App* command, Options& options) {
  command->add_option("NAME", options.name, "Name or code of the message")->required();
  command->add_option("KEY=VALUE", options.assignments, "Members; 'rynctl describe NAME' shows them");
  addValue(command, "--json", options.json, "TEXT|-",
           "Take the members from a JSON object, - reads standard input; arguments replace single ones");
  command->add_flag("--force", options.force, "Also when another process holds this end of the queue");
}

}  // namespace

void addCallCommands(CLI::App& app, Action& action) {
  const auto [call_command, call_options] = addCommand(
      app, action, &call, "call",
      "Ask the browser as the plug-in would, or the plug-in as the browser would",
      R"(Prints the answer as a line of JSON, and the time it took on standard error. Nothing is sent that does
not fit the catalogue. A peer that dies ends the wait at once.)");
  addOptions(call_command, *call_options);
  addValue(call_command, "--timeout", call_options->timeout, "S",
           "Give up after S seconds; 0 waits for ever")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 86400.0));

  const auto [send_command, send_options] =
      addCommand(app, action, &send, "send", "Send a one-way message",
                 "Also with --force: when nobody is there to read it; it waits on the queue then.");
  addOptions(send_command, *send_options);
  addValue(send_command, "--repeat", send_options->repeat, "N", "Send it N times; 0 until interrupted")
      ->capture_default_str();
  addValue(send_command, "--every", send_options->every, "MS", "Wait MS milliseconds between two")
      ->check(CLI::Range(0, 3600000));
}

}  // namespace hbbtv_ryn::rynctl
