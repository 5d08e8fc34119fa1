// `rynctl replay`: one side of a capture again, for the living other side.

#include <CLI/CLI.hpp>
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
  std::string side;
  double speed = 1;
  bool fast = false;
  std::vector<std::string> ignored;
  std::string only = "*";
  double timeout = 10;
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

void writeJunit(std::ostream& file, const std::string& suite, const Player& player,
                const std::string& error) {
  const auto one = [&](const std::string& name, const char* problem, const std::string& text) {
    file << compose("  <testcase classname=\"rynctl.replay\" name=\"{}\">", xmlText(name));
    if (!text.empty()) file << compose("<{} message=\"{}\"/>", problem, xmlText(text));
    file << "</testcase>\n";
  };
  file << compose("<testsuite name=\"{}\">\n", xmlText(suite));
  for (const auto& [name, differences] : player.cases()) one(name, "failure", joined(differences, "; "));
  one("played to the end", "error", error);
  file << "</testsuite>\n";
}

ExitCode replay(const Options& options) {
  constexpr std::size_t kMostDoubts = 20;
  const Side side = options.side == "browser" ? Side::kBrowser : Side::kPlugin;
  const Capture capture = Capture::load(options.capture);
  Player player(capture, {side,
                          options.fast ? 0 : options.speed,
                          {options.ignored.begin(), options.ignored.end()},
                          options.only,
                          Seconds(options.timeout)});
  std::vector<std::string> doubts = capture.notes;
  doubts.insert(doubts.end(), player.doubts().begin(), player.doubts().end());
  for (std::size_t i = 0; i < std::min(doubts.size(), kMostDoubts); ++i) remark("{}", doubts[i]);
  if (doubts.size() > kMostDoubts) remark("and {} more such messages", doubts.size() - kMostDoubts);

  const Interrupt interrupt;
  if (!options.force) requireFree(side);
  std::ofstream junit;
  if (!options.junit.empty()) junit.open(options.junit);
  if (!junit) throw Failure(ExitCode::kUsage, "{} cannot be written", printable(options.junit));
  const auto end = [&](const std::string& error) {
    remark("{} compared, {}{}", counted(player.cases().size(), "message"),
           counted(player.differences(), "difference"), error.empty() ? "" : "; not played to the end");
    if (!junit.is_open()) return;
    writeJunit(junit, options.capture, player, error);
    if (!junit.flush()) throw Failure(ExitCode::kRefused, "{} cannot be written", printable(options.junit));
  };
  try {
    const bool whole = player.play(interrupt);
    end(whole ? "" : "interrupted");
    return whole && player.differences() == 0 ? ExitCode::kDone : ExitCode::kRefused;
  } catch (const Failure& failure) {
    end(failure.what());
    throw;
  }
}

}  // namespace

void addReplayCommand(CLI::App& app, Action& action) {
  constexpr double kLongest = 86400;
  const auto options = std::make_shared<Options>();
  CLI::App* const command = addCommand(
      app, action, options, &replay, "replay", "Be one side of a capture again, and compare the other",
      R"(The plug-in's side sends what it has sent, and compares every answer with the recorded one; the
browser's side waits for the plug-in and answers as recorded. Either sends its messages when those that
came before them in the capture have come. Applications that CreateApp makes are told from each other
by what is said of them, not by their numbers.

Each difference is a line: the line of the capture, the message, and 'member: recorded -> seen'. Ends
with 0 when there is none, with 1 when there are some or the play was interrupted. Messages that the
capture holds cut, or half, are named at the beginning.)");
  command->add_option("CAPTURE", options->capture, "What 'rynctl monitor --save' has written")->required();
  command->add_option("--as", options->side, "plugin or browser: the side that is played")
      ->required()
      ->check(CLI::IsMember({"plugin", "browser"}));
  CLI::Option* const speed =
      addValue(command, "--speed", options->speed, "X", "X times as fast as it was recorded")
          ->check(CLI::Range(0.001, 1000.0));
  command->add_flag("--fast", options->fast, "Without any pause")->excludes(speed);
  addValue(command, "--ignore", options->ignored, "KEY,…", "Members that are not compared")
      ->delimiter(',')
      ->allow_extra_args(false);
  addValue(command, "--only", options->only, "GLOB", "Send and compare only messages whose name matches");
  addValue(command, "--timeout", options->timeout, "S",
           "Give up an answer, or what was to come next, after S seconds; 0 waits for ever")
      ->capture_default_str()
      ->check(CLI::Range(0.0, kLongest));
  addValue(command, "--junit", options->junit, "FILE", "Write the outcome as JUnit XML too");
  command->add_flag("--force", options->force, "Also when another process holds this side's place");
}

}  // namespace hbbtv_ryn::rynctl
