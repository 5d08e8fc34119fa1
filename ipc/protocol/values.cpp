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

Given givenOf(const Member& member, const Value& value, const KeyCodes& keys) {
  if (isText(member.type)) return std::string_view(value.text);
  if (isFlag(member.type)) return value.flag ? 1 : 0;
  return member.type == Type::kKeyCount ? Given(KeyList{keys.codes, keys.count}) : value.number;
}

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
  const Value* value = values.items;
  for (const Member& member : members) add(&message, member, givenOf(member, *value++, values.keys));
  return message;
}

void read(const Json::Value& message, const Members& members, Values* values) {
  Value* value = values->items;
  for (const Member& member : members) {
    if (!member.delivered) continue;
    if (isText(member.type)) {
      value->text = string(message, member.key);
    } else {
      value->number = integer(message, member.key);
    }
    if (member.type == Type::kKeyCount) {
      values->keys.count = value->number;
      readKeyCodes(message, value->number, values->keys.codes);
    }
    ++value;
  }
}

}  // namespace hbbtv_ryn
