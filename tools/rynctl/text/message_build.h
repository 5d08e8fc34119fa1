// Makes a message out of what the user typed, checked against the catalogue.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TEXT_MESSAGE_BUILD_H
#define HBBTV_RYN_TOOLS_RYNCTL_TEXT_MESSAGE_BUILD_H

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn::rynctl {

/// The message, with its code and every member that its kind has.
///
/// @param assignments  "key=value" each.
/// @param json         a JSON object to start from, if any.
/// Throws Failure (Malformed) that says what is missing, unknown or of a wrong type.
Json::Value buildMessage(const Message& message, const std::vector<std::string>& assignments,
                         const std::optional<std::string>& json);

/// Throws Failure (Malformed), beginning with `where`, for a member that is unknown or of a wrong type.
void checkMembers(const std::string& where, const Json::Value& members, const Members& expected);
/// The same for a member that is missing.
void checkComplete(const std::string& where, const Json::Value& members, const Members& expected);

/// Throws Failure (Malformed) that begins with `where`.
[[noreturn]] void failMalformed(const std::string& where, const std::string& what);

/// Parses a JSON object. Throws Failure (Malformed), beginning with `where`.
Json::Value parseObject(const std::string& where, const std::string& text);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TEXT_MESSAGE_BUILD_H
