// Messages between the catalogue and the user: found by what is typed, made of it, and shown as it.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TEXT_MESSAGE_TEXT_H
#define HBBTV_RYN_TOOLS_RYNCTL_TEXT_MESSAGE_TEXT_H

#include <json/value.h>

#include <string>
#include <vector>

#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn::rynctl {

/// The two processes.
enum class Side { kBrowser, kPlugin };

constexpr Side other(Side side) {
  return side == Side::kBrowser ? Side::kPlugin : Side::kBrowser;
}
constexpr Side receiverOf(const Message& message) {
  return message.direction == Direction::kToBrowser ? Side::kBrowser : Side::kPlugin;
}
constexpr const char* nameOf(Side side) {
  return side == Side::kBrowser ? "browser" : "plug-in";
}

/// The message with this name, in any case, or this code. Throws Failure (Usage) that names close ones.
const Message& findByName(const std::string& name);

/// Whether the name matches a shell pattern, in any case.
bool matches(const std::string& glob, std::string_view name);

/// A text of the wire.
struct Decoded {
  const Message* message = nullptr;  // null for none of the catalogue
  Json::Value members;
};
Decoded decode(const std::string& text);

/// The members besides the code as the arguments of `call` and `send`: "appid=1 orgid=10", in the order of
/// the catalogue.
std::string membersText(const Json::Value& message, const Members& members);

/// The name; for none of the catalogue what is known of it.
std::string nameText(const Message* message, int code);

/// The members with the name in front.
std::string commandText(const Message& message, const Json::Value& members);

/// The members of a request, or of an answer to it, as far as `text` can be read; else the text on one
/// line.
std::string membersIn(const std::string& text, const Message* message, bool answer);

/// A text of the wire in one line, without bytes that steer a terminal.
std::string onOneLine(std::string_view text);

/// The message, with its code and every member that its kind has.
///
/// @param assignments  "key=value" each.
/// @param members      what they are added to.
/// Throws Failure (Malformed) that says what is missing, unknown or of a wrong type.
Json::Value buildMessage(const Message& message, const std::vector<std::string>& assignments,
                         Json::Value members);

/// Throws Failure (Malformed), beginning with `where`, for a member that is unknown or of a wrong type.
void checkMembers(const std::string& where, const Json::Value& members, const Members& expected);
/// Throws Failure (Malformed) that begins with `where`.
[[noreturn]] void failMalformed(const std::string& where, const std::string& what);

/// Parses a JSON object. Throws Failure (Malformed), beginning with `where`.
Json::Value parseObject(const std::string& where, const std::string& text);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TEXT_MESSAGE_TEXT_H
