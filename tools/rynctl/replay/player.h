// Plays one side of a capture to the living other side, and compares what comes back.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_REPLAY_PLAYER_H
#define HBBTV_RYN_TOOLS_RYNCTL_REPLAY_PLAYER_H

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tools/rynctl/capture/capture.h"
#include "tools/rynctl/peer/simulated_peer.h"
#include "tools/rynctl/system/client.h"
#include "tools/rynctl/system/wait.h"

namespace hbbtv_ryn::rynctl {

/// The applications of a capture in this run, which numbers them anew. Not synchronised.
class Ids {
 public:
  /// The application of the one message is that of the other, unless one names none.
  /// @param anew  also when the recorded one was known as another.
  void learn(const Json::Value& recorded, const Json::Value& live, bool anew);
  /// A recorded message as it is said in this run.
  Json::Value live(const Json::Value& recorded) const;

 private:
  using Id = std::pair<int, int>;  // appid, orgid
  static Id idIn(const Json::Value& message);
  Id live(Id recorded) const;

  std::map<Id, Id> ids_;
};

class Player {
 public:
  struct Rules {
    Side side;
    double speed = 1;  // 2 is twice as fast as recorded; 0: without any pause
    std::set<std::string> ignored;
    std::string only = "*";  // a pattern for the names of what is sent and compared
    double timeout = 10;     // seconds, for an answer, and for what the other side is to send next
  };
  /// What has been compared, or should have been.
  struct Case {
    std::string name;
    std::vector<std::string> differences;
  };

  /// @param capture  outlives the player.
  Player(const Capture& capture, Rules rules);

  /// What of the capture cannot be played or compared as it was, one line each.
  const std::vector<std::string>& doubts() const { return doubts_; }

  /// Prints the differences as they come. Throws Failure as Client does, and NoPeer when the other side
  /// goes away in the middle.
  /// @return whether it came to its end, without a signal.
  bool play(const Interrupt& interrupt);

  /// After play(), however it has ended.
  const std::deque<Case>& cases() const { return cases_; }
  unsigned long differences() const { return differences_; }

 private:
  struct Step {
    const Exchange* exchange;
    bool own;                               // sent by this side
    Sight at;                               // this side's, if it has been traced
    Json::Value members = {}, answer = {};  // null: not known
    bool done = false;                      // sent, or seen to come
    Case* outcome = nullptr;                // null: not wanted by the rules
  };

  /// What the other side is to send of one message, and what of it is done, the latest first.
  struct Arrivals {
    std::deque<Step*> open, done;
  };

  void add(const Exchange& exchange, bool both_traced);
  void send(const Step& step);
  bool await(Step* step, const Interrupt& interrupt);
  void respond(const Message& message, const Json::Value& members, Response* response);
  Step* expected(const Message& message, const Json::Value& members);
  void finish(Step* step);
  void tell(Case* one, const std::vector<std::string>& differences);

  const Rules rules_;
  std::vector<std::string> doubts_;
  std::map<const Message*, Client> clients_;
  bool peer_lived_ = false;  // at some time of the play

  std::mutex lock_;  // guards everything below: what comes is taken on other threads
  std::condition_variable came_;
  std::vector<Step> steps_;
  std::map<const Message*, Arrivals> arrivals_;
  Ids ids_;
  std::deque<Case> cases_;
  unsigned long differences_ = 0;
  bool heard_ = false;  // anything of the other side
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_REPLAY_PLAYER_H
