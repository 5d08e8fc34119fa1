// How a group of commands joins the tool.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_COMMAND_H
#define HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_COMMAND_H

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>

#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/message_text.h"

namespace hbbtv_ryn::rynctl {

/// What the command line asks for: main() runs it when the whole line has been accepted.
using Action = std::function<ExitCode()>;

/// Adds a subcommand that is performed with the options that the line has set: those returned.
template <typename Options>
std::pair<CLI::App*, std::shared_ptr<Options>> addCommand(CLI::App& app, Action& action,
                                                          ExitCode (*perform)(const Options&),
                                                          const char* name, const char* help,
                                                          const char* footer = "") {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand(name, help);
  command->footer(footer);
  command->callback([=, &action] { action = [=] { return perform(*options); }; });
  return {command, options};
}

/// Adds an option with a value, which the help shows as `value_name`.
template <typename Value>
CLI::Option* addValue(CLI::App* command, const char* name, Value& value, const char* value_name,
                      const char* help) {
  return command->add_option(name, value, help)->type_name(value_name);
}

/// Adds an argument or option that names one of the two processes.
inline void addSide(CLI::App* command, const char* name, Side& side, const char* help) {
  const auto take = [&side](const std::string& word) {
    side = word == "browser" ? Side::kBrowser : Side::kPlugin;
  };
  command->add_option_function<std::string>(name, take, help)
      ->required()
      ->check(CLI::IsMember({"browser", "plugin"}));
}

/// Each adds its subcommands to `app`. `action` outlives the parse.
void addCallCommands(CLI::App& app, Action& action);
void addDoctorCommand(CLI::App& app, Action& action);
void addListCommands(CLI::App& app, Action& action);
void addLogCommand(CLI::App& app, Action& action);
void addMonitorCommand(CLI::App& app, Action& action);
void addQueueCommands(CLI::App& app, Action& action);
void addReplayCommand(CLI::App& app, Action& action);
void addReportCommand(CLI::App& app, Action& action);
void addServeCommands(CLI::App& app, Action& action);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_COMMAND_H
