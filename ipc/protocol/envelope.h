/// @file
/// The envelope: one JSON object per message, with the message code under "t". And the two kinds of lists
/// in it: a key-code list is a count and the integer members k0, k1, …; an id list is a count and two
/// strings of fixed-width fields.
#ifndef HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H
#define HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H

#include <json/value.h>

#include <string>

#include "hbbtv_ryn/browser.h"

namespace hbbtv_ryn {

/// The one place that writes the wire form: styled, with three-space indentation. Throws when memory is
/// out.
std::string serialise(const Json::Value& message);

/// The one place that reads JSON, up to the text's NUL, in any layout. False when the text is not JSON, is
/// nested too deeply or has a root that is no object; `message` is then unspecified. Throws when memory is
/// out.
bool parse(const char* text, Json::Value* message);

/// Members of a parsed message. A missing one reads as 0 or the empty string; one of a type that
/// does not convert throws Json::Exception.
int integer(const Json::Value& message, const char* key);
std::string string(const Json::Value& message, const char* key);

/// Sets a member. The key must live as long as the process.
void set(Json::Value* message, const char* key, Json::Value value);

/// What the browser keeps of a key-code list, and the most that a reply carries.
inline constexpr int kMaxKeyCodes = ZUNT_RYN_MAX_OTHER_KEYS;

/// Name of the index-th member of a key-code list.
std::string keyCodeName(int index);

/// Sets the members k0 to k(count - 1). Nothing for a count of 0 or less.
void setKeyCodes(Json::Value* message, const int* codes, int count);

/// Reads the members k0 to k(count - 1), at most kMaxKeyCodes of them, into `codes`.
void readKeyCodes(const Json::Value& message, int count, int* codes);

inline constexpr int kIdFieldChars = 16;  // "%16d": wide enough for any int, fixed by the wire format

/// What a caller makes room for: the most that one deliverable reply lists, two fields each.
inline constexpr int kMaxChildApps = ZUNT_RYN_MAX_CHILD_APPS;

/// The ids as one string of fields. Empty for a count of 0 or less.
std::string idFields(const int* ids, int count);

/// Reads the fields that lie wholly inside the string, at most `count`. An entry without field, or whose
/// field holds no number, keeps its value.
void readIdFields(const std::string& fields, int count, int* ids);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H
