// The command line: what it offers, and what it asks for.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>

#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/system/log_control.h"
#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/text/output.h"

namespace {

using namespace hbbtv_ryn::rynctl;  // NOLINT(google-build-using-namespace): a program about nothing else

// What the command line asks for: main() runs it when the whole line has been accepted.
using Action = std::function<ExitCode()>;

// Adds a subcommand that is performed with the options that the line has set: those returned.
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

// Adds an option with a value, which the help shows as `value_name`.
template <typename Value>
CLI::Option* addValue(CLI::App* command, const char* name, Value& value, const char* value_name,
                      const char* help) {
  return command->add_option(name, value, help)->type_name(value_name);
}

// Adds an argument or option that names one of the two processes.
void addSide(CLI::App* command, const char* name, Side& side, const char* help) {
  const auto take = [&side](const std::string& word) {
    side = word == "browser" ? Side::kBrowser : Side::kPlugin;
  };
  command->add_option_function<std::string>(name, take, help)
      ->required()
      ->check(CLI::IsMember({"browser", "plugin"}));
}

void addListCommands(CLI::App& app, Action& action) {
  const auto [list_command, list_options] =
      addCommand(app, action, &list, "list", "Show the messages: code, name, receiver, delivery and keys");
  list_command->add_option("GLOB", list_options->name,
                           "Only names that match, such as 'OpApp_*'; in any case");
  list_command->add_flag("--json", list_options->json, "Print each message as a line of JSON");

  const auto [describe_command, describe_options] = addCommand(
      app, action, &describe, "describe", "Show one message: keys, types, a sample and how to send it");
  describe_command->add_option("NAME", describe_options->name, "Name or code of the message")->required();
  describe_command->add_flag("--json", describe_options->json, "Print it as a line of JSON");
}

void addMessage(CLI::App* command, CallOptions& options) {
  command->add_option("NAME", options.name, "Name or code of the message")->required();
  command->add_option("KEY=VALUE", options.assignments, "Members; 'rynctl describe NAME' shows them");
  addValue(command, "--json", options.json, "TEXT|-",
           "Take the members from a JSON object, - reads standard input; arguments replace single ones");
  command->add_flag("--force", options.force, "Also when another process holds this end of the queue");
}

void addCallCommands(CLI::App& app, Action& action) {
  const auto [call_command, call_options] = addCommand(
      app, action, &call, "call",
      "Ask the browser as the plug-in would, or the plug-in as the browser would",
      R"(Prints the answer as a line of JSON, and the time it took on standard error. Nothing is sent that does
not fit the catalogue. A peer that dies ends the wait at once.)");
  addMessage(call_command, *call_options);
  addValue(call_command, "--timeout", call_options->timeout, "S",
           "Give up after S seconds; 0 waits for ever")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 86400.0));

  const auto [send_command, send_options] =
      addCommand(app, action, &send, "send", "Send a one-way message",
                 "Also with --force: when nobody is there to read it; it waits on the queue then.");
  addMessage(send_command, *send_options);
  addValue(send_command, "--repeat", send_options->repeat, "N", "Send it N times; 0 until interrupted")
      ->capture_default_str();
  addValue(send_command, "--every", send_options->every, "MS", "Wait MS milliseconds between two")
      ->check(CLI::Range(0, 3600000));
}

void addServeCommands(CLI::App& app, Action& action) {
  constexpr char kForceHelp[] = "Also when another process holds this end of the queues";
  const auto [listen_command, listen_options] =
      addCommand(app, action, &listen, "listen",
                 "Be the plug-in: print what the browser tells, answer what it asks with no");
  listen_command->add_option("NAME", listen_options->names, "Print these messages only");
  addValue(listen_command, "-n,--count", listen_options->count, "N", "End after N lines");
  listen_command->add_flag("--blocked", listen_options->blocked, "Answer that the parental rating blocks");
  listen_command->add_flag("--supported", listen_options->supported,
                           "Answer that the object type is supported");
  listen_command->add_flag("--force", listen_options->force, kForceHelp);

  const auto [serve_command, serve_options] = addCommand(
      app, action, &serve, "serve", "Be the browser or the plug-in: answer, and print each message",
      R"(Without a script the browser keeps a small set of applications and reports what becomes of them;
the plug-in answers its queries with no.

A script is a JSON object of two members, either of which may be left out:
  messages  for the name of a message, what is done when it arrives: an object, or a list of objects of
            which each arrival takes the next and the last one stays. A message without an entry is
            answered as by a host without handlers
  events    a list of events, counted from the start
In the object of a message:
  reply     members of the answer; those left out are answered as by a host without handlers
  failure   true: the peer is told that there is no answer
  silence   true: no answer, and nothing more is served, as by a handler that hangs
  delay_ms  milliseconds until the answer; what comes behind waits too
  then      a list of events, counted from the arrival
In an event:
  send, members    a message that this side sends; a query waits for its answer
  after_ms         when; 0 if left out
  every_ms, times  repeated; without times for ever
/usr/share/rynctl/slow_browser.json is an example.)");
  addSide(serve_command, "SIDE", serve_options->side, "The side that is served");
  addValue(serve_command, "--script", serve_options->script, "FILE", "Answer and send as a JSON file says");
  serve_command->add_flag("--force", serve_options->force, kForceHelp);
}

void addQueueCommands(CLI::App& app, Action& action) {
  const auto [queues_command, queues_options] = addCommand(
      app, action, &queues, "queues", "Show the queues, who writes and reads them, and whether they flow",
      R"(States: idle, nothing waits; busy, messages wait and are read; STUCK, messages wait and the living
reader does not read; ORPHANED, messages wait and nobody is there to read them.)");
  addValue(queues_command, "--watch", queues_options->watch, "S",
           "Show them again every S seconds, until interrupted")
      ->check(CLI::Range(0.1, 3600.0));
  queues_command->add_flag("--json", queues_options->json, "Print each queue as a line of JSON");

  const auto [peek_command, peek_options] = addCommand(
      app, action, &peek, "peek", "Show the messages that wait on a queue, decoded, and leave them there",
      "The kernel must be built with CONFIG_CHECKPOINT_RESTORE.");
  peek_command->add_option("QUEUE", peek_options->queue, joined(queueNames(), ", ") + ", or a key")
      ->required();
  addValue(peek_command, "-n,--count", peek_options->count, "N", "Only the first N messages");
  peek_command->add_flag("--json", peek_options->json, "Print each message as a line of JSON");

  const auto [reset_command, reset_options] =
      addCommand(app, action, &reset, "reset", "Take off the queues what dead processes have left there");
  CLI::Option* const all =
      reset_command->add_flag("--all", reset_options->all, "Every message, those of living processes too");
  reset_command
      ->add_flag_callback(
          "--stale", [options = reset_options] { options->all = false; },
          "Only what was sent and would be read by processes that are gone (default)")
      ->excludes(all);
  reset_command->add_flag("--yes", reset_options->yes, "Do not ask");
}

void addMonitorCommand(CLI::App& app, Action& action) {
  const auto [command, options] = addCommand(
      app, action, &monitor, "monitor", "Show the messages of the running processes as they go",
      R"(One line for each message; an answer with the time in flight and in the handler. Switches the module
ryn_trace on in every process that reports its logging, and off at the end, which is Ctrl-C. Ends with the
number of messages and of traces that were lost.)");
  TraceView::Filter& filter = options->filter;
  command->add_option("GLOB", filter.glob, "Only messages whose name matches");
  addValue(command, "--slow", filter.slow, "MS", "Only answers that took MS milliseconds or more")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("--errors", filter.errors,
                    "Only what was dropped, failed or was not answered; with --slow either of both");
  addValue(command, "--save", options->file, "FILE",
           "Write everything to FILE too, whatever is shown: a line of JSON for each trace");
}

void addReportCommand(CLI::App& app, Action& action) {
  const auto [command, options] = addCommand(
      app, action, &report, "report", "Make one page of a capture, to be looked at in any browser",
      R"(Prints the name of the page, which needs no other file and no network. Lines of the capture that
cannot be read are passed over, counted, and named in the page.)");
  command->add_option("CAPTURE", options->capture, "What 'rynctl monitor --save' has written")->required();
  addValue(command, "-o,--output", options->page, "PAGE.html",
           "Where the page goes; beside the capture if not said");
}

void addReplayCommand(CLI::App& app, Action& action) {
  constexpr double kLongest = 86400;
  const auto [command, options] = addCommand(
      app, action, &replay, "replay", "Be one side of a capture again, and compare the other",
      R"(The plug-in's side sends what it has sent, and compares every answer with the recorded one; the
browser's side waits for the plug-in and answers as recorded. Either sends its messages when those that
came before them in the capture have come. Applications that CreateApp makes are told from each other
by what is said of them, not by their numbers.

Each difference is a line: the line of the capture, the message, and 'member: recorded -> seen'. Ends
with 0 when there is none, with 1 when there are some or the play was interrupted. Messages that the
capture holds cut, or half, are named at the beginning.)");
  Player::Rules& rules = options->rules;
  command->add_option("CAPTURE", options->capture, "What 'rynctl monitor --save' has written")->required();
  addSide(command, "--as", rules.side, "The side that is played");
  CLI::Option* const speed =
      addValue(command, "--speed", rules.speed, "X", "X times as fast as it was recorded")
          ->check(CLI::Range(0.001, 1000.0));
  command->add_flag("--fast", options->fast, "Without any pause")->excludes(speed);
  addValue(command, "--ignore", rules.ignored, "KEY,…", "Members that are not compared")
      ->delimiter(',')
      ->allow_extra_args(false);
  addValue(command, "--only", rules.only, "GLOB", "Send and compare only messages whose name matches");
  addValue(command, "--timeout", rules.timeout, "S",
           "Give up an answer, or what was to come next, after S seconds; 0 waits for ever")
      ->capture_default_str()
      ->check(CLI::Range(0.0, kLongest));
  addValue(command, "--junit", options->junit, "FILE", "Write the outcome as JUnit XML too");
  command->add_flag("--force", options->force, "Also when another process holds this side's place");
}

void addDoctorCommand(CLI::App& app, Action& action) {
  const auto [command, options] = addCommand(
      app, action, &doctor, "doctor", "Say what is wrong, and what mends it",
      R"(Looks at kernel limits, servers and readers of the queues, messages that nobody reads, a second server
and the logging ports. Listens for log reports, which takes one to three seconds. Ends with 1 when
something is wrong.)");
  command->add_flag("--json", options->json, "Print each finding as a line of JSON");
}

void addLogCommand(CLI::App& app, Action& action) {
  const auto options = std::make_shared<LogOptions>();
  CLI::App* const log = app.add_subcommand(
      "log", "Show the processes that report their logging, or change what their modules write");
  log->require_subcommand(0, 1);
  CLI::Option* const watch =
      log->add_flag("-w,--watch", options->watch, "Keep on showing, until interrupted");
  CLI::Option* const json = log->add_flag("--json", options->json, "Print each report as a line of JSON");
  const auto add_port = [&](CLI::App* command) {
    addValue(command, "--port", options->port, "N", "Only the process that reports from port N")
        ->check(CLI::Range(1, 65535));
  };
  const auto add = [&](const char* name, const char* help, std::uint8_t value, const char* effect) {
    CLI::App* const command = log->add_subcommand(name, help);
    command->excludes(watch);
    command->excludes(json);
    add_port(command);
    command->callback([=, &action] { action = [=] { return editLogs(*options, value, effect); }; });
    return command;
  };
  for (CLI::App* const command :
       {add("on", "Let modules write all their records", hbbtv_ryn::kModuleFull, "on"),
        add("errors", "List modules, but let them write their errors only", hbbtv_ryn::kModuleErrorsOnly,
            "errors only"),
        add("off", "Take modules off the list; they write their errors only", hbbtv_ryn::kModuleRemoved,
            "off")}) {
    command->add_option("MODULE", options->modules, "Module names, at most 32 bytes each")
        ->required()
        ->check(CLI::Validator(&whyNotAModuleName, "", "module name"));
  }
  add("clear", "Take every module off the list", hbbtv_ryn::kModuleRemoved, "off");
  add_port(log);

  // Subcommands made later would inherit it.
  log->footer(
      R"(Without a command: listens until each process has reported, one or two seconds, and shows the
port of its control thread, the process, the age of the report and the listed modules. A report does
not tell full output from errors. A process reports once it has called zunt_log_initialize(1).

A command answers the next report of each process, waits for the report that shows the effect and says
how many processes have followed. A process lists at most 20 modules.

Only one tool at a time can hear the reports, and only in the network namespace of the processes.)");
  log->callback([options, &action, log] {
    if (log->get_subcommands().empty()) action = [options] { return showLogs(*options); };
  });
}

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
