// Writes what the fuzzers begin with: every message of the catalogue as each of them takes it, and a
// dictionary of the words of the language.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "ipc/protocol/catalogue.h"
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

// A value of each type, by the type's number, with the members that go with it.
constexpr const char* kValues[] = {
    "2", "1", "true", R"("text")", R"(2,"k0":37,"k1":38)", R"("               1              22")"};

std::string messageText(int code, const Members& members) {
  std::string text = "{\"t\":" + std::to_string(code);
  for (const Member& member : members) {
    text += ",\"" + std::string(member.key) + "\":" + kValues[static_cast<std::size_t>(member.type)];
  }
  return text + '}';
}

// As the joiner's fuzzer takes them: a chunk size of 1024, and a length in front of each record.
std::string asRecords(int kind, const std::string& text) {
  constexpr char kChunkSize1024 = 2;
  std::string input(1, kChunkSize1024);
  for (const IpcRecord& record : test::rawRecords(kind, text)) {
    input += static_cast<char>(test::kRawRecordBytes & 0xff);
    input += static_cast<char>(test::kRawRecordBytes >> 8);
    input.append(reinterpret_cast<const char*>(&record.kind), test::kRawRecordBytes);
  }
  return input;
}

std::string logCommand(std::string names, int value) {
  names.resize(kLogCommandTextBytes);
  return names + static_cast<char>(value);
}

void writeMessages(const fs::path& folder) {
  for (const Message& message : kMessages) {
    const std::string name(message.name);
    const std::string request = messageText(static_cast<int>(message.code), message.request);
    const bool to_browser = message.direction == Direction::kToBrowser;
    write(folder / (to_browser ? "browser_dispatcher" : "plugin_dispatchers") / name, request);
    write(folder / "record_joiner" / name,
          asRecords(message.delivery == Delivery::kSync ? IPC_KIND_REQUEST : IPC_KIND_ONEWAY, request));
    if (message.delivery != Delivery::kSync) continue;
    for (int reader = 0; reader < kReplyReaders; ++reader) {
      write(folder / "reply_readers" / (name + '_' + std::to_string(reader)),
            static_cast<char>(reader) + messageText(message.reply_code, message.reply));
    }
  }
  for (const std::size_t length : {0U, 1025U, 1026U, 16384U}) {
    write(folder / "record_joiner" / ("length_" + std::to_string(length)),
          asRecords(IPC_KIND_REPLY, std::string(length, 'x')));
  }
}

void writeDictionary(const fs::path& file) {
  std::set<std::string> words{"{", "}", "[", "]", ":", ",", "null", "true"};
  for (const Message& message : kMessages) {
    words.insert(R"(\"t\":)" + std::to_string(static_cast<int>(message.code)));
    for (const Members* members : {&message.request, &message.reply}) {
      for (const Member& member : *members) words.insert(R"(\")" + std::string(member.key) + R"(\":)");
    }
  }
  std::string content;
  for (const std::string& word : words) content += '"' + word + "\"\n";
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
  write(folder / "log_command" / "add", logCommand("player|tuner", kModuleFull));
  write(folder / "log_command" / "remove",
        logCommand("player", kModuleFull) + logCommand("player|", kModuleRemoved));
  write(folder / "log_command" / "clear", logCommand(kLogClearCommand, 0));
  writeDictionary(folder / "words.dict");
  return 0;
}
