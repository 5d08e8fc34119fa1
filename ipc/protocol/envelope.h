/// @file
/// The envelope: one JSON object per message, with the message code under "t".
#ifndef HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H
#define HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H

#include <json/value.h>

#include <string>

namespace hbbtv_ryn {

/// The one place that writes the wire form: styled, with three-space indentation. Throws when memory is
/// out.
std::string serialise(const Json::Value& message);

/// The one place that reads JSON, up to the text's NUL, in any layout. False when the text is not JSON, is
/// nested too deeply or has a root that is no object; `message` is then unspecified. Throws when memory is
/// out.
bool parse(const char* text, Json::Value* message);

/// Members of a parsed message. A missing one reads as 0, false or the empty string; one of a type that
/// does not convert throws Json::Exception.
int integer(const Json::Value& message, const char* key);
bool boolean(const Json::Value& message, const char* key);
std::string string(const Json::Value& message, const char* key);

/// Sets a member. The key must live as long as the process.
void set(Json::Value* message, const char* key, Json::Value value);

/// 0 or 1: how most flags travel.
inline Json::Value flag(bool value) {
  return Json::Value(value ? 1 : 0);
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H
