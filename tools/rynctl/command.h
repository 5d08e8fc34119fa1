/// @file
/// How a group of commands joins the tool.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_COMMAND_H
#define HBBTV_RYN_TOOLS_RYNCTL_COMMAND_H

#include <CLI/App.hpp>
#include <functional>

#include "exit_code.h"

namespace hbbtv_ryn::rynctl {

/// What the command line asks for. A group's parse callbacks set it; main() runs it when the whole line
/// has been accepted.
using Action = std::function<ExitCode()>;

/// Each adds its subcommands to `app`. `action` outlives the parse.
void addCallCommands(CLI::App& app, Action& action);
void addDoctorCommand(CLI::App& app, Action& action);
void addListCommands(CLI::App& app, Action& action);
void addLogCommand(CLI::App& app, Action& action);
void addMonitorCommand(CLI::App& app, Action& action);
void addQueueCommands(CLI::App& app, Action& action);
void addServeCommands(CLI::App& app, Action& action);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_COMMAND_H
