#include "tools/rynctl/text/message_text.h"

#include <fnmatch.h>
#include <strings.h>

#include <charconv>
#include <set>

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

}  // namespace

bool matches(const std::string& glob, std::string_view name) {
  return fnmatch(glob.c_str(), std::string(name).c_str(), FNM_CASEFOLD) == 0;
}

const Message& findByName(const std::string& name) {
  int code = 0;
  const auto parsed = std::from_chars(name.data(), name.data() + name.size(), code);
  if (parsed.ec == std::errc() && parsed.ptr == name.data() + name.size()) {
    if (const Message* const message = findMessage(code)) return *message;
  }
  for (const Message& message : kMessages) {
    if (strcasecmp(std::string(message.name).c_str(), name.c_str()) == 0) return message;
  }
  throw Failure(ExitCode::Usage, "no message is called {}{} 'rynctl list' shows them all", printable(name),
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

std::string commandText(const Message& message, const Json::Value& members) {
  const std::string arguments = membersText(members, message.request);
  return compose("{}{}{}", message.name, arguments.empty() ? "" : " ", arguments);
}

std::string membersIn(const std::string& text, const Message* message, bool answer) {
  Json::Value members;
  if (message == nullptr || !parse(text.c_str(), &members)) return onOneLine(text);
  return membersText(members, answer ? message->reply : message->request);
}

Json::Value defaultReply(const Message& message, const Json::Value& request) {
  Json::Value reply(Json::objectValue);
  if (message.reply_code != kNoReplyCode) {
    set(&reply, key::kCode, static_cast<Json::UInt>(message.reply_code));
  }
  for (const Member& member : message.reply) {
    if (member.default_answer == kAsRequested) {
      set(&reply, member.key, request[member.key]);
    } else if (member.type == Type::kString || member.type == Type::kIdFields) {
      set(&reply, member.key, "");
    } else if (member.type == Type::kBoolean) {
      set(&reply, member.key, member.default_answer != 0);
    } else {
      set(&reply, member.key, member.default_answer);
    }
  }
  return reply;
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

}  // namespace hbbtv_ryn::rynctl
