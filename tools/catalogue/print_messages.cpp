// Prints the message tables of docs/protocol.md from the catalogue, or checks that the page holds them.

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "tools/catalogue/catalogue_text.h"

namespace {

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): a program about nothing else

constexpr const char* kBegin = "<!-- messages: printed by print_messages, do not edit -->\n";
constexpr const char* kEnd = "<!-- end of messages -->\n";

std::string members(const Members& list, bool with_defaults) {
  if (list.size() == 0) return "none";
  std::string text;
  for (const Member& member : list) {
    text += (text.empty() ? "\"" : ", \"") + std::string(member.key) + "\" " + typeName(member.type);
    if (!member.delivered) text += " (nobody reads it)";
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

std::string messageSection() {
  std::ostringstream page;
  page << kBegin << "\n### Requests, " << directionName(Direction::kToBrowser) << "\n\n";
  printTable(page, Direction::kToBrowser);
  page << "\n### Notifications and queries, " << directionName(Direction::kToPlugin) << "\n\n";
  printTable(page, Direction::kToPlugin);
  page << "\n### Samples\n\nOn one line here; on the wire, one member per line. The reply, if any, "
          "second.\n\n";
  printSamples(page);
  page << "\n" << kEnd;
  return page.str();
}

int usage() {
  std::fprintf(stderr, "Usage: print_messages [--check PAGE | --update PAGE]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string section = messageSection();
  if (argc == 1) {
    std::cout << section;
    return 0;
  }
  const bool update = argc == 3 && std::strcmp(argv[1], "--update") == 0;
  if (argc != 3 || (!update && std::strcmp(argv[1], "--check") != 0)) return usage();
  std::ifstream in(argv[2]);
  std::string page{std::istreambuf_iterator<char>(in), {}};
  const auto begin = page.find(kBegin);
  const auto end = page.find(kEnd);
  if (begin == std::string::npos || end == std::string::npos) {
    std::fprintf(stderr, "print_messages: %s has no place for the messages\n", argv[2]);
    return 1;
  }
  const std::size_t length = end + std::strlen(kEnd) - begin;
  if (page.compare(begin, length, section) == 0) return 0;
  if (!update) {
    std::fprintf(stderr, "%s and the catalogue differ; \"make docs\" prints the tables anew\n", argv[2]);
    return 1;
  }
  std::ofstream(argv[2]) << page.replace(begin, length, section);
  return 0;
}
