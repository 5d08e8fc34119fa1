// Writes what the fuzzers begin with: every message of the tests' table and its answer, and malformed ones.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "endpoints/messages.h"
#include "ipc/protocol/catalogue.h"
#include "log/control_protocol.h"
#include "tools/support/raw_peer.h"

namespace {

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)
namespace fs = std::filesystem;

void write(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

// As the joiner's fuzzer takes them: a chunk size of 1024, and a length in front of each record.
std::string asRecords(const std::string& text) {
  constexpr char kChunkSize1024 = 2;
  std::string input(1, kChunkSize1024);
  for (const IpcRecord& record : test::rawRecords(IPC_KIND_REPLY, text)) {
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

// As the fuzzer of the messages takes them: a number in front of the text.
void writeMessages(const fs::path& folder) {
  const auto writeText = [&](std::size_t number, const char* name, const std::string& text) {
    write(folder / "messages" / (std::to_string(number) + name), static_cast<char>(number) + text);
  };
  for (std::size_t number = 0; number < 2 * std::size(kMessages); ++number) {
    const test::Message& message = test::messageAt(number);
    writeText(number, "_sent", message.text);
    writeText(number, "_answered", message.reply);
  }
  std::size_t number = 0;
  for (const int code : {207, 209, 234, 275}) {
    for (const std::string& text : test::malformed(test::messageOf(code).text)) {
      writeText(number++, "_malformed", text);
    }
  }
  for (const std::size_t length : {0U, 1025U, 1026U, 16384U}) {
    write(folder / "record_joiner" / ("length_" + std::to_string(length)),
          asRecords(std::string(length, 'x')));
  }
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
  return 0;
}
