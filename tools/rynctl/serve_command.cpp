/// @file
/// `rynctl serve` and `rynctl listen`: the other end of the bridge.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "app_model_peer.h"
#include "channel.h"
#include "command.h"
#include "interrupt.h"
#include "ipc/protocol/envelope.h"
#include "message_text.h"
#include "place.h"
#include "script.h"
#include "simulated_peer.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  std::string side;
  std::string script;
  std::vector<std::string> names;
  unsigned count = 0;
  bool blocked = false;
  bool supported = false;
  bool force = false;
};

void awaitInterrupt(const Interrupt& interrupt, int other = -1) {
  pollfd waits[] = {{interrupt.descriptor(), POLLIN, 0}, {other, POLLIN, 0}};
  while (poll(waits, 2, -1) < 0) continue;
}

/// All that the side has, as server and as client.
std::vector<Place> placesOf(Side side) {
  std::vector<Place> places;
  for (const QueueName& queue : kQueues) {
    if (queue.carriesReplies()) continue;
    places.push_back({queue.reader == side ? Place::Role::kServer : Place::Role::kClient, queue.key});
  }
  return places;
}

ExitCode serve(const Options& options) {
  const Side side = options.side == "browser" ? Side::kBrowser : Side::kPlugin;
  const bool scripted = !options.script.empty() || side == Side::kPlugin;
  Script script;
  if (!options.script.empty()) script = Script::load(options.script, side);
  requireFree(placesOf(side), options.force);

  const OwnOutput output;
  const Interrupt interrupt;
  AppModelPeer model;
  SimulatedPeer peer(
      side,
      [&](const Message& message, const Json::Value& request) {
        return scripted ? script.respond(message, request) : model.respond(message, request);
      },
      [](const Message*, const std::string& line) { std::cout << line << std::endl; });
  for (const Event& event : script.events()) peer.schedule(event);
  std::cerr << "serving as the " << nameOf(side) << "; Ctrl-C ends it" << std::endl;
  awaitInterrupt(interrupt);
  return ExitCode::Done;
}

Response answerQuery(const Options& options, const Message& message, const Json::Value& request) {
  Response response;
  response.members = defaultReply(message, request);
  if (message.code == Code::IsParentalRatingBlocked) {
    set(&response.members, key::kBlocked, flag(options.blocked));
  } else if (message.code == Code::IsObjectSupported) {
    set(&response.members, key::kSupported, flag(options.supported));
  }
  return response;
}

/// The lines that were asked for, until there were enough.
class ListenPrinter {
 public:
  ListenPrinter(std::set<Code> wanted, unsigned count) : wanted_(std::move(wanted)), count_(count) {
    if (pipe2(ends_, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  }
  ~ListenPrinter() {
    for (const int end : ends_) close(end);
  }
  ListenPrinter(const ListenPrinter&) = delete;
  ListenPrinter& operator=(const ListenPrinter&) = delete;

  void print(const Message* message, const std::string& line) {
    const bool wanted = wanted_.empty() || (message != nullptr && wanted_.count(message->code) > 0);
    if (!wanted || (count_ != 0 && printed_ == count_)) return;
    std::cout << line << std::endl;
    if (++printed_ == count_) {
      if (write(ends_[1], "", 1) < 0) std::abort();  // an empty pipe takes a byte
    }
  }

  /// Becomes readable when the last line has been printed.
  int done() const { return ends_[0]; }

 private:
  const std::set<Code> wanted_;
  const unsigned count_;
  unsigned printed_ = 0;  // only the printing threads, one at a time
  int ends_[2];
};

ExitCode listen(const Options& options) {
  std::set<Code> wanted;
  for (const std::string& name : options.names) {
    const Message& message = findByName(name);
    if (message.direction != Direction::kToPlugin) {
      throw Failure(ExitCode::Usage, std::string(message.name) +
                                         " goes to the browser: 'rynctl serve browser' prints those");
    }
    wanted.insert(message.code);
  }
  requireFree({{Place::Role::kServer, kNotificationQueueKey}, {Place::Role::kServer, kQueryQueueKey}},
              options.force);
  const OwnOutput output;
  const Interrupt interrupt;
  ListenPrinter printer(wanted, options.count);
  const SimulatedPeer peer(
      Side::kPlugin,
      [&](const Message& message, const Json::Value& request) {
        return answerQuery(options, message, request);
      },
      [&](const Message* message, const std::string& line) { printer.print(message, line); });
  std::cerr << "listening as the plug-in; Ctrl-C ends it" << std::endl;
  awaitInterrupt(interrupt, printer.done());
  return ExitCode::Done;
}

}  // namespace

void addServeCommands(CLI::App& app, Action& action) {
  constexpr char kForceHelp[] = "Also when another process holds this end of the queues";
  const auto options = std::make_shared<Options>();

  CLI::App* const listen_command =
      app.add_subcommand("listen", "Be the plug-in: print what the browser tells, answer what it asks");
  listen_command->add_option("NAME", options->names, "Print these messages only");
  listen_command->add_option("-n,--count", options->count, "End after N lines")->type_name("N");
  listen_command->add_flag("--blocked", options->blocked, "Answer that the parental rating blocks");
  listen_command->add_flag("--supported", options->supported, "Answer that the object type is supported");
  listen_command->add_flag("--force", options->force, kForceHelp);
  listen_command->callback([options, &action] { action = [options] { return listen(*options); }; });

  CLI::App* const serve_command =
      app.add_subcommand("serve", "Be the browser or the plug-in: answer, and print each message");
  serve_command->add_option("SIDE", options->side, "browser or plugin")
      ->required()
      ->check(CLI::IsMember({"browser", "plugin"}));
  serve_command->add_option("--script", options->script, "Answer as a JSON file says; see rynctl(1)")
      ->type_name("FILE");
  serve_command->add_flag("--force", options->force, kForceHelp);
  serve_command->footer(
      "Without a script the browser keeps a small set of applications and reports what becomes of them;\n"
      "the plug-in answers its queries with no.");
  serve_command->callback([options, &action] { action = [options] { return serve(*options); }; });
}

}  // namespace hbbtv_ryn::rynctl
