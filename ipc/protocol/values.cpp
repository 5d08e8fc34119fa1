#include "ipc/protocol/values.h"

namespace hbbtv_ryn {
namespace {

Given givenOf(const Member& member, const Value& value) {
  if (isText(member.type)) return std::string_view(*value.text);
  if (member.type == Type::kKeyCount) return KeyList{value.keys.codes, value.keys.count};
  return isFlag(member.type) ? static_cast<int>(value.flag) : value.number;
}

}  // namespace

Json::Value compose(int code, const Members& members, const Given* given, const Value* answers) {
  Json::Value message(Json::objectValue);
  if (code != kNoReplyCode) set(&message, key::kCode, static_cast<Json::UInt>(code));
  for (const Member& member : members) {
    const Given value = given != nullptr ? *given++ : givenOf(member, *answers++);
    if (isText(member.type)) {
      const auto* const text = static_cast<const char*>(value.data);
      set(&message, member.key, Json::Value(text, text + value.number));
    } else if (member.type == Type::kBoolean) {
      set(&message, member.key, value.number != 0);
    } else {
      if (value.data != nullptr) setKeyCodes(&message, static_cast<const int*>(value.data), value.number);
      set(&message, member.key, value.number);
    }
  }
  return message;
}

void read(const Json::Value& message, const Members& members, Value* value) {
  for (const Member& member : members) {
    if (!member.delivered) continue;
    if (isText(member.type)) {
      value->text = string(message, member.key);
    } else {
      value->number = integer(message, member.key);
      value->flag = value->number != 0;
    }
    if (member.type == Type::kKeyCount) {
      value->keys = {value->number, {}};
      readKeyCodes(message, value->number, value->keys.codes);
    }
    ++value;
  }
}

void readDefaults(const Json::Value& request, const Members& reply, Value* value) {
  for (const Member& member : reply) {
    const bool repeated = member.default_answer == kAsRequested;
    value->number = repeated ? integer(request, member.key) : member.default_answer;
    value->flag = value->number != 0;
    if (isText(member.type)) value->text.emplace();
    if (member.type == Type::kKeyCount) value->keys = {value->number, {}};
    ++value;
  }
}

}  // namespace hbbtv_ryn
