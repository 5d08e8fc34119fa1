// A server of ours as a second process, and how long its death may stay unnoticed.
#ifndef HBBTV_RYN_TESTS_IPC_SERVER_PROCESS_H
#define HBBTV_RYN_TESTS_IPC_SERVER_PROCESS_H

#include <gtest/gtest.h>

#include <chrono>

#include "ipc/channel_handles.h"
#include "tools/support/child_process.h"

namespace hbbtv_ryn::test {

// Longer than a dead server may stay unnoticed.
inline constexpr std::chrono::milliseconds kLongerThanTheWatchNeeds{1500};

// Serves echoes, and a text that begins with "slow" only when the test says so.
extern const ChildRole kServerRole;

// Makes one request per text that it is told, and tells the answer.
extern const ChildRole kAsker;

inline IpcMessage* echo(const IpcMessage* request, void* /*user_data*/) {
  return newReply(textOf(request));
}

class ServerProcess : public ChildProcess {
 public:
  ServerProcess() : ChildProcess(kServerRole) { EXPECT_EQ("up", hear()); }
  void waitUntilTaken() { EXPECT_EQ("taken", hear()); }
  void release() { say("go on"); }
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_IPC_SERVER_PROCESS_H
