#include "tools/rynctl/replay/player.h"

#include <algorithm>
#include <tuple>

#include "ipc/protocol/envelope.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

using trace::Drop;

/// A recorded time of so many microseconds, an hour at most, at this speed.
Seconds span(std::int64_t recorded, double speed) {
  constexpr Seconds kMost = std::chrono::hours(1);
  if (speed == 0) return Seconds::zero();
  return std::clamp(Seconds(std::chrono::microseconds(recorded)) / speed, Seconds::zero(), kMost);
}

std::string textOf(const Exchange& exchange) {
  const std::string members = membersIn(exchange.trace.text, exchange.message, false);
  return compose("line {}: {}{}{}", exchange.trace.at.line, nameText(exchange.message, exchange.trace.code),
                 members.empty() ? "" : " ", members);
}

/// "member: expected -> seen" for each member that differs and is not ignored. Values that every reader
/// takes for the same are the same.
std::vector<std::string> compare(const Members& members, const Json::Value& expected,
                                 const Json::Value& seen, const std::set<std::string>& ignored) {
  const auto truth = [&](const std::string& name, const Json::Value& value) {
    const auto flag = [&](const Member& member) { return name == member.key && isFlag(member.type); };
    return value.isInt() && std::any_of(members.begin(), members.end(), flag) ? value.asBool() : value;
  };
  std::set<std::string> names;
  for (const Json::Value* const message : {&expected, &seen}) {
    for (const std::string& name : message->getMemberNames()) names.insert(name);
  }
  std::vector<std::string> texts;
  for (const std::string& name : names) {
    if (ignored.count(name) > 0 || truth(name, expected[name]) == truth(name, seen[name])) continue;
    const auto text = [&](const Json::Value& message) {
      return message.isMember(name) ? printable(oneLine(message[name])) : "nothing";
    };
    texts.push_back(compose("{}: {} -> {}", printable(name), text(expected), text(seen)));
  }
  return texts;
}

}  // namespace

Ids::Id Ids::idIn(const Json::Value& message) {
  const Json::Value& appid = message[key::kAppid];
  const Json::Value& orgid = message[key::kOrgid];
  return {appid.isInt() ? appid.asInt() : 0, orgid.isInt() ? orgid.asInt() : 0};
}

void Ids::learn(const Json::Value& recorded, const Json::Value& live, bool anew) {
  const Id from = idIn(recorded);
  const Id to = idIn(live);
  if (from.first != 0 && to.first != 0 && (anew || ids_.count(from) == 0)) ids_[from] = to;
}

/// Of an organisation that is not known, the application with this number.
Ids::Id Ids::live(Id recorded) const {
  const auto exact = ids_.find(recorded);
  if (exact != ids_.end()) return exact->second;
  const auto close = ids_.lower_bound({recorded.first, 0});
  const bool same = close != ids_.end() && close->first.first == recorded.first;
  return {same ? close->second.first : recorded.first, recorded.second};
}

Json::Value Ids::live(const Json::Value& recorded) const {
  Json::Value message = recorded;
  if (recorded[key::kAppid].isInt()) {
    const auto [appid, orgid] = live(idIn(recorded));
    message[key::kAppid] = appid;
    if (recorded[key::kOrgid].isInt()) message[key::kOrgid] = orgid;
  }
  const Json::Value& appid_fields = recorded[key::kAppidArray];
  const Json::Value& orgid_fields = recorded[key::kOrgidArray];
  if (recorded[key::kAppNum].isInt() && appid_fields.isString() && orgid_fields.isString()) {
    const int count = std::clamp(recorded[key::kAppNum].asInt(), 0, ZUNT_RYN_MAX_CHILD_APPS);
    int appids[ZUNT_RYN_MAX_CHILD_APPS] = {};
    int orgids[ZUNT_RYN_MAX_CHILD_APPS] = {};
    readIdFields(appid_fields.asString(), count, appids);
    readIdFields(orgid_fields.asString(), count, orgids);
    for (int i = 0; i < count; ++i) std::tie(appids[i], orgids[i]) = live(Id(appids[i], orgids[i]));
    message[key::kAppidArray] = idFields(appids, count);
    message[key::kOrgidArray] = idFields(orgids, count);
  }
  return message;
}

Player::Player(const Capture& capture, Rules rules) : rules_(std::move(rules)), doubts_(capture.notes) {
  const bool both_traced = std::any_of(capture.exchanges.begin(), capture.exchanges.end(),
                                       [](const auto& one) { return one->sent && one->received; });
  for (const auto& exchange : capture.exchanges) add(*exchange, both_traced);
  std::stable_sort(steps_.begin(), steps_.end(),
                   [](const Step& a, const Step& b) { return a.at.line < b.at.line; });
  for (Step& step : steps_) {
    const Message* const message = step.exchange->message;
    if (!step.own) arrivals_[message].open.push_back(&step);
    if (!matches(rules_.only, message->name)) continue;
    step.outcome = &cases_.emplace_back(Case{textOf(*step.exchange), {}});
  }
}

void Player::add(const Exchange& exchange, bool both_traced) {
  const auto doubt = [&](const char* what) {
    doubts_.push_back(compose("{}: {}", textOf(exchange), what));
  };
  const bool own = exchange.to() != rules_.side;
  const bool cut = exchange.trace.isCut();
  const auto& seen = own == exchange.sent.has_value() ? exchange.sent : exchange.received;
  const Message* const message = exchange.message;
  Step step{&exchange, own, seen.value_or(exchange.trace.at)};
  const Decoded decoded = decode(exchange.trace.text);
  if (!exchange.sent && !exchange.received) return doubt("only its answer is there; left out");
  if (message == nullptr || (!cut && decoded.message != message)) return doubt("no message; left out");
  if (own && cut) return doubt("cut; left out");
  if (own && exchange.trace.drop == Drop::kNotSent) return doubt("it was never sent; left out");
  if (cut) {
    doubt("cut; any other of its name is taken for it");
  } else {
    step.members = decoded.members;
    if (both_traced && !(exchange.sent && exchange.received)) doubt("seen at one end only");
  }
  Json::Value answer;
  if (parse(exchange.answer.c_str(), &answer)) step.answer = answer;
  if (message->delivery == Delivery::kSync && !exchange.failed && step.answer.isNull()) {
    doubt(own ? "its answer is missing or cut; not compared"
              : "its answer is missing or cut; the default is given");
  }
  steps_.push_back(std::move(step));
}

void Player::tell(Case* one, const std::vector<std::string>& differences) {
  for (const std::string& difference : differences) {
    print("{}  {}\n", one->name, difference);
    one->differences.push_back(difference);
    ++differences_;
  }
}

bool Player::play(const Interrupt& interrupt) {
  // What comes behind the last message, unasked, comes within this time or is not looked at.
  constexpr std::chrono::milliseconds kAftermath{250};
  const SimulatedPeer peer(
      rules_.side,
      [this](const Message& message, const Json::Value& members, Response* response) {
        respond(message, members, response);
      },
      [](const Message* message, const std::string& line) {
        if (message == nullptr) print("{}", line);
      });
  // What was played last: when now, and when in the capture.
  auto now = Clock::now();
  std::int64_t then = steps_.empty() ? 0 : steps_.front().at.time;
  for (Step& step : steps_) {
    if (step.outcome == nullptr) continue;
    if (step.own) {
      const auto due = now + span(step.at.time - then, rules_.speed);
      if (interrupt.raised(due - Clock::now())) return false;
      send(step);
    } else if (!await(&step, interrupt)) {
      return false;
    }
    now = Clock::now();
    then = std::max(then, step.own && step.exchange->arrived ? step.exchange->arrived->time : step.at.time);
  }
  return !interrupt.raised(kAftermath);
}

void Player::send(const Step& step) {
  const Message& message = *step.exchange->message;
  std::unique_lock<std::mutex> guard(lock_);
  const std::string text = serialise(ids_.live(step.members));
  guard.unlock();
  const Client& client = clients_.try_emplace(&message, message).first->second;
  if (message.delivery == Delivery::kOneWay) return client.tell(text, false);
  const Reply reply = client.ask(text, Seconds(rules_.timeout));
  peer_lived_ = true;
  guard.lock();
  const bool failed = step.exchange->failed;
  if (step.answer.isNull() && !failed) return;
  Json::Value seen;
  if (failed || reply.failure || !parse(reply.text.c_str(), &seen)) {
    const std::string was = failed ? "none" : membersText(ids_.live(step.answer), message.reply);
    const std::string is = reply.failure ? "none" : membersIn(reply.text, &message, true);
    if (was != is) tell(step.outcome, {compose("answer: {} -> {}", was, is)});
    return;
  }
  constexpr Code kCreateApp = "CreateApp"_code;
  const bool creates = message.code == kCreateApp;
  if (creates) ids_.learn(step.answer, seen, true);
  Json::Value expected = ids_.live(step.answer);
  if (creates) expected[key::kOrgid] = step.answer[key::kOrgid];  // only the number is handed out
  tell(step.outcome, compare(message.reply, expected, seen, rules_.ignored));
}

bool Player::await(Step* step, const Interrupt& interrupt) {
  constexpr std::chrono::milliseconds kLook{50};
  constexpr std::chrono::seconds kLastWords{1};
  const key_t peer_queue = rules_.side == Side::kBrowser ? kNotificationQueueKey : kRequestQueueKey;
  const auto started = Clock::now();
  std::optional<Clock::time_point> gone;
  std::unique_lock<std::mutex> guard(lock_);
  while (!came_.wait_for(guard, kLook, [&] { return step->done; })) {
    if (interrupt.raised()) return false;
    const bool alive = serversOf(peer_queue).alive();
    peer_lived_ = peer_lived_ || alive;
    if (peer_lived_ && !alive && !gone) gone = Clock::now();
    // Who plays the browser waits for a plug-in process to be started.
    const bool patient = rules_.timeout == 0 || (rules_.side == Side::kBrowser && !heard_);
    if (gone ? Clock::now() < *gone + kLastWords
             : patient || Clock::now() < started + Seconds(rules_.timeout)) {
      continue;
    }
    tell(step->outcome, {"recorded, and did not come"});
    if (!gone) break;
    throw Failure(ExitCode::kNoPeer, "the {} process went away in the middle", nameOf(other(rules_.side)));
  }
  if (!step->done) finish(step);
  return true;
}

/// What has come or is not waited for any longer.
void Player::finish(Step* step) {
  auto& [open, done] = arrivals_[step->exchange->message];
  open.erase(std::find(open.begin(), open.end(), step));
  done.push_front(step);
  step->done = true;
  came_.notify_all();
}

/// The first that is open with these members; else of questions the last that is done, of the rest the
/// first with whatever members: it may be of another application, by its number.
Player::Step* Player::expected(const Message& message, const Json::Value& members) {
  auto& [open, done] = arrivals_[&message];
  const auto first = [&](const std::deque<Step*>& steps) {
    const auto found = std::find_if(steps.begin(), steps.end(), [&](const Step* step) {
      return step->members.isNull() ||
             compare(message.request, ids_.live(step->members), members, rules_.ignored).empty();
    });
    return found == steps.end() ? nullptr : *found;
  };
  Step* const step = first(open);
  if (step != nullptr) return step;
  if (message.delivery == Delivery::kSync) return first(done);
  return open.empty() ? nullptr : open.front();
}

void Player::respond(const Message& message, const Json::Value& members, Response* response) {
  const std::lock_guard<std::mutex> guard(lock_);
  heard_ = true;
  const bool question = message.delivery == Delivery::kSync;
  Step* const step = expected(message, members);
  if (step == nullptr) {
    if (!matches(rules_.only, message.name)) return;
    return tell(
        &cases_.emplace_back(Case{commandText(message, members), {}}),
        {question ? "never recorded, answered by default" : "came more often than it was recorded"});
  }
  ids_.learn(step->members, members, false);
  if (step->outcome != nullptr && !question && !step->members.isNull()) {
    tell(step->outcome, compare(message.request, ids_.live(step->members), members, rules_.ignored));
  }
  if (!step->done) finish(step);
  if (step->exchange->failed) response->kind = Response::Kind::kFailure;
  if (!step->answer.isNull()) response->members = ids_.live(step->answer);
  const auto handling = span(step->exchange->trace.handling.value_or(0), rules_.speed);
  if (question) response->delay = std::chrono::duration_cast<std::chrono::milliseconds>(handling);
}

}  // namespace hbbtv_ryn::rynctl
