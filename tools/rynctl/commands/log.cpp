// `rynctl log`: the logging of the running processes.

#include <unistd.h>

#include <set>

#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/system/log_control.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/text/output.h"
#include "tools/rynctl/text/table.h"

namespace hbbtv_ryn::rynctl {

namespace {

[[noreturn]] void failWithoutReport(std::optional<std::uint16_t> port) {
  throw Failure(
      ExitCode::kNoPeer,
      "{} has reported within {} seconds; a process reports after zunt_log_initialize(1), to its own "
      "network namespace",
      port ? compose("no process on port {}", *port) : "no process", kReportPatience.count());
}

struct Reporter {
  LogReport report;
  Process process;
};

using Reporters = std::map<std::uint16_t, Reporter>;

/// @return whether it shows something new.
bool update(Reporters& reporters, const LogReport& report) {
  auto [at, added] = reporters.try_emplace(report.port);
  Reporter& reporter = at->second;
  if (added) reporter.process = findUdpPortOwner(report.port);
  const bool changed = added || reporter.report.modules != report.modules;
  reporter.report = report;
  return changed;
}

bool dropSilentOnes(Reporters& reporters) {
  const std::size_t before = reporters.size();
  for (auto at = reporters.begin(); at != reporters.end();) {
    const bool silent = std::time(nullptr) - at->second.report.heard > kReportPatience.count();
    at = silent ? reporters.erase(at) : std::next(at);
  }
  return reporters.size() != before;
}

Table tableOf(const Reporters& reporters, bool json) {
  Table table(json, {"PORT", "PROCESS", "REPORTED", "MODULES"});
  for (const auto& [port, reporter] : reporters) {
    const auto& [report, process] = reporter;
    const bool known = process.pid != 0;
    Json::Value modules(Json::arrayValue);
    for (const std::string& module : report.modules) modules.append(module);
    table.add(jsonObject({{"port", port},
                          {"pid", known ? Json::Value(process.pid) : Json::Value()},
                          {"process", known ? Json::Value(process.name) : Json::Value()},
                          {"modules", modules},
                          {"time", Json::Int64{report.heard}}}),
              {compose("{}", port), process.text(), ageText(report.heard),
               report.modules.empty() ? "-" : printable(joined(report.modules, ", "))});
  }
  return table;
}

/// On a terminal the table is kept up to date; elsewhere each change prints it once more. As JSON each
/// report is printed.
ExitCode watchReports(const LogOptions& options) {
  const LogControl control;
  const Interrupt interrupt;
  const bool terminal = isatty(fileno(output())) != 0;
  Reporters reporters;
  while (!interrupt.raised() && std::ferror(output()) == 0) {
    awaitInput({control.descriptor(), interrupt.descriptor()}, Clock::now() + std::chrono::seconds(1));
    const auto report = control.take();
    bool changed = false;
    if (report && options.port.value_or(report->port) == report->port) {
      changed = update(reporters, *report);
      if (options.json) print("{}", tableOf({*reporters.find(report->port)}, true).text());
    }
    changed |= dropSilentOnes(reporters);
    if (!options.json && (terminal || changed)) redraw(tableOf(reporters, false).text());
  }
  return ExitCode::kDone;
}

std::string textOf(const LogOutcome& outcome) {
  using Effect = LogOutcome::Effect;
  if (outcome.effect == Effect::kSilent) return "has not reported since the command was sent";
  if (outcome.effect == Effect::kNotShown) {
    return "its reports do not show the change; does another tool edit the list?";
  }
  return compose("not taken, the list of {} modules is full: {}", kMaxModules,
                 printable(joined(outcome.refused, ", ")));
}

}  // namespace

ExitCode showLogs(const LogOptions& options) {
  if (options.watch) return watchReports(options);
  Reporters reporters;
  for (const auto& each : hearEach(LogControl(), options.port)) update(reporters, each.second.report);
  if (reporters.empty()) failWithoutReport(options.port);
  print("{}", tableOf(reporters, options.json).text());
  return ExitCode::kDone;
}

ExitCode editLogs(const LogOptions& options, std::uint8_t value, const char* effect) {
  LogCommand command{{}, value};
  std::set<std::string> seen;
  for (const std::string& module : options.modules) {
    if (seen.insert(module).second) command.modules.push_back(module);
  }
  if (seen.size() > kMaxModules) {
    throw Failure(ExitCode::kUsage, "a list holds {} modules at most", kMaxModules);
  }
  const auto outcomes = hearEach(LogControl(), options.port, &command);
  if (outcomes.empty()) failWithoutReport(options.port);
  ExitCode code = ExitCode::kDone;
  std::set<long> obeying;  // process ids; a process with several control threads counts once
  for (const auto& [port, outcome] : outcomes) {
    const Process owner = findUdpPortOwner(port);
    if (outcome.effect == LogOutcome::Effect::kShown) {
      obeying.insert(owner.pid != 0 ? long{owner.pid} : -long{port});
      continue;
    }
    complain(compose("port {}, {}: {}", port, owner.text(), textOf(outcome)));
    if (code != ExitCode::kRefused) {
      code = outcome.effect == LogOutcome::Effect::kSilent ? ExitCode::kNoAnswer : ExitCode::kRefused;
    }
  }
  if (!obeying.empty()) {
    const std::string names = seen.empty() ? "all modules" : printable(joined(command.modules, ", "));
    print("{}: {} ({})\n", names, effect, counted(obeying.size(), "process"));
  }
  return code;
}

}  // namespace hbbtv_ryn::rynctl
