// What the tests of the endpoints know of the wire, from its description and not from the library: every
// message of the two processes, as a table to test along.
#ifndef HBBTV_RYN_TESTS_ENDPOINTS_MESSAGES_H
#define HBBTV_RYN_TESTS_ENDPOINTS_MESSAGES_H

#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {

struct Message {
  bool isSynchronous() const { return !reply.empty(); }

  key_t queue;
  std::string (*send)();  // calls the sender's function
  void (*receive)();      // gives the receiver a handler that notes its call
  std::string text;
  std::string noted;  // by that handler
  std::string reply;
  std::string outcome;  // of the sender's function, with that reply
};

/// The message that begins with this code.
const Message& messageOf(int code);
/// Every message has a number from 0; larger numbers begin anew.
const Message& messageAt(std::size_t number);

struct Endpoint {
  const char* name;
  int (*start)();
  int (*stop)();
  void (*forget)();  // removes every handler
  // A synchronous message comes first.
  const std::vector<Message>& sends;
  const std::vector<Message>& receives;
  // A one-way message that a test sends behind another: once it is noted, nothing more comes of the other.
  const Message& marker;
  int receive_threads;
};
extern const Endpoint kBrowser;
extern const Endpoint kPlugin;

/// The outcome of one call, while a raw peer takes the message and gives this reply; none is the failure
/// reply.
std::string exchange(const Message& message, const std::string& reply);
inline std::string exchange(const Message& message) {
  return exchange(message, message.reply);
}

/// What the server of the queue replies to a raw peer; nothing is the failure reply.
std::string ask(key_t queue, const std::string& text);

std::string repeated(int times, const std::string& text);
Json::Value parsed(const std::string& text);
/// The same members with the same values of the same types: 1 and true differ.
testing::AssertionResult sameJson(const std::string& expected, const std::string& actual);

/// Texts that are no JSON object, and the message with each of its members in turn given a type or a value
/// that does not convert.
std::vector<std::string> malformed(const std::string& message);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_ENDPOINTS_MESSAGES_H
