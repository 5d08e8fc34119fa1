/// @file
/// Messages between the catalogue and the user: found by what is typed, shown as what can be typed.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_MESSAGE_TEXT_H
#define HBBTV_RYN_TOOLS_RYNCTL_MESSAGE_TEXT_H

#include <json/value.h>

#include <string>
#include <vector>

#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn::rynctl {

/// The message with this name, in any case, or this code. Throws Failure (Usage) that names close ones.
const Message& findByName(const std::string& name);

/// Those whose name matches the shell pattern, in any case, in the order of their codes.
std::vector<const Message*> findMatching(const std::string& glob);

/// Whether the name matches a shell pattern, in any case.
bool matches(const std::string& glob, std::string_view name);

/// The members besides the code as the arguments of `call` and `send`: "appid=1 orgid=10", in the order of
/// the catalogue.
std::string membersText(const Json::Value& message, const Members& members);

/// What a host without handlers answers.
Json::Value defaultReply(const Message& message, const Json::Value& request);

/// "browser" or "plug-in": who receives the message.
const char* receiverOf(const Message& message);
const char* senderOf(const Message& message);

/// A text of the wire in one line, without bytes that steer a terminal.
std::string onOneLine(std::string_view text);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_MESSAGE_TEXT_H
