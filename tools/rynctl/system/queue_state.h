// The five queues as the kernel shows them, and what that means.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_QUEUE_STATE_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_QUEUE_STATE_H

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "ipc/protocol/catalogue.h"
#include "ipc/record.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/text/message_text.h"

namespace hbbtv_ryn::rynctl {

struct QueueName {
  const char* name;
  key_t key;
  key_t request_key;  // where the server that reads or answers here has its life
  Side reader;

  bool carriesReplies() const { return key != request_key; }
};

inline constexpr QueueName kQueues[] = {
    {"requests", kRequestQueueKey, kRequestQueueKey, Side::kBrowser},
    {"request-replies", replyKey(kRequestQueueKey), kRequestQueueKey, Side::kPlugin},
    {"notifications", kNotificationQueueKey, kNotificationQueueKey, Side::kPlugin},
    {"queries", kQueryQueueKey, kQueryQueueKey, Side::kPlugin},
    {"query-replies", replyKey(kQueryQueueKey), kQueryQueueKey, Side::kBrowser},
};

/// Records that a text of so many bytes travels in.
constexpr unsigned long recordsOf(std::size_t length) {
  return (length + IPC_CHUNK_SIZE) / (IPC_CHUNK_SIZE + 1);
}

/// The queue with this name or key ("0x92101081"). Throws Failure (Usage).
const QueueName& findQueue(const std::string& name);
const QueueName& queueAt(key_t key);
std::vector<std::string> queueNames();

/// What the servers of a queue show of their life.
struct Servers {
  int count = -1;  // alive on the queue; -1: none has shown its life since the system started
  Process latest;  // the one that has started last, when one is alive

  bool known() const { return count >= 0; }
  bool alive() const { return count > 0; }
};

/// Throws Failure (NoPeer) when it may not be looked at.
Servers serversOf(key_t request_key);

struct QueueState {
  enum Judgement {
    kIdle,      // nothing waits
    kBusy,      // messages wait and are being read
    kStuck,     // messages wait, and a living reader does not read
    kOrphaned,  // messages wait, and nobody is there to read them
  };

  const QueueName* name = nullptr;
  int id = -1;
  unsigned long messages = 0;
  unsigned long bytes = 0;
  unsigned long limit = 0;
  Process writer;
  Process reader;
  std::time_t written = 0;  // 0: never
  std::time_t read = 0;
  Servers servers;              // of the requests
  Judgement judgement = kIdle;  // by judgeQueues()

  /// Whoever would read from the queue.
  Process whoReads() const;
  /// Whether a living process has read requests last, and no server shows its life: one of another make.
  bool isServedPlainly() const;
};

/// Nothing when the queue does not exist. Throws Failure (NoPeer) when it may not be looked at.
std::optional<QueueState> look(const QueueName& queue);

/// Every existing queue with its judgement. Looks twice, a quarter of a second apart, when messages wait:
/// whether a reader reads cannot be seen otherwise.
std::vector<QueueState> judgeQueues();

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_QUEUE_STATE_H
