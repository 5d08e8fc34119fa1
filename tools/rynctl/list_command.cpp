/// @file
/// `rynctl list` and `rynctl describe`: the catalogue.

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "command.h"
#include "ipc/protocol/queues.h"
#include "message_text.h"
#include "table.h"
#include "terminal.h"
#include "tools/catalogue/catalogue_text.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  std::string name = "*";
  bool json = false;
};

std::string keys(const Members& members) {
  std::vector<std::string> texts;
  for (const Member& member : members) texts.emplace_back(member.key);
  return texts.empty() ? "-" : joined(texts, " ");
}

Json::Value jsonOf(const Members& members) {
  Json::Value list(Json::arrayValue);
  for (const Member& member : members) {
    Json::Value one(Json::objectValue);
    one["key"] = member.key;
    one["type"] = typeName(member.type);
    list.append(one);
  }
  return list;
}

Json::Value jsonOf(const Message& message) {
  Json::Value value(Json::objectValue);
  value["code"] = static_cast<int>(message.code);
  value["name"] = std::string(message.name);
  value["to"] = receiverOf(message);
  value["delivery"] = deliveryName(message.delivery);
  value["request"] = jsonOf(message.request);
  if (message.delivery == Delivery::kSync) value["reply"] = jsonOf(message.reply);
  if (message.reply_code != kNoReplyCode) value["reply_code"] = message.reply_code;
  return value;
}

ExitCode list(const Options& options) {
  const auto found = findMatching(options.name);
  if (found.empty()) {
    throw Failure(ExitCode::Refused, "no message matches " + printable(options.name) +
                                         "; a pattern is as for the shell: '*Key*', 'OpApp_*'");
  }
  std::vector<Row> rows;
  for (const Message* const message : found) {
    if (options.json) {
      std::cout << oneLine(jsonOf(*message)) << '\n';
      continue;
    }
    const bool sync = message->delivery == Delivery::kSync;
    rows.push_back({std::to_string(static_cast<int>(message->code)), std::string(message->name),
                    receiverOf(*message), deliveryName(message->delivery), keys(message->request),
                    sync ? keys(message->reply) : ""});
  }
  if (!options.json) {
    std::cout << tableText({"CODE", "NAME", "TO", "DELIVERY", "KEYS", "REPLY KEYS"}, rows,
                           hasColour(STDOUT_FILENO));
  }
  return ExitCode::Done;
}

void printMembers(const char* title, const Members& members, bool with_defaults, bool colour) {
  std::cout << '\n' << styled(Style::Heading, title, colour) << '\n';
  if (members.size() == 0) std::cout << "  none\n";
  std::size_t width = 0;
  for (const Member& member : members) width = std::max(width, std::string_view(member.key).size());
  for (const Member& member : members) {
    const std::string key = member.key;
    std::cout << "  " << key << std::string(width - key.size() + 2, ' ') << typeName(member.type);
    if (with_defaults) std::cout << ", " << defaultAnswer(member) << " where the host has no handler";
    std::cout << '\n';
  }
}

ExitCode describe(const Options& options) {
  const Message& message = findByName(options.name);
  if (options.json) {
    std::cout << oneLine(jsonOf(message)) << '\n';
    return ExitCode::Done;
  }
  const bool colour = hasColour(STDOUT_FILENO);
  const bool sync = message.delivery == Delivery::kSync;
  std::cout << styled(Style::Heading, message.name, colour) << "  code " << static_cast<int>(message.code)
            << ", " << deliveryName(message.delivery) << ", " << directionName(message.direction)
            << "\nsent by " << senderName(message) << "()\n";
  printMembers("Keys", message.request, false, colour);
  if (sync) printMembers("Reply keys", message.reply, true, colour);

  const Json::Value sample = sampleRequest(message);
  std::cout << '\n' << styled(Style::Heading, "Sample", colour) << "\n  " << oneLine(sample) << '\n';
  if (sync) std::cout << "  " << oneLine(sampleReply(message)) << '\n';
  const std::string arguments = membersText(sample, message.request);
  std::cout << '\n'
            << styled(Style::Heading, "To try it", colour) << "\n  rynctl " << (sync ? "call " : "send ")
            << message.name << (arguments.empty() ? "" : " ") << arguments << '\n';
  return ExitCode::Done;
}

}  // namespace

void addListCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();

  CLI::App* const list_command = app.add_subcommand("list", "Show the messages and their keys");
  list_command->add_option("GLOB", options->name, "Only names that match, such as 'OpApp_*'; in any case");
  list_command->add_flag("--json", options->json, "Print each message as a line of JSON");
  list_command->callback([options, &action] { action = [options] { return list(*options); }; });

  CLI::App* const describe_command =
      app.add_subcommand("describe", "Show one message: keys, types, a sample and how to send it");
  describe_command->add_option("NAME", options->name, "Name or code of the message")->required();
  describe_command->add_flag("--json", options->json, "Print it as a line of JSON");
  describe_command->callback([options, &action] { action = [options] { return describe(*options); }; });
}

}  // namespace hbbtv_ryn::rynctl
