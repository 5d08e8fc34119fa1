/// @file
/// What travels in a message, between the values of the C++ interface and the JSON that a row of the
/// catalogue describes. Of which type a value is, the row alone says.
#ifndef HBBTV_RYN_IPC_PROTOCOL_VALUES_H
#define HBBTV_RYN_IPC_PROTOCOL_VALUES_H

#include <json/value.h>

#include <string>
#include <string_view>

#include "ipc/protocol/catalogue.h"
#include "ipc/protocol/lists.h"

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

/// A value as received, where a flag is a number, or as a handler answers it.
struct Scalar {
  int number;
  bool flag;
};

/// The most texts that one half of a row holds.
inline constexpr std::size_t kMostTexts = [] {
  std::size_t most = 0;
  for (const Message& row : kMessages) {
    for (const Members* members : {&row.request, &row.reply}) {
      std::size_t texts = 0;
      for (const Member& member : *members) texts += isText(member.type) ? 1 : 0;
      most = texts > most ? texts : most;
    }
  }
  return most;
}();

/// The values of a message: the texts, and the rest, each in the order of the row without the members that
/// are not delivered. It has one key-code list at most, since the names k0, k1, … are fixed. What the row
/// does not hold is not set.
struct Values {
  Scalar scalars[Members::kCapacity];
  std::string texts[kMostTexts];
  KeyCodes keys;
};

/// The message of these values, with "t" unless the code is kNoReplyCode. Throws when memory is out.
Json::Value compose(int code, const Members& members, const Given* values);
Json::Value compose(int code, const Members& members, const Values& values);

/// Reads the delivered members. Throws Json::Exception when one does not convert, and when memory is out.
void read(const Json::Value& message, const Members& members, Values* values);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_VALUES_H
