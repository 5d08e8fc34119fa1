#include "tools/rynctl/system/log_control.h"

#include <algorithm>
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

/// Answers a process's first report with the command; later ones tell what has become of it.
void apply(const LogCommand& command, const LogReport& report, bool first, const LogControl& control,
           LogOutcome* outcome) {
  using Effect = LogOutcome::Effect;
  if (first) {
    control.send(report.port, command);
    outcome->refused = command.refusedBy(report);
    if (!outcome->refused.empty()) outcome->effect = Effect::kRefused;
  } else if (outcome->refused.empty()) {
    ++outcome->reports;
    outcome->effect = command.shownBy(report) ? Effect::kShown : Effect::kNotShown;
  }
  const bool open = outcome->effect == Effect::kSilent ||
                    (outcome->effect == Effect::kNotShown && outcome->reports < kReportsWithoutEffect);
  outcome->until = open ? Clock::now() + kReportPatience : Clock::time_point();
}

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
  LogReport report{datagram->sender, {}, std::time(nullptr)};
  std::istringstream names(datagram->bytes);
  for (std::string name; std::getline(names, name, kModuleSeparator);) report.modules.push_back(name);
  return report;
}

std::map<std::uint16_t, LogOutcome> hearEach(const LogControl& control, std::optional<std::uint16_t> port,
                                             const LogCommand* command) {
  std::map<std::uint16_t, LogOutcome> outcomes;
  auto join_until = Clock::now() + kReportPatience;
  const auto end = [&] {
    auto latest = join_until;
    for (const auto& [each, outcome] : outcomes) latest = std::max(latest, outcome.until);
    return latest;
  };
  while (awaitInput({control.descriptor()}, end())) {
    const auto report = control.take();
    if (!report || port.value_or(report->port) != report->port) continue;
    const auto now = Clock::now();
    const bool joins = outcomes.count(report->port) == 0;
    if (joins && now >= join_until) continue;
    // No more can join than the one that was asked for.
    if (outcomes.empty()) join_until = port ? now : now + kWindow;
    LogOutcome& outcome = outcomes[report->port];
    if (joins) outcome.report = *report;
    if (command != nullptr) apply(*command, *report, joins, control, &outcome);
  }
  return outcomes;
}

}  // namespace hbbtv_ryn::rynctl
