#include "tools/support/plain_server.h"

#include <sys/msg.h>

#include <chrono>
#include <utility>

namespace hbbtv_ryn::test {

PlainServer::PlainServer(key_t key, long channel, Answer answer)
    : peer_(key), channel_(channel), answer_(std::move(answer)), thread_([this] { serve(); }) {}

PlainServer::~PlainServer() {
  crashed_ = true;
  if (thread_.joinable()) thread_.join();
}

std::set<int> PlainServer::finish() {
  finished_ = true;
  thread_.join();
  return kinds_;
}

void PlainServer::serve() {
  IpcRecord record;
  std::string text;
  bool between_messages = true;
  while (!crashed_ && !(finished_ && between_messages)) {
    if (msgrcv(peer_.requests.id(), &record, kRawRecordBytes, channel_, IPC_NOWAIT) < 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
      continue;
    }
    kinds_.insert(record.kind);
    text.append(record.data, static_cast<std::size_t>(record.chunk_length));
    between_messages = record.last != 0;
    if (!between_messages) continue;
    if (record.kind == IPC_KIND_REQUEST) answer(text);
    text.clear();
  }
}

void PlainServer::answer(const std::string& request) {
  const std::string text = answer_ ? answer_(request) : request;
  if (crashed_) return;
  for (IpcRecord& record : rawRecords(IPC_KIND_REPLY, text)) {
    record.mtype = channel_;
    peer_.replies.send(record);
  }
}

}  // namespace hbbtv_ryn::test
