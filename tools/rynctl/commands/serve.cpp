// `rynctl serve` and `rynctl listen`: the other end of the bridge.

#include <unistd.h>

#include <set>

#include "ipc/protocol/envelope.h"
#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/peer/applications.h"
#include "tools/rynctl/peer/script.h"
#include "tools/rynctl/peer/simulated_peer.h"
#include "tools/rynctl/system/place.h"
#include "tools/rynctl/system/wait.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

ExitCode serve(const ServeOptions& options) {
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

ExitCode listen(const ServeOptions& options) {
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
        const bool yes = (message.code == "IsObjectSupported"_code && options.supported) ||
                         (message.code == "IsParentalRatingBlocked"_code && options.blocked);
        for (const Member& member : message.reply) response->members[member.key] = yes ? 1 : 0;
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

}  // namespace hbbtv_ryn::rynctl
