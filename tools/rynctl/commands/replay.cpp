// `rynctl replay`: one side of a capture again, for the living other side.

#include <algorithm>
#include <fstream>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/capture/capture.h"
#include "tools/rynctl/commands/command.h"
#include "tools/rynctl/replay/player.h"
#include "tools/rynctl/system/place.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  std::string capture;
  Player::Rules rules;
  bool fast = false;
  std::string junit;
  bool force = false;
};

/// As the value of an attribute, in ASCII: XML has no place for most control bytes.
std::string xmlText(const std::string& text) {
  std::string result;
  const std::string json = oneLine(text);
  for (const char c : json.substr(1, json.size() - 2)) {
    const bool plain = std::string_view("&<>\"").find(c) == std::string_view::npos;
    result += plain ? std::string(1, c) : compose("&#{};", static_cast<int>(c));
  }
  return result;
}

/// @param error  why it was not played to its end, or nothing.
void writeJunit(std::ostream& file, const std::string& suite, const Player& player,
                const std::string& error) {
  const auto write = [&](const std::string& name, const char* problem, const std::string& text) {
    file << compose("  <testcase classname=\"rynctl.replay\" name=\"{}\">", xmlText(name));
    if (!text.empty()) file << compose("<{} message=\"{}\"/>", problem, xmlText(text));
    file << "</testcase>\n";
  };
  const auto& cases = player.cases();
  const auto failures =
      std::count_if(cases.begin(), cases.end(), [](const auto& one) { return !one.differences.empty(); });
  file << compose("<testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" errors=\"{:d}\">\n", xmlText(suite),
                  cases.size() + 1, failures, !error.empty());
  for (const auto& [name, differences] : cases) write(name, "failure", joined(differences, "; "));
  write("played to the end", "error", error);
  file << "</testsuite>\n";
}

ExitCode replay(const Options& options) {
  constexpr std::size_t kMostDoubts = 20;
  Player::Rules rules = options.rules;
  if (options.fast) rules.speed = 0;
  const Capture capture = Capture::load(options.capture);
  Player player(capture, rules);
  const std::vector<std::string>& doubts = player.doubts();
  for (std::size_t i = 0; i < std::min(doubts.size(), kMostDoubts); ++i) remark("{}", doubts[i]);
  if (doubts.size() > kMostDoubts) remark("and {} more such messages", doubts.size() - kMostDoubts);

  const Interrupt interrupt;
  if (!options.force) requireFree(rules.side);
  std::ofstream junit;
  if (!options.junit.empty()) junit.open(options.junit);
  if (!junit) throw Failure(ExitCode::kUsage, "{} cannot be written", printable(options.junit));
  std::optional<Failure> failure;
  try {
    if (!player.play(interrupt)) failure.emplace(ExitCode::kRefused, "interrupted");
  } catch (const Failure& thrown) {
    failure = thrown;
  }
  remark("{} compared, {}{}", counted(player.cases().size(), "message"),
         counted(player.differences(), "difference"), failure ? "; not played to the end" : "");
  if (junit.is_open()) writeJunit(junit, options.capture, player, failure ? failure->what() : "");
  if (!junit.flush()) throw Failure(ExitCode::kRefused, "{} cannot be written", printable(options.junit));
  if (failure) throw Failure(*failure);
  return player.differences() == 0 ? ExitCode::kDone : ExitCode::kRefused;
}

}  // namespace

void addReplayCommand(CLI::App& app, Action& action) {
  constexpr double kLongest = 86400;
  const auto [command, options] = addCommand(
      app, action, &replay, "replay", "Be one side of a capture again, and compare the other",
      R"(The plug-in's side sends what it has sent, and compares every answer with the recorded one; the
browser's side waits for the plug-in and answers as recorded. Either sends its messages when those that
came before them in the capture have come. Applications that CreateApp makes are told from each other
by what is said of them, not by their numbers.

Each difference is a line: the line of the capture, the message, and 'member: recorded -> seen'. Ends
with 0 when there is none, with 1 when there are some or the play was interrupted. Messages that the
capture holds cut, or half, are named at the beginning.)");
  Player::Rules& rules = options->rules;
  command->add_option("CAPTURE", options->capture, "What 'rynctl monitor --save' has written")->required();
  addSide(command, "--as", rules.side, "The side that is played");
  CLI::Option* const speed =
      addValue(command, "--speed", rules.speed, "X", "X times as fast as it was recorded")
          ->check(CLI::Range(0.001, 1000.0));
  command->add_flag("--fast", options->fast, "Without any pause")->excludes(speed);
  addValue(command, "--ignore", rules.ignored, "KEY,…", "Members that are not compared")
      ->delimiter(',')
      ->allow_extra_args(false);
  addValue(command, "--only", rules.only, "GLOB", "Send and compare only messages whose name matches");
  addValue(command, "--timeout", rules.timeout, "S",
           "Give up an answer, or what was to come next, after S seconds; 0 waits for ever")
      ->capture_default_str()
      ->check(CLI::Range(0.0, kLongest));
  addValue(command, "--junit", options->junit, "FILE", "Write the outcome as JUnit XML too");
  command->add_flag("--force", options->force, "Also when another process holds this side's place");
}

}  // namespace hbbtv_ryn::rynctl
