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
  // Not kept from one text to the next, though making it costs as much as a short text does: a host asks
  // from its exit handlers too, when what a thread keeps is gone.
  Json::Reader reader;
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
