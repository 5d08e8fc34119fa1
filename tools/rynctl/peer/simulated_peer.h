// A peer made of the tool: serves one side's queues, answers, prints a line for each message and sends
// messages of its own.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_PEER_SIMULATED_PEER_H
#define HBBTV_RYN_TOOLS_RYNCTL_PEER_SIMULATED_PEER_H

#include <json/value.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "hbbtv_ryn/ipc.h"
#include "ipc/protocol/catalogue.h"
#include "tools/rynctl/text/message_text.h"

namespace hbbtv_ryn::rynctl {

/// A message that the peer sends on its own.
struct Event {
  const Message* message = nullptr;
  Json::Value members;
  std::chrono::milliseconds after{0};
  std::chrono::milliseconds every{0};
  unsigned times = 1;  // 0: for ever
};

struct Response {
  enum class Kind {
    kReply,
    kFailure,  // the peer is told that there is no answer
    kSilence,  // nothing is sent, and nothing more is served: as a handler that hangs
  };
  Kind kind = Kind::kReply;
  Json::Value members;  // a whole reply, its code included
  std::chrono::milliseconds delay{0};
  std::vector<Event> then;
};

class SimulatedPeer {
 public:
  /// Called for each message of the peer's queues, from one thread of each queue, with the response of a
  /// host without handlers, to change it. The answer to a one-way message is not sent, but its delay is
  /// kept and its events are.
  using Responder = std::function<void(const Message&, const Json::Value& members, Response* response)>;
  /// Given each line, with the message if it is one; called from several threads, one at a time.
  using Printer = std::function<void(const Message*, const std::string& line)>;

  SimulatedPeer(Side side, Responder responder, Printer printer);
  /// Answers what hangs with a failure, and leaves behind a query of its own that is not answered.
  ~SimulatedPeer();
  SimulatedPeer(const SimulatedPeer&) = delete;
  SimulatedPeer& operator=(const SimulatedPeer&) = delete;

  /// Sends the event when its time has come. Any thread may call.
  void schedule(const Event& event);

 private:
  struct Server;
  struct Schedule;

  static IpcMessage* serve(const IpcMessage* request, int32_t kind, void* server);
  IpcMessage* answer(const std::string& text, key_t queue);
  void print(const Message* message, const std::string& line);
  bool sleepUnlessStopped(std::chrono::milliseconds time);

  static void runSchedule(const std::shared_ptr<Schedule>& schedule);

  const Responder responder_;
  const Printer printer_;

  std::mutex print_lock_;  // held while a line is printed

  std::shared_ptr<Schedule> schedule_;
  std::vector<std::unique_ptr<Server>> servers_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_PEER_SIMULATED_PEER_H
