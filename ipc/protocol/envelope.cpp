#include "ipc/protocol/envelope.h"

#include <json/reader.h>
#include <json/writer.h>

#include <cstring>
#include <utility>

// Json::Reader and Json::StyledWriter are marked deprecated. Their successors write another indentation
// than the wire form, and build a whole writer or reader for each text, at five times the cost.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace hbbtv_ryn {

std::string serialise(const Json::Value& message) {
  Json::StyledWriter writer;
  return writer.write(message);
}

bool parse(const char* text, Json::Value* message) {
  constexpr bool kCollectComments = false;
  // Making a reader costs as much as reading a short message does. It keeps nothing of a message.
  thread_local Json::Reader reader;
  try {
    return reader.parse(text, text + std::strlen(text), *message, kCollectComments) && message->isObject();
  } catch (const Json::Exception&) {
    return false;  // nested beyond the reader's stack limit
  }
}

#pragma GCC diagnostic pop

int integer(const Json::Value& message, const char* key) {
  return message[key].asInt();
}

bool boolean(const Json::Value& message, const char* key) {
  return integer(message, key) != 0;
}

std::string string(const Json::Value& message, const char* key) {
  return message[key].asString();
}

void set(Json::Value* message, const char* key, Json::Value value) {
  (*message)[Json::StaticString(key)] = std::move(value);
}

}  // namespace hbbtv_ryn
