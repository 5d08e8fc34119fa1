#include "tools/rynctl/system/log_control.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// From the first report on, every living process reports within one cycle; the rest is for a loaded
/// machine.
constexpr std::chrono::milliseconds kWindow{1000 * kLogCycleSeconds + 250};

/// Reports after a command that may still not show it: one that was under way, and one more cycle for a
/// command of somebody else that stood before it.
constexpr int kReportsWithoutEffect = 3;

}  // namespace

bool LogReport::lists(const std::string& module) const {
  return std::find(modules.begin(), modules.end(), module) != modules.end();
}

std::string LogCommand::datagram() const {
  std::string bytes =
      modules.empty() ? kLogClearCommand : joined(modules, std::string(1, kModuleSeparator));
  if (bytes.size() >= kLogCommandTextBytes) {
    throw Failure(ExitCode::kUsage, "the module names are too long for one command");
  }
  bytes.resize(kLogCommandTextBytes);
  return bytes + static_cast<char>(value);
}

bool LogCommand::shownBy(const LogReport& report) const {
  if (modules.empty()) return report.modules.empty();
  return std::all_of(modules.begin(), modules.end(), [&](const std::string& module) {
    return report.lists(module) == (value != kModuleRemoved);
  });
}

std::vector<std::string> LogCommand::refusedBy(LogReport report) const {
  if (value == kModuleRemoved) return {};
  for (auto module = modules.begin(); module != modules.end(); ++module) {
    // A full list ends the edit, also when the module is listed and would only change its value.
    if (report.modules.size() >= kMaxModules) return {module, modules.end()};
    if (!report.lists(*module)) report.modules.push_back(*module);
  }
  return {};
}

std::string whyNotAModuleName(const std::string& module) {
  if (module.empty() || module.size() > kMaxModuleName) {
    return compose("a module name has 1 to {} bytes: {}", kMaxModuleName, module);
  }
  if (module.find(kModuleSeparator) != std::string::npos) {
    return compose("a module name cannot hold '{}': {}", kModuleSeparator, module);
  }
  return module == kLogClearCommand ? "this name is reserved: " + module : "";
}

std::optional<LogReport> LogControl::take() const {
  const auto datagram = port_.take(kLogCommandBytes);
  if (!datagram) return std::nullopt;
  LogReport report{datagram->sender, {}};
  std::istringstream names(datagram->bytes);
  for (std::string name; std::getline(names, name, kModuleSeparator);) report.modules.push_back(name);
  return report;
}

std::optional<LogReport> LogControl::next(Clock::time_point deadline) const {
  while (awaitInput({descriptor()}, deadline)) {
    if (auto report = take()) return report;
  }
  return std::nullopt;
}

namespace {

/// Whether a later report may still change it.
bool isOpen(const LogOutcome& outcome) {
  using Effect = LogOutcome::Effect;
  return outcome.effect == Effect::kSilent ||
         (outcome.effect == Effect::kNotShown && outcome.reports < kReportsWithoutEffect);
}

}  // namespace

std::map<std::uint16_t, LogOutcome> applyToEach(const LogControl& control, const LogCommand& command,
                                                std::optional<std::uint16_t> port) {
  using Effect = LogOutcome::Effect;
  std::map<std::uint16_t, LogOutcome> outcomes;
  auto join_until = Clock::now() + kReportPatience;
  const auto end = [&] {
    auto latest = join_until;
    for (const auto& [each, outcome] : outcomes) latest = std::max(latest, outcome.until);
    return latest;
  };
  while (const auto report = control.next(end())) {
    if (port.value_or(report->port) != report->port) continue;
    const auto now = Clock::now();
    const bool joins = outcomes.count(report->port) == 0;
    if (joins && now >= join_until) continue;
    // No more can join than the one that was asked for.
    if (outcomes.empty()) join_until = port ? now : now + kWindow;
    LogOutcome& outcome = outcomes[report->port];
    if (joins) {
      control.send(report->port, command);
      outcome.refused = command.refusedBy(*report);
      if (!outcome.refused.empty()) outcome.effect = Effect::kRefused;
    } else if (outcome.refused.empty()) {
      ++outcome.reports;
      outcome.effect = command.shownBy(*report) ? Effect::kShown : Effect::kNotShown;
    }
    outcome.until = isOpen(outcome) ? now + kReportPatience : Clock::time_point();
  }
  return outcomes;
}

void hearEach(const LogControl& control, std::optional<std::uint16_t> port,
              const std::function<void(const LogReport&)>& onFirst) {
  std::set<std::uint16_t> heard;
  auto until = Clock::now() + kReportPatience;
  while (const auto report = control.next(until)) {
    if (port && *port != report->port) continue;
    if (heard.empty()) until = Clock::now() + kWindow;
    if (heard.insert(report->port).second) onFirst(*report);
    if (port) return;
  }
}

}  // namespace hbbtv_ryn::rynctl
