// Text with values in it, and values from text.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TEXT_FORMAT_H
#define HBBTV_RYN_TOOLS_RYNCTL_TEXT_FORMAT_H

#include <fmt/core.h>

#include <charconv>
#include <string>
#include <string_view>

namespace hbbtv_ryn::rynctl {

std::string formatted(fmt::string_view format, fmt::format_args arguments);

/// As fmt::format(), whose source only one file compiles, for it takes seconds.
template <typename... Arguments>
std::string compose(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
  return formatted(text, fmt::make_format_args(arguments...));
}

/// @return whether the whole text is a number of this type.
template <typename Number>
bool readNumber(std::string_view text, Number* number, int base = 10) {
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, *number, base);
  return parsed.ec == std::errc() && parsed.ptr == end;
}

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TEXT_FORMAT_H
