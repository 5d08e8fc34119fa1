#include "ipc/protocol/envelope.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <cstdio>
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

std::string string(const Json::Value& message, const char* key) {
  return message[key].asString();
}

void set(Json::Value* message, const char* key, Json::Value value) {
  (*message)[Json::StaticString(key)] = std::move(value);
}

std::string keyCodeName(int index) {
  return 'k' + std::to_string(index);
}

void setKeyCodes(Json::Value* message, const int* codes, int count) {
  for (int i = 0; i < count; ++i) (*message)[keyCodeName(i)] = codes[i];
}

void readKeyCodes(const Json::Value& message, int count, int* codes) {
  const int kept = std::min(count, kMaxKeyCodes);
  for (int i = 0; i < kept; ++i) codes[i] = integer(message, keyCodeName(i).c_str());
}

std::string idFields(const int* ids, int count) {
  std::string fields;
  for (int i = 0; i < count; ++i) {
    char field[kIdFieldChars + 1];
    std::snprintf(field, sizeof field, "%*d", kIdFieldChars, ids[i]);
    fields.append(field, kIdFieldChars);
  }
  return fields;
}

void readIdFields(const std::string& fields, int count, int* ids) {
  const auto whole = static_cast<int>(fields.size() / kIdFieldChars);
  for (int i = 0; i < std::min(count, whole); ++i) {
    char field[kIdFieldChars + 1] = {};
    fields.copy(field, kIdFieldChars, static_cast<std::size_t>(i) * kIdFieldChars);
    // A field without a number leaves its entry alone, which strtol() would not.
    // NOLINTNEXTLINE(cert-err34-c)
    std::sscanf(field, "%16d", &ids[i]);
  }
}

}  // namespace hbbtv_ryn
