#include "tools/rynctl/text/message_text.h"

#include <fnmatch.h>
#include <json/reader.h>
#include <strings.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string_view>

#include "ipc/protocol/envelope.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// As a shell word, or quoted as JSON when it would not be one.
std::string valueText(const Json::Value& value) {
  if (!value.isString()) return oneLine(value);
  const std::string text = value.asString();
  const bool plain =
      !text.empty() && text.find_first_of(" \t\n\"'\\$`|&;<>()*?[]{}#~!") == std::string::npos;
  return plain ? printable(text) : printable(oneLine(value));
}

void append(std::string& text, const std::string& key, const Json::Value& value) {
  if (!text.empty()) text += ' ';
  text += printable(key) + '=' + valueText(value);
}

/// Up to three names that hold the typed one, or begin as it does.
std::string suggestions(const std::string& name) {
  constexpr std::size_t kPrefix = 3;
  constexpr std::size_t kMost = 3;
  std::vector<std::string> close;
  for (const std::string& part : {name, name.substr(0, kPrefix)}) {
    for (const Message& message : kMessages) {
      if (part.size() >= kPrefix && matches('*' + part + '*', message.name))
        close.emplace_back(message.name);
    }
    if (!close.empty()) break;
  }
  if (close.size() > kMost) close.resize(kMost);
  return close.empty() ? ";" : compose("; did you mean {}?", joined(close, ", "));
}

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
  const char* const wanted = isFlag(type)              ? "0 or 1, false or true"
                             : type == Type::kString   ? "a string"
                             : type == Type::kIdFields ? "a string of fields of 16 characters"
                                                       : "an integer of 32 bits";
  failMalformed(where, compose("{} takes {}, not {}", printable(key), wanted, printable(value)));
}

/// What a typed text stands for; null for nothing that a member of the type could be.
Json::Value valueIn(std::string_view text, Type type) {
  if (isText(type)) return std::string(text);
  if (text == "true" || text == "false") return text == "true";
  const bool hexadecimal = text.substr(0, 2) == "0x" && text.substr(2, 1) != "-";
  if (hexadecimal) text.remove_prefix(2);
  int value = 0;
  return readNumber(text, &value, hexadecimal ? 16 : 10) ? Json::Value(value) : Json::Value();
}

bool fits(const Json::Value& value, Type type) {
  if (isText(type)) return value.isString();
  return isFlag(type) ? value.isBool() || value == 0 || value == 1 : value.isInt();
}

/// A key-code list whose count was left out is as long as its codes say.
void countKeyCodes(Json::Value* members, const Members& expected) {
  for (const Member& member : expected) {
    if (!isKeyCount(member) || members->isMember(member.key)) continue;
    int count = 0;
    while (members->isMember(keyCodeName(count))) ++count;
    if (count > 0) (*members)[member.key] = count;
  }
}

}  // namespace

bool matches(const std::string& glob, std::string_view name) {
  return fnmatch(glob.c_str(), std::string(name).c_str(), FNM_CASEFOLD) == 0;
}

const Message& findByName(const std::string& name) {
  int code = 0;
  const Message* const numbered = readNumber(name, &code) ? findMessage(code) : nullptr;
  if (numbered != nullptr) return *numbered;
  for (const Message& message : kMessages) {
    if (strcasecmp(std::string(message.name).c_str(), name.c_str()) == 0) return message;
  }
  throw Failure(ExitCode::kUsage, "no message is called {}{} 'rynctl list' shows them all", printable(name),
                suggestions(name));
}

Decoded decode(const std::string& text) {
  Decoded decoded;
  try {
    if (parse(text.c_str(), &decoded.members)) {
      decoded.message = findMessage(integer(decoded.members, key::kCode));
    }
  } catch (const Json::Exception&) {
    // Its code is no number.
  }
  return decoded;
}

std::string membersText(const Json::Value& message, const Members& members) {
  if (!message.isObject()) return printable(oneLine(message));
  std::string text;
  std::set<std::string> shown{key::kCode};
  for (const Member& member : members) {
    if (!message.isMember(member.key)) continue;
    append(text, member.key, message[member.key]);
    shown.insert(member.key);
  }
  // Key codes, and what the catalogue does not know.
  for (const std::string& name : message.getMemberNames()) {
    if (shown.count(name) == 0) append(text, name, message[name]);
  }
  return text;
}

std::string nameText(const Message* message, int code) {
  if (message == nullptr) return code == 0 ? "?" : compose("code {}", code);
  return std::string(message->name);
}

std::string commandText(const Message& message, const Json::Value& members) {
  const std::string arguments = membersText(members, message.request);
  return compose("{}{}{}", message.name, arguments.empty() ? "" : " ", arguments);
}

std::string membersIn(const std::string& text, const Message* message, bool answer) {
  Json::Value members;
  if (message == nullptr || !parse(text.c_str(), &members)) return onOneLine(text);
  return membersText(members, answer ? message->reply : message->request);
}

std::string onOneLine(std::string_view text) {
  std::string line;
  bool indentation = true;
  for (const char c : text) {
    const bool space = c == ' ' || c == '\n' || c == '\t' || c == '\r';
    if (space && indentation) continue;
    indentation = c == '\n';
    line += space ? ' ' : c;
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return printable(line);
}

void failMalformed(const std::string& where, const std::string& what) {
  throw Failure(ExitCode::kMalformed, "{}: {}", where, what);
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

Json::Value buildMessage(const Message& message, const std::vector<std::string>& assignments,
                         Json::Value members) {
  const std::string where(message.name);
  const auto code = static_cast<int>(message.code);
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
      throw Failure(ExitCode::kUsage, "key=value is expected, not {}", printable(assignment));
    }
    const std::string name = assignment.substr(0, equals);
    const std::string text = assignment.substr(equals + 1);
    const Type type = typeOf(where, message.request, name);
    Json::Value& value = members[name] = valueIn(text, type);
    if (!fits(value, type)) failType(where, name, type, text);
    if (type == Type::kFlag) value = value.asBool() ? 1 : 0;
    if (type == Type::kBoolean) value = value.asBool();
  }
  countKeyCodes(&members, message.request);
  std::vector<std::string> missing;
  for (const Member& member : message.request) {
    if (!members.isMember(member.key))
      missing.push_back(compose("{}={}", member.key, typeName(member.type)));
  }
  if (!missing.empty()) failMalformed(where, "still needed: " + joined(missing, ", "));
  members[key::kCode] = static_cast<Json::UInt>(code);
  return members;
}

}  // namespace hbbtv_ryn::rynctl
