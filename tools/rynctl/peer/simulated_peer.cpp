#include "tools/rynctl/peer/simulated_peer.h"

#include <cstring>
#include <map>
#include <thread>

#include "ipc/protocol/envelope.h"
#include "ipc/server.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/system/client.h"
#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

/// One queue of the side.
struct SimulatedPeer::Server {
  SimulatedPeer* peer;
  key_t queue;
  IpcServer* handle = nullptr;

  Server(SimulatedPeer* owner, const QueueName& name, int with_reply) : peer(owner), queue(name.key) {
    // With its callback from the start: what waits on the queue is printed too.
    if (createServer(name.key, kChannel, with_reply, IPC_CHUNK_SIZE, &SimulatedPeer::serve, this,
                     &handle) != 0) {
      throw Failure(ExitCode::kNoPeer, "the queue '{}' cannot be served; does it belong to another user?",
                    name.name);
    }
  }
  ~Server() { zunt_ipc_server_destroy(handle); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
};

/// What is to be sent, by a thread of its own: a query waits for its answer. Shared with that thread, which
/// is left behind when it waits at the end.
struct SimulatedPeer::Schedule {
  std::mutex lock;  // guards everything below
  std::condition_variable changed;
  std::multimap<Clock::time_point, Event> due;
  SimulatedPeer* peer;  // null when it has ended
};

SimulatedPeer::SimulatedPeer(Side side, Responder responder, Printer printer)
    : responder_(std::move(responder)),
      printer_(std::move(printer)),
      schedule_(std::make_shared<Schedule>()) {
  schedule_->peer = this;
  std::thread([schedule = schedule_] { runSchedule(schedule); }).detach();
  for (const QueueName& queue : kQueues) {
    if (queue.carriesReplies() || queue.reader != side) continue;
    servers_.push_back(std::make_unique<Server>(this, queue, withReply(queue.key)));
  }
}

SimulatedPeer::~SimulatedPeer() {
  {
    const std::lock_guard<std::mutex> guard(schedule_->lock);
    schedule_->peer = nullptr;
  }
  schedule_->changed.notify_all();
}

void SimulatedPeer::print(const Message* message, const std::string& line) {
  const std::lock_guard<std::mutex> guard(print_lock_);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto time = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  printer_(message, compose("{}  {}\n", clockText(time), line));
}

bool SimulatedPeer::sleepUnlessStopped(std::chrono::milliseconds time) {
  std::unique_lock<std::mutex> guard(schedule_->lock);
  return !schedule_->changed.wait_for(guard, time, [this] { return schedule_->peer == nullptr; });
}

IpcMessage* SimulatedPeer::serve(const IpcMessage* request, int32_t /*kind*/, void* server) {
  const auto* const self = static_cast<Server*>(server);
  const std::string text(request->text, static_cast<std::size_t>(request->length));
  return self->peer->answer(text, self->queue);
}

namespace {

/// What a host without handlers answers.
Json::Value defaultReply(const Message& message, const Json::Value& request) {
  std::vector<Given> values;
  for (const Member& member : message.reply) {
    if (isText(member.type)) {
      values.emplace_back(std::string_view(""));
    } else {
      const bool repeated = member.default_answer == kAsRequested;
      values.emplace_back(repeated ? integer(request, member.key) : member.default_answer);
    }
  }
  return hbbtv_ryn::compose(message.reply_code, message.reply, values.data());
}

/// Sends it. Returns the line that tells of it.
std::string sendEvent(const Event& event) {
  const Message& message = *event.message;
  std::string line = "sends " + commandText(message, event.members);
  try {
    const Client client(message);
    if (message.delivery == Delivery::kOneWay) {
      client.tell(serialise(event.members), false);
      return line;
    }
    const Reply reply = client.ask(serialise(event.members), Seconds::zero());
    if (reply.failure) return line + "  -> no answer";
    return compose("{}  -> {}  ({} us)", line, membersIn(reply.text, &message, true), reply.took.count());
  } catch (const std::exception& failure) {
    return line + "  not sent: " + failure.what();
  }
}

}  // namespace

IpcMessage* SimulatedPeer::answer(const std::string& text, key_t queue) {
  const auto [message, members] = decode(text);
  if (message == nullptr || queueOf(*message) != queue) {
    print(nullptr, "?  " + onOneLine(text));
    return nullptr;
  }
  std::string line = commandText(*message, members);
  Response response;
  try {
    response.members = defaultReply(*message, members);
    responder_(*message, members, &response);
  } catch (const Json::Exception& error) {
    print(message, line + "  -> no answer: " + error.what());
    return nullptr;
  }
  if (message->delivery == Delivery::kSync) {
    const bool reply = response.kind == Response::Kind::kReply;
    const char* const none = response.kind == Response::Kind::kSilence ? "silence" : "no answer";
    line += "  -> " + (reply ? membersText(response.members, message->reply) : none);
  }
  const bool at_once = response.delay.count() == 0;
  if (at_once) print(message, line);
  for (const Event& event : response.then) schedule(event);
  if (!at_once) {
    if (!sleepUnlessStopped(response.delay)) return nullptr;
    print(message, line);
  }
  while (response.kind == Response::Kind::kSilence && sleepUnlessStopped(std::chrono::hours(1))) continue;
  if (message->delivery == Delivery::kOneWay || response.kind != Response::Kind::kReply) return nullptr;
  const std::string reply = serialise(response.members);
  return new IpcMessage{static_cast<int32_t>(reply.size()), strdup(reply.c_str())};
}

void SimulatedPeer::schedule(const Event& event) {
  {
    const std::lock_guard<std::mutex> guard(schedule_->lock);
    schedule_->due.emplace(Clock::now() + event.after, event);
  }
  schedule_->changed.notify_all();
}

void SimulatedPeer::runSchedule(const std::shared_ptr<Schedule>& schedule) {
  std::unique_lock<std::mutex> guard(schedule->lock);
  while (schedule->peer != nullptr) {
    if (schedule->due.empty()) {
      schedule->changed.wait(guard);
      continue;
    }
    const auto next = schedule->due.begin();
    const auto time = next->first;
    if (Clock::now() < time) {
      schedule->changed.wait_until(guard, time);
      continue;
    }
    Event event = next->second;
    schedule->due.erase(next);
    if (event.times != 1) {
      Event again = event;
      if (again.times > 1) --again.times;
      schedule->due.emplace(time + again.every, again);
    }
    guard.unlock();
    const std::string line = sendEvent(event);
    guard.lock();
    if (schedule->peer != nullptr) schedule->peer->print(event.message, line);
  }
}

}  // namespace hbbtv_ryn::rynctl
