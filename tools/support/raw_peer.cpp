#include "tools/support/raw_peer.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {
namespace {

static_assert(offsetof(IpcRecord, kind) == sizeof(long));
static_assert(offsetof(IpcRecord, data) == sizeof(long) + 28);
static_assert(sizeof(IpcRecord) == sizeof(long) + kRawRecordBytes);

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

msqid_ds statusOf(int queue) {
  msqid_ds status{};
  if (msgctl(queue, IPC_STAT, &status) != 0) fail("msgctl");
  return status;
}

bool putNow(int queue, const void* record, std::size_t bytes) {
  if (msgsnd(queue, record, bytes, IPC_NOWAIT) == 0) return true;
  if (errno != EAGAIN) fail("msgsnd");
  return false;
}

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(std::string("a record on the queue breaks the format: ") + what);
}

}  // namespace

IpcRecord rawRecord(int kind, const std::string& text) {
  const auto length = static_cast<int32_t>(text.size());
  IpcRecord record{1, kind, length, 1, 1, 1, 0, length, {}};
  std::copy(text.begin(), text.end(), record.data);
  return record;
}

std::vector<IpcRecord> rawRecords(int kind, const std::string& text) {
  std::vector<IpcRecord> records;
  std::size_t at = 0;
  do {
    IpcRecord record = rawRecord(kind, text.substr(at, kRawPayload));
    at += static_cast<std::size_t>(record.chunk_length);
    record.total_length = static_cast<int32_t>(text.size());
    record.sequence = static_cast<int32_t>(records.size()) + 1;
    record.last = at == text.size() ? 1 : 0;
    records.push_back(record);
  } while (at < text.size());
  return records;
}

RawQueue::RawQueue(key_t key) : id_(msgget(key, IPC_CREAT | 0666)) {
  if (id_ < 0) fail("msgget");
}

void RawQueue::send(const IpcRecord& record, std::size_t bytes) const {
  waitUntil("the queue had room", [&] { return trySend(record, bytes); });
}

bool RawQueue::trySend(const IpcRecord& record, std::size_t bytes) const {
  return putNow(id_, &record, bytes);
}

void RawQueue::sendBytes(const std::string& body, long type) const {
  std::string record(sizeof type + body.size(), '\0');
  std::memcpy(record.data(), &type, sizeof type);
  std::copy(body.begin(), body.end(), record.begin() + sizeof type);
  waitUntil("the queue had room", [&] { return putNow(id_, record.data(), body.size()); });
}

void RawQueue::sendMessage(int kind, const std::string& text) const {
  for (const auto& record : rawRecords(kind, text)) send(record);
}

IpcRecord RawQueue::take() const {
  IpcRecord record;
  ssize_t bytes = -1;
  waitUntil("a record arrived", [&] {
    bytes = msgrcv(id_, &record, kRawRecordBytes, 0, IPC_NOWAIT);
    if (bytes < 0 && errno != ENOMSG) fail("msgrcv");
    return bytes >= 0;
  });
  require(bytes == kRawRecordBytes, "its size");
  return record;
}

RawMessage RawQueue::takeMessage() const {
  IpcRecord record = take();
  RawMessage message{record.kind, record.total_length, {}};
  for (int sequence = 1;; ++sequence, record = take()) {
    const auto length = static_cast<std::size_t>(record.chunk_length);
    require(length <= kRawPayload && (length > 0 || sequence == 1), "chunk_length");
    require(length == kRawPayload || record.last == 1, "a record that is not full");
    require(record.sequence == sequence && record.marker == 1 && record.reserved == 0, "its header");
    require(record.kind == message.kind && record.total_length == message.total_length, "its likeness");
    const char* end = record.data + length;
    require(std::all_of(end, std::cend(record.data), [](char c) { return c == 0; }), "its padding");
    message.text.append(record.data, length);
    if (record.last == 1) break;
    require(record.last == 0, "last");
  }
  require(message.text.size() == static_cast<std::size_t>(message.total_length), "the joined length");
  return message;
}

void RawQueue::discardAll() const {
  IpcRecord record;
  while (msgrcv(id_, &record, kRawRecordBytes, 0, IPC_NOWAIT | MSG_NOERROR) >= 0) continue;
}

std::size_t RawQueue::depth() const {
  return statusOf(id_).msg_qnum;
}

void RawQueue::setCapacity(std::size_t bytes) const {
  msqid_ds status = statusOf(id_);
  status.msg_qbytes = bytes;
  if (msgctl(id_, IPC_SET, &status) != 0) fail("msgctl");
}

void RawQueue::waitUntilEmpty() const {
  waitUntil("the queue was empty", [this] { return depth() == 0; });
}

bool RawQueue::hasBeenReceivedFrom() const {
  return statusOf(id_).msg_rtime != 0;
}

void RawQueue::remove() const {
  if (msgctl(id_, IPC_RMID, nullptr) != 0) fail("msgctl");
}

RawMessage RawPeer::ask(const std::string& text) const {
  requests.sendMessage(IPC_KIND_REQUEST, text);
  return replies.takeMessage();
}

int rawLife(key_t key) {
  const int semaphores = semget(key, 0, 0);
  return semaphores < 0 ? -1 : semctl(semaphores, 0, GETVAL);
}

}  // namespace hbbtv_ryn::test
