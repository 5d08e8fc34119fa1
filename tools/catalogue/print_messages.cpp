// Prints the message tables of docs/protocol.md from the catalogue.

#include <iostream>

#include "tools/catalogue/catalogue_text.h"

namespace {

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): a program about nothing else

std::string members(const Members& list, bool with_defaults) {
  if (list.size() == 0) return "none";
  std::string text;
  for (const Member& member : list) {
    text += (text.empty() ? "\"" : ", \"") + std::string(member.key) + "\" " + typeName(member.type);
    if (with_defaults) text += " (" + defaultAnswer(member) + ")";
  }
  return text;
}

void printTable(std::ostream& page, Direction direction) {
  page << "| Code | Name | Delivery | Keys besides \"t\" | Reply \"t\" | Reply keys (default answer) |\n"
       << "|---|---|---|---|---|---|\n";
  for (const Message& message : kMessages) {
    if (message.direction != direction) continue;
    const bool answered = message.delivery == Delivery::kSync;
    page << "| " << static_cast<int>(message.code) << " | `" << message.name << "` | "
         << deliveryName(message.delivery) << " | " << members(message.request, false) << " | "
         << (message.reply_code == kNoReplyCode ? "none" : std::to_string(message.reply_code)) << " | "
         << (answered ? members(message.reply, true) : "no reply") << " |\n";
  }
}

void printSamples(std::ostream& page) {
  for (const Message& message : kMessages) {
    page << "- `" << senderName(message) << "`\n  - `" << oneLine(sampleRequest(message)) << "`\n";
    if (message.delivery == Delivery::kSync) page << "  - `" << oneLine(sampleReply(message)) << "`\n";
  }
}

}  // namespace

int main() {
  std::cout << "<!-- messages: printed by print_messages, do not edit -->\n\n### Requests, "
            << directionName(Direction::kToBrowser) << "\n\n";
  printTable(std::cout, Direction::kToBrowser);
  std::cout << "\n### Notifications and queries, " << directionName(Direction::kToPlugin) << "\n\n";
  printTable(std::cout, Direction::kToPlugin);
  std::cout << "\n### Samples\n\nOn one line here; on the wire, one member per line. The reply, if any, "
               "second.\n\n";
  printSamples(std::cout);
  std::cout << "\n<!-- end of messages -->\n";
}
