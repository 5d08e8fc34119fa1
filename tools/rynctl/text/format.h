// Text with values in it.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TEXT_FORMAT_H
#define HBBTV_RYN_TOOLS_RYNCTL_TEXT_FORMAT_H

#include <fmt/core.h>

#include <string>

namespace hbbtv_ryn::rynctl {

std::string formatted(fmt::string_view format, fmt::format_args arguments);

/// As fmt::format(), whose source only one file compiles, for it takes seconds.
template <typename... Arguments>
std::string compose(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
  return formatted(text, fmt::make_format_args(arguments...));
}

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TEXT_FORMAT_H
