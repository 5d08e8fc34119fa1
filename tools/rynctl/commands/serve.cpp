// `rynctl serve` and `rynctl listen`: the other end of the bridge.

#include <unistd.h>

#include <set>

#include "ipc/protocol/envelope.h"
#include "tools/rynctl/commands/command.h"
#include "tools/rynctl/peer/applications.h"
#include "tools/rynctl/peer/script.h"
#include "tools/rynctl/peer/simulated_peer.h"
#include "tools/rynctl/system/place.h"
#include "tools/rynctl/system/wait.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  Side side;
  std::string script;
  std::vector<std::string> names;
  unsigned count = 0;
  bool blocked = false;
  bool supported = false;
  bool force = false;
};

ExitCode serve(const Options& options) {
  const bool scripted = !options.script.empty() || options.side == Side::kPlugin;
  Script script;
  if (!options.script.empty()) script = Script::load(options.script, options.side);
  if (!options.force) requireFree(options.side);
  const Interrupt interrupt;
  Applications applications;
  SimulatedPeer peer(
      options.side,
      [&](const Message& message, const Json::Value& request, Response* response) {
        scripted ? script.respond(message, response) : applications.respond(message, request, response);
      },
      [](const Message*, const std::string& line) { print("{}", line); });
  for (const Event& event : script.events()) peer.schedule(event);
  remark("serving as the {}; Ctrl-C ends it", nameOf(options.side));
  interrupt.wait();
  return ExitCode::kDone;
}

ExitCode listen(const Options& options) {
  std::set<Code> wanted;
  for (const std::string& name : options.names) {
    const Message& message = findByName(name);
    if (receiverOf(message) == Side::kBrowser) {
      throw Failure(ExitCode::kUsage, "{} goes to the browser: 'rynctl serve browser' prints those",
                    message.name);
    }
    wanted.insert(message.code);
  }
  for (const key_t queue : {kNotificationQueueKey, kQueryQueueKey}) {
    if (!options.force) requireFree(Role::kServer, queueAt(queue));
  }
  const Interrupt interrupt;
  unsigned printed = 0;  // only the printing threads, one at a time
  const SimulatedPeer peer(
      Side::kPlugin,
      [&](const Message& message, const Json::Value&, Response* response) {
        const bool blocks = message.code == "IsParentalRatingBlocked"_code;
        if (blocks) set(&response->members, key::kBlocked, options.blocked ? 1 : 0);
        const bool supports = message.code == "IsObjectSupported"_code;
        if (supports) set(&response->members, key::kSupported, options.supported ? 1 : 0);
      },
      [&](const Message* message, const std::string& line) {
        if (!wanted.empty() && (message == nullptr || wanted.count(message->code) == 0)) return;
        if (options.count != 0 && printed == options.count) return;
        print("{}", line);
        if (++printed == options.count) kill(getpid(), SIGINT);
      });
  remark("listening as the plug-in; Ctrl-C ends it");
  interrupt.wait();
  return ExitCode::kDone;
}

}  // namespace

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

}  // namespace hbbtv_ryn::rynctl
