#include "tools/rynctl/text/format.h"

#include <fmt/format.h>

std::string hbbtv_ryn::rynctl::formatted(fmt::string_view format, fmt::format_args arguments) {
  return fmt::vformat(format, arguments);
}
