#include "support/plain_server.h"

#include <sys/msg.h>

#include <chrono>
#include <utility>

namespace hbbtv_ryn::test {

PlainServer::PlainServer(key_t key, long channel, Answer answer)
    : m_peer(key), m_channel(channel), m_answer(std::move(answer)), m_thread([this] { serve(); }) {}

PlainServer::~PlainServer() {
  m_crashed = true;
  if (m_thread.joinable()) m_thread.join();
}

std::set<int> PlainServer::finish() {
  m_finished = true;
  m_thread.join();
  return m_kinds;
}

void PlainServer::serve() {
  RawRecord record;
  std::string text;
  bool between_messages = true;
  while (!m_crashed && !(m_finished && between_messages)) {
    if (msgrcv(m_peer.requests.id(), &record, kRawRecordBytes, m_channel, IPC_NOWAIT) < 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
      continue;
    }
    m_kinds.insert(record.kind);
    text.append(record.data, static_cast<std::size_t>(record.chunk_length));
    between_messages = record.last != 0;
    if (!between_messages) continue;
    if (record.kind == kRawRequest) answer(text);
    text.clear();
  }
}

void PlainServer::answer(const std::string& request) {
  const std::string text = m_answer ? m_answer(request) : request;
  if (m_crashed) return;
  for (RawRecord& record : rawRecords(kRawReply, text)) {
    record.type = m_channel;
    m_peer.replies.send(record);
  }
}

}  // namespace hbbtv_ryn::test
