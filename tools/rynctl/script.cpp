#include "script.h"

#include <fstream>
#include <iterator>
#include <set>

#include "exit_code.h"
#include "message_build.h"
#include "message_text.h"
#include "terminal.h"
#include "tools/catalogue/catalogue_text.h"

namespace hbbtv_ryn::rynctl {

namespace {

using std::chrono::milliseconds;

constexpr char kMessagesKey[] = "messages";
constexpr char kEventsKey[] = "events";
constexpr char kReplyKey[] = "reply";
constexpr char kFailureKey[] = "failure";
constexpr char kSilenceKey[] = "silence";
constexpr char kDelayKey[] = "delay_ms";
constexpr char kThenKey[] = "then";
constexpr char kSendKey[] = "send";
constexpr char kMembersKey[] = "members";
constexpr char kAfterKey[] = "after_ms";
constexpr char kEveryKey[] = "every_ms";
constexpr char kTimesKey[] = "times";

[[noreturn]] void fail(const std::string& where, const std::string& what) {
  throw Failure(ExitCode::Malformed, where + ": " + what);
}

void requireKeys(const std::string& where, const Json::Value& object, const std::set<std::string>& known) {
  if (!object.isObject()) fail(where, "an object is expected, not " + printable(oneLine(object)));
  for (const std::string& name : object.getMemberNames()) {
    if (known.count(name) > 0) continue;
    fail(where, "nothing is called " + printable(name) + " here; there are " +
                    joined({known.begin(), known.end()}, ", "));
  }
}

unsigned number(const std::string& where, const Json::Value& object, const char* key, unsigned otherwise) {
  if (!object.isMember(key)) return otherwise;
  if (!object[key].isUInt()) fail(where, std::string(key) + " takes a number of 0 or more");
  return object[key].asUInt();
}

bool yes(const std::string& where, const Json::Value& object, const char* key) {
  if (!object.isMember(key)) return false;
  if (!object[key].isBool()) fail(where, std::string(key) + " takes true or false");
  return object[key].asBool();
}

const Message& messageNamed(const std::string& where, const std::string& name) {
  try {
    return findByName(name);
  } catch (const Failure& failure) {
    fail(where, failure.what());
  }
}

bool isSentBy(Side side, const Message& message) {
  return (message.direction == Direction::kToPlugin) == (side == Side::kBrowser);
}

Event eventFrom(const std::string& where, const Json::Value& object, Side side) {
  requireKeys(where, object, {kSendKey, kMembersKey, kAfterKey, kEveryKey, kTimesKey});
  if (!object[kSendKey].isString()) fail(where, "send takes the name of a message");
  Event event;
  event.message = &messageNamed(where, object[kSendKey].asString());
  if (!isSentBy(side, *event.message)) {
    fail(where, std::string(event.message->name) + " is not sent by the " + nameOf(side));
  }
  const Json::Value members =
      object.isMember(kMembersKey) ? object[kMembersKey] : Json::Value(Json::objectValue);
  checkMembers(where, members, event.message->request);
  event.members = buildMessage(*event.message, {}, oneLine(members));
  event.after = milliseconds(number(where, object, kAfterKey, 0));
  event.every = milliseconds(number(where, object, kEveryKey, 0));
  event.times = number(where, object, kTimesKey, event.every.count() > 0 ? 0 : 1);
  if (event.times != 1 && event.every.count() == 0) fail(where, "times needs every_ms");
  return event;
}

std::vector<Event> eventsFrom(const std::string& where, const Json::Value& list, Side side) {
  if (!list.isNull() && !list.isArray()) fail(where, "a list of events is expected");
  std::vector<Event> events;
  for (const Json::Value& object : list) {
    events.push_back(eventFrom(where + '[' + std::to_string(events.size()) + ']', object, side));
  }
  return events;
}

Response responseFrom(const std::string& where, const Json::Value& object, const Message& message,
                      Side side) {
  requireKeys(where, object, {kReplyKey, kFailureKey, kSilenceKey, kDelayKey, kThenKey});
  Response response;
  const bool failure = yes(where, object, kFailureKey);
  const bool silence = yes(where, object, kSilenceKey);
  if (object.isMember(kReplyKey) + failure + silence > 1) {
    fail(where, "only one of reply, failure and silence can be");
  }
  response.kind = failure   ? Response::Kind::kFailure
                  : silence ? Response::Kind::kSilence
                            : Response::Kind::kReply;
  if (object.isMember(kReplyKey)) {
    if (message.delivery == Delivery::kOneWay) fail(where, "a one-way message has no reply");
    checkMembers(where, object[kReplyKey], message.reply);
    response.members = object[kReplyKey];
  }
  response.delay = milliseconds(number(where, object, kDelayKey, 0));
  response.then = eventsFrom(where + '.' + kThenKey, object[kThenKey], side);
  return response;
}

}  // namespace

Script Script::load(const std::string& file, Side side) {
  std::ifstream stream(file);
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  if (!stream.is_open() || stream.bad()) {
    throw Failure(ExitCode::NoPeer, "the script " + printable(file) + " cannot be read");
  }
  const Json::Value root = parseObject(printable(file), text);
  requireKeys(printable(file), root, {kMessagesKey, kEventsKey});

  Script script;
  const Json::Value& messages = root[kMessagesKey];
  if (!messages.isNull() && !messages.isObject()) fail(kMessagesKey, "an object is expected");
  for (const std::string& name : messages.getMemberNames()) {
    const std::string where = std::string(kMessagesKey) + '.' + printable(name);
    const Message& message = messageNamed(where, name);
    if (isSentBy(side, message)) fail(where, std::string("not received by the ") + nameOf(side));
    Turn& turn = script.turns_[message.code];
    const Json::Value& value = messages[name];
    if (!value.isArray()) {
      turn.responses.push_back(responseFrom(where, value, message, side));
      continue;
    }
    if (value.empty()) fail(where, "at least one response is expected");
    for (const Json::Value& object : value) {
      const std::string place = where + '[' + std::to_string(turn.responses.size()) + ']';
      turn.responses.push_back(responseFrom(place, object, message, side));
    }
  }
  script.events_ = eventsFrom(kEventsKey, root[kEventsKey], side);
  return script;
}

Response Script::respond(const Message& message, const Json::Value& request) {
  Response response;
  const auto found = turns_.find(message.code);
  if (found != turns_.end()) {
    Turn& turn = found->second;
    response = turn.responses[turn.next];
    if (turn.next + 1 < turn.responses.size()) ++turn.next;
  }
  // What the script leaves out of a reply is answered as by a host without handlers.
  Json::Value reply = defaultReply(message, request);
  if (response.members.isObject()) {
    for (const std::string& name : response.members.getMemberNames()) reply[name] = response.members[name];
  }
  response.members = reply;
  return response;
}

}  // namespace hbbtv_ryn::rynctl
