#include <CLI/CLI.hpp>
#include <array>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "command.h"
#include "interrupt.h"
#include "log/control_protocol.h"
#include "log_control.h"
#include "report_table.h"
#include "socket_owner.h"
#include "terminal.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  std::optional<std::uint16_t> port;
  bool watch = false;
  bool json = false;
  std::vector<std::string> modules;
};

/// The commands that take module names.
struct Edit {
  const char* name;
  std::uint8_t value;
  const char* effect;  // as the result line says it
  const char* help;
};
constexpr std::array<Edit, 3> kEdits = {{
    {"on", kModuleFull, "on", "Let modules write all their records"},
    {"errors", kModuleErrorsOnly, "errors only", "List modules, but let them write their errors only"},
    {"off", kModuleRemoved, "off", "Take modules off the list; they write their errors only"},
}};

[[noreturn]] void failWithoutReport(std::optional<std::uint16_t> port) {
  const std::string patience = std::to_string(kReportPatience.count()) + " seconds";
  if (port) {
    throw Failure(ExitCode::NoPeer, "port " + std::to_string(*port) + " has not reported within " +
                                        patience + "; 'rynctl log' shows those that do");
  }
  throw Failure(ExitCode::NoPeer, "no process has reported within " + patience +
                                      "; a process reports after zunt_log_initialize(1), to its own "
                                      "network namespace");
}

ExitCode showReports(const Options& options) {
  LogControl control;
  ReportTable table;
  hearEach(control, options.port, [&](const LogReport& report) {
    table.update(report);
    if (options.json) std::cout << table.json(report.port) << std::endl;
  });
  if (table.empty()) failWithoutReport(options.port);
  if (!options.json) std::cout << table.text(hasColour(STDOUT_FILENO));
  return ExitCode::Done;
}

/// On a terminal one table is kept up to date; elsewhere each change prints the table once more.
void showTable(const ReportTable& table, unsigned changes_shown) {
  constexpr char kHomeAndClear[] = "\033[H\033[2J";
  if (isatty(STDOUT_FILENO) != 0) {
    std::cout << kHomeAndClear << table.text(hasColour(STDOUT_FILENO)) << std::flush;
  } else if (changes_shown != table.changes()) {
    std::cout << (changes_shown == 0 ? "" : "\n") << table.text(false) << std::flush;
  }
}

ExitCode watchReports(const Options& options) {
  constexpr std::chrono::seconds kRefresh{1};
  LogControl control;
  const Interrupt interrupt;
  ReportTable table;
  unsigned changes_shown = 0;
  while (!interrupt.raised() && std::cout) {
    const auto report = control.next(Clock::now() + kRefresh, interrupt.descriptor());
    const bool wanted = report && (!options.port || *options.port == report->port);
    if (wanted) table.update(*report);
    table.dropSilentOnes();
    if (!options.json) {
      showTable(table, changes_shown);
    } else if (wanted) {
      std::cout << table.json(report->port) << std::endl;
    }
    changes_shown = table.changes();
  }
  return ExitCode::Done;
}

std::string describe(const LogOutcome& outcome, const std::optional<SocketOwner>& owner) {
  std::string text = "port " + std::to_string(outcome.port);
  if (owner) text += " (" + printable(owner->name) + ", pid " + std::to_string(owner->pid) + ")";
  switch (outcome.effect) {
    case LogOutcome::Effect::Refused:
      return text + ": not taken, the list of " + std::to_string(kMaxModules) +
             " modules is full: " + printable(joined(outcome.refused, ", "));
    case LogOutcome::Effect::NotShown:
      return text + ": its reports do not show the change; does another tool edit the list?";
    case LogOutcome::Effect::Silent:
      return text + ": has not reported since the command was sent";
    case LogOutcome::Effect::Shown:
      break;
  }
  return text;
}

/// @param done  what is said of the processes that have obeyed.
ExitCode apply(const LogCommand& command, const std::string& done, std::optional<std::uint16_t> port) {
  LogControl control;
  const auto outcomes = applyToEach(control, command, port);
  if (outcomes.empty()) failWithoutReport(port);

  ExitCode code = ExitCode::Done;
  std::set<long> obeying;  // process ids; a process with several control threads counts once
  const bool colour = hasColour(STDERR_FILENO);
  for (const LogOutcome& outcome : outcomes) {
    const auto owner = findUdpSocketOwner(outcome.port);
    if (outcome.effect == LogOutcome::Effect::Shown) {
      obeying.insert(owner ? long{owner->pid} : -long{outcome.port});
      continue;
    }
    std::cerr << styled(Style::Problem, "rynctl:", colour) << ' ' << describe(outcome, owner) << '\n';
    if (outcome.effect != LogOutcome::Effect::Silent) {
      code = ExitCode::Refused;
    } else if (code == ExitCode::Done) {
      code = ExitCode::NoAnswer;
    }
  }
  if (!obeying.empty()) {
    std::cout << done << " (" << obeying.size() << (obeying.size() == 1 ? " process)\n" : " processes)\n");
  }
  return code;
}

void addPortOption(CLI::App& command, Options& options, const char* help) {
  constexpr std::uint16_t kHighestPort = 65535;
  command.add_option("--port", options.port, help)
      ->type_name("N")
      ->check(CLI::Range(std::uint16_t{1}, kHighestPort));
}

std::vector<std::string> withoutRepeats(const std::vector<std::string>& modules) {
  std::vector<std::string> once;
  std::set<std::string> seen;
  for (const std::string& module : modules) {
    if (seen.insert(module).second) once.push_back(module);
  }
  return once;
}

}  // namespace

void addLogCommand(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();

  CLI::App* const log = app.add_subcommand(
      "log", "Show the processes that report their logging, or change what their modules write");
  log->require_subcommand(0, 1);
  addPortOption(*log, *options, "Only the process that reports from port N");
  CLI::Option* const watch =
      log->add_flag("-w,--watch", options->watch, "Keep on showing, until interrupted");
  CLI::Option* const json = log->add_flag("--json", options->json, "Print each report as a line of JSON");

  const CLI::Validator module_name(&LogCommand::whyNotAName, "", "module name");
  for (const Edit& edit : kEdits) {
    CLI::App* const command = log->add_subcommand(edit.name, edit.help);
    addPortOption(*command, *options, "Only the process that reports from port N");
    command->add_option("MODULE", options->modules, "Module names, at most 32 bytes each")
        ->required()
        ->check(module_name);
    command->excludes(watch);
    command->excludes(json);
    command->callback([options, &action, &edit] {
      const auto modules = withoutRepeats(options->modules);
      if (modules.size() > kMaxModules) {
        throw CLI::ValidationError("MODULE",
                                   "a list holds " + std::to_string(kMaxModules) + " modules at most");
      }
      action = [options, modules, &edit] {
        return apply(LogCommand::set(modules, edit.value),
                     printable(joined(modules, ", ")) + ": " + edit.effect, options->port);
      };
    });
  }

  CLI::App* const clear = log->add_subcommand("clear", "Take every module off the list");
  addPortOption(*clear, *options, "Only the process that reports from port N");
  clear->excludes(watch);
  clear->excludes(json);
  clear->callback([options, &action] {
    action = [options] { return apply(LogCommand::clear(), "all modules: off", options->port); };
  });

  // Subcommands made later would inherit it.
  log->footer(
      "Without a command: listens until each process has reported and shows the port of its control\n"
      "thread, its modules and the age of the report. A report does not tell full output from errors.\n"
      "A command answers the next report of each process and waits until it shows the effect.");
  log->callback([options, &action, log] {
    if (!log->get_subcommands().empty()) return;
    action = [options] { return options->watch ? watchReports(*options) : showReports(*options); };
  });
}

}  // namespace hbbtv_ryn::rynctl
