#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "command.h"
#include "terminal.h"

using hbbtv_ryn::rynctl::Action;
using hbbtv_ryn::rynctl::ExitCode;
using hbbtv_ryn::rynctl::Failure;

namespace {

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 the peer said no, 2 usage, 3 no peer, 4 no answer from a live peer,\n"
    "5 queue full or message too large, 6 malformed. See rynctl(1).";

ExitCode fail(ExitCode code, const char* text) {
  using namespace hbbtv_ryn::rynctl;
  std::cout.flush();
  std::cerr << styled(Style::Problem, "rynctl:", hasColour(STDERR_FILENO)) << ' ' << text << '\n';
  return code;
}

ExitCode run(int argc, char** argv) {
  CLI::App app("Be either side of an HbbTV bridge, and see everything on it.", "rynctl");
  app.set_version_flag("--version", "rynctl " RYNCTL_VERSION);
  app.set_help_flag("-h,--help", "Print this help and exit");
  // With one required, an unknown command would be answered by "a subcommand is required".
  app.require_subcommand(0, 1);
  app.footer(kExitCodes);

  Action action;
  hbbtv_ryn::rynctl::addListCommands(app, action);
  hbbtv_ryn::rynctl::addCallCommands(app, action);
  hbbtv_ryn::rynctl::addServeCommands(app, action);
  hbbtv_ryn::rynctl::addQueueCommands(app, action);
  hbbtv_ryn::rynctl::addMonitorCommand(app, action);
  hbbtv_ryn::rynctl::addDoctorCommand(app, action);
  hbbtv_ryn::rynctl::addLogCommand(app, action);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version arrive here as well, as errors with the code 0.
    return app.exit(error) == 0 ? ExitCode::Done : ExitCode::Usage;
  }
  if (!action) {
    std::cerr << app.help();
    return ExitCode::Usage;
  }
  return action();
}

}  // namespace

int main(int argc, char** argv) {
  ExitCode code = ExitCode::Done;
  try {
    code = run(argc, argv);
    if (!std::cout.flush()) code = fail(ExitCode::Refused, "standard output cannot be written");
  } catch (const Failure& failure) {
    code = fail(failure.code(), failure.what());
  } catch (const std::exception& error) {
    code = fail(ExitCode::NoPeer, error.what());
  }
  return static_cast<int>(code);
}
