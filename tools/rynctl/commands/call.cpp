// `rynctl call` and `rynctl send`: one end of the bridge by hand.

#include <iostream>
#include <iterator>

#include "ipc/protocol/envelope.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/system/client.h"
#include "tools/rynctl/system/place.h"
#include "tools/rynctl/system/wait.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// The message with its text, when this end of its queue may be taken.
struct Outgoing {
  const Message& message;
  std::string text;
};

Outgoing prepare(const CallOptions& options, Delivery delivery) {
  const Message& message = findByName(options.name);
  if (message.delivery != delivery) {
    throw Failure(ExitCode::kUsage, "{0} is {1}: use 'rynctl {2} {0}'", message.name,
                  deliveryName(message.delivery), delivery == Delivery::kSync ? "send" : "call");
  }
  const bool piped = options.json == "-";
  const std::string json = piped ? std::string(std::istreambuf_iterator<char>(std::cin), {}) : options.json;
  const Json::Value members = parseObject(std::string(message.name), json);
  const std::string text = serialise(buildMessage(message, options.assignments, members));
  if (!options.force) requireFree(Role::kClient, queueAt(queueOf(message)));
  return {message, text};
}

}  // namespace

ExitCode call(const CallOptions& options) {
  const auto [message, text] = prepare(options, Delivery::kSync);
  const Reply reply = Client(message).ask(text, Seconds(options.timeout));
  if (reply.failure) {
    throw Failure(ExitCode::kRefused, "the {} process has no answer to {} ({} us)",
                  nameOf(receiverOf(message)), message.name, reply.took.count());
  }
  Json::Value members;
  if (!parse(reply.text.c_str(), &members)) {
    throw Failure(ExitCode::kMalformed, "the answer is no JSON object: {}", onOneLine(reply.text));
  }
  print("{}\n", oneLine(members));
  remark("answered in {} us", reply.took.count());
  return ExitCode::kDone;
}

ExitCode send(const CallOptions& options) {
  const auto [message, text] = prepare(options, Delivery::kOneWay);
  const Interrupt interrupt;
  const Client client(message);
  unsigned sent = 0;
  do {
    client.tell(text, options.force);
    ++sent;
  } while (sent != options.repeat && !interrupt.raised(std::chrono::milliseconds(options.every)));
  remark("sent {}", counted(sent, "message"));
  return ExitCode::kDone;
}

}  // namespace hbbtv_ryn::rynctl
