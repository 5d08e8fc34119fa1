// The catalogue in words and samples, for the pages and tools that show it to people.
#ifndef HBBTV_RYN_TOOLS_CATALOGUE_CATALOGUE_TEXT_H
#define HBBTV_RYN_TOOLS_CATALOGUE_CATALOGUE_TEXT_H

#include <json/value.h>

#include <string>

#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn {

// "int", "0/1", "boolean", "string", "int and k0, k1, …" or "string of ids".
const char* typeName(Type type);

const char* directionName(Direction direction);
const char* deliveryName(Delivery delivery);

// The function that sends the message.
std::string senderName(const Message& message);

// What a reply member holds when the host has no handler, as JSON text.
std::string defaultAnswer(const Member& member);

// A message with a plausible value under each key.
Json::Value sampleRequest(const Message& message);
Json::Value sampleReply(const Message& message);

// A message's JSON text on one line.
std::string oneLine(const Json::Value& message);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_TOOLS_CATALOGUE_CATALOGUE_TEXT_H
