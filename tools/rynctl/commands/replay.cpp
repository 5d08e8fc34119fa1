// `rynctl replay`: one side of a capture again, for the living other side.

#include <algorithm>
#include <fstream>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/capture/capture.h"
#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/replay/player.h"
#include "tools/rynctl/system/place.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

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

}  // namespace

ExitCode replay(const ReplayOptions& options) {
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

}  // namespace hbbtv_ryn::rynctl
