#include "tools/rynctl/text/message_build.h"

#include <json/reader.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <string_view>

#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

bool isKeyCount(const Member& member) {
  return member.type == Type::kKeyCount;
}

Type typeOf(const std::string& where, const Members& members, const std::string& key) {
  std::vector<std::string> known;
  for (const Member& member : members) {
    if (key == member.key) return member.type;
    known.emplace_back(member.key);
  }
  if (std::any_of(members.begin(), members.end(), isKeyCount)) {
    const bool numbered = key.size() > 1 && key.find_first_not_of("0123456789", 1) == std::string::npos;
    if (key[0] == 'k' && numbered) return Type::kInt;
    known.emplace_back("k0, k1, …");
  }
  failMalformed(where, compose("no member is called {}; it has {}", printable(key),
                               known.empty() ? "none" : joined(known, ", ")));
}

[[noreturn]] void failType(const std::string& where, const std::string& key, Type type,
                           const std::string& value) {
  const char* const wanted = type == Type::kFlag || type == Type::kBoolean ? "0 or 1, false or true"
                             : type == Type::kString                       ? "a string"
                             : type == Type::kIdFields ? "a string of fields of 16 characters"
                                                       : "an integer of 32 bits";
  failMalformed(where, compose("{} takes {}, not {}", printable(key), wanted, printable(value)));
}

/// What a typed text stands for; null for nothing that a member of the type could be.
Json::Value valueIn(std::string_view text, Type type) {
  if (type == Type::kString || type == Type::kIdFields) return std::string(text);
  if (text == "true" || text == "false") return text == "true";
  const bool hexadecimal = text.substr(0, 2) == "0x" && text.substr(2, 1) != "-";
  if (hexadecimal) text.remove_prefix(2);
  int value = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value, hexadecimal ? 16 : 10);
  const bool whole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
  return whole ? Json::Value(value) : Json::Value();
}

bool fits(const Json::Value& value, Type type) {
  if (type == Type::kString || type == Type::kIdFields) return value.isString();
  if (type == Type::kInt || type == Type::kKeyCount) return value.isInt();
  return value.isBool() || value == 0 || value == 1;
}

/// A key-code list whose count was left out is as long as its codes say.
void countKeyCodes(Json::Value* members, const Members& expected) {
  for (const Member& member : expected) {
    if (!isKeyCount(member) || members->isMember(member.key)) continue;
    int count = 0;
    while (members->isMember(keyCodeName(count))) ++count;
    if (count > 0) set(members, member.key, count);
  }
}

}  // namespace

void failMalformed(const std::string& where, const std::string& what) {
  throw Failure(ExitCode::Malformed, "{}: {}", where, what);
}

Json::Value parseObject(const std::string& where, const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
      std::replace(errors.begin(), errors.end(), '\n', ' ');
      failMalformed(where, "no JSON object: " + printable(errors));
    }
  } catch (const Json::Exception& error) {
    failMalformed(where, std::string("no JSON object: ") + error.what());
  }
  return value;
}

void checkMembers(const std::string& where, const Json::Value& members, const Members& expected) {
  if (!members.isObject())
    failMalformed(where, "an object is expected, not " + printable(oneLine(members)));
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
  if (!missing.empty()) failMalformed(where, "still needed: " + joined(missing, ", "));
}

Json::Value buildMessage(const Message& message, const std::vector<std::string>& assignments,
                         const std::optional<std::string>& json) {
  const std::string where(message.name);
  const auto code = static_cast<int>(message.code);
  Json::Value members = json ? parseObject(where, *json) : Json::Value(Json::objectValue);
  if (members.isObject() && members.isMember(key::kCode)) {
    if (members[key::kCode] != code) {
      failMalformed(where, compose("its code is {}, not {}", code, oneLine(members[key::kCode])));
    }
    members.removeMember(key::kCode);
  }
  checkMembers(where, members, message.request);
  for (const std::string& assignment : assignments) {
    const auto equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw Failure(ExitCode::Usage, "key=value is expected, not {}", printable(assignment));
    }
    const std::string name = assignment.substr(0, equals);
    const std::string text = assignment.substr(equals + 1);
    const Type type = typeOf(where, message.request, name);
    Json::Value& value = members[name] = valueIn(text, type);
    if (!fits(value, type)) failType(where, name, type, text);
    if (type == Type::kFlag) value = flag(value.asBool());
    if (type == Type::kBoolean) value = value.asBool();
  }
  countKeyCodes(&members, message.request);
  checkComplete(where, members, message.request);
  set(&members, key::kCode, static_cast<Json::UInt>(code));
  return members;
}

}  // namespace hbbtv_ryn::rynctl
