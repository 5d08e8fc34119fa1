/// @file
/// `rynctl call` and `rynctl send`: one end of the bridge by hand.

#include <poll.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channel.h"
#include "command.h"
#include "interrupt.h"
#include "ipc/protocol/envelope.h"
#include "message_build.h"
#include "message_text.h"
#include "place.h"
#include "tools/catalogue/catalogue_text.h"

namespace hbbtv_ryn::rynctl {

namespace {

using std::chrono::milliseconds;

struct Options {
  std::string name;
  std::vector<std::string> assignments;
  std::optional<std::string> json;
  double timeout = 10;
  unsigned repeat = 1;
  unsigned every = 0;
  bool force = false;
};

std::optional<std::string> jsonText(const Options& options) {
  if (options.json != "-") return options.json;
  return std::string(std::istreambuf_iterator<char>(std::cin), {});
}

const Message& messageFor(const Options& options, Delivery delivery) {
  const Message& message = findByName(options.name);
  if (message.delivery == delivery) return message;
  throw Failure(ExitCode::Usage, std::string(message.name) + " is " + deliveryName(message.delivery) +
                                     ": use 'rynctl " + (delivery == Delivery::kSync ? "send " : "call ") +
                                     std::string(message.name) + "'");
}

ExitCode call(const Options& options) {
  const Message& message = messageFor(options, Delivery::kSync);
  const Json::Value request = buildMessage(message, options.assignments, jsonText(options));
  requireFree({{Place::Role::kClient, queueOf(message)}}, options.force);
  const OwnOutput output;
  const auto limit =
      std::chrono::duration_cast<milliseconds>(std::chrono::duration<double>(options.timeout));
  const Reply reply = Client(message).ask(serialise(request), limit);
  if (reply.failure) {
    throw Failure(ExitCode::Refused, "the " + std::string(receiverOf(message)) +
                                         " process has no answer to " + std::string(message.name) + " (" +
                                         std::to_string(reply.took.count()) + " us)");
  }
  Json::Value members;
  if (!parse(reply.text.c_str(), &members)) {
    throw Failure(ExitCode::Malformed, "the answer is no JSON object: " + onOneLine(reply.text));
  }
  std::cout << oneLine(members) << std::endl;
  std::cerr << "answered in " << reply.took.count() << " us\n";
  return ExitCode::Done;
}

ExitCode send(const Options& options) {
  const Message& message = messageFor(options, Delivery::kOneWay);
  const std::string text = serialise(buildMessage(message, options.assignments, jsonText(options)));
  requireFree({{Place::Role::kClient, queueOf(message)}}, options.force);
  const OwnOutput output;
  const Interrupt interrupt;
  const Client client(message);
  unsigned sent = 0;
  while (!interrupt.raised()) {
    client.tell(text, options.force);
    if (++sent == options.repeat) break;
    pollfd wake{interrupt.descriptor(), POLLIN, 0};
    poll(&wake, 1, static_cast<int>(options.every));
  }
  std::cerr << "sent " << sent << (sent == 1 ? " message\n" : " messages\n");
  return ExitCode::Done;
}

void addCommonOptions(CLI::App& command, Options& options) {
  command.add_option("NAME", options.name, "Name or code of the message")->required();
  command.add_option("KEY=VALUE", options.assignments, "Members; 'rynctl describe NAME' shows them");
  command.add_option("--json", options.json, "Take the members from a JSON object; - reads standard input")
      ->type_name("TEXT|-");
  command.add_flag("--force", options.force, "Also when another process holds this end of the queue");
}

}  // namespace

void addCallCommands(CLI::App& app, Action& action) {
  constexpr unsigned kLongestPause = 3600000;
  const auto options = std::make_shared<Options>();

  CLI::App* const call_command = app.add_subcommand(
      "call", "Ask the browser as the plug-in would, or the plug-in as the browser would");
  addCommonOptions(*call_command, *options);
  call_command->add_option("--timeout", options->timeout, "Give up after S seconds; 0 waits for ever")
      ->type_name("S")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 86400.0));
  call_command->footer("Prints the answer as a line of JSON.");
  call_command->callback([options, &action] { action = [options] { return call(*options); }; });

  CLI::App* const send_command = app.add_subcommand("send", "Send a one-way message");
  addCommonOptions(*send_command, *options);
  send_command->add_option("--repeat", options->repeat, "Send it N times; 0 until interrupted")
      ->type_name("N")
      ->capture_default_str();
  send_command->add_option("--every", options->every, "Wait MS milliseconds between two")
      ->type_name("MS")
      ->check(CLI::Range(0U, kLongestPause));
  send_command->footer("Also with --force: when nobody is there to read it; it waits on the queue then.");
  send_command->callback([options, &action] { action = [options] { return send(*options); }; });
}

}  // namespace hbbtv_ryn::rynctl
