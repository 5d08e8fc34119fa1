/// @file
/// What may be written to a terminal.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TERMINAL_H
#define HBBTV_RYN_TOOLS_RYNCTL_TERMINAL_H

#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

namespace hbbtv_ryn::rynctl {

enum class Style { Heading, Good, Problem };

/// @return whether the descriptor is a terminal that shows colour, and the user has not set NO_COLOR.
bool hasColour(int descriptor);

/// @return the text, coloured when `colour` says so.
std::string styled(Style style, std::string_view text, bool colour);

/// @return the text with its control bytes as \xNN: what a peer sends must not steer the terminal.
std::string printable(std::string_view text);

std::string joined(const std::vector<std::string>& texts, std::string_view separator);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TERMINAL_H
