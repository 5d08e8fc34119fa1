// `rynctl list` and `rynctl describe`: the catalogue.

#include <algorithm>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"
#include "tools/rynctl/text/table.h"

namespace hbbtv_ryn::rynctl {

namespace {

std::string keys(const Members& members) {
  std::vector<std::string> texts;
  for (const Member& member : members) texts.emplace_back(member.key);
  return texts.empty() ? "-" : joined(texts, " ");
}

Json::Value jsonOf(const Members& members) {
  Json::Value list(Json::arrayValue);
  for (const Member& member : members) {
    list.append(jsonObject({{"key", member.key}, {"type", typeName(member.type)}}));
  }
  return list;
}

Json::Value jsonOf(const Message& message) {
  return jsonObject({{"code", static_cast<int>(message.code)},
                     {"name", std::string(message.name)},
                     {"to", nameOf(receiverOf(message))},
                     {"delivery", deliveryName(message.delivery)},
                     {"request", jsonOf(message.request)},
                     {"reply", jsonOf(message.reply), message.delivery == Delivery::kSync},
                     {"reply_code", message.reply_code, message.reply_code != kNoReplyCode}});
}

void printMembers(const char* title, const Members& members, bool with_defaults) {
  print("\n{}\n", styled(Style::kHeading, title));
  if (members.size() == 0) print("  none\n");
  std::size_t width = 0;
  for (const Member& member : members) width = std::max(width, std::string_view(member.key).size());
  for (const Member& member : members) {
    const std::string note =
        with_defaults ? compose(", {} where the host has no handler", defaultAnswer(member)) : "";
    print("  {:{}}  {}{}\n", member.key, width, typeName(member.type), note);
  }
}

}  // namespace

ExitCode list(const CatalogueOptions& options) {
  Table table(options.json, {"CODE", "NAME", "TO", "DELIVERY", "KEYS", "REPLY KEYS"});
  for (const Message& message : kMessages) {
    if (!matches(options.name, message.name)) continue;
    table.add(jsonOf(message),
              {compose("{}", static_cast<int>(message.code)), std::string(message.name),
               nameOf(receiverOf(message)), deliveryName(message.delivery), keys(message.request),
               message.delivery == Delivery::kSync ? keys(message.reply) : ""});
  }
  if (table.size() == 0) {
    throw Failure(ExitCode::kRefused,
                  "no message matches {}; a pattern is as for the shell: '*Key*', 'OpApp_*'",
                  printable(options.name));
  }
  print("{}", table.text());
  return ExitCode::kDone;
}

ExitCode describe(const CatalogueOptions& options) {
  const Message& message = findByName(options.name);
  if (options.json) {
    print("{}\n", oneLine(jsonOf(message)));
    return ExitCode::kDone;
  }
  const bool sync = message.delivery == Delivery::kSync;
  print("{}  code {}, {}, {}\nsent by {}()\n", styled(Style::kHeading, message.name),
        static_cast<int>(message.code), deliveryName(message.delivery), directionName(message.direction),
        senderName(message));
  printMembers("Keys", message.request, false);
  if (sync) printMembers("Reply keys", message.reply, true);
  const Json::Value sample = sampleRequest(message);
  print("\n{}\n  {}\n", styled(Style::kHeading, "Sample"), oneLine(sample));
  if (sync) print("  {}\n", oneLine(sampleReply(message)));
  print("\n{}\n  rynctl {} {}\n", styled(Style::kHeading, "To try it"), sync ? "call" : "send",
        commandText(message, sample));
  return ExitCode::kDone;
}

}  // namespace hbbtv_ryn::rynctl
