/// @file
/// The envelope: one JSON object per message, with the message code under "t" and the members that its row
/// of the catalogue describes. Of which type a member is, the row alone says. A key-code list is a count
/// and the integer members k0, k1, …; an id list is a count and two strings of fixed-width fields.
#ifndef HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H
#define HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

#include "hbbtv_ryn/browser.h"
#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn {

/// The one place that writes the wire form: styled, with three-space indentation. Throws when memory is
/// out.
std::string serialise(const Json::Value& message);

/// The one place that reads JSON, up to the text's NUL, in any layout. False when the text is not JSON, is
/// nested too deeply or has a root that is no object; `message` is then unspecified. Throws when memory is
/// out.
bool parse(const char* text, Json::Value* message);

/// A member of a parsed message: 0 when it is missing. Throws Json::Exception when it does not convert.
int integer(const Json::Value& message, const char* key);

/// What the browser keeps of a key-code list, and the most that a reply carries.
inline constexpr int kMaxKeyCodes = ZUNT_RYN_MAX_OTHER_KEYS;

/// Name of the index-th member of a key-code list.
std::string keyCodeName(int index);

/// Sets the members k0 to k(count - 1). Nothing for a count of 0 or less.
void setKeyCodes(Json::Value* message, const int* codes, int count);

/// Reads the members k0 to k(count - 1), at most kMaxKeyCodes of them, into `codes`.
void readKeyCodes(const Json::Value& message, int count, int* codes);

inline constexpr int kIdFieldChars = 16;  // "%16d": wide enough for any int, fixed by the wire format

/// The ids as one string of fields. Empty for a count of 0 or less.
std::string idFields(const int* ids, int count);

/// Reads the fields that lie wholly inside the string, at most `count`. An entry without field, or whose
/// field holds no number, keeps its value.
void readIdFields(const std::string& fields, int count, int* ids);

/// A key-code list to be sent. Null codes: the count goes alone.
struct KeyList {
  const int* codes;
  int count;
};

/// A key-code list as received: the count as told, the codes that there is room for, 0 past them.
struct KeyCodes {
  int count;
  int codes[kMaxKeyCodes];
};

/// A value to be sent, by reference, so that naming it cannot fail.
struct Given {
  Given(int value) : number(value) {}
  Given(std::string_view value) : number(static_cast<int>(value.size())), data(value.data()) {}
  Given(const KeyList& value) : number(value.count), data(value.codes) {}

  int number;  ///< also a flag, and how many bytes or codes the data has
  const void* data = nullptr;
};

/// A value as received, or as a handler answers it: in the one member that the row's type means.
struct Value {
  int number;
  bool flag;
  std::optional<std::string> text;
  KeyCodes keys;
};

/// The message of these values, one for each member, with "t" unless the code is kNoReplyCode. Throws when
/// memory is out.
/// @param given  null: what a handler has answered is sent.
Json::Value compose(int code, const Members& members, const Given* given, const Value* answers = nullptr);

/// Reads the delivered members, one value for each. Throws Json::Exception when one does not convert, and
/// when memory is out.
void read(const Json::Value& message, const Members& members, Value* values);

/// The values of the reply to a request that no handler answers. Throws as read() does.
void readDefaults(const Json::Value& request, const Members& reply, Value* values);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_ENVELOPE_H
