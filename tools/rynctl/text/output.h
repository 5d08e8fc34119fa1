// Where the tool writes, and what may be written to a terminal.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TEXT_OUTPUT_H
#define HBBTV_RYN_TOOLS_RYNCTL_TEXT_OUTPUT_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/rynctl/text/format.h"

namespace hbbtv_ryn::rynctl {

/// The tool's standard output, a line at a time. From the first call on, what anybody else in this process
/// writes to standard output goes to standard error: the library writes lines there.
std::FILE* output();

/// Results go to the tool's standard output.
template <typename... Arguments>
void print(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
  std::fputs(compose(text, std::forward<Arguments>(arguments)...).c_str(), output());
}

/// A line for people, on standard error.
template <typename... Arguments>
void remark(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
  std::fputs((compose(text, std::forward<Arguments>(arguments)...) + '\n').c_str(), stderr);
}

/// What went wrong, after the tool's name, on standard error.
void complain(std::string_view text);

/// Prints a text that takes the place of the one before: on a terminal the screen is cleared.
void redraw(const std::string& text);

enum class Style { kPlain, kHeading, kGood, kProblem };

/// @return the text; coloured where the stream is a terminal that shows colour, and the user has not set
/// NO_COLOR.
std::string styled(Style style, std::string_view text, std::FILE* stream = output());

/// @return the text with its control bytes as \xNN: what a peer sends must not steer the terminal.
std::string printable(std::string_view text);

std::string joined(const std::vector<std::string>& texts, std::string_view separator);

/// @return "1 message", "2 messages", "2 processes".
std::string counted(unsigned long number, std::string_view thing);

/// @return "0x92101081", as ipcs shows it.
std::string keyText(key_t key);

/// @return "3 s", "5 min", "2 h", "4 d" ago; "never" for 0.
std::string ageText(std::time_t when);

/// @return the local time of day with microseconds.
/// @param microseconds  since 1970.
std::string clockText(std::int64_t microseconds);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TEXT_OUTPUT_H
