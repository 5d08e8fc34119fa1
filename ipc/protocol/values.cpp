#include "ipc/protocol/values.h"

#include "ipc/protocol/envelope.h"

namespace hbbtv_ryn {
namespace {

void add(Json::Value* message, const Member& member, const Given& value) {
  if (isText(member.type)) {
    const auto* const text = static_cast<const char*>(value.data);
    return set(message, member.key, Json::Value(text, text + value.number));
  }
  if (value.data != nullptr) setKeyCodes(message, static_cast<const int*>(value.data), value.number);
  set(message, member.key, member.type == Type::kBoolean ? Json::Value(value.number != 0) : value.number);
}

// A message without members.
Json::Value envelope(int code) {
  Json::Value message(Json::objectValue);
  if (code != kNoReplyCode) set(&message, key::kCode, static_cast<Json::UInt>(code));
  return message;
}

}  // namespace

Json::Value compose(int code, const Members& members, const Given* values) {
  Json::Value message = envelope(code);
  for (const Member& member : members) add(&message, member, *values++);
  return message;
}

Json::Value compose(int code, const Members& members, const Values& values) {
  Json::Value message = envelope(code);
  const Scalar* scalar = values.scalars;
  const std::string* text = values.texts;
  for (const Member& member : members) {
    if (isText(member.type)) {
      add(&message, member, std::string_view(*text++));
    } else if (member.type == Type::kKeyCount) {
      add(&message, member, KeyList{values.keys.codes, values.keys.count});
    } else {
      add(&message, member, isFlag(member.type) ? static_cast<int>(scalar->flag) : scalar->number);
      ++scalar;
    }
  }
  return message;
}

void read(const Json::Value& message, const Members& members, Values* values) {
  Scalar* scalar = values->scalars;
  std::string* text = values->texts;
  for (const Member& member : members) {
    if (!member.delivered) continue;
    if (isText(member.type)) {
      *text++ = string(message, member.key);
    } else if (member.type == Type::kKeyCount) {
      values->keys = {integer(message, member.key), {}};
      readKeyCodes(message, values->keys.count, values->keys.codes);
    } else {
      scalar++->number = integer(message, member.key);
    }
  }
}

}  // namespace hbbtv_ryn
