/// @file
/// What travels in a message, between the values of the C++ interface and the JSON that a row of the
/// catalogue describes. Of which type a value is, the row alone says.
#ifndef HBBTV_RYN_IPC_PROTOCOL_VALUES_H
#define HBBTV_RYN_IPC_PROTOCOL_VALUES_H

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

#include "ipc/protocol/catalogue.h"
#include "ipc/protocol/envelope.h"

namespace hbbtv_ryn {

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

#endif  // HBBTV_RYN_IPC_PROTOCOL_VALUES_H
