// Writes what the fuzzers begin with: every message of the catalogue as each of them takes it, and a
// dictionary of the words of the language.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ipc/protocol/catalogue.h"
#include "ipc/protocol/lists.h"
#include "log/control_protocol.h"
#include "support/raw_peer.h"

namespace {

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)
namespace fs = std::filesystem;

constexpr int kReplyReaders = 24;  // more than there are does no harm: the fuzzer takes the remainder

void write(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

std::string memberText(const Member& member) {
  const std::string name = '"' + std::string(member.key) + "\":";
  switch (member.type) {
    case Type::kInt:
      return name + "2";
    case Type::kFlag:
      return name + "1";
    case Type::kBoolean:
      return name + "true";
    case Type::kString:
      return name + R"("text")";
    case Type::kKeyCount:
      return name + R"(2,"k0":37,"k1":38)";
    case Type::kIdFields: {
      const int ids[] = {1, 22};
      return name + '"' + idFields(ids, 2) + '"';
    }
  }
  return {};
}

std::string messageText(int code, const Members& members) {
  std::string text = "{\"t\":" + std::to_string(code);
  for (const Member& member : members) text += ',' + memberText(member);
  return text + '}';
}

// As the joiner's fuzzer takes them: a chunk size of 1024, and a length in front of each record.
std::string asRecords(int kind, const std::string& text) {
  constexpr char kChunkSize1024 = 2;
  std::string input(1, kChunkSize1024);
  for (const test::RawRecord& record : test::rawRecords(kind, text)) {
    input += static_cast<char>(test::kRawRecordBytes & 0xff);
    input += static_cast<char>(test::kRawRecordBytes >> 8);
    input.append(reinterpret_cast<const char*>(&record.kind), test::kRawRecordBytes);
  }
  return input;
}

std::string logCommand(std::string names, char value) {
  names.resize(kLogCommandTextBytes);
  return names + value;
}

void writeMessages(const fs::path& folder) {
  for (const Message& message : kMessages) {
    const std::string name(message.name);
    const std::string request = messageText(static_cast<int>(message.code), message.request);
    const bool to_browser = message.direction == Direction::kToBrowser;
    write(folder / (to_browser ? "browser_dispatcher" : "plugin_dispatchers") / name, request);
    write(folder / "record_joiner" / name,
          asRecords(message.delivery == Delivery::kSync ? test::kRawRequest : test::kRawOneWay, request));
    if (message.delivery != Delivery::kSync) continue;
    for (int reader = 0; reader < kReplyReaders; ++reader) {
      write(folder / "reply_readers" / (name + '_' + std::to_string(reader)),
            static_cast<char>(reader) + messageText(message.reply_code, message.reply));
    }
  }
  for (const std::size_t length : {0U, 1025U, 1026U, 16384U}) {
    write(folder / "record_joiner" / ("length_" + std::to_string(length)),
          asRecords(test::kRawReply, std::string(length, 'x')));
  }
}

void writeLogCommands(const fs::path& folder) {
  write(folder / "add", logCommand("player|tuner", static_cast<char>(kModuleFull)));
  write(folder / "remove", logCommand("player", static_cast<char>(kModuleFull)) +
                               logCommand("player|", static_cast<char>(kModuleRemoved)));
  write(folder / "clear", logCommand(kLogClearCommand, 0));
}

void writeDictionary(const fs::path& file) {
  std::vector<std::string> words{"\"{\"", "\"}\"", "\"[\"",    "\"]\"",
                                 "\":\"", "\",\"", "\"null\"", "\"true\""};
  for (const Message& message : kMessages) {
    words.push_back("\"\\\"t\\\":" + std::to_string(static_cast<int>(message.code)) + '"');
    for (const Members* members : {&message.request, &message.reply}) {
      for (const Member& member : *members) words.push_back("\"\\\"" + std::string(member.key) + "\\\":\"");
    }
  }
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  std::string content;
  for (const std::string& word : words) content += word + '\n';
  write(file, content);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("Usage: write_seeds FOLDER\n", stderr);
    return 2;
  }
  const fs::path folder = argv[1];
  writeMessages(folder);
  writeLogCommands(folder / "log_command");
  writeDictionary(folder / "words.dict");
  return 0;
}
