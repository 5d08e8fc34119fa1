// What the tool says of itself, what its manual page says and what the shell completes are the same.

#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tool.h"

namespace hbbtv_ryn::test {
namespace {

using Words = std::set<std::string>;

/// The long options that the text names.
Words optionsIn(const std::string& text) {
  Words options;
  for (auto at = text.find("--"); at != std::string::npos; at = text.find("--", at + 2)) {
    auto end = at + 2;
    while (end < text.size() && (std::islower(static_cast<unsigned char>(text[end])) != 0)) ++end;
    if (end > at + 2) options.insert(text.substr(at, end - at));
  }
  return options;
}

Words subcommands() {
  Words names;
  std::istringstream help(rynctl({"--help"}).out);
  bool inside = false;
  for (std::string line; std::getline(help, line);) {
    if (inside && line.rfind("  ", 0) == 0 && line[2] != ' ') {
      names.insert(line.substr(2, line.find(' ', 2) - 2));
    }
    inside = inside || line.rfind("Subcommands:", 0) == 0;
  }
  return names;
}

std::string helpOf(const std::string& command) {
  std::string help = rynctl({command, "--help"}).out;
  if (command == "log") {
    for (const char* edit : {"on", "errors", "off", "clear"}) help += rynctl({command, edit, "--help"}).out;
  }
  return help;
}

/// The section of a command, with its hyphens unescaped.
std::string manualOf(const std::string& command) {
  std::ifstream file(RYNCTL_SOURCE_DIR "/rynctl.1");
  std::string section;
  bool inside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind(".SS", 0) == 0 || line.rfind(".SH", 0) == 0) inside = line == ".SS " + command;
    if (inside) section += line + '\n';
  }
  for (auto at = section.find("\\-"); at != std::string::npos; at = section.find("\\-", at))
    section.erase(at, 1);
  return section;
}

TEST(RynctlDocumentationTest, TheManualPageHasEveryCommandWithItsOptions) {
  const Words commands = subcommands();
  ASSERT_LE(12U, commands.size());
  for (const std::string& command : commands) {
    Words options = optionsIn(helpOf(command));
    options.erase("--help");
    EXPECT_EQ(options, optionsIn(manualOf(command))) << command;
    EXPECT_NE("", manualOf(command)) << command;
  }
}

/// What bash offers behind the words, the last of which is being typed.
Words completed(const std::vector<std::string>& words) {
  std::string line = "source '" RYNCTL_SOURCE_DIR "/rynctl.bash'; COMP_WORDS=('" RYNCTL "'";
  for (const std::string& word : words) line += " '" + word + "'";
  line += "); COMP_CWORD=" + std::to_string(words.size()) + "; _rynctl; printf '%s\\n' \"${COMPREPLY[@]}\"";
  const std::string command = "bash -c \"" + [&] {
    std::string escaped;
    for (const char c : line)
      escaped += c == '"' || c == '$' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    return escaped;
  }() + "\"";
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> bash(popen(command.c_str(), "r"), &pclose);
  Words offered;
  std::array<char, 256> word{};
  while (std::fgets(word.data(), word.size(), bash.get()) != nullptr) {
    std::string text = word.data();
    text.erase(text.find_last_not_of('\n') + 1);
    if (!text.empty()) offered.insert(text);
  }
  return offered;
}

TEST(RynctlDocumentationTest, BashCompletesCommandsOptionsNamesAndKeys) {
  if (isEmulated()) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  Words first = subcommands();
  for (const char* option : {"--help", "--version", "-h"}) first.insert(option);
  EXPECT_EQ(first, completed({""}));
  for (const std::string& command : subcommands()) {
    EXPECT_EQ(optionsIn(rynctl({command, "--help"}).out), completed({command, "--"})) << command;
  }
  EXPECT_EQ((Words{"GetKeyIcon", "GetKeyLabel"}), completed({"call", "GetKey"}));
  EXPECT_EQ((Words{"IsObjectSupported", "IsParentalRatingBlocked"}), completed({"call", "Is"}));
  EXPECT_EQ((Words{"ShowApp"}), completed({"send", "Sh"}));
  EXPECT_EQ((Words{}), completed({"send", "GetV"}));
  EXPECT_EQ((Words{"SendAppLoadError", "SendAppLoaded"}), completed({"listen", "SendAppLoa"}));
  EXPECT_EQ((Words{"appid=", "orgid=", "focus="}), completed({"send", "ActivateInput", ""}));
  EXPECT_EQ((Words{"orgid="}), completed({"call", "GetVisible", "appid=1", "o"}));
  EXPECT_EQ((Words{"browser", "plugin"}), completed({"serve", ""}));
  EXPECT_EQ((Words{"queries", "query-replies"}), completed({"peek", "q"}));
  EXPECT_EQ((Words{"on", "off"}), completed({"log", "o"}));
  EXPECT_EQ((Words{"--port", "--help"}), completed({"log", "on", "--"}));
}

}  // namespace
}  // namespace hbbtv_ryn::test
