/// @file
/// A server that follows the record format and nothing else: no semaphores, and what it does not know it
/// ignores. It shares no code with the library.
#ifndef HBBTV_RYN_TOOLS_SUPPORT_PLAIN_SERVER_H
#define HBBTV_RYN_TOOLS_SUPPORT_PLAIN_SERVER_H

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {

class PlainServer {
 public:
  using Answer = std::function<std::string(const std::string& request)>;

  /// Serves on a thread of its own; answers with the text of the request, or as it is told.
  explicit PlainServer(key_t key, long channel = 1, Answer answer = {});
  /// As a crash: what has been taken and not answered stays unanswered.
  ~PlainServer();
  PlainServer(const PlainServer&) = delete;
  PlainServer& operator=(const PlainServer&) = delete;

  /// Ends between two messages. @return the kinds of all records that it has met.
  std::set<int> finish();

 private:
  void serve();
  void answer(const std::string& request);

  RawPeer peer_;
  const long channel_;
  const Answer answer_;
  std::atomic<bool> finished_{false};
  std::atomic<bool> crashed_{false};
  std::set<int> kinds_;  // the thread's, until it has been joined
  std::thread thread_;
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_SUPPORT_PLAIN_SERVER_H
