/// @file
/// A peer that shares no code with the library, only the public record: it speaks to System V queues
/// directly and has its own idea of keys, sizes and what a record holds, so that a mistake made alike by
/// the library's sender and receiver shows.
///
/// Every wait ends at the deadline with an exception, which fails the test.
#ifndef HBBTV_RYN_TOOLS_SUPPORT_RAW_PEER_H
#define HBBTV_RYN_TOOLS_SUPPORT_RAW_PEER_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hbbtv_ryn/ipc.h"

namespace hbbtv_ryn::test {

/// The three request queues; a queue's replies travel at the next key.
inline constexpr auto kRequestKey = static_cast<key_t>(0x92101081);       // plug-in to browser
inline constexpr auto kNotificationKey = static_cast<key_t>(0x92101091);  // browser to plug-in
inline constexpr auto kQueryKey = static_cast<key_t>(0x92101093);         // browser to plug-in

/// Message bytes in a full record.
inline constexpr std::size_t kRawPayload = 1025;
/// The size of every record as msgsnd() and msgrcv() count it: without the type word.
inline constexpr std::size_t kRawRecordBytes = 1056;

/// A record of `text`, at most kRawPayload bytes, that is a whole message on channel 1.
IpcRecord rawRecord(int kind, const std::string& text);
/// A message of any length cut into its records.
std::vector<IpcRecord> rawRecords(int kind, const std::string& text);

struct RawMessage {
  int kind;
  int total_length;
  std::string text;
};

class RawQueue {
 public:
  /// Opens the queue, or makes it as a server would.
  explicit RawQueue(key_t key);

  /// Puts a record on the queue with this size, right or wrong; waits while the queue is full.
  void send(const IpcRecord& record, std::size_t bytes = kRawRecordBytes) const;
  /// Puts any bytes on the queue.
  void sendBytes(const std::string& body, long type = 1) const;
  /// Sends as send() does, but says false instead of waiting.
  bool trySend(const IpcRecord& record, std::size_t bytes = kRawRecordBytes) const;
  void sendMessage(int kind, const std::string& text) const;

  /// The next record of any type; it must have the size of a record.
  IpcRecord take() const;
  /// The next message, joined; its records must agree with each other as a sender's do.
  RawMessage takeMessage() const;

  void discardAll() const;

  /// How many records wait.
  std::size_t depth() const;
  void waitUntilEmpty() const;
  /// Whether anything has ever been taken off.
  bool hasBeenReceivedFrom() const;
  /// Limits this queue alone; a limit above the kernel's needs privilege.
  void setCapacity(std::size_t bytes) const;
  void remove() const;
  int id() const { return id_; }

 private:
  int id_;
};

/// Either end of a request queue and its reply queue at the next key.
class RawPeer {
 public:
  explicit RawPeer(key_t key) : requests(key), replies(key + 1) {}

  // As the client.
  void notify(const std::string& text) const { requests.sendMessage(IPC_KIND_ONEWAY, text); }
  /// Sends a request and waits for its answer.
  RawMessage ask(const std::string& text) const;

  // As the server.
  RawMessage nextRequest() const { return requests.takeMessage(); }
  void reply(const std::string& text) const { replies.sendMessage(IPC_KIND_REPLY, text); }
  /// The answer of a server that has none.
  void fail() const { replies.sendMessage(IPC_KIND_FAILURE, std::string("a\0", 2)); }

  RawQueue requests;
  RawQueue replies;
};

/// The value of the semaphore by which the server of a queue shows that it lives: 1 alive, 0 gone, -1 when
/// there is no such semaphore.
int rawLife(key_t key);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_SUPPORT_RAW_PEER_H
