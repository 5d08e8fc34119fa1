#include "tools/rynctl/replay/player.h"

#include <algorithm>

#include "ipc/protocol/envelope.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

using trace::Drop;

namespace {

/// Of an hour at most, so that no clock runs over.
std::chrono::microseconds span(std::int64_t recorded, double speed) {
  constexpr std::int64_t kMost = std::int64_t{3600} * 1000000;
  if (speed <= 0) return std::chrono::microseconds::zero();
  const auto most = static_cast<double>(kMost);
  const double scaled = std::clamp(static_cast<double>(recorded) / speed, 0.0, most);
  return std::chrono::microseconds(static_cast<std::int64_t>(scaled));
}

std::string nameOf(const Exchange& exchange) {
  const Message* const message = exchange.message;
  const std::string name =
      message == nullptr ? compose("code {}", exchange.code) : std::string(message->name);
  const std::string members = membersIn(exchange.text, message, false);
  return compose("{}{}{}", name, members.empty() ? "" : " ", members);
}

/// What carries the application that it has made.
bool handsOut(const Message& message) {
  return message.code == Code::CreateApp;
}

}  // namespace

Player::Player(const Conversation& conversation, Rules rules) : rules_(std::move(rules)) {
  const std::vector<Exchange>& all = conversation.exchanges();
  const bool both_traced =
      std::any_of(all.begin(), all.end(), [](const Exchange& one) { return one.sent && one.received; });
  for (const Exchange& exchange : all) add(exchange, both_traced);
  std::stable_sort(steps_.begin(), steps_.end(),
                   [](const Step& a, const Step& b) { return a.at.line < b.at.line; });
  for (std::size_t i = 0; i < steps_.size(); ++i) {
    Step& step = steps_[i];
    if (!step.own) to_arrive_[step.exchange->message].push_back(i);
    if (step.wanted) step.number = newCase(compose("line {}: {}", step.at.line, nameOf(*step.exchange)));
  }
}

void Player::doubt(const Exchange& exchange, const char* what) {
  const Exchange& x = exchange;
  const auto& sight = x.sent ? x.sent : x.received ? x.received : x.answered ? x.answered : x.arrived;
  doubts_.push_back(compose("line {}: {}: {}", sight->line, nameOf(x), what));
}

void Player::add(const Exchange& exchange, bool both_traced) {
  const bool own = exchange.to() != rules_.side;
  const Message* const message = exchange.message;
  Step step{&exchange, own, message != nullptr && matches(rules_.only, message->name), {}, {}, {}};
  const auto& sight = own == exchange.sent.has_value() ? exchange.sent : exchange.received;
  step.at = sight ? *sight : exchange.sent ? *exchange.sent : exchange.received.value_or(Sight{});

  if (!exchange.wasSeen()) return doubt(exchange, "only its answer is there; left out");
  const Decoded decoded = decode(exchange.text);
  if (!exchange.cut && (message == nullptr || decoded.message != message)) {
    return doubt(exchange, "this is no message; left out");
  }
  if (own && exchange.cut) return doubt(exchange, "cut; left out");
  if (own && exchange.drop == Drop::kNotSent) return doubt(exchange, "it was never sent; left out");
  if (exchange.cut) {
    doubt(exchange, "cut; any other of its name is taken for it");
  } else {
    step.members = decoded.members;
    if (both_traced && !(exchange.sent && exchange.received)) doubt(exchange, "seen at one end only");
  }
  if (message->delivery == Delivery::kSync) {
    step.failure = exchange.failed;
    if (!exchange.failed && (exchange.answer_cut || !parse(exchange.answer.c_str(), &step.answer))) {
      step.answer = Json::Value();
      doubt(exchange, own ? "its answer is missing or cut; not compared"
                          : "its answer is missing or cut; the default is given");
    }
  }
  steps_.push_back(std::move(step));
}

std::size_t Player::newCase(std::string name) {
  cases_.push_back({std::move(name), {}});
  return cases_.size() - 1;
}

void Player::tell(std::size_t number, const std::vector<std::string>& differences) {
  Case& one = cases_[number];
  for (const std::string& difference : differences) {
    print("{}  {}\n", one.name, difference);
    one.differences.push_back(difference);
    ++differences_;
  }
}

bool Player::play(const Interrupt& interrupt) {
  // What comes behind the last message, unasked, comes within this time or is not looked at.
  constexpr std::chrono::milliseconds kAftermath{250};
  SimulatedPeer peer(
      rules_.side,
      [this](const Message& message, const Json::Value& members) { return respond(message, members); },
      [](const Message* message, const std::string& line) {
        if (message == nullptr) print("{}", line);
      });
  now_ = Clock::now();
  if (!steps_.empty()) then_ = steps_.front().at.time;
  for (Step& step : steps_) {  // their order and number stay
    if (!step.wanted) continue;
    const Exchange& exchange = *step.exchange;
    std::int64_t reached = step.at.time;
    if (!step.own) {
      if (!await(&step, interrupt)) return false;
    } else {
      if (!pause(interrupt, step.at.time)) return false;
      send(step);
      if (exchange.arrived) reached = exchange.arrived->time;
    }
    now_ = Clock::now();
    then_ = std::max(then_, reached);
  }
  return !interrupt.raised(kAftermath);
}

bool Player::pause(const Interrupt& interrupt, std::int64_t until) {
  const auto due = now_ + span(until - then_, rules_.speed);
  return !interrupt.raised(std::max(due - Clock::now(), Clock::duration::zero()));
}

void Player::send(const Step& step) {
  const Message& message = *step.exchange->message;
  Json::Value members;
  {
    const std::lock_guard<std::mutex> guard(lock_);
    members = ids_.live(step.members);
  }
  const Client& client = clients_.try_emplace(&message, message).first->second;
  if (message.delivery == Delivery::kOneWay) {
    client.tell(serialise(members), false);
  } else {
    compareAnswer(step, client.ask(serialise(members), rules_.timeout));
  }
  peer_lived_ = true;
}

void Player::compareAnswer(const Step& step, const Reply& reply) {
  const Message& message = *step.exchange->message;
  const std::lock_guard<std::mutex> guard(lock_);
  if (step.answer.isNull() && !step.failure) return;
  Json::Value seen;
  const bool readable = !reply.failure && parse(reply.text.c_str(), &seen);
  if (step.failure || !readable) {
    const std::string was = step.failure ? "none" : membersText(ids_.live(step.answer), message.reply);
    const std::string is = reply.failure ? "none" : membersIn(reply.text, &message, true);
    if (was != is) tell(step.number, {compose("answer: {} -> {}", was, is)});
    return;
  }
  Json::Value expected = step.answer;
  if (handsOut(message)) {
    ids_.assign(step.answer, seen);
    // The organisation is no new one.
    expected[key::kAppid] = ids_.live(step.answer)[key::kAppid];
  } else {
    expected = ids_.live(expected);
  }
  tell(step.number, compare(message.reply, expected, seen, rules_.ignored));
}

bool Player::await(Step* step, const Interrupt& interrupt) {
  constexpr std::chrono::milliseconds kLook{50};
  constexpr std::chrono::seconds kLastWords{1};
  const key_t peer_queue = rules_.side == Side::kBrowser ? kNotificationQueueKey : kRequestQueueKey;
  auto deadline = Clock::now() + rules_.timeout;
  bool gone = false;
  std::unique_lock<std::mutex> guard(lock_);
  while (!step->done) {
    // Who plays the browser waits for a plug-in process to be started.
    const bool patient = rules_.timeout.count() == 0 || (rules_.side == Side::kBrowser && !heard_);
    if (!gone && patient) deadline = Clock::now() + std::max<Clock::duration>(rules_.timeout, kLastWords);
    if (came_.wait_for(guard, kLook, [&] { return step->done; })) break;
    if (interrupt.raised()) return false;
    const bool alive = serversOf(peer_queue).alive();
    peer_lived_ = peer_lived_ || alive;
    if (peer_lived_ && !alive && !gone) {
      gone = true;
      deadline = std::min(deadline, Clock::now() + kLastWords);
    }
    if (Clock::now() < deadline) continue;
    tell(step->number, {"recorded, and did not come"});
    if (!gone) break;
    throw Failure(ExitCode::NoPeer, "the {} process went away in the middle", nameOf(other(rules_.side)));
  }
  step->done = true;
  return true;
}

/// The first of this name that is still expected, or one that has come before, with the same members.
Player::Step* Player::find(const Message& message, const Json::Value& members, bool again) {
  Step* found = nullptr;
  for (const std::size_t index : to_arrive_[&message]) {
    Step& step = steps_[index];
    if (step.done != again) continue;
    const bool same = step.members.isNull() ||
                      compare(message.request, ids_.live(step.members), members, rules_.ignored).empty();
    if (!same) continue;
    found = &step;
    if (!again) break;
  }
  return found;
}

Response Player::respond(const Message& message, const Json::Value& members) {
  const std::lock_guard<std::mutex> guard(lock_);
  heard_ = true;
  const bool question = message.delivery == Delivery::kSync;
  const bool wanted = matches(rules_.only, message.name);
  Response response;
  response.members = defaultReply(message, members);
  Step* step = find(message, members, false);
  if (step == nullptr && question) step = find(message, members, true);
  if (step == nullptr && !question) {
    // Another application, by its number, or other members.
    const std::vector<std::size_t>& expected = to_arrive_[&message];
    const auto next = std::find_if(expected.begin(), expected.end(),
                                   [this](std::size_t index) { return !steps_[index].done; });
    if (next != expected.end()) {
      step = &steps_[*next];
      ids_.learn(step->members, members);
      const Json::Value was = ids_.live(step->members);
      if (wanted) tell(step->number, compare(message.request, was, members, rules_.ignored));
    }
  }
  if (step == nullptr) {
    if (!wanted) return response;
    const char* const what =
        question ? "never recorded, answered by default" : "came more often than it was recorded";
    tell(newCase(commandText(message, members)), {what});
    return response;
  }
  ids_.learn(step->members, members);
  step->done = true;
  came_.notify_all();
  if (!question) return response;
  if (step->failure) response.kind = Response::Kind::kFailure;
  if (!step->answer.isNull()) response.members = ids_.live(step->answer);
  const auto handling = span(step->exchange->handling.value_or(0), rules_.speed);
  response.delay = std::chrono::duration_cast<std::chrono::milliseconds>(handling);
  return response;
}

}  // namespace hbbtv_ryn::rynctl
