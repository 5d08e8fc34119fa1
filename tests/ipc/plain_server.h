// A server that follows the record format and nothing else: no semaphores, and what it does not know it
// ignores. It shares no code with the library.
#ifndef HBBTV_RYN_TESTS_IPC_PLAIN_SERVER_H
#define HBBTV_RYN_TESTS_IPC_PLAIN_SERVER_H

#include <sys/msg.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "ipc/channel_handles.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {

// Echoes on a thread until it is destroyed; what it has taken by then and not answered stays unanswered.
class PlainServer {
 public:
  explicit PlainServer(long channel = kChannel, std::function<void(const std::string&)> before_answer = {})
      : m_channel(channel), m_before_answer(std::move(before_answer)), m_thread([this] { serve(); }) {}
  ~PlainServer() {
    m_stopped = true;
    m_thread.join();
  }
  PlainServer(const PlainServer&) = delete;
  PlainServer& operator=(const PlainServer&) = delete;

  // Of all records that it has met.
  std::set<int> kinds() {
    m_stopped = true;
    m_thread.join();
    m_thread = std::thread([] {});
    return m_kinds;
  }

 private:
  void serve() {
    std::string text;
    while (!m_stopped) {
      RawRecord record;
      if (msgrcv(m_peer.requests.id(), &record, kRawRecordBytes, m_channel, IPC_NOWAIT) < 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        continue;
      }
      m_kinds.insert(record.kind);
      text.append(record.data, static_cast<std::size_t>(record.chunk_length));
      if (record.last == 0) continue;
      if (record.kind == kRawRequest) answer(text);
      text.clear();
    }
  }
  void answer(const std::string& text) {
    if (m_before_answer) m_before_answer(text);
    if (m_stopped) return;
    for (RawRecord& record : rawRecords(kRawReply, text)) {
      record.type = m_channel;
      m_peer.replies.send(record);
    }
  }

  RawPeer m_peer{kKey};
  const long m_channel;
  const std::function<void(const std::string&)> m_before_answer;
  std::atomic<bool> m_stopped{false};
  std::set<int> m_kinds;  // the thread's
  std::thread m_thread;
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_IPC_PLAIN_SERVER_H
