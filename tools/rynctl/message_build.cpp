#include "message_build.h"

#include <json/reader.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <sstream>
#include <string_view>

#include "exit_code.h"
#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"
#include "terminal.h"
#include "tools/catalogue/catalogue_text.h"

namespace hbbtv_ryn::rynctl {

namespace {

[[noreturn]] void fail(const std::string& where, const std::string& what) {
  throw Failure(ExitCode::Malformed, where + ": " + what);
}

const Member* find(const Members& members, const std::string& key) {
  const auto* const found =
      std::find_if(members.begin(), members.end(), [&](const Member& member) { return key == member.key; });
  return found == members.end() ? nullptr : found;
}

bool hasKeyCodes(const Members& members) {
  return std::any_of(members.begin(), members.end(),
                     [](const Member& member) { return member.type == Type::kKeyCount; });
}

/// Whether the key is one of k0, k1, … of a message that has a key-code list.
bool isKeyCode(const Members& members, const std::string& key) {
  return hasKeyCodes(members) && key.size() > 1 && key[0] == 'k' &&
         key.find_first_not_of("0123456789", 1) == std::string::npos;
}

Type typeOf(const std::string& where, const Members& members, const std::string& key) {
  if (const Member* const member = find(members, key)) return member->type;
  if (isKeyCode(members, key)) return Type::kInt;
  std::vector<std::string> known;
  for (const Member& member : members) known.emplace_back(member.key);
  if (hasKeyCodes(members)) known.emplace_back("k0, k1, …");
  fail(where, "no member is called " + printable(key) +
                  (known.empty() ? "; it has none" : "; it has " + joined(known, ", ")));
}

[[noreturn]] void failType(const std::string& where, const std::string& key, Type type,
                           const std::string& value) {
  const char* const wanted = type == Type::kFlag || type == Type::kBoolean ? "0 or 1, false or true"
                             : type == Type::kString                       ? "a string"
                             : type == Type::kIdFields ? "a string of fields of 16 characters"
                                                       : "an integer of 32 bits";
  fail(where, printable(key) + " takes " + wanted + ", not " + printable(value));
}

std::optional<int> integerIn(std::string_view text) {
  int base = 10;
  const bool negative = !text.empty() && text[0] == '-';
  if (text.substr(0, 2) == "0x") {
    text.remove_prefix(2);
    base = 16;
    if (negative || text.empty() || text[0] == '-') return std::nullopt;
  }
  int value = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<bool> flagIn(std::string_view text) {
  if (text == "1" || text == "true") return true;
  if (text == "0" || text == "false") return false;
  return std::nullopt;
}

Json::Value valueFor(const std::string& where, const std::string& key, Type type, const std::string& text) {
  switch (type) {
    case Type::kInt:
    case Type::kKeyCount:
      if (const auto value = integerIn(text)) return *value;
      break;
    case Type::kFlag:
      if (const auto value = flagIn(text)) return flag(*value);
      break;
    case Type::kBoolean:
      if (const auto value = flagIn(text)) return *value;
      break;
    case Type::kString:
    case Type::kIdFields:
      return text;
  }
  failType(where, key, type, text);
}

bool fits(const Json::Value& value, Type type) {
  switch (type) {
    case Type::kInt:
    case Type::kKeyCount:
      return value.isInt();
    case Type::kFlag:
    case Type::kBoolean:
      return value.isBool() || (value.isInt() && (value.asInt() == 0 || value.asInt() == 1));
    case Type::kString:
    case Type::kIdFields:
      return value.isString();
  }
  return false;
}

/// A key-code list whose count was left out is as long as its codes say.
void countKeyCodes(Json::Value* members, const Members& expected) {
  for (const Member& member : expected) {
    if (member.type != Type::kKeyCount || members->isMember(member.key)) continue;
    int count = 0;
    while (members->isMember(keyCodeName(count))) ++count;
    if (count > 0) set(members, member.key, count);
  }
}

}  // namespace

Json::Value parseObject(const std::string& where, const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
      std::replace(errors.begin(), errors.end(), '\n', ' ');
      fail(where, "no JSON object: " + printable(errors));
    }
  } catch (const Json::Exception& error) {
    fail(where, std::string("no JSON object: ") + error.what());
  }
  return value;
}

void checkMembers(const std::string& where, const Json::Value& members, const Members& expected) {
  if (!members.isObject()) fail(where, "an object is expected, not " + printable(oneLine(members)));
  for (const std::string& name : members.getMemberNames()) {
    const Type type = typeOf(where, expected, name);
    if (!fits(members[name], type)) failType(where, name, type, oneLine(members[name]));
  }
}

void checkComplete(const std::string& where, const Json::Value& members, const Members& expected) {
  std::vector<std::string> missing;
  for (const Member& member : expected) {
    if (!members.isMember(member.key))
      missing.push_back(member.key + std::string("=") + typeName(member.type));
  }
  if (!missing.empty()) fail(where, "still needed: " + joined(missing, ", "));
}

Json::Value buildMessage(const Message& message, const std::vector<std::string>& assignments,
                         const std::optional<std::string>& json) {
  const std::string where(message.name);
  const auto code = static_cast<int>(message.code);
  Json::Value members = json ? parseObject(where, *json) : Json::Value(Json::objectValue);
  if (members.isObject() && members.isMember(key::kCode)) {
    if (members[key::kCode] != code) {
      fail(where, "its code is " + std::to_string(code) + ", not " + oneLine(members[key::kCode]));
    }
    members.removeMember(key::kCode);
  }
  checkMembers(where, members, message.request);
  for (const std::string& assignment : assignments) {
    const auto equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw Failure(ExitCode::Usage, "key=value is expected, not " + printable(assignment));
    }
    const std::string name = assignment.substr(0, equals);
    members[name] =
        valueFor(where, name, typeOf(where, message.request, name), assignment.substr(equals + 1));
  }
  countKeyCodes(&members, message.request);
  checkComplete(where, members, message.request);
  set(&members, key::kCode, static_cast<Json::UInt>(code));
  return members;
}

}  // namespace hbbtv_ryn::rynctl
