/// @file
/// The five queues as the kernel shows them, and what that means.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_QUEUE_STATE_H
#define HBBTV_RYN_TOOLS_RYNCTL_QUEUE_STATE_H

#include <sys/types.h>

#include <array>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "ipc/protocol/queues.h"
#include "process.h"

namespace hbbtv_ryn::rynctl {

/// Which process has which end.
enum class Side { kBrowser, kPlugin };

const char* nameOf(Side side);

struct QueueName {
  const char* name;
  key_t key;
  key_t request_key;  // where the server that reads or answers here has its life
  Side reader;

  bool carriesReplies() const { return key != request_key; }
  Side writer() const { return reader == Side::kBrowser ? Side::kPlugin : Side::kBrowser; }
};

inline constexpr std::array<QueueName, 5> kQueues = {{
    {"requests", kRequestQueueKey, kRequestQueueKey, Side::kBrowser},
    {"request-replies", kRequestQueueKey + 1, kRequestQueueKey, Side::kPlugin},
    {"notifications", kNotificationQueueKey, kNotificationQueueKey, Side::kPlugin},
    {"queries", kQueryQueueKey, kQueryQueueKey, Side::kPlugin},
    {"query-replies", kQueryQueueKey + 1, kQueryQueueKey, Side::kBrowser},
}};

/// The queue with this name or key ("0x92101081"). Throws Failure (Usage).
const QueueName& findQueue(const std::string& name);
const QueueName& queueAt(key_t key);
std::string keyText(key_t key);

/// What a server shows of itself.
struct ServerLife {
  int count = -1;  // servers alive on the queue; -1: none has shown its life since the system started
  Process process;

  bool known() const { return count >= 0; }
  bool alive() const { return count > 0; }
};

struct QueueState {
  const QueueName* name = nullptr;
  int id = -1;
  unsigned long messages = 0;
  unsigned long bytes = 0;
  unsigned long limit = 0;
  Process writer;
  Process reader;
  std::time_t written = 0;  // 0: never
  std::time_t read = 0;
  ServerLife server;
};

/// Nothing when the queue does not exist. Throws Failure (NoPeer) when it may not be looked at.
std::optional<QueueState> look(const QueueName& queue);

ServerLife lifeOfServer(key_t request_key);

enum class Judgement {
  kIdle,      // nothing waits
  kBusy,      // messages wait and are being read
  kStuck,     // messages wait, and a living reader does not read
  kOrphaned,  // messages wait, and nobody is there to read them
};

const char* wordOf(Judgement judgement);

/// Whoever would read from the queue.
Process readerOf(const QueueState& state);

/// Every existing queue with its judgement. Looks twice, a quarter of a second apart, when messages wait:
/// whether a reader reads cannot be seen otherwise.
struct JudgedQueue {
  QueueState state;
  Judgement judgement;
};
std::vector<JudgedQueue> judgeQueues();

/// "3 s", "5 min", "2 h", "4 d" ago; "never" for 0.
std::string ageText(std::time_t when);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_QUEUE_STATE_H
