#include "tools/rynctl/peer/script.h"

#include <fstream>
#include <iterator>
#include <set>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// An object of the script, of which each member is taken by its name.
class Object {
 public:
  Object(std::string where, const Json::Value& value) : where_(std::move(where)), value_(value) {
    if (!value.isObject()) fail("an object is expected, not " + printable(oneLine(value)));
  }

  const Json::Value& take(const std::string& key) {
    known_.insert(key);
    return value_[key];
  }
  unsigned number(const std::string& key, unsigned otherwise) {
    const Json::Value& value = take(key);
    if (!value.isNull() && !value.isUInt()) fail(key + " takes a number of 0 or more");
    return value.isNull() ? otherwise : value.asUInt();
  }
  std::chrono::milliseconds time(const std::string& key) {
    return std::chrono::milliseconds(number(key, 0));
  }
  bool yes(const std::string& key) {
    const Json::Value& value = take(key);
    if (!value.isNull() && !value.isBool()) fail(key + " takes true or false");
    return value.asBool();
  }
  /// When all has been taken that may be there.
  void requireNoMore() const {
    for (const std::string& name : value_.getMemberNames()) {
      if (known_.count(name) > 0) continue;
      fail(compose("nothing is called {} here; there are {}", printable(name),
                   joined({known_.begin(), known_.end()}, ", ")));
    }
  }
  const Message& messageNamed(const std::string& name) const {
    try {
      return findByName(name);
    } catch (const Failure& failure) {
      fail(failure.what());
    }
  }
  [[noreturn]] void fail(const std::string& what) const { failMalformed(where_, what); }
  const std::string& where() const { return where_; }

 private:
  const std::string where_;
  const Json::Value& value_;
  std::set<std::string> known_;
};

Event eventFrom(Object object, Side side) {
  const Json::Value& name = object.take("send");
  const Json::Value& members = object.take("members");
  if (!name.isString()) object.fail("send takes the name of a message");
  Event event;
  event.message = &object.messageNamed(name.asString());
  if (receiverOf(*event.message) == side) {
    object.fail(compose("{} is not sent by the {}", event.message->name, nameOf(side)));
  }
  const Json::Value given = members.isNull() ? Json::Value(Json::objectValue) : members;
  checkMembers(object.where(), given, event.message->request);
  event.members = buildMessage(*event.message, {}, given);
  event.after = object.time("after_ms");
  event.every = object.time("every_ms");
  event.times = object.number("times", event.every.count() > 0 ? 0 : 1);
  if (event.times != 1 && event.every.count() == 0) object.fail("times needs every_ms");
  object.requireNoMore();
  return event;
}

std::vector<Event> eventsFrom(const std::string& where, const Json::Value& list, Side side) {
  if (!list.isNull() && !list.isArray()) failMalformed(where, "a list of events is expected");
  std::vector<Event> events;
  for (const Json::Value& event : list) {
    events.push_back(eventFrom({compose("{}[{}]", where, events.size()), event}, side));
  }
  return events;
}

Response responseFrom(Object object, const Message& message, Side side) {
  Response response;
  const Json::Value& reply = object.take("reply");
  const bool failure = object.yes("failure");
  const bool silence = object.yes("silence");
  if (!reply.isNull() + failure + silence > 1) object.fail("only one of reply, failure and silence can be");
  if (failure) response.kind = Response::Kind::kFailure;
  if (silence) response.kind = Response::Kind::kSilence;
  if (!reply.isNull()) {
    if (message.delivery == Delivery::kOneWay) object.fail("a one-way message has no reply");
    checkMembers(object.where(), reply, message.reply);
    response.members = reply;
  }
  response.delay = object.time("delay_ms");
  response.then = eventsFrom(object.where() + ".then", object.take("then"), side);
  object.requireNoMore();
  return response;
}

}  // namespace

Script Script::load(const std::string& file, Side side) {
  std::ifstream stream(file);
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  if (!stream.is_open() || stream.bad()) {
    throw Failure(ExitCode::kNoPeer, "the script {} cannot be read", printable(file));
  }
  const Json::Value root = parseObject(printable(file), text);
  Object whole(printable(file), root);
  Script script;
  const Json::Value& messages = whole.take("messages");
  script.events_ = eventsFrom("events", whole.take("events"), side);
  whole.requireNoMore();
  if (!messages.isNull() && !messages.isObject()) failMalformed("messages", "an object is expected");
  for (const std::string& name : messages.getMemberNames()) {
    const std::string where = compose("messages.{}", printable(name));
    const Message& message = whole.messageNamed(name);
    if (receiverOf(message) != side) failMalformed(where, compose("not received by the {}", nameOf(side)));
    std::deque<Response>& responses = script.turns_[message.code];
    const Json::Value& value = messages[name];
    if (!value.isArray()) {
      responses.push_back(responseFrom({where, value}, message, side));
      continue;
    }
    if (value.empty()) failMalformed(where, "at least one response is expected");
    for (const Json::Value& one : value) {
      responses.push_back(responseFrom({compose("{}[{}]", where, responses.size()), one}, message, side));
    }
  }
  return script;
}

void Script::respond(const Message& message, Response* response) {
  const auto found = turns_.find(message.code);
  if (found == turns_.end()) return;
  std::deque<Response>& turns = found->second;
  Response next = turns.front();
  if (turns.size() > 1) turns.pop_front();
  for (const std::string& name : next.members.getMemberNames()) {
    response->members[name] = next.members[name];
  }
  next.members = response->members;
  *response = next;
}

}  // namespace hbbtv_ryn::rynctl
