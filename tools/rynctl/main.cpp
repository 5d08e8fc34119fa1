#include <CLI/CLI.hpp>
#include <exception>

#include "tools/rynctl/commands/command.h"
#include "tools/rynctl/text/output.h"

namespace {

using namespace hbbtv_ryn::rynctl;  // NOLINT(google-build-using-namespace): a program about nothing else

constexpr char kFooter[] =
    R"(A message is named by its name, in any case, or its code. Its members are given as KEY=VALUE, one
argument each: integers also in hexadecimal, flags as 0, 1, false or true, and the keys of a key list as
k0, k1 and so on, from which its length follows.

A queue has one client and one server: call, send, listen and serve refuse to take the place of a living
process, unless they are told --force.

Exit codes:
  0  done
  1  the peer said no: it has no answer, a list is full, or a process does not follow; of doctor:
     something is wrong; of replay: something differs; also: nothing matches, or the output cannot
     be written
  2  the command line is wrong
  3  no peer: nobody is there, or the place or the port is held by another process
  4  a peer that lives has not answered
  5  a queue is full, or a message too large
  6  malformed: members that do not fit the catalogue, a script, an answer
  7  rynctl itself could not go on: no memory, or the system refused what it needs

Colour is used on terminals only, and never when NO_COLOR is set.)";

ExitCode run(int argc, char** argv) {
  CLI::App app("Be either side of an HbbTV bridge, and see everything on it.", "rynctl");
  app.set_version_flag("--version", "rynctl " RYNCTL_VERSION);
  app.set_help_flag("-h,--help", "Print this help and exit");
  // With one required, an unknown command would be answered by "a subcommand is required".
  app.require_subcommand(0, 1);

  Action action;
  for (const auto& add :
       {&addListCommands, &addCallCommands, &addServeCommands, &addQueueCommands, &addMonitorCommand,
        &addReportCommand, &addReplayCommand, &addDoctorCommand, &addLogCommand}) {
    add(app, action);
  }
  app.footer(kFooter);  // commands made later would inherit it

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version arrive here as well, as errors with the code 0.
    return app.exit(error) == 0 ? ExitCode::kDone : ExitCode::kUsage;
  }
  if (!action) {
    std::fputs(app.help().c_str(), stderr);
    return ExitCode::kUsage;
  }
  output();  // before the library can write there
  const ExitCode code = action();
  if (std::fflush(output()) == 0 && std::ferror(output()) == 0) return code;
  throw Failure(ExitCode::kRefused, "standard output cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
  ExitCode code = ExitCode::kBroken;
  try {
    code = run(argc, argv);
  } catch (const Failure& failure) {
    complain(failure.what());
    code = failure.code();
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return static_cast<int>(code);
}
